"""Runs the test programs with one change at a time: only the cases that reach it, the fast ones first."""
import collections
import concurrent.futures
import dataclasses
import os
import pathlib
import resource
import signal
import subprocess
import tempfile

FAST = 1000                     # milliseconds of cases that are run before the others
MEMORY, FILE = 8 << 30, 2 << 30  # bytes that a changed program may have and write
WORKERS = 2
# In a /dev/shm of its own: what a program leaves there that dies goes with it.
ALONE = ["unshare", "--mount", "sh", "-c", 'mount -t tmpfs -o size=2g tmpfs /dev/shm && exec "$0" "$@"'] if os.geteuid() == 0 else []
# Properties try the same inputs each time, or a change would be killed by luck.
PROPERTIES = "seed=1 max_success=100"


@dataclasses.dataclass
class Case:
    program: str
    name: str
    milliseconds: int


def limited():
    resource.setrlimit(resource.RLIMIT_DATA, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE, FILE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(program, cases, number, seconds, folder):
    """True when a case fails, or the program dies or takes longer."""
    command = [*ALONE, program, "--gtest_brief=1", "--gtest_fail_fast", "--gtest_filter=" + ":".join(case.name for case in cases)]
    environment = {**os.environ, "SFT_MUTANT": str(number), "RC_PARAMS": PROPERTIES, "TMPDIR": folder}
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL, cwd=folder, env=environment,
                          start_new_session=True, preexec_fn=limited) as child:
        try:
            return child.wait(seconds) != 0
        except subprocess.TimeoutExpired:
            return True
        finally:
            try:
                os.killpg(child.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


def recorded(program, log):
    """A program's cases with what they reach, as tests/mutation/Listener.cpp writes them, each line in words."""
    log.unlink(missing_ok=True)
    with tempfile.TemporaryDirectory(prefix="mutate-") as place:
        status = subprocess.run([program, "--gtest_brief=1"], cwd=place, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                env={**os.environ, "SFT_MUTANT_RECORD": str(log), "RC_PARAMS": PROPERTIES, "TMPDIR": place}).returncode
    lines = [line.split() for line in log.read_text().splitlines()] if log.exists() else []
    if status not in (0, 1) or not lines:
        raise SystemExit(f"mutate: {program.name} ended with status {status} while it told which cases reach which change, "
                         f"behind {lines[-1][0] if lines else 'no case'}")
    return lines


def record(programs, folder):
    """Which cases reach which change: number to cases. A case that fails without any is left out, and told.

    What makes a static object is reached by the first case alone, and all see what comes of it: where a change is reached by one
    case of a program, the program's others follow as a second choice, a list of their own.
    """
    reached, left_out = {}, []
    every = {}
    for program in programs:
        lines = recorded(program, folder / f"{program.name}.reached")
        cases = {name: Case(str(program), name, int(milliseconds)) for name, milliseconds, outcome, *_ in lines if outcome == "passed" and name != "*"}
        left_out += [f"{program.name}: {line[0]}" for line in lines if line[2] == "failed"]
        every[str(program)] = list(cases.values())
        for name, _, outcome, *numbers in lines:
            for number in map(int, numbers):
                if name in cases:
                    reached.setdefault(number, {})[(str(program), name)] = cases[name]
                elif name == "*":
                    reached.setdefault(number, {}).update({(str(program), each): case for each, case in cases.items()})
    return {number: choices(list(cases.values()), every) for number, cases in reached.items()}, left_out


def choices(cases, every):
    """A change's cases, and behind them those of the programs of which only one case reaches it."""
    programs = collections.Counter(case.program for case in cases)
    return cases, [case for program, own in programs.items() if own == 1 for case in every[program] if case not in cases]


def stages(cases):
    """Splits a change's cases into runs: (program, cases), those that are soon done first."""
    by_program = {}
    for case in sorted(cases, key=lambda case: case.milliseconds):
        by_program.setdefault(case.program, []).append(case)
    parts = []
    for program, own in by_program.items():
        spent, fast = 0, 0
        while fast < len(own) and (fast == 0 or spent + own[fast].milliseconds <= FAST):
            spent += own[fast].milliseconds
            fast += 1
        parts.append((spent, program, own[:fast]))
        if own[fast:]:
            parts.append((sum(case.milliseconds for case in own[fast:]), program, own[fast:]))
    return sorted(parts, key=lambda part: part[0])


def killed(number, choices):
    """The cases' program that killed a change, or None."""
    with tempfile.TemporaryDirectory(prefix="mutate-", ignore_cleanup_errors=True) as place:
        for cases in choices:
            for milliseconds, program, part in stages(cases):
                if run(program, part, number, 10 + 8 * milliseconds / 1000, place):
                    return pathlib.Path(program).name
    return None


def run_all(numbers, reached, tell):
    """Number to "killed by PROGRAM", "survived" or "unreached". `tell` is called with each. An interrupt ends it early."""
    outcomes = {}
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        waiting = {pool.submit(killed, number, reached[number]): number for number in numbers if number in reached}
        for number in numbers:
            if number not in reached:
                outcomes[number] = "unreached"
        try:
            for done in concurrent.futures.as_completed(waiting):
                number = waiting[done]
                by = done.result()
                outcomes[number] = f"killed by {by}" if by else "survived"
                tell(number, outcomes[number], len(outcomes), len(numbers))
        except KeyboardInterrupt:
            pool.shutdown(wait=True, cancel_futures=True)
    return outcomes
