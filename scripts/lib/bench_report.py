"""What measuring found: rows of target, figure and verdict."""
import dataclasses
import json


@dataclasses.dataclass
class Row:
    """One figure. `most` or `least` is the target, when there is one; a figure that could not be had has None and says why."""
    group: str
    name: str
    figure: float | None
    unit: str = ""
    most: float | None = None
    least: float | None = None
    note: str = ""

    def target(self):
        if self.most is not None:
            return f"<= {shown(self.most)}"
        return f">= {shown(self.least)}" if self.least is not None else ""

    def verdict(self):
        """"met", "missed by 12 %" ("missed" where the target is none at all), "not measured", or nothing where nothing is asked for."""
        if self.figure is None:
            return "not measured"
        if self.most is None and self.least is None:
            return ""
        if self.met():
            return "met"
        if self.most == 0:
            return "missed"
        off = self.figure / self.most - 1 if self.most is not None else 1 - self.figure / self.least
        return f"missed by {max(off * 100, 1):.0f} %"

    def met(self):
        return self.figure is not None and (self.most is None or self.figure <= self.most) and (
            self.least is None or self.figure >= self.least)


def shown(value):
    """A number in three digits, whole ones whole."""
    if value is None:
        return "-"
    if value == int(value) or abs(value) >= 1000:
        return f"{value:,.0f}"
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


HEADINGS = ("group", "target", "aim", "figure", "unit", "verdict", "note")


def text(rows):
    """The table for people."""
    cells = [HEADINGS] + [(row.group, row.name, row.target(), shown(row.figure), row.unit, row.verdict(), row.note) for row in rows]
    widths = [max(len(line[column]) for line in cells) for column in range(len(HEADINGS))]
    lines = []
    for line in cells:
        lines.append("  ".join(cell.rjust(width) if column in (2, 3) else cell.ljust(width)
                               for column, (cell, width) in enumerate(zip(line, widths))).rstrip())
    return "\n".join(lines)


def write_json(rows, path):
    said = [{**dataclasses.asdict(row), "verdict": row.verdict()} for row in rows]
    path.write_text(json.dumps(said, indent=1) + "\n")
