"""Programs of other makers at the other end: sfcapd and sfacctd receive the agent's sFlow, nfcapd the tracker's IPFIX, and their
totals are what passed; the tracker understands what other agents sent."""
import csv
import json
import shutil
import signal
import unittest

from harness import AGENT, OWN_CAPTURES, PATIENCE, REAL_CAPTURES, SAMPLING, TRACKING, ScenarioTest, flows, skip_without  # first: it leads to scripts/lib
from collectors import Sfcapd
from conversations import kernel_counts, run, stream
from evenly import write_evenly
from live_job import received
from namespaces import Network, Unavailable
from programs import Program, free_udp_port, udp_bytes_waiting, until
from test_flow_tracker import FlowTrackerTest

CAPTURE = OWN_CAPTURES / "mixed.pcap"
SECONDS = 1  # that a replay takes
FRAME_CHECK = 4  # bytes behind each frame, which sFlow counts
PROTOCOLS = {"tcp": 6, "udp": 17}


def installed(*programs):
    """Skips a test whose peers are not on this machine."""
    absent = [each for each in programs if not shutil.which(each)]
    return unittest.skipIf(absent, f"not installed: {', '.join(absent)}")


class Sfacctd(Program):
    """A running sfacctd, whose print plugin writes JSON. Its file is whole when it has ended."""
    CONFIG = """daemonize: false
sfacctd_ip: 127.0.0.1
sfacctd_port: {port}
sfacctd_renormalize: true
plugins: print
aggregate: src_host,dst_host,src_port,dst_port,proto,vlan
print_output: json
print_output_file: {output}
print_output_file_append: true
print_refresh_time: 1
plugin_buffer_size: 10240
plugin_pipe_size: 4096000
"""

    def __init__(self, folder, prefix=()):
        folder.mkdir()
        self.port = free_udp_port()
        self.output = folder / "totals.json"
        (folder / "sfacctd.conf").write_text(self.CONFIG.format(port=self.port, output=self.output))
        super().__init__("sfacctd", [*prefix, "sfacctd", "-f", folder / "sfacctd.conf"], folder / "sfacctd.log")

    def await_start(self):
        until(lambda: "waiting for sFlow data" in self.said(), PATIENCE, "sfacctd has not started", [self])

    def rows(self):
        return [json.loads(line) for line in self.output.read_text().splitlines()] if self.output.exists() else []

    def finish(self):
        """Lets it take what has arrived, and ends it in order: it writes all then."""
        until(lambda: udp_bytes_waiting(self) == 0, PATIENCE, "sfacctd does not take what it receives", [self])
        self.end(signal.SIGINT, PATIENCE)

    def totals(self):
        """(packets, bytes) of each TCP and UDP flow."""
        found = {}
        for row in self.rows():
            if row["ip_proto"] in PROTOCOLS and row["port_dst"]:
                key = flows.from_json({"vlan": row["vlan"], "srcAddr": row["ip_src"], "dstAddr": row["ip_dst"],
                                       "ipProto": PROTOCOLS[row["ip_proto"]], "srcPort": row["port_src"], "dstPort": row["port_dst"]})
                packets, octets = found.get(key, (0, 0))
                found[key] = packets + row["packets"], octets + row["bytes"]
        return found


def on_the_wire(capture):
    """(packets, bytes with Ethernet and its check) of each flow."""
    found = {}
    for _, frame in flows.frames(capture):
        key = flows.dissect(frame, 1)[1]
        if key is not None:
            packets, octets = found.get(key, (0, 0))
            found[key] = packets + 1, octets + len(frame) + FRAME_CHECK
    return found


def only(keys, found):
    """What is found of these flows. Collectors read ports where there are none, too, in the later fragments of a datagram."""
    return {key: each for key, each in found.items() if key in keys}


