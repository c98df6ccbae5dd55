"""scripts/mutate: changes one thing at a time in the trusted rooms and expects a test to fail."""
import argparse
import json
import pathlib
import random
import re
import sys
import time

import mutate_build
import mutate_report
import mutate_run
import trusted_rooms

TOP = pathlib.Path(__file__).resolve().parents[2]
FOLDER = TOP / "build/mutate"
KEPT = TOP / "tests/mutation/kept.tsv"


def chosen(mutants, options):
    wanted = trusted_rooms.rooms(options.room)
    numbers = [number for number, each in mutants.items() if each["built"] and trusted_rooms.room_of(each["file"]) in wanted]
    if options.only:
        wanted = re.compile(options.only)
        numbers = [number for number in numbers if wanted.search(f"{mutants[number]['file']}:{mutants[number]['line']} {mutants[number]['function']}")]
    # In no order, so that a run that is stopped early tells of all files.
    return random.Random(options.seed).sample(numbers, len(numbers) if options.all else min(options.sample, len(numbers)))


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate")
    parser.add_argument("room", nargs="*")
    parser.add_argument("--only")
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--sample", type=int, default=300)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--no-build", action="store_true")
    options = parser.parse_intermixed_args()
    names = trusted_rooms.programs(options.room, slow=False)
    if not options.no_build:
        mutate_build.build(TOP, FOLDER, trusted_rooms.rooms(options.room))
    mutants = mutate_build.load(FOLDER)
    numbers = chosen(mutants, options)
    if not numbers:
        raise SystemExit("mutate: no change matches")

    programs = [mutate_build.programs(FOLDER) / name for name in names]
    reached, left_out = mutate_run.record(programs, FOLDER)
    began = time.monotonic()

    def tell(number, outcome, done, of):
        if outcome == "survived" or done % 100 == 0:
            print(f"{done}/{of} {time.monotonic() - began:.0f} s  {outcome} ({number}): {mutate_report.told(mutants, number)}", file=sys.stderr, flush=True)

    outcomes = mutate_run.run_all(numbers, reached, tell)
    (FOLDER / "outcomes.json").write_text(json.dumps(outcomes, indent=0))
    with open(FOLDER / "report.txt", "w") as file:
        how = f", chosen by seed {options.seed}" if not options.all and len(numbers) == options.sample else ""
        if len(outcomes) < len(numbers):
            how += f"; stopped before the other {len(numbers) - len(outcomes)} of {len(numbers)}"
        good = mutate_report.report(mutants, outcomes, mutate_report.Kept(KEPT), how, left_out, file)
    sys.stdout.write((FOLDER / "report.txt").read_text())
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
