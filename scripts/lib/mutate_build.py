"""Builds the test programs once with all changes in them: a copy of the sources in build/mutate/src, rewritten."""
import hashlib
import json
import os
import pathlib
import pickle
import re
import shutil
import struct
import subprocess
import sys

import mutate_find
import mutate_write
import trusted_rooms

MOST_ROUNDS = 6
ERROR = re.compile(r"^(?:In file included from )?(?:\S*/mutate/src/)(?P<path>[^:\s]+):(?P<line>\d+):(?:\d+:)? +(?P<what>error|note|.*required from)", re.M)
DEVICE = "tests/mutation"
# What makes a test program; its own sources hold no change and need not be fast.
PROGRAM = f"""add_executable(${{name}} ${{arg_SOURCES}} ${{CMAKE_SOURCE_DIR}}/{DEVICE}/Listener.cpp)
  target_compile_options(${{name}} PRIVATE -O0 -g0)
  set_target_properties(${{name}} PROPERTIES UNITY_BUILD ON)"""


def sources(top):
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=top, check=True, capture_output=True, text=True).stdout
    return [path for path in listed.splitlines() if (top / path).is_file()]


def write_changed(path, data):
    """Leaves a file that holds this already alone, so that nothing is built anew for it."""
    if path.is_file() and path.read_bytes() == data:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def programs(folder):
    """Where the test programs are that are built."""
    return folder / "src/build/dev/bin"


