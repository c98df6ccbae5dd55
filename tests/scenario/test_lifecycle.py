"""An agent starts, runs, ends, dies and starts again."""
import json
import signal
import socket
import struct
import subprocess
import unittest

from harness import (EGRESS, IN_HARDWARE, SAMPLING, STATUS, TRACKING, ScenarioTest, flow_key, flows, offload_of, status,
                     udp_frame, wanted)

FLOW = ("10.0.0.1", "10.0.0.2", 1000, 2000)
FRAME = udp_frame(*FLOW)
KEY = flows.from_json(flow_key(*FLOW))


class UntilEnd(ScenarioTest):
    def test_leaves_with_0_when_everything_is_replayed(self):
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", [FRAME] * 100))])
        agent = self.start("--until-end")
        self.assertEqual(agent.wait(), 0)
        self.assertEqual(len(agent.said("port Ethernet1: replay finished, 100 packets")), 1)

    def test_leaves_with_1_when_a_capture_is_damaged_and_says_where(self):
        damaged = self.write_capture("cut.pcap", [FRAME] * 3, cut=10)
        whole = self.write_capture("whole.pcap", [FRAME] * 5)
        self.write_config([("Ethernet1", "capture", damaged), ("Ethernet2", "capture", whole)])
        agent = self.start("--until-end")
        self.assertEqual(agent.wait(), 1)
        line, = agent.said("before the damage")
        self.assertIn("error: port Ethernet1: capture " + str(damaged), line)
        self.assertIn("the 2 packets before the damage were replayed", line)
        self.assertEqual(len(agent.said("port Ethernet2: replay finished, 5 packets")), 1)

    def test_leaves_at_once_without_captures(self):
        self.write_config([])
        self.assertEqual(self.start("--until-end").wait(), 0)

    def test_what_was_forwarded_is_in_the_file_when_it_leaves(self):
        frames = [udp_frame(*FLOW, bytes([number])) for number in range(200)]
        self.write_config([("in", "capture", self.write_capture("in.pcap", frames)), ("out", "write", self.dir / "out.pcap")],
                          forward={"in": "out"})
        self.assertEqual(self.start("--until-end").wait(), 0)
        self.assertEqual([frame for _, frame in flows.frames(self.dir / "out.pcap")], frames)

    def test_an_agent_without_plugins_forwards(self):
        self.write_config([("in", "capture", self.write_capture("in.pcap", [FRAME] * 3)), ("out", "write", self.dir / "out.pcap")],
                          forward={"in": "out"}, plugins=(), state={})
        self.assertEqual(self.start("--until-end").wait(), 0)
        self.assertEqual([frame for _, frame in flows.frames(self.dir / "out.pcap")], [FRAME] * 3)

    def test_paths_in_the_configuration_start_at_its_folder(self):
        self.write_capture("in.pcap", [FRAME])
        self.write_config([("in", "capture", "in.pcap"), ("out", "write", "out.pcap")], forward={"in": "out"})
        self.assertEqual(self.start("--until-end").wait(), 0)
        self.assertEqual(len(list(flows.frames(self.dir / "out.pcap"))), 1)

    def test_the_recorded_pace_keeps_the_distances(self):
        capture = self.write_capture("in.pcap", [FRAME] * 3, times=[100, 100.2, 100.4])
        self.write_config([("in", "capture", capture), ("out", "write", self.dir / "out.pcap")], forward={"in": "out"},
                          extra='[replay]\npace = "recorded"\n')
        self.assertEqual(self.start("--until-end").wait(), 0)
        times = self.times_of(self.dir / "out.pcap")
        for former, later in zip(times, times[1:]):
            self.assertGreaterEqual(later - former, 0.19)

    @staticmethod
    def times_of(path):
        data, at, times = path.read_bytes(), 24, []
        unit = 1e9 if data[:4] in (b"\x4d\x3c\xb2\xa1", b"\xa1\xb2\x3c\x4d") else 1e6
        while at < len(data):
            seconds, fraction, captured, _ = struct.unpack_from("<4I", data, at)
            times.append(seconds + fraction / unit)
            at += 16 + captured
        return times


