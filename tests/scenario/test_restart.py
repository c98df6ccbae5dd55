"""Restart for real: an agent that is killed at any moment, over and over, while what is wanted goes on changing.

Kills fall into the start (scan, admission, reconciliation), behind changes of what is wanted (admission, promotion) and around the
poll of the counters. Behind each start that is let to its end, every table is held against what must be there.

SFT_RESTART_KILLS says how many kills a round has (20), SFT_RESTART_SEED which moments are chosen; a failure names both.
"""
import collections
import json
import os
import random
import shutil
import signal
import subprocess
import time
import unittest

from harness import (AUDIT, BUDGET, COLLECTIONS, CONFIG, COUNTER, IN_HARDWARE, OVERFLOW, PLUGIN, SFT, STATES, STATUS,
                     ScenarioTest, flow_key, flows, offload_of, udp_frame, wanted)

KILLS = int(os.environ.get("SFT_RESTART_KILLS", "20"))
SEED = int(os.environ.get("SFT_RESTART_SEED", "1"))
ROOM = 300  # flows of a family in hardware
MOST = 400  # flows of a family that may be wanted
FAMILIES = ("IPv4", "IPv6")
TABLES = {"status": STATUS, "states": STATES, "counters": COUNTER}  # view -> table
POLL = 1.0  # seconds between two polls


def offload(family, number):
    if family == "IPv4":
        return wanted(flow_key("10.0.0.1", "10.0.0.2", number, 53))
    return wanted({"vrfId": flows.DEFAULT_VRF, "vlan": 1, "srcAddr": "fd00::1", "dstAddr": "fd00::2", "ipProto": 17,
                   "srcPort": number, "dstPort": 53})