@installed("sfcapd", "nfdump", "sfacctd")
class SflowTest(ScenarioTest):
    """Packets are sampled where they enter."""

    def collect(self, rate):
        """Replays the capture; gives the sampler's row and what sfcapd and sfacctd say of each flow."""
        peers = [Sfcapd(self.dir / "sfcapd"), Sfacctd(self.dir / "sfacctd")]
        for peer in peers:
            self.addCleanup(peer.close)
            peer.await_start()
        collectors = json.dumps([f"127.0.0.1:{peer.port}" for peer in peers])
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": rate},
                 SAMPLING: {"ingressInterfaces": ["Ethernet1"], "egressInterfaces": []}}
        write_evenly(CAPTURE, self.dir / "evenly.pcap", SECONDS)
        self.write_config([("Ethernet1", "capture", self.dir / "evenly.pcap")], state=state,
                          extra=f'[replay]\npace = "recorded"\n[sflow]\nagent = "192.0.2.1"\ncollectors = {collectors}\n')
        agent = self.start_replayed()
        sampler, = [row for row in self.sft("samples") if row["samples"]]
        self.assertEqual(agent.end(), 0)
        for peer in peers:
            peer.finish()
        self.assertRegex(peers[0].said(), rf"Flows: {sampler['samples']}, .*Sequence Errors: 0, Bad Packets: 0")
        self.assertEqual(sampler["drops"], 0)
        return sampler, peers[0].totals(), peers[1].totals()

    def test_at_rate_1_both_collectors_have_every_packet_of_every_flow(self):
        sampler, sfcapd, sfacctd = self.collect(1)
        expected = on_the_wire(CAPTURE)
        for found in (sfcapd, sfacctd):
            self.assertEqual(only(expected, found), expected)
        self.assertEqual(sampler["samples"], flows.count(CAPTURE).packets)

    def test_at_rate_10_what_they_scale_up_is_near_what_passed(self):
        sampler, sfcapd, sfacctd = self.collect(10)
        self.assertEqual(sampler["pool"], flows.count(CAPTURE).packets)
        expected = on_the_wire(CAPTURE)
        found = [only(expected, each) for each in (sfcapd, sfacctd)]
        self.assertEqual(found[0].keys(), found[1].keys())
        self.assertEqual({packets % 10 for packets, _ in found[0].values()}, {0})
        passed = sum(packets for packets, _ in expected.values())
        for each in found:  # sfacctd scales by the pool numbers between two samples, sfcapd by the rate
            told = sum(packets for packets, _ in each.values())
            self.assertLess(abs(told - passed), 8 * 10 * (passed * 0.1 * 0.9) ** 0.5)  # eight standard deviations


