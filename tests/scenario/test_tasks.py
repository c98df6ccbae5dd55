"""The work between packets: what it leaves done before a replay and behind it, and how it is shown."""
import unittest

from harness import BUDGET, COUNTER, ScenarioTest, flow_key, udp_frame, wanted

MANY = 20000  # wanted flows: many slices of the loop


def flow(number):
    return (f"10.{number >> 8}.{number & 255}.1", "192.168.0.1", 1000, 2000)


class TasksTest(ScenarioTest):
    def replay(self, frames, *arguments):
        self.write_config([("Ethernet1", "capture", self.write_capture("in.pcap", frames))])
        return self.start(*arguments, environment={BUDGET: str(MANY)})

    def test_every_flow_wanted_before_the_start_is_in_hardware_before_the_first_packet(self):
        self.want([wanted(flow_key(*flow(number))) for number in range(MANY)])
        agent = self.replay([udp_frame(*flow(number)) for number in range(0, MANY, 100)], "--until-end")
        self.assertEqual(agent.wait(), 0)
        # The last work of an agent that runs until the end: each packet is in the published counters.
        counted = {row["key"]["srcAddr"]: row["packets"] for row in self.sft("table", "dump", COUNTER, "hoIpFlowCounter")}
        self.assertEqual(len(counted), MANY)
        self.assertEqual({source for source, packets in counted.items() if packets},
                         {flow(number)[0] for number in range(0, MANY, 100)})
        self.assertEqual(sum(counted.values()), MANY // 100)

    def test_tasks_are_shown_with_what_they_did(self):
        self.want([wanted(flow_key(*flow(number))) for number in range(3)])
        agent = self.replay([udp_frame(*flow(0))])
        agent.wait_replayed()
        rows = {row["name"]: row for row in self.sft("tasks")}
        for row in rows.values():
            self.assertEqual(list(row), ["name", "priority", "runs", "work", "pending", "due", "longestRunUs"])
        for name in ("copyLocalCountersTask", "copyLocalIp6CountersTask"):
            copy = rows[f"SftPexaFtHOCSM-{name}"]
            self.assertEqual(copy["priority"], 3)
            self.assertGreaterEqual(copy["runs"], 1)
            self.assertTrue(0 <= copy["due"] <= 1, copy)  # again within a second

    def test_tasks_are_shown_to_people_in_columns(self):
        self.replay([udp_frame(*flow(0))]).wait_replayed()
        heading, *lines = self.sft_any("tasks").out.splitlines()
        self.assertEqual(heading.split(), ["name", "priority", "runs", "work", "pending", "due", "longestRunUs"])
        self.assertTrue(any(line.startswith("SftPexaFtHOCSM-copyLocalCountersTask ") for line in lines), lines)

    def test_without_tasks_there_are_none(self):
        self.write_config([], plugins=(), state={})
        self.start().wait_ready()
        self.assertEqual(self.sft("tasks"), [])


if __name__ == "__main__":
    unittest.main()
