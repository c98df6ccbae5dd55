"""Cost against size, drawn with gnuplot into docs/."""
import shutil
import subprocess

from bench_packet import Times
from programs import Failure

SIZES = tuple(2**power for power in range(10, 21))
LINES = {  # what is drawn, by its title
    "rte_hash, one lookup": "lookup/rte_hash/IPv4/hit",
    "rte_hash, 32 in bulk": "lookup/rte_hash_bulk/IPv4/hit",
    "absl::flat_hash_map": "lookup/absl/IPv4/hit",
    "shared table, one by one": "lookup/shared/IPv4/hit",
    "shared table, in bursts": "lookup/shared_burst/IPv4/hit",
    "whole decision, one by one": "decision/IPv4/hit/single",
    "whole decision, in bursts": "decision/IPv4/hit/burst",
}


def draw(setting, path):
    """Measures all lines at all sizes, and draws them."""
    if not shutil.which("gnuplot"):
        raise Failure("there is no program gnuplot: scripts/bootstrap bench")
    times = Times(setting, "|".join(LINES.values()), SIZES, 0.05, 3)
    data = setting.folder / "cost.dat"
    rows = [[size, *(times[f"{name}/{size}"] or "?" for name in LINES.values())] for size in SIZES]
    data.write_text("\n".join(" ".join(map(str, row)) for row in rows) + "\n")
    plots = ", ".join(f'"{data}" using 1:{column} with linespoints linewidth 2 title "{title}"'
                      for column, title in enumerate(LINES, start=2))
    script = f"""set terminal svg size 900,560 font "sans,13" background "white"
set output "{path}"
set logscale xy
set key left top
set grid
set xlabel "flows in the table (IPv4, all of them visited, shuffled)"
set ylabel "nanoseconds of the processor, a lookup or a packet"
set xrange [{SIZES[0] / 1.2}:{SIZES[-1] * 1.2}]
plot {plots}
"""
    done = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Failure(f"gnuplot: {done.stderr.strip()}")
