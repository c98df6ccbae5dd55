"""Who may do what: modes of the run directory and its sockets, the rights to ask and to change, rights that are given up."""
import grp
import json
import os
import pathlib
import re
import shutil
import stat
import subprocess
import sys
import unittest

from harness import BUILD, PATIENCE, Agent, ScenarioTest, udp_frame

FRAME = udp_frame("10.0.0.1", "10.0.0.2", 1, 2)
STRANGER = 40001  # a user, and groups, of whom the machine has not heard
READERS, CHANGERS = 40002, 40003
RAW_PACKETS = 1 << 13  # CAP_NET_RAW in a set of capabilities
FILTERED = "SFT_FILTERS" not in os.environ or os.environ["SFT_FILTERS"] == "1"

# Says what a control socket answers; a refusal may come before the question is out.
ASKS = """import socket, sys
with socket.socket(socket.AF_UNIX) as control:
    control.settimeout(120)
    try:
        control.connect(sys.argv[1])
    except PermissionError:
        sys.exit("kernel")
    try:
        control.sendall(sys.argv[2].encode() + b"\\n")
    except OSError:
        pass
    print(control.makefile().readline(), end="")
"""


def mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


def status_of(process):
    """/proc/PID/status as a dictionary."""
    return dict(line.split(":\t", 1) for line in pathlib.Path(f"/proc/{process}/status").read_text().splitlines() if ":\t" in line)


class Tracker(Agent):
    PROGRAM = BUILD / "bin/flow-tracker"


