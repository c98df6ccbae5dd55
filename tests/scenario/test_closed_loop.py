"""From a wanted offload to its published counts: admission within the budget, overflow, promotion, and what a restart finds."""
import collections
import signal
import time
import unittest

from harness import (BUDGET, EGRESS, IN_HARDWARE, INGRESS, OVERFLOW, OWN_CAPTURES, ScenarioTest, flow_key, flows, offload_of,
                     udp_frame, wanted)

MIXED = OWN_CAPTURES / "mixed.pcap"


def flow(number):
    return "10.0.0.1", "10.0.0.2", number, 53


def six(number):
    return {"vrfId": flows.DEFAULT_VRF, "vlan": 1, "srcAddr": "fd00::1", "dstAddr": "fd00::2", "ipProto": 17, "srcPort": number,
            "dstPort": 53}


class ClosedLoopTest(ScenarioTest):
    def start_budget(self, budget, frames=(), **how):
        """An agent that has replayed these frames with so much room in hardware."""
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", list(frames)))], **how)
        return self.start_replayed(environment={BUDGET: str(budget)})

    def in_state(self, state):
        return {offload for offload, its in self.states().items() if its == state}


class Budget(ClosedLoopTest):
    def test_flows_are_admitted_up_to_the_budget_of_each_family(self):
        offloads = [wanted(key) for number in range(10) for key in (flow_key(*flow(number)), six(number))]
        self.want(offloads[:-1])  # one of IPv6 less
        self.start_budget(4)
        counted = collections.Counter((":" in row["flow"].split(" ")[0].rsplit(":", 1)[0], row["state"]) for row in
                                      self.sft("status"))
        self.assertEqual(counted, {(False, IN_HARDWARE): 4, (False, OVERFLOW): 6, (True, IN_HARDWARE): 4, (True, OVERFLOW): 5})
        self.assertEqual(self.state_counts(), {("IPv4", IN_HARDWARE): 4, ("IPv4", OVERFLOW): 6, ("IPv6", IN_HARDWARE): 4,
                                               ("IPv6", OVERFLOW): 5})
        self.assertEqual(self.states().keys(), {offload_of(each) for each in offloads[:-1]})

    def test_only_flows_in_hardware_have_a_published_counter(self):
        self.want([wanted(flow_key(*flow(number))) for number in range(6)])
        self.start_budget(2, [udp_frame(*flow(number)) for number in range(6)])
        admitted = {key for key, _, _ in self.in_state(IN_HARDWARE)}
        self.assertEqual(len(admitted), 2)
        self.eventually(self.published, {key: (1, 28) for key in admitted})
        self.assertEqual(self.local(), {key: (1, 28) for key in admitted})

    def test_a_withdrawn_offload_makes_room_for_one_that_waits(self):
        offloads = [wanted(flow_key(*flow(number))) for number in range(5)]
        self.want(offloads)
        self.start_budget(2)
        for left in range(4, 1, -1):
            gone = min(self.in_state(IN_HARDWARE))
            former = self.states()
            self.unwant([each for each in offloads if offload_of(each) == gone])
            self.eventually(lambda: (len(self.states()), len(self.in_state(IN_HARDWARE))), (left, 2))
            self.assertEqual(self.states().keys(), former.keys() - {gone})
            kept = {offload for offload, state in former.items() if state == IN_HARDWARE and offload != gone}
            self.assertLessEqual(kept, self.in_state(IN_HARDWARE), "who is in hardware stays there")
        self.eventually(self.state_counts, {("IPv4", IN_HARDWARE): 2, ("IPv4", OVERFLOW): 0})

    def test_a_withdrawn_one_that_waits_makes_no_room(self):
        offloads = [wanted(flow_key(*flow(number))) for number in range(3)]
        self.want(offloads)
        self.start_budget(1)
        admitted = self.in_state(IN_HARDWARE)
        waiting = min(self.in_state(OVERFLOW))
        self.unwant([each for each in offloads if offload_of(each) == waiting])
        self.eventually(lambda: len(self.states()), 2)
        self.assertEqual(self.in_state(IN_HARDWARE), admitted)

    def test_a_larger_budget_is_used_with_the_next_offload_that_goes(self):
        offloads = [wanted(flow_key(*flow(number))) for number in range(6)]
        self.want(offloads)
        self.start_budget(1)
        self.sft("attr", "set", "SampledFlowTracker.drovaHelper", "maxInHardwareFlows", "3")
        gone = min(self.in_state(IN_HARDWARE))
        self.unwant([each for each in offloads if offload_of(each) == gone])
        self.eventually(lambda: len(self.in_state(IN_HARDWARE)), 3)


