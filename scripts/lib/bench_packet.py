"""Lookups and decisions beside absl's and DPDK's hash tables: the programs of bench/, all of one run."""
import json
import os
import subprocess

from bench_report import Row
from programs import Failure

GROUP = "packet"
SIZES = (2048, 65536, 1048576)
BURST = 32


class Times:
    """Nanoseconds of the processor for one lookup or one packet, by name: medians over interleaved repetitions."""

    def __init__(self, setting, pattern, sizes, seconds, repetitions):
        every = "|".join(map(str, sizes))
        output = setting.folder / "benchmark.json"
        command = [*setting.prefix, str(setting.program("sft_bench")), f"--benchmark_filter=^({pattern})/({every})$",
                   f"--benchmark_min_time={seconds}", f"--benchmark_repetitions={repetitions}", f"--benchmark_out={output}",
                   "--benchmark_out_format=json", "--benchmark_enable_random_interleaving=true"]
        done = subprocess.run(command, capture_output=True, text=True, check=False,
                              env={**os.environ, "SFT_BENCH_SIZES": " ".join(map(str, sizes))})
        if done.returncode != 0:
            raise Failure(f"sft_bench: {done.stderr.strip()}")
        self._times = {}
        for row in json.loads(output.read_text())["benchmarks"]:
            if row.get("error_occurred"):
                raise Failure(f"sft_bench: {row['name']}: {row.get('error_message')}")
            if repetitions == 1 or row.get("aggregate_name") == "median":
                self._times[row["run_name"]] = row["cpu_time"] / (BURST if _bursts(row["run_name"]) else 1)

    def __getitem__(self, name):
        return self._times.get(name)

    def ratio(self, name, other):
        """None when one of the two was not there to be measured."""
        both = self[name], self[other]
        return None if None in both else both[0] / both[1]


def _bursts(name):
    return any(f"/{part}/" in f"{name}/" for part in ("burst", "burst_reasons", "shared_burst", "rte_hash_bulk"))


def measure(setting):
    pattern = ("lookup/(shared|shared_burst|absl|rte_hash|rte_hash_bulk)/IPv4/(hit|zipf)|"
               "decision/IPv4/(hit|zipf)/(single|burst)|decision/IPv4/hit/burst_reasons|decision/IPv6/hit/burst|"
               "decision/IPv4/(miss|disabled)/burst")
    sizes = SIZES[:1] if setting.quick else SIZES
    times = Times(setting, pattern, sizes, 0.005 if setting.quick else 0.1, setting.runs)
    if times["lookup/rte_hash/IPv4/hit/2048"] is None:
        yield Row(GROUP, "against rte_hash", None, note="not installed when it was built: scripts/bootstrap bench")
    for visits, name in (("hit", "uniform"), ("zipf", "Zipf")):
        yield from _lookups(times, sizes, visits, name)
        yield from _decisions(times, sizes, visits, name)
    yield from _conditions(times, sizes)


def _row(times, name, measured, other, most):
    return Row(GROUP, name, times.ratio(measured, other), "", most=most, note=_note(times[measured], times[other]))


def _note(measured, other):
    return "" if measured is None or other is None else f"{measured:.1f} to {other:.1f} ns"


def _lookups(times, sizes, visits, name):
    for size, alone, burst in zip(sizes, (1.2, 1.0, 1.0), (0.8, 0.8, 0.6)):
        end = f"IPv4/{visits}/{size}"
        yield _row(times, f"lookup, {name}, {size:,}: one by one to absl", f"lookup/shared/{end}", f"lookup/absl/{end}", alone)
        yield _row(times, f"lookup, {name}, {size:,}: in bursts to rte_hash in bulk", f"lookup/shared_burst/{end}",
                   f"lookup/rte_hash_bulk/{end}", burst)


def _decisions(times, sizes, visits, name):
    for size in sizes:
        lookup = f"lookup/rte_hash/IPv4/{visits}/{size}"
        for way, most in (("burst", 1.0), ("single", 2.0)):
            yield _row(times, f"decision, {name}, {size:,}: {way} to one rte_hash lookup", f"decision/IPv4/{visits}/{way}/{size}", lookup, most)


def _conditions(times, sizes):
    for size in sizes:
        hit = f"decision/IPv4/hit/burst/{size}"
        yield _row(times, f"decision, {size:,}: with named counters", f"decision/IPv4/hit/burst_reasons/{size}", hit, 1.3)
        yield _row(times, f"decision, {size:,}: IPv6 to IPv4", f"decision/IPv6/hit/burst/{size}", hit, 1.2)
        yield _row(times, f"decision, {size:,}: a miss to a hit", f"decision/IPv4/miss/burst/{size}", hit, 1.0)
    size = sizes[0]
    yield _row(times, f"decision, {size:,}: a disabled family to a hit", f"decision/IPv4/disabled/burst/{size}",
               f"decision/IPv4/hit/burst/{size}", 1.0)
