"""count_tests.py: what counts as passed, failed and skipped."""
import pathlib
import tempfile
import unittest

import count_tests

REPORT = """<testsuites><testsuite name="Reader">
<testcase name="Reads" status="run" result="completed"/>
<testcase name="Refuses" status="run" result="completed">{inner}</testcase>
<testcase name="Later" status="run" result="skipped"><skipped/></testcase>
<testcase name="Off" status="notrun" result="suppressed"/>
</testsuite></testsuites>"""


class Counting(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def outcomes(self, status, report=None):
        if report is not None:
            (self.folder / "reader_test.xml").write_text(report)
        return [outcome for _, outcome in count_tests.program_cases("reader_test", status, self.folder)]

    def test_program_counts_by_its_cases(self):
        self.assertEqual(self.outcomes("run", REPORT.format(inner="")), ["passed", "passed", "skipped", "skipped"])

    def test_failed_case_is_not_counted_twice(self):
        self.assertEqual(self.outcomes("fail", REPORT.format(inner="<failure/>")).count("failed"), 1)

    def test_crash_after_good_cases_is_a_failure(self):
        self.assertEqual(self.outcomes("fail", REPORT.format(inner="")).count("failed"), 1)

    def test_program_without_report_is_one_test(self):
        self.assertEqual(self.outcomes("run"), ["passed"])
        self.assertEqual(self.outcomes("fail"), ["failed"])
        self.assertEqual(self.outcomes("notrun"), ["skipped"])

    def test_report_cut_off_by_a_crash_is_one_failure(self):
        self.assertEqual(self.outcomes("fail", "<testsuites><testsuite"), ["failed"])


if __name__ == "__main__":
    unittest.main()
