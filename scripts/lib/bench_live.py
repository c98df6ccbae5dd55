"""Live ports against Open vSwitch's userspace datapath: the same hosts, links and packets, one in 1,000 sampled by both.

The sender has one core and the switch the other. What is compared are the packets that come out for a second of the processor that the switch
takes: with all that the sender can send, when packets wait and system calls take many at a time, and at a rate at which they come alone.
"""
import contextlib
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import time

from bench_report import Row
from namespaces import Network, Unavailable
from programs import Failure, Program, until

GROUP = "live"
SAMPLE_RATE = 1000
COLLECTOR = 6343
RECEIVER = 9000  # where live_load sends to
FLOWS = 64
CARRIED = 20_000  # packets a second that any contender carries
SENT = 2_000_000  # packets a second that no sender reaches
LEAST = 1.5  # of what Open vSwitch carries
SWITCH_CORE, SENDER_CORE = 1, 0
# A socket that nobody reads: the kernel drops what comes, and sends no error.
SINK = """import socket, sys
for family, address, port in ((socket.AF_INET, "0.0.0.0", {0}), (socket.AF_INET6, "::", {0})):
    one = socket.socket(family, socket.SOCK_DGRAM)
    one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
    if family == socket.AF_INET6: one.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
    one.bind((address, port)); globals()["keep%d" % family] = one
print("ready", flush=True); sys.stdin.read()"""


def measure(setting):
    wanted = 1.0 if setting.quick else 3.0
    try:
        with Network() as net:
            _prepare(net)
            figures = {}
            makers = {"agent": Agent, "Open vSwitch": OpenVswitch}
            if not all(map(shutil.which, ("ovs-vswitchd", "ovsdb-server", "ovs-vsctl", "ovs-ofctl"))):
                del makers["Open vSwitch"]
            for _ in range(setting.runs):
                for name, make in makers.items():
                    with make(setting, net) as switch:
                        figures.setdefault(name, []).append((_load(setting, net, switch, SENT, wanted), _load(setting, net, switch, CARRIED, wanted)))
    except Unavailable as reason:
        yield Row(GROUP, "agent to Open vSwitch", None, note=str(reason))
        return
    for which, load in ((0, "all that the sender sends"), (1, f"{CARRIED:,} a second")):
        out, each = ({name: statistics.median(run[which][part] for run in runs) for name, runs in figures.items()} for part in (0, 1))
        for name in makers:
            yield Row(GROUP, f"{name}, {load}: packets a second of a core", each[name], "packets/s",
                      note=f"{out[name]:,.0f} came out, {out[name] / each[name]:.0%} of the core")
        if "Open vSwitch" in makers:
            yield Row(GROUP, f"agent to Open vSwitch, {load}", each["agent"] / each["Open vSwitch"], "", least=LEAST)
    if "Open vSwitch" not in makers:
        yield Row(GROUP, "agent to Open vSwitch", None, note="not installed: scripts/bootstrap bench")


