"""Prints what gcovr says of a coverage build, a row a room; status 1 when one is under a goal (see scripts/coverage)."""
import argparse
import collections
import json
import pathlib
import re
import subprocess
import sys

import trusted_rooms

LINES, BRANCHES = 95, 85
OPTIONS = ["--exclude-throw-branches", "--exclude-unreachable-branches", "-j", "2"]


DECISION = re.compile(r"\b(if|for|while|switch|case|default|assert)\b|\?|&&|\|\|")


def deciding(text):
    """The numbers of the lines that belong to a statement which decides something. Branches of other lines are the compiler's own: the way that
    an exception takes out of a call, the guard of a static object."""
    numbers, statement, decided = set(), [], False
    for number, line in enumerate(text.splitlines(), 1):
        code = re.sub(r'"(\\.|[^"\\])*"', '""', line).split("//")[0]
        statement.append(number)
        decided = decided or bool(DECISION.search(code))
        if decided:
            numbers.update(statement)
        if code.rstrip().endswith((";", "{", "}", ":")):
            statement, decided = [], False
    return numbers


def measured(build, names, html):
    """What gcovr writes as JSON, of these rooms' files."""
    result = pathlib.Path(build) / "coverage.json"
    wanted = [f"--filter={pattern.replace('*', '.*')}" for name in names for pattern in trusted_rooms.ROOMS[name]]
    pages = ["--html-details", f"{html}/index.html"] if html else []
    if html:
        pathlib.Path(html).mkdir(parents=True, exist_ok=True)
    subprocess.run(["gcovr", "--root", ".", *OPTIONS, *wanted, *pages, "--json", str(result), build], check=True)
    return json.loads(result.read_text())


def counts(file):
    """Lines and branches of a file: taken, all; and those that nothing took as text."""
    lines = [line for line in file["lines"] if not line.get("gcovr/noncode")]
    decisions = deciding(pathlib.Path(file["file"]).read_text())
    for line in lines:
        if line["line_number"] not in decisions:
            line["branches"] = []
    branches = [branch for line in lines for branch in line["branches"]]
    missing = [str(line["line_number"]) if line["count"] == 0 else f"{line['line_number']}b"
               for line in lines if line["count"] == 0 or any(branch["count"] == 0 for branch in line["branches"])]
    return [sum(line["count"] > 0 for line in lines), len(lines), sum(branch["count"] > 0 for branch in branches), len(branches)], missing


def share(taken, every):
    return 100 * taken / every if every else 100.0


def row(name, width, sums, behind=""):
    print(f"{name:{width}} {sums[0]:6}/{sums[1]:<6} {share(*sums[:2]):6.1f} % {sums[2]:6}/{sums[3]:<6} {share(*sums[2:]):6.1f} %  {behind}".rstrip())


def main():
    parser = argparse.ArgumentParser(prog="scripts/coverage")
    parser.add_argument("build")
    parser.add_argument("room", nargs="*")
    parser.add_argument("--files", action="store_true")
    parser.add_argument("--html")
    options = parser.parse_intermixed_args()
    rooms = collections.defaultdict(lambda: [0, 0, 0, 0])
    files = {}
    for file in measured(options.build, trusted_rooms.rooms(options.room), options.html)["files"]:
        name = file["file"]
        files[name] = counts(file)
        rooms[trusted_rooms.room_of(name)] = [a + b for a, b in zip(rooms[trusted_rooms.room_of(name)], files[name][0])]
    width = max(map(len, [*trusted_rooms.ROOMS, *(files if options.files else [])]))
    print(f"{'':{width}} {'lines':>13} {'':8} {'branches':>13}")
    if options.files:
        for name in sorted(files):
            row(name, width, files[name][0], " ".join(files[name][1]))
    good = True
    for name in trusted_rooms.rooms(options.room):
        sums = rooms[name]
        row(name, width, sums)
        good = good and sums[1] > 0 and share(*sums[:2]) >= LINES and share(*sums[2:]) >= BRANCHES
    print(f"goals: {LINES} % of the lines, {BRANCHES} % of the branches of each: {'met' if good else 'not met'}")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
