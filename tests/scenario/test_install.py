"""What is installed works wherever it is put: programs, configurations, services, manual pages, completion."""
import os
import pathlib
import pty
import re
import select
import shutil
import stat
import subprocess
import tempfile
import time
import tomllib
import unittest

import harness
from harness import BUILD, CONFIG, PATIENCE, ROOT, STATUS, Finished, ScenarioTest, flow_key, status, udp_frame, wanted

PACKAGING = ROOT / "packaging"
UNITS = ("pexa-agent", "flow-tracker")
MOST_EXPOSED = {"pexa-agent": 2.0, "flow-tracker": 1.5}  # of 10, as systemd-analyze rates what a service could do
OPTION = re.compile(r"^  (?:-\w,)?(--[a-z0-9-]+)", re.MULTILINE)
COMMAND = re.compile(r"^  ([a-z][a-z0-9-]*)(?: |$)", re.MULTILINE)


def run(*command, **how):
    return Finished(subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                   check=False, timeout=PATIENCE, **how))


def section(help_text, heading):
    """What --help lists below a heading."""
    found = re.search(rf"^{heading}:\n((?:  .*\n)+)", help_text, re.MULTILINE)
    return found.group(1) if found else ""


def options_in(help_text):
    return set(OPTION.findall(section(help_text, "Options"))) - {"--help"}


def commands_of(program, path=()):
    """Each command of a program that can be run, as a tuple of words, with its options."""
    text = run(program, *path, "--help").out
    below = COMMAND.findall(section(text, "Subcommands"))
    found = {path: options_in(text)} if not below or re.search(r"^Usage:.*\[SUBCOMMAND\]", text, re.MULTILINE) else {}
    for name in below:
        found.update(commands_of(program, (*path, name)))
    return found


class Installed(unittest.TestCase):
    """Installed once, below a folder that stands for the machine's root, and then moved to where nobody expected it."""

    @classmethod
    def setUpClass(cls):
        cls.root = pathlib.Path(tempfile.mkdtemp(prefix="sft-install-"))
        cls.addClassCleanup(shutil.rmtree, cls.root)
        done = cls.install(cls.root / "staged")
        if done.code != 0:
            raise AssertionError(done.err)
        (cls.root / "staged/opt/tree").rename(cls.root / "moved")
        cls.prefix = cls.root / "moved"

    @staticmethod
    def install(destination, prefix="/opt/tree"):
        return run("cmake", "--install", BUILD, "--prefix", prefix, env={**os.environ, "DESTDIR": str(destination)})


