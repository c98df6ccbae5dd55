"""What the main job does on a capture and between live hosts alike."""
import collections

import flows
from page import Checks

PATIENCE = 120  # seconds for what takes one or two; only what fails takes as long


def family(key):
    return "IPv4" if len(key.src) == 4 else "IPv6"


class Job:
    """The first steps of the loop, and what is checked in both."""
    PORTS = ()  # the names of the agent's ports

    def __init__(self, bench, arguments, page):
        self.bench = bench
        self.arguments = arguments
        self.page = page
        self.checks = Checks(page)
        self.listen = "127.0.0.1:0"

    def wait_for_samples(self, **limits):
        self.page.step("A flow tracker waits for samples, an IPFIX collector (nfcapd) for its records; nothing is wanted in hardware")
        self.bench.start_collector()
        self.start_tracker(**limits)
        self.page.sft(self.bench, "table", "list")
        self.checks.equal("no flow is wanted", self.bench.wanted(), set())

    def start_tracker(self, **limits):
        """Starts a tracker, always at the same port; its log so far is shown."""
        port = self.bench.start_tracker(self.PORTS, listen=self.listen, **limits)
        self.listen = f"127.0.0.1:{port}"
        self.page.command("flow-tracker --config flow-tracker.toml &", self.bench.tracker.said())

    def write_agent_config(self, ports, forward, rate, pace="fast"):
        self.bench.write_agent_config(ports, forward, self.listen.rsplit(":", 1)[1], rate, pace)

    def await_accounts(self, outcome):
        """Waits until the tracker has seen every sample, and every count that the agent published. Live hosts go on asking for
        their neighbours, so that there may be more samples by then."""

        def settled():
            told = self.bench.tracker.statistics()
            counted = sum(row["packets"] for row in self.bench.tracker.ask("flows"))
            return told["flowSamples"] >= outcome.sampled() and counted == outcome.in_hardware()

        self.bench.until(settled, PATIENCE, f"the tracker has not seen all of {outcome.sampled():,} samples and "
                         f"{outcome.in_hardware():,} counted packets")

    def known_to_tracker(self):
        """(packets, octets) of each flow: what was sampled and what was counted of it, over its directions and interfaces."""
        packets, octets = collections.Counter(), collections.Counter()
        for row in self.bench.tracker.ask("flows"):
            key = flows.from_json(row["key"]["ipFlowKey"])
            packets[key] += row["packets"] + row["sampledPackets"]
            octets[key] += row["octets"] + row["sampledOctets"]
        return {key: (packets[key], octets[key]) for key in packets}

    def check_states(self, states):
        published = {(row["family"], row["key"]["state"]): row["count"] for row in self.bench.sft("states") if row["count"]}
        self.checks.equal("the published numbers of flows by state are those of the statuses", published,
                          dict(collections.Counter((family(key), state) for key, state in states.items())))

    def check_published(self, outcome):
        published = {key: each for key, each in self.bench.counts("counters").items() if each != (0, 0)}
        self.checks.flows(f"the published counters are the agent's own: {len(published)} flows", published, outcome.local)

    def end_tracker(self):
        """Ends the tracker, and gives its collector, whose records are shown and whole."""
        collector = self.bench.end_tracker()
        arguments = ["-q", "-s", "record/packets", "-n", "4", "-o", "line"]
        self.page.command(f"nfdump -R {collector.folder.name} {' '.join(arguments)}", collector.nfdump(*arguments))
        self.checks.true("nfcapd met no sequence error and no bad packet", "Sequence Errors: 0, Bad Packets: 0" in collector.said(),
                         collector.said())
        return collector
