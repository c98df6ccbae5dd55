"""flows.py against tshark on the repository's captures, and on frames that are hard to read."""
import collections
import pathlib
import shutil
import struct
import subprocess
import tempfile
import unittest

import flows

CAPTURES = pathlib.Path(__file__).resolve().parents[2] / "tests/captures"
SOURCE, DESTINATION = bytes([10, 0, 0, 1]), bytes([10, 0, 0, 2])


def ethernet(*types, payload=b""):
    """A frame with tags: ethernet((0x8100, 10), 0x0800, payload=...)."""
    frame = bytes(12)
    for each in types:
        frame += struct.pack("!HH", *each) if isinstance(each, tuple) else struct.pack("!H", each)
    return frame + payload


def ipv4(proto=17, length=None, fragment=0, options=b"", payload=bytes(8)):
    words = 5 + len(options) // 4
    if length is None:
        length = words * 4 + len(payload)
    fixed = struct.pack("!BBHHHBBH", 0x40 | words, 0, length, 0, fragment, 64, proto, 0)
    return fixed + SOURCE + DESTINATION + options + payload


def ipv6(next_header=17, length=None, payload=bytes(8)):
    length = len(payload) if length is None else length
    return struct.pack("!IHBB", 0x60000000, length, next_header, 64) + bytes(15) + b"\1" + bytes(15) + b"\2" + payload


def udp(source=1000, destination=53):
    return struct.pack("!HHHH", source, destination, 8, 0)


class Dissection(unittest.TestCase):
    def key(self, frame):
        return flows.dissect(frame, 7)[1]

    def test_untagged_has_the_ports_vlan(self):
        self.assertEqual(self.key(ethernet(0x0800, payload=ipv4(payload=udp()))), flows.FlowKey(7, SOURCE, DESTINATION, 17, 1000, 53))

    def test_first_of_three_tags_counts_even_when_it_is_0(self):
        frame = ethernet((0x88A8, 0), (0x8100, 20), (0x8100, 30), 0x0800, payload=ipv4(payload=udp()))
        self.assertEqual(self.key(frame).vlan, 0)

    def test_tag_priority_is_no_part_of_the_vlan(self):
        self.assertEqual(self.key(ethernet((0x8100, 0xE00A), 0x0800, payload=ipv4(payload=udp()))).vlan, 10)

    def test_later_fragment_has_no_ports_but_the_first_has(self):
        self.assertIsNone(self.key(ethernet(0x0800, payload=ipv4(fragment=185, payload=udp()))))
        self.assertIsNotNone(self.key(ethernet(0x0800, payload=ipv4(fragment=0x2000, payload=udp()))))

    def test_header_beyond_the_ip_length_is_not_there(self):
        self.assertIsNone(self.key(ethernet(0x0800, payload=ipv4(length=27, payload=udp()))))
        self.assertIsNone(self.key(ethernet(0x86DD, payload=ipv6(length=7, payload=udp()))))

    def test_length_0_does_not_bound(self):
        self.assertIsNotNone(self.key(ethernet(0x0800, payload=ipv4(length=0, payload=udp()))))
        self.assertIsNotNone(self.key(ethernet(0x86DD, payload=ipv6(length=0, payload=udp()))))

    def test_options_are_stepped_over(self):
        self.assertEqual(self.key(ethernet(0x0800, payload=ipv4(options=bytes(8), payload=udp()))).dport, 53)

    def test_extension_header_hides_the_ports(self):
        self.assertEqual(flows.dissect(ethernet(0x86DD, payload=ipv6(next_header=0, payload=bytes(16))), 1)[:2], ("IPv6", None))

    def test_octets_come_from_the_length_fields(self):
        self.assertEqual(flows.dissect(ethernet(0x0800, payload=ipv4(length=1500, payload=udp())), 1)[2], 1500)
        self.assertEqual(flows.dissect(ethernet(0x86DD, payload=ipv6(length=0, payload=udp())), 1)[2], 40)

    def test_no_prefix_of_a_frame_breaks_it(self):
        for whole in (ethernet((0x8100, 1), 0x0800, payload=ipv4(payload=udp())), ethernet(0x86DD, payload=ipv6(payload=udp()))):
            for length in range(len(whole)):
                self.assertIsNone(self.key(whole[:length]))

    def test_wrong_version_is_no_ip(self):
        self.assertEqual(flows.dissect(ethernet(0x0800, payload=ipv6(payload=udp())), 1)[0], "other")


class Captures(unittest.TestCase):
    def test_same_packets_in_every_format(self):
        for one, other in (("http-ipv6.pcap", "http-ipv6.pcapng"), ("dns-udp.pcap", "dns-udp-nanosecond.pcap")):
            self.assertEqual(list(flows.frames(CAPTURES / one)), list(flows.frames(CAPTURES / other)))

    def test_cut_off_capture_counts_up_to_the_cut_and_says_where(self):
        whole, cut = (flows.count(CAPTURES / name) for name in ("icmp.pcap", "icmp-cut-off.pcap"))
        self.assertIsNone(whole.damage)
        self.assertEqual(cut.packets, whole.packets - 1)
        self.assertRegex(cut.damage, r"^cut off at byte \d+: a packet needs \d+ bytes, \d+ are left$")

    def test_what_is_no_capture_is_refused(self):
        with tempfile.NamedTemporaryFile() as file:
            file.write(b"no capture")
            file.flush()
            self.assertEqual(flows.count(file.name).damage, "neither pcap nor pcapng")

    def test_flow_key_survives_json(self):
        for key in flows.count(CAPTURES / "mixed.pcap").flows:
            self.assertEqual(flows.from_json(flows.to_json(key)), key)

    @unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
    def test_flows_are_those_that_tshark_finds(self):
        for name in ("http-ipv4.pcap", "http-ipv6.pcap", "dns-udp.pcap", "vlan-tagged.pcap", "icmp.pcap", "fragments.pcap", "mixed.pcap"):
            with self.subTest(name):
                mine = {
                    (key.vlan, *(flows.to_json(key)[each] for each in ("srcAddr", "dstAddr", "srcPort", "dstPort"))): flow.packets
                    for key, flow in flows.count(CAPTURES / name).flows.items()
                }
                self.assertEqual(mine, tshark_flows(CAPTURES / name))


def tshark_flows(capture):
    """(vlan, addresses, ports) -> packets. The first of each field is the outermost header's: ICMP errors quote others."""
    fields = "vlan.id ip.src ip.dst ipv6.src ipv6.dst tcp.srcport tcp.dstport udp.srcport udp.dstport icmp.type icmpv6.type ipv6.fraghdr.offset".split()
    command = ["tshark", "-n", "-r", str(capture), "-o", "ip.defragment:FALSE", "-o", "ipv6.defragment:FALSE", "-E", "occurrence=f", "-T", "fields"]
    for field in fields:
        command += ["-e", field]
    found = collections.Counter()
    for line in subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines():
        row = dict(zip(fields, line.split("\t")))
        sport, dport = row["tcp.srcport"] or row["udp.srcport"], row["tcp.dstport"] or row["udp.dstport"]
        if sport and not row["icmp.type"] and not row["icmpv6.type"] and not row["ipv6.fraghdr.offset"]:
            vlan = int(row["vlan.id"] or 1)
            found[(vlan, row["ip.src"] or row["ipv6.src"], row["ip.dst"] or row["ipv6.dst"], int(sport), int(dport))] += 1
    return found


if __name__ == "__main__":
    unittest.main()
