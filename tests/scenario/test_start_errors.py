"""Every way in which a start can go wrong is told in one line, with file and line where there is one, and status 1."""
import fcntl
import os
import subprocess
import unittest

from harness import AGENT, CONFIG, PLUGIN, SAMPLING, STATUS, TRACKING, ScenarioTest, udp_frame

FRAME = udp_frame("10.0.0.1", "10.0.0.2", 1, 2)


class StartErrorTest(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.capture = self.write_capture("in.pcap", [FRAME])
        self.port = ("Ethernet1", "capture", self.capture)

    def line_of(self, text):
        """The number of the first line of the configuration that holds the text."""
        for number, line in enumerate(self.config.read_text().splitlines(), 1):
            if text in line:
                return number
        raise AssertionError(text)

    def assert_refused_at(self, text, *said):
        """The start is refused at the line that holds the text, with these words."""
        error = self.refused()
        self.assertTrue(error.startswith(f"pexa-agent: {self.config}:{self.line_of(text)}: "), error)
        for each in said:
            self.assertIn(each, error)

    def append(self, text):
        with open(self.config, "a", encoding="utf-8") as config:
            config.write(text)

    # The command line

    def test_no_configuration_given(self):
        done = subprocess.run([AGENT], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(done.stderr.count("\n"), 1)
        self.assertIn("--config is required", done.stderr)

    def test_an_unknown_option(self):
        done = subprocess.run([AGENT, "--config", "x", "--frobnicate"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn("--frobnicate", done.stderr)
        self.assertIn("expected --config FILE", done.stderr)

    def test_a_configuration_that_is_not_there(self):
        error = self.refused()
        self.assertEqual(error, f"pexa-agent: {self.config}: cannot read the configuration: No such file or directory, "
                                "expected a TOML file")

    # The configuration

    def test_a_broken_line(self):
        self.write_config([self.port])
        self.append("this is = = not TOML\n")
        error = self.refused()
        self.assertTrue(error.startswith(f"pexa-agent: {self.config}:{self.line_of('this is')}: not TOML: "), error)

    def test_an_unknown_key(self):
        self.write_config([self.port], top="speed = 1")
        self.assert_refused_at("speed", 'unknown key "speed"')

    def test_two_ports_of_one_name(self):
        self.write_config([self.port, ("Ethernet1", "write", self.dir / "out.pcap")])
        error = self.refused()
        self.assertIn('port "Ethernet1" is already there on line', error)

    def test_two_sources_of_one_port(self):
        self.write_config([self.port])
        self.append('[[port]]\nname = "E2"\ncapture = "a"\ndevice = "b"\n')
        error = self.refused()
        self.assertIn('port "E2" has more than one source, expected one of capture, device and write', error)

    def test_a_forward_from_an_unknown_port(self):
        self.write_config([self.port], forward={"Ethernet9": "Ethernet1"})
        self.assert_refused_at("Ethernet9", '[forward] names port "Ethernet9", which is not there')

    def test_a_forward_to_nowhere(self):
        self.write_config([self.port], forward={"Ethernet1": "Ethernet9"})
        self.assert_refused_at("Ethernet9", '[forward] names port "Ethernet9", which is not there')

    def test_a_forward_to_a_port_on_which_nothing_can_leave(self):
        self.write_config([self.port, ("Ethernet2", "capture", self.capture)], forward={"Ethernet1": "Ethernet2"})
        self.assert_refused_at('"Ethernet1" = ', 'nothing can leave on port "Ethernet2"')

    # What it names

    def test_a_capture_that_is_not_there(self):
        self.write_config([("Ethernet1", "capture", self.dir / "absent.pcap")])
        error = self.refused()
        self.assertIn(f"{self.config}:{self.line_of('[[port]]')}: port \"Ethernet1\": ", error)
        self.assertIn(f"{self.dir}/absent.pcap: No such file or directory", error)

    def test_a_capture_that_is_none(self):
        (self.dir / "text.pcap").write_text("this is not a capture, only text\n" * 10)
        self.write_config([("Ethernet1", "capture", self.dir / "text.pcap")])
        error = self.refused()
        self.assertIn("text.pcap: not a readable pcap or pcapng file", error)

    def test_a_capture_of_another_link_type(self):
        raw_ip = self.write_capture("raw.pcap", [FRAME[14:]], link=101)
        self.write_config([("Ethernet1", "capture", raw_ip)])
        error = self.refused()
        self.assertIn("raw.pcap: link type", error)
        self.assertIn("RAW", error)

    def test_a_capture_that_is_empty(self):
        (self.dir / "empty.pcap").write_bytes(b"")
        self.write_config([("Ethernet1", "capture", self.dir / "empty.pcap")])
        self.assertIn("empty.pcap", self.refused())

    def test_an_interface_that_is_not_there(self):
        self.write_config([("Ethernet1", "device", "nosuch0")])
        error = self.refused()
        self.assertIn("nosuch0", error)
        self.assertIn(f"{self.config}:{self.line_of('[[port]]')}: ", error)

    def test_a_file_that_cannot_be_written(self):
        self.write_config([("Ethernet1", "write", self.dir / "absent" / "out.pcap")])
        self.assertIn("absent/out.pcap", self.refused())

    def test_a_refused_start_leaves_a_file_to_be_written_as_it_is(self):
        (self.dir / "out.pcap").write_text("of an earlier run")
        writer = ("Ethernet2", "write", self.dir / "out.pcap")
        self.write_config([writer, self.port], state={"no/such/path": {"x": 1}})
        self.refused()
        self.write_config([writer, ("Ethernet1", "device", "nosuch0")])
        self.refused()
        self.assertEqual((self.dir / "out.pcap").read_text(), "of an earlier run")

    def test_a_file_that_is_both_replayed_and_written(self):
        before = self.capture.read_bytes()
        self.write_config([self.port, ("Ethernet2", "write", self.capture)])
        self.assertIn("is already port \"Ethernet1\"'s", self.refused())
        self.assertEqual(self.capture.read_bytes(), before)

    def test_a_plugin_that_is_not_there(self):
        self.write_config([self.port], plugins=["libNoSuchPlugin.so"])
        self.assert_refused_at("libNoSuchPlugin", 'plugin "libNoSuchPlugin.so" cannot be loaded')

    def test_a_plugin_that_is_no_library(self):
        (self.dir / "libText.so").write_text("text")
        self.write_config([self.port], plugins=["libText.so"])
        self.assert_refused_at("libText", 'plugin "libText.so" cannot be loaded', "expected a plugin library")

    def test_a_library_that_is_no_plugin(self):
        self.write_config([self.port], plugins=["libz.so.1"])
        error = self.refused()
        self.assertTrue("registers no plugin" in error or "cannot be loaded" in error, error)

    def test_a_plugin_named_twice(self):
        self.write_config([self.port], plugins=[PLUGIN, PLUGIN])
        self.assert_refused_at("plugins", "registers no plugin that is not there already")

    def test_a_collector_that_is_none(self):
        self.write_config([self.port], extra='[sflow]\nagent = "127.0.0.1"\ncollectors = ["nonsense"]\n')
        error = self.refused()
        self.assertIn(f"{self.config}:{self.line_of('nonsense')}: ", error)
        self.assertIn("nonsense", error)

    def test_a_trace_filter_that_is_none(self):
        self.write_config([self.port], extra='[[trace_filter]]\nname = "f"\nexpression = "tcp prot 80"\n')
        error = self.refused()
        self.assertIn(f"{self.config}:{self.line_of('tcp prot')}: ", error)

    # State

    def test_a_path_that_nobody_knows(self):
        self.write_config([self.port], state={"no/such/path": {"x": 1}})
        self.assert_refused_at("no/such/path", 'state "no/such/path"', "known paths: ", TRACKING)

    def test_an_attribute_that_is_not_there(self):
        self.write_config([self.port], state={TRACKING: {"hwOfload": True}})
        self.assert_refused_at("hwOfload", TRACKING, 'no attribute "hwOfload"', "hwOffloadIpv4")

    def test_a_value_of_the_wrong_type(self):
        self.write_config([self.port], state={TRACKING: {"hwOffloadIpv4": True, "sampleRate": "often"}})
        self.assert_refused_at("often", TRACKING, "sampleRate", "often")
        self.write_config([self.port], state={SAMPLING: {"ingressInterfaces": "Ethernet1"}})
        self.assert_refused_at("ingressInterfaces", SAMPLING, "ingressInterfaces")

    # The run directory

    def test_a_run_directory_that_cannot_be_made(self):
        (self.dir / "run").write_text("a file stands in the way")
        self.write_config([self.port])
        error = self.refused()
        self.assertIn(f"run directory {self.run_dir}: ", error)
        self.assertIn("expected a directory that this process may write", error)

    @unittest.skipIf(os.geteuid() == 0, "root may write everywhere")
    def test_a_run_directory_that_may_not_be_written(self):
        self.run_dir.mkdir(mode=0o500)
        self.write_config([self.port])
        self.assertIn("Permission denied", self.refused())

    def test_a_run_directory_with_another_agent(self):
        self.write_config([self.port])
        first = self.start()
        first.wait_ready()
        error = self.refused()
        self.assertIn(f"run directory {self.run_dir}: an agent is running in it (process {first.process.pid})", error)
        self.assertEqual(self.ports()["Ethernet1"]["packetsIn"], 1)  # the first one is not disturbed
        self.assertEqual(first.end(), 0)

    def test_the_run_directory_of_the_command_line_comes_first(self):
        self.write_config([self.port], top="")
        self.run_dir = self.dir / "elsewhere"
        agent = self.start("--run-dir", self.run_dir)
        agent.wait_ready()
        self.assertIn("Ethernet1", self.ports())
        self.assertFalse((self.dir / "run").exists())

    # Shared tables

    def table(self, collection="hoIpFlowStatus", path=STATUS):
        """The file of a table, as an earlier agent left it."""
        self.write_config([self.port])
        self.assertEqual(self.start("--until-end").wait(), 0)
        return self.run_dir / "tables" / path / collection

    def assert_table_refused(self, table, *said):
        """The start is refused because of this table, with these words, and the table stays as it is."""
        before = table.read_bytes()
        agent = self.start()
        self.assertEqual(agent.wait(), 1)
        self.assertEqual(len(agent.log), 1, agent.log)
        for each in (f"pexa-agent: {table}: ", *said):
            self.assertIn(each, agent.log[0])
        self.assertEqual(table.read_bytes(), before)

    def test_a_table_that_another_process_writes(self):
        table = self.table()
        with open(table, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)  # as who writes the table holds it
            self.assert_table_refused(table, "is the table's writer, expected nobody to write it but who mounts it")
        self.assertEqual(self.start("--until-end").wait(), 0)  # once it has let go

    def test_a_table_that_is_published_may_be_written_by_another_process(self):
        table = self.table("hoIpFlowConfig", CONFIG)
        with open(table, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            self.assertEqual(self.start("--until-end").wait(), 0)

    def test_a_table_that_is_none(self):
        for collection, path in (("hoIp6FlowStatus", STATUS), ("hoIpFlowConfig", CONFIG)):
            with self.subTest(collection):
                table = self.table(collection, path)
                table.write_text("no table, only text")
                self.assert_table_refused(table, "no shared table: 19 bytes, shorter than a header")
                table.unlink()

    def test_a_table_of_other_records(self):
        table = self.table()
        other = self.table("hoIpFlowConfig", CONFIG)
        table.write_bytes(other.read_bytes())
        self.assert_table_refused(table, "holds records of type ", "expected ")

    def test_a_table_of_a_newer_layout(self):
        table = self.table()
        with open(table, "r+b") as file:
            file.seek(8)
            file.write(b"\x09")
        self.assert_table_refused(table, "layout version 9 is newer than the newest known here")

    def test_a_table_that_was_cut_short(self):
        table = self.table()
        os.truncate(table, 4096)
        self.assert_table_refused(table, "truncated: 4096 bytes")

    def test_a_table_whose_header_is_damaged(self):
        table = self.table()
        with open(table, "r+b") as file:
            file.seek(40)
            file.write(b"\xff" * 8)
        self.assert_table_refused(table)

    def test_a_folder_in_the_place_of_a_table(self):
        table = self.table()
        table.unlink()
        table.mkdir()
        agent = self.start()
        self.assertEqual(agent.wait(), 1)
        self.assertEqual(len(agent.log), 1, agent.log)
        self.assertIn(f"pexa-agent: {table}: expected a file", agent.log[0])

    def test_what_a_refused_start_opened_is_closed_again(self):
        self.write_config([self.port], state={"no/such/path": {"x": 1}})
        self.refused()
        self.write_config([self.port])
        agent = self.start_replayed()  # not hindered by a lock or a socket that was left
        self.assertEqual(agent.end(), 0)


if __name__ == "__main__":
    unittest.main()
