"""What the main job shows on a terminal, and the checks that it makes."""
import os
import sys

import flows
from bench import IN_PORT, OUT_PORT


class Page:
    """Text for a terminal, plain elsewhere."""

    def __init__(self):
        self.colour = sys.stdout.isatty() and "NO_COLOR" not in os.environ

    def paint(self, code, text):
        return f"\x1b[{code}m{text}\x1b[0m" if self.colour else text

    def head(self, text):
        print("\n" + self.paint("1", text))

    def note(self, text):
        print("  " + self.paint("2", text))

    def row(self, label, value, note=""):
        print(f"  {label:<38}{value:>10}  {self.paint('2', note)}".rstrip())

    def share(self, label, value, whole):
        part = value / whole if whole else 0.0
        bar = "█" * round(30 * part)
        self.row(label, f"{value:,}", f"{100 * part:5.1f} %  {bar}")

    def command(self, bench, *arguments, most=None):
        """A command of the operator and what it prints, or the first lines of it."""
        print(self.paint("36", "  $ sft " + " ".join(arguments)))
        lines = bench.sft_text(*arguments).splitlines()
        shown = lines if most is None or len(lines) <= most + 2 else lines[: most + 1]  # the heading is one
        for line in shown:
            print("    " + line)
        if len(shown) < len(lines):
            self.note(f"  ... {len(lines) - len(shown):,} more")


class Checks:
    """What must add up."""

    def __init__(self, page):
        self.page = page
        self.failed = 0

    def equal(self, what, left, right):
        self.true(what, left == right, f"{left} is not {right}")

    def true(self, what, good, wrong):
        self.failed += not good
        mark = self.page.paint("32", "ok  ") if good else self.page.paint("31", "FAIL")
        print(f"  {mark} {what}" + ("" if good else f": {wrong}"))


class Outcome:
    """What the running agent says."""

    def __init__(self, bench, ports):
        self.ports = ports
        self.reasons = bench.sft("reasons")
        self.samples = bench.sft("samples")
        self.local = bench.counts("local")

    def reason(self, category, reason):
        return sum(row["count"] for row in self.reasons if (row["category"], row["reason"]) == (category, reason))

    def sampler(self, port, direction):
        for row in self.samples:
            if (row["intfId"], row["direction"]) == (port, direction):
                return row
        return {"rate": 0, "pool": 0, "samples": 0, "drops": 0}


def show_packets(page, outcome):
    entered = outcome.ports[IN_PORT]["packetsIn"]
    hardware = sum(packets for packets, _ in outcome.local.values())
    ingress = outcome.sampler(IN_PORT, "ingress")
    page.row(f"entered on {IN_PORT}", f"{entered:,}", f"{outcome.ports[IN_PORT]['bytesIn']:,} bytes")
    page.share("in hardware: counted, not sampled", hardware, entered)
    page.share(f"sampled, one in {ingress['rate']}", ingress["samples"], entered)
    page.share("left to sampling, not drawn", ingress["pool"] - ingress["samples"], entered)
    page.row(f"left on {OUT_PORT}", f"{outcome.ports[OUT_PORT]['packetsOut']:,}", f"{outcome.ports[OUT_PORT]['bytesOut']:,} bytes")


def show_largest(page, counts, top):
    ranked = sorted(counts.items(), key=lambda item: (-item[1][0], -item[1][1], item[0]))
    packets, octets = (sum(each[at] for each in counts.values()) for at in (0, 1))
    print(page.paint("2", f"  {'packets':>9} {'octets':>12}  flow in hardware" + (f" (the first {top})" if len(ranked) > top else "")))
    for key, (of_packets, of_octets) in ranked[:top]:
        print(f"  {of_packets:>9,} {of_octets:>12,}  {flows.text(key)}")
    print(page.paint("1", f"  {packets:>9,} {octets:>12,}  all {len(ranked)}"))


def show_samples(page, outcome):
    print(page.paint("2", f"  {'interface':<12}{'direction':<11}{'one in':>8}{'packets':>10}{'taken':>9}{'dropped':>9}"))
    for row in sorted(outcome.samples, key=lambda row: (row["intfId"], row["direction"] != "ingress")):
        print(f"  {row['intfId']:<12}{row['direction']:<11}{row['rate']:>8,}{row['pool']:>10,}{row['samples']:>9,}{row['drops']:>9,}")


def show_reasons(outcome):
    for row in sorted(outcome.reasons, key=lambda row: (row["category"], -row["count"], row["reason"])):
        print(f"  {row['category']:<8}{row['source']:<6}{row['reason'].strip():<36}{row['count']:>10,}")


def show_commands(page, bench, root, keep):
    page.head("Try next")
    if keep:
        print(f"  export PEXA_RUN_DIR={bench.directory}")
    else:
        print(f"  {'scripts/run --keep':<66} {page.paint('2', '# the agent stays up; export the PEXA_RUN_DIR that it prints, then')}")
    sft = os.path.relpath(bench.sft_program, root)
    for command, purpose in (
        ("flows", "each wanted flow: where it stands, what was counted"),
        ("flow want --help", "and one more"),
        ("states", "how many flows are in hardware, and how many wait"),
        ("tasks", "the work between packets"),
        ("reasons", "why packets were treated as they were"),
        ("state get hardware/flowtracking/config/sampled", "the configuration in force"),
        ("trace", "what the agent did: its trace ring"),
        ("table list", "the shared tables: type, entries, writer"),
    ):
        print(f"  {sft + ' ' + command:<66} {page.paint('2', '# ' + purpose)}")
    if not keep:
        print(f"  {'scripts/run path/to/capture.pcapng':<66} {page.paint('2', '# a capture of your own (Ethernet)')}")
    print("  " + page.paint("2", "docs/operating.md says more."))
