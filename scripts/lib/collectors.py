"""Collectors of other makers: nfcapd receives IPFIX, sfcapd sFlow; nfdump reads what either wrote."""
import collections
import ipaddress
import json
import pathlib
import signal
import subprocess

from flows import FlowKey
from programs import Failure, Program, free_udp_port, udp_bytes_waiting, until


class NfdumpCollector(Program):
    """One that writes a folder which nfdump reads. The folder is whole when the program has ended."""
    PROGRAM = "nfcapd"

    def __init__(self, folder, prefix=(), address="127.0.0.1"):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.port = free_udp_port()
        command = [*prefix, self.PROGRAM, "-b", address, "-p", self.port, "-w", self.folder, "-t", "3600"]
        super().__init__(self.PROGRAM, command, self.folder.with_suffix(".log"))

    def await_start(self, seconds=30):
        until(lambda: f"Startup {self.PROGRAM}" in self.said(), seconds, f"{self.PROGRAM} has not started", [self])

    def finish(self, seconds=30):
        """Lets it take what has arrived, and ends it in order."""
        until(lambda: udp_bytes_waiting(self) == 0, seconds, f"{self.PROGRAM} does not take what it receives", [self])
        self.end(signal.SIGINT, seconds)

    def rows(self):
        """What nfdump reads, an object a record."""
        printed = self.nfdump("-o", "json")
        try:
            return json.loads(printed)
        except ValueError as error:
            raise Failure(f"nfdump -R {self.folder} -o json printed what is no JSON: {error}") from error

    def nfdump(self, *arguments):
        """What nfdump prints of what was collected."""
        command = ["nfdump", "-R", str(self.folder), *arguments]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{' '.join(command)}\n  ended with status {done.returncode}: {done.stderr.strip()}")
        return done.stdout

    def totals(self):
        """(packets, octets) of each TCP and UDP flow, over all its records."""
        packets, octets = collections.Counter(), collections.Counter()
        for row in self.rows():
            if "src_port" in row:
                key = flow_key(row)
                packets[key] += row["in_packets"]
                octets[key] += row["in_bytes"]
        return {key: (packets[key], octets[key]) for key in packets}


class Nfcapd(NfdumpCollector):
    """An IPFIX collector."""


class Sfcapd(NfdumpCollector):
    """An sFlow collector."""
    PROGRAM = "sfcapd"


def flow_key(row):
    """The flow of a record; VLAN 0 when the record does not tell."""
    source, destination = (ipaddress.ip_address(row.get(f"{end}4_addr") or row[f"{end}6_addr"]).packed for end in ("src", "dst"))
    return FlowKey(row.get("src_vlan", 0), source, destination, row["proto"], row["src_port"], row["dst_port"])
