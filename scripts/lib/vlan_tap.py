#!/usr/bin/env python3
"""An interface in a VLAN, for kernels without 802.1Q devices.

    vlan_tap.py TAP INTERFACE TAG [TAG ...]

Makes the tap TAP and joins it to INTERFACE: what the kernel sends on the tap leaves INTERFACE with the tags, the outermost
first, and what comes in with exactly these tags is handed to the tap without them. A TAG is a VLAN id; of several, all but the
last are 802.1ad. Says "ready" when the tap is there, and ends when its standard input does. Standard library only; meant for
conversations, not for load.
"""
import fcntl
import os
import select
import socket
import struct
import sys

TUNSETIFF = 0x400454CA
IFF_TAP, IFF_NO_PI = 0x0002, 0x1000
PACKET_AUXDATA, SOL_PACKET = 8, 263
VLAN_VALID, VLAN_TPID_VALID = 1 << 4, 1 << 6
ETH_P_ALL = 3
SO_RCVBUFFORCE = 33
OUTGOING = 4  # the kind of a packet that this machine sends
MOST = 65536
ADDRESSES = 12  # bytes before the first tag


def tags_of(ids):
    """The bytes of these tags, as they stand behind the addresses."""
    kinds = [0x88A8] * (len(ids) - 1) + [0x8100]
    return b"".join(struct.pack("!HH", kind, vlan) for kind, vlan in zip(kinds, ids))


def without_priority(tags):
    """The same tags with the priority bits cleared."""
    return b"".join(struct.pack("!HH", kind, tci & 0x0FFF) for kind, tci in struct.iter_unpack("!HH", tags))


def received(wire):
    """The next frame, with the tag that the kernel took off put back; None for one that this machine sent."""
    frame, ancillary, _, sender = wire.recvmsg(MOST, socket.CMSG_SPACE(20))
    if sender[2] == OUTGOING:
        return None
    for level, kind, data in ancillary:
        if level == SOL_PACKET and kind == PACKET_AUXDATA:
            status, _, _, _, _, tci, tpid = struct.unpack("=IIIHHHH", data[:20])
            if status & VLAN_VALID:
                tag = struct.pack("!HH", tpid if status & VLAN_TPID_VALID else 0x8100, tci)
                frame = frame[:ADDRESSES] + tag + frame[ADDRESSES:]
    return frame


def open_tap(name):
    tap = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
    fcntl.ioctl(tap, TUNSETIFF, struct.pack("16sH22x", name.encode(), IFF_TAP | IFF_NO_PI))
    return tap


def write(tap, frame):
    try:
        os.write(tap, frame)
    except OSError:  # the tap is down: a cable that is out
        pass


def from_tap(tap, wire, tags):
    frame = os.read(tap, MOST)
    try:
        wire.send(frame[:ADDRESSES] + tags + frame[ADDRESSES:])
    except OSError:  # the interface is down, or the frame is longer than it takes
        pass


def from_wire(wire, tap, tags):
    try:
        frame = received(wire)
    except OSError:  # the interface went down
        return
    end = ADDRESSES + len(tags)
    if frame is None or len(frame) < end + 2 or without_priority(frame[ADDRESSES:end]) != tags:
        return
    if frame[end:end + 2] in (b"\x81\x00", b"\x88\xa8"):
        return  # another tag behind: not ours
    write(tap, frame[:ADDRESSES] + frame[end:])


def run(name, interface, ids):
    tags = tags_of(ids)
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)  # nothing is received before it is bound
    wire.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
    wire.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 8 << 20)
    wire.bind((interface, ETH_P_ALL))
    tap = open_tap(name)
    print("ready", flush=True)
    while True:
        readable, _, _ = select.select([sys.stdin, tap, wire], [], [])
        if sys.stdin in readable and not os.read(sys.stdin.fileno(), 1):
            return
        if tap in readable:
            from_tap(tap, wire, tags)
        if wire in readable:
            from_wire(wire, tap, tags)


if __name__ == "__main__":
    run(sys.argv[1], sys.argv[2], [int(each) for each in sys.argv[3:]])
