"""`sft why`: each verdict, from the programs that make it true."""
import json
import socketserver
import threading
import unittest

from harness import (BUDGET, EGRESS, OVERFLOW, SAMPLING, STATES, TRACKING, ScenarioTest, flow_key,
                     status, udp_frame, wanted)
from test_flow_tracker import FLOW_A, FLOW_B, FlowTrackerTest, datagram, flow_sample

A = flow_key("10.0.0.1", "10.0.0.2", 1000, 53)
B = flow_key("10.0.0.1", "10.0.0.2", 1001, 53)
SIX = flow_key("fd00::1", "fd00::2", 1000, 53)


def arguments(key, direction="ingress", intf="Ethernet1"):
    """A flow as `sft why` takes it."""
    pair = "[{}]:{}" if ":" in key["srcAddr"] else "{}:{}"
    return [pair.format(key["srcAddr"], key["srcPort"]), pair.format(key["dstAddr"], key["dstPort"]), "--proto", key["ipProto"],
            "--vlan", key["vlan"], "--direction", direction, "--interface", intf]


class FakePeer:
    """Serves a control socket with the same answers always, by request; leaves at one that it does not know."""

    def __init__(self, test, name, answers):
        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                for line in self.rfile:
                    lines = answers.get(json.loads(line)["request"])
                    if lines is None:
                        return
                    self.wfile.write("".join(json.dumps(each) + "\n" for each in lines).encode())

        class Server(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
            daemon_threads = True

        test.run_dir.mkdir(exist_ok=True)
        server = Server(str(test.run_dir / name), Handler)
        test.addCleanup(server.server_close)
        test.addCleanup(server.shutdown)
        threading.Thread(target=server.serve_forever, args=(0.01,), daemon=True).start()


class WhyTest(ScenarioTest):
    def why(self, *args, code=1):
        """The rows of the flows, and the summary."""
        done = self.sft_any("--json", "why", *args)
        self.assertEqual((done.code, done.err), (code, ""), done.out)
        *rows, summary = done.rows()
        return rows, summary["summary"]

    def verdict(self, *args, code=1):
        """The verdict on the one flow that is told of, and what holds as well."""
        (row,), _ = self.why(*args, code=code)
        return [row["verdict"]] + [each["verdict"] for each in row["also"]]

    def start_agent(self, config=None, sampling=None, budget=None, **more):
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": 1, **(config or {})},
                 SAMPLING: sampling or {"ingressInterfaces": ["Ethernet1"]}}
        frames = [udp_frame("10.0.0.1", "10.0.0.2", 1000, 53)] * 5
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", frames))], state=state, **more)
        return self.start_replayed(environment={BUDGET: str(budget)} if budget is not None else None)


