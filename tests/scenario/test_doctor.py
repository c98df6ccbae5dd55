"""`sft doctor`: what it finds, provoked from outside; and that it finds nothing where all is well."""
import fcntl
import json
import os
import signal
import socket
import struct
import time
import unittest

from harness import (AUDIT, BUDGET, CONFIG, COUNTER, PLUGIN, SAMPLING, STATUS, TRACKING, ScenarioTest, counter, flow_key, status,
                     udp_frame, wanted)
from test_flow_tracker import FLOW_A, FLOW_B, FlowTrackerTest, datagram, flow_sample
from test_why import FakePeer, arguments

WRITER_AT = 1280  # of a table's file: the process id of its writer
A = flow_key("10.0.0.1", "10.0.0.2", 1000, 53)
B = flow_key("10.0.0.1", "10.0.0.2", 1001, 53)
SIX = flow_key("fd00::1", "fd00::2", 1000, 53)


class DoctorTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.collector = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.collector.close)
        self.collector.bind(("127.0.0.1", 0))

    def findings(self):
        """The findings by kind, the first of each."""
        done = self.sft_any("--json", "doctor")
        self.assertEqual((done.code, done.err), (1 if done.out else 0, ""))
        found = {}
        for row in done.rows():
            self.assertEqual(list(row), ["severity", "kind", "what", "record", "corrects", "command"])
            found.setdefault(row["kind"], row)
        return found

    def kinds(self):
        return sorted(self.findings())

    def settled(self):
        """The kinds of findings, without those of a moment: what is just being taken away."""
        return [kind for kind in self.kinds() if kind not in ("status-not-wanted", "reconciling", "audit-not-done")]

    def start_agent(self, config=None, sampling=None, budget=None, collectors=None, frames=(), plugins=(PLUGIN, AUDIT), **more):
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": 1000, **(config or {})},
                 SAMPLING: sampling if sampling is not None else {"ingressInterfaces": ["Ethernet1"]}}
        capture = self.write_capture("in.pcap", frames)
        addresses = [f"127.0.0.1:{self.collector.getsockname()[1]}"] if collectors is None else collectors
        sflow = f'[sflow]\nagent = "127.0.0.1"\ncollectors = {json.dumps(addresses)}\n' if addresses else ""
        self.write_config([("Ethernet1", "capture", capture)], state=state, plugins=plugins, extra=sflow, **more)
        return self.start_replayed(environment={BUDGET: str(budget)} if budget is not None else None)