class RestartTest(ScenarioTest):
    """What is wanted, published by a process that never dies, and agents that do."""

    def setUp(self):
        super().setUp()
        self.random = random.Random(f"{SEED} {self.id()}")
        self.wanted = {family: set() for family in FAMILIES}  # numbers of offload()
        self.kills = 0
        self.lost = set()  # flows in hardware that have no counter
        self.lost_kills = 0  # when they were looked for last
        self.steps = []
        self.change(MOST)

    # What is wanted

    def changes(self, most):
        """Chooses flows to withdraw and to want; gives the commands that do it, each with its input."""
        commands = []
        for family, collection in zip(FAMILIES, COLLECTIONS[CONFIG]):
            now = self.wanted[family]
            gone = set(self.random.sample(sorted(now), self.random.randint(0, min(most, len(now)))))
            free = sorted(set(range(2 * MOST)) - now)
            new = set(self.random.sample(free, self.random.randint(0, min(most, MOST - len(now) + len(gone)))))
            self.wanted[family] = now - gone | new
            for verb, records in (("del", [offload(family, each)["key"] for each in sorted(gone)]),
                                  ("put", [offload(family, each) for each in sorted(new)])):
                if records:
                    commands.append((verb, collection, "".join(json.dumps(each) + "\n" for each in records)))
        self.random.shuffle(commands)
        return commands

    def change(self, most):
        """Changes what is wanted, and waits until it is done."""
        for verb, collection, text in self.changes(most):
            self.sft("table", verb, CONFIG, collection, text=text)

    def change_and_kill(self, agent, most):
        """Changes what is wanted, and kills the agent meanwhile or a little later."""
        commands = self.changes(most)
        doing = [subprocess.Popen([SFT, "--run-dir", self.run_dir, "table", verb, CONFIG, collection], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) for verb, collection, _ in commands[:1]]
        for process, (_, _, text) in zip(doing, commands):
            process.stdin.write(text)
            process.stdin.close()
        self.kill_after(agent, self.random.uniform(0, 0.03))
        for process in doing:
            self.assertEqual(process.wait(), 0)
        for verb, collection, text in commands[1:]:
            self.sft("table", verb, CONFIG, collection, text=text)

    # Agents

    def start_agent(self):
        return self.start(environment={BUDGET: str(ROOM)})

    def kill_after(self, agent, seconds):
        time.sleep(seconds)  # any moment will do, that is the point
        self.assertIsNone(agent.process.poll(), agent.log)
        self.assertEqual(agent.end(signal.SIGKILL), -signal.SIGKILL)
        self.kills += 1

    def start_and_kill(self):
        """A start that is not let to its end."""
        agent = self.start_agent()
        if self.random.random() < 0.2:
            return self.kill_after(agent, self.random.uniform(0, 0.03))  # the program is still being loaded
        agent.wait_ready()
        return self.kill_after(agent, self.random.uniform(0, 0.008))

    def start_settled(self):
        agent = self.start_agent()
        agent.wait_ready()
        agent.wait_replayed()  # which begins when the work of the start is done
        return agent

    def start_afresh(self):
        """Leaves the run directory behind, with all that has drifted."""
        shutil.rmtree(self.run_dir)
        self.wanted = {family: set() for family in FAMILIES}
        self.lost = set()
        self.change(MOST)

    # What must be there

    def compare(self):
        problems, missing = [], set()
        views = {view: self.sft(view) for view in TABLES}
        entries = {table["path"]: table["entries"] for table in self.sft("table", "list")}
        for view, path in TABLES.items():
            if entries[path] != len(views[view]):
                problems.append(f"{path} says that it has {entries[path]} entries, {len(views[view])} are there")
        for family in FAMILIES:
            rows = {view: [row for row in found if row["family"] == family] for view, found in views.items()}
            problems += [f"{family}: {problem}" for problem in self.compare_family(family, missing, **rows)]
        # A kill between the writes of one event costs the counter of its flow, until the flow is wanted anew.
        if len(missing - self.lost) > self.kills - self.lost_kills:
            problems.append(f"{len(missing - self.lost)} flows lost their counters by {self.kills - self.lost_kills} kills")
        self.lost, self.lost_kills = missing, self.kills
        self.assertEqual(problems, [], f"after {self.kills} kills; SFT_RESTART_SEED={SEED} SFT_RESTART_KILLS={KILLS}")

    def compare_family(self, family, missing, status, states, counters):
        offloads = {offload_of(offload(family, number)) for number in self.wanted[family]}
        published = {offload_of(row) for row in self.sft("table", "dump", CONFIG, COLLECTIONS[CONFIG][FAMILIES.index(family)])}
        if published != offloads:
            yield f"what is wanted has changed: {len(published ^ offloads)} offloads"
        state_of = {offload_of(row): row["state"] for row in status}
        if offloads - state_of.keys():
            yield f"{len(offloads - state_of.keys())} wanted offloads have no status"
        if state_of.keys() - offloads:
            yield f"{len(state_of.keys() - offloads)} statuses are of nobody's offload"
        count = collections.Counter(state_of.values())
        if count.keys() - {IN_HARDWARE, OVERFLOW}:
            yield f"states {count}"
        counts = {row["key"]["state"]: row["count"] for row in states}
        if self.room_is_left(count, counts):
            yield f"{count[OVERFLOW]} wait although the table of states counts {counts} in a room of {ROOM}"
        if count[IN_HARDWARE] > ROOM + self.kills:
            yield f"{count[IN_HARDWARE]} in hardware, in a room of {ROOM}, after {self.kills} kills"
        counter_of = {flows.from_json(row["key"]): row for row in counters}
        unwanted = counter_of.keys() - {flow for flow, _, _ in offloads}
        if unwanted:
            yield f"{len(unwanted)} counters are of flows that nobody wants"
        missing |= {flow for (flow, _, _), state in state_of.items() if state == IN_HARDWARE} - counter_of.keys()
        odd = [row for row in counters if (row["packets"], row["bytes"]) not in self.possible_counts(family)
               or row["hosEntries"] == 0 or row["intfId"] != "Ethernet1"]
        if odd:
            yield f"{len(odd)} counters that nobody wrote, such as {odd[0]}"

    def room_is_left(self, count, counts):
        """Whether flows wait that need not."""
        # A start may send one flow more into overflow than it must: the first one to be looked at finds no room left.
        return count[OVERFLOW] > 0 and counts.get(IN_HARDWARE, 0) < ROOM - 1

    def possible_counts(self, _family):
        return {(0, 0)}


class WithoutTraffic(RestartTest):
    def setUp(self):
        super().setUp()
        self.write_config([("Ethernet1", "capture", self.write_capture("none.pcap", []))], **self.configuration())

    def configuration(self):
        return {}

    def kill_over_and_over(self, starts, live):
        """Kills, of which so many parts are within the start and so many behind a change."""
        while self.kills < KILLS:
            if self.fresh_after and self.kills % self.fresh_after == 0:
                self.start_afresh()
            self.change(self.random.choice(self.downtime))
            if self.random.randrange(starts + live) < starts:
                self.start_and_kill()
                continue
            agent = self.start_settled()
            self.compare()
            self.change_and_kill(agent, self.random.choice(self.uptime))
        agent = self.start_settled()
        self.compare()
        self.assertEqual(agent.end(), 0)
        self.compare()


