"""Which branches scripts/coverage counts."""
import tempfile
import unittest

import coverage_report


class DecidingTest(unittest.TestCase):
    def decides(self, text):
        return sorted(coverage_report.deciding(text))

    def test_a_statement_without_a_decision_has_no_branches(self):
        self.assertEqual(self.decides("const Descriptor folder = openFolder(place, false);\nclose(1);\n"), [])

    def test_each_way_to_decide_counts(self):
        for line in ("if (a) {", "while (a) {", "for (;;) {", "switch (a) {", "case 1:", "default:", "x = a ? b : c;", "x = a && b;",
                     "x = a || b;", "assert(a);"):
            self.assertEqual(self.decides(line), [1], line)

    def test_words_texts_and_comments_decide_nothing(self):
        self.assertEqual(self.decides('iffy = format(forAll, "what if?");  // a || b\n'), [])

    def test_all_lines_of_a_condition_count(self):
        self.assertEqual(self.decides("call();\nif (a &&\n    b(c,\n      d))\n  return;\ncall();\n"), [2, 3, 4, 5])

    def test_the_line_before_a_decision_of_its_statement_counts(self):
        self.assertEqual(self.decides("return first(a)\n           ? b\n           : c;\nnext();\n"), [1, 2, 3])


class CountsTest(unittest.TestCase):
    def test_a_branch_that_decides_nothing_is_neither_taken_nor_missed(self):
        with tempfile.NamedTemporaryFile("w") as source:
            source.write("call();\nif (a) b();\n")
            source.flush()
            lines = [{"line_number": number, "count": 3, "branches": [{"count": 3}, {"count": 0}]} for number in (1, 2)]
            sums, missing = coverage_report.counts({"file": source.name, "lines": lines})
        self.assertEqual((sums, missing), ([2, 2, 1, 2], ["2b"]))


if __name__ == "__main__":
    unittest.main()
