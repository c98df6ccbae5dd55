#!/usr/bin/env python3
"""The flows of a capture, counted by a dissector of its own: what the programs' counts are held against.

    flows.py CAPTURE [--vlan ID]      one line a flow, the largest first: packets, octets, key

A flow is one direction of a TCP or UDP conversation: VLAN, addresses, protocol and ports. What counts as one is what the
agent's parser counts (docs/life-of-a-packet.md): Ethernet with any number of 0x8100 and 0x88a8 tags, the first tag's id, the
first IP header, and the TCP or UDP header only when it really stands after it, captured and within the IP length. Octets are
the IPv4 total length, or the IPv6 payload length and its 40 bytes. Standard library only.
"""
import argparse
import collections
import ipaddress
import struct
import sys

ETHERNET = 1
TAGS = (0x8100, 0x88A8)
IPV4, IPV6 = 0x0800, 0x86DD
LAYER4_BYTES = {6: 20, 17: 8}  # IP protocol -> bytes of header that must be there
DEFAULT_VRF = 0xFFFFFF

FlowKey = collections.namedtuple("FlowKey", "vlan src dst proto sport dport")


class CaptureError(Exception):
    """The capture cannot be read, or not to its end."""


class Flow:
    """What is counted of a flow."""

    __slots__ = ("packets", "octets")

    def __init__(self):
        self.packets = 0
        self.octets = 0


class Traffic:
    """A capture, counted. `damage` is None, or says where reading had to stop."""

    def __init__(self):
        self.packets = 0
        self.family = collections.Counter()  # "IPv4", "IPv6", "other" -> packets
        self.flows = collections.defaultdict(Flow)
        self.damage = None


def _exactly(stream, count, what, offset):
    data = stream.read(count)
    if len(data) != count:
        raise CaptureError(f"cut off at byte {offset}: {what} needs {count} bytes, {len(data)} are left")
    return data


def _pcap_frames(stream, magic):
    order = "<" if magic[0] in (0xD4, 0x4D) else ">"
    header = _exactly(stream, 20, "the file header", 4)
    link = struct.unpack(order + "I", header[16:20])[0] & 0xFFFF
    offset = 24
    while True:
        first = stream.read(1)
        if not first:
            return
        _, _, captured, _ = struct.unpack(order + "4I", first + _exactly(stream, 15, "a record header", offset))
        yield link, _exactly(stream, captured, "a packet", offset)
        offset += 16 + captured


def _pcapng_frames(stream):
    order, links, offset = "<", [], 0
    stream.seek(0)
    while True:
        first = stream.read(1)
        if not first:
            return
        head = first + _exactly(stream, 11, "a block header", offset)
        if head[:4] == b"\x0a\x0d\x0d\x0a":
            order = "<" if head[8:12] == b"\x4d\x3c\x2b\x1a" else ">"
            links = []
        kind, length = struct.unpack(order + "II", head[:8])
        if length < 12 or length % 4:
            raise CaptureError(f"damaged at byte {offset}: a block of {length} bytes")
        body = head[8:12] + _exactly(stream, length - 12, "a block", offset)
        if kind == 1:
            links.append(struct.unpack_from(order + "H", body)[0])
        elif kind == 6:
            interface, _, _, captured = struct.unpack_from(order + "4I", body)
            if interface >= len(links):
                raise CaptureError(f"damaged at byte {offset}: a packet of interface {interface}, which is not described")
            yield links[interface], body[20 : 20 + captured]
        elif kind == 3 and links:
            yield links[0], body[4:-4]
        offset += length


def frames(path):
    """Yields (link type, captured bytes) of each packet; raises CaptureError where the file is cut off or damaged."""
    with open(path, "rb") as stream:
        magic = stream.read(4)
        if magic in (b"\xd4\xc3\xb2\xa1", b"\xa1\xb2\xc3\xd4", b"\x4d\x3c\xb2\xa1", b"\xa1\xb2\x3c\x4d"):
            yield from _pcap_frames(stream, magic)
        elif magic == b"\x0a\x0d\x0d\x0a":
            yield from _pcapng_frames(stream)
        else:
            raise CaptureError("neither pcap nor pcapng")


