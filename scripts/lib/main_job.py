#!/usr/bin/env python3
"""The main job, shown: a capture through the forwarding agent with about half of its flows in hardware.

Called by scripts/run, which builds first. Prepares a run directory, puts the flows with the most packets into the table
of offload status, lets the agent replay the capture from Ethernet1 to Ethernet3 with the plugin loaded, and holds what the
programs say against what flows.py counts in the same capture. Status 0 only when everything adds up.
"""
import argparse
import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

import flows

IN_HARDWARE = 2
INGRESS = 1
STATUS_TABLE = "flowtracking/sampled/hwOffload/status"
IN_PORT, OUT_PORT = "Ethernet1", "Ethernet3"


class Failure(Exception):
    """Something did not work; the text says what."""


class Collector(threading.Thread):
    """An sFlow v5 collector that counts the flow samples that reach it."""

    def __init__(self):
        super().__init__(daemon=True)
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for option in (33, socket.SO_RCVBUF):  # 33: SO_RCVBUFFORCE, which only root may use
            try:
                self.socket.setsockopt(socket.SOL_SOCKET, option, 64 << 20)
                break
            except PermissionError:
                continue
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.datagrams = 0
        self.samples = 0
        self.over = False

    def run(self):
        self.socket.settimeout(0.2)
        while True:
            try:
                datagram = self.socket.recv(65535)
            except socket.timeout:
                if self.over:
                    return
                continue
            self.datagrams += 1
            self.samples += self._flow_samples(datagram)

    @staticmethod
    def _flow_samples(datagram):
        version, address_type = struct.unpack_from("!II", datagram)
        if version != 5:
            return 0
        at = 8 + (4 if address_type == 1 else 16) + 12  # sub-agent, sequence number, uptime
        (count,) = struct.unpack_from("!I", datagram, at)
        at += 4
        found = 0
        for _ in range(count):
            kind, length = struct.unpack_from("!II", datagram, at)
            found += kind in (1, 3)  # flow sample, expanded flow sample
            at += 8 + length
        return found

    def finish(self):
        """Waits until all that was sent to it is counted; the sender must be gone."""
        self.over = True
        self.join()


