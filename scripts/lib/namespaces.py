#!/usr/bin/env python3
"""Two hosts on veth links with an agent's place between them, in network namespaces of their own. Linux, root.

    with Network() as net:
        net.agent.popen(["pexa-agent", "--config", ...])    # its ports are the devices net.a.port and net.b.port
        net.a.run(["ping", "-c", "1", net.b.ipv4])

      host a                      agent                      host b
    ┌──────────┐           ┌─────────────────┐           ┌──────────┐
    │     eth0 ├───────────┤ to-a       to-b ├───────────┤ eth0     │
    └──────────┘           └─────────────────┘           └──────────┘

Nothing joins to-a and to-b but the agent. Both hosts are in one IPv4 and one IPv6 network; vlan() gives both an interface in a
VLAN. Names carry the owner: namespaces that a process left behind that is no more are removed by the next Network. All that
runs in the namespaces is ended, and all that was made is removed, when the Network is closed.

    namespaces.py --clean     removes what was left behind
"""
import contextlib
import itertools
import json
import os
import pathlib
import re
import signal
import subprocess
import sys

PREFIX = "pexa"
PATIENCE = 60  # seconds for a command that is run
VLAN_TAP = pathlib.Path(__file__).with_name("vlan_tap.py")
_numbers = itertools.count(1)


class Unavailable(Exception):
    """Namespaces, or something that they need, cannot be made here; says what and why."""


def ip(*arguments):
    """What `ip` says; Unavailable when it refuses."""
    try:
        done = subprocess.run(["ip", *map(str, arguments)], capture_output=True, text=True, check=False, timeout=PATIENCE)
    except FileNotFoundError as missing:
        raise Unavailable("there is no program ip (package iproute2)") from missing
    if done.returncode != 0:
        raise Unavailable(f"ip {' '.join(map(str, arguments))}: {done.stderr.strip()}")
    return done.stdout


def _start_of(pid):
    """When a process started, in ticks since the machine did; None when it is no more."""
    try:
        return int(pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[19])
    except (OSError, ValueError):
        return None


def _remove(space):
    for pid in subprocess.run(["ip", "netns", "pids", space], capture_output=True, text=True, check=False).stdout.split():
        with contextlib.suppress(ProcessLookupError):
            os.kill(int(pid), signal.SIGKILL)
    subprocess.run(["ip", "netns", "del", space], capture_output=True, check=False)


def clean():
    """Removes the namespaces of owners that are no more, and gives their names."""
    left = []
    for line in ip("netns", "list").splitlines():
        name = line.split()[0]
        owner = re.fullmatch(PREFIX + r"-(\d+)-(\d+)-\d+-\w+", name)
        if owner and _start_of(int(owner[1])) != int(owner[2]):
            _remove(name)
            left.append(name)
    return left


class Space:
    """A network namespace, and what runs in it."""

    def __init__(self, name, stack):
        self.name = name
        stack.callback(_remove, name)  # before it is there: an interrupt may come while it is made
        ip("netns", "add", name)
        self._running = []
        stack.callback(self.end_all)
        self.ip("link", "set", "lo", "up")

    def command(self, arguments):
        """The command line that runs this one here: its process is the program's own."""
        return ["ip", "netns", "exec", self.name, *map(str, arguments)]

    def run(self, arguments, check=True, timeout=PATIENCE, **how):
        """Runs a command to its end; its output is text unless told otherwise."""
        how = {"capture_output": True, "text": True, "stdin": None if "input" in how else subprocess.DEVNULL, **how}
        return subprocess.run(self.command(arguments), check=check, timeout=timeout, **how)

    def popen(self, arguments, **how):
        """Starts a command; it is ended with the Network, if not before."""
        process = subprocess.Popen(self.command(arguments), **{"stdin": subprocess.DEVNULL, **how})
        self._running.append(process)
        return process

    def end_all(self):
        for process in self._running:
            if process.poll() is None:
                process.terminate()
        for process in self._running:
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream:
                    stream.close()
        self._running = []

    def ip(self, *arguments):
        return ip("-n", self.name, *arguments)

    def setting(self, name, value):
        """Sets a kernel setting of this namespace (sysctl)."""
        done = self.run(["sh", "-c", f"echo {value} >/proc/sys/{name.replace('.', '/')}"], check=False)
        if done.returncode != 0:
            raise Unavailable(f"{name} cannot be set: {done.stderr.strip()}")

    def up(self, interface):
        self.ip("link", "set", interface, "up")

    def down(self, interface):
        self.ip("link", "set", interface, "down")

    def counters(self, interface):
        """What the kernel counted on an interface: packets, bytes, drops, each with _in or _out."""
        counted = json.loads(self.ip("-j", "-s", "link", "show", "dev", interface))[0]["stats64"]
        return {f"{name}_{way}": counted[side][key] for way, side in (("in", "rx"), ("out", "tx"))
                for name, key in (("packets", "packets"), ("bytes", "bytes"), ("drops", "dropped"))}