@installed("sfcapd", "nfdump", "sfacctd", "iperf3", "ethtool", "ip")
class LiveSflowTest(ScenarioTest):
    """Hosts talk through the agent, which samples every packet where it enters."""
    STREAMS = (("ipv4", "-b", "4M", "-l", "1000", "-n", "300K"), ("ipv6", "-u", "-b", "2M", "-l", "1000", "-n", "200K"))

    def setUp(self):
        super().setUp()
        try:
            self.network = Network()
        except Unavailable as why:
            self.skipTest(str(why))
        self.addCleanup(self.network.close)

    def start_in(self, space, name, *command):
        program = Program(name, space.command(command), self.dir / f"{name}.log")
        self.addCleanup(program.close)
        return program

    def start_agent(self, peers):
        collectors = json.dumps([f"127.0.0.1:{peer.port}" for peer in peers])
        state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": 1},
                 SAMPLING: {"ingressInterfaces": ["Ethernet1", "Ethernet2"], "egressInterfaces": []}}
        ports = [(f"Ethernet{number}", "device", host.port) for number, host in enumerate((self.network.a, self.network.b), 1)]
        self.write_config(ports, forward={"Ethernet1": "Ethernet2", "Ethernet2": "Ethernet1"}, state=state,
                          extra=f'[sflow]\nagent = "192.0.2.1"\ncollectors = {collectors}\n')
        agent = self.start_in(self.network.agent, "pexa-agent", AGENT, "--config", self.config)
        until(lambda: ": ready: " in agent.said(), PATIENCE, "the agent is not ready", [agent])
        return agent

    def talk(self):
        server = self.start_in(self.network.b, "iperf3", "iperf3", "-s")
        until(lambda: ":5201" in run(self.network.b, "ss", "-Hlnt"), PATIENCE, "iperf3 has not started", [server])
        for family, *options in self.STREAMS:
            stream(self.network.a, getattr(self.network.b, family), *options)
        server.end()

    def kernels(self):
        """TCP and UDP packets that each host's kernel received."""
        return [{kind: kernel_counts(host)[kind] for kind in ("tcp", "udp")} for host in (self.network.a, self.network.b)]

    def told(self, peer):
        """The same, as a collector tells it."""
        return [{kind: received(peer.totals(), host)[kind] for kind in ("tcp", "udp")} for host in (self.network.a, self.network.b)]

    def sampled(self):
        """Whether each packet that came in was sampled."""
        return {row["name"]: row["packetsIn"] for row in self.sft("ports")} == \
            {row["intfId"]: row["samples"] for row in self.sft("samples") if row["direction"] == "ingress"}

    def test_collectors_have_every_packet_that_the_hosts_kernels_received(self):
        prefix = self.network.agent.command([])
        peers = [Sfcapd(self.dir / "sfcapd", prefix), Sfacctd(self.dir / "sfacctd", prefix)]
        for peer in peers:
            self.addCleanup(peer.close)
            peer.await_start()
        agent = self.start_agent(peers)
        self.talk()
        self.eventually(self.sampled, True)
        self.assertEqual(agent.end(), 0)
        for peer in peers:
            peer.finish()
        kernels = self.kernels()
        self.assertGreater(min(kernels[1].values()), 50)
        self.assertEqual([self.told(peer) for peer in peers], [kernels, kernels])


@skip_without(REAL_CAPTURES)
class OtherAgentsTest(FlowTrackerTest):
    """Datagrams that other agents sent, as they came over the wire."""

    def feed(self, name):
        """Sends a capture's datagrams to a tracker; gives the statistics, and the samples that an independent reader found."""
        capture = REAL_CAPTURES / name
        if not capture.is_file():
            self.skipTest(f"no {capture}")
        self.write_tracker_config("samples_to_learn = 1", interfaces=())
        tracker = self.start_tracker()
        tracker.wait_ready()
        payloads = [payload for payload in map(udp_payload, (frame for _, frame in flows.frames(capture))) if payload is not None]
        self.send(tracker, *payloads)
        with open(REAL_CAPTURES / f"truth/{name}.sflow.tsv", encoding="ascii") as truth:
            samples = list(csv.DictReader(truth, delimiter="\t"))
        self.assertEqual(tracker.process.poll(), None)
        return self.statistics(), len(payloads), samples

    def check(self, name):
        told, sent, samples = self.feed(name)
        self.assertEqual(told["datagrams"], sent)
        self.assertEqual(told["datagramsDropped"], 0)
        by_kind = {kind: sum(row["type"] in types for row in samples)
                   for kind, types in (("flowSamples", ("0:1", "0:3")), ("counterSamples", ("0:2", "0:4")))}
        self.assertEqual({kind: told[kind] for kind in by_kind}, by_kind)
        self.assertEqual(sum(row["samples"] for row in told["unmappedInterfaces"]), told["samplesWithoutFlow"]["unknownInterface"])
        return told

    def test_samples_of_one_agent(self):
        told = self.check("sflow5-datagrams-a.pcap")
        self.assertEqual(sum(told["malformed"].values()), 0)

    def test_samples_of_many_agents(self):
        told = self.check("sflow5-other-agents-a.pcap")
        self.assertEqual(sum(told["malformed"].values()), told["malformed"]["version"])  # some speak version 4


def udp_payload(frame):
    """What an untagged Ethernet frame's UDP datagram over IPv4 holds; None when it has none."""
    if flows.dissect(frame, 1)[1] is None:
        return None
    at = 14 + (frame[14] & 15) * 4
    return frame[at + 8: at + int.from_bytes(frame[at + 4: at + 6], "big")]


if __name__ == "__main__":
    unittest.main()
