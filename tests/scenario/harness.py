"""Drives the built programs from outside: run directories, agents, the operator's command line, captures.

The build folder comes from SFT_BUILD_DIR. Real captures are looked for in SFT_REAL_CAPTURES (/work/shared/captures unless
given); tests that need them are skipped, with a message, where there are none. Nothing here sleeps: an agent is waited for by
reading what it logs and by asking again.
"""
import json
import os
import pathlib
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import flows  # noqa: E402  (the path above leads to it)

BUILD = pathlib.Path(os.environ.get("SFT_BUILD_DIR", ROOT / "build/dev"))
AGENT = BUILD / "bin/pexa-agent"
SFT = BUILD / "bin/sft"
PLUGIN = BUILD / "lib/libPexaSampledFlowTracker.so"
AUDIT = BUILD / "lib/libPexaSftAudit.so"
OWN_CAPTURES = ROOT / "tests/captures"
REAL_CAPTURES = pathlib.Path(os.environ.get("SFT_REAL_CAPTURES", "/work/shared/captures"))

STATUS = "flowtracking/sampled/hwOffload/status"
CONFIG = "flowtracking/sampled/hwOffload/config"
COUNTER = "flowtracking/sampled/hwOffload/counter/hfc"
STATES = "flowtracking/sampled/hwOffload/counter/status"
TRACKING = "hardware/flowtracking/config/sampled"
SAMPLING = "sflow/hwconfigdir/sampledflowtracker"
COLLECTIONS = {  # of IPv4, of IPv6
    CONFIG: ("hoIpFlowConfig", "hoIp6FlowConfig"),
    STATUS: ("hoIpFlowStatus", "hoIp6FlowStatus"),
    COUNTER: ("hoIpFlowCounter", "hoIp6FlowCounter"),
    STATES: ("hosStateIpCounter", "hosStateIp6Counter"),
}
IN_HARDWARE, OVERFLOW = 2, 3
INGRESS, EGRESS = 1, 2
BUDGET = "MAX_HO_FLOW_ENTRIES"  # in an agent's environment: flows of a family that may be in hardware
PATIENCE = 120  # seconds; only a test that fails waits that long


def udp_frame(source, destination, sport, dport, payload=b"", vlan=None):
    """An Ethernet frame with an IPv4 UDP datagram."""
    udp = struct.pack("!HHHH", sport, dport, 8 + len(payload), 0) + payload
    addresses = bytes(map(int, source.split("."))) + bytes(map(int, destination.split(".")))
    ip = struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0) + addresses
    tag = struct.pack("!HH", 0x8100, vlan) if vlan is not None else b""
    return bytes(6) + b"\x02" + bytes(5) + tag + b"\x08\x00" + ip + udp


def write_capture(path, frames, link=1, cut=0, times=None):
    """A pcap file of these frames, without its last `cut` bytes."""
    parts = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, link)]
    for number, frame in enumerate(frames):
        seconds = times[number] if times else number
        parts += [struct.pack("<IIII", int(seconds), int(seconds % 1 * 1e6), len(frame), len(frame)), frame]
    data = b"".join(parts)
    pathlib.Path(path).write_bytes(data[: len(data) - cut])


def flow_key(source, destination, sport, dport, vlan=1, proto=17):
    """A flow key as `sft` reads and writes it."""
    return {"vrfId": flows.DEFAULT_VRF, "vlan": vlan, "srcAddr": source, "dstAddr": destination, "ipProto": proto,
            "srcPort": sport, "dstPort": dport}


def status(key, direction=INGRESS, intf="Ethernet1", state=IN_HARDWARE):
    return {"key": {"ipFlowKey": key, "direction": direction, "intfId": intf}, "state": state}


def is_ipv6(key):
    """Whether a key, of a flow or of an offload, is of IPv6."""
    return ":" in key.get("ipFlowKey", key)["srcAddr"]


def wanted(key, direction=INGRESS, intf="Ethernet1"):
    return {"key": {"ipFlowKey": key, "direction": direction, "intfId": intf}}


def counter(key, packets, octets, intf="Ethernet1", references=1, created=1.0, updated=2.0):
    return {"key": key, "intfId": intf, "packets": packets, "bytes": octets, "creationTime": created, "lastUpdateTime": updated,
            "hosEntries": references}


