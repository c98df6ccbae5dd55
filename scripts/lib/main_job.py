#!/usr/bin/env python3
"""The main job, shown: flows are sampled, learned, wanted in hardware, admitted as far as there is room, counted, and exported.

Called by scripts/run, which builds first. Packets of a capture, or of programs that talk, pass the agent, which samples them (sFlow); flow-tracker learns
flows from the samples and wants them offloaded; the agent admits them and counts them packet by packet; flow-tracker tells the
counts to a collector (nfcapd, IPFIX). Each step is shown with the operator's commands, and what the programs say is held against
an independent count of what was sent. Status 0 only when everything adds up.
"""
import argparse
import contextlib
import os
import pathlib
import shutil
import signal
import sys
import tempfile
import threading

import interrupts
from bench import Bench
from capture_job import CaptureJob
from live_job import LiveJob
from namespaces import Network, Unavailable
from page import Page
from programs import Failure, close_all

LOG_LINES = 20  # of each program, when something failed


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{text}: expected 1 or more")
    return number


def arguments_of(root):
    parser = argparse.ArgumentParser(prog="scripts/run", description=__doc__.split("\n\n")[0])
    parser.add_argument("capture", nargs="?", type=pathlib.Path, help="the capture to replay (tests/captures/mixed.pcap)")
    parser.add_argument("--live", action="store_true", help="programs that talk between network namespaces, in place of a capture; root")
    parser.add_argument("--keep", action="store_true", help="leave all programs and their run directory up until Ctrl-C")
    parser.add_argument("--budget", type=positive, help="flows of a family that may be in hardware (half of what is wanted; live: 2048)")
    parser.add_argument("--sample-rate", type=positive, default=10, help="one packet in so many, in the second replay (10)")
    parser.add_argument("--top", type=positive, default=5, help="flows to show (5)")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.live and arguments.capture:
        parser.error("--live has no capture")
    arguments.build = arguments.build.absolute()
    arguments.capture = (arguments.capture or root / "tests/captures/mixed.pcap").absolute()
    if not arguments.capture.is_file():
        parser.exit(1, f"scripts/run: {arguments.capture}: no such file, expected a capture\n")
    return arguments


def show_commands(page, bench, keep):
    page.head("Try next")
    if keep:
        print(f"  export PEXA_RUN_DIR={bench.run_dir}")
    else:
        print(f"  {'scripts/run --keep':<66} {page.paint('2', '# all stays up; export the PEXA_RUN_DIR that it prints, then')}")
    sft = os.path.relpath(bench.sft_program)
    for command, purpose in (
        ("flows", "each wanted flow: where it stands, what was counted"),
        ("why '*:80'", "why flows are where they are"),
        ("top", "flows by rate, budget, sampling and reasons on the whole screen"),
        ("tasks", "the work between packets"),
        ("reasons", "why packets were treated as they were"),
        ("state get hardware/flowtracking/config/sampled", "the configuration in force"),
        ("trace", "what the agent did: its trace ring"),
        ("table list", "the shared tables: type, entries, writer"),
    ):
        print(f"  {sft + ' ' + command:<66} {page.paint('2', '# ' + purpose)}")
    if not keep:
        print(f"  {'scripts/run path/to/capture.pcapng':<66} {page.paint('2', '# a capture of your own (Ethernet)')}")
        print(f"  {'scripts/run --live':<66} {page.paint('2', '# programs that talk between network namespaces (root)')}")
    print("  " + page.paint("2", "docs/operating.md and docs/flow-tracker.md say more."))


def await_interrupt():
    stop = threading.Event()
    interrupts.handle_with(lambda *_: stop.set())
    print("\nEverything is up; Ctrl-C ends it.", flush=True)
    stop.wait()
    interrupts.raise_interrupted()
    print()


def capture_job(bench, arguments, page, _stack):
    job = CaptureJob(bench, arguments, page)
    page.head(f"{os.path.relpath(arguments.capture)}: {job.traffic.packets:,} packets, {len(job.traffic.flows):,} flows")
    return job


def live_job(bench, arguments, page, stack):
    try:
        network = stack.enter_context(Network())
    except Unavailable as why:
        raise Failure(f"--live: {why}") from None
    bench.prefix = network.agent.command([])
    page.head(f"Host a ({network.a.ipv4}, {network.a.ipv6}) - pexa-agent - host b ({network.b.ipv4}, {network.b.ipv6})")
    return LiveJob(bench, arguments, page, network)


def run(bench, arguments, stack):
    page = Page()
    job = (live_job if arguments.live else capture_job)(bench, arguments, page, stack)
    page.note("packets -> pexa-agent -> samples (sFlow) -> flow-tracker -> wanted offloads -> pexa-agent -> counters -> flow-tracker "
              "-> IPFIX -> nfcapd")

    def stay():
        show_commands(page, bench, True)
        await_interrupt()

    job.run(stay if arguments.keep else None)
    job.checks.summary()
    if not arguments.keep:
        show_commands(page, bench, False)
    return job.checks.failed == 0


def tell_failure(directory):
    for log in sorted(directory.glob("*.log")):
        for line in log.read_text(errors="replace").splitlines()[-LOG_LINES:]:
            print(f"  {log.stem}: {line}", file=sys.stderr)
    print(f"scripts/run: failed; everything of this run is in {directory}", file=sys.stderr)


def main():
    root = pathlib.Path(__file__).resolve().parents[2]
    sys.stdout.reconfigure(line_buffering=True)
    arguments = arguments_of(root)
    directory = pathlib.Path(tempfile.mkdtemp(prefix="pexa-run."))
    bench = Bench(arguments.build, directory)
    stack = contextlib.ExitStack()
    status, kept = 1, True
    try:
        interrupts.raise_interrupted()
        status = 0 if run(bench, arguments, stack) else 1
        kept = status != 0
    except Failure as error:
        print(f"\nscripts/run: {error}", file=sys.stderr)
    except interrupts.Interrupted as signalled:
        print(f"\nscripts/run: {signalled}: everything is ended and removed", file=sys.stderr)
        status, kept = 128 + signalled.number, False
    except BrokenPipeError:  # nobody reads on
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        status, kept = 128 + signal.SIGPIPE, False
    finally:
        interrupts.ignore()
        close_all()
        stack.close()
        kept = kept and any(directory.glob("*.log"))  # nothing was started otherwise
        if not kept:
            shutil.rmtree(directory)
    if kept:
        tell_failure(directory)
    return status


if __name__ == "__main__":
    sys.exit(main())
