"""Control and stalls: what state_machine_bench says (bench/state_machine), held against its targets."""
import subprocess

from bench_report import Row
from programs import Failure

GROUP = "control"
# name of a line -> "most" or "least", and how much of the line's unit
TARGETS = {
    "first_scan_events_per_second": ("least", 1_000_000),
    "poll_records_per_second": ("least", 5_000_000),
    "stale_deletions_per_second": ("least", 3_000_000),
    "change_to_status_median_ms": ("most", 0.2),
    "change_to_status_p999_ms": ("most", 2.0),
    "burst_wait_p999_ms": ("most", 1.0),
    "burst_drops": ("most", 0),
}


def measure(setting):
    program = setting.program("state_machine_bench")
    if "--tsv" not in subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout:
        yield Row(GROUP, "state machine", None, note="state_machine_bench has no --tsv")
        return
    command = [*setting.prefix, program, "--tsv", "--family", "IPv4", "--flows", "1000" if setting.quick else "1000000"]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Failure(f"state_machine_bench: {done.stderr.strip()}")
    for line in done.stdout.splitlines():
        name, value, unit = line.split("\t")
        limit = TARGETS.get(name)
        yield Row(GROUP, name.replace("_", " "), float(value), unit, **({limit[0]: limit[1]} if limit else {}))
