"""How soon the agent decides its first packet after exec, and what a flow in hardware takes of memory."""
import contextlib
import os
import pathlib
import re
import signal
import statistics
import subprocess
import sys

from bench_programs import PATIENCE, AgentRun
from bench_report import Row
from namespaces import Network, Unavailable
from programs import Failure, Program, until

GROUP = "start"
MEMORY = "memory"
PER_FLOW_BEYOND_RECORDS = 256  # four cache lines
RECORD_BYTES = {"hoIpFlowConfig": 56, "hoIp6FlowConfig": 80, "hoIpFlowStatus": 72, "hoIp6FlowStatus": 96, "hoIpFlowCounter": 88,
                "hoIp6FlowCounter": 112}
RATE = 20_000  # packets a second that wait to be forwarded
# Tells when it has become the program that it is given, in nanoseconds of the steady clock.
EXEC = "import os, sys, time; print('exec', time.monotonic_ns(), flush=True); os.execv(sys.argv[1], sys.argv[1:])"
WATCH = """import socket, time
one = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
one.bind(("0.0.0.0", 9000))
print("ready", flush=True)
one.recv(1)
print(time.monotonic_ns(), flush=True)"""


def measure(setting):
    flows = 1_000 if setting.quick else 1_000_000
    run = AgentRun(setting, "start", setting.traffic(flows, flows if setting.quick else 2 * flows), egress=False)
    try:
        yield from _start(setting, run, "empty tables", 0.05)
        run.want()
        yield from _fill(run, flows)
        yield from _start(setting, run, f"{flows:,} records left", 1.5)
    finally:
        run.forget()


def _start(setting, run, what, most):
    name = f"exec to the first packet, {what}"
    try:
        with Network() as net:
            took = [_first_packet(setting, run, net) for _ in range(setting.runs)]
    except Unavailable as reason:
        yield Row(GROUP, name, None, note=str(reason))
        return
    yield Row(GROUP, name, statistics.median(took) * 1e3, "ms", most=most * 1e3, note="a live port")


def _first_packet(setting, run, net):
    """Packets come all the while; seconds from exec to when the first has come out at the other port."""
    config = run.directory / "live.toml"
    text = run.config.read_text()
    text = re.sub('capture = ".*"', f'device = "{net.a.port}"', text)
    config.write_text(re.sub('write = ".*"', f'device = "{net.b.port}"', text))
    net.a.ip("neigh", "replace", net.b.ipv4, "lladdr", f"02:00:00:00:77:{net.b.number:02x}", "dev", "eth0", "nud", "permanent")
    watch = net.b.popen([sys.executable, "-c", WATCH], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    if watch.stdout.readline() != "ready\n":
        raise Failure("the watcher has not started")
    sender = net.a.popen([setting.program("live_load"), "send", "--to", net.b.ipv4, "--packets", RATE * PATIENCE, "--rate", RATE, "--flows", 1],
                         stdout=subprocess.DEVNULL)
    log = run.directory / "live.log"
    log.unlink(missing_ok=True)
    agent = Program("pexa-agent", net.agent.command([*setting.prefix, sys.executable, "-I", "-S", "-c", EXEC, setting.program("pexa-agent"),
                                                     "--config", config]), log, {**os.environ, **AgentRun.ENVIRONMENT})
    try:
        came = int(watch.stdout.readline())
        return (came - int(re.search(r"exec (\d+)", agent.said())[1])) / 1e9
    except TypeError:
        raise Failure(f"pexa-agent has not started:\n{agent.said()}") from None
    finally:
        sender.kill()
        agent.end(signal.SIGKILL)


def _fill(run, flows):
    """Lets all flows into hardware, tells what they take, and leaves the tables as a crash does."""
    agent = run.start()
    try:
        until(lambda: _anonymous(agent.pid), PATIENCE, "the agent has not started", [agent])
        until(lambda: _in_hardware(run) == flows, PATIENCE, "not all flows get into hardware", [agent])
        run.await_replay(agent)
        yield from _memory(run, agent, flows)
    finally:
        agent.end(signal.SIGKILL)


def _in_hardware(run):
    with contextlib.suppress(Failure):
        return sum(row["count"] for row in run.sft("states") if row["stateName"] == "in hardware")
    return 0


def _table_bytes(run):
    """Memory of the tables' files, by collection."""
    found = {}
    for file in (run.run_dir / "tables").rglob("*"):
        if file.is_file():
            found[file.name] = file.stat().st_blocks * 512
    return found


def _anonymous(pid):
    found = re.search(r"RssAnon:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/status").read_text())
    return int(found[1]) * 1024 if found else 0


def _memory(run, agent, flows):
    families = {"IPv4": flows * 3 // 4, "IPv6": flows - flows * 3 // 4}  # as the traffic is made
    table_bytes = _table_bytes(run)
    total = 0
    records = 0
    for collection, size in RECORD_BYTES.items():
        of = families["IPv6" if "Ip6" in collection else "IPv4"]
        taken = table_bytes[collection]
        total += taken
        records += size * of
        yield Row(MEMORY, f"{collection}, a flow", taken / of, "bytes", note=f"the record has {size}")
    own = _anonymous(agent.pid)
    total += own
    yield Row(MEMORY, "the agent's own memory, a flow", own / flows, "bytes", note="local counters, their map, and all else that is not shared")
    yield Row(MEMORY, "beyond the records, a flow", (total - records) / flows, "bytes", most=PER_FLOW_BEYOND_RECORDS,
              note=f"{total / 1e6:.0f} MB for {flows:,} flows, a quarter IPv6")
