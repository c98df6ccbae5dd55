#!/usr/bin/env python3
"""The main job, shown: flows of a capture wanted in hardware, admitted as far as there is room, counted and published.

Called by scripts/run, which builds first. Publishes wanted offloads in the configuration table, lets the agent replay the
capture from Ethernet1 to Ethernet3 with the plugin loaded and with room for some of them, withdraws one, kills the agent and
starts it again. Each step is shown with the operator's commands, and what the programs say is held against what flows.py counts
in the same capture. Status 0 only when everything adds up.
"""
import argparse
import collections
import os
import pathlib
import shutil
import signal
import sys
import tempfile
import threading

import flows
from bench import BUDGET, IN_HARDWARE, IN_PORT, OUT_PORT, OVERFLOW, Bench, Collector, Failure
from page import Checks, Outcome, Page, show_commands, show_largest, show_packets, show_reasons, show_samples

PATIENCE = 30  # seconds for what takes one at most


def family(key):
    return "IPv4" if len(key.src) == 4 else "IPv6"


class Job:
    """The steps, in their order; what each leaves for the next."""

    def __init__(self, bench, arguments, page):
        self.bench = bench
        self.arguments = arguments
        self.page = page
        self.checks = Checks(page)
        self.traffic = flows.count(arguments.capture)
        ranked = [key for key, _ in flows.largest(self.traffic)]
        self.wanted = set(ranked[: (len(ranked) + 1) // 2])
        self.unwanted = ranked[len(self.wanted):]
        self.budget = arguments.budget or self._half_the_room()
        self.collector = None
        self.seconds = 60 + arguments.capture.stat().st_size / 1e6

    def _half_the_room(self):
        families = collections.Counter(map(family, self.wanted))
        return max(1, min(families.values(), default=2) // 2)

    def _start(self):
        self.collector = Collector()
        self.bench.write_config(self.arguments.capture, self.arguments.sample_rate, self.collector.port)
        self.bench.start(self.budget)
        return Outcome(self.bench, self.bench.await_replay(self.seconds))

    def _in(self, state, states=None):
        states = self.bench.states() if states is None else states
        return {key for key, its in states.items() if its == state}

    def publish(self):
        self.page.head("1. A flow tracker publishes wanted offloads; no agent runs yet")
        self.bench.want(self.wanted)
        self.page.command(self.bench, "flows", most=4)
        rows = self.bench.sft("flows")
        waiting = {flows.from_json(row["key"]["ipFlowKey"]) for row in rows if row["wanted"] and row["state"] is None}
        self.checks.true(f"{len(waiting)} flows wait for their status", waiting == self.wanted and len(rows) == len(waiting),
                         f"{len(self.wanted)} were published, {len(rows)} are shown")

    def admit(self):
        self.page.head(f"2. The agent starts with room for {self.budget} flows of each family ({BUDGET}) and replays the capture")
        outcome = self._start()
        self.page.command(self.bench, "states")
        self.page.command(self.bench, "status", most=4)
        states = self.bench.states()
        self.checks.equal(f"each wanted flow has a status, and no other: {len(states)}", states.keys(), self.wanted)
        for name, count in sorted(collections.Counter(map(family, self.wanted)).items()):
            found = collections.Counter(state for key, state in states.items() if family(key) == name)
            admitted = min(count, self.budget)
            self.checks.equal(f"{name}: {admitted} are in hardware, {count - admitted} in overflow",
                              (found[IN_HARDWARE], found[OVERFLOW]), (admitted, count - admitted))
        self._check_states(states)
        return outcome

    def _check_states(self, states):
        published = {(row["family"], row["key"]["state"]): row["count"] for row in self.bench.sft("states") if row["count"]}
        self.checks.equal("the published numbers of flows by state are those of the statuses", published,
                          dict(collections.Counter((family(key), state) for key, state in states.items())))

    def counted(self, outcome):
        self.page.head("3. What became of the packets")
        show_packets(self.page, outcome)
        show_largest(self.page, outcome.local, self.arguments.top)
        show_samples(self.page, outcome)
        show_reasons(outcome)
        self._check_packets(outcome)

    def _truth(self, keys):
        return {key: (self.traffic.flows[key].packets, self.traffic.flows[key].octets) for key in keys}

    def _check_packets(self, outcome):
        traffic, equal = self.traffic, self.checks.equal
        entered = outcome.ports[IN_PORT]["packetsIn"]
        hardware = sum(packets for packets, _ in outcome.local.values())
        pool = outcome.sampler(IN_PORT, "ingress")["pool"]
        admitted = self._in(IN_HARDWARE)
        equal("the capture is whole", outcome.ports[IN_PORT]["replay"], "finished")
        equal(f"every packet of the capture entered: {entered:,}", entered, traffic.packets)
        equal(f"packets in = in hardware + left to sampling: {entered:,} = {hardware:,} + {pool:,}", entered, hardware + pool)
        equal(f"each flow in hardware was counted as it is in the capture: {len(admitted)} flows", outcome.local,
              self._truth(admitted))
        held_back = sum(traffic.flows[key].packets for key in self.wanted - admitted)
        equal(f"packets of flows in overflow were left to sampling: {held_back:,}",
              outcome.reason("Drop", "Flow state not in hardware"), held_back)
        for name in ("IPv4", "IPv6"):
            looked_at = outcome.reason("Action", f" Offloading {name}")
            equal(f"{name} packets were looked at once a direction: {looked_at:,}", looked_at, 2 * traffic.family[name])
        left = outcome.ports[OUT_PORT]["packetsOut"]
        equal(f"every packet left again: {left:,}", left, entered)

    def published(self):
        self.page.head("4. The counts are published, once a second")
        admitted = self._in(IN_HARDWARE)
        truth = self._truth(admitted)
        _, took = self.bench.until(lambda: self.bench.counts("counters") == truth, PATIENCE,
                                   "the published counters are not the capture's own")
        self.page.command(self.bench, "counters", most=4)
        self.checks.equal(f"{took:.1f} s after the replay the table has what was counted: {len(truth)} flows",
                          self.bench.counts("counters"), truth)

    def replace(self):
        self.page.head("5. A flow in hardware is withdrawn, and one that waits takes its place")
        before = self.bench.states()
        waiting = self._in(OVERFLOW, before)
        able = sorted(key for key in self._in(IN_HARDWARE, before) if any(family(key) == family(each) for each in waiting))
        if not able:
            self.page.note("nobody waits: the capture has too few flows for that (--budget 1?)")
            return
        gone = able[0]
        self.page.command(self.bench, "flow", "unwant", *self.bench.want_arguments(gone))
        self.wanted.remove(gone)

        def promoted():
            return self._in(IN_HARDWARE) - self._in(IN_HARDWARE, before)

        taken, took = self.bench.until(promoted, PATIENCE, "nobody was promoted")
        after = self.bench.states()
        self.page.command(self.bench, "flows", "--state", "in-hardware", f"--{family(gone).lower()}", most=4)
        self.checks.equal("the one withdrawn has no status, everybody else has one", after.keys(), before.keys() - {gone})
        self.checks.true(f"one that waited is in hardware, {1000 * took:.0f} ms later: " + ", ".join(map(flows.text, taken)),
                         len(taken) == 1 and taken <= waiting, f"{len(taken)} are new in hardware")
        self.checks.true("the others stayed where they were", all(state == before[key] for key, state in after.items()
                                                                    if key not in taken), "some changed")
        expected = self._in(IN_HARDWARE, after)
        self.bench.until(lambda: self.bench.counts("counters").keys() == expected, PATIENCE,
                         "the published counters are not those of the flows in hardware")
        self.checks.equal("its counter went with it, and the new one's came", self.bench.counts("counters").keys(), expected)

    def restart(self):
        self.page.head("6. The agent is killed (SIGKILL); what is wanted changes meanwhile; it is started again")
        self.bench.kill()
        self.collector.finish()
        gone = sorted(self._in(IN_HARDWARE))[:3]
        for key in gone:
            self.bench.sft("flow", "unwant", *self.bench.want_arguments(key))
        new = self.unwanted[:1]
        self.bench.want(new)
        self.wanted = self.wanted - set(gone) | set(new)
        self.page.note(f"while no agent runs: {len(gone)} withdrawn, {len(new)} new")
        self.page.command(self.bench, "flows", "--state", "unwanted")
        stale = self._in(IN_HARDWARE) - self.wanted
        self.checks.equal(f"the tables outlive the agent: {len(stale)} flows still stand as in hardware", stale, set(gone))

        outcome = self._start()
        audited, _ = self.bench.until(lambda: self.bench.sft("attr", "get", "SftAudit", "lastResult")[0]["lastResult"], PATIENCE,
                                      "the agent's tables were not audited")
        self.page.note(audited)
        self.page.command(self.bench, "states")
        states = self.bench.states()
        admitted = self._in(IN_HARDWARE, states)
        self._check_states(states)
        self.checks.equal(f"each wanted flow has a status, and no other: {len(states)}", states.keys(), self.wanted)
        self.checks.equal("no status is stale", self.bench.sft("flows", "--state", "unwanted"), [])
        self.checks.equal("each flow is in hardware or in overflow", set(states.values()) - {IN_HARDWARE, OVERFLOW}, set())
        self.checks.true(f"no more are in hardware than there is room for: {len(admitted)}",
                         max(collections.Counter(map(family, admitted)).values(), default=0) <= self.budget, admitted)
        published = self.bench.counts("counters").keys()
        self.checks.true("each flow in hardware has a counter, and none is of a flow that nobody wants",
                         admitted <= published <= self.wanted, published)
        self._check_packets(outcome)
        return outcome

    def end(self, outcome):
        self.page.head("7. The agent ends in order")
        status = self.bench.stop()
        self.collector.finish()
        self.checks.equal("pexa-agent ended in order", status, 0)
        written = sum(1 for _ in flows.frames(self.bench.written))
        self.checks.equal(f"the capture written holds every packet: {written:,}", written, outcome.ports[OUT_PORT]["packetsOut"])
        sent = sum(row["samples"] for row in outcome.samples)
        self.checks.equal(f"every sample reached the collector: {self.collector.samples:,} in {self.collector.datagrams:,} datagrams",
                          self.collector.samples, sent)
        if self.traffic.damage:
            print(f"  {self.arguments.capture}: {self.traffic.damage}")


def await_interrupt():
    stop = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: stop.set())
    print("\nThe agent is up; Ctrl-C ends it.", flush=True)
    stop.wait()
    print()


def run(bench, root, arguments, page):
    job = Job(bench, arguments, page)
    page.head(f"{os.path.relpath(arguments.capture)}: {job.traffic.packets:,} packets, {len(job.traffic.flows):,} flows, the "
              f"{len(job.wanted):,} largest of them wanted in hardware")
    page.note(f"{IN_PORT} (replay) -> pexa-agent with {bench.plugin.name} -> {OUT_PORT} (capture written)")
    job.publish()
    job.counted(job.admit())
    job.published()
    job.replace()
    outcome = job.restart()
    if arguments.keep:
        show_commands(page, bench, root, True)
        await_interrupt()
    job.end(outcome)
    if not arguments.keep:
        show_commands(page, bench, root, False)
    return job.checks.failed == 0


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{text}: expected 1 or more")
    return number


def main():
    parser = argparse.ArgumentParser(prog="scripts/run", description=__doc__.split("\n\n")[0])
    parser.add_argument("capture", nargs="?", type=pathlib.Path, help="the capture to replay (tests/captures/mixed.pcap)")
    parser.add_argument("--keep", action="store_true", help="leave the agent and its run directory up until Ctrl-C")
    parser.add_argument("--budget", type=positive, help="flows of a family that may be in hardware (half of what is wanted)")
    parser.add_argument("--sample-rate", type=positive, default=10, help="one packet in so many (10)")
    parser.add_argument("--top", type=positive, default=5, help="flows to show (5)")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parents[2]
    arguments.capture = (arguments.capture or root / "tests/captures/mixed.pcap").absolute()
    if not arguments.capture.is_file():
        print(f"scripts/run: {arguments.capture}: no such file, expected a capture", file=sys.stderr)
        return 1

    page = Page()
    bench = Bench(arguments.build.absolute(), pathlib.Path(tempfile.mkdtemp(prefix="pexa-run.")))
    good = False
    try:
        good = run(bench, root, arguments, page)
    except Failure as error:
        print(f"\nscripts/run: {error}", file=sys.stderr)
    finally:
        try:
            bench.stop()
        except Failure as error:
            print(f"scripts/run: {error}", file=sys.stderr)
        if good:
            shutil.rmtree(bench.directory)
    if not good:
        if bench.log.exists():
            sys.stderr.write("".join(f"  agent: {line}\n" for line in bench.log.read_text(errors="replace").splitlines()[-20:]))
        print(f"scripts/run: failed; everything of this run is in {bench.directory}", file=sys.stderr)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