class Build:
    def __init__(self, top, folder, rooms):
        self.top, self.folder, self.rooms = top, folder, rooms
        self.names = trusted_rooms.programs(rooms, slow=False)
        self.tree = folder / "src"
        self.out = programs(folder).parent
        self.arguments = ["-std=c++20", *(f"-I{top / each}" for each in trusted_rooms.INCLUDES)]

    def find(self):
        """All changes of all rooms: numbers from 1 on, in the order of their places."""
        paths = [path for path in sources(self.top) if path.endswith((".h", ".cpp")) and trusted_rooms.room_of(path)]
        self.sites = self.found(paths)
        self.mutants = {}
        for path, sites in self.sites.items():
            for site in sites:
                for _, _, change in site.changes:
                    self.mutants[len(self.mutants) + 1] = {"file": path, "line": site.line, "function": site.function, "change": change,
                                                           "end": site.line + self.lines(path, site)}
        self.dropped = set()

    def changes(self, path):
        """Whether a file gets its changes; those of other rooms are left as they are, so that what they are in comes out of the compiler cache."""
        return path in self.sites and trusted_rooms.room_of(path) in self.rooms

    def found(self, paths):
        """Of each file its sites; those of the last time when no file has changed."""
        kept = self.folder / "sites"
        state = hashlib.sha256(repr([(path, (self.top / path).read_bytes()) for path in [*paths, "scripts/lib/mutate_find.py"]]).encode()).hexdigest()
        if kept.is_file():
            known, sites = pickle.loads(kept.read_bytes())
            if known == state:
                return sites
        rooms = {}   # files of one folder go together
        for path in paths:
            rooms.setdefault((path.endswith(".h"), pathlib.Path(path).parent), []).append(self.top / path)
        found = {}
        for group in rooms.values():
            found.update(mutate_find.find(group, self.arguments, self.folder))
        sites = {path: found[self.top / path] for path in paths}
        kept.write_bytes(pickle.dumps((state, sites)))
        return sites

    def lines(self, path, site):
        return (self.top / path).read_bytes()[site.start:site.end].count(b"\n")

    def copy(self):
        """The tree with what is still to be made in it."""
        for path in sources(self.top):
            if not self.changes(path):
                target = self.tree / path
                target.parent.mkdir(parents=True, exist_ok=True)
                if not target.exists() or target.stat().st_mtime_ns != (self.top / path).stat().st_mtime_ns:
                    if path not in ("CMakeLists.txt", "cmake/Rooms.cmake"):
                        shutil.copy2(self.top / path, target)
        rooms = (self.top / "cmake/Rooms.cmake").read_text()
        rooms = rooms.replace("add_executable(${name} ${arg_SOURCES})", PROGRAM)
        write_changed(self.tree / "cmake/Rooms.cmake", rooms.encode())
        lists = (self.top / "CMakeLists.txt").read_text()
        lists = lists.replace("enable_testing()", f"add_library(mutants SHARED {DEVICE}/Mutant.cpp)\nlink_libraries(mutants)\nenable_testing()", 1)
        write_changed(self.tree / "CMakeLists.txt", lists.encode())
        number = 0
        for path, sites in self.sites.items():
            numbers = []
            for site in sites:
                ids = range(number + 1, number + 1 + len(site.changes))
                number += len(site.changes)
                numbers.append([None if each in self.dropped else each for each in ids])
            if not self.changes(path):
                continue
            text = mutate_write.rewritten((self.top / path).read_bytes(), sites, numbers)
            write_changed(self.tree / path, f'#include "{self.tree / DEVICE}/Mutant.h"\n#line 1\n{text}'.encode())

    def compile(self):
        """Builds; leaves out what does not compile, and builds again."""
        # What no change is in comes out of the compiler cache: the flags and places are those of the dev preset, and -w is no difference.
        environment = {**os.environ, "CCACHE_IGNOREOPTIONS": "-w", "CCACHE_READONLY": "1"}
        for _ in range(MOST_ROUNDS):
            self.copy()
            if not (self.out / "build.ninja").exists():
                subprocess.run(["cmake", "--preset", "dev", "-DCMAKE_CXX_FLAGS=-w", "-DSFT_BENCH=OFF"], cwd=self.tree, check=True, stdout=subprocess.DEVNULL)
            log = self.folder / "build.log"
            with open(log, "w") as out:
                ran = subprocess.run(["nice", "-n", "5", "ninja", "-k0", "-C", self.out, *self.names],
                                     stdout=out, stderr=out, env=environment)
            if ran.returncode == 0:
                return
            bad = self.blamed(log.read_text()) - self.dropped
            print(f"mutate: {len(bad)} changes do not compile and are left out", file=sys.stderr, flush=True)
            if not bad:
                break
            self.dropped |= bad
        raise SystemExit(f"mutate: the changed sources do not build; see {self.folder / 'build.log'}")

    def blamed(self, output):
        """The changes at the lines that the compiler complains of."""
        lines = {(match["path"], int(match["line"])) for match in ERROR.finditer(output) if trusted_rooms.room_of(match["path"])}
        return {number for number, each in self.mutants.items()
                if any((each["file"], line) in lines for line in range(each["line"], each["end"] + 1))}

    def numbers_built(self):
        """Numbers of the changes that are in the programs, and not only in what the compiler evaluates."""
        numbers = set()
        names = [self.out / "bin" / name for name in self.names] + sorted((self.out / "lib").glob("*.so"))
        section = self.folder / "section"
        for name in names:
            section.unlink(missing_ok=True)
            subprocess.run(["objcopy", "--dump-section", f".mutants={section}", name, self.folder / "stripped"], stderr=subprocess.DEVNULL)
            if section.exists():
                numbers.update(each for each, in struct.iter_unpack("<i", section.read_bytes()))
        section.unlink(missing_ok=True)
        (self.folder / "stripped").unlink(missing_ok=True)
        return numbers

    def save(self):
        built = self.numbers_built()
        for number, each in self.mutants.items():
            each["built"] = number in built and number not in self.dropped
        (self.folder / "mutants.json").write_text(json.dumps(self.mutants, indent=0))


def build(top, folder, rooms):
    """Builds the test programs of these rooms with all changes of these rooms in them."""
    if shutil.which("ninja") is None or shutil.which("objcopy") is None:
        raise SystemExit("mutate: no ninja or no objcopy; run scripts/bootstrap build")
    folder.mkdir(parents=True, exist_ok=True)
    work = Build(top, folder, rooms)
    work.find()
    print(f"mutate: {len(work.mutants)} changes in {len(work.sites)} files", file=sys.stderr, flush=True)
    work.compile()
    work.save()


def load(folder):
    """Number to change, as save wrote them."""
    path = pathlib.Path(folder) / "mutants.json"
    if not path.is_file():
        raise SystemExit("mutate: nothing is built; run without --no-build")
    return {int(number): each for number, each in json.loads(path.read_text()).items()}