class InstalledTreeTest(Installed):
    def test_everything_is_where_it_belongs(self):
        files = {str(each.relative_to(self.prefix)) for each in self.prefix.rglob("*") if not each.is_dir()}
        self.assertEqual(files, {
            "bin/pexa-agent", "bin/flow-tracker", "bin/sft",
            "lib/pexa/libPexaRuntime.so", "lib/pexa/libPexaSampledFlowTracker.so", "lib/pexa/libPexaSftAudit.so",
            "etc/pexa/agent.toml", "etc/pexa/flow-tracker.toml", "etc/default/pexa-agent",
            "lib/systemd/system/pexa-agent.service", "lib/systemd/system/flow-tracker.service", "lib/sysusers.d/pexa.conf", "lib/sysctl.d/50-pexa.conf",
            "share/man/man1/sft.1.gz", "share/man/man5/pexa-agent.toml.5.gz", "share/man/man5/flow-tracker.toml.5.gz",
            "share/man/man8/pexa-agent.8.gz", "share/man/man8/flow-tracker.8.gz",
            "share/bash-completion/completions/sft", "share/bash-completion/completions/pexa-agent",
            "share/bash-completion/completions/flow-tracker", "share/doc/pexa/copyright", "share/doc/pexa/changelog.gz"})

    def test_libraries_are_found_beside_the_programs_and_in_no_build_folder(self):
        for each in [*(self.prefix / "bin").iterdir(), *(self.prefix / "lib/pexa").iterdir()]:
            dynamic = run("readelf", "-d", each).out
            paths = re.findall(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", dynamic)
            self.assertEqual(paths, ["$ORIGIN/../lib/pexa" if each.parent.name == "bin" else "$ORIGIN"], each)
            self.assertNotIn("not found", run("ldd", each).out)

    def test_units_name_the_paths_of_the_prefix(self):
        for unit in UNITS:
            text = (self.prefix / f"lib/systemd/system/{unit}.service").read_text()
            self.assertIn(f"ExecStart=/opt/tree/bin/{unit} --config /opt/tree/etc/pexa/", text)
            self.assertNotIn("@", text.replace("@system-service", "").replace("@privileged", "").replace("@resources", ""))

    def test_a_configuration_that_is_there_is_left_alone(self):
        destination = self.root / "again"
        self.assertEqual(self.install(destination, "/usr").code, 0)
        kept = destination / "etc/pexa/agent.toml"  # of /usr, not below it
        kept.write_text("# mine\n")
        done = self.install(destination, "/usr")
        self.assertEqual(done.code, 0, done.err)
        self.assertEqual(kept.read_text(), "# mine\n")
        self.assertFalse((destination / "usr/etc").exists())


class InstalledRunTest(Installed, ScenarioTest):
    def setUp(self):
        ScenarioTest.setUp(self)
        for name, place in (("AGENT", "pexa-agent"), ("SFT", "sft")):
            before = getattr(harness, name)
            self.addCleanup(setattr, harness, name, before)
            setattr(harness, name, self.prefix / "bin" / place)
        self.addCleanup(setattr, harness.Agent, "PROGRAM", harness.Agent.PROGRAM)
        harness.Agent.PROGRAM = harness.AGENT

    def test_a_moved_installation_does_the_main_job_with_plugins_named_plainly(self):
        capture = self.write_capture("in.pcap", [udp_frame("10.0.0.1", "10.0.0.2", 1, 2)] * 5)
        self.write_config([("Ethernet1", "capture", capture), ("Ethernet3", "write", self.dir / "out.pcap")],
                          {"Ethernet1": "Ethernet3"}, plugins=("libPexaSampledFlowTracker.so", "libPexaSftAudit.so"))
        self.want([wanted(flow_key("10.0.0.1", "10.0.0.2", 1, 2))])
        self.start_replayed()
        self.assertEqual(list(self.local().values()), [(5, 5 * 28)])  # octets of IP

    def test_a_default_configuration_starts_an_agent_without_ports(self):
        agent = harness.Agent(["--config", self.prefix / "etc/pexa/agent.toml", "--run-dir", self.run_dir])
        self.addCleanup(agent.close)
        agent.wait_ready()
        self.assertEqual(self.sft("ports"), [])
        self.assertEqual(agent.end(), 0)

    def test_tables_of_a_run_directory_that_a_group_shares_can_be_written_by_the_group(self):
        self.run_dir.mkdir()
        self.run_dir.chmod(0o2775)
        self.put([status(flow_key("10.0.0.1", "10.0.0.2", 1, 2))])
        made = list(self.run_dir.rglob("*"))
        self.assertTrue(any(each.is_file() for each in made))
        for each in made:
            self.assertTrue(each.stat().st_mode & stat.S_IWGRP, each)
            self.assertFalse(each.stat().st_mode & stat.S_IWOTH, each)

    def test_tables_of_a_run_directory_of_one_user_are_written_by_that_user(self):
        self.run_dir.mkdir(mode=0o755)
        self.put([status(flow_key("10.0.0.1", "10.0.0.2", 1, 2))])
        for each in self.run_dir.rglob("*"):
            self.assertFalse(each.stat().st_mode & (stat.S_IWGRP | stat.S_IWOTH), each)


class CheckTest(ScenarioTest):
    """Both daemons check a configuration and do nothing else."""

    CONFIGS = {"pexa-agent": "agent.toml", "flow-tracker": "flow-tracker.toml"}

    def check(self, program, file):
        return run(BUILD / "bin" / program, "--config", file, "--check", "--run-dir", self.run_dir)

    def test_the_configurations_that_are_installed_are_right(self):
        for program, name in self.CONFIGS.items():
            file = PACKAGING / "etc/pexa" / name
            done = self.check(program, file)
            self.assertEqual((done.code, done.out, done.err), (0, f"{file}: ok\n", ""))
        self.assertFalse(self.run_dir.exists())

    def test_what_they_offer_in_comments_is_right_too(self):
        for program, name in self.CONFIGS.items():
            text = re.sub(r"^#(?=\S)", "", (PACKAGING / "etc/pexa" / name).read_text(), flags=re.MULTILINE)
            file = self.dir / name
            file.write_text(text)
            done = self.check(program, file)
            self.assertEqual((done.code, done.err), (0, ""), name)

    def test_they_offer_each_setting_that_the_manual_page_tells_of_and_no_other(self):
        for name in self.CONFIGS.values():
            page = f"pexa-{name}" if name == "agent.toml" else name
            manual = (PACKAGING / "man" / f"{page}.5").read_text()
            tables = set(re.findall(r"^\.Ss \[+([a-z_.]+)", manual, re.MULTILINE))
            keys = set(re.findall(r"\bIc (\w+)", manual))
            text = (PACKAGING / "etc/pexa" / name).read_text()
            offered = tomllib.loads(re.sub(r"^#(?=\S)", "", text, flags=re.MULTILINE))
            free = {"forward", "trace"}  # tables whose keys are names
            found = set(offered) - tables - {"state"} - free
            for table, value in offered.items():
                for each in value if isinstance(value, list) else [value]:
                    if isinstance(each, dict) and table not in free and table != "state":
                        found |= set(each)
            for attributes in offered.get("state", {}).values():
                found |= set(attributes)
            self.assertEqual(found, keys, name)
            self.assertEqual({table for table in offered if isinstance(offered[table], (dict, list))} - {"plugins"},
                             {table.split(".")[0] for table in tables}, name)

    def test_the_documentation_names_no_setting_that_is_not_offered(self):
        for document, name in (("operating.md", "agent.toml"), ("flow-tracker.md", "flow-tracker.toml")):
            example = re.search(r"^```toml\n(.*?)^```", (ROOT / "docs" / document).read_text(), re.MULTILINE | re.DOTALL).group(1)
            offered = (PACKAGING / "etc/pexa" / name).read_text()
            for key in re.findall(r"^([a-z]\w+) =", example, re.MULTILINE):
                self.assertRegex(offered, rf"(?m)^#?{key} =")

    def test_a_wrong_configuration_is_told_in_one_line(self):
        for program in self.CONFIGS:
            self.config.write_text("frobnicate = 1\n")
            done = self.check(program, self.config)
            self.assertEqual((done.code, done.out, done.err.count("\n")), (1, "", 1), done.err)
            self.assertTrue(done.err.startswith(f"{program}: {self.config}:1: unknown key"), done.err)


@unittest.skipUnless(shutil.which("systemd-analyze"), "no systemd-analyze on this machine")
class UnitTest(Installed):
    def setUp(self):
        self.units = self.root / "units"
        self.units.mkdir(exist_ok=True)
        for unit in UNITS:  # with programs that are there
            text = (self.prefix / f"lib/systemd/system/{unit}.service").read_text()
            (self.units / f"{unit}.service").write_text(text.replace("/opt/tree", str(self.prefix)))

    def test_systemd_understands_every_line(self):
        for unit in UNITS:
            done = run("systemd-analyze", "verify", "--man=no", "--recursive-errors=no", self.units / f"{unit}.service")
            self.assertEqual((done.code, done.err), (0, ""))

    def test_services_may_do_little(self):
        for unit in UNITS:
            done = run("systemd-analyze", "security", "--offline=true", "--no-pager", self.units / f"{unit}.service",
                       env={**os.environ, "SYSTEMD_COLORS": "0"})
            rated = re.search(r"Overall exposure level for .*: ([0-9.]+)", done.out)
            self.assertIsNotNone(rated, done.err)
            self.assertLessEqual(float(rated.group(1)), MOST_EXPOSED[unit], done.out)

    def test_the_agent_has_one_capability_and_the_tracker_none(self):
        for unit, capabilities in zip(UNITS, ("CAP_NET_RAW", "")):
            lines = (self.units / f"{unit}.service").read_text().splitlines()
            self.assertIn(f"AmbientCapabilities={capabilities}", lines)
            self.assertIn(f"CapabilityBoundingSet={capabilities}", lines)

    def test_tables_outlive_the_services(self):
        for unit in UNITS:
            lines = (self.units / f"{unit}.service").read_text().splitlines()
            self.assertIn("RuntimeDirectoryPreserve=yes", lines)


class ManualTest(unittest.TestCase):
    maxDiff = None
    PAGES = {"sft": "sft.1", "pexa-agent": "pexa-agent.8", "flow-tracker": "flow-tracker.8"}

    def page(self, program):
        return (PACKAGING / "man" / self.PAGES[program]).read_text()

    def test_pages_are_formatted_without_a_warning(self):
        for page in (PACKAGING / "man").iterdir():
            done = run("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page, env={**os.environ, "MANROFFSEQ": ""})
            self.assertEqual((done.code, done.err), (0, ""), page)

    def test_options_are_those_of_help(self):
        for program in self.PAGES:
            head = self.page(program).partition(".Sh COMMANDS")[0]
            told = {f"-{option}" for option in re.findall(r"^\.It Fl (-[a-z0-9-]+)", head, re.MULTILINE)} - {"--help"}
            self.assertEqual(told, options_in(run(BUILD / "bin" / program, "--help").out), program)

    def test_commands_of_sft_and_their_options_are_those_of_help(self):
        commands = self.page("sft").partition(".Sh COMMANDS")[2].partition(".Sh ENVIRONMENT")[0]
        told = {}
        for part in re.split(r"^\.It Cm ", commands, flags=re.MULTILINE)[1:]:
            name = re.match(r"[a-z0-9 -]+?(?= Ar| Op|\n)", part).group(0)
            told[tuple(name.split())] = {f"-{each}" for each in re.findall(r"^\.It Fl (-[a-z0-9-]+)", part, re.MULTILINE)}
        self.assertEqual(told, commands_of(BUILD / "bin/sft"))


class CompletionTest(ScenarioTest):
    def complete(self, *words, file="sft"):
        """What bash offers for the last word."""
        words = [str(each) for each in words]
        script = ("source /usr/share/bash-completion/bash_completion 2>/dev/null; source \"$1\"; shift; COMP_WORDS=(\"$@\"); "
                  "COMP_CWORD=$(($# - 1)); COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; "
                  "_found=$(complete -p \"${1##*/}\" | sed 's/.*-F \\([^ ]*\\) .*/\\1/'); "
                  "$_found \"$1\" \"${@: -1}\" \"${COMP_WORDS[COMP_CWORD-1]}\"; printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = run("bash", "--norc", "-c", script, "bash", PACKAGING / "completion" / file, *words,
                   env={**os.environ, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}", "PEXA_RUN_DIR": str(self.run_dir)})
        self.assertEqual(done.err, "")
        return set(done.out.split())

    def test_every_command_of_sft_is_offered_and_its_options(self):
        commands = commands_of(BUILD / "bin/sft")
        for group in {path[:-1] for path in commands}:
            words = {path[len(group)] for path in commands if path[: len(group)] == group and len(path) > len(group)}
            self.assertEqual(self.complete("sft", *group, ""), words, group)
        for path, options in commands.items():
            if options:
                self.assertLessEqual(options, self.complete("sft", *path, "--"), path)

    def test_options_of_the_daemons_are_offered(self):
        for program in ("pexa-agent", "flow-tracker"):
            self.assertEqual(self.complete(program, "--", file="pexa-agent") - {"--help"},
                             options_in(run(BUILD / "bin" / program, "--help").out))

    def test_a_beginning_narrows_what_is_offered(self):
        self.assertEqual(self.complete("sft", "table", "du"), {"dump"})
        self.assertEqual(self.complete("sft", "--json", "flows", "--state", "over"), {"overflow"})
        self.assertEqual(self.complete("sft", "top", "--panel", "re"), {"reasons"})  # out of what --help lists

    def test_configurations_and_folders_are_offered(self):
        (self.dir / "a.toml").write_text("")
        (self.dir / "a.txt").write_text("")
        self.assertEqual(self.complete("pexa-agent", "--config", f"{self.dir}/a", file="pexa-agent"), {f"{self.dir}/a.toml"})
        self.run_dir.mkdir()
        self.assertEqual(self.complete("sft", "--run-dir", f"{self.dir}/r"), {str(self.run_dir)})

    def test_names_that_others_chose_are_offered_and_not_expanded(self):
        sft = self.dir / "sft"
        sft.write_text(f"""#!/bin/sh
case "$*" in
    *--help) {BUILD / "bin/sft"} "$@" ;;
    *ports) echo '{{"name":"Ether$(touch {self.dir}/expanded)","kind":"device"}}'; echo '{{"name":"Ether*","kind":"device"}}' ;;
esac
""")
        sft.chmod(0o755)
        offered = self.complete(sft, "attr", "get", "Ether")
        self.assertIn("Ether*", offered)
        self.assertFalse((self.dir / "expanded").exists())

    def test_tables_and_collections_of_the_run_directory_are_offered(self):
        key = flow_key("10.0.0.1", "10.0.0.2", 1, 2)
        self.put([status(key)])
        self.want([wanted(key)])
        self.assertEqual(self.complete("sft", "table", "dump", ""), {STATUS, CONFIG})
        self.assertIn("hoIpFlowStatus", self.complete("sft", "table", "dump", STATUS, ""))
        self.assertEqual({each for each in self.complete("sft", "table", "dump", CONFIG, "") if "Config" not in each}, set())

    def test_ports_of_the_running_agent_are_offered(self):
        capture = self.write_capture("in.pcap", [udp_frame("10.0.0.1", "10.0.0.2", 1, 2)])
        self.write_config([("Ethernet1", "capture", capture), ("Ethernet3", "write", self.dir / "out.pcap")])
        self.start_replayed()
        self.assertEqual(self.complete("sft", "flow", "want", "--interface", "Eth"), {"Ethernet1", "Ethernet3"})


class Terminal:
    """A program whose standard error is a terminal, and nothing else of it."""

    def __init__(self, command, **how):
        self.master, slave = pty.openpty()
        self.process = subprocess.Popen([str(part) for part in command], stderr=slave, **how,
                                        env={**os.environ, "TERM": "xterm"})
        os.close(slave)
        self.shown = ""

    def look(self, seconds=0.0):
        """Takes what has come on the terminal; False when the program has left it."""
        while select.select([self.master], [], [], seconds)[0]:
            try:
                text = os.read(self.master, 65536)
            except OSError:  # nobody has the other end any more
                return False
            if not text:
                return False
            self.shown += text.decode()
            seconds = 0.0
        return True

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for each in (self.process.stdin, self.process.stdout):
            if each:
                each.close()
        os.close(self.master)


class ProgressTest(ScenarioTest):
    """Long work is followed on a terminal, and leaves nothing there."""

    def start_watched(self, command, **how):
        terminal = Terminal(command, **how)
        self.addCleanup(terminal.close)
        return terminal

    def sft_command(self, *arguments):
        return [harness.SFT, "--run-dir", self.run_dir, *arguments]

    def end(self, terminal):
        """Waits for the end; what stands on the terminal's last line then."""
        while terminal.look(0.1):
            pass
        self.assertEqual(terminal.process.wait(PATIENCE), 0)
        return re.split(r"\r|\n|\x1b\[K", terminal.shown)[-1]

    def test_a_load_of_a_table(self):
        load = self.start_watched(self.sft_command("table", "put", STATUS, "hoIpFlowStatus"), stdin=subprocess.PIPE,
                                  stdout=subprocess.DEVNULL)
        deadline = time.monotonic() + PATIENCE
        number = 0
        while "lines read and checked: " not in load.shown and time.monotonic() < deadline:
            number += 1
            key = flow_key(f"10.0.{number >> 8 & 255}.{number & 255}", "10.0.0.2", 1, 2)
            load.process.stdin.write((harness.json.dumps(status(key)) + "\n").encode())
            load.process.stdin.flush()
            load.look()
        load.process.stdin.close()
        self.assertEqual(self.end(load), "")
        self.assertRegex(load.shown, r"\r\x1b\[Klines read and checked: \d+")

    def test_a_dump_and_nothing_of_it_in_a_pipe(self):
        self.put([status(flow_key("10.0.0.1", "10.0.0.2", port, 2)) for port in range(1, 4000)])
        command = self.sft_command("--json", "table", "dump", STATUS, "hoIpFlowStatus")
        piped = subprocess.Popen([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0,
                                 env={**os.environ, "TERM": "xterm"})
        self.addCleanup(piped.communicate)
        dump = self.start_watched(command, stdout=subprocess.PIPE, bufsize=0)
        # Both write into pipes that are full most of the time, until one has shown something; the other is as far, and older.
        read = [b"", b""]
        while chunk := dump.process.stdout.read(512):
            read[0] += chunk
            read[1] += piped.stdout.read(512)
            dump.look(0.0 if "rows: " in dump.shown else 0.01)
        read[1] += piped.stdout.read()
        self.assertEqual(self.end(dump), "")
        self.assertEqual([each.count(b"\n") for each in read], [3999, 3999])
        self.assertRegex(dump.shown, r"\r\x1b\[Krows: \d+")
        self.assertEqual((piped.stderr.read(), piped.wait(PATIENCE)), (b"", 0))

    def test_a_replay_whose_log_lines_stay_whole(self):
        frame = udp_frame("10.0.0.1", "10.0.0.2", 1, 2)
        capture = self.write_capture("in.pcap", [frame, frame], times=[0, 1000])  # at the recorded pace: longer than any test
        self.write_config([("Ethernet1", "capture", capture)], extra='[replay]\npace = "recorded"\n')
        agent = self.start_watched([harness.AGENT, "--config", self.config], stdout=subprocess.DEVNULL)
        deadline = time.monotonic() + PATIENCE
        while "replay: Ethernet1 100 %, 1 packets" not in agent.shown and time.monotonic() < deadline:
            self.assertTrue(agent.look(0.05), agent.shown)
        agent.process.terminate()
        self.assertEqual(self.end(agent), "")
        self.assertRegex(agent.shown, r"\r\x1b\[Kreplay: Ethernet1 100 %, 1 packets\r\x1b\[K\d{4}-.* signal 15: ending\r\n")


class ScriptTest(unittest.TestCase):
    def test_scripts_of_the_package_are_understood_by_the_shell(self):
        for script in ("postinst", "prerm", "postrm"):
            self.assertEqual(run("sh", "-n", PACKAGING / "debian" / script).err, "")
            self.assertTrue(os.access(PACKAGING / "debian" / script, os.X_OK))


if __name__ == "__main__":
    unittest.main()
