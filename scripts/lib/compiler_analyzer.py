#!/usr/bin/env python3
"""Runs GCC's -fanalyzer over sources, as their compile commands have it, and prints its warnings; status 1 when there is one.

    compiler_analyzer.py COMPILE_COMMANDS "OPTION ..." SOURCE ...
"""
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def analyzed(entry, options):
    """What the compiler says of a source: the analyzer alone, nothing is written."""
    words = shlex.split(entry["command"])
    words = words[next(at for at, word in enumerate(words) if re.search(r"(c|g)\+\+[^/]*$", word)):]
    words = [word for word in words if not re.match(r"-W|-g\d?$", word)]
    words[words.index("-o") + 1] = "/dev/null"
    words[words.index("-c")] = "-S"
    done = subprocess.run([*words, "-fanalyzer", "-fdiagnostics-path-format=none", *options], cwd=entry["directory"],
                          capture_output=True, text=True, check=False)
    return done.stderr if done.returncode or "warning:" in done.stderr else ""


def main():
    commands = {}
    for entry in json.loads(pathlib.Path(sys.argv[1]).read_text()):
        commands.setdefault(os.path.relpath(entry["file"], ROOT), entry)
    options, sources = sys.argv[2].split(), [each for each in sys.argv[3:] if each in commands]
    if not sources:
        sys.exit(f"compiler_analyzer: none of the sources is in {sys.argv[1]}, expected some")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        told = [each for each in pool.map(lambda source: analyzed(commands[source], options), sources) if each]
    print("".join(told) + f"{len(sources)} sources, {len(told)} with findings")
    return 1 if told else 0


if __name__ == "__main__":
    sys.exit(main())
