#!/usr/bin/env python3
"""The main job with an installed package, below a folder that holds a whole machine. Called by scripts/check-package, as root.

    package_job.py ROOT CAPTURE

An operator of the group wants the largest flows of the capture in hardware; agent and tracker run as the services' user, without
the rights of root; the counts are held against what flows.py counts in the same capture, and the tracker must have heard samples.
Status 0 only when everything adds up.
"""
import json
import pathlib
import shutil
import socket
import subprocess
import sys
import threading
import time

import flows

PATIENCE = 60  # seconds for what takes one at most
SERVICE, OPERATOR = "pexa:pexa", "daemon:pexa"
ONLY_RAW_PACKETS = ["setpriv", "--reuid=pexa", "--regid=pexa", "--init-groups", "--no-new-privs", "--inh-caps=-all,+net_raw",
                    "--ambient-caps=-all,+net_raw", "--bounding-set=-all,+net_raw"]
WANTED = 3
AGENT = """run_dir = "/run/pexa"
plugins = ["libPexaSampledFlowTracker.so", "libPexaSftAudit.so"]
[[port]]
name = "Ethernet1"
capture = "in.pcap"
[[port]]
name = "Ethernet3"
write = "out.pcap"
[forward]
Ethernet1 = "Ethernet3"
[sflow]
agent = "127.0.0.1"
collectors = ["127.0.0.1:{port}"]
[state."hardware/flowtracking/config/sampled"]
hwOffloadIpv4 = true
hwOffloadIpv6 = true
sampleRate = 5
[state."sflow/hwconfigdir/sampledflowtracker"]
ingressInterfaces = ["Ethernet1"]
egressInterfaces = ["Ethernet3"]
"""
LIVE = """run_dir = "/run/pexa"
[[port]]
name = "Ethernet1"
device = "lo"
"""
TRACKER = """listen = "127.0.0.1:0"
run_dir = "/run/pexa"
[[interface]]
index = 1
name = "Ethernet1"
[[interface]]
index = 2
name = "Ethernet3"
"""


class Failure(Exception):
    """What did not come out as it should."""


def require(what, holds, otherwise=""):
    if not holds:
        raise Failure(f"{what}: no; {otherwise}")
    print(f"  ok  {what}")


def until(look, what):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        if found := look():
            return found
        time.sleep(0.05)
    raise Failure(f"{what}: not within {PATIENCE} s")


class Machine:
    """Programs of the machine below a folder."""

    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.running = []

    def command(self, *arguments, user=None, before=()):
        how = [f"--userspec={user}"] if user else []
        return ["chroot", *how, str(self.root), "/usr/bin/env", "-i", "PATH=/usr/bin:/bin:/usr/sbin:/sbin", *before,
                *map(str, arguments)]

    def run(self, *arguments, user=None, before=(), succeeds=True):
        done = subprocess.run(self.command(*arguments, user=user, before=before), stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, check=False, timeout=PATIENCE)
        if succeeds and done.returncode != 0:
            raise Failure(f"{' '.join(map(str, arguments))}: {done.stderr}")
        return done

    def sft(self, *arguments):
        done = self.run("sft", "--json", *arguments, user=OPERATOR)
        return [json.loads(line) for line in done.stdout.splitlines()]

    def start(self, *arguments, user=None, before=()):
        service = Service(self.command(*arguments, user=user, before=before))
        self.running.append(service)
        return service

    def stop_all(self):
        for service in self.running:
            service.end()


class Service:
    """A daemon whose log is read as it comes."""

    def __init__(self, command):
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.log = []
        self.reader = threading.Thread(target=lambda: self.log.extend(iter(self.process.stderr.readline, "")), daemon=True)
        self.reader.start()

    def said(self, text):
        def look():
            found = [line for line in list(self.log) if text in line]
            if not found and self.process.poll() is not None and not self.reader.is_alive():
                raise Failure(f"{text}: not said before it ended:\n{''.join(self.log)}")
            return found
        return until(look, f"{text}: said in the log")[0]

    def end(self):
        self.process.terminate()
        status = self.process.wait(PATIENCE)
        self.reader.join()
        return status