class Bench:
    """A run directory and the programs that work in it."""

    def __init__(self, build, directory):
        self.agent_program = build / "bin/pexa-agent"
        self.sft_program = build / "bin/sft"
        self.plugin = build / "lib/libPexaSampledFlowTracker.so"
        self.directory = directory
        self.config = directory / "agent.toml"
        self.log = directory / "agent.log"
        self.written = directory / "out.pcap"
        self.agent = None

    def sft(self, *arguments, text=None):
        """The objects that `sft --json` prints."""
        command = [str(self.sft_program), "--run-dir", str(self.directory), "--json", *arguments]
        done = subprocess.run(command, input=text, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{' '.join(command)}\n  ended with status {done.returncode}: {done.stderr.strip()}")
        try:
            return [json.loads(line) for line in done.stdout.splitlines() if line.strip()]
        except ValueError as error:
            raise Failure(f"{' '.join(command)}\n  printed what is not a JSON object a line: {error}") from error

    def into_hardware(self, keys):
        """Flows' offload status, both families."""
        for collection, address_bytes in (("hoIpFlowStatus", 4), ("hoIp6FlowStatus", 16)):
            records = [
                {"key": {"ipFlowKey": flows.to_json(key), "direction": INGRESS, "intfId": IN_PORT}, "state": IN_HARDWARE}
                for key in keys
                if len(key.src) == address_bytes
            ]
            self.sft("table", "put", STATUS_TABLE, collection, text="".join(json.dumps(r) + "\n" for r in records))

    def write_config(self, capture, rate, collector_port):
        quote = json.dumps  # a JSON string is a TOML string
        self.config.write_text(
            f"""run_dir = {quote(str(self.directory))}
plugins = [{quote(str(self.plugin))}]

[[port]]
name = "{IN_PORT}"
capture = {quote(str(capture))}
[[port]]
name = "{OUT_PORT}"
write = {quote(str(self.written))}

[forward]
{IN_PORT} = "{OUT_PORT}"

[sflow]
agent = "127.0.0.1"
collectors = ["127.0.0.1:{collector_port}"]

[state."hardware/flowtracking/config/sampled"]
hwOffloadIpv4 = true
hwOffloadIpv6 = true
sampleRate = {rate}
[state."sflow/hwconfigdir/sampledflowtracker"]
ingressInterfaces = ["{IN_PORT}"]
egressInterfaces = ["{OUT_PORT}"]
"""
        )

    def start(self):
        with open(self.log, "wb") as log:
            self.agent = subprocess.Popen(
                [str(self.agent_program), "--config", str(self.config), "--run-dir", str(self.directory)],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=subprocess.STDOUT,
                start_new_session=True,  # Ctrl-C is ours
            )

    def await_replay(self, seconds):
        """The rows of `ports`, by name, once the capture is replayed."""
        deadline = time.monotonic() + seconds
        while True:
            if self.agent.poll() is not None:
                raise Failure(f"pexa-agent ended with status {self.agent.returncode}")
            try:
                ports = {row["name"]: row for row in self.sft("ports")}
                if ports[IN_PORT]["replay"] != "running":
                    return ports
                trouble = "the replay is still running"
            except Failure as error:  # the control socket may not be there yet
                trouble = str(error)
            if time.monotonic() > deadline:
                raise Failure(f"after {seconds} seconds: {trouble}")
            time.sleep(0.03)

    def stop(self):
        """Ends the agent in order; its status."""
        if self.agent is None:
            return 0
        if self.agent.poll() is None:
            self.agent.terminate()
        try:
            return self.agent.wait(30)
        except subprocess.TimeoutExpired:
            self.agent.kill()
            self.agent.wait()
            raise Failure("pexa-agent did not end within 30 seconds of SIGTERM") from None


class Page:
    """Text for a terminal, plain elsewhere."""

    def __init__(self):
        self.colour = sys.stdout.isatty() and "NO_COLOR" not in os.environ

    def paint(self, code, text):
        return f"\x1b[{code}m{text}\x1b[0m" if self.colour else text

    def head(self, text):
        print("\n" + self.paint("1", text))

    def row(self, label, value, note=""):
        print(f"  {label:<38}{value:>10}  {self.paint('2', note)}".rstrip())

    def share(self, label, value, whole):
        part = value / whole if whole else 0.0
        bar = "█" * round(30 * part)
        self.row(label, f"{value:,}", f"{100 * part:5.1f} %  {bar}")


class Checks:
    """What must add up."""

    def __init__(self, page):
        self.page = page
        self.failed = 0

    def equal(self, what, left, right):
        good = left == right
        self.failed += not good
        mark = self.page.paint("32", "ok  ") if good else self.page.paint("31", "FAIL")
        print(f"  {mark} {what}" + ("" if good else f": {left} is not {right}"))


class Outcome:
    """What the running agent says."""

    def __init__(self, bench, ports):
        self.ports = ports
        self.reasons = bench.sft("reasons")
        self.samples = bench.sft("samples")
        self.local = {}
        for row in bench.sft("local"):
            self.local[flows.from_json(row["key"])] = (row["packets"], row["bytes"])

    def reason(self, category, reason):
        return sum(row["count"] for row in self.reasons if (row["category"], row["reason"]) == (category, reason))

    def sampler(self, port, direction):
        for row in self.samples:
            if (row["intfId"], row["direction"]) == (port, direction):
                return row
        return {"rate": 0, "pool": 0, "samples": 0, "drops": 0}


def show(page, outcome, top):
    entered = outcome.ports[IN_PORT]["packetsIn"]
    hardware = sum(packets for packets, _ in outcome.local.values())
    octets = sum(count for _, count in outcome.local.values())
    ingress = outcome.sampler(IN_PORT, "ingress")

    page.head("Packets, by outcome on the way in")
    page.row(f"entered on {IN_PORT}", f"{entered:,}", f"{outcome.ports[IN_PORT]['bytesIn']:,} bytes")
    page.share("in hardware: counted, not sampled", hardware, entered)
    page.share(f"sampled, one in {ingress['rate']}", ingress["samples"], entered)
    page.share("left to sampling, not drawn", ingress["pool"] - ingress["samples"], entered)
    page.row(f"left on {OUT_PORT}", f"{outcome.ports[OUT_PORT]['packetsOut']:,}", f"{outcome.ports[OUT_PORT]['bytesOut']:,} bytes")

    ranked = sorted(outcome.local.items(), key=lambda item: (-item[1][0], -item[1][1], item[0]))
    page.head(f"Flows counted in hardware: {len(ranked)}" + (f", the first {top}" if len(ranked) > top else ""))
    print(page.paint("2", f"  {'packets':>9} {'octets':>12}  flow"))
    for key, (packets, count) in ranked[:top]:
        print(f"  {packets:>9,} {count:>12,}  {flows.text(key)}")
    print(page.paint("1", f"  {hardware:>9,} {octets:>12,}  all {len(ranked)}"))

    page.head("Samples taken")
    print(page.paint("2", f"  {'interface':<12}{'direction':<11}{'one in':>8}{'packets':>10}{'taken':>9}{'dropped':>9}"))
    for row in sorted(outcome.samples, key=lambda row: (row["intfId"], row["direction"] != "ingress")):
        print(f"  {row['intfId']:<12}{row['direction']:<11}{row['rate']:>8,}{row['pool']:>10,}{row['samples']:>9,}{row['drops']:>9,}")

    page.head("Reasons counted, both directions")
    for row in sorted(outcome.reasons, key=lambda row: (row["category"], -row["count"], row["reason"])):
        print(f"  {row['category']:<8}{row['source']:<6}{row['reason'].strip():<36}{row['count']:>10,}")


def check_running(checks, outcome, traffic, chosen):
    entered = outcome.ports[IN_PORT]["packetsIn"]
    hardware = sum(packets for packets, _ in outcome.local.values())
    pool = outcome.sampler(IN_PORT, "ingress")["pool"]
    expected = {key: (traffic.flows[key].packets, traffic.flows[key].octets) for key in chosen}
    checks.equal("the capture is whole", outcome.ports[IN_PORT]["replay"], "finished")
    checks.equal(f"every packet of the capture entered: {entered:,}", entered, traffic.packets)
    checks.equal(f"packets in = in hardware + left to sampling: {entered:,} = {hardware:,} + {pool:,}", entered, hardware + pool)
    differing = {key for key in expected.keys() | outcome.local.keys() if expected.get(key) != outcome.local.get(key)}
    checks.equal(f"packets and octets of each flow in hardware are the capture's own: {len(expected)} flows", len(differing), 0)
    for family in ("IPv4", "IPv6"):
        counted = outcome.reason("Action", f" Offloading {family}")
        checks.equal(f"{family} packets were looked at once a direction: {counted:,}", counted, 2 * traffic.family[family])
    left = outcome.ports[OUT_PORT]["packetsOut"]
    checks.equal(f"every packet left again: {left:,}", left, entered)


def check_ended(checks, bench, outcome, collector, status):
    checks.equal("pexa-agent ended in order", status, 0)
    written = sum(1 for _ in flows.frames(bench.written))
    checks.equal(f"the capture written holds them all: {written:,}", written, outcome.ports[OUT_PORT]["packetsOut"])
    sent = sum(row["samples"] for row in outcome.samples)
    checks.equal(
        f"every sample reached the collector: {collector.samples:,} in {collector.datagrams:,} datagrams", collector.samples, sent
    )


def show_commands(page, bench, root, keep):
    page.head("Try next")
    if keep:
        print(f"  export PEXA_RUN_DIR={bench.directory}")
    else:
        print(f"  {'scripts/run --keep':<66} {page.paint('2', '# the agent stays up; export the PEXA_RUN_DIR that it prints, then')}")
    sft = os.path.relpath(bench.sft_program, root)
    for command, purpose in (
        ("table list", "the shared tables: type, entries, writer"),
        ("local", "the flows counted in hardware"),
        ("reasons", "why packets were treated as they were"),
        ("state get hardware/flowtracking/config/sampled", "the configuration in force"),
        ("trace", "what the agent did: its trace ring"),
        (f"table dump {STATUS_TABLE} hoIpFlowStatus", "every offload status"),
    ):
        print(f"  {sft + ' ' + command:<66} {page.paint('2', '# ' + purpose)}")
    if not keep:
        print(f"  {'scripts/run path/to/capture.pcapng':<66} {page.paint('2', '# a capture of your own (Ethernet)')}")
    print("  " + page.paint("2", "docs/operating.md says more."))


def await_interrupt():
    stop = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: stop.set())
    print("\nThe agent is up; Ctrl-C ends it.", flush=True)
    stop.wait()
    print()


