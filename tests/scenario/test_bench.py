"""scripts/bench at a small size: every row of its table is there, and what can be right or wrong of it is right. No time is looked at."""
import json
import os
import shutil
import subprocess
import sys
import unittest

from harness import BUILD, PATIENCE, ROOT, ScenarioTest

ABSENT = [each for each in ("softflowd", "nfpcapd", "nfcapd", "nfdump") if not shutil.which(each)]


@unittest.skipUnless((BUILD / "bin/bench_traffic").exists(), "bench_traffic is not built")
class BenchTest(ScenarioTest):
    def rows(self, *groups):
        """The rows of these groups, by name; the table shows each of them."""
        rows = self.dir / "rows.json"
        command = [sys.executable, "-B", ROOT / "scripts/lib/bench_main.py", "--build", BUILD, "--quick", "--json", rows]
        for group in groups:
            command += ["--only", group]
        done = subprocess.run(command, capture_output=True, text=True, timeout=4 * PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        found = {row["name"]: row for row in json.loads(rows.read_text())}
        for name in found:
            self.assertIn(name, done.stdout)
        return found

    @unittest.skipIf(ABSENT, f"not installed: {', '.join(ABSENT)}")
    def test_a_replay_counts_what_its_peers_count(self):
        rows = self.rows("replay")
        for peer in ("softflowd", "nfpcapd"):
            self.assertEqual(rows[f"flows of which agent and {peer} differ"]["figure"], 0)
            self.assertGreater(rows[f"agent to {peer}, processor time"]["figure"], 0)
            self.assertIn(rows[f"agent to {peer}, on the clock"]["verdict"].partition(" by ")[0], ("met", "missed"))
        self.assertGreater(rows["loop's time a packet, 100 flows"]["figure"], 0)

    @unittest.skipIf(os.geteuid() != 0 or not shutil.which("ip"), "needs root and ip: network namespaces cannot be made")
    def test_the_start_and_memory(self):
        rows = self.rows("start")
        self.assertGreater(rows["exec to the first packet, empty tables"]["figure"], 0)
        self.assertGreater(rows["exec to the first packet, 1,000 records left"]["figure"], 0)
        self.assertGreater(rows["hoIpFlowStatus, a flow"]["figure"], 72)
        self.assertIn("beyond the records, a flow", rows)

    def test_a_program_that_is_not_built_is_told(self):
        command = [sys.executable, "-B", ROOT / "scripts/lib/bench_main.py", "--build", self.dir, "--quick", "--only", "start"]
        done = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"bench: start: .*/bin/bench_traffic is not built\n")
        self.assertIn("not measured", done.stdout)


if __name__ == "__main__":
    unittest.main()
