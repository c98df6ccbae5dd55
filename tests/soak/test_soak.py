"""Everything at once, for minutes: traffic between two hosts, wanted offloads that come and go, polls, samples to a flow tracker,
readers, and beside it an agent that is restarted and killed over and over.

Memory stays flat, every packet is counted exactly once in the equations below, and no reader is given a record that is not whole.
SFT_SOAK_SECONDS says how long (90), SFT_SOAK_SEED what is chosen; scripts/soak runs it for 30 minutes.
"""
import collections
import json
import os
import random
import signal
import subprocess
import threading
import time
import unittest

import harness
from harness import AUDIT, CONFIG, INGRESS, PLUGIN, SFT, flow_key, flows, udp_frame, wanted
from live import LEFT, RIGHT, LiveAgent, LiveTest, Load
from test_flow_tracker import Tracker

SECONDS = int(os.environ.get("SFT_SOAK_SECONDS", "90"))
SEED = int(os.environ.get("SFT_SOAK_SEED", "1"))
RATE = 2000  # packets a second
FLOWS, STABLE = 16, 8  # flows of the traffic; those that stay wanted all the time
OTHERS = 600  # flows without packets that come and go
GROWTH = 3 * 1024  # KiB that memory may differ by between the quarter behind the first and the last one
IP_UDP = {4: 28, 6: 48}  # bytes of headers


class LiveTracker(Tracker):
    def __init__(self, space, arguments):
        self.space = space
        super().__init__(arguments)

    def command(self, arguments):
        return self.space.command(super().command(arguments))


class Memory:
    """What a process keeps in memory, looked at again and again."""

    def __init__(self, name, pid):
        self.name, self.pid, self.seen = name, pid, []

    def look(self):
        with open(f"/proc/{self.pid}/smaps_rollup", encoding="ascii") as file:
            sizes = {line.split(":")[0]: int(line.split()[1]) for line in file if line.endswith("kB\n")}
        # Shared tables are files, which grow with what is in them; what a leak takes is private.
        self.seen.append(sizes["Private_Dirty"])

    def growth(self):
        """KiB between the quarter behind the warm-up and the last one."""
        quarter = len(self.seen) // 4
        second, last = self.seen[quarter: 2 * quarter], self.seen[-quarter:]
        return sum(last) / len(last) - sum(second) / len(second)


def program_of(process):
    """The process id of the agent or the tracker itself, behind what put it into its namespace."""
    pid = process.process.pid
    while True:
        with open(f"/proc/{pid}/comm", encoding="ascii") as file:
            if file.read().strip() in ("pexa-agent", "flow-tracker"):
                return pid
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            pid = int(file.read().split()[0])


class RestartedAgent:
    """An agent over a capture, in a run directory of its own, that is run to its end or killed on the way."""

    PACKETS = 20

    def __init__(self, test, chosen):
        self.test, self.random = test, chosen
        self.ends = self.kills = 0
        self.run_dir = test.dir / "restarted"
        self.flows = [("10.9.0.1", "10.9.0.2", 1 + number, 53) for number in range(200)]
        frames = [udp_frame(*flow) for flow in self.flows] * self.PACKETS
        own = test.run_dir
        test.run_dir, config, test.config = self.run_dir, test.config, test.dir / "restarted.toml"
        test.write_config([("Ethernet1", "capture", test.write_capture("restarted.pcap", frames))], plugins=(PLUGIN, AUDIT),
                          extra='[state."flowtracking/audit/sampled"]\nafterRestart = "repair"\n')
        test.want([wanted(flow_key(*flow)) for flow in self.flows])
        self.config, test.config, test.run_dir = test.config, config, own

    def once(self):
        killed = self.random.random() < 0.5
        agent = harness.Agent(["--config", self.config] + ([] if killed else ["--until-end"]))
        try:
            if killed:
                agent.wait_ready()
                time.sleep(self.random.uniform(0, 1.2))  # any moment will do: the start, the replay, the first poll
                self.test.assertEqual(agent.end(signal.SIGKILL), -signal.SIGKILL)
                self.kills += 1
                return
            self.test.assertEqual(agent.wait(), 0, agent.log)
        finally:
            agent.close()
        self.ends += 1
        done = subprocess.run([SFT, "--json", "--run-dir", self.run_dir, "counters"], capture_output=True, text=True, check=True)
        rows = [json.loads(line) for line in done.stdout.splitlines()]
        # A kill between the stores of one event costs its flow the counter; those that are there are exact.
        self.test.assertEqual({(row["packets"], row["bytes"]) for row in rows}, {(self.PACKETS, self.PACKETS * 28)})
        self.test.assertGreaterEqual(len(rows), len(self.flows) - self.kills)