class Ending(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", [FRAME] * 10))])

    def test_goes_on_serving_after_its_captures(self):
        agent = self.start_replayed()
        self.assertEqual(self.ports()["Ethernet1"]["replay"], "finished")
        self.assertIsNone(agent.process.poll())

    def test_sigterm_and_sigint_end_it_in_order(self):
        for how in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(how=how):
                agent = self.start_replayed()
                self.assertEqual(agent.end(how), 0)
                self.assertFalse((self.run_dir / "control.sock").exists())
                self.assertEqual(agent.process.stdout.closed, True)

    def test_sigterm_ends_it_amid_a_replay(self):
        capture = self.write_capture("long.pcap", [FRAME] * 2, times=[0, 50])
        self.write_config([("Ethernet1", "capture", capture)], extra='[replay]\npace = "recorded"\n')
        agent = self.start()
        agent.wait_ready()
        self.assertEqual(agent.end(), 0)

    def test_a_killed_agent_leaves_what_the_next_one_starts_from(self):
        self.want([wanted(flow_key(*FLOW))])
        agent = self.start_replayed()
        self.assertEqual(agent.end(signal.SIGKILL), -signal.SIGKILL)
        self.assertTrue((self.run_dir / "control.sock").exists())
        self.assertIn("no agent answers at", self.sft_refused("ports"))
        dumped, = self.sft("table", "dump", STATUS, "hoIpFlowStatus")  # readable with no agent there
        self.assertEqual(dumped["key"]["ipFlowKey"], flow_key(*FLOW))
        self.assertGreater(len(self.sft("trace")), 0)  # and so is what it traced
        again = self.start_replayed()
        self.assertEqual(self.local(), {KEY: (10, 280)})
        self.assertEqual(again.end(), 0)

    def test_starts_again_after_an_orderly_end(self):
        for _ in range(3):
            self.assertEqual(self.start_replayed().end(), 0)


class Standby(ScenarioTest):
    def test_forwards_and_builds_nothing_of_the_feature(self):
        self.want([wanted(flow_key(*FLOW))])
        self.put([status(flow_key(*FLOW))])
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", [FRAME] * 10)),
                           ("Ethernet2", "write", self.dir / "out.pcap")],
                          forward={"Ethernet1": "Ethernet2"}, rate=1, top='mode = "standby"')
        self.start_replayed()
        self.assertEqual(self.ports()["Ethernet2"]["packetsOut"], 10)
        self.assertEqual((self.local(), self.sft("samples"), self.reasons()), ({}, [], {}))
        capabilities, = self.sft("state", "get", "hardware/flowtracking/capabilities/sampled")
        self.assertEqual((capabilities["supported"], capabilities["maxTrackers"]), (False, 0))
        entity, = self.sft("attr", "get", "SampledFlowTracker")
        self.assertIsNone(entity["inputSampler"])


