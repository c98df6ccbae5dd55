"""Every 5-tuple of a capture wanted in hardware: what the agent counts is what is in the file, packet for packet, byte for byte.

Own captures are held against scripts/lib/flows.py, real ones against the truth that came with them.
"""
import collections
import ipaddress
import unittest

from harness import (BUDGET, EGRESS, IN_HARDWARE, INGRESS, OWN_CAPTURES, REAL_CAPTURES, ScenarioTest, flows, offload_of,
                     skip_without, wanted)

ETHERNET = "1:EN10MB"


class Truth:
    """What is in a capture: packets, and of each flow packets and bytes, with untagged packets in the port's VLAN."""

    def __init__(self, packets, damaged, link_types):
        self.packets = packets
        self.damaged = damaged
        self.link_types = link_types
        self.flows = collections.defaultdict(lambda: (0, 0))

    def add(self, key, packets, octets):
        former = self.flows[key]
        self.flows[key] = (former[0] + packets, former[1] + octets)

    @staticmethod
    def of_own(path):
        traffic = flows.count(path)
        truth = Truth(traffic.packets, traffic.damage is not None, {ETHERNET})
        for key, flow in traffic.flows.items():
            truth.add(key, flow.packets, flow.octets)
        return truth

    @staticmethod
    def of_real(path, port_vlan=1):
        summary, rows = {}, []
        for line in (REAL_CAPTURES / "truth" / f"{path.name}.tsv").read_text().splitlines():
            cells = line.lstrip("#").split("\t")
            if line.startswith("#"):
                summary[cells[0]] = cells[1]
            elif cells[0] == "l4":
                rows.append(cells[1:])
        truth = Truth(int(summary["packets"]), "reader_error" in summary, set(summary["linktypes"].split(",")))
        for _version, vlan, source, destination, proto, sport, dport, packets, octets, *_ in rows:
            addresses = [ipaddress.ip_address(text).packed for text in (source, destination)]
            key = flows.FlowKey(port_vlan if vlan == "-" else int(vlan), *addresses, int(proto), int(sport), int(dport))
            truth.add(key, int(packets), int(octets))
        return truth


class TruthTest(ScenarioTest):
    maxDiff = 2000

    def compare(self, capture, truth, direction):
        """Replays the capture with all its flows in hardware and holds the counters against the truth."""
        port = {INGRESS: "Ethernet1", EGRESS: "Ethernet2"}[direction]
        offloads = [wanted(flows.to_json(key), direction, port) for key in truth.flows]
        self.want(offloads)
        ports = [("Ethernet1", "capture", capture)]
        written = self.dir / "out.pcap"
        if direction == EGRESS:
            ports.append(("Ethernet2", "write", written))
        self.write_config(ports, forward={"Ethernet1": "Ethernet2"} if direction == EGRESS else None)
        agent = self.start_replayed(environment={BUDGET: str(len(offloads))})
        self.assertEqual(self.states(), {offload_of(each): IN_HARDWARE for each in offloads})
        rows = self.ports()
        self.assertEqual(rows["Ethernet1"]["replay"], "damaged" if truth.damaged else "finished", agent.log)
        self.assertEqual(rows["Ethernet1"]["packetsIn"], truth.packets)
        counted = self.local()
        wrong = {flows.text(key): (counted.get(key), truth.flows.get(key))
                 for key in counted.keys() | truth.flows.keys() if counted.get(key) != truth.flows.get(key)}
        self.assertEqual(wrong, {}, "(counted, true) of the flows that differ")
        if direction == EGRESS:
            self.assertEqual(rows["Ethernet2"]["packetsOut"], truth.packets)
        if truth.damaged:
            self.assertIn(str(capture), rows["Ethernet1"]["error"])
            self.assertIn("error", agent.said("before the damage were replayed")[0])
        self.assertEqual(agent.end(), 0)
        if direction == EGRESS:
            self.assert_same_frames(capture, written)

    def assert_same_frames(self, capture, written):
        def frames_of(path):
            found = []
            try:
                for _link, frame in flows.frames(path):
                    found.append(frame)
            except flows.CaptureError:
                pass
            return found

        before, after = frames_of(capture), frames_of(written)
        self.assertEqual(len(after), len(before))
        differ = [number for number, (old, new) in enumerate(zip(before, after), 1) if old != new]
        self.assertEqual(differ, [], "frames that were changed on their way")


def each_capture(folder, of_file):
    """Adds two tests a capture, one a direction."""

    def add(tests):
        for path in sorted([*folder.glob("*.pcap"), *folder.glob("*.pcapng")]):
            for direction, name in ((INGRESS, "ingress"), (EGRESS, "egress")):

                def test(self, path=path, direction=direction):
                    of_file(self, path, direction)

                setattr(tests, f"test_{path.name}_{name}".replace(".", "_").replace("-", "_"), test)
        return tests

    return add


@each_capture(OWN_CAPTURES, lambda self, path, direction: self.compare(path, Truth.of_own(path), direction))
class OwnCaptures(TruthTest):
    def test_there_are_captures(self):
        self.assertGreaterEqual(len(list(OWN_CAPTURES.glob("*.pcap"))), 5)


def real_capture(self, path, direction):
    truth = Truth.of_real(path)
    if truth.link_types == {ETHERNET}:
        return self.compare(path, truth, direction)
    # Ports are Ethernet: what is not is refused by its name, at the start or where it comes in the file.
    self.write_config([("Ethernet1", "capture", path)])
    agent = self.start("--until-end")
    self.assertEqual(agent.wait(), 1, agent.log)
    said = "\n".join(agent.log)
    self.assertIn(str(path), said)
    self.assertRegex(said, "(?i)link.?type|linktype|type [0-9]+ different|Ethernet")
    return None


@skip_without(REAL_CAPTURES)
@each_capture(REAL_CAPTURES, real_capture)
class RealCaptures(TruthTest):
    def test_there_are_captures(self):
        self.assertGreaterEqual(len(list(REAL_CAPTURES.glob("*.pcap*"))), 40)


if __name__ == "__main__":
    unittest.main()