class Interface:
    """A host's interface and its addresses."""

    def __init__(self, space, name, ipv4, ipv6):
        self.name = name
        self.ipv4 = ipv4
        self.ipv6 = ipv6
        self._space = space

    def configure(self):
        self._space.up(self.name)
        self._space.ip("addr", "replace", f"{self.ipv4}/24", "dev", self.name)
        self._space.ip("addr", "replace", f"{self.ipv6}/64", "dev", self.name, "nodad")


class Host(Space):
    """A host: its interface eth0, on the link whose other end, `port`, is the agent's."""

    def __init__(self, name, stack, agent, port, number):
        super().__init__(name, stack)
        self.port = port
        self.number = number
        self._agent = agent
        self._eth0 = Interface(self, "eth0", f"10.77.0.{number}", f"fd77::{number}")
        self.ipv4, self.ipv6 = self._eth0.ipv4, self._eth0.ipv6
        self.setting("net.ipv6.conf.default.accept_dad", 0)
        self.setting("net.ipv6.conf.default.router_solicitations", 0)
        self.plug()

    def configure(self):
        """Puts eth0 up, with its addresses: going down takes those of IPv6 away."""
        self._eth0.configure()

    def plug(self):
        """Makes the link to the agent."""
        ip("link", "add", "eth0", "netns", self.name, "address", f"02:00:00:00:77:{self.number:02x}",
           "type", "veth", "peer", "name", self.port, "netns", self._agent.name)
        self._agent.up(self.port)
        self._eth0.configure()

    def unplug(self):
        """Removes the link to the agent, both ends."""
        self.ip("link", "del", "eth0")

    def vlan(self, *ids):
        """An interface in a VLAN: one id, or the ids of all tags, the outermost first. Frames are made and read by a process
        of its own (vlan_tap.py). Ends with the link; make it anew then."""
        last = ids[-1]
        found = Interface(self, f"vlan{last}", f"10.77.{last % 256}.{self.number}", f"fd77:{last}::{self.number}")
        tagging = self.popen([sys.executable, "-B", VLAN_TAP, found.name, "eth0", *ids], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if tagging.stdout.readline() != "ready\n":
            raise Unavailable(f"{found.name}: {tagging.stderr.read().strip()}")
        self.ip("link", "set", found.name, "mtu", 1500 - 4 * (len(ids) - 1))  # a veth takes one tag beyond its MTU
        found.configure()
        return found


class Network:
    """The hosts a and b, and the agent's namespace between them. Raises Unavailable where that cannot be made."""

    def __init__(self):
        if os.geteuid() != 0:
            raise Unavailable("needs root: network namespaces cannot be made")
        clean()
        self._stack = contextlib.ExitStack()
        owner = f"{PREFIX}-{os.getpid()}-{_start_of(os.getpid())}-{next(_numbers)}"
        try:
            self.agent = Space(f"{owner}-agent", self._stack)
            self.agent.setting("net.ipv6.conf.default.disable_ipv6", 1)  # the agent's ports say nothing of their own
            self.a = Host(f"{owner}-a", self._stack, self.agent, "to-a", 1)
            self.b = Host(f"{owner}-b", self._stack, self.agent, "to-b", 2)
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._stack.close()

    def vlan(self, *ids):
        """Both hosts' interfaces in a VLAN, see Host.vlan()."""
        return self.a.vlan(*ids), self.b.vlan(*ids)


if __name__ == "__main__":
    if sys.argv[1:] != ["--clean"]:
        sys.exit(__doc__)
    for removed in clean():
        print("removed", removed)
