"""Live tests: an agent between two hosts in network namespaces (scripts/lib/namespaces.py), and real programs on them."""
import json
import shutil
import subprocess
import unittest

import harness
import namespaces  # found where harness looks for scripts' libraries

LEFT, RIGHT = "Ethernet1", "Ethernet2"
LIVE_LOAD = harness.BUILD / "bin/live_load"


def needs(*programs):
    """Skips tests whose programs are not on this machine."""
    missing = [each for each in programs if shutil.which(each) is None]
    return unittest.skipIf(missing, f"not installed: {' '.join(missing)}")


class LiveTest(harness.ScenarioTest):
    """A test with hosts `net.a` and `net.b` and an agent that forwards between its ports LEFT (to a) and RIGHT (to b)."""

    def setUp(self):
        super().setUp()
        try:
            self.net = namespaces.Network()
        except namespaces.Unavailable as reason:
            self.skipTest(str(reason))
        self.addCleanup(self.net.close)

    def start_live(self, rate=0):
        self.write_config([(LEFT, "device", self.net.a.port), (RIGHT, "device", self.net.b.port)],
                          forward={LEFT: RIGHT, RIGHT: LEFT}, rate=rate)
        agent = LiveAgent(self.net.agent, ["--config", self.config])
        self.addCleanup(agent.close)
        agent.wait_ready()
        return agent

    def vlan(self, *ids):
        try:
            return self.net.vlan(*ids)
        except namespaces.Unavailable as reason:
            self.skipTest(str(reason))

    def listening(self, host, port, kind="tcp"):
        """Waits until something listens on a port of a host."""
        files = [f"/proc/net/{kind}", f"/proc/net/{kind}6"]
        self.eventually(lambda: f":{port:04X} " in host.run(["cat", *files]).stdout, True)

    def admitted(self, records):
        """Wants flows in hardware and waits until they are."""
        self.want(records)
        expected = {harness.offload_of(each): harness.IN_HARDWARE for each in records}
        self.eventually(self.states, expected)

    def ping(self, host, address):
        """Three answers of an address, and nothing else."""
        said = host.run(["ping", "-n", "-c", 3, "-i", "0.05", "-w", 60, address], check=False).stdout
        self.assertIn(" 0% packet loss", said)

    def acquainted(self):
        """Lets the hosts find each other, as long as there is little that waits for it: their kernels drop what is too much."""
        for address in (self.net.b.ipv4, self.net.b.ipv6):
            self.ping(self.net.a, address)

    @staticmethod
    def counted(host, protocol, name):
        """What a host's kernel counts for a protocol over IPv4 (/proc/net/snmp)."""
        names, values = (line.split() for line in host.run(["grep", f"^{protocol}:", "/proc/net/snmp"]).stdout.splitlines())
        return int(dict(zip(names, values))[name])

    def datagrams(self, host):
        """How many UDP datagrams, of both families, a host's kernel has handed to programs."""
        six = dict(line.split() for line in host.run(["cat", "/proc/net/snmp6"]).stdout.splitlines())
        return self.counted(host, "Udp", "InDatagrams") + int(six["Udp6InDatagrams"])


class LiveAgent(harness.Agent):
    """An agent in a namespace of its own."""

    def __init__(self, space, arguments):
        self.space = space
        super().__init__(arguments)

    def command(self, arguments):
        return self.space.command(super().command(arguments))


class Load:
    """A receiver of live_load on one host, and the senders on others."""

    def __init__(self, host, flows):
        self.flows = flows
        self.host = host
        self.receiver = host.popen([LIVE_LOAD, "receive", "--flows", flows], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   text=True)
        assert self.receiver.stdout.readline() == "ready\n"

    def send(self, host, packets, rate):
        """Sends, and gives what was sent."""
        addresses = ["--to", self.host.ipv4, "--to", self.host.ipv6]
        done = host.run([LIVE_LOAD, "send", *addresses, "--packets", packets, "--rate", rate, "--flows", self.flows],
                        timeout=harness.PATIENCE)
        return json.loads(done.stdout)

    def finish(self):
        """What was received."""
        self.receiver.stdin.close()
        said = self.receiver.stdout.read()
        self.receiver.wait(harness.PATIENCE)
        return json.loads(said)
