"""What a running agent exports, as tshark understands it: real captures are replayed, and every sample in every datagram must
be a packet of them."""
import collections
import shutil
import socket
import struct
import subprocess
import unittest

from harness import OWN_CAPTURES, ScenarioTest, udp_frame

MOST_HEADER = 128
FRAME_CHECK = 4
FIELDS = ("version", "agent", "sequence_number", "numsamples", "header.frame_length", "header.payload_stripped",
          "header.sampled_header_length", "header", "vlan.in", "vlan.out")


def frames_of(path):
    """(frame, length on the wire) of each packet of a little-endian pcap file."""
    data = path.read_bytes()
    at = 24
    while at < len(data):
        captured, length = struct.unpack_from("<II", data, at + 8)
        yield data[at + 16: at + 16 + captured], length
        at += 16 + captured


def flow_samples(datagram):
    """(sequence, source, pool, drops, input, output) of each flow sample."""
    at = 28
    while at < len(datagram):
        kind, length = struct.unpack_from("!II", datagram, at)
        if kind == 1:
            sequence, source, _, pool, drops, entry, leave = struct.unpack_from("!7I", datagram, at + 8)
            yield sequence, source, pool, drops, entry, leave
        at += 8 + length


@unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
class SflowExportTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.collector = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.collector.close)
        self.collector.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self.collector.bind(("127.0.0.1", 0))
        self.collector.settimeout(60)

    def replay(self, capture):
        """Replays at rate 1, in on Ethernet1 and out on Ethernet2, and gives the datagrams with all samples."""
        port = self.collector.getsockname()[1]
        self.write_config([("Ethernet1", "capture", capture, 33), ("Ethernet2", "write", self.dir / "out.pcap", 44)],
                          forward={"Ethernet1": "Ethernet2"}, rate=1,
                          extra=f'[sflow]\nagent = "192.0.2.9"\ncollectors = ["127.0.0.1:{port}"]\n')
        agent = self.start_replayed()
        taken = sum(row["samples"] for row in self.sft("samples"))
        datagrams, found = [], 0
        while found < taken:
            datagrams.append(self.collector.recv(65535))
            found += len(list(flow_samples(datagrams[-1])))
        self.assertEqual(found, taken)
        self.assertEqual({row["drops"] for row in self.sft("samples")}, {0})
        self.assertEqual(agent.end(), 0)
        return datagrams

    def tshark(self, datagrams, *arguments):
        """With the sampled packets left as bytes: what is said is about the datagrams alone."""
        capture = self.write_capture("sflow.pcap", [udp_frame("127.0.0.1", "127.0.0.1", 40000, 6343, each) for each in datagrams])
        return subprocess.run(["tshark", "-r", capture, "-o", "sflow.enable_dissection:FALSE", *arguments], text=True,
                              capture_output=True, check=True).stdout.splitlines()

    def fields(self, datagrams):
        arguments = [part for name in FIELDS for part in ("-e", f"sflow_245.{name}")]
        for line in self.tshark(datagrams, "-T", "fields", "-E", "occurrence=a", *arguments):
            yield dict(zip(FIELDS, (column.split(",") for column in line.split("\t"))))

    def check(self, name):
        frames = list(frames_of(OWN_CAPTURES / name))
        datagrams = self.replay(OWN_CAPTURES / name)
        self.assertEqual(self.tshark(datagrams, "-Y", "_ws.malformed or _ws.expert or not sflow"), [])

        samples = collections.Counter()
        for number, row in enumerate(self.fields(datagrams), 1):
            self.assertEqual((row["version"], row["agent"], row["sequence_number"]), (["5"], ["192.0.2.9"], [str(number)]))
            self.assertEqual(set(row["header.payload_stripped"]) - {""}, {str(FRAME_CHECK)})
            for length, captured, header in zip(row["header.frame_length"], row["header.sampled_header_length"], row["header"]):
                samples[(bytes.fromhex(header.replace(":", ""))[:int(captured)], int(length))] += 1
        expected = collections.Counter({(frame[:MOST_HEADER], length + FRAME_CHECK): 0 for frame, length in frames})
        for frame, length in frames:
            expected[(frame[:MOST_HEADER], length + FRAME_CHECK)] += 2  # on its way in and on its way out
        self.assertEqual(samples, expected)
        self.check_sequences(datagrams, len(frames))
        return datagrams

    def check_sequences(self, datagrams, packets):
        by_source = collections.defaultdict(list)
        for datagram in datagrams:
            for sequence, source, pool, drops, entry, leave in flow_samples(datagram):
                by_source[source].append((sequence, pool, drops, entry, leave))
        self.assertEqual(by_source, {1: [(n, n, 0, 1, 0) for n in range(1, packets + 1)],
                                     2: [(n, n, 0, 1, 2) for n in range(1, packets + 1)]})

    def vlans(self, datagrams):
        return {(entry, leave) for row in self.fields(datagrams) for entry, leave in zip(row["vlan.in"], row["vlan.out"])}

    def test_untagged_packets_have_the_vlans_of_their_ports(self):
        self.assertEqual(self.vlans(self.check("http-ipv4.pcap")), {("33", "33"), ("33", "44")})

    def test_tagged_packets_have_the_vlan_of_their_first_tag(self):
        tagged = {str(int.from_bytes(frame[14:16], "big") & 0xFFF) for frame, _ in frames_of(OWN_CAPTURES / "vlan-tagged.pcap")
                  if frame[12:14] in (b"\x81\x00", b"\x88\xa8")}
        self.assertTrue(tagged)
        self.assertLessEqual({(vlan, vlan) for vlan in tagged}, self.vlans(self.check("vlan-tagged.pcap")))

    def test_ipv6_packets(self):
        self.check("http-ipv6.pcap")

    def test_fragments(self):
        self.check("fragments.pcap")


if __name__ == "__main__":
    unittest.main()