class WithAnAgent(DoctorTest):
    def test_where_all_is_well_nothing_is_found(self):
        self.start_agent()
        self.eventually(self.settled, [])
        done = self.sft_any("doctor")
        self.assertRegex(done.out, r"nothing found by \d+ checks\n$")
        self.assertEqual(done.code, 0)

    def test_the_configuration(self):
        self.want([wanted(SIX)])
        self.start_agent(config={"hwOffloadIpv6": False, "sampleRate": 0}, budget=0,
                         sampling={"ingressInterfaces": ["Ethernet1", "Ethernet7"], "egressInterfaces": ["Ethernet8"]})
        self.eventually(self.settled, ["budget-nothing", "family-disabled", "interface-is-no-port", "sampling-off",
                                       "tracker-not-running"])
        for kind, finding in self.findings().items():  # what the commands say is what helps
            if kind in ("budget-nothing", "family-disabled", "sampling-off"):
                self.sft(*finding["command"].split()[1:])
        self.eventually(lambda: [kind for kind in self.settled() if kind != "room-not-given"],
                        ["interface-is-no-port", "tracker-not-running"])
        self.assertEqual(self.findings()["interface-is-no-port"]["record"], {"interface": "Ethernet7", "direction": "ingress"})
        for _ in range(2):
            command = self.findings()["interface-is-no-port"]["command"].replace("'", "")
            self.sft(*command.split()[1:])
        self.assertNotIn("interface-is-no-port", self.kinds())
        self.sft("state", "set", SAMPLING, "ingressInterfaces", "[]")
        self.assertIn("no-interface-enabled", self.kinds())
        self.sft("state", "set", "sflow/hwconfigdir/sflow", "enabled", "true")
        self.assertIn("regular-sflow", self.kinds())

    def test_room_that_is_used_up_and_room_that_nobody_got(self):
        self.want([wanted(A), wanted(B)])
        self.start_agent(budget=1)
        self.eventually(self.settled, ["budget-used-up", "tracker-not-running"])
        self.sft("attr", "set", "SampledFlowTracker.drovaHelper", "maxInHardwareFlows", "5")
        self.assertEqual(self.settled(), ["room-not-given", "tracker-not-running"])
        finding = self.findings()["room-not-given"]
        self.assertFalse(finding["corrects"])
        self.assertEqual(finding["command"], "sft flow want one of sft flows --state overflow anew")
        waiting, = self.sft("flows", "--state", "overflow")
        self.sft("flow", "want", *arguments(waiting["key"]["ipFlowKey"]))
        self.eventually(lambda: "room-not-given" in self.kinds(), False)

    def test_what_an_audit_finds(self):
        self.want([wanted(A), wanted(B)])
        agent = self.start_agent()
        self.eventually(lambda: len(self.states()), 2)
        agent.end(signal.SIGKILL)
        self.unwant([wanted(A)])
        self.put([counter(B, 5, 500, references=7)], COUNTER)
        self.start_agent()
        self.eventually(self.settled, ["audit-difference", "tracker-not-running"])
        self.assertEqual(self.findings()["audit-difference"]["command"], "sft audit --repair")
        self.assertEqual(self.sft_any("audit", "--repair").code, 0)
        self.assertEqual(self.settled(), ["tracker-not-running"])

    def test_collectors_that_are_not_there(self):
        self.collector.close()  # nobody listens there any more
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        frames = [udp_frame("10.0.0.1", "10.0.0.2", 1000, 53, b"x" * 100)] * 200
        self.start_agent(config={"sampleRate": 1}, collectors=[f"127.0.0.1:{port}"], frames=frames)
        self.eventually(self.settled, ["collector-lost", "samples-dropped"])
        row, = self.sft("collectors")
        self.assertEqual(row["collector"], f"127.0.0.1:{port}")
        self.assertGreater(row["lost"], 0)

    def test_no_collector_at_all(self):
        self.start_agent(collectors=[])
        self.eventually(self.settled, ["no-collector"])

    def test_a_damaged_capture(self):
        self.write_config([("Ethernet1", "capture", self.write_capture("cut.pcap", [udp_frame("10.0.0.1", "10.0.0.2", 1, 2)] * 3, cut=5))],
                          plugins=(PLUGIN, AUDIT), rate=1)
        self.start_replayed()
        finding = self.findings()["capture-damaged"]
        self.assertEqual((finding["severity"], finding["record"]["name"]), ("error", "Ethernet1"))

    def test_plugins_that_are_absent_or_in_standby(self):
        self.write_config([], plugins=(), state={})
        agent = self.start()
        agent.wait_ready()
        self.assertEqual(self.kinds(), ["no-plugin"])
        agent.end()
        self.write_config([], plugins=(PLUGIN,), top='mode = "standby"')
        agent = self.start()
        agent.wait_ready()
        self.assertEqual(self.kinds(), ["agent-in-standby"])
        agent.end()
        self.write_config([("Ethernet1", "capture", self.write_capture("none.pcap", []))], plugins=(PLUGIN,), rate=1)
        self.start_replayed()
        self.assertEqual(self.kinds(), ["audit-not-done", "no-collector"])

    def test_a_record_that_keeps_the_agent_from_what_is_wanted(self):
        self.start_agent()
        self.eventually(self.settled, [])
        self.want([{**wanted(A), "requestTime": time.time() - 60}, wanted(B)])  # when B was asked for is not told
        self.eventually(lambda: len(self.states()), 2)
        self.damage(STATUS, "hoIpFlowStatus")
        self.assertIn("damage", self.kinds())
        self.assertEqual(self.findings()["wanted-not-seen"]["record"]["flows"], 1)

    # An agent is the writer of a table from its first store or audit on.

    def test_a_table_that_another_process_writes(self):
        self.start_agent(plugins=(PLUGIN,))
        with open(self.run_dir / "tables" / STATUS / "hoIpFlowStatus", "r+b") as table:
            fcntl.flock(table, fcntl.LOCK_EX | fcntl.LOCK_NB)
            os.pwrite(table.fileno(), struct.pack("<Q", os.getpid()), WRITER_AT)
            self.want([wanted(A)])
            self.eventually(lambda: {"writer-other", "stores-failed"} - set(self.kinds()), set())
            self.assertEqual(self.findings()["writer-other"]["record"]["writer"], os.getpid())
            os.pwrite(table.fileno(), struct.pack("<Q", 0), WRITER_AT)

    def test_records_that_nobody_writes(self):
        self.start_agent(plugins=(PLUGIN,))
        self.put([status(A)])
        self.eventually(self.kinds, ["audit-not-done", "status-not-wanted", "writer-gone"])

    def test_a_table_that_somebody_has_taken_away(self):
        self.start_agent()
        self.want([wanted(A)])
        self.eventually(lambda: len(self.states()), 1)
        (self.run_dir / "tables" / COUNTER / "hoIp6FlowCounter").unlink()
        self.eventually(lambda: "table-missing" in self.kinds(), True)
        self.assertEqual(self.findings()["table-missing"]["record"], {"path": COUNTER, "collection": "hoIp6FlowCounter"})


