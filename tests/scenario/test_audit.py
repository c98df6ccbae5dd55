"""The audit of a real agent: offloads that were withdrawn while no agent ran leave the budget whole, and `sft audit` tells and
repairs what has drifted."""
import collections
import json
import signal
import subprocess
import unittest

from harness import (BUDGET, BUILD, COUNTER, IN_HARDWARE, PATIENCE, PLUGIN, SAMPLING, SFT, TRACKING, ScenarioTest, counter,
                     flow_key, offload_of, wanted)

AUDIT = BUILD / "lib/libPexaSftAudit.so"
AUDIT_CONFIG = "flowtracking/audit/sampled"
FAMILIES = ("IPv4", "IPv6")
DONE = "audit after the restart"
ROOM = 10


def flow(family, number):
    if family == "IPv4":
        return flow_key("10.0.0.1", "10.0.0.2", number, 53)
    return flow_key("fd00::1", "fd00::2", number, 53)


def offloads(numbers):
    return [wanted(flow(family, number)) for family in FAMILIES for number in numbers]


class AuditTest(ScenarioTest):
    def configure(self, after_restart, plugins=(PLUGIN, AUDIT)):
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True}, SAMPLING: {"ingressInterfaces": ["Ethernet1"]}}
        if after_restart is not None:
            state[AUDIT_CONFIG] = {"afterRestart": after_restart}
        self.write_config([("Ethernet1", "capture", self.write_capture("none.pcap", []))], state=state, plugins=plugins)

    def start_settled(self):
        """An agent that has done the work of its start; the audit is a part of it."""
        return self.start_replayed(environment={BUDGET: str(ROOM)})

    def restart_with_withdrawn(self, after_restart):
        """Six flows of each family come into hardware, the agent is killed, four are withdrawn, and the agent starts again."""
        self.configure(after_restart)
        agent = self.start_settled()
        self.want(offloads(range(6)))
        self.eventually(lambda: collections.Counter(self.states().values()), {IN_HARDWARE: 12})
        self.assertEqual(agent.end(signal.SIGKILL), -signal.SIGKILL)
        self.unwant(offloads(range(4)))
        agent = self.start_settled()
        self.assertEqual(self.states(), {offload_of(each): IN_HARDWARE for each in offloads(range(4, 6))})
        return agent

    def in_hardware(self):
        counts = self.state_counts()
        return [counts.get((family, IN_HARDWARE), 0) for family in FAMILIES]

    def assert_used_up(self):
        """Two flows of each family are in hardware, and six are counted; or more, because a status that a start deletes and
        writes again is counted twice."""
        self.assertGreaterEqual(min(self.in_hardware()), 6)

    def drift(self):
        """What is wrong beside the statuses, as an audit shows it; looked for here by another way."""
        statuses = self.sft("status")
        in_state = collections.Counter((row["family"], row["state"]) for row in statuses)
        references = collections.Counter((row["family"], json.dumps(row["key"]["ipFlowKey"])) for row in statuses)
        for (family, state), count in self.state_counts().items():
            if count != in_state[family, state]:
                yield family, "per-state count", str(state), count, in_state[family, state]
        for row in self.sft("counters"):
            key, expected = row["key"], references[row["family"], json.dumps(row["key"])]
            if row["hosEntries"] != expected:
                text = "/".join(str(key[member]) for member in
                                ("vrfId", "vlan", "srcAddr", "dstAddr", "ipProto", "srcPort", "dstPort"))
                yield row["family"], "references of a counter", text, row["hosEntries"], expected

    def assert_exact(self):
        self.assertEqual(list(self.drift()), [])

    def admitted(self, numbers):
        """Wants more flows, and gives how many of each family came into hardware."""
        self.want(offloads(numbers))
        self.eventually(lambda: len(self.states()), len(FAMILIES) * (2 + len(numbers)))
        new = {offload_of(each) for each in offloads(numbers)}
        return [state for key, state in self.states().items() if key in new].count(IN_HARDWARE) / len(FAMILIES)

    # By itself

    def test_the_budget_is_whole_again_after_a_restart_with_withdrawn_offloads(self):
        agent = self.restart_with_withdrawn("repair")
        self.assertEqual(self.in_hardware(), [2, 2])
        self.assert_exact()
        line, = agent.said(DONE)
        self.assertRegex(line, r"\(repair\): 4 statuses, (\d+) differences, \1 repaired \(per-state count: 2\b")
        self.assertEqual(self.admitted(range(100, 110)), 8)
        self.assertEqual(self.in_hardware(), [ROOM, ROOM])
        self.assert_exact()

    def test_a_report_tells_of_the_counts_and_leaves_them(self):
        agent = self.restart_with_withdrawn("report")
        self.assert_used_up()
        line, = agent.said(DONE)
        self.assertRegex(line, r"\(report\): 4 statuses, [2-9] differences, 0 repaired \(per-state count: 2\b")
        self.assertLessEqual(self.admitted(range(100, 110)), 4)

    def test_off_does_nothing_until_it_is_asked(self):
        agent = self.restart_with_withdrawn("off")
        self.assertEqual(agent.said("audit"), [])
        self.assert_used_up()
        done = self.sft_any("audit", "--repair")
        self.assertEqual((done.code, done.err), (0, ""))
        self.assertEqual(self.in_hardware(), [2, 2])
        self.assertEqual(self.admitted(range(100, 110)), 8)

    def test_the_plugins_may_be_named_in_the_other_order(self):
        self.configure("repair", plugins=(AUDIT, PLUGIN))
        agent = self.start_settled()
        self.assertEqual(len(agent.said(DONE)), 1)
        self.want(offloads([1]))
        self.eventually(lambda: len(self.states()), 2)
        self.assertEqual(self.sft("audit"), [{"summary": {"statuses": 2, "differences": 0, "repaired": 0}}])
        self.assertEqual(agent.end(), 0)

    # A configuration that is wrong

    def test_a_word_that_after_restart_does_not_know_is_refused(self):
        self.configure("always")
        line = self.refused()
        where = next(number for number, text in enumerate(self.config.read_text().splitlines(), 1) if "afterRestart" in text)
        self.assertIn(f"{self.config}:{where}: ", line)
        self.assertIn(AUDIT_CONFIG, line)
        self.assertIn('afterRestart: expected "off", "report" or "repair", got the string "always"', line)

    def test_configuring_an_audit_that_is_not_loaded_is_refused(self):
        self.configure("repair", plugins=(PLUGIN,))
        self.assertIn(f'"{AUDIT_CONFIG}": no plugin mounts this path', self.refused())

    # Asked for

    def drifted(self):
        """An agent after a restart by which a count and the references of a counter are wrong in each family."""
        self.configure("off")
        self.want(offloads(range(3)))
        agent = self.start_settled()
        agent.end(signal.SIGKILL)
        self.unwant(offloads([0]))
        self.put([counter(flow(family, 1), 5, 500, references=7) for family in FAMILIES], COUNTER)
        self.start_settled()

    def test_what_has_drifted_is_told_and_left(self):
        self.drifted()
        drift = list(self.drift())
        self.assertLessEqual({("IPv4", "per-state count"), ("IPv6", "per-state count"), ("IPv4", "references of a counter"),
                              ("IPv6", "references of a counter")}, {each[:2] for each in drift})
        done = self.sft_any("--json", "audit")
        self.assertEqual((done.code, done.err), (1, ""))
        *findings, summary = done.rows()
        names = ("family", "kind", "key", "found", "expected")
        self.assertCountEqual(findings, [{**dict(zip(names, each)), "repaired": False} for each in drift])
        self.assertEqual(summary, {"summary": {"statuses": 4, "differences": len(drift), "repaired": 0}})
        self.assertCountEqual(self.drift(), drift)

    def test_a_repair_leaves_nothing_to_tell(self):
        self.drifted()
        wrong = len(list(self.drift()))
        done = self.sft_any("--json", "audit", "--repair")
        self.assertEqual((done.code, done.err), (0, ""))
        *findings, summary = done.rows()
        self.assertEqual([each["repaired"] for each in findings], [True] * wrong)
        self.assertEqual(summary, {"summary": {"statuses": 4, "differences": wrong, "repaired": wrong}})
        self.assert_exact()
        kept, = [row for row in self.sft("counters") if row["key"] == flow("IPv4", 1)]
        self.assertEqual((kept["packets"], kept["bytes"], kept["hosEntries"]), (5, 500, 1))
        self.assertEqual(self.sft("audit"), [{"summary": {"statuses": 4, "differences": 0, "repaired": 0}}])

    def test_people_read_a_row_for_each_finding_and_a_summary(self):
        self.drifted()
        (family, _, key, found, expected), *others = self.drift()
        shown = self.sft_any("audit")
        self.assertEqual((shown.code, shown.err), (1, ""))
        heading, *rows, summary = shown.out.splitlines()
        self.assertEqual(heading.split(), ["family", "kind", "key", "found", "expected", "repaired"])
        self.assertIn([family, "per-state", "count", key, str(found), str(expected), "no"], [row.split() for row in rows])
        self.assertEqual(summary, f"{1 + len(others)} differences, 0 repaired; 4 statuses")
        repaired = self.sft_any("audit", "--repair")
        self.assertEqual(repaired.code, 0)
        self.assertEqual({line.split()[-1] for line in repaired.out.splitlines()[1:-1]}, {"yes"})
        self.assertEqual(self.sft_any("audit").out, "0 differences, 0 repaired; 4 statuses\n")

    def test_counts_are_exact_behind_repairs_while_flows_come_and_go(self):
        self.drifted()
        audits = []
        for step in range(8):
            audits.append(subprocess.Popen([SFT, "--run-dir", self.run_dir, "audit", "--repair"], text=True,
                                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))
            self.want(offloads(range(1000 + 100 * step, 1100 + 100 * step)))
            if step % 2 == 1:
                self.unwant(offloads(range(900 + 100 * step, 1000 + 100 * step)))
        told = [audit.communicate(timeout=PATIENCE)[0] for audit in audits]  # a second one at a time was refused
        self.assertIn("statuses\n", "".join(told))
        self.eventually(lambda: len(self.states()), len(FAMILIES) * (2 + 400))
        self.assertEqual([each for each in self.drift() if each[1] == "per-state count"], [])
        self.assertEqual(self.in_hardware(), [ROOM, ROOM])
        self.assertEqual(self.sft_any("audit", "--repair").code, 0)
        self.assert_exact()

    # What it cannot do

    def test_an_agent_without_an_audit_is_named(self):
        self.configure(None, plugins=(PLUGIN,))
        self.start_settled()
        self.assertEqual(self.sft_refused("audit"),
                         "sft: the agent has no audit, expected libPexaSftAudit.so among its plugins")
        self.run_dir = self.dir / "nowhere"
        self.assertIn("no agent answers", self.sft_refused("audit"))

    def test_an_audit_without_the_tracker_is_refused(self):
        self.write_config([("Ethernet1", "capture", self.write_capture("none.pcap", []))], state={}, plugins=(AUDIT,))
        agent = self.start()
        agent.wait_ready()
        self.assertIn("expected libPexaSampledFlowTracker.so among its plugins", self.sft_refused("audit"))
        self.assertEqual(agent.end(), 0)

    def test_an_audit_in_standby_is_refused(self):
        self.configure("repair")
        self.config.write_text('mode = "standby"\n' + self.config.read_text())
        agent = self.start()
        agent.wait_ready()
        self.assertIn("standby", self.sft_refused("audit"))
        self.assertEqual(agent.said(DONE), [])


if __name__ == "__main__":
    unittest.main()
