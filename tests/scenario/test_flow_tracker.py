"""flow-tracker from outside: what it learns, wants and ages out, its errors, and, with the agent before it and real collectors
behind it, that the flow records add up to what was sent."""
import collections
import json
import shutil
import signal
import socket
import struct
import subprocess
import unittest

from harness import (BUILD, CONFIG, EGRESS, IN_HARDWARE, INGRESS, PATIENCE, SAMPLING, TRACKING, Agent, ScenarioTest, flow_key, flows, udp_frame,
                     wanted)
from collectors import Nfcapd

FLOW_A = ("10.0.0.1", "10.0.0.2", 1000, 2000)
FLOW_B = ("10.0.0.3", "10.0.0.4", 3000, 4000)
FLOW_6 = ("fd00::1", "fd00::2", 5000, 6000)
IP_UDP, IP6_UDP = 28, 48  # bytes of headers


def udp6_frame(source, destination, sport, dport, payload=b""):
    """An Ethernet frame with an IPv6 UDP datagram."""
    udp = struct.pack("!HHHH", sport, dport, 8 + len(payload), 0) + payload
    addresses = socket.inet_pton(socket.AF_INET6, source) + socket.inet_pton(socket.AF_INET6, destination)
    return bytes(6) + b"\x02" + bytes(5) + b"\x86\xdd" + struct.pack("!IHBB", 0x60000000, len(udp), 17, 64) + addresses + udp


def flow_sample(frame, source=1, rate=100, entry=1, leave=2):
    """An sFlow flow sample of a whole frame."""
    header = struct.pack("!4I", 1, len(frame) + 4, 4, len(frame)) + frame + bytes(-len(frame) % 4)
    body = struct.pack("!8I", 1, source, rate, 0, 0, entry, leave, 1) + struct.pack("!2I", 1, len(header)) + header
    return struct.pack("!2I", 1, len(body)) + body


def datagram(*samples, version=5):
    return struct.pack("!2I4B4I", version, 1, 192, 0, 2, 1, 0, 1, 0, len(samples)) + b"".join(samples)


class Tracker(Agent):
    PROGRAM = BUILD / "bin/flow-tracker"

    def listening(self):
        """(host, port) where it receives."""
        host, port = self.wait_ready()[0].rsplit(" ", 1)[1].split(":")
        return host, int(port)


class FlowTrackerTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.tracker_config = self.dir / "tracker.toml"
        self.sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.sender.close)

    def write_tracker_config(self, top="", extra="", listen="127.0.0.1:0", interfaces=("Ethernet1", "Ethernet2")):
        lines = [f'listen = "{listen}"', f'run_dir = "{self.run_dir}"', top]
        for index, name in enumerate(interfaces, 1):
            lines += ["[[interface]]", f"index = {index}", f'name = "{name}"']
        self.tracker_config.write_text("\n".join(lines) + "\n" + extra)

    def start_tracker(self):
        tracker = Tracker(["--config", self.tracker_config])
        self.addCleanup(tracker.close)
        return tracker

    def tracker_refused(self):
        """Starts a tracker that must refuse to; gives the one line it says."""
        tracker = self.start_tracker()
        self.assertEqual(tracker.wait(), 1)
        self.assertEqual(len(tracker.log), 1, tracker.log)
        return tracker.log[0]

    def ask(self, request):
        """The rows of an answer of the tracker's control socket."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
            control.settimeout(PATIENCE)
            control.connect(str(self.run_dir / "flow-tracker.sock"))
            control.sendall(json.dumps({"request": request}).encode() + b"\n")
            rows = []
            for line in control.makefile():
                answer = json.loads(line)
                if "row" not in answer:
                    self.assertEqual(answer, {"end": True})
                    return rows
                rows.append(answer["row"])
        raise AssertionError("the tracker has hung up")

    def statistics(self):
        return self.ask("statistics")[0]

    def send(self, tracker, *datagrams):
        """Sends datagrams, and waits until the tracker has counted them."""
        before = self.statistics()["datagrams"]
        for each in datagrams:
            self.sender.sendto(each, tracker.listening())
        self.eventually(lambda: self.statistics()["datagrams"], before + len(datagrams))

    def wanted_offloads(self):
        return sorted((row["key"]["ipFlowKey"]["srcAddr"], row["key"]["direction"], row["key"]["intfId"])
                      for collection in ("hoIpFlowConfig", "hoIp6FlowConfig")
                      for row in self.sft("table", "dump", CONFIG, collection))


class LearningTest(FlowTrackerTest):
    def test_flows_are_wanted_after_enough_samples_and_no_more_when_they_are_idle(self):
        self.write_tracker_config("samples_to_learn = 2\nidle_timeout = 3")
        tracker = self.start_tracker()
        tracker.wait_ready()
        both = datagram(flow_sample(udp_frame(*FLOW_A)), flow_sample(udp6_frame(*FLOW_6), source=2))
        self.send(tracker, both)
        self.assertEqual(self.statistics()["ipv4"]["candidates"], 1)
        self.send(tracker, both)
        self.assertEqual(self.statistics()["ipv4"]["learned"], 1)
        self.assertEqual(self.statistics()["ipv6"]["learned"], 1)
        self.eventually(self.wanted_offloads, [])
        self.assertEqual(self.statistics()["ipv4"]["idle"], 1)
        self.assertEqual(tracker.end(), 0)

    def test_a_tracker_that_starts_again_takes_over_what_is_wanted(self):
        self.write_tracker_config("samples_to_learn = 1")
        for how in (signal.SIGTERM, signal.SIGKILL):
            tracker = self.start_tracker()
            tracker.wait_ready()
            self.send(tracker, datagram(flow_sample(udp_frame(*FLOW_A)), flow_sample(udp6_frame(*FLOW_6), source=2)))
            self.assertEqual(self.wanted_offloads(), [("10.0.0.1", INGRESS, "Ethernet1"), ("fd00::1", EGRESS, "Ethernet2")])
            tracker.end(how)
            self.assertEqual(len(self.wanted_offloads()), 2)
        self.write_tracker_config("idle_timeout = 1")
        tracker = self.start_tracker()
        tracker.wait_for("2 wanted offloads taken over")
        self.eventually(self.wanted_offloads, [])

    def test_nobody_else_writes_what_is_wanted(self):
        self.write_tracker_config()
        tracker = self.start_tracker()
        tracker.wait_ready()
        line = self.sft_refused("table", "put", CONFIG, "hoIpFlowConfig", text=json.dumps(wanted(flow_key(*FLOW_A))))
        self.assertIn(str(tracker.process.pid), line)

    def test_what_is_malformed_is_counted_by_kind_and_dropped(self):
        self.write_tracker_config("samples_to_learn = 1")
        tracker = self.start_tracker()
        tracker.wait_ready()
        good = datagram(flow_sample(udp_frame(*FLOW_A)))
        self.send(tracker, b"", b"\0" * 3, datagram(version=4), good[:-1], good[:20], datagram(struct.pack("!2I", 1, 0)))
        counted = {kind: count for kind, count in self.statistics()["malformed"].items() if count}
        self.assertEqual(counted, {"headerCut": 3, "version": 1, "sampleCut": 1, "sampleShort": 1})
        self.assertEqual(self.wanted_offloads(), [])
        self.send(tracker, good)
        self.assertEqual(len(self.wanted_offloads()), 1)

    def test_statistics_are_written_to_the_log_when_asked_for(self):
        self.write_tracker_config()
        tracker = self.start_tracker()
        tracker.wait_ready()
        tracker.process.send_signal(signal.SIGUSR1)
        line, = tracker.wait_for("statistics: ")
        self.assertEqual(json.loads(line.split("statistics: ")[1])["datagrams"], 0)
        self.assertEqual(tracker.end(signal.SIGINT), 0)

    def test_an_index_without_a_name_is_told_once_and_counted(self):
        self.write_tracker_config(interfaces=("Ethernet1",))
        tracker = self.start_tracker()
        tracker.wait_ready()
        self.send(tracker, *[datagram(flow_sample(udp_frame(*FLOW_A), source=2))] * 3)
        self.assertEqual(self.statistics()["unmappedInterfaces"], [{"agent": "192.0.2.1", "index": 2, "samples": 3}])
        self.assertEqual(tracker.end(), 0)  # and its log is whole
        self.assertEqual(len(tracker.said("interface index 2 has no [[interface]]")), 1)


class StartTest(FlowTrackerTest):
    def test_help_names_every_key_of_the_configuration(self):
        done = subprocess.run([Tracker.PROGRAM, "--help"], capture_output=True, text=True, check=True)
        for key in ("listen", "run_dir", "samples_to_learn", "idle_timeout", "max_flows", "max_candidates", "[[interface]]", "index",
                    "agent", "vlan", "[[collector]]", "address", "active_timeout", "template_refresh", "observation_domain"):
            self.assertIn(key, done.stdout)

    def test_the_command_line_is_checked(self):
        for arguments in ([], ["--config"], ["--config", "x", "--frobnicate"]):
            done = subprocess.run([Tracker.PROGRAM, *arguments], capture_output=True, text=True, check=False)
            self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (2, "", 1))
            self.assertIn("expected --config FILE", done.stderr)

    def test_a_configuration_that_is_wrong_is_told_with_its_line(self):
        self.write_tracker_config("idle_time = 5")
        self.assertTrue(self.tracker_refused().startswith(
            f'flow-tracker: {self.tracker_config}:3: unknown key "idle_time" in the file, expected one of: '))
        self.assertFalse(self.run_dir.exists())

    def test_a_port_that_is_taken(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", 0))
            self.write_tracker_config(listen=f"127.0.0.1:{taken.getsockname()[1]}")
            error = self.tracker_refused()
        self.assertTrue(error.startswith(f"flow-tracker: {self.tracker_config}:1: listen "), error)
        self.assertIn("Address already in use", error)

    def test_a_collector_that_is_unknown(self):
        self.write_tracker_config(extra='[[collector]]\naddress = "no.such.host.invalid:4739"\n')
        error = self.tracker_refused()
        self.assertRegex(error, r'tracker.toml:11: collector "no.such.host.invalid:4739": expected an address or a known name')

    def test_a_table_that_another_tracker_writes(self):
        self.write_tracker_config()
        first = self.start_tracker()
        first.wait_ready()
        error = self.tracker_refused()
        self.assertIn(f"process {first.process.pid} is the table's writer", error)
        self.assertEqual(self.statistics()["datagrams"], 0)  # its control socket is still its own

    def test_a_run_directory_that_cannot_be_made(self):
        (self.dir / "file").write_text("")
        self.run_dir = self.dir / "file" / "run"
        self.write_tracker_config()
        self.assertRegex(self.tracker_refused(), "flow-tracker: run directory .*/file/run: .*, expected a directory")


class WholeLoopTest(FlowTrackerTest):
    """Samples -> tracker -> wanted offloads -> admission -> exact counters -> records at collectors. Every packet is sampled until its
    flow is in hardware, so that scaled and exact counts together are exactly what was sent."""
    PACKETS = 600
    SECONDS = 3

    def setUp(self):
        super().setUp()
        self.collector = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.collector.close)
        self.collector.bind(("127.0.0.1", 0))
        self.nfcapd = None
        if shutil.which("nfcapd"):
            self.nfcapd = Nfcapd(self.dir / "nfcapd")
            self.addCleanup(self.nfcapd.close)
            self.nfcapd.await_start(PATIENCE)

    def replay(self, interfaces_out=()):
        """Replays three flows through an agent whose samples the tracker gets, until everything is accounted for; ends all."""
        ports = [self.collector.getsockname()[1]] + ([self.nfcapd.port] if self.nfcapd else [])
        collectors = "".join(f'[[collector]]\naddress = "127.0.0.1:{port}"\n' for port in ports)
        self.write_tracker_config("samples_to_learn = 10\nidle_timeout = 600",
                                  collectors + "[ipfix]\nactive_timeout = 1\nobservation_domain = 9\n")
        tracker = self.start_tracker()
        frames = [udp_frame(*FLOW_A, b"x" * 100), udp_frame(*FLOW_B, b"y" * 1000), udp6_frame(*FLOW_6, b"z" * 37)] * self.PACKETS
        times = [number * self.SECONDS / len(frames) for number in range(len(frames))]
        self.write_sampling_config(tracker, self.write_capture("in.pcap", frames, times=times), interfaces_out)
        agent = self.start_replayed()
        self.eventually(self.accounted, (1 + len(interfaces_out)) * len(frames))
        self.assertEqual(self.states(), {(flow, direction, intf): IN_HARDWARE for flow in self.flows()
                                         for direction, intf in [(INGRESS, "Ethernet1")] + [(EGRESS, each) for each in interfaces_out]})
        exact = sum(row["packets"] for row in self.sft("local"))
        self.assertGreater(exact, 0)
        self.assertEqual(tracker.end(), 0)
        self.assertEqual(agent.end(), 0)
        if self.nfcapd:
            self.nfcapd.finish(PATIENCE)
        return exact

    def write_sampling_config(self, tracker, capture, interfaces_out=()):
        """An agent that replays at recorded pace and samples every packet for the tracker."""
        host, port = tracker.listening()
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": 1},
                 SAMPLING: {"ingressInterfaces": ["Ethernet1"], "egressInterfaces": list(interfaces_out)}}
        self.write_config([("Ethernet1", "capture", capture, 33), ("Ethernet2", "write", self.dir / "out.pcap")],
                          forward={"Ethernet1": "Ethernet2"}, state=state,
                          extra=f'[sflow]\nagent = "192.0.2.1"\ncollectors = ["{host}:{port}"]\n[replay]\npace = "recorded"\n')

    def accounted(self):
        """Packets that records tell of, or will."""
        told = self.statistics()
        return sum(told[family]["recordPackets"] for family in ("ipv4", "ipv6")) + \
            sum(row["packets"] + row["sampledPackets"] for row in self.ask("flows"))

    @staticmethod
    def flows():
        return [flows.from_json(flow_key(*each, vlan=33)) for each in (FLOW_A, FLOW_B, FLOW_6)]

    def sent(self, directions):
        """(packets, bytes) of each flow and direction, as nfdump numbers directions."""
        sizes = {FLOW_A: 100 + IP_UDP, FLOW_B: 1000 + IP_UDP, FLOW_6: 37 + IP6_UDP}
        return {(*flow, direction): (self.PACKETS, self.PACKETS * size) for flow, size in sizes.items() for direction in directions}

    def collected(self):
        """The same, from nfdump."""
        totals = collections.Counter()
        octets = collections.Counter()
        for row in self.nfcapd.rows():
            flow = (row.get("src4_addr") or row["src6_addr"], row.get("dst4_addr") or row["dst6_addr"], row["src_port"],
                    row["dst_port"], row["direction"])
            self.assertEqual((row["proto"], row["src_vlan"]), (17, 33))
            totals[flow] += row["in_packets"]
            octets[flow] += row["in_bytes"]
        return {flow: (totals[flow], octets[flow]) for flow in totals}

    def messages(self):
        """What the second collector got."""
        self.collector.setblocking(False)
        found = []
        while True:
            try:
                found.append(self.collector.recv(65535))
            except BlockingIOError:
                return found

    def tshark(self, messages, *arguments):
        frames = [udp_frame("127.0.0.1", "127.0.0.1", 40000, 4739, each) for each in messages]
        capture = self.write_capture("ipfix.pcap", frames)
        return subprocess.run(["tshark", "-r", capture, "-d", "udp.port==4739,cflow", *arguments], text=True, capture_output=True,
                              check=True).stdout.splitlines()

    @unittest.skipUnless(shutil.which("nfcapd") and shutil.which("nfdump"), "nfcapd and nfdump are not installed")
    def test_what_nfcapd_collects_is_what_was_sent(self):
        self.replay()
        self.assertEqual(self.collected(), self.sent([0]))
        self.assertEqual({row["input_snmp"] for row in self.nfcapd.rows()}, {1})
        self.assertIn("Sequence Errors: 0, Bad Packets: 0", self.nfcapd.said())

    @unittest.skipUnless(shutil.which("nfcapd") and shutil.which("nfdump"), "nfcapd and nfdump are not installed")
    def test_both_directions_add_up_to_twice_what_was_sent(self):
        self.replay(interfaces_out=["Ethernet2"])
        sent = self.sent([0, 1])
        collected = self.collected()
        self.assertEqual(set(collected), set(sent))
        for flow in self.sent([0]):
            both = [collected[(*flow[:-1], direction)] for direction in (0, 1)]
            packets, octets = sent[flow]
            self.assertEqual((sum(each[0] for each in both), sum(each[1] for each in both)), (2 * packets, 2 * octets))

    def test_a_flow_stays_in_hardware_while_the_tracker_is_killed_and_starts_again(self):
        self.write_tracker_config("samples_to_learn = 1\nidle_timeout = 4")
        tracker = self.start_tracker()
        frames = [udp_frame(*FLOW_A)] * 1000
        self.write_sampling_config(tracker, self.write_capture("in.pcap", frames, times=[number / 100 for number in range(1000)]))
        agent = self.start()
        agent.wait_ready()
        offload = (flows.from_json(flow_key(*FLOW_A, vlan=33)), INGRESS, "Ethernet1")
        self.eventually(self.states, {offload: IN_HARDWARE})
        tracker.end(signal.SIGKILL)
        self.assertEqual(self.states(), {offload: IN_HARDWARE})
        tracker = self.start_tracker()  # listens elsewhere: only the counters tell that the flow is alive
        tracker.wait_for("1 wanted offloads taken over")
        self.eventually(lambda: [row["packets"] > 0 for row in self.ask("flows")], [True])
        agent.wait_replayed()
        self.assertEqual(self.states(), {offload: IN_HARDWARE})  # more than the idle timeout after the start
        self.eventually(self.states, {})
        self.assertEqual(self.statistics()["ipv4"]["idle"], 1)

    @unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
    def test_tshark_understands_every_message_and_sees_what_is_scaled(self):
        exact = self.replay()
        messages = self.messages()
        self.assertEqual(self.tshark(messages, "-Y", "_ws.malformed or _ws.expert or not cflow"), [])
        rows = self.tshark(messages, "-T", "fields", "-E", "occurrence=a", "-e", "cflow.packets",
                           "-e", "cflow.sampling_population", "-e", "cflow.od_id")
        total = scaled = 0
        for row in rows:
            packets, population, domain = row.split("\t")
            self.assertEqual(domain, "9")
            total += sum(map(int, filter(None, packets.split(","))))
            scaled += sum(map(int, filter(None, population.split(","))))
        self.assertEqual((total, total - scaled), (3 * self.PACKETS, exact))


if __name__ == "__main__":
    unittest.main()
