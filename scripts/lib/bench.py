"""A run directory, the programs that work in it, and a collector for what they export."""
import json
import os
import signal
import socket
import struct
import subprocess
import threading
import time

import flows

IN_HARDWARE, OVERFLOW = 2, 3
INGRESS = 1
CONFIG_TABLE = "flowtracking/sampled/hwOffload/config"
IN_PORT, OUT_PORT = "Ethernet1", "Ethernet3"
BUDGET = "MAX_HO_FLOW_ENTRIES"


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
        self.start()

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
        self.socket.close()


class Bench:
    """A run directory and the programs that work in it."""

    def __init__(self, build, directory):
        self.agent_program = build / "bin/pexa-agent"
        self.sft_program = build / "bin/sft"
        self.plugin = build / "lib/libPexaSampledFlowTracker.so"
        self.audit = build / "lib/libPexaSftAudit.so"
        self.directory = directory
        self.config = directory / "agent.toml"
        self.log = directory / "agent.log"
        self.written = directory / "out.pcap"
        self.agent = None

    def sft_text(self, *arguments, text=None):
        """What `sft` prints."""
        command = [str(self.sft_program), "--run-dir", str(self.directory), *arguments]
        done = subprocess.run(command, input=text, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{' '.join(command)}\n  ended with status {done.returncode}: {done.stderr.strip()}")
        return done.stdout

    def sft(self, *arguments, text=None):
        """The objects that `sft --json` prints."""
        printed = self.sft_text("--json", *arguments, text=text)
        try:
            return [json.loads(line) for line in printed.splitlines() if line.strip()]
        except ValueError as error:
            raise Failure(f"sft {' '.join(arguments)}\n  printed what is not a JSON object a line: {error}") from error

    def want(self, keys):
        """Publishes wanted offloads of both families, as a flow tracker does: another process than the agent."""
        for collection, address_bytes in (("hoIpFlowConfig", 4), ("hoIp6FlowConfig", 16)):
            records = [{"key": {"ipFlowKey": flows.to_json(key), "direction": INGRESS, "intfId": IN_PORT},
                        "requestTime": time.time()} for key in keys if len(key.src) == address_bytes]
            if records:
                self.sft("table", "put", CONFIG_TABLE, collection, text="".join(json.dumps(each) + "\n" for each in records))

    @staticmethod
    def want_arguments(key):
        """A flow as the arguments of `sft flow want` and `unwant`."""
        ends, _, rest = flows.text(key).partition(f" {flows.protocol(key)} vlan ")
        source, destination = ends.split(" -> ")
        return [source, destination, "--proto", flows.protocol(key), "--vlan", rest, "--direction", "ingress", "--interface",
                IN_PORT]

    def states(self):
        """The state of each flow that has a status."""
        return {flows.from_json(row["key"]["ipFlowKey"]): row["state"] for row in self.sft("status")}

    def counts(self, view):
        """(packets, bytes) of each flow that "local" or "counters" knows."""
        return {flows.from_json(row["key"]): (row["packets"], row["bytes"]) for row in self.sft(view)}

    def write_config(self, capture, rate, collector_port):
        quote = json.dumps  # a JSON string is a TOML string
        self.config.write_text(
            f"""run_dir = {quote(str(self.directory))}
plugins = [{quote(str(self.plugin))}, {quote(str(self.audit))}]

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
[state."flowtracking/audit/sampled"]
afterRestart = "repair"
"""
        )

    def start(self, budget):
        with open(self.log, "ab") as log:
            self.agent = subprocess.Popen(
                [str(self.agent_program), "--config", str(self.config), "--run-dir", str(self.directory)],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=subprocess.STDOUT,
                env={**os.environ, BUDGET: str(budget)},
                start_new_session=True,  # Ctrl-C is ours
            )

    def until(self, look, seconds, trouble):
        """Looks until it sees something true, and gives it, with the seconds that it took."""
        began = time.monotonic()
        while True:
            if self.agent.poll() is not None:
                raise Failure(f"pexa-agent ended with status {self.agent.returncode}")
            found = look()
            took = time.monotonic() - began
            if found:
                return found, took
            if took > seconds:
                raise Failure(f"after {seconds:.0f} seconds: {trouble}")
            time.sleep(0.03)

    def await_replay(self, seconds):
        """The rows of `ports`, by name, once the capture is replayed."""

        def replayed():
            try:
                ports = {row["name"]: row for row in self.sft("ports")}
            except Failure:  # the control socket may not be there yet
                return None
            return ports if ports[IN_PORT]["replay"] != "running" else None

        return self.until(replayed, seconds, "the agent does not answer, or is still replaying")[0]

    def kill(self):
        """Ends the agent as a crash would."""
        self.agent.send_signal(signal.SIGKILL)
        self.agent.wait()

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