def offload_of(record):
    """The (flow, direction, interface) of a wanted offload or a status."""
    key = record["key"]
    return flows.from_json(key["ipFlowKey"]), key["direction"], key["intfId"]


class Finished:
    """A command that has run."""

    def __init__(self, process):
        self.code = process.returncode
        self.out = process.stdout
        self.err = process.stderr

    def rows(self):
        return [json.loads(line) for line in self.out.splitlines()]


class Agent:
    """A running pexa-agent, or another program of its kind, whose log is read as it comes."""
    PROGRAM = AGENT

    def __init__(self, arguments, environment=None):
        self.process = subprocess.Popen(self.command(arguments), stdin=subprocess.DEVNULL, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        env={**os.environ, **(environment or {})})
        self.log = []
        self.over = False
        self.changed = threading.Condition()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def command(self, arguments):
        return [str(self.PROGRAM), *map(str, arguments)]

    def _read(self):
        for line in self.process.stderr:
            with self.changed:
                self.log.append(line.rstrip("\n"))
                self.changed.notify_all()
        with self.changed:
            self.over = True
            self.changed.notify_all()

    def said(self, *texts):
        """The lines of the log that hold one of the texts."""
        return [line for line in self.log if any(text in line for text in texts)]

    def wait_for(self, *texts, lines=1):
        """Waits until so many lines of the log hold one of the texts, and gives them."""
        with self.changed:
            self.changed.wait_for(lambda: self.over or len(self.said(*texts)) >= lines, PATIENCE)
            if len(self.said(*texts)) < lines:
                raise AssertionError(f"{self.PROGRAM.name} has not said {' or '.join(texts)}:\n" + "\n".join(self.log))
            return self.said(*texts)

    def wait_ready(self):
        return self.wait_for(": ready: ")

    def wait_replayed(self, ports=1):
        """Waits for the end of so many replays, finished or damaged."""
        return self.wait_for("replay finished", "before the damage were replayed", lines=ports)

    def end(self, how=signal.SIGTERM):
        """Ends it, and gives its status."""
        if self.process.poll() is None:
            self.process.send_signal(how)
        return self.wait()

    def wait(self):
        """Its status, when it has left by itself."""
        try:
            return self.process.wait(PATIENCE)
        finally:
            self.close()

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.reader.join()
        self.process.stdout.close()
        self.process.stderr.close()