def rounds(count):
    """Adds rounds, some with more kills in the start, some with more behind changes."""

    def add(tests):
        for number in range(count):
            starts, live = ((1, 1), (3, 1), (1, 3))[number % 3]
            setattr(tests, f"test_round_{number}", lambda self, starts=starts, live=live: self.kill_over_and_over(starts, live))
        return tests

    return add


@rounds(4)
class Kills(WithoutTraffic):
    """What is withdrawn while no agent runs is never taken from the count of its state, and each start may add one to it. So
    little changes, and not for long: else the room would be used up by flows that are no more."""

    downtime, uptime, fresh_after = (1, 2, 5), (1, 5, 20), 10
    assert fresh_after * (max(downtime) + max(uptime) + 2) < ROOM - 1


@rounds(6)
class AuditedKills(WithoutTraffic):
    """With an audit behind each start, which repairs what drifted: all counts are exact."""

    downtime, uptime, fresh_after = (1, 20, 200), (1, 20, 200), None

    def configuration(self):
        return {"plugins": (PLUGIN, AUDIT), "extra": '[state."flowtracking/audit/sampled"]\nafterRestart = "repair"\n'}

    def start_settled(self):
        agent = super().start_settled()
        agent.wait_for("audit after the restart (repair)")
        return agent

    def compare_family(self, family, missing, status, states, counters):
        yield from super().compare_family(family, missing, status, states, counters)
        count = collections.Counter(row["state"] for row in status)
        counts = {row["key"]["state"]: row["count"] for row in states if row["count"]}
        if counts != count:
            yield f"the table of states counts {counts}, the statuses are {dict(count)}"
        references = [row["hosEntries"] for row in counters if row["hosEntries"] != 1]
        if references:
            yield f"references {references} where one offload wants the flow"

    def room_is_left(self, count, counts):
        return False  # what drifted had taken room from those who wait: theirs with the next withdrawal, see below

    def test_the_next_withdrawal_fills_the_room_that_the_audit_found(self):
        agent = self.start_settled()
        agent.end(signal.SIGKILL)
        for family in FAMILIES:
            self.withdraw(family, 100)  # and so make room that nobody is told of
        agent = self.start_settled()
        for family in FAMILIES:
            self.withdraw(family, 1)
        expected = [min(ROOM, len(self.wanted[family])) for family in FAMILIES]
        self.eventually(lambda: [sum(row["state"] == IN_HARDWARE for row in self.sft("status", f"--{family.lower()}"))
                                 for family in FAMILIES], expected)
        counted = collections.Counter((row["family"], row["state"]) for row in self.sft("status"))
        self.eventually(lambda: {key: count for key, count in self.state_counts().items() if count}, counted)
        self.assertEqual(agent.end(), 0)

    def withdraw(self, family, most):
        gone = set(self.random.sample(sorted(self.wanted[family]), min(most, len(self.wanted[family]))))
        self.wanted[family] -= gone
        self.unwant([offload(family, each) for each in sorted(gone)])


class Poll(RestartTest):
    """The counters are copied a second after the last copy: kills around that moment."""

    def setUp(self):
        super().setUp()
        frames = [udp_frame("10.0.0.1", "10.0.0.2", number, 53) for number in range(2 * MOST)]
        self.write_config([("Ethernet1", "capture", self.write_capture("all.pcap", frames))])

    def possible_counts(self, family):
        return {(0, 0), (1, 28)} if family == "IPv4" else {(0, 0)}

    def test_kills_around_the_poll(self):
        while self.kills < KILLS // 2:
            if self.kills % 10 == 0:
                self.start_afresh()
            agent = self.start_settled()
            self.compare()
            self.kill_after(agent, POLL + self.random.uniform(-0.015, 0.005))
            self.change(20)
        agent = self.start_settled()
        self.compare()
        counted = {flow: each for flow, each in self.local().items()}
        self.eventually(lambda: {flow: each for flow, each in self.published().items() if flow in counted}, counted)
        self.assertEqual(agent.end(), 0)


if __name__ == "__main__":
    unittest.main()
