"""SIGKILL to the agent, the flow tracker and `sft`, at random moments, over and over: what was seen to be stored stays, what was
half done is nowhere, and the next start leaves nothing stale behind.

SFT_KILL_TIMES says how many are killed (150), SFT_KILL_SEED which and when; a failure names the seed. scripts/kill runs it for longer.
Kills of the writers and readers of one table, thousands of them: tests/kill. Kills around each part of an agent's start and
work: test_restart.
"""
import collections
import json
import os
import random
import signal
import subprocess
import time
import unittest

from harness import AUDIT, BUDGET, CONFIG, IN_HARDWARE, PLUGIN, SFT, counter, flow_key, flows, offload_of, udp_frame
from test_flow_tracker import FlowTrackerTest, datagram, flow_sample

TIMES = int(os.environ.get("SFT_KILL_TIMES", "150"))
SEED = int(os.environ.get("SFT_KILL_SEED", "1"))
ROUND = 50  # kills; the next ones begin with nothing wanted: what is compared after each grows with what was learned before
OWN_TABLE = "flowtracking/killed/hwOffload/counter/hfc"  # of nobody else
MOST = 250  # records of a put


class KillTest(FlowTrackerTest):
    def setUp(self):
        super().setUp()
        self.write_config([("Ethernet1", "capture", self.write_capture("none.pcap", []))], plugins=(PLUGIN, AUDIT),
                          extra='[state."flowtracking/audit/sampled"]\nafterRestart = "repair"\n')
        self.write_tracker_config("samples_to_learn = 1\nidle_timeout = 86400")
        self.kills = collections.Counter()
        self.repairs = 0  # that a start told of
        self.sent = 0  # flows
        self.wanted = set()  # what was seen to be wanted
        self.mine = {}  # records of OWN_TABLE: number -> round
        self.agent = self.tracker = None

    # The programs

    def start_agent(self):
        agent = self.start(environment={BUDGET: "100000"})
        agent.wait_ready()
        agent.wait_replayed()
        agent.wait_for("audit after the restart")
        return agent

    def running(self):
        if self.agent is None:
            self.agent = self.start_agent()
        if self.tracker is None:
            before = len(self.seen_wanted())
            self.tracker = self.start_tracker()
            self.tracker.wait_ready()
            if before:  # it says what it found
                self.assertTrue(self.tracker.said(f"{before} wanted offloads taken over"), self.tracker.log)

    def kill(self, name, program):
        time.sleep(self.random.uniform(0, 0.03))  # any moment will do, that is the point
        self.assertIsNone(program.process.poll(), program.log)
        self.assertEqual(program.end(signal.SIGKILL), -signal.SIGKILL)
        self.repairs += len(program.said("repaired: "))
        self.kills[name] += 1

    # What is wanted

    def learn(self):
        """Samples of flows that nobody has seen yet, and of one that is known."""
        count = self.random.randint(1, self.random.choice((5, 40, 400)))
        samples = [flow_sample(udp_frame("10.0.0.1", "10.0.0.2", 1 + number % 60000, 53 + number // 60000))
                   for number in range(self.sent, self.sent + count)]
        self.sent += count
        for each in samples:
            self.sender.sendto(datagram(each), self.tracker.listening())

    def seen_wanted(self):
        found = {offload_of(row) for row in self.sft("table", "dump", CONFIG, "hoIpFlowConfig")} if self.table_is(CONFIG, "hoIpFlowConfig") else set()
        self.assertLessEqual(self.wanted, found, "what was wanted is lost")
        self.wanted = found
        return found

    def table_is(self, path, collection):
        """Who makes a table makes its folders first, and may be killed between the two."""
        return (self.run_dir / "tables" / path / collection).is_file()

    # Victims

    def kill_tracker(self):
        self.learn()
        self.kill("tracker", self.tracker)
        self.tracker = None

    def kill_agent(self):
        self.learn()
        self.kill("agent", self.agent)
        self.agent = None

    def kill_tracker_that_was_seen_to_store(self):
        self.learn()
        seen = self.seen_wanted()
        self.kill("tracker", self.tracker)
        self.tracker = None
        self.assertLessEqual(seen, self.seen_wanted())

    def kill_both(self):
        self.learn()
        self.kill("agent", self.agent)
        self.kill("tracker", self.tracker)
        self.agent = self.tracker = None

    def own(self, number, round_):
        """A record whose members tell by themselves whether they belong together."""
        return counter(flow_key("10.1.0.1", "10.1.0.2", number, 1), round_, round_ * 1000 + number, references=round_ % 97 + 1,
                       created=float(round_), updated=float(round_ + number))

    def popen(self, *arguments, **how):
        return subprocess.Popen([SFT, "--json", "--run-dir", self.run_dir, *arguments], text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, **how)

    def kill_process(self, process, most):
        time.sleep(self.random.uniform(0, most))
        process.send_signal(signal.SIGKILL)
        self.kills["sft"] += 1
        said, _ = process.communicate()
        return said

    def kill_put(self):
        """What was put is there when it was told, or else so much of it, in its order, as was reached."""
        round_ = sum(self.kills.values()) + 1
        numbers = self.random.sample(range(400), self.random.randint(1, MOST))
        text = "".join(json.dumps(self.own(number, round_)) + "\n" for number in numbers)
        (self.dir / "put").write_text(text)
        with open(self.dir / "put") as records:
            said = self.kill_process(self.popen("table", "put", OWN_TABLE, "hoIpFlowCounter", stdin=records), 0.06)
        if not self.table_is(OWN_TABLE, "hoIpFlowCounter"):
            return
        found = {}
        for row in self.sft("table", "dump", OWN_TABLE, "hoIpFlowCounter"):
            number, found_round = row["key"]["srcPort"], row["packets"]
            self.assertEqual(row, self.own(number, found_round))
            found[number] = found_round
        stored = [found.get(number) == round_ for number in numbers]
        reached = stored.index(False) if False in stored else len(stored)
        self.assertFalse(any(stored[reached:]), "stored out of order")
        if said:
            self.assertEqual((json.loads(said), reached), ({"put": len(numbers)}, len(numbers)))
        self.mine.update({number: round_ for number in numbers[:reached]})
        self.assertEqual(found, self.mine)

    def kill_reader(self):
        """Nobody notices."""
        commands = [("table", "dump", CONFIG, "hoIpFlowConfig"), ("status",), ("flows",), ("audit",), ("local",), ("metrics",),
                    ("table", "list"), ("tracker", "flows"), ("trace", "--follow")]
        for process in [self.popen(*self.random.choice(commands), stdin=subprocess.DEVNULL) for _ in range(3)]:
            self.kill_process(process, 0.02)

    # What must be there

    def compare(self):
        """Once the starts are done: statuses are those of what is wanted, and nothing is stale."""
        wanted = self.seen_wanted()
        self.eventually(lambda: set(self.states()), wanted)
        self.assertEqual(set(self.states().values()) - {IN_HARDWARE}, set())
        counted = {flows.from_json(row["key"]) for row in self.sft("counters")}
        self.assertLessEqual(counted, {flow for flow, _, _ in wanted})
        # A kill between the stores of one event costs its flow the counter, and nothing else is ever left.
        *differences, summary = self.sft_any("--json", "audit").rows()
        self.assertEqual({row["kind"] for row in differences} - {"in hardware without a counter"}, set(), differences)
        self.assertLessEqual(len(differences), self.kills["agent"])
        self.assertEqual(summary["summary"]["statuses"], len(wanted))

    def kill_many(self, first, end):
        """Kills first to end - 1; each round has its own moments, so that one that failed can be had alone (unittest -k)."""
        self.random = random.Random(SEED + first)
        victims = [self.kill_tracker, self.kill_agent, self.kill_tracker_that_was_seen_to_store, self.kill_both, self.kill_put,
                   self.kill_put, self.kill_reader]
        compared = 0
        self.running()
        while sum(self.kills.values()) < end - first:
            victim = self.random.choice(victims)
            with self.subTest(f"SFT_KILL_SEED={SEED}, {self._testMethodName}, after {dict(self.kills)}: {victim.__name__}"):
                victim()
                self.running()
                if sum(self.kills.values()) - compared >= 5:
                    self.compare()
                    compared = sum(self.kills.values())
        self.compare()
        self.assertEqual(self.agent.end(), 0)
        self.assertEqual(self.tracker.end(), 0)
        ALL.update(self.kills)
        print(f"SFT_KILL_SEED={SEED} {self._testMethodName}: {dict(self.kills)}; {self.sent} flows sampled, {len(self.wanted)} wanted, "
              f"{self.repairs} repairs told; killed by now: {dict(ALL)}, {sum(ALL.values())} of {TIMES}")


def one_round(first):
    return lambda self: self.kill_many(first, min(first + ROUND, TIMES))


ALL = collections.Counter()
for each in range(0, TIMES, ROUND):
    setattr(KillTest, f"test_kills_{each:06}", one_round(each))


if __name__ == "__main__":
    unittest.main()