class WithoutAnAgent(DoctorTest):
    def test_what_a_killed_agent_leaves(self):
        self.want([wanted(A)])
        agent = self.start_agent()
        agent.end(signal.SIGKILL)
        self.assertEqual(self.kinds(), ["agent-not-running", "socket-deserted", "tracker-not-running"])
        self.assertIn("1 offloads are wanted", self.findings()["agent-not-running"]["what"])
        self.assertTrue(self.findings()["socket-deserted"]["corrects"])

    def test_damage_clocks_and_files(self):
        self.want([wanted(A), {**wanted(SIX), "requestTime": time.time() + 3600}])
        self.put([status(A)])
        self.damage(STATUS, "hoIpFlowStatus")
        (self.run_dir / "core").write_text("")
        (self.run_dir / "tables" / CONFIG / "hoIpFlowStatus").write_bytes(b"nonsense")
        found = self.findings()
        self.assertEqual(sorted(found), ["agent-not-running", "clock-skew", "damage", "file-left-over", "table-unusable",
                                         "tracker-not-running"])
        self.assertEqual((found["damage"]["record"]["path"], found["damage"]["severity"]), (STATUS, "error"))
        self.assertEqual(found["clock-skew"]["record"]["examples"][0]["ipFlowKey"]["srcAddr"], "fd00::1")
        self.assertEqual(found["file-left-over"]["record"], {"file": "core"})
        shown = self.sft_any("doctor")
        self.assertEqual(shown.code, 1)
        self.assertIn("error: damage\n", shown.out)
        self.assertRegex(shown.out, r"stays; corrected by: rm .*/core\n")
        self.assertRegex(shown.out, r"6 found by \d+ checks: 3 errors, 2 warnings, 1 notes\n$")

    def test_an_agent_that_cannot_be_asked(self):
        self.run_dir.mkdir()
        os.symlink("control.sock", self.run_dir / "control.sock")  # a link to itself
        self.assertEqual(self.kinds(), ["agent-not-asked"])

    def test_an_agent_that_leaves_amidst_its_answers_is_not_taken_for_one_without_the_plugin(self):
        FakePeer(self, "control.sock", {"ports": [{"row": {"name": "Ethernet1"}}, {"end": True}]})
        self.assertEqual(self.kinds(), ["agent-not-asked"])
        self.assertIn("left before its answer was complete", self.findings()["agent-not-asked"]["what"])

    def test_files_in_the_making_are_left_alone_for_a_minute(self):
        self.want([wanted(A)])
        draft = self.run_dir / "tables" / CONFIG / ".hoIp6FlowConfig.4711.new"
        draft.write_text("")
        self.assertNotIn("file-left-over", self.kinds())
        os.utime(draft, (time.time() - 120,) * 2)
        self.assertEqual(self.findings()["file-left-over"]["record"], {"file": str(draft.relative_to(self.run_dir))})

    def test_it_lists_what_it_looks_at(self):
        rows = self.sft("doctor", "--list")
        self.assertIn("budget", [row["check"] for row in rows])
        self.assertGreater(len(rows), 20)

    def test_a_misuse_and_a_run_directory_that_is_not_there(self):
        self.assertEqual(self.sft_any("doctor", "--frobnicate").code, 2)
        self.assertIn("no such folder", self.sft_refused("doctor"))


class WithATracker(DoctorTest, FlowTrackerTest):
    def test_what_a_tracker_counts_of_its_troubles(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            refuses = free.getsockname()[1]
        self.write_tracker_config("samples_to_learn = 2\nmax_flows = 1\nmax_candidates = 1", interfaces=("Ethernet1", "Ethernet9"),
                                  extra=f'[[collector]]\naddress = "127.0.0.1:{refuses}"\n[ipfix]\nactive_timeout = 1\n')
        tracker = self.start_tracker()
        tracker.wait_ready()
        self.start_agent()
        self.eventually(self.settled, ["interface-is-no-port", "tracker-hears-nothing"])
        a, b = [flow_sample(udp_frame(*flow)) for flow in (FLOW_A, FLOW_B)]
        self.send(tracker, datagram(a), datagram(a), datagram(b), datagram(b), datagram(flow_sample(udp_frame(*FLOW_A), source=7, entry=7)),
                  datagram(flow_sample(udp_frame("10.0.0.9", "10.0.0.2", 1, 2))), datagram(version=4))
        late = datagram(a)
        self.send(tracker, late[:16] + struct.pack("!I", 900) + late[20:])  # its sequence number; those behind it come late
        expected = {"interface-is-no-port", "datagrams-missed", "tracker-full", "candidates-evicted", "datagrams-malformed", "interface-unmapped",
                    "collector-refuses"}

        def more_records():
            self.send(tracker, datagram(a))  # keeps the flow alive, and its records coming
            return expected - set(self.kinds())

        self.eventually(more_records, set())
        self.assertEqual(self.findings()["interface-unmapped"]["record"], {"agent": "192.0.2.1", "index": 7, "samples": 1})


if __name__ == "__main__":
    unittest.main()