class WithAnAgent(WhyTest):
    def test_in_hardware_and_counted(self):
        self.want([wanted(A)])
        self.start_agent()
        self.eventually(lambda: [row["packets"] for row in self.sft("counters")], [5])
        (row,), summary = self.why(*arguments(A), code=0)
        self.assertEqual((row["verdict"], row["also"], row["packets"], row["family"], row["wanted"], row["state"]),
                         ("in-hardware", [], 5, "IPv4", True, 2))
        self.assertIn("5 packets and 140 bytes were counted, the last one ", row["why"])
        self.assertEqual(summary["verdicts"], {"in-hardware": 1})
        self.assertIn("flow tracker", summary["notAsked"][0])
        shown = self.sft_any("why", *arguments(A))
        self.assertTrue(shown.out.startswith("10.0.0.1:1000 -> 10.0.0.2:53 udp vlan 1, ingress on Ethernet1: in-hardware\n"))
        self.assertIn("Not asked: the flow tracker: no flow tracker answers", shown.out)

    def test_waiting_for_room_tells_the_budget(self):
        self.want([wanted(A), wanted(B)])
        self.start_agent(budget=1)
        self.eventually(lambda: sorted(row["state"] for row in self.sft("status")), [2, 3])
        rows, summary = self.why("--proto", "udp")
        self.assertEqual(summary["verdicts"], {"in-hardware": 1, "waiting-for-room": 1})
        waiting, = [row for row in rows if row["state"] == OVERFLOW]
        self.assertIn("1 of at most 1 IPv4 flows are in hardware, 1 wait.", waiting["why"])

    def test_a_family_that_is_off(self):
        self.want([wanted(SIX)])
        self.start_agent(config={"hwOffloadIpv6": False})
        self.eventually(lambda: len(self.states()), 1)
        self.assertEqual(self.verdict(*arguments(SIX)), ["family-disabled", "in-hardware"])
        self.assertEqual(self.verdict("fd01::/16"), ["family-disabled", "not-wanted"])

    def test_interfaces_and_directions(self):
        self.start_agent()
        self.assertEqual(self.verdict(*arguments(A, "egress")), ["interface-not-enabled", "not-wanted"])
        self.assertEqual(self.verdict(*arguments(A, intf="Ethernet9")), ["interface-unknown", "not-wanted"])
        self.assertEqual(self.verdict(*arguments(A)), ["not-wanted"])
        self.sft("state", "set", "sflow/hwconfigdir/sflow", "enabled", "true")
        self.assertEqual(self.verdict(*arguments(A)), ["interface-not-enabled", "not-wanted"])

    def test_protocols_and_vrfs(self):
        self.start_agent()
        self.assertEqual(self.verdict(*arguments({**A, "ipProto": 47})), ["not-tcp-udp", "not-wanted"])
        self.assertEqual(self.verdict(*arguments(A), "--vrf", 7), ["not-default-vrf", "not-wanted"])

    def test_nothing_is_sampled(self):
        self.start_agent(config={"sampleRate": 0})
        self.assertEqual(self.verdict(*arguments(A)), ["sampling-off"])

    def test_in_hardware_without_a_counter_record(self):
        self.want([wanted(A)])
        self.start_agent(budget=1)
        self.eventually(lambda: list(self.states().values()), [2])
        self.want([wanted(A, EGRESS, "Ethernet1")])  # held back, it takes the record that both share along
        self.eventually(lambda: self.sft("counters"), [])
        self.assertEqual(self.verdict(*arguments(A)), ["in-hardware-unpublished"])

    def test_an_agent_in_standby_and_one_without_the_plugin(self):
        self.want([wanted(A)])
        self.write_config([("Ethernet1", "write", self.dir / "out.pcap")], top='mode = "standby"')
        agent = self.start()
        agent.wait_ready()
        self.assertEqual(self.verdict(*arguments(A)), ["agent-in-standby", "waiting-for-agent"])
        agent.end()
        self.write_config([("Ethernet1", "write", self.dir / "out.pcap")], plugins=(), state={})
        self.start().wait_ready()
        self.assertEqual(self.verdict(*arguments(A)), ["no-plugin", "waiting-for-agent"])


class FromTheTables(WhyTest):
    def setUp(self):
        super().setUp()
        self.want([wanted(A), wanted(B)])
        self.put([status(A), status(SIX, EGRESS), status(B, state=7)])
        self.sft("table", "put", STATES, "hosStateIpCounter", text='{"key":{"state":2},"count":3}\n{"key":{"state":3},"count":9}\n')

    def test_without_an_agent_nothing_is_in_hardware(self):
        self.assertEqual(self.verdict(*arguments(A)), ["agent-not-running", "in-hardware-unpublished"])
        self.assertEqual(self.verdict("fd00::/16"), ["agent-not-running", "not-wanted-any-more"])
        self.assertEqual(self.verdict(*arguments(B)), ["agent-not-running", "other-state"])
        self.put([status(B, state=OVERFLOW)])
        (row,), summary = self.why(*arguments(B))
        self.assertIn("3 IPv4 flows were in hardware, 9 waited.", row["also"][0]["why"])
        self.assertEqual(len(summary["notAsked"]), 2)

    def test_an_agent_that_leaves_amidst_its_answers_could_not_be_asked(self):
        self.want([wanted(A)])
        FakePeer(self, "control.sock", {"ports": [{"end": True}]})
        self.assertIn("agent-not-asked", self.verdict(*arguments(A)))

    def test_metrics_of_another_kind_are_one_error_line(self):
        for row, wrong in (({}, 'has no "name"'), ({"name": 5}, '"name": expected a string'), (5, 'has no "name"'),
                           ({"name": "a", "labels": []}, '"labels": expected an object'), ({"name": "a", "labels": {}}, 'has no "count"'),
                           ({"name": "a", "labels": {}, "count": 1, "sum": 1, "buckets": 1}, '"buckets": expected a list')):
            with self.subTest(row=row):
                (self.run_dir / "control.sock").unlink(missing_ok=True)
                FakePeer(self, "control.sock", {"metrics": [{"row": row}, {"end": True}]})
                self.assertIn(wrong, self.sft_refused("metrics"))

    def test_many_are_counted_by_verdict_and_some_shown(self):
        more = [flow_key("10.1.0.1", "10.1.0.2", port, 53) for port in range(1, 301)]
        self.want([wanted(each) for each in more])
        rows, summary = self.why("10.1.0.0/16", "*:53", "--limit", 4)
        self.assertEqual((len(rows), summary["flows"], summary["verdicts"]), (4, 300, {"agent-not-running": 300}))
        self.assertEqual(len(self.why("10.1.0.0/16", "--limit", 0)[0]), 300)
        shown = self.sft_any("why", "10.1.0.0/16")
        self.assertIn("300 flows: 300 agent-not-running; shown are 10 (--limit)", shown.out)

    def test_what_cannot_be_understood_is_a_misuse(self):
        for wrong in (["10.0.0"], ["10.0.0.1/40"], ["10.0.0.1:x"], ["--direction", "up"], ["10.0.0.1", "::1"], ["--limit", "-1"]):
            done = self.sft_any("why", *wrong)
            self.assertEqual((done.code, done.out, done.err.count("\n")), (2, "", 1), wrong)

    def test_a_run_directory_that_is_not_there_is_told(self):
        self.run_dir = self.dir / "nowhere"
        self.assertIn("no such folder", self.sft_refused("why"))