class Counts(ClosedLoopTest):
    def test_the_published_counts_are_the_capture_s_own(self):
        traffic = flows.count(MIXED)
        self.want([wanted(flows.to_json(key)) for key in traffic.flows])
        self.write_config([("Ethernet1", "capture", MIXED)])
        self.start_replayed()
        truth = {key: (each.packets, each.octets) for key, each in traffic.flows.items()}
        self.assertEqual(self.local(), truth)
        since = time.monotonic()
        self.eventually(self.published, truth)
        self.assertLess(time.monotonic() - since, 10)  # a second, and what a busy machine adds
        for row in self.sft("counters"):
            self.assertEqual((row["intfId"], row["hosEntries"]), ("Ethernet1", 1))
            self.assertGreaterEqual(row["lastUpdateTime"], row["creationTime"])

    def test_until_the_end_the_last_packets_are_published_too(self):
        traffic = flows.count(MIXED)
        self.want([wanted(flows.to_json(key)) for key in traffic.flows])
        self.write_config([("Ethernet1", "capture", MIXED)])
        self.assertEqual(self.start("--until-end").wait(), 0)
        self.assertEqual(self.published(), {key: (each.packets, each.octets) for key, each in traffic.flows.items()})

    def test_packets_in_hardware_leave_sampling_and_those_in_overflow_do_not(self):
        self.want([wanted(flow_key(*flow(number))) for number in range(4)])
        self.start_budget(1, [udp_frame(*flow(number)) for number in range(4) for _ in range(number + 1)], rate=1)
        (key, _, _), = self.in_state(IN_HARDWARE)
        counted = key.sport + 1
        self.assertEqual(self.local(), {key: (counted, 28 * counted)})
        sampled, = self.sft("samples")
        self.assertEqual((sampled["pool"], sampled["samples"]), (10 - counted, 10 - counted))
        self.assertEqual(self.reasons()[("Drop", "Sft", "Flow state not in hardware")], 10 - counted)

    def test_a_flow_wanted_in_both_directions_has_one_counter_until_both_are_withdrawn(self):
        offloads = [wanted(flow_key(*flow(7)), INGRESS, "Ethernet1"), wanted(flow_key(*flow(7)), EGRESS, "Ethernet2")]
        self.want(offloads)
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", [udp_frame(*flow(7))] * 3)),
                           ("Ethernet2", "write", self.dir / "out.pcap")], forward={"Ethernet1": "Ethernet2"})
        self.start_replayed()

        def references():
            return [(row["hosEntries"], row["packets"]) for row in self.sft("counters")]

        self.eventually(references, [(2, 6)])
        self.unwant(offloads[:1])
        self.eventually(references, [(1, 6)])
        self.assertEqual(len(self.local()), 1)
        self.unwant(offloads[1:])
        self.eventually(references, [])
        self.eventually(self.local, {})

    def test_the_view_of_flows_follows(self):
        def stands():
            return [row["stands"] for row in self.sft("flows")]

        arguments = ("10.0.0.1:7", "10.0.0.2:53", "--proto", "udp", "--vlan", "1", "--direction", "ingress", "--interface",
                     "Ethernet1")
        self.sft("flow", "want", *arguments)
        self.assertEqual(stands(), ["waiting: wanted, no status yet"])
        self.start_budget(1)
        self.assertEqual(stands(), ["in hardware"])
        self.sft("flow", "unwant", *arguments)
        self.eventually(stands, [])


class Restart(ClosedLoopTest):
    def test_a_killed_agent_s_flows_are_served_on_and_nothing_stale_remains(self):
        offloads = [wanted(key) for number in range(4) for key in (flow_key(*flow(number)), six(number))]
        self.want(offloads)
        first = self.start_budget(8, [udp_frame(*flow(number)) for number in range(4)])
        self.eventually(lambda: len(self.sft("counters")), 8)
        self.assertEqual(first.end(signal.SIGKILL), -signal.SIGKILL)
        self.assertEqual(len(self.states()), 8)  # the tables outlive their writer
        self.unwant(offloads[:4])
        self.want([wanted(flow_key(*flow(9)))])
        self.start_budget(8, [udp_frame(*flow(number)) for number in range(10)])
        expected = {offload_of(each): IN_HARDWARE for each in [*offloads[4:], wanted(flow_key(*flow(9)))]}
        self.assertEqual(self.states(), expected)
        self.assertEqual(self.published().keys(), {key for key, _, _ in expected})
        self.assertEqual(self.local().keys(), {key for key, _, _ in expected if key.proto == 17 and len(key.src) == 4})

    def test_states_that_do_not_change_keep_their_times(self):
        self.want([wanted(flow_key(*flow(number))) for number in range(10)])
        first = self.start_budget(20)
        before = {offload_of(row): row["lastUpdateTime"] for row in self.sft("status")}
        self.assertEqual(first.end(), 0)
        self.start_budget(20)
        after = {offload_of(row): row["lastUpdateTime"] for row in self.sft("status")}
        self.assertEqual(after.keys(), before.keys())
        # Reconciliation's first look comes before any event: the one status that it falls upon goes and comes anew.
        self.assertLessEqual(len([offload for offload, since in after.items() if since != before[offload]]), 1)


if __name__ == "__main__":
    unittest.main()
