"""Running what is measured: to its end with what it took of the processor, and the agent over generated traffic."""
import dataclasses
import json
import os
import pathlib
import shutil
import subprocess
import time

from programs import Failure, Program, until

CONFIG_TABLE = "flowtracking/sampled/hwOffload/config"
WANTED = {"wanted-IPv4": "hoIpFlowConfig", "wanted-IPv6": "hoIp6FlowConfig"}
PATIENCE = 120


@dataclasses.dataclass
class Took:
    """Seconds from exec to exit: user and system time together, and on the clock."""
    cpu: float
    wall: float


class Setting:
    """Where the programs are, where files go, what goes before a measured command line, and how much is to be done."""

    def __init__(self, build, folder, priority, quick):
        self.build = build
        self.folder = pathlib.Path(folder)
        self.priority = priority
        self.prefix = [] if quick else [*priority, "taskset", "-c", str(max(os.sched_getaffinity(0)))]
        self.quick = quick
        self.runs = 1 if quick else 3
        self._traffic = {}

    def program(self, name):
        path = self.build / "bin" / name
        if not path.exists():
            raise Failure(f"{path} is not built")
        return path

    def run(self, command, environment=None):
        """Runs a command on all cores, its output out of the way; what it took. Failure when it fails."""
        log = self.folder / "output"
        with log.open("wb") as output:
            began = time.monotonic()
            process = subprocess.Popen([*self.priority, *map(str, command)], stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                       env={**os.environ, **(environment or {})})
            _, status, usage = os.wait4(process.pid, 0)
            took = Took(usage.ru_utime + usage.ru_stime, time.monotonic() - began)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            raise Failure(f"{' '.join(map(str, command))}\n  ended with status {process.returncode}:\n{log.read_text(errors='replace')[-2000:]}")
        return took

    def traffic(self, flows, packets):
        """The folder of generated traffic (bench/traffic), made once."""
        folder = self.folder / f"traffic-{flows}-{packets}"
        if folder not in self._traffic:
            subprocess.run([self.program("bench_traffic"), "--out", folder, "--flows", str(flows), "--packets", str(packets),
                            "--both-directions"], check=True)
            self._traffic[folder] = True
        return folder


class AgentRun:
    """A run directory in which the flows of some traffic are wanted at both ports of an agent that replays it to nowhere."""

    def __init__(self, setting, name, traffic, capture=None, egress=True):
        self.setting = setting
        self.traffic = traffic
        self.egress = egress
        self.directory = setting.folder / name
        self.directory.mkdir()
        self.run_dir = self.directory / "run"
        self.run_dir.mkdir()
        self.config = self.directory / "agent.toml"
        self.config.write_text(self._configuration(capture or traffic / "traffic.pcap"))

    def _configuration(self, capture):
        leaving = json.dumps(["Ethernet2"] if self.egress else [])
        return f"""run_dir = "{self.run_dir}"
plugins = ["{self.setting.build}/lib/libPexaSampledFlowTracker.so"]
[[port]]
name = "Ethernet1"
capture = "{capture}"
[[port]]
name = "Ethernet2"
write = "/dev/null"
[forward]
Ethernet1 = "Ethernet2"
[state."hardware/flowtracking/config/sampled"]
hwOffloadIpv4 = true
hwOffloadIpv6 = true
sampleRate = 1000
[state."sflow/hwconfigdir/sampledflowtracker"]
ingressInterfaces = ["Ethernet1"]
egressInterfaces = {leaving}
"""

    def want(self):
        """Puts the wanted offloads of the traffic into the tables, anew: those of both ports, or those where flows enter."""
        shutil.rmtree(self.run_dir)
        self.run_dir.mkdir()
        for name, collection in WANTED.items():
            wanted = (self.traffic / name).read_text()
            if not self.egress:
                wanted = "".join(line for line in wanted.splitlines(keepends=True) if '"direction":1,' in line)
            self._sft(["table", "put", CONFIG_TABLE, collection], input=wanted)

    def _sft(self, arguments, **how):
        command = [str(self.setting.program("sft")), "--run-dir", str(self.run_dir), *arguments]
        done = subprocess.run(command, capture_output=True, text=True, check=False, **how)
        if done.returncode != 0:
            raise Failure(f"{' '.join(command)}\n  ended with status {done.returncode}: {done.stderr.strip()}")
        return done.stdout

    def sft(self, *arguments):
        """The objects that sft prints."""
        return [json.loads(line) for line in self._sft(["--json", *arguments]).splitlines()]

    ENVIRONMENT = {"MAX_HO_FLOW_ENTRIES": "4000000"}

    def to_the_end(self):
        """What the agent takes, from exec to exit, for the capture and the last counts."""
        return self.setting.run([self.setting.program("pexa-agent"), "--config", self.config, "--until-end"], self.ENVIRONMENT)

    def start(self):
        """Starts an agent that stays; its Program."""
        return Program("pexa-agent", [*self.setting.priority, self.setting.program("pexa-agent"), "--config", self.config],
                       self.directory / "agent.log", {**os.environ, **self.ENVIRONMENT})

    def await_replay(self, agent):
        def finished():
            try:
                rows = self.sft("ports")
            except Failure:
                return False
            return all(row.get("replay", "finished") == "finished" for row in rows)

        until(finished, PATIENCE, "the replay does not end", [agent])

    def forget(self):
        shutil.rmtree(self.directory)