class SoakTest(LiveTest):
    def setUp(self):
        super().setUp()
        print(f"SFT_SOAK_SECONDS={SECONDS} SFT_SOAK_SEED={SEED}")
        self.random = random.Random(SEED)
        self.sent = collections.Counter()  # flow of the traffic -> packets
        self.sent_bytes = collections.Counter()
        self.others = set()
        self.round = 0
        self.reads = 0
        self.failures = []  # of the other threads

    # The programs

    def start_programs(self):
        tracker_config = self.dir / "tracker.toml"
        names = "".join(f'[[interface]]\nindex = {index}\nname = "{name}"\n' for index, name in enumerate((LEFT, RIGHT), 1))
        tracker_config.write_text(f'listen = "127.0.0.1:6343"\nrun_dir = "{self.dir}/tracker"\nidle_timeout = 5\n{names}')
        self.tracker = LiveTracker(self.net.agent, ["--config", tracker_config])
        self.addCleanup(self.tracker.close)
        self.tracker.wait_ready()
        self.write_config([(LEFT, "device", self.net.a.port), (RIGHT, "device", self.net.b.port)], rate=50,
                          forward={LEFT: RIGHT, RIGHT: LEFT}, plugins=(PLUGIN, AUDIT),
                          extra='[sflow]\nagent = "127.0.0.1"\ncollectors = ["127.0.0.1:6343"]\n')
        self.agent = LiveAgent(self.net.agent, ["--config", self.config])
        self.addCleanup(self.agent.close)
        self.agent.wait_ready()

    def beside(self, work):
        """Does it over and over, in a thread of its own, until the soak is over."""

        def run():
            try:
                while not self.over.is_set():
                    work()
            except BaseException as error:  # told by the test itself
                self.failures.append(error)
                self.over.set()

        thread = threading.Thread(target=run)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(self.over.set)
        return thread

    # Traffic

    def traffic_key(self, number):
        a, b = self.net.a, self.net.b
        six = number % 2 == 1
        return flow_key(a.ipv6 if six else a.ipv4, b.ipv6 if six else b.ipv4, 20000 + number, 9000)

    def send(self):
        done = self.load.send(self.net.a, 3 * RATE, RATE)
        for number, row in enumerate(done["flows"]):
            self.sent[number] += row["packets"]
            self.sent_bytes[number] += row["payloadBytes"] + row["packets"] * IP_UDP[6 if number % 2 else 4]

    # Churn

    def other(self, number):
        """A wanted offload whose time tells which one it is, and when it was put."""
        key = flow_key("10.8.0.1", "10.8.0.2", number, 53) if number % 2 else flow_key("fd08::1", "fd08::2", number, 53)
        return {**wanted(key, INGRESS, LEFT), "requestTime": number * 1e6 + self.round}

    def churn(self):
        self.round += 1
        changing = self.random.sample(range(STABLE, FLOWS), 3)
        gone = self.random.sample(sorted(self.others), self.random.randint(0, len(self.others)))
        new = self.random.sample(range(OTHERS), self.random.randint(1, OTHERS // 3))
        self.want([wanted(self.traffic_key(each), INGRESS, LEFT) for each in changing] + [self.other(each) for each in new])
        self.others |= set(new)
        self.unwant([self.other(each) for each in gone])
        self.others -= set(gone)
        self.unwant([wanted(self.traffic_key(each), INGRESS, LEFT) for each in changing])

    # Reads

    def read(self):
        """Any reader, at any moment, is given whole records and no error."""
        for command in (("status",), ("counters",), ("states",), ("local",), ("flows",), ("samples",), ("table", "list")):
            self.sft(*command)
        for collection in harness.COLLECTIONS[CONFIG]:
            for row in self.sft("table", "dump", CONFIG, collection):
                if row["key"]["ipFlowKey"]["dstPort"] == 53:
                    self.assertEqual(int(row["requestTime"] // 1e6), row["key"]["ipFlowKey"]["srcPort"])
        self.reads += 9

    # The accounts

    def metrics(self, name, **labels):
        """The sum of a metric's rows with these labels."""
        return sum(row["value"] for row in self.sft("metrics", name) if row["name"] == name
                   and all(row["labels"].get(label) in (value if isinstance(value, tuple) else (value,))
                           for label, value in labels.items()))

    def accounts(self):
        """Problems of the sums; none when all is counted exactly once."""
        sent = sum(self.sent.values())
        for step, way in (("ingress", "in"), ("egress", "out")):
            through = self.metrics("pexa_port_packets_total", direction=way)
            pool = self.metrics("pexa_sample_pool_packets_total", direction=step)
            offloaded = self.metrics("sft_packets_total", direction=step, outcome="offloaded")
            if through != pool + offloaded:
                yield f"{through} packets {way}: {pool} that could be sampled, {offloaded} counted"
            looked_up = self.metrics("sft_packets_total", direction=step, outcome=("offloaded", "no_flow_status", "not_in_hardware"))
            if looked_up != sent:
                yield f"{sent} sent, {looked_up} looked up in {step}"
        published = self.published()
        for number in range(STABLE):
            counted = published.get(flows.from_json(self.traffic_key(number)))
            if counted != (self.sent[number], self.sent_bytes[number]):
                yield f"flow {number}: sent {self.sent[number], self.sent_bytes[number]}, counted {counted}"
        for name in ("pexa_port_drops_total", "pexa_table_corrupt_reads_total", "sft_stores_failed_total"):
            if self.metrics(name) != 0:
                yield f"{name} is {self.metrics(name)}"

    def test_soak(self):
        self.start_programs()
        stable = [wanted(self.traffic_key(number), INGRESS, LEFT) for number in range(STABLE)]
        self.admitted(stable)
        self.acquainted()
        self.load = Load(self.net.b, FLOWS)
        restarted = RestartedAgent(self, random.Random(SEED))
        self.over = threading.Event()
        memories = [Memory("pexa-agent", program_of(self.agent)), Memory("flow-tracker", program_of(self.tracker))]
        threads = [self.beside(work) for work in (self.send, self.churn, self.read, restarted.once)]
        end = time.monotonic() + SECONDS
        while time.monotonic() < end and not self.over.wait(SECONDS / 60):
            for memory in memories:
                memory.look()
        self.over.set()
        for thread in threads:
            thread.join()
        if self.failures:
            raise self.failures[0]
        received = self.load.finish()
        self.assertEqual(sum(row["packets"] for row in received["flows"]), sum(self.sent.values()))
        self.eventually(lambda: list(self.accounts()), [])
        self.assertEqual(self.sft("audit")[-1]["summary"]["differences"], 0)
        print(f"{sum(self.sent.values())} packets, {self.round} rounds of churn, {self.reads} reads, {restarted.ends} restarts, "
              f"{restarted.kills} kills; growth: " + ", ".join(f"{each.name} {each.growth():.0f} KiB" for each in memories))
        for memory in memories:
            self.assertLess(memory.growth(), GROWTH, memory.seen)
        self.assertGreater(restarted.ends, 0)
        self.assertEqual(self.agent.end(), 0)
        self.assertEqual(self.tracker.end(), 0)


if __name__ == "__main__":
    unittest.main()