def run(bench, root, arguments, page):
    traffic = flows.count(arguments.capture)
    ranked = flows.largest(traffic)
    chosen = [key for key, _ in ranked[: (len(ranked) + 1) // 2]]
    collector = Collector()
    collector.start()

    page.head(f"{os.path.relpath(arguments.capture)}: {traffic.packets:,} packets, {len(ranked):,} flows, {len(chosen):,} of them put into hardware")
    print(page.paint("2", f"  {IN_PORT} (replay) -> pexa-agent with {bench.plugin.name} -> {OUT_PORT} (capture written)"))
    bench.into_hardware(chosen)
    bench.write_config(arguments.capture, arguments.sample_rate, collector.port)
    bench.start()
    ports = bench.await_replay(60 + arguments.capture.stat().st_size / 1e6)
    outcome = Outcome(bench, ports)
    show(page, outcome, arguments.top)

    page.head("Does it add up?")
    checks = Checks(page)
    check_running(checks, outcome, traffic, chosen)
    if arguments.keep:
        show_commands(page, bench, root, True)
        await_interrupt()
    status = bench.stop()
    collector.finish()
    check_ended(checks, bench, outcome, collector, status)
    if traffic.damage:
        print(f"  {arguments.capture}: {traffic.damage}")
    if not arguments.keep:
        show_commands(page, bench, root, False)
    return checks.failed == 0


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{text}: expected 1 or more")
    return number


def main():
    parser = argparse.ArgumentParser(prog="scripts/run", description=__doc__.split("\n\n")[0])
    parser.add_argument("capture", nargs="?", type=pathlib.Path, help="the capture to replay (tests/captures/mixed.pcap)")
    parser.add_argument("--keep", action="store_true", help="leave the agent and its run directory up until Ctrl-C")
    parser.add_argument("--sample-rate", type=positive, default=10, help="one packet in so many (10)")
    parser.add_argument("--top", type=positive, default=10, help="flows to show (10)")
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