class WithATracker(WhyTest, FlowTrackerTest):
    def test_seen_a_few_times_often_enough_and_never(self):
        self.write_tracker_config("samples_to_learn = 3\nmax_flows = 1", interfaces=("Ethernet1",))
        tracker = self.start_tracker()
        tracker.wait_ready()
        self.start_agent(sampling={"ingressInterfaces": ["Ethernet1"], "egressInterfaces": ["Ethernet1"]})
        self.send(tracker, *[datagram(flow_sample(udp_frame(*FLOW_A)))] * 2)
        one = arguments(flow_key(*FLOW_A))
        (row,), summary = self.why(*one)
        self.assertEqual((row["verdict"], row["samples"], summary["notAsked"]), ("candidate", 2, []))
        self.assertIn("2 times", row["why"])
        self.assertIn("3 samples make it wanted", row["why"])
        self.assertEqual(self.verdict(*arguments(B)), ["not-seen"])
        self.send(tracker, datagram(flow_sample(udp_frame(*FLOW_A))))
        self.eventually(lambda: self.verdict(*one, code=0) if self.states() else None, ["in-hardware"])
        self.send(tracker, *[datagram(flow_sample(udp_frame(*FLOW_B)))] * 3)
        self.assertEqual(self.verdict(*arguments(flow_key(*FLOW_B))), ["tracker-full"])
        self.assertEqual(self.verdict("--interface", "Ethernet9", "--direction", "egress"), ["interface-unknown", "interface-unmapped"])

    def test_candidates_can_be_listed(self):
        self.write_tracker_config("samples_to_learn = 3")
        tracker = self.start_tracker()
        tracker.wait_ready()
        self.send(tracker, datagram(flow_sample(udp_frame(*FLOW_A)), flow_sample(udp_frame(*FLOW_B))))
        *rows, last = self.sft("tracker", "candidates", "10.0.0.3")
        self.assertEqual(([row["key"]["ipFlowKey"]["srcPort"] for row in rows], last), ([FLOW_B[2]], {"candidates": 1}))
        self.assertTrue(self.sft_any("tracker", "candidates").out.endswith("\n2 candidates, 2 shown\n"))
        self.assertEqual(self.sft("tracker", "flows"), [])
        self.assertEqual(self.sft("tracker")[0]["ipv4"]["candidates"], 2)
        self.assertIn("IPv4: 0 flows wanted", self.sft_any("tracker").out)
        tracker.end()
        self.assertIn("no flow tracker answers", self.sft_refused("tracker"))

    def test_candidates_that_were_left_out_are_told(self):
        FakePeer(self, "flow-tracker.sock", {"candidates": [{"row": {"key": 1}}, {"row": {"key": 2}}, {"row": {"candidates": 5}}, {"end": True}]})
        self.assertTrue(self.sft_any("tracker", "candidates").out.endswith("\n5 candidates, 2 shown\n"))


if __name__ == "__main__":
    unittest.main()
