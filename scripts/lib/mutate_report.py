"""What became of the changes that scripts/mutate made."""
import collections
import re

import trusted_rooms

GOAL = 90


class Kept:
    """Changes that no test can or need see, with the reason: file, function, change, reason, apart by tabs; "..." at
    either end of function or change stands for anything."""

    def __init__(self, path):
        self.rules = []
        for line in path.read_text().splitlines():
            if line and not line.startswith("#"):
                fields = line.split("\t")
                if len(fields) != 4 or not all(fields):
                    raise SystemExit(f"mutate: {path}: four fields apart by tabs were expected: {line}")
                file, function, change, reason = fields
                self.rules.append((file, self.pattern(function), self.pattern(change), reason))

    @staticmethod
    def pattern(text):
        front, behind = text.startswith("..."), text.endswith("...")
        middle = text.strip() if not (front or behind) else text.removeprefix("...").removesuffix("...")
        return re.compile(".*" * front + re.escape(middle) + ".*" * behind, re.S)

    def reason(self, mutant):
        for file, function, change, reason in self.rules:
            if file == mutant["file"] and function.fullmatch(mutant["function"]) and change.fullmatch(mutant["change"]):
                return reason
        return None


def told(mutants, number):
    each = mutants[number]
    return f"{each['file']}:{each['line']}: {each['function']}: {each['change']}"


def table(mutants, outcomes, kept, out):
    """Prints what became of each file's changes. Returns the share killed of those that a test should see, in percent."""
    rows = collections.defaultdict(collections.Counter)
    for number, outcome in outcomes.items():
        kind = outcome.split()[0] if number not in kept or outcome.startswith("killed") else "kept"
        for name in (mutants[number]["file"], trusted_rooms.room_of(mutants[number]["file"]) + "/", "all"):
            rows[name][kind] += 1
    width = max(map(len, rows))
    print(f"{'file':{width}} {'killed':>8} {'survived':>9} {'unreached':>10} {'kept':>6} {'share':>7}", file=out)

    def share(row):
        expected = row["killed"] + row["survived"] + row["unreached"]
        return 100 * row["killed"] / expected if expected else 100.0

    for name in sorted(rows, key=lambda name: (name == "all", name.endswith("/"), name)):
        row = rows[name]
        print(f"{name:{width}} {row['killed']:8} {row['survived']:9} {row['unreached']:10} {row['kept']:6} {share(row):6.1f}%", file=out)
    return share(rows["all"])


def report(mutants, outcomes, rules, how, left_out, out):
    # A change that is kept counts neither way; one that is kept and killed has a line too much in the list.
    kept = {number: reason for number in outcomes if (reason := rules.reason(mutants[number]))}
    built = sum(each["built"] for each in mutants.values())
    print(f"{len(mutants)} changes found, {built} of them in the programs; {len(outcomes)} tried{how}", file=out)
    for case in left_out:
        print(f"left out, it fails without any change: {case}", file=out)
    result = table(mutants, outcomes, kept, out)
    for what in ("survived", "unreached"):
        for number in sorted(outcomes):
            if outcomes[number] == what and number not in kept:
                print(f"{what} ({number}): {told(mutants, number)}", file=out)
    for number in sorted(kept):
        if not outcomes[number].startswith("killed"):
            print(f"kept ({number}): {told(mutants, number)}: {kept[number]}", file=out)
    killed = sum(outcome.startswith("killed") for outcome in outcomes.values())
    print(f"{killed} of {len(outcomes)} killed; of those that a test should see {result:.1f} %, {GOAL} % is the goal", file=out)
    return result >= GOAL
