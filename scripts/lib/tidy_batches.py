#!/usr/bin/env python3
"""Runs clang-tidy over sources in batches, and prints each finding once; status 1 when there is one.

    tidy_batches.py COMPILE_COMMANDS FOLDER ROOM ...

Most of what clang-tidy costs are the headers that each source includes, so the sources of a folder are looked through as one: a
tenth of the time. FOLDER gets the batches. Two sources that both define a name cannot be in one batch: the
later one is looked through alone, which costs a second run, unless it is named in APART. What differs from scripts/lint: paths are
followed less far (the analyzer's shallow mode, an eighth of the time), and unused using-declarations are not looked for.
"""
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# These make a second batch of their folder: each has a name that another source has, macros of curses that hit other headers, or
# specialisations of what another source uses before.
APART = {"SampledFlowTracker/Audit/Findings.cpp", "apps/sft/DoctorTrackerChecks.cpp", "apps/sft/PublishedTables.cpp",
         "apps/sft/TraceCommands.cpp", "apps/sft/WhyCommand.cpp", "apps/sft/top/TerminalCheck.cpp", "flow_records/RecordValues.cpp",
         "runtime/capture/RecordWindow.cpp", "runtime/capture/SocketFrame.cpp", "runtime/capture/TraceFilters.cpp",
         "runtime/mirro/StateMountGroup.cpp"}
# A using-declaration that an earlier source of the batch has, too, looks unused.
CHECKS = "-misc-unused-using-decls"
SHALLOW = ["-Xclang", "-analyzer-config", "-Xclang", "mode=shallow"]
FINDING = re.compile(r"^(/[^:\n]+):\d+:\d+: (?:warning|error): .*", re.M)
COLOUR = re.compile(r"\x1b\[[0-9;]*m")


def options(command):
    """Of a compile command: what says where headers are and what is defined."""
    words = shlex.split(command)
    return [("-isystem", words[at + 1]) if word == "-isystem" else (word,) for at, word in enumerate(words)
            if re.match("-isystem$|-[ID]", word)]


def batches(commands, rooms):
    """The sources of each folder, and their options; those that are compiled twice as they are compiled first."""
    seen, found = set(), collections.defaultdict(list)
    for entry in commands:
        name = os.path.relpath(entry["file"], ROOT)
        if name.split("/")[0] in rooms and name not in seen:
            seen.add(name)
            found[os.path.dirname(name), name in APART].append((name, options(entry["command"])))
    return [sorted(batch) for _, batch in sorted(found.items())]


def joined(batch, path):
    """Writes the sources of a batch as one, and gives what turns lines of it into the sources' own in a text."""
    first, starts, text = 1, [], ""
    for source, _ in batch:
        starts.append((first, ROOT / source))
        text += (ROOT / source).read_text() + "\n"
        first = text.count("\n") + 1
    path.write_text(text)

    def place(match):
        line = int(match.group(1))
        start, source = [each for each in starts if each[0] <= line][-1]
        return f"{source}:{line - start + 1}:"
    return lambda output: re.sub(rf"^{re.escape(str(path))}:(\d+):", place, output, flags=re.M)


def tidy(batch, folder):
    """What clang-tidy writes of a batch."""
    path = folder / (batch[0][0].removesuffix(".cpp").replace("/", "_") + f"-{len(batch)}.cpp")
    placed = joined(batch, path)
    known = dict.fromkeys(option for _, each in batch for option in each)
    command = ["clang-tidy", "-quiet", f"--config-file={ROOT}/.clang-tidy", f"--checks={CHECKS}", path, "--", "-std=c++20", "-Wall",
               "-Wextra", "-Wconversion", "-Wshadow", "-Wno-sign-conversion", *SHALLOW, "-I", ROOT / os.path.dirname(batch[0][0])]
    done = subprocess.run(command + [part for option in known for part in option], capture_output=True, text=True, check=False)
    output = placed(COLOUR.sub("", done.stdout))
    if done.returncode and not FINDING.search(output):
        output += f"{path}:1:1: error: clang-tidy ended with status {done.returncode}: {done.stderr[-2000:]}\n"
    return output


def findings(batch, folder):
    """The same, with sources that redefine names by themselves."""
    output = tidy(batch, folder)
    twice = {os.path.relpath(file, ROOT) for file in re.findall(r"^(/[^:\n]+\.cpp):\d+:\d+: error: redefinition of", output, re.M)}
    alone = [each for each in batch if each[0] in twice]
    if not alone or len(batch) == 1:
        return output
    rest = [each for each in batch if each[0] not in twice]
    return "".join(findings(each, folder) for each in [rest, *([one] for one in alone)] if each)


def main():
    commands, folder, rooms = json.loads(pathlib.Path(sys.argv[1]).read_text()), pathlib.Path(sys.argv[2]).resolve(), set(sys.argv[3:])
    folder.mkdir(parents=True, exist_ok=True)
    work = sorted(batches(commands, rooms), key=len, reverse=True)
    if not work:
        sys.exit(f"tidy_batches: no sources of {' '.join(sorted(rooms))} in {sys.argv[1]}, expected some")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        outputs = list(pool.map(lambda batch: findings(batch, folder), work))
    shown = set()
    for output in outputs:
        for part in re.split(r"^(?=/[^:\n]+:\d+:\d+: (?:warning|error): )", output, flags=re.M):
            if FINDING.match(part) and part not in shown:
                shown.add(part)
                print(part, end="")
    print(f"{sum(map(len, work))} sources in {len(work)} batches, {len(shown)} findings")
    return 1 if shown else 0


if __name__ == "__main__":
    sys.exit(main())
