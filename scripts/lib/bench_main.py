#!/usr/bin/env python3
"""Measures what this system is to be held against, and prints one table: target, figure, verdict. scripts/bench builds first.

    scripts/bench [--only GROUP ...] [--quick] [--json FILE] [--plot] [--build DIR]

Groups: packet (lookup and decision against absl's and DPDK's tables), replay (the whole program against softflowd and nfpcapd), live
(against Open vSwitch; root), control (the state machine), start (exec to the first packet, and memory a flow; root). Ratios are of
one run. What is measured has, as root, real-time priority, so that others who use the machine disturb it less, and a core of its own; in
replay all cores, as whoever waits for a program that reads a capture lets it have.
With --plot cost against size is drawn into docs/, and nothing else done. The status is 0 when all could be measured, targets met or not.
"""
import argparse
import os
import pathlib
import shutil
import sys
import tempfile
import time

import bench_control
import bench_live
import bench_packet
import bench_plot
import bench_replay
import bench_report
import bench_start
import programs
from bench_programs import Setting
from programs import Failure

ROOT = pathlib.Path(__file__).resolve().parents[2]
PLOTS = ROOT / "docs"
GROUPS = {"packet": bench_packet, "replay": bench_replay, "live": bench_live, "control": bench_control, "start": bench_start}
SCRATCH = 4 << 30  # bytes of captures and tables


def priority():
    """What goes before a measured command line, so that nobody else's work does."""
    return ["chrt", "-f", "10"] if os.geteuid() == 0 and shutil.which("chrt") else []


def scratch():
    """A folder in memory where there is room, so that no disk is measured."""
    memory = pathlib.Path("/dev/shm")
    return memory if memory.is_dir() and shutil.disk_usage(memory).free > SCRATCH else None


def main():
    parser = argparse.ArgumentParser(prog="bench", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release", help="folder of the built programs")
    parser.add_argument("--only", action="append", choices=GROUPS, help="this group, and others that are named so")
    parser.add_argument("--quick", action="store_true", help="all of it at a small size: shows that it works, and measures nothing")
    parser.add_argument("--json", type=pathlib.Path, help="the rows as a file, too")
    parser.add_argument("--plot", action="store_true", help="draws cost against size into docs/*.svg, and does nothing else")
    arguments = parser.parse_args()
    rows, good = [], True
    with tempfile.TemporaryDirectory(prefix="bench-", dir=scratch()) as folder:
        setting = Setting(arguments.build.resolve(), folder, [] if arguments.quick else priority(), arguments.quick)
        if arguments.plot:
            for path in bench_plot.draw(setting, PLOTS):
                print(path)
            return 0
        for name in arguments.only or GROUPS:
            began = time.monotonic()
            try:
                rows += GROUPS[name].measure(setting)
            except Failure as failure:
                print(f"bench: {name}: {failure}", file=sys.stderr)
                rows.append(bench_report.Row(name, "", None, note=str(failure).splitlines()[0]))
                good = False
            finally:
                programs.close_all()
            print(f"bench: {name} took {time.monotonic() - began:.0f} s", file=sys.stderr)
    print(bench_report.text(rows))
    if arguments.json:
        bench_report.write_json(rows, arguments.json)
    return 0 if good else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        sys.exit(f"bench: {failure}")
