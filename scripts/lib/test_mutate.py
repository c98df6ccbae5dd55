"""mutate_write.py, mutate_run.py, mutate_report.py: how changes are written into a source, tried, and told."""
import collections
import io
import pathlib
import tempfile
import unittest

import mutate_report
import mutate_run
import mutate_write

Site = collections.namedtuple("Site", "start end changes")


def site(text, part, *changes):
    start = text.index(part)
    return Site(start, start + len(part), [(kind, other, "") for kind, other in changes])


class Writing(unittest.TestCase):
    def written(self, text, sites, numbers):
        return mutate_write.rewritten(text.encode(), sites, numbers)

    def test_condition_around_an_operator(self):
        text = "if (a < b) f();"
        sites = [site(text, "a < b", ("condition", "false"), ("condition", "true")), site(text, "a < b", ("swap", "(a) <= (b)"))]
        self.assertEqual(self.written(text, sites, [[1, 2], [3]]),
                         "if ((Mutant::on<1>() ? (false) : Mutant::on<2>() ? (true) : "
                         "static_cast<bool>((Mutant::on<3>() ? ((a) <= (b)) : (a < b))))) f();")

    def test_statement_keeps_its_lines_and_what_is_in_it(self):
        text = "{\n  f(1,\n    2);\n}"
        sites = [site(text, "f(1,\n    2);", ("drop", "")), site(text, "1", ("swap", "1 + 1")), site(text, "2", ("swap", "2 + 1"))]
        written = self.written(text, sites, [[1], [2], [3]])
        self.assertEqual(written, "{\n  { if (!Mutant::on<1>()) { f((Mutant::on<2>() ? (1 + 1) : (1)),\n"
                                  "    (Mutant::on<3>() ? (2 + 1) : (2))); } }\n}")

    def test_what_is_left_out_stays_as_it_was(self):
        text = "a == b; c == d;"
        sites = [site(text, "a == b", ("swap", "(a) != (b)")), site(text, "c == d", ("swap", "(c) != (d)"))]
        self.assertEqual(self.written(text, sites, [[None], [2]]), "a == b; (Mutant::on<2>() ? ((c) != (d)) : (c == d));")


class Trying(unittest.TestCase):
    def test_short_cases_of_all_programs_come_first(self):
        cases = [mutate_run.Case("b", "B.Long", 5000), mutate_run.Case("a", "A.Middle", 900), mutate_run.Case("b", "B.Short", 1)]
        self.assertEqual([[case.name for case in part] for _, _, part in mutate_run.stages(cases)], [["B.Short"], ["A.Middle"], ["B.Long"]])

    def test_program_that_fails_or_does_not_end_kills(self):
        case = [mutate_run.Case("", "A.B", 1)]
        with tempfile.TemporaryDirectory() as folder:
            self.assertFalse(mutate_run.run("true", case, 1, 10, folder))
            self.assertTrue(mutate_run.run("false", case, 1, 10, folder))
            program = pathlib.Path(folder, "forever")
            program.write_text("#!/bin/sh\nexec sleep 60\n")
            program.chmod(0o755)
            self.assertTrue(mutate_run.run(program, case, 1, 0.1, folder))


class Recording(unittest.TestCase):
    def program(self, folder, body):
        program = pathlib.Path(folder, "a_test")
        program.write_text("#!/bin/sh\n" + body)
        program.chmod(0o755)
        return program

    def test_cases_of_a_change(self):
        with tempfile.TemporaryDirectory() as folder:
            program = self.program(folder, 'printf "* 0 passed 1\\nA.B 5 passed 2\\nA.C 7 failed 2\\n" >$SFT_MUTANT_RECORD; exit 1')
            reached, left_out = mutate_run.record([program], pathlib.Path(folder))
            self.assertEqual({number: [case.name for case in cases] for number, (cases, _) in reached.items()}, {1: ["A.B"], 2: ["A.B"]})
            self.assertEqual(left_out, ["a_test: A.C"])

    def test_where_one_case_reaches_a_change_the_others_are_a_second_choice(self):
        with tempfile.TemporaryDirectory() as folder:
            program = self.program(folder, 'printf "A.B 5 passed 1 2\\nA.C 7 passed 2\\n" >$SFT_MUTANT_RECORD')
            reached, _ = mutate_run.record([program], pathlib.Path(folder))
            self.assertEqual({number: [[case.name for case in cases] for cases in both] for number, both in reached.items()},
                             {1: [["A.B"], ["A.C"]], 2: [["A.B", "A.C"], []]})

    def test_program_that_dies_is_told_in_one_line(self):
        with tempfile.TemporaryDirectory() as folder:
            for before, where in (('printf "* 0 passed 1\\nA.B 5 passed 2\\n" >$SFT_MUTANT_RECORD; ', "A.B"), ("", "no case")):
                program = self.program(folder, before + "kill -SEGV $$")
                with self.assertRaises(SystemExit) as ended:
                    mutate_run.record([program], pathlib.Path(folder))
                self.assertEqual(str(ended.exception), "mutate: a_test ended with status -11 while it told which cases reach which change, "
                                                       f"behind {where}")


class Telling(unittest.TestCase):
    MUTANTS = {number: {"file": "flow_records/FlowKey.cpp", "line": number, "function": "FlowKey::str", "change": f"a < {number}  =>  a <= {number}",
                        "built": True} for number in range(1, 5)}

    def kept(self, text):
        with tempfile.NamedTemporaryFile("w") as file:
            file.write(text)
            file.flush()
            return mutate_report.Kept(pathlib.Path(file.name))

    def test_share_is_of_what_a_test_should_see(self):
        rules = self.kept("flow_records/FlowKey.cpp\t...\ta < 3...\ta hint\n")
        out = io.StringIO()
        outcomes = {1: "killed by a_test", 2: "survived", 3: "survived", 4: "unreached"}
        self.assertFalse(mutate_report.report(self.MUTANTS, outcomes, rules, "", [], out))
        self.assertIn("1 of 4 killed; of those that a test should see 33.3 %", out.getvalue())
        self.assertIn("survived (2): flow_records/FlowKey.cpp:2: FlowKey::str: a < 2  =>  a <= 2", out.getvalue())
        self.assertIn("kept (3): flow_records/FlowKey.cpp:3: FlowKey::str: a < 3  =>  a <= 3: a hint", out.getvalue())

    def test_nothing_survives(self):
        self.assertTrue(mutate_report.report(self.MUTANTS, {1: "killed by a_test"}, self.kept(""), "", [], io.StringIO()))

    def test_kept_line_that_is_short_is_refused(self):
        with self.assertRaises(SystemExit):
            self.kept("flow_records/FlowKey.cpp\t...\ta < 3\n")


if __name__ == "__main__":
    unittest.main()