@unittest.skipUnless(os.geteuid() == 0 and shutil.which("setpriv"), "several users are needed: root, and setpriv")
class AccessTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        os.chmod(self.dir, 0o755)
        self.capture = self.write_capture("in.pcap", [FRAME])

    def make_run_dir(self, rights, group=READERS):
        self.run_dir.mkdir()
        os.chown(self.run_dir, 0, group)
        os.chmod(self.run_dir, rights)

    def start_agent(self, security="", device=None, command=None):
        port = ("Ethernet1", "device", device) if device else ("Ethernet1", "capture", self.capture)
        self.write_config([port], extra=f"[security]\n{security}\n", plugins=(), state={})
        agent = (command or Agent)(["--config", self.config])
        self.addCleanup(agent.close)
        agent.wait_ready()
        return agent

    def ask(self, request, user=STRANGER, group=STRANGER, groups=(), name="control.sock"):
        """What the socket answers to another user: its first line, or "kernel" when nobody let it in."""
        more = [f"--groups={','.join(map(str, groups))}"] if groups else ["--clear-groups"]
        done = subprocess.run(["setpriv", f"--reuid={user}", f"--regid={group}", *more, sys.executable, "-c", ASKS,
                               str(self.run_dir / name), json.dumps(request)],
                              capture_output=True, text=True, check=False, timeout=PATIENCE, cwd="/")
        return done.stderr.strip() if done.stderr else json.loads(done.stdout)

    ASK = {"request": "ports"}
    CHANGE = {"request": "trace level", "name": "Pexa::Sft", "level": 1}

    def rights(self, **who):
        """What a user may do: "", "asks", "asks and changes"."""
        asked, changed = self.ask(self.ASK, **who), self.ask(self.CHANGE, **who)
        may_ask = "row" in asked
        may_change = "error" not in changed or "may not" not in changed["error"]
        return {(False, False): "", (True, False): "asks", (True, True): "asks and changes"}[(may_ask, may_change)]

    def test_what_the_agent_makes_is_its_groups_at_most(self):
        self.start_agent()
        self.assertEqual(mode(self.run_dir), 0o750)
        self.assertEqual(mode(self.run_dir / "control.sock"), 0o660)
        self.assertEqual(self.ask(self.ASK), "kernel")

    def test_a_run_directory_that_its_group_may_read_lets_it_ask(self):
        self.make_run_dir(0o2750)
        agent = self.start_agent()
        self.assertEqual(os.stat(self.run_dir / "control.sock").st_gid, READERS)
        self.assertEqual(self.rights(group=READERS), "asks")
        self.assertEqual(self.rights(groups=[READERS]), "asks")
        refused = self.ask(self.CHANGE, group=READERS)
        self.assertEqual(refused, {"error": f"user {STRANGER} may not change anything here, expected root"})
        self.assertTrue(agent.said(f"control.sock: user {STRANGER} (process "), agent.log)

    def test_a_run_directory_that_its_group_may_write_lets_it_change(self):
        self.make_run_dir(0o2770)
        self.start_agent()
        self.assertEqual(self.rights(group=READERS), "asks and changes")

    def test_groups_that_are_told(self):
        self.make_run_dir(0o755, group=0)
        agent = self.start_agent(f'read_group = "{self.group(1)}"\nchange_group = "{self.group(2)}"')
        self.assertEqual(self.rights(group=1), "asks")
        self.assertEqual(self.rights(groups=[2, 12345]), "asks and changes")
        self.assertEqual(self.rights(user=0, group=0), "asks and changes")
        self.assertIn("may not ask here, expected root, a member of group", self.ask(self.ASK)["error"])
        self.assertTrue(agent.said(f"user {STRANGER} (process "), agent.log)

    @staticmethod
    def group(number):
        return grp.getgrgid(number).gr_name

    def test_the_tracker_asks_the_same(self):
        self.make_run_dir(0o2750)
        config = self.dir / "tracker.toml"
        config.write_text(f'listen = "127.0.0.1:0"\nrun_dir = "{self.run_dir}"\n[security]\nread_group = "{self.group(1)}"\n')
        tracker = Tracker(["--config", config])
        self.addCleanup(tracker.close)
        tracker.wait_ready()
        asks = {"request": "statistics"}
        self.assertIn("row", self.ask(asks, group=READERS, name="flow-tracker.sock"))
        refused = self.ask(asks, group=READERS + 1, name="flow-tracker.sock")
        self.assertEqual(refused, "kernel")  # it may not even pass through the directory
        self.assert_sealed(tracker)

    def assert_sealed(self, program):
        status = status_of(program.process.pid)
        self.assertEqual(status["NoNewPrivs"], "1")
        if FILTERED:
            self.assertEqual(status["Seccomp"], "2")
            self.assertTrue(program.said("; system calls are filtered"), program.log)
        else:
            self.assertEqual(len(program.said("system calls are not filtered: this build, with sanitizers, has no filter")), 1)

    # Rights given up

    def test_an_agent_becomes_a_user_and_nothing_of_root_is_left(self):
        agent = self.start_agent('user = "daemon"')
        status = status_of(agent.process.pid)
        self.assertEqual(status["Uid"].split(), ["1"] * 4)
        self.assertEqual(status["Gid"].split(), ["1"] * 4)
        self.assertEqual({status[each].strip("0") for each in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")}, {""})
        self.assert_sealed(agent)
        self.assertEqual(len(agent.said("runs as user 1; ")), 1)  # a warning where nothing is filtered
        self.assertEqual({os.stat(each).st_uid for each in [self.run_dir, *self.run_dir.rglob("*")]}, {1})
        self.assertEqual(self.ports()["Ethernet1"]["packetsIn"], 1)
        self.assertEqual(agent.end(), 0)
        self.assertFalse((self.run_dir / "control.sock").exists())

    def test_a_tracker_becomes_a_user(self):
        config = self.dir / "tracker.toml"
        config.write_text(f'listen = "127.0.0.1:0"\nrun_dir = "{self.run_dir}"\n[security]\nuser = "daemon"\n')
        tracker = Tracker(["--config", config])
        self.addCleanup(tracker.close)
        tracker.wait_ready()
        status = status_of(tracker.process.pid)
        self.assertEqual((status["Uid"].split()[1], status["CapEff"].strip("0")), ("1", ""))

    def test_a_live_port_opens_an_interface_made_anew_without_root(self):
        if not shutil.which("ip") or not shutil.which("nsenter"):
            self.skipTest("no ip or nsenter on this machine")

        class OwnNetwork(Agent):
            def command(self, arguments):
                script = 'ip link add t0 type veth peer name t1 && ip link set t1 up && ip link set t0 up && exec "$0" "$@"'
                return ["unshare", "-n", "sh", "-c", script, *super().command(arguments)]

        agent = self.start_agent('user = "daemon"', device="t0", command=OwnNetwork)
        status = status_of(agent.process.pid)
        self.assertEqual(int(status["CapEff"], 16), RAW_PACKETS)
        self.assertEqual(int(status["CapBnd"], 16), 0)

        def link(*words):
            subprocess.run(["nsenter", "-t", str(agent.process.pid), "-n", "ip", "link", *words], check=True, timeout=PATIENCE)
        link("del", "t0")
        agent.wait_for("t0: went away")
        link("add", "t0", "type", "veth", "peer", "name", "t1")
        link("set", "t1", "up")
        link("set", "t0", "up")
        agent.wait_for("port Ethernet1: up again")

    def test_a_user_that_there_is_not_and_other_mistakes(self):
        for line, said in (('user = "nobody-at-all"', 'user "nobody-at-all", expected a user of this machine'),
                           ('change_group = "no-such"', 'change_group "no-such", expected a group of this machine'),
                           ("filter_system_calls = 1", '"filter_system_calls" of [security] is 1, expected true or false'),
                           ("colour = 1", 'unknown key "colour"')):
            with self.subTest(line):
                self.write_config([], extra=f"[security]\n{line}\n", plugins=(), state={})
                error = self.refused()
                self.assertIn(said, error)
                self.assertTrue(re.match(rf"pexa-agent: {self.config}:\d+: ", error), error)

    def test_the_filter_can_be_switched_off(self):
        agent = self.start_agent("filter_system_calls = false")
        self.assertEqual(status_of(agent.process.pid)["Seccomp"], "0")
        self.assertEqual(len(agent.said("system calls are not filtered: filter_system_calls is false")), 1)


if __name__ == "__main__":
    unittest.main()