class ScenarioTest(unittest.TestCase):
    """A test with a folder of its own, in memory, in which its agents run and leave nothing behind."""

    def setUp(self):
        where = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="sft-scenario-", dir=where))
        self.addCleanup(shutil.rmtree, self.dir)
        self.run_dir = self.dir / "run"
        self.config = self.dir / "agent.toml"

    # Configuration

    def write_config(self, ports, forward=None, state=None, extra="", plugins=(PLUGIN,), rate=0, top=""):
        """Ports are (name, kind, source) or (name, kind, source, vlan). Both families are offloaded and all ports sampled,
        unless `state` (path -> attributes) says otherwise."""
        quote = json.dumps  # a JSON string is a TOML string
        names = [port[0] for port in ports]
        if state is None:
            state = {TRACKING: {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": rate},
                     SAMPLING: {"ingressInterfaces": names, "egressInterfaces": names}}
        lines = [top, f"run_dir = {quote(str(self.run_dir))}", f"plugins = {quote([str(each) for each in plugins])}"]
        for name, kind, source, *vlan in ports:
            lines += ["[[port]]", f"name = {quote(name)}", f"{kind} = {quote(str(source))}"]
            lines += [f"vlan = {vlan[0]}"] if vlan else []
        if forward:
            lines += ["[forward]"] + [f"{quote(left)} = {quote(right)}" for left, right in forward.items()]
        for path, attributes in state.items():
            lines += [f"[state.{quote(path)}]"] + [f"{name} = {quote(value)}" for name, value in attributes.items()]
        self.config.write_text("\n".join(lines) + "\n" + extra)

    def write_capture(self, name, frames, **how):
        write_capture(self.dir / name, frames, **how)
        return self.dir / name

    # Programs

    def start(self, *arguments, environment=None):
        agent = Agent(["--config", self.config, *arguments], environment)
        self.addCleanup(agent.close)
        return agent

    def start_replayed(self, *arguments, replays=1, environment=None):
        """An agent that has replayed its captures and goes on."""
        agent = self.start(*arguments, environment=environment)
        agent.wait_ready()
        agent.wait_replayed(replays)
        return agent

    def refused(self, *arguments):
        """Starts an agent that must refuse to; gives the one line it says."""
        agent = self.start(*arguments)
        code = agent.wait()
        self.assertNotEqual(code, 0)
        self.assertEqual(len(agent.log), 1, agent.log)
        return agent.log[0]

    def sft_any(self, *arguments, text=None, environment=None):
        command = [str(SFT), "--run-dir", str(self.run_dir), *map(str, arguments)]
        return Finished(subprocess.run(command, input=text, capture_output=True, text=True, check=False, timeout=PATIENCE,
                                       stdin=None if text is not None else subprocess.DEVNULL,
                                       env={**os.environ, **(environment or {})}))

    def sft(self, *arguments, text=None):
        """The rows of `sft --json`, which must succeed."""
        done = self.sft_any("--json", *arguments, text=text)
        self.assertEqual((done.code, done.err), (0, ""), arguments)
        return done.rows()

    def sft_refused(self, *arguments, text=None):
        """The one line that `sft` says when it must refuse."""
        done = self.sft_any(*arguments, text=text)
        self.assertNotEqual(done.code, 0, arguments)
        self.assertEqual(done.out, "")
        self.assertEqual(done.err.count("\n"), 1, done.err)
        return done.err.rstrip("\n")

    # Flows

    def put(self, records, path=STATUS):
        """Puts records of both families into their collections."""
        for collection, colon in zip(COLLECTIONS[path], (False, True)):
            lines = [json.dumps(each) for each in records if is_ipv6(each["key"]) == colon]
            if lines:
                self.assertEqual(self.sft("table", "put", path, collection, text="\n".join(lines) + "\n"),
                                 [{"put": len(lines)}])

    def want(self, records):
        """Publishes wanted offloads, as a flow tracker does."""
        self.put(records, CONFIG)

    def unwant(self, records):
        """Withdraws wanted offloads."""
        for collection, colon in zip(COLLECTIONS[CONFIG], (False, True)):
            lines = [json.dumps(each["key"]) for each in records if is_ipv6(each["key"]) == colon]
            if lines:
                self.assertEqual(self.sft("table", "del", CONFIG, collection, text="\n".join(lines) + "\n"),
                                 [{"deleted": len(lines), "absent": 0}])

    def states(self):
        """What became of each wanted offload: (flow, direction, interface) -> state."""
        return {offload_of(row): row["state"] for row in self.sft("status")}

    def eventually(self, look, expected):
        """Looks until it sees what is expected."""
        deadline = time.monotonic() + PATIENCE
        found = look()
        while found != expected and time.monotonic() < deadline:
            found = look()
        self.assertEqual(found, expected)

    def local(self):
        """The local counters: FlowKey -> (packets, bytes)."""
        return {flows.from_json(row["key"]): (row["packets"], row["bytes"]) for row in self.sft("local")}

    def published(self):
        """The published counters, as local() gives the agent's own."""
        return {flows.from_json(row["key"]): (row["packets"], row["bytes"]) for row in self.sft("counters")}

    def state_counts(self):
        """(family, state) -> flows, as published."""
        return {(row["family"], row["key"]["state"]): row["count"] for row in self.sft("states")}

    def ports(self):
        return {row["name"]: row for row in self.sft("ports")}

    def reasons(self):
        return {(row["category"], row["source"], row["reason"]): row["count"] for row in self.sft("reasons")}

    def damage(self, table, collection):
        """Spoils a byte of each record of Ethernet1; the file stays a table."""
        with open(self.run_dir / "tables" / table / collection, "r+b") as file:
            at = 0
            while True:  # the file is large and has little in it
                try:
                    at = os.lseek(file.fileno(), at, os.SEEK_DATA)
                except OSError:
                    return
                page = os.pread(file.fileno(), 4096, at)
                for match in re.finditer(b"Ethernet1", page):
                    os.pwrite(file.fileno(), b"F", at + match.start())
                at += len(page)


def skip_without(path):
    """Skips a test whose captures are not on this machine."""
    return unittest.skipUnless(path.is_dir(), f"no captures in {path}")
