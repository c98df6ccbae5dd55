"""What is shown on a terminal, and the checks that are made."""
import os
import sys

import flows


MOST = 300  # characters of what was found instead of what was expected


def brief(value):
    text = str(value)
    return text if len(text) <= MOST else text[:MOST] + " ..."


class Page:
    """Text for a terminal, plain elsewhere."""

    def __init__(self):
        self.colour = sys.stdout.isatty() and "NO_COLOR" not in os.environ
        self.heads = 0

    def paint(self, code, text):
        return f"\x1b[{code}m{text}\x1b[0m" if self.colour else text

    def head(self, text):
        print("\n" + self.paint("1", text))

    def step(self, text):
        """The heading of the next step."""
        self.heads += 1
        self.head(f"{self.heads}. {text}")

    def note(self, text):
        print("  " + self.paint("2", text))

    def row(self, label, value, note=""):
        print(f"  {label:<38}{value:>10}  {self.paint('2', note)}".rstrip())

    def share(self, label, value, whole):
        part = value / whole if whole else 0.0
        bar = "█" * round(30 * part)
        self.row(label, f"{value:,}", f"{100 * part:5.1f} %  {bar}")

    def command(self, text, printed="", most=None):
        """A command of the operator and what it prints, or the first lines of it: a heading and `most`."""
        print(self.paint("36", f"  $ {text}"))
        lines = printed.splitlines()
        shown = lines if most is None or len(lines) <= most + 2 else lines[: most + 1]
        for line in shown:
            print("    " + line)
        if len(shown) < len(lines):
            self.note(f"  ... {len(lines) - len(shown):,} more")

    def sft(self, bench, *arguments, most=None):
        self.command("sft " + " ".join(arguments), bench.sft_text(*arguments), most)


class Checks:
    """What must add up."""

    def __init__(self, page):
        self.page = page
        self.made = 0
        self.failed = 0

    def equal(self, what, left, right):
        self.true(what, left == right, f"{brief(left)} is not {brief(right)}")

    def flows(self, what, found, expected):
        """Compares what is told of each flow; what differs is shown flow by flow."""
        wrong = sorted(key for key in found.keys() | expected.keys() if found.get(key) != expected.get(key))
        some = [f"{flows.text(key)}: {found.get(key)} is not {expected.get(key)}" for key in wrong[:3]]
        self.true(what, not wrong, f"{len(wrong)} differ: " + "; ".join(some))

    def true(self, what, good, wrong):
        self.made += 1
        self.failed += not good
        mark = self.page.paint("32", "ok  ") if good else self.page.paint("31", "FAIL")
        print(f"  {mark} {what}" + ("" if good else f": {wrong}"))

    def summary(self):
        if self.failed:
            self.page.head(self.page.paint("31", f"{self.failed} of {self.made} checks failed"))
        else:
            self.page.head(self.page.paint("32", f"{self.made} checks, all good"))
