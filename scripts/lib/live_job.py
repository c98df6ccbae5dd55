"""The closed loop between two live hosts in network namespaces: curl, dig and iperf3 talk through the agent.

Every packet is sampled until its flow is in hardware, and one sample makes a flow wanted: so what was sampled and what was
counted are together what the receiving hosts' kernels counted.
"""
import ipaddress

from bench import BUDGET, IN_HARDWARE
from conversations import Servers, ask_name, fetch, kernel_counts, stream
from job import PATIENCE, Job
from outcome import Outcome, show_flows

PORT_A, PORT_B = "Ethernet1", "Ethernet2"  # towards the hosts a and b
SECONDS = 2  # of a stream
STREAM_BYTES, GREETING_BYTES = 1200, 4  # of iperf3's UDP datagrams
IP_UDP = 28  # bytes of headers


def received(totals, host):
    """What of these flows reached a host, as kernel_counts() tells it."""
    addresses = {ipaddress.ip_address(each).packed for each in (host.ipv4, host.ipv6)}
    here = {key: each for key, each in totals.items() if key.dst in addresses}
    return {"tcp": sum(packets for key, (packets, _) in here.items() if key.proto == 6),
            "udp": sum(packets for key, (packets, _) in here.items() if key.proto == 17),
            "ipv4": sum(octets for key, (_, octets) in here.items() if len(key.src) == 4)}


class LiveJob(Job):
    """The steps, in their order; what each leaves for the next."""
    PORTS = (PORT_A, PORT_B)

    def __init__(self, bench, arguments, page, network):
        super().__init__(bench, arguments, page)
        self.network = network
        self.budget = arguments.budget or 2048
        self.servers = None

    def connect(self):
        a, b = self.network.a, self.network.b
        self.page.step(f"The agent starts between the hosts, with room for {self.budget:,} flows of each family ({BUDGET}); every packet is "
                       "sampled that is not in hardware")
        self.servers = Servers(b, self.bench.directory / "servers")
        self.write_agent_config([(PORT_A, "device", a.port), (PORT_B, "device", b.port)], {PORT_A: PORT_B, PORT_B: PORT_A}, 1)
        self.bench.start_agent(self.budget)
        self.bench.until(self.bench.ports, PATIENCE, "the agent does not answer")
        self.page.sft(self.bench, "ports")

    def talk(self):
        """Gives the report of a UDP stream."""
        a, b = self.network.a, self.network.b
        self.page.step("Programs on host a talk to servers on host b")
        for address in (b.ipv4, f"[{b.ipv6}]"):
            self.page.command(f"curl http://{address}/page", fetch(a, address))
        for address, kind in ((b.ipv4, "A"), (b.ipv6, "AAAA")):
            self.page.command(f"dig @{address} www.example.test {kind}", ask_name(a, address, kind))
        # Not at full speed: every packet is sampled until its flow is in hardware, and none may be lost.
        for address, *options in ((b.ipv4, "-b", "100M", "-t", SECONDS), (b.ipv6, "-b", "100M", "-t", SECONDS, "-R")):
            report = stream(a, address, *options)["sum_received"]
            self.page.command(f"iperf3 -c {address} {' '.join(map(str, options))}", f"{report['bits_per_second'] / 1e6:,.0f} Mbit/s received")
        options = ["-u", "-b", "20M", "-l", STREAM_BYTES, "-t", SECONDS]
        report = stream(a, b.ipv4, *options)["sum"]
        self.page.command(f"iperf3 -c {b.ipv4} {' '.join(map(str, options))}", f"{report['packets']:,} packets of {STREAM_BYTES:,} bytes sent")
        self.servers.end()
        return report

    def account(self):
        self.page.step("What became of the packets")
        ports, arrived = self._await_rest()
        outcome = Outcome(self.bench, ports)
        self.await_accounts(outcome)
        self.page.sft(self.bench, "flows", most=6)
        for view in ("states", "ports", "samples"):
            self.page.sft(self.bench, view)
        self.checks.equal("each wanted flow has a status", self.bench.states().keys(), self.bench.wanted())
        self.check_states(self.bench.states())
        self.check_published(outcome)
        for port, left in ((port, ports[port]["packetsOut"]) for port in self.PORTS):
            self.checks.equal(f"every packet that left on {port} reached its host: {left:,}", arrived[port], left)
        self._check_received("the tracker knows", self.known_to_tracker())
        return outcome

    def _await_rest(self):
        """Waits until what the hosts sent has passed the agent; gives its ports, and the packets that reached the host of each."""

        def passed():
            ports = self.bench.ports()
            arrived = {port: host.counters("eth0")["packets_in"] for port, host in ((PORT_A, self.network.a), (PORT_B, self.network.b))}
            through = all(ports[entry]["packetsIn"] == ports[leave]["packetsOut"] for entry, leave in (self.PORTS, self.PORTS[::-1]))
            return (ports, arrived) if through and all(arrived[port] == ports[port]["packetsOut"] for port in self.PORTS) else None

        return self.bench.until(passed, PATIENCE, "the hosts' kernels have not received what left the agent")[0]

    def _check_received(self, who, totals):
        for name, host in (("a", self.network.a), ("b", self.network.b)):
            told, counted = received(totals, host), kernel_counts(host)
            self.checks.equal(f"{who} what host {name}'s kernel received: {counted['tcp']:,} TCP and {counted['udp']:,} UDP packets, "
                              f"{counted['ipv4']:,} octets of IPv4", told, counted)

    def read_back(self, outcome, report):
        self.page.step("The tracker ends, and has told the collector")
        exact = {key: outcome.local[key] for key, state in self.bench.states().items() if state == IN_HARDWARE and key in outcome.local}
        totals = self.end_tracker().totals()
        show_flows(self.page, ["in hardware", "collector"], {key: (exact[key], totals.get(key, (0, 0))) for key in exact}, self.arguments.top)
        self._check_received("nfdump reads", totals)
        self._check_stream(totals, report["packets"], outcome.ports[PORT_A]["dropsIn"])

    def _check_stream(self, totals, sent, dropped):
        """Compares iperf3's UDP stream with what it says of it. It greets with a datagram of 4 bytes."""
        found = [each for key, each in totals.items() if key.proto == 17 and key.dport == 5201]
        if dropped:
            self.page.note(f"{dropped:,} packets came to {PORT_A} faster than the agent took them; iperf3 sent {sent + 1:,} datagrams, "
                           f"the collector was told of {found}")
        else:
            self.checks.equal(f"nfdump reads what iperf3 sent in its UDP stream: {sent + 1:,} packets", found,
                              [(sent + 1, sent * (STREAM_BYTES + IP_UDP) + GREETING_BYTES + IP_UDP)])

    def end(self):
        self.page.step("All end in order")
        if self.bench.tracker:
            self.bench.end_tracker()
        self.checks.equal("pexa-agent ended in order", self.bench.end_agent(), 0)

    def run(self, stay):
        """All steps; `stay` is called, if given, while everything is up."""
        self.wait_for_samples(samples_to_learn=1)
        self.connect()
        report = self.talk()
        self.read_back(self.account(), report)
        if stay:
            self.start_tracker(samples_to_learn=1)
            stay()
        self.end()
