"""The closed loop over a capture, step by step.

The capture is played twice. First evenly over some seconds and with every packet sampled, so that all that is sampled and all
that is counted make up the capture, whenever a flow gets into hardware. Then as fast as it goes and sampled as operators do: the
replay begins when what was wanted is in hardware, so that those flows are counted from their first packet to their last.
"""
import collections

import flows
from bench import BUDGET, IN_HARDWARE, OVERFLOW
from evenly import write_evenly
from outcome import Outcome, show_flows, show_packets, show_reasons
from job import PATIENCE, Job, family

IN_PORT, OUT_PORT = "Ethernet1", "Ethernet3"
FIRST_REPLAY = 2  # seconds that it takes at least
SAMPLES_TO_LEARN = 3


def by_family(keys):
    return collections.Counter(map(family, keys))


def want_arguments(key):
    """A flow as the arguments of `sft flow want` and `unwant`."""
    ends, _, rest = flows.text(key).partition(f" {flows.protocol(key)} vlan ")
    source, destination = ends.split(" -> ")
    return [source, destination, "--proto", flows.protocol(key), "--vlan", rest, "--direction", "ingress", "--interface", IN_PORT]


class CaptureJob(Job):
    """The steps, in their order; what each leaves for the next."""
    PORTS = (IN_PORT, OUT_PORT)

    def __init__(self, bench, arguments, page):
        super().__init__(bench, arguments, page)
        self.traffic = flows.count(arguments.capture)
        self.samples_to_learn = SAMPLES_TO_LEARN
        self.expected = self._learned(SAMPLES_TO_LEARN)
        if len(self.expected) < 4:  # of hardly anything else there would be something to see
            self.samples_to_learn = 1
            self.expected = self._learned(1)
        self.budget = arguments.budget or max(1, min(by_family(self.expected).values(), default=2) // 2)
        self.written = bench.directory / "out.pcap"
        self.seconds = 60 + arguments.capture.stat().st_size / 1e6

    def _learned(self, samples):
        return {key for key, flow in self.traffic.flows.items() if flow.packets >= samples}

    def _truth(self, keys):
        """(packets, octets) of these flows, as they are in the capture."""
        return {key: (self.traffic.flows[key].packets, self.traffic.flows[key].octets) for key in keys}

    def start_tracker(self, **limits):
        super().start_tracker(samples_to_learn=self.samples_to_learn, most=8192 + len(self.traffic.flows), **limits)

    def _start_agent(self, capture, rate, pace):
        ports = [(IN_PORT, "capture", capture), (OUT_PORT, "write", self.written)]
        self.write_agent_config(ports, {IN_PORT: OUT_PORT}, rate, pace)
        self.bench.start_agent(self.budget)

    def _replayed(self):
        return Outcome(self.bench, self.bench.await_replay(IN_PORT, self.seconds))

    def _in(self, state, states=None):
        states = self.bench.states() if states is None else states
        return {key for key, its in states.items() if its == state}

    def learn(self):
        seconds = write_evenly(self.arguments.capture, self.bench.directory / "evenly.pcap", FIRST_REPLAY)
        self.page.step(f"The agent starts with room for {self.budget} flows of each family ({BUDGET}); the capture passes it in "
                       f"{seconds:.0f} s, every packet sampled that is not in hardware")
        self._start_agent(self.bench.directory / "evenly.pcap", 1, "recorded")
        outcome = self._replayed()
        self.await_accounts(outcome)
        self.page.sft(self.bench, "flows", most=4)
        self.page.sft(self.bench, "states")
        learned = f"the tracker wants exactly the flows of {self.samples_to_learn} packets and more: {len(self.expected)}"
        self.checks.equal(learned, self.bench.wanted(), self.expected)
        states = self.bench.states()
        self.checks.equal(f"each of them has a status, and no other flow: {len(states)}", states.keys(), self.expected)
        for name, count in sorted(by_family(self.expected).items()):
            found = collections.Counter(state for key, state in states.items() if family(key) == name)
            admitted = min(count, self.budget)
            self.checks.equal(f"{name}: {admitted} are in hardware, {count - admitted} in overflow",
                              (found[IN_HARDWARE], found[OVERFLOW]), (admitted, count - admitted))
        self.check_states(states)
        return outcome

    def account(self, outcome):
        self.page.step("What became of the packets")
        self._show(outcome)
        self.page.sft(self.bench, "tracker")
        self._explain()
        self._check_packets(outcome)
        ingress = outcome.sampler(IN_PORT, "ingress")
        self.checks.equal(f"each packet left to sampling was sampled: {ingress['samples']:,}", ingress["samples"], ingress["pool"])
        self.check_published(outcome)
        known = self.known_to_tracker()
        self.checks.flows(f"counted and sampled together, the tracker knows what passed of each flow: {len(known)} flows", known,
                          self._truth(self.expected))

    def _explain(self):
        """Asks why a flow is where it is, for one in hardware and one in overflow."""
        states = self.bench.states()
        for state, verdict in ((IN_HARDWARE, "in-hardware"), (OVERFLOW, "waiting-for-room")):
            for key in sorted(self._in(state, states))[:1]:
                flow = want_arguments(key)[:6]
                said = self.bench.sft_run("why", *flow).stdout  # its status tells whether it is in hardware
                self.page.command("sft why " + " ".join(flow), said)
                self.checks.true(f"sft why says: {verdict}", f": {verdict}\n" in said, said)

    def _show(self, outcome):
        show_packets(self.page, outcome, IN_PORT, OUT_PORT)
        show_reasons(outcome)

    def _check_packets(self, outcome):
        traffic, equal = self.traffic, self.checks.equal
        entered = outcome.ports[IN_PORT]["packetsIn"]
        pool = outcome.sampler(IN_PORT, "ingress")["pool"]
        equal("the capture is whole", outcome.ports[IN_PORT]["replay"], "finished")
        equal(f"every packet of the capture entered: {entered:,}", entered, traffic.packets)
        hardware = outcome.in_hardware()
        equal(f"packets in = in hardware + left to sampling: {entered:,} = {hardware:,} + {pool:,}", entered, hardware + pool)
        for name in ("IPv4", "IPv6"):
            looked_at = outcome.reason("Action", f" Offloading {name}")
            equal(f"each {name} packet was looked at: {looked_at:,}", looked_at, traffic.family[name])
        unknown, held_back = (outcome.reason("Drop", each) for each in ("No flow status", "Flow state not in hardware"))
        of_flows = sum(flow.packets for flow in traffic.flows.values())
        equal(f"TCP and UDP packets = in hardware + of no known flow + held back: {of_flows:,} = {hardware:,} + {unknown:,} + "
              f"{held_back:,}", of_flows, hardware + unknown + held_back)
        left = outcome.ports[OUT_PORT]["packetsOut"]
        equal(f"every packet left again: {left:,}", left, entered)

    def read_back(self):
        self.page.step("The tracker ends, and has told the collector; what is wanted stays wanted")
        some = min(self.expected)
        refused = self.bench.sft_run("flow", "unwant", *want_arguments(some))
        self.page.command("sft flow unwant " + " ".join(want_arguments(some)), refused.stderr)
        self.checks.true("while the tracker runs nobody else changes what is wanted",
                         refused.returncode != 0 and str(self.bench.tracker.pid) in refused.stderr, "it was not refused")
        collector = self.end_tracker()
        self.checks.flows(f"nfdump reads of each learned flow what the capture holds, packets and octets: {len(self.expected)} flows",
                          collector.totals(), self._truth(self.expected))
        self.checks.equal("what was wanted is wanted", self.bench.wanted(), self.expected)

    def replace(self):
        self.page.step("A flow in hardware is withdrawn by hand, and one that waits takes its place")
        before = self.bench.states()
        waiting = self._in(OVERFLOW, before)
        able = sorted(key for key in self._in(IN_HARDWARE, before) if any(family(key) == family(each) for each in waiting))
        if not able:
            self.page.note("nobody waits: the capture has too few flows for that (--budget 1?)")
            return
        gone = able[0]
        self.page.sft(self.bench, "flow", "unwant", *want_arguments(gone))

        def promoted():
            return self._in(IN_HARDWARE) - self._in(IN_HARDWARE, before)

        taken, took = self.bench.until(promoted, PATIENCE, "nobody was promoted")
        after = self.bench.states()
        self.page.sft(self.bench, "flows", "--state", "in-hardware", f"--{family(gone).lower()}", most=4)
        self.checks.equal("the one withdrawn has no status, everybody else has one", after.keys(), before.keys() - {gone})
        self.checks.true(f"one that waited is in hardware, {1000 * took:.0f} ms later: " + ", ".join(map(flows.text, taken)),
                         len(taken) == 1 and taken <= waiting, f"{len(taken)} are new in hardware")
        self.checks.true("the others stayed where they were", all(state == before[key] for key, state in after.items()
                                                                    if key not in taken), "some changed")
        expected = self._in(IN_HARDWARE, after)
        self.bench.until(lambda: self.bench.counts("counters").keys() == expected, PATIENCE,
                         "the published counters are not those of the flows in hardware")
        self.checks.equal("its counter went with it, and the new one's came", self.bench.counts("counters").keys(), expected)

    def crash(self):
        self.page.step("The agent is killed (SIGKILL), and what is wanted changes while it is gone")
        self.bench.kill_agent()
        gone = set(sorted(self._in(IN_HARDWARE))[:3])
        for key in sorted(gone):
            self.page.sft(self.bench, "flow", "unwant", *want_arguments(key))
        for key in sorted(self.traffic.flows.keys() - self.expected)[:1]:
            self.page.sft(self.bench, "flow", "want", *want_arguments(key))
        self.page.sft(self.bench, "flows", "--state", "unwanted")
        wanted = self.bench.wanted()
        stale = self._in(IN_HARDWARE) - wanted
        self.checks.equal(f"the tables outlive the agent: {len(stale)} flows still stand as in hardware", stale, gone)
        return wanted

    def restart(self, wanted):
        rate = self.arguments.sample_rate
        self.page.step(f"Tracker and agent start again; the capture passes as fast as it can, one packet in {rate} sampled")
        self.bench.start_collector()
        self.start_tracker()
        self.checks.true(f"the tracker took over what is wanted: {len(wanted)}",
                         f"{len(wanted)} wanted offloads taken over" in self.bench.tracker.said(), self.bench.tracker.said())
        self._start_agent(self.arguments.capture, rate, "fast")
        outcome = self._replayed()
        self.await_accounts(outcome)
        audited, _ = self.bench.until(lambda: self.bench.sft("attr", "get", "SftAudit", "lastResult")[0]["lastResult"], PATIENCE,
                                      "the agent's tables were not audited")
        self.page.note(audited)
        self._show(outcome)
        self._check_nothing_stale(wanted)
        found = self.bench.sft_run("doctor").stdout  # its status tells whether there is anything
        self.page.command("sft doctor", found, most=12)
        self.checks.true("sft doctor finds no error", ": 0 errors, " in found, found)
        self._check_packets(outcome)
        exact = self._truth(self._in(IN_HARDWARE) & wanted)
        self.checks.flows(f"each flow that was in hardware from the start was counted as it is in the capture: {len(exact)} flows",
                          {key: each for key, each in outcome.local.items() if key in exact}, exact)
        return exact

    def _check_nothing_stale(self, wanted):
        now = self.bench.wanted()
        again = len(now - wanted)
        self.checks.true(f"what was wanted is wanted, and {again} flows of which enough samples came", now >= wanted and
                         now - wanted <= self.expected, f"{len(wanted - now)} are not wanted any more")
        self.bench.until(lambda: self.bench.states().keys() == now, PATIENCE, "the statuses are not those of the wanted flows")
        states = self.bench.states()
        self.check_states(states)
        self.checks.equal("no status is stale", self.bench.sft("flows", "--state", "unwanted"), [])
        self.checks.equal("each flow is in hardware or in overflow", set(states.values()) - {IN_HARDWARE, OVERFLOW}, set())
        admitted = self._in(IN_HARDWARE, states)
        self.checks.true(f"no more are in hardware than there is room for: {len(admitted)}",
                         max(by_family(admitted).values(), default=0) <= self.budget, admitted)
        published = self.bench.counts("counters").keys()
        self.checks.true("each flow in hardware has a counter, and none is of a flow that nobody wants",
                         admitted <= published <= now, published)

    def compare(self, exact):
        self.page.step("Read back from the collector: what was counted in hardware is exact, what was sampled an estimate")
        totals = self.end_tracker().totals()
        truth = self._truth(self.traffic.flows)
        show_flows(self.page, ["capture", "collector"], {key: (truth[key], totals.get(key, (0, 0))) for key in exact}, self.arguments.top)
        self.checks.flows(f"in hardware: nfdump reads what the capture holds, packets and octets: {len(exact)} flows",
                          {key: each for key, each in totals.items() if key in exact}, exact)
        sampled = totals.keys() - exact.keys()
        self.page.note(f"sampled: the records of {len(sampled)} flows tell of {sum(totals[key][0] for key in sampled):,} packets; all "
                       f"flows outside the hardware have {sum(truth[key][0] for key in truth.keys() - exact.keys()):,} in the capture")

    def age_out(self):
        self.page.step("No traffic any more, and a tracker with an idle timeout of 3 s: everything leaves the hardware")
        self.start_tracker(idle_timeout=3)
        _, took = self.bench.until(lambda: not self.bench.states(), PATIENCE, "flows without traffic are still in hardware")
        self.page.sft(self.bench, "states")
        self.checks.equal(f"after {took:.0f} s no flow is wanted", self.bench.wanted(), set())
        # A flow that the restart had held back, and that came in later, was counted twice: its counter outlives it.
        self.page.sft(self.bench, "audit", "--repair", most=4)
        self.checks.equal("the audit leaves no counter", self.bench.counts("counters"), {})

    def end(self):
        self.page.step("All end in order")
        if self.bench.tracker:
            self.bench.end_tracker()
        out = self.bench.ports()[OUT_PORT]["packetsOut"]
        self.checks.equal("pexa-agent ended in order", self.bench.end_agent(), 0)
        written = sum(1 for _ in flows.frames(self.written))
        self.checks.equal(f"the capture written holds every packet: {written:,}", written, out)
        if self.traffic.damage:
            self.page.note(f"{self.arguments.capture}: {self.traffic.damage}")

    def run(self, stay):
        """All steps; `stay` is called, if given, while everything is up."""
        self.wait_for_samples()
        self.account(self.learn())
        self.read_back()
        self.replace()
        wanted = self.crash()
        self.compare(self.restart(wanted))
        if stay:
            self.start_tracker()
            stay()
        else:
            self.age_out()
        self.end()
