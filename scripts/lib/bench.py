"""A folder with a run directory and the programs that work in it: the agent, the flow tracker, and the collector of its flow records."""
import json
import os
import pathlib
import signal
import subprocess

import flows
import tracker
from collectors import Nfcapd
from programs import Failure, Program, until

IN_HARDWARE, OVERFLOW = 2, 3
INGRESS = 1
CONFIG_TABLE = "flowtracking/sampled/hwOffload/config"
BUDGET = "MAX_HO_FLOW_ENTRIES"


class Bench:
    """What is started later of one kind goes on where what was started before left."""

    def __init__(self, build, directory, prefix=()):
        """`prefix` is put before each program's command line; sft's has none."""
        self.build = build
        self.prefix = tuple(prefix)
        self.directory = pathlib.Path(directory)
        self.run_dir = self.directory / "run"
        self.run_dir.mkdir()
        self.sft_program = build / "bin/sft"
        self.tracker_program = build / "bin/flow-tracker"
        self.agent_config = self.directory / "agent.toml"
        self.tracker_config = self.directory / "flow-tracker.toml"
        self.plugins = [build / "lib/libPexaSampledFlowTracker.so", build / "lib/libPexaSftAudit.so"]
        self.agent = None
        self.tracker = None
        self.collector = None
        self.collectors = 0  # that there were so far

    # What the operator asks

    def sft_run(self, *arguments, text=None):
        command = [str(self.sft_program), "--run-dir", str(self.run_dir), *arguments]
        return subprocess.run(command, input=text, capture_output=True, text=True, check=False)

    def sft_text(self, *arguments, text=None):
        """What `sft` prints."""
        done = self.sft_run(*arguments, text=text)
        if done.returncode != 0:
            raise Failure(f"sft {' '.join(arguments)}\n  ended with status {done.returncode}: {done.stderr.strip()}")
        return done.stdout

    def sft(self, *arguments, text=None):
        """The objects that `sft --json` prints."""
        printed = self.sft_text("--json", *arguments, text=text)
        try:
            return [json.loads(line) for line in printed.splitlines() if line.strip()]
        except ValueError as error:
            raise Failure(f"sft {' '.join(arguments)}\n  printed what is not a JSON object a line: {error}") from error

    def wanted(self):
        """The flows that are wanted in hardware."""
        return {flows.from_json(row["key"]["ipFlowKey"]) for collection in ("hoIpFlowConfig", "hoIp6FlowConfig")
                for row in self.sft("table", "dump", CONFIG_TABLE, collection)}

    def states(self):
        """The state of each flow that has a status."""
        return {flows.from_json(row["key"]["ipFlowKey"]): row["state"] for row in self.sft("status")}

    def counts(self, view):
        """(packets, bytes) of each flow that "local" or "counters" knows."""
        return {flows.from_json(row["key"]): (row["packets"], row["bytes"]) for row in self.sft(view)}

    # Programs

    def running(self):
        return [program for program in (self.agent, self.tracker, self.collector) if program is not None]

    def until(self, look, seconds, trouble):
        """Looks until it sees something true, and gives it, with the seconds that it took; nothing that runs may end meanwhile."""
        return until(look, seconds, trouble, self.running())

    def start_collector(self):
        self.collectors += 1
        self.collector = Nfcapd(self.directory / f"nfcapd-{self.collectors}", self.prefix)
        self.collector.await_start()

    def start_tracker(self, interfaces, **limits):
        """Starts a tracker whose records go to the collector that runs."""
        collectors = [f"127.0.0.1:{self.collector.port}"] if self.collector else []
        self.tracker_config.write_text(tracker.configuration(self.run_dir, interfaces, collectors, **limits))
        log = self.directory / "flow-tracker.log"
        log.unlink(missing_ok=True)
        command = [*self.prefix, self.tracker_program, "--config", self.tracker_config]
        self.tracker = tracker.Tracker(command, self.run_dir, log)
        return self.tracker.await_ready()

    def end_tracker(self):
        """Ends the tracker and then its collector, if there is one, so that all records are written; gives the latter."""
        ending, self.tracker = self.tracker, None
        status = ending.end()
        if status != 0:
            raise Failure(f"flow-tracker ended with status {status}")
        collector, self.collector = self.collector, None
        if collector:
            try:
                collector.finish()
            finally:
                collector.close()
        return collector

    def write_agent_config(self, ports, forward, collector_port, rate, pace="fast"):
        """Ports are (name, kind, source); packets are sampled where they enter a port that `forward` names on the left."""
        quote = json.dumps  # a JSON string is a TOML string
        lines = [f"run_dir = {quote(str(self.run_dir))}", f"plugins = {quote([str(each) for each in self.plugins])}"]
        for name, kind, source in ports:
            lines += ["[[port]]", f"name = {quote(name)}", f"{kind} = {quote(str(source))}"]
        lines += ["[forward]", *(f"{entry} = {quote(leave)}" for entry, leave in forward.items())]
        lines += ["[replay]", f"pace = {quote(pace)}"]
        lines += ["[sflow]", 'agent = "127.0.0.1"', f'collectors = ["127.0.0.1:{collector_port}"]']
        for path, attributes in {
            "hardware/flowtracking/config/sampled": {"hwOffloadIpv4": True, "hwOffloadIpv6": True, "sampleRate": rate},
            "sflow/hwconfigdir/sampledflowtracker": {"ingressInterfaces": list(forward), "egressInterfaces": []},
            "flowtracking/audit/sampled": {"afterRestart": "repair"},
        }.items():
            lines += [f"[state.{quote(path)}]", *(f"{name} = {quote(value)}" for name, value in attributes.items())]
        self.agent_config.write_text("\n".join(lines) + "\n")

    def start_agent(self, budget):
        command = [*self.prefix, self.build / "bin/pexa-agent", "--config", self.agent_config, "--run-dir", self.run_dir]
        self.agent = Program("pexa-agent", command, self.directory / "agent.log", {**os.environ, BUDGET: str(budget)})

    def ports(self):
        """The rows of `ports`, by name; None while the agent does not answer."""
        done = self.sft_run("--json", "ports")
        return {row["name"]: row for row in map(json.loads, done.stdout.splitlines())} if done.returncode == 0 else None

    def await_replay(self, port, seconds):
        """The rows of `ports`, by name, once the capture is replayed."""

        def replayed():
            ports = self.ports()
            return ports if ports and ports[port]["replay"] != "running" else None

        return self.until(replayed, seconds, "the agent does not answer, or is still replaying")[0]

    def kill_agent(self):
        """Ends the agent as a crash would."""
        self.agent.end(signal.SIGKILL)
        self.agent = None

    def end_agent(self):
        """Ends the agent in order; its status."""
        agent, self.agent = self.agent, None
        return agent.end()