def _prepare(net):
    for host in (net.a, net.b):
        host.run(["ethtool", "-K", "eth0", "tx", "off"])  # Open vSwitch forwards checksums as it finds them
    for space, port in ((net.agent, COLLECTOR), (net.b, RECEIVER)):
        sink = space.popen([sys.executable, "-c", SINK.format(port)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if sink.stdout.readline() != "ready\n":
            raise Failure("the sink has not started")


def _load(setting, net, switch, rate, seconds):
    """Packets that came out in a second, and for each second of the processor that the switch took."""
    for address in (net.b.ipv4, net.b.ipv6):
        net.a.run(["ping", "-n", "-q", "-c", 1, "-w", 30, address])
    sender = net.a.popen([*setting.priority, "taskset", "-c", SENDER_CORE, setting.program("live_load"), "send", "--to", net.b.ipv4, "--to", net.b.ipv6,
                          "--packets", int(rate * (seconds + 10)), "--rate", rate, "--flows", FLOWS], stdout=subprocess.DEVNULL)
    try:
        until(lambda: net.b.counters("eth0")["packets_in"] > 10_000, 30, "no packets come out", [switch])
        packets, cpu, clock = net.b.counters("eth0")["packets_in"], switch.cpu(), time.monotonic()
        time.sleep(seconds)
        packets, cpu, clock = net.b.counters("eth0")["packets_in"] - packets, switch.cpu() - cpu, time.monotonic() - clock
    finally:
        sender.send_signal(signal.SIGKILL)
        sender.wait()
    return packets / clock, packets / cpu


class Switch:
    """What forwards between the two hosts; its process."""

    def __init__(self, setting, net):
        self.setting = setting
        self.net = net
        self.directory = setting.folder / "switch"
        self.process = None
        self._stack = contextlib.ExitStack()

    def __enter__(self):
        self.directory.mkdir()
        self._stack.callback(shutil.rmtree, self.directory)
        try:
            self._start()
        except BaseException:
            self._stack.close()
            raise
        return self

    def __exit__(self, *_):
        self._stack.close()

    def _run(self, name, command, environment=None):
        program = Program(name, self.net.agent.command([*self._affinity(), *command]), self.directory / f"{name}.log",
                          {**os.environ, **(environment or {})})
        self._stack.callback(program.close)
        return program

    def _affinity(self):
        return [*self.setting.priority, "taskset", "-c", str(SWITCH_CORE)]

    def runs(self):
        return self.process.runs()

    @property
    def name(self):
        return self.process.name

    def cpu(self):
        """Seconds of the processor, of all its threads."""
        values = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()
        return sum(map(int, values[11:13])) / os.sysconf("SC_CLK_TCK")


class Agent(Switch):
    def _start(self):
        build, net = self.setting.build, self.net
        config = self.directory / "agent.toml"
        config.write_text(f"""run_dir = "{self.directory}/run"
plugins = ["{build}/lib/libPexaSampledFlowTracker.so"]
[[port]]
name = "Ethernet1"
device = "{net.a.port}"
[[port]]
name = "Ethernet2"
device = "{net.b.port}"
[forward]
Ethernet1 = "Ethernet2"
Ethernet2 = "Ethernet1"
[sflow]
agent = "127.0.0.1"
collectors = ["127.0.0.1:{COLLECTOR}"]
[state."hardware/flowtracking/config/sampled"]
hwOffloadIpv4 = true
hwOffloadIpv6 = true
sampleRate = {SAMPLE_RATE}
[state."sflow/hwconfigdir/sampledflowtracker"]
ingressInterfaces = ["Ethernet1", "Ethernet2"]
egressInterfaces = []
""")
        self.process = self._run("pexa-agent", [build / "bin/pexa-agent", "--config", config])
        until(lambda: ": ready: " in self.process.said(), 30, "the agent has not started", [self.process])


class OpenVswitch(Switch):
    SCHEMA = "/usr/share/openvswitch/vswitch.ovsschema"

    def _start(self):
        folder, net = self.directory, self.net
        database = f"unix:{folder}/db.sock"
        environment = {"OVS_RUNDIR": str(folder), "OVS_LOGDIR": str(folder), "OVS_DBDIR": str(folder)}
        subprocess.run(["ovsdb-tool", "create", folder / "conf.db", self.SCHEMA], check=True)
        server = self._run("ovsdb-server", ["ovsdb-server", folder / "conf.db", f"--remote=p{database}", f"--unixctl={folder}/db.ctl"],
                           environment)
        until((folder / "db.sock").exists, 30, "ovsdb-server has not started", [server])

        def vsctl(*arguments):
            net.agent.run(["ovs-vsctl", f"--db={database}", "--timeout=30", *arguments], env={**os.environ, **environment})

        vsctl("--no-wait", "init")
        self.process = self._run("ovs-vswitchd", ["ovs-vswitchd", database, f"--unixctl={folder}/switch.ctl"], environment)
        vsctl("add-br", "br0", "--", "set", "bridge", "br0", "datapath_type=netdev", "--",
              "add-port", "br0", net.a.port, "--", "set", "interface", net.a.port, "ofport_request=1", "--",
              "add-port", "br0", net.b.port, "--", "set", "interface", net.b.port, "ofport_request=2", "--",
              "--id=@sflow", "create", "sflow", "agent=lo", f'target="127.0.0.1:{COLLECTOR}"', "header=128",
              f"sampling={SAMPLE_RATE}", "polling=0", "--", "set", "bridge", "br0", "sflow=@sflow")
        for rule in ("in_port=1,actions=output:2", "in_port=2,actions=output:1"):
            net.agent.run(["ovs-ofctl", "add-flow", f"unix:{folder}/br0.mgmt", rule], env={**os.environ, **environment})
