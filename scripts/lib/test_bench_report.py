"""bench_report.py: what is said of a figure beside its target."""
import unittest

import bench_report


class Verdict(unittest.TestCase):
    def verdict(self, figure, **target):
        return bench_report.Row("group", "name", figure, **target).verdict()

    def test_a_target_is_met_when_it_is_just_reached(self):
        self.assertEqual(self.verdict(2.0, most=2.0), "met")
        self.assertEqual(self.verdict(2.0, least=2.0), "met")

    def test_missed_by_how_much(self):
        self.assertEqual(self.verdict(3.0, most=2.0), "missed by 50 %")
        self.assertEqual(self.verdict(1.0, least=2.0), "missed by 50 %")

    def test_a_target_of_nothing_is_missed_without_a_part_of_it(self):
        self.assertEqual(self.verdict(3.0, most=0), "missed")
        self.assertEqual(self.verdict(0, most=0), "met")

    def test_without_a_target_or_a_figure(self):
        self.assertEqual(self.verdict(3.0), "")
        self.assertEqual(self.verdict(None, most=1), "not measured")

    def test_the_table_has_a_line_for_each(self):
        rows = [bench_report.Row("group", "dropped", 3.0, most=0), bench_report.Row("group", "none", None, note="why")]
        self.assertEqual(len(bench_report.text(rows).splitlines()), 3)


if __name__ == "__main__":
    unittest.main()