class StateAtRunTime(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", [FRAME] * 10))], rate=7)
        self.start_replayed()

    def test_the_capabilities_are_published(self):
        self.assertEqual(self.sft("state", "get", "hardware/flowtracking/capabilities/sampled"), [
            {"nonDefaultVrfExport": True, "maxTrackers": 256, "maxExportersPerTracker": 8, "maxCollectorsPerExporter": 8,
             "hwOffloadIpv4": True, "hwOffloadIpv6": True, "supported": True}])
        self.assertEqual(self.sft("state", "get", "hardware/flowwatcher/capabilities"), [{"feature": 1, "awakeSupported": True}])
        self.assertEqual(self.sft("state", "get", "sflow/hwstatus/dorn", "sflowEthProtocol"), [{"sflowEthProtocol": 33072}])

    def test_a_change_reaches_those_who_watch(self):
        def enabled():
            row, = self.sft("state", "get", "flowtracking/hoStatus/sampled")
            return row["v4enabled"], row["v6enabled"]

        self.assertEqual(enabled(), (True, True))
        self.assertEqual(self.sft("state", "set", TRACKING, "hwOffloadIpv4", "false"), [])
        self.assertEqual(enabled(), (False, True))
        self.assertEqual(self.sft("state", "get", TRACKING, "hwOffloadIpv4"), [{"hwOffloadIpv4": False}])

    def test_a_value_that_is_json_is_taken_as_such_and_else_as_text(self):
        self.sft("state", "set", TRACKING, "sampleRate", "12")
        self.assertEqual(self.sft("state", "get", TRACKING, "sampleRate"), [{"sampleRate": 12}])
        self.sft("state", "set", SAMPLING, "ingressInterfaces", '["Ethernet1","Ethernet5"]')
        row, = self.sft("state", "get", SAMPLING, "ingressInterfaces")
        self.assertEqual(sorted(row["ingressInterfaces"]), ["Ethernet1", "Ethernet5"])
        self.assertIn('"often"', self.sft_refused("state", "set", TRACKING, "sampleRate", "often"))

    def test_a_wrong_change_changes_nothing(self):
        before = self.sft("state", "get", TRACKING)
        for attribute, value in (("sampleRate", "-1"), ("sampleRate", "4294967296"), ("sampleRate", "true"),
                                 ("hwOffloadIpv4", "1"), ("hwOffloadIpv7", "true")):
            with self.subTest(attribute=attribute, value=value):
                self.assertIn(attribute, self.sft_refused("state", "set", TRACKING, attribute, value))
        self.assertIn("no/where", self.sft_refused("state", "get", "no/where"))
        self.assertEqual(self.sft("state", "get", TRACKING), before)

    def test_any_entity_is_reached_by_name(self):
        entity, = self.sft("attr", "get", "SampledFlowTracker.localHoCounters")
        self.assertIsInstance(entity, dict)
        rate, = self.sft("attr", "get", TRACKING, "sampleRate")
        self.assertEqual(rate, {"sampleRate": 7})
        self.assertEqual(self.sft("attr", "set", TRACKING, "sampleRate", "8"), [])
        self.assertEqual(self.sft("attr", "get", TRACKING, "sampleRate"), [{"sampleRate": 8}])
        self.assertIn("nobody", self.sft_refused("attr", "get", "nobody"))
        self.assertIn("noSuchHandler", self.sft_refused("attr", "call", TRACKING, "noSuchHandler"))


class Answering(ScenarioTest):
    """The control socket answers while packets run, and holds up nobody."""

    def ask(self, connection, request):
        connection.sendall(json.dumps(request).encode() + b"\n")
        return self.answer(connection)

    @staticmethod
    def answer(connection):
        data = b""
        while True:
            data += connection.recv(65536)
            lines = [json.loads(line) for line in data.splitlines() if line]
            if lines and ("end" in lines[-1] or "error" in lines[-1]):
                return lines

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        self.addCleanup(connection.close)
        connection.settimeout(60)
        connection.connect(str(self.run_dir / "control.sock"))
        return connection

    def test_while_a_capture_is_replayed_as_fast_as_it_goes(self):
        captures = [self.write_capture(f"in{number}.pcap", [FRAME] * 300_000) for number in range(2)]
        self.write_config([(f"E{number}", "capture", capture) for number, capture in enumerate(captures)])
        agent = self.start()
        agent.wait_ready()
        connection = self.connect()
        states = []
        while not states or "running" in states[-1]:
            rows = self.ask(connection, {"request": "ports"})
            states.append([line["row"]["replay"] for line in rows if "row" in line])
        self.assertGreater(len(states), 3, "answers before the end of the replay")
        self.assertEqual(states[-1], ["finished", "finished"])

    def test_many_clients_and_one_that_never_reads(self):
        self.write_config([("E1", "capture", self.write_capture("in.pcap", [FRAME]))])
        self.start_replayed()
        deaf = self.connect()
        for _ in range(2000):
            try:
                deaf.settimeout(0.05)
                deaf.sendall(b'{"request":"ports"}\n' * 100)
            except (TimeoutError, socket.timeout):
                break
        clients = [self.connect() for _ in range(50)]
        for client in clients:
            self.assertEqual(self.ask(client, {"request": "reasons"})[-1], {"end": True})

    def test_nonsense_is_told_so(self):
        self.write_config([("E1", "capture", self.write_capture("in.pcap", [FRAME]))])
        agent = self.start_replayed()
        connection = self.connect()
        connection.sendall(b"nonsense\n")
        self.assertIn("not JSON", self.answer(connection)[0]["error"])
        self.assertIn("unknown request", self.ask(connection, {"request": "dance"})[0]["error"])
        connection.sendall(b"x" * 70_000)
        self.assertIn("longer than", self.answer(connection)[0]["error"])
        self.assertIsNone(agent.process.poll())


def links_can_be_made():
    made = subprocess.run(["ip", "link", "add", "sftprobe0", "type", "veth", "peer", "name", "sftprobe1"], capture_output=True,
                          check=False)
    if made.returncode == 0:
        subprocess.run(["ip", "link", "del", "sftprobe0"], check=False)
    return made.returncode == 0


@unittest.skipUnless(links_can_be_made(), "this user cannot make network interfaces")
class LiveInterfaces(ScenarioTest):
    def setUp(self):
        super().setUp()
        for left, right in (("sfta0", "sfta1"), ("sftb0", "sftb1")):
            subprocess.run(["ip", "link", "add", left, "type", "veth", "peer", "name", right], check=True)
            self.addCleanup(subprocess.run, ["ip", "link", "del", left], check=False, capture_output=True)
            for name in (left, right):
                subprocess.run(["sysctl", "-q", "-w", f"net.ipv6.conf.{name}.disable_ipv6=1"], check=False, capture_output=True)
                subprocess.run(["ip", "link", "set", name, "up"], check=True)

    @staticmethod
    def raw_socket(interface):
        connection = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
        connection.bind((interface, 0))
        connection.settimeout(60)
        return connection

    def test_frames_pass_from_one_interface_to_the_other_and_are_counted(self):
        offloads = [wanted(flow_key(*FLOW)), wanted(flow_key(*FLOW), EGRESS, "Ethernet2")]
        self.want(offloads)
        self.write_config([("Ethernet1", "device", "sfta1"), ("Ethernet2", "device", "sftb1")],
                          forward={"Ethernet1": "Ethernet2", "Ethernet2": "Ethernet1"})
        agent = self.start()
        agent.wait_ready()
        self.eventually(self.states, {offload_of(each): IN_HARDWARE for each in offloads})
        with self.raw_socket("sfta0") as left, self.raw_socket("sftb0") as right:
            for number in range(20):
                frame = udp_frame(*FLOW, bytes([number]) * 20)
                left.send(frame)
                self.assertEqual(right.recv(2000), frame)
        self.assertEqual(self.local(), {KEY: (40, 40 * 48)})
        ports = self.ports()
        self.assertEqual((ports["Ethernet1"]["packetsIn"], ports["Ethernet2"]["packetsOut"]), (20, 20))
        self.assertNotIn("replay", ports["Ethernet1"])
        self.assertEqual(agent.end(), 0)


if __name__ == "__main__":
    unittest.main()