def write(machine, name, text):
    (machine.root / "var/lib/pexa" / name).write_text(text)
    return f"/var/lib/pexa/{name}"


def main_job(machine, capture):
    for program, name in (("pexa-agent", "agent"), ("flow-tracker", "flow-tracker")):
        checked = machine.run(program, "--config", f"/etc/pexa/{name}.toml", "--check", user=SERVICE)
        require(f"{program} takes its default configuration", checked.stdout.endswith(": ok\n"))
    # As systemd does when the services start.
    machine.run("install", "-d", "-m", "2770", "-o", "pexa", "-g", "pexa", "/run/pexa", "/var/lib/pexa")
    shutil.copy(capture, machine.root / "var/lib/pexa/in.pcap")

    traffic = flows.count(capture)
    largest = [key for key, _ in flows.largest(traffic)][:WANTED]
    for key in largest:
        machine.run("sft", "flow", "want", *flow_arguments(key), user=OPERATOR)
    require(f"an operator in the group wants {WANTED} flows", len(machine.sft("flows", "--state", "waiting")) == WANTED)

    tracker = machine.start("flow-tracker", "--config", write(machine, "tracker.toml", TRACKER), user=SERVICE)
    port = tracker.said("ready: listening on").rsplit(":", 1)[1].strip()
    require("the tracker takes over what is wanted", tracker.said(f"{WANTED} wanted offloads taken over"))
    agent = machine.start("pexa-agent", "--config", write(machine, "agent.toml", AGENT.format(port=port)), user=SERVICE)
    agent.said("replay finished")

    truth = {key: (traffic.flows[key].packets, traffic.flows[key].octets) for key in largest}

    def counted():
        rows = {flows.from_json(row["key"]): (row["packets"], row["bytes"]) for row in machine.sft("counters")}
        return {key: rows.get(key) for key in largest} == truth

    until(counted, "the published counts are those of the capture")
    require(f"each of the {WANTED} flows was counted as it is in the capture", True)
    heard = until(lambda: statistics(machine)["flowSamples"], "the tracker hears samples")
    require(f"the tracker heard samples: {heard}", heard > 0)
    require("both end in order", (agent.end(), tracker.end()) == (0, 0), "".join(agent.log + tracker.log))


def live_port(machine):
    config = write(machine, "live.toml", LIVE)
    refused = machine.run("pexa-agent", "--config", config, user=SERVICE, succeeds=False)
    require("without a right to packet sockets a live port is refused", refused.returncode == 1, refused.stderr)
    agent = machine.start("pexa-agent", "--config", config, before=ONLY_RAW_PACKETS)
    agent.said("ready: 1 ports")
    require("with this right only, as the service has it, a live port opens", agent.end() == 0, "".join(agent.log))


def flow_arguments(key):
    row = flows.to_json(key)
    texts = [f"[{row[end]}]:{row[port]}" if ":" in row[end] else f"{row[end]}:{row[port]}"
             for end, port in (("srcAddr", "srcPort"), ("dstAddr", "dstPort"))]
    return [*texts, "--proto", row["ipProto"], "--vlan", row["vlan"], "--direction", "ingress", "--interface", "Ethernet1"]


def statistics(machine):
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(PATIENCE)
        client.connect(str(machine.root / "run/pexa/flow-tracker.sock"))
        client.sendall(b'{"request":"statistics"}\n')
        with client.makefile("r") as answer:
            return json.loads(answer.readline())["row"]


def main():
    machine = Machine(sys.argv[1])
    try:
        main_job(machine, sys.argv[2])
        live_port(machine)
    except Failure as failure:
        print(f"package_job: {failure}", file=sys.stderr)
        return 1
    finally:
        machine.stop_all()
    return 0


if __name__ == "__main__":
    sys.exit(main())
