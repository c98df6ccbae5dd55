"""A flow in hardware is counted and not sampled, from the table to the counters."""
import socket
import struct
import unittest

from harness import (BUDGET, CONFIG, EGRESS, IN_HARDWARE, OVERFLOW, SAMPLING, STATUS, TRACKING, ScenarioTest, flow_key, flows,
                     offload_of, status, udp_frame, wanted)

FLOW_A = ("10.0.0.1", "10.0.0.2", 1000, 2000)
FLOW_B = ("10.0.0.3", "10.0.0.4", 3000, 4000)
SIX = {"vrfId": flows.DEFAULT_VRF, "vlan": 1, "srcAddr": "fd00::1", "dstAddr": "fd00::2", "ipProto": 17, "srcPort": 5,
       "dstPort": 6}


def key_of(flow, vlan=1):
    return flows.from_json(flow_key(*flow, vlan=vlan))


class OffloadTest(ScenarioTest):
    def replay(self, frames, environment=None, **config):
        """Replays frames into Ethernet1, patched to Ethernet2."""
        capture = self.write_capture("in.pcap", frames)
        self.write_config([("Ethernet1", "capture", capture), ("Ethernet2", "write", self.dir / "out.pcap")],
                          forward={"Ethernet1": "Ethernet2"}, **config)
        return self.start_replayed(environment=environment)

    def test_a_flow_wanted_before_the_start_is_counted_from_the_first_packet_on(self):
        self.want([wanted(flow_key(*FLOW_A))])
        self.replay([udp_frame(*FLOW_A, b"abc"), udp_frame(*FLOW_B), udp_frame(*FLOW_A)])
        self.assertEqual(self.local(), {key_of(FLOW_A): (2, 31 + 28)})
        row, = self.sft("local")
        self.assertEqual(set(row), {"key", "packets", "bytes", "intfId", "updateTime"})
        self.assertEqual(row["intfId"], "Ethernet1")
        self.assertGreater(row["updateTime"], 1.7e9)

    def test_a_running_agent_takes_what_is_wanted_into_hardware_and_out_again(self):
        # At recorded pace the second packet is a minute away: the agent is amid its replay all the time.
        capture = self.write_capture("in.pcap", [udp_frame(*FLOW_A)] * 2, times=[0, 50])
        self.write_config([("Ethernet1", "capture", capture)], extra='[replay]\npace = "recorded"\n')
        agent = self.start()
        agent.wait_ready()
        offload = wanted(flow_key(*FLOW_A))
        self.want([offload])
        self.eventually(self.states, {offload_of(offload): IN_HARDWARE})
        listed = {row["path"]: row for row in self.sft("table", "list")}
        self.assertEqual((listed[STATUS]["entries"], listed[STATUS]["type"], listed[STATUS]["writer"]),
                         (1, "FlowTracking::HoFlowStatus", agent.process.pid))
        self.assertEqual((listed[CONFIG]["entries"], listed[CONFIG]["writer"]), (1, None))
        self.assertEqual(self.ports()["Ethernet1"]["replay"], "running")
        self.unwant([offload])
        self.eventually(self.states, {})
        self.eventually(lambda: self.sft("counters"), [])

    def test_a_status_that_nobody_wants_is_taken_away_by_the_start(self):
        self.put([status(flow_key(*FLOW_A)), status(SIX, state=OVERFLOW)])
        self.replay([udp_frame(*FLOW_A)])
        self.assertEqual((self.states(), self.local()), ({}, {}))

    def test_a_flow_in_hardware_in_both_directions_counts_twice_in_one_record(self):
        self.want([wanted(flow_key(*FLOW_A)), wanted(flow_key(*FLOW_A), EGRESS, "Ethernet2")])
        self.replay([udp_frame(*FLOW_A)] * 5)
        self.assertEqual(self.local(), {key_of(FLOW_A): (10, 280)})
        self.assertEqual(self.sft("local")[0]["intfId"], "Ethernet2")

    def test_a_flow_in_overflow_is_not_counted(self):
        self.want([wanted(flow_key(*FLOW_A)), wanted(flow_key(*FLOW_B), intf="Ethernet7")])
        self.replay([udp_frame(*FLOW_A), udp_frame(*FLOW_B)], environment={BUDGET: "0"})
        self.assertEqual(set(self.states().values()), {OVERFLOW})
        self.assertEqual(self.local(), {})
        reasons = self.reasons()
        self.assertEqual(reasons[("Drop", "Sft", "Flow state not in hardware")], 1)
        self.assertEqual(reasons[("Drop", "Sft", "No flow status")], 3)  # B coming in; A and B going out
        self.assertEqual(reasons[("Action", "Sft", " Offloading IPv4")], 4)

    def test_a_flow_is_counted_only_on_the_interface_on_which_it_is_wanted(self):
        self.want([wanted(flow_key(*FLOW_A), intf="Ethernet7"), wanted(flow_key(*FLOW_A), EGRESS, "Ethernet1")])
        self.replay([udp_frame(*FLOW_A)])
        self.assertEqual(set(self.states().values()), {IN_HARDWARE})
        self.assertEqual(self.local(), {})

    def test_the_vlan_of_the_port_is_the_vlan_of_its_untagged_packets(self):
        self.want([wanted(flow_key(*FLOW_A, vlan=42)), wanted(flow_key(*FLOW_A, vlan=7)), wanted(flow_key(*FLOW_A, vlan=0))])
        capture = self.write_capture("in.pcap", [udp_frame(*FLOW_A), udp_frame(*FLOW_A, vlan=7), udp_frame(*FLOW_A, vlan=0),
                                                 udp_frame(*FLOW_A, vlan=8)])
        self.write_config([("Ethernet1", "capture", capture, 42)])
        self.start_replayed()
        self.assertEqual(self.local(), {key_of(FLOW_A, 42): (1, 28), key_of(FLOW_A, 7): (1, 28), key_of(FLOW_A, 0): (1, 28)})

    def test_a_flow_in_hardware_is_withheld_from_sampling(self):
        self.want([wanted(flow_key(*FLOW_A))])
        self.replay([udp_frame(*FLOW_A)] * 10 + [udp_frame(*FLOW_B)] * 6, rate=1)
        samples = {(row["intfId"], row["direction"]): row for row in self.sft("samples")}
        ingress, egress = samples[("Ethernet1", "ingress")], samples[("Ethernet2", "egress")]
        self.assertEqual(ingress, {"intfId": "Ethernet1", "direction": "ingress", "rate": 1, "pool": 6, "samples": 6, "drops": 0})
        self.assertEqual(egress, {"intfId": "Ethernet2", "direction": "egress", "rate": 1, "pool": 16, "samples": 16, "drops": 0})

    def test_samples_reach_the_collector(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as collector:
            collector.bind(("127.0.0.1", 0))
            collector.settimeout(60)
            port = collector.getsockname()[1]
            agent = self.replay([udp_frame(*FLOW_A)] * 10, rate=1,
                                extra=f'[sflow]\nagent = "192.0.2.9"\ncollectors = ["127.0.0.1:{port}"]\n')
            found = 0
            while found < 20:  # each packet on its way in and on its way out
                datagram = collector.recv(65535)
                version, kind, address = struct.unpack_from("!II4s", datagram)
                self.assertEqual((version, kind, address), (5, 1, bytes([192, 0, 2, 9])))
                found += datagram.count(udp_frame(*FLOW_A))
        self.assertEqual(found, 20)
        self.assertEqual(agent.end(), 0)

    def test_an_interface_that_is_not_to_be_sampled_neither_samples_nor_counts(self):
        self.want([wanted(flow_key(*FLOW_A))])
        self.replay([udp_frame(*FLOW_A)],
                    state={TRACKING: {"hwOffloadIpv4": True, "sampleRate": 1}, SAMPLING: {"ingressInterfaces": ["Ethernet9"]}})
        self.assertEqual(self.local(), {})
        self.assertEqual(self.sft("samples"), [])
        self.assertEqual(self.reasons(), {})

    def test_a_family_whose_offload_is_off_is_left_to_sampling(self):
        self.want([wanted(flow_key(*FLOW_A))])
        self.replay([udp_frame(*FLOW_A)],
                    state={TRACKING: {"hwOffloadIpv6": True}, SAMPLING: {"ingressInterfaces": ["Ethernet1"]}})
        self.assertEqual(self.local(), {})
        self.assertEqual(self.reasons(), {})

    def test_the_display_shows_ipv4_and_json_shows_both_families(self):
        frame = (bytes(12) + b"\x86\xdd\x60" + bytes(3) + b"\x00\x08\x11\x40" + bytes.fromhex("fd" + "00" * 14 + "01")
                 + bytes.fromhex("fd" + "00" * 14 + "02") + bytes([0, 5, 0, 6, 0, 8, 0, 0]))
        self.want([wanted(flow_key(*FLOW_A)), wanted(SIX)])
        self.replay([udp_frame(*FLOW_A), frame, frame])
        self.assertEqual(self.local(), {key_of(FLOW_A): (1, 28), flows.from_json(SIX): (2, 96)})
        shown = self.sft_any("local").out
        self.assertRegex(shown, r'"vrf:\S+/vlan:1/10\.0\.0\.1:1000->10\.0\.0\.2:2000/udp": \{')
        self.assertIn('"packets": 1', shown)
        self.assertIn('"octets": 28', shown)
        self.assertNotIn("fd00", shown)


if __name__ == "__main__":
    unittest.main()
