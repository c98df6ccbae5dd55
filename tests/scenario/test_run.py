"""The main job as scripts/run shows it, without the building: it adds up, and leaves nothing behind however it ends."""
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import unittest

from harness import BUILD, OWN_CAPTURES, PATIENCE, ROOT, ScenarioTest
from namespaces import Network, Unavailable, ip

LIVE_ABSENT = [each for each in ("ip", "ethtool", "curl", "nginx", "iperf3", "dnsmasq", "dig") if not shutil.which(each)]
JOB = ROOT / "scripts/lib/main_job.py"


def processes_in(folder):
    """The command lines that name a folder."""
    found = []
    for each in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            command = each.read_bytes()
        except OSError:  # it has ended
            continue
        if str(folder).encode() in command:
            found.append(command)
    return found


@unittest.skipUnless(shutil.which("nfcapd") and shutil.which("nfdump"), "nfcapd and nfdump are not installed")
class RunTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.temporary = self.dir / "tmp"
        self.temporary.mkdir()

    def start(self, *arguments):
        job = subprocess.Popen([sys.executable, "-B", JOB, "--build", BUILD, *map(str, arguments)], cwd=self.dir, text=True,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               env={**os.environ, "TMPDIR": str(self.temporary)})
        self.addCleanup(job.stdout.close)
        self.addCleanup(job.stderr.close)
        self.addCleanup(job.kill)
        return job

    def check_nothing_is_left(self):
        self.assertEqual(list(self.temporary.iterdir()), [])
        self.assertEqual(processes_in(self.temporary), [])

    def test_everything_adds_up(self):
        job = self.start()
        out, err = job.communicate(timeout=2 * PATIENCE)
        self.assertEqual((job.returncode, err), (0, ""), out)
        self.assertRegex(out, r"\n\d\d checks, all good\n")
        self.assertNotIn("FAIL", out)
        self.check_nothing_is_left()

    def test_ended_in_the_middle(self):
        for how in (signal.SIGINT, signal.SIGTERM):
            job = self.start("--keep")
            for line in job.stdout:
                if line.startswith("2. "):  # tracker, collector and agent are up
                    break
            job.send_signal(how)
            _, err = job.communicate(timeout=PATIENCE)
            self.assertEqual((job.returncode, err), (128 + how, f"\nscripts/run: {how.name}: everything is ended and removed\n"))
            self.check_nothing_is_left()

    def test_whoever_reads_it_stops(self):
        job = self.start()
        self.assertEqual(job.stdout.readline(), "\n")
        job.stdout.close()
        self.assertEqual(job.wait(PATIENCE), 128 + signal.SIGPIPE)
        self.assertEqual(job.stderr.read(), "")
        self.check_nothing_is_left()

    @unittest.skipIf(LIVE_ABSENT, f"not installed: {', '.join(LIVE_ABSENT)}")
    def test_live_hosts_receive_what_is_counted(self):
        try:
            Network().close()
        except Unavailable as why:
            self.skipTest(str(why))
        job = self.start("--live")
        out, err = job.communicate(timeout=2 * PATIENCE)
        self.assertEqual((job.returncode, err), (0, ""), out)
        self.assertRegex(out, r"\n\d\d checks, all good\n")
        self.check_nothing_is_left()
        job = self.start("--live")
        for line in job.stdout:
            if line.startswith("3. "):  # servers and the agent are up
                break
        job.send_signal(signal.SIGINT)
        job.communicate(timeout=PATIENCE)
        self.assertEqual(job.returncode, 128 + signal.SIGINT)
        self.check_nothing_is_left()
        self.assertNotIn(f"pexa-{job.pid}-", ip("netns", "list"))

    def test_a_capture_that_is_not_there(self):
        job = self.start(OWN_CAPTURES / "absent.pcap")
        out, err = job.communicate(timeout=PATIENCE)
        self.assertEqual((job.returncode, out), (1, ""))
        self.assertEqual(err, f"scripts/run: {OWN_CAPTURES}/absent.pcap: no such file, expected a capture\n")
        self.check_nothing_is_left()


if __name__ == "__main__":
    unittest.main()
