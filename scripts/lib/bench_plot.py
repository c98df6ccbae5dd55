"""Cost against size, drawn with gnuplot into docs/."""
import shutil
import subprocess

from bench_packet import Times
from bench_programs import AgentRun
from bench_replay import PEERS, count_with, loop_time
from programs import Failure

SIZES = tuple(2**power for power in range(10, 21, 2))
LINES = {  # what is drawn, by its title
    "rte_hash, one lookup": "lookup/rte_hash/IPv4/hit",
    "rte_hash, 32 in bulk": "lookup/rte_hash_bulk/IPv4/hit",
    "absl::flat_hash_map": "lookup/absl/IPv4/hit",
    "shared table, one by one": "lookup/shared/IPv4/hit",
    "shared table, in bursts": "lookup/shared_burst/IPv4/hit",
    "whole decision, one by one": "decision/IPv4/hit/single",
    "whole decision, in bursts": "decision/IPv4/hit/burst",
}
FLOWS = (2_000, 10_000, 65_000, 250_000, 1_000_000)
PACKETS = 2_000_000


def draw(setting, folder):
    """Measures all lines at all sizes, and draws them; the files."""
    if not shutil.which("gnuplot"):
        raise Failure("there is no program gnuplot: scripts/bootstrap bench")
    yield _draw(setting, folder / "cost-against-size.svg", _packet_costs(setting), list(LINES),
                "flows in the table (IPv4, all of them visited, shuffled)", "nanoseconds of the processor, a lookup or a packet")
    yield _draw(setting, folder / "replay-against-size.svg", _replay_costs(setting),
                ["agent, packets alone", "agent, exec to exit", *(f"{name}, exec to exit" for name, _ in PEERS)],
                f"flows in a capture of {PACKETS:,} packets (1/rank, a quarter IPv6)", "nanoseconds on the clock, a packet")


def _packet_costs(setting):
    times = Times(setting, "|".join(LINES.values()), SIZES, 0.05, 1)
    return [[size, *(times[f"{name}/{size}"] for name in LINES.values())] for size in SIZES]


def _replay_costs(setting):
    rows = []
    for flows in FLOWS:
        traffic = setting.traffic(flows, PACKETS)
        agent = AgentRun(setting, f"plot-{flows}", traffic)
        agent.want()
        alone = loop_time(agent) / PACKETS
        agent.want()
        walls = [agent.to_the_end().wall, *(count_with(setting, name, traffic / "traffic.pcap").wall for name, _ in PEERS)]
        rows.append([flows, alone * 1e9, *(wall / PACKETS * 1e9 for wall in walls)])
        agent.forget()
    return rows


def _draw(setting, path, rows, titles, across, up):
    data = setting.folder / "cost.dat"
    data.write_text("\n".join(" ".join("?" if value is None else f"{value:.6g}" for value in row) for row in rows) + "\n")
    plots = ", ".join(f'"{data}" using 1:{column} with linespoints linewidth 2 pointtype 7 pointsize 0.5 title "{title}"'
                      for column, title in enumerate(titles, start=2))
    script = f"""set terminal svg noenhanced size 760,500 font "sans,12" background "white"
set output "{path}"
set datafile missing "?"
set logscale x
set yrange [0:*]
set key below
set grid
set format x "%.0s%c"
set xlabel "{across}"
set ylabel "{up}"
set xrange [{rows[0][0] / 1.2}:{rows[-1][0] * 1.2}]
plot {plots}
"""
    done = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Failure(f"gnuplot: {done.stderr.strip()}")
    return path