def dissect(frame, port_vlan):
    """(family, key or None, IP length) of an Ethernet frame; family is "IPv4", "IPv6" or "other"."""
    other = ("other", None, 0)
    if len(frame) < 14:
        return other
    at, vlan = 12, None
    (ethertype,) = struct.unpack_from("!H", frame, at)
    while ethertype in TAGS:
        if len(frame) < at + 6:
            return other
        tag, ethertype = struct.unpack_from("!HH", frame, at + 2)
        vlan = tag & 0xFFF if vlan is None else vlan
        at += 4
    at += 2
    vlan = port_vlan if vlan is None else vlan
    if ethertype == IPV4:
        if len(frame) < at + 20 or frame[at] >> 4 != 4:
            return other
        header_bytes = (frame[at] & 15) * 4
        (length,) = struct.unpack_from("!H", frame, at + 2)
        if header_bytes < 20 or len(frame) < at + header_bytes or 0 < length < header_bytes:
            return other
        family, proto, octets = "IPv4", frame[at + 9], length
        source, destination = frame[at + 12 : at + 16], frame[at + 16 : at + 20]
        later_fragment = struct.unpack_from("!H", frame, at + 6)[0] & 0x1FFF
        room = length - header_bytes if length else None
    elif ethertype == IPV6:
        if len(frame) < at + 40 or frame[at] >> 4 != 6:
            return other
        header_bytes = 40
        (length,) = struct.unpack_from("!H", frame, at + 4)
        family, proto, octets = "IPv6", frame[at + 6], length + 40
        source, destination = frame[at + 8 : at + 24], frame[at + 24 : at + 40]
        later_fragment = 0
        room = length if length else None
    else:
        return other
    need = LAYER4_BYTES.get(proto)
    at += header_bytes
    if need is None or later_fragment or len(frame) < at + need or (room is not None and room < need):
        return family, None, octets
    sport, dport = struct.unpack_from("!HH", frame, at)
    return family, FlowKey(vlan, source, destination, proto, sport, dport), octets


def count(path, port_vlan=1):
    """Reads a whole capture of Ethernet frames."""
    traffic = Traffic()
    try:
        for link, frame in frames(path):
            if link != ETHERNET:
                raise CaptureError(f"link type {link}: only Ethernet (1) is replayed")
            traffic.packets += 1
            family, key, octets = dissect(frame, port_vlan)
            traffic.family[family] += 1
            if key is not None:
                flow = traffic.flows[key]
                flow.packets += 1
                flow.octets += octets
    except CaptureError as error:
        traffic.damage = str(error)
    return traffic


def to_json(key):
    """A flow key as `sft` reads and writes it."""
    return {
        "vrfId": DEFAULT_VRF,
        "vlan": key.vlan,
        "srcAddr": str(ipaddress.ip_address(key.src)),
        "dstAddr": str(ipaddress.ip_address(key.dst)),
        "ipProto": key.proto,
        "srcPort": key.sport,
        "dstPort": key.dport,
    }


def from_json(key):
    """The opposite of to_json."""
    source, destination = (ipaddress.ip_address(key[name]).packed for name in ("srcAddr", "dstAddr"))
    return FlowKey(key["vlan"], source, destination, key["ipProto"], key["srcPort"], key["dstPort"])


def protocol(key):
    return {6: "tcp", 17: "udp"}[key.proto]


def text(key):
    """A flow key for people: 10.0.0.1:1234 -> 10.0.0.2:80 tcp vlan 10."""

    def end(address, port):
        address = str(ipaddress.ip_address(address))
        return f"[{address}]:{port}" if ":" in address else f"{address}:{port}"

    return f"{end(key.src, key.sport)} -> {end(key.dst, key.dport)} {protocol(key)} vlan {key.vlan}"


def largest(traffic):
    """The flows, (key, Flow), by packets, then octets, then key."""
    return sorted(traffic.flows.items(), key=lambda item: (-item[1].packets, -item[1].octets, item[0]))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("capture")
    parser.add_argument("--vlan", type=int, default=1, help="VLAN of untagged packets (1 unless given)")
    arguments = parser.parse_args()
    try:
        traffic = count(arguments.capture, arguments.vlan)
    except OSError as error:
        sys.exit(f"flows.py: {arguments.capture}: {error.strerror}")
    for key, flow in largest(traffic):
        print(f"{flow.packets:8} {flow.octets:12}  {text(key)}")
    print(f"{traffic.packets} packets, {len(traffic.flows)} flows, " + ", ".join(f"{n} {f}" for f, n in sorted(traffic.family.items())))
    if traffic.damage:
        sys.exit(f"flows.py: {arguments.capture}: {traffic.damage}")


if __name__ == "__main__":
    main()
