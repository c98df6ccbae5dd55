"""What goes wrong around the programs: no space, no memory, no descriptors, a run directory that is not theirs, collectors and peers
that do not behave, a plugin that throws. Each is answered by one clear line, and the rest goes on."""
import collections
import ctypes
import json
import os
import pathlib
import resource
import shutil
import socket
import subprocess
import threading
import unittest

from harness import (BUDGET, BUILD, CONFIG, IN_HARDWARE, OVERFLOW, STATUS, Agent, ScenarioTest, flow_key, udp_frame, wanted)

FRAME = udp_frame("10.0.0.1", "10.0.0.2", 1, 2)
THROWER = BUILD / "lib/libagent_test_throwing_plugin.so"
CLONE_NEWNS = 0x20000
PACKETS = 2000
ROOT_ONLY = unittest.skipUnless(os.geteuid() == 0, "only root may do this to itself")


def flow(number):
    return flow_key(f"10.1.{number >> 8 & 255}.{number & 255}", "10.0.0.2", 1000 + (number >> 16), 2000)


class FaultTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.capture = self.write_capture("in.pcap", [FRAME] * PACKETS)
        self.port = ("Ethernet1", "capture", self.capture)

    def mount(self, *options):
        """A tmpfs over the run directory, which only this process and its children see."""
        if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNS) != 0:
            self.skipTest("no mount namespaces on this machine")
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
        self.run_dir.mkdir(exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", ",".join(("mode=0750", *options)), "tmpfs", self.run_dir], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", self.run_dir], check=True)

    def room(self):
        """Free bytes of the run directory."""
        found = os.statvfs(self.run_dir)
        return found.f_bavail * found.f_bsize

    def fill(self, leaving=0):
        """Takes the room of the run directory, but for so many bytes."""
        with open(self.run_dir / "filler", "ab") as filler:
            size = filler.tell() + self.room() - leaving
            os.posix_fallocate(filler.fileno(), 0, size)

    def forwarded(self, agent):
        """Every packet of the capture came in: the agent does its work."""
        self.assertIsNone(agent.process.poll(), agent.log)
        self.eventually(lambda: self.ports()["Ethernet1"]["packetsIn"], PACKETS)

    # Space

    @ROOT_ONLY
    def test_a_start_without_space_is_refused_and_succeeds_when_there_is_some(self):
        self.write_config([self.port])
        self.mount("size=64k")
        self.assertIn("No space left on device", self.refused())
        subprocess.run(["mount", "-o", "remount,size=64m", self.run_dir], check=True)
        self.forwarded(self.start_replayed())

    @ROOT_ONLY
    def test_tables_that_cannot_grow_refuse_stores_and_everything_else_goes_on(self):
        self.write_config([self.port])
        self.mount("size=64m")
        agent = self.start_replayed(environment={BUDGET: "1000000"})
        first = [wanted(flow(number)) for number in range(100)]
        self.want(first)
        self.eventually(lambda: len(self.sft("status")), 100)
        self.fill()
        lines = "".join(json.dumps(wanted(flow(number))) + "\n" for number in range(100, 60000))
        refused = self.sft_any("table", "put", CONFIG, "hoIpFlowConfig", text=lines)
        self.assertEqual(refused.code, 1)
        self.assertIn("no room for another record", refused.err)
        # What there was is read as before, by new readers too, whom the full file system has nothing to give.
        self.assertLessEqual({row["key"]["ipFlowKey"]["srcAddr"] for row in map(self.known, range(100))},
                             {row["key"]["ipFlowKey"]["srcAddr"] for row in self.sft("status")})
        for table in self.sft("table", "list"):
            for each in table["collections"]:
                self.sft("table", "dump", table["path"], each["collection"])
        self.forwarded(agent)
        (self.run_dir / "filler").unlink()
        self.unwant(first)
        self.eventually(lambda: any(row["key"]["ipFlowKey"] == self.known(5)["key"]["ipFlowKey"] for row in self.sft("status")), False)
        self.assertEqual(agent.end(), 0)

    @staticmethod
    def known(number):
        return wanted(flow(number))

    # Memory and descriptors

    @ROOT_ONLY
    def test_an_agent_without_memory_ends_with_one_line_and_the_next_one_goes_on(self):
        self.write_config([self.port])
        agent = self.start_replayed(environment={BUDGET: "1"})
        pages = int(pathlib.Path(f"/proc/{agent.process.pid}/statm").read_text().split()[0])
        most = pages * resource.getpagesize() + (1 << 18)
        resource.prlimit(agent.process.pid, resource.RLIMIT_AS, (most, most))
        flows = [wanted(flow(number)) for number in range(40000)]
        self.want(flows)
        self.assertEqual(agent.wait(), 1)
        self.assertEqual(agent.log[-1], "pexa-agent: no memory left, expected more of it, or fewer flows")
        self.start_replayed(environment={BUDGET: "1"})
        self.eventually(lambda: collections.Counter(row["state"] for row in self.sft("status")),
                        {IN_HARDWARE: 1, OVERFLOW: len(flows) - 1})

    @ROOT_ONLY
    def test_without_descriptors_a_client_is_told_and_the_agent_goes_on(self):
        self.write_config([self.port])
        agent = self.start_replayed()
        before = resource.prlimit(agent.process.pid, resource.RLIMIT_NOFILE)
        used = len(os.listdir(f"/proc/{agent.process.pid}/fd"))
        resource.prlimit(agent.process.pid, resource.RLIMIT_NOFILE, (used, before[1]))
        self.assertIn("no connection can be taken: Too many open files", self.sft_refused("ports"))
        resource.prlimit(agent.process.pid, resource.RLIMIT_NOFILE, before)
        self.forwarded(agent)
        self.assertEqual(len(agent.said("no connection can be taken: Too many open files")), 1, agent.log)

    # The run directory

    @ROOT_ONLY
    def test_a_run_directory_that_is_read_only(self):
        self.write_config([self.port])
        self.mount("ro")
        self.assertIn(f"run directory {self.run_dir}: Read-only file system, expected a directory that this process may write",
                      self.refused())

    @ROOT_ONLY
    def test_a_run_directory_of_somebody_else_or_of_everybody(self):
        self.write_config([self.port])
        self.run_dir.mkdir()
        os.chown(self.run_dir, 12345, 12345)
        self.assertIn("belongs to user 12345, expected one of root's", self.refused())
        os.chown(self.run_dir, 0, 0)
        os.chmod(self.run_dir, 0o1777)
        self.assertIn("anybody may write it (mode 1777), expected", self.refused())
        self.assertEqual(os.listdir(self.run_dir), [])

    def test_links_that_were_planted_lead_nowhere(self):
        self.write_config([self.port])
        self.assertEqual(self.start("--until-end").wait(), 0)
        victims = {}
        table = pathlib.Path("tables") / STATUS / "hoIpFlowStatus"
        for name in ("agent.lock", "trace.ring", "control.sock", table):
            victim = self.dir / f"victim-{pathlib.Path(name).name}"
            planted = self.run_dir / name
            victim.write_bytes(planted.read_bytes() if planted.exists() else b"precious")
            victims[victim] = victim.read_bytes()
            with self.subTest(name):
                planted.unlink(missing_ok=True)
                planted.symlink_to(victim)
                agent = self.start()
                if name in ("agent.lock", table):
                    self.assertEqual(agent.wait(), 1)
                    self.assertIn("link", agent.log[-1])
                    planted.unlink()
                else:
                    agent.wait_ready()
                    self.assertFalse(planted.is_symlink())
                    self.assertEqual(agent.end(), 0)
                self.assertEqual({each: each.read_bytes() for each in victims}, victims)

    # Others

    @ROOT_ONLY
    @unittest.skipUnless(shutil.which("ip") and shutil.which("unshare"), "no ip or unshare on this machine")
    def test_collectors_that_do_not_answer_hold_up_nothing(self):
        class OwnNetwork(Agent):
            def command(self, arguments):
                script = ("ip link set lo up && ip link add hole type veth peer name end && ip link set hole arp off && "
                          'ip addr add 192.0.2.2/24 dev hole && ip link set end up && ip link set hole up && exec "$0" "$@"')
                return ["unshare", "-n", "sh", "-c", script, *super().command(arguments)]

        refusing, silent, unreachable = "127.0.0.1:9", "192.0.2.1:6343", "198.51.100.1:6343"
        self.write_config([self.port], rate=10,
                          extra=f'[sflow]\nagent = "127.0.0.1"\ncollectors = {json.dumps([refusing, silent, unreachable])}\n')
        agent = OwnNetwork(["--config", self.config])
        self.addCleanup(agent.close)
        agent.wait_replayed()
        self.forwarded(agent)
        told = {row["collector"]: row for row in self.sft("collectors")}
        self.assertGreater(told[silent]["datagrams"], 0)
        self.assertEqual(told[silent]["lost"], 0)  # nobody ever says so
        self.assertGreater(told[refusing]["lost"], 0)
        self.assertEqual(told[unreachable]["datagrams"], 0)
        self.assertEqual(told[unreachable]["lost"], told[silent]["datagrams"])
        self.assertEqual(agent.end(), 0)

    def connect(self):
        client = socket.socket(socket.AF_UNIX)
        self.addCleanup(client.close)
        client.settimeout(120)
        client.connect(str(self.run_dir / "control.sock"))
        return client

    def test_peers_that_stall_make_room_and_peers_that_flood_wait_for_their_answers(self):
        self.write_config([self.port], forward={}, top="")
        agent = self.start()
        agent.wait_ready()
        stalled = [self.connect() for _ in range(55)]
        for client in stalled[::2]:
            client.sendall(b'{"request":')  # and never the rest
        over = threading.Event()

        def flood(client):
            client.settimeout(0.1)
            while not over.is_set():
                try:
                    client.sendall(b'{"request":"metrics"}\n' * 100)  # and never reads
                except OSError:
                    pass
        floods = [threading.Thread(target=flood, args=(self.connect(),)) for _ in range(3)]
        for each in floods:
            each.start()
        try:
            agent.wait_replayed()
            self.forwarded(agent)
            last = self.connect()
            last.sendall(b'{"request":"ports"}\n')
            self.assertIn(b'"row"', last.recv(65536))
            # Once all places are taken, the next ones are told so, until one that is silent has been so for long enough.
            stalled += [self.connect() for _ in range(20)]
            done = self.sft_any("ports")
            while done.code != 0:
                self.assertIn("64 clients are connected already, expected fewer", done.err)
                done = self.sft_any("ports")
        finally:
            over.set()
            for each in floods:
                each.join()
        self.forwarded(agent)
        self.assertEqual(agent.end(), 0)

    @unittest.skipUnless(THROWER.exists(), "the plugin that throws is not built")
    def test_a_plugin_that_throws_has_its_packets_counted_and_they_go_on(self):
        self.write_config([self.port, ("Ethernet3", "write", self.dir / "out.pcap")], forward={"Ethernet1": "Ethernet3"},
                          plugins=(THROWER,), state={})
        agent = self.start_replayed()
        self.assertEqual(self.ports()["Ethernet3"]["packetsOut"], PACKETS)
        reasons = self.reasons()
        self.assertEqual(reasons[("Error", "Pexa", "step thrower: not my packet")], PACKETS)
        self.assertIn(("Error", "Pexa", "step thrower: unknown exception"), reasons)  # while it looked ahead
        self.assertEqual(agent.end(), 0)


if __name__ == "__main__":
    unittest.main()
