"""The operator's command line: what it shows, what it changes, and what it says of mistakes."""
import json
import os
import subprocess
import unittest

from harness import (SFT, STATUS, TRACKING, ScenarioTest, flow_key, flows, status, udp_frame, wanted)

FLOW = ("10.0.0.1", "10.0.0.2", 1000, 2000)
V6 = {"vrfId": flows.DEFAULT_VRF, "vlan": 4095, "srcAddr": "fd00::1", "dstAddr": "ff02::fb", "ipProto": 6, "srcPort": 0,
      "dstPort": 65535}
FOUR, SIX = (STATUS, "hoIpFlowStatus"), (STATUS, "hoIp6FlowStatus")


def lines(*records):
    return "".join(json.dumps(record) + "\n" for record in records)


class Tables(ScenarioTest):
    """Tables are files: nothing here has an agent."""

    def dump(self, table):
        return self.sft("table", "dump", *table)

    def test_what_is_put_is_dumped(self):
        four = status(flow_key(*FLOW))
        six = status(V6, 2, "Ethernet48", 3)
        six.update(creationTime=1.5, lastUpdateTime=2.5)
        self.assertEqual(self.sft("table", "put", *FOUR, text=lines(four)), [{"put": 1}])
        self.assertEqual(self.sft("table", "put", *SIX, text=lines(six)), [{"put": 1}])
        self.assertEqual(self.dump(FOUR), [{**four, "creationTime": 0.0, "lastUpdateTime": 0.0}])
        self.assertEqual(self.dump(SIX), [six])

    def test_every_table_of_the_feature_can_be_put_and_dumped(self):
        key = flow_key(*FLOW)
        offload = {"ipFlowKey": key, "direction": 1, "intfId": "Ethernet1"}
        records = {
            ("flowtracking/sampled/hwOffload/config", "hoIpFlowConfig"): {"key": offload},
            ("flowtracking/sampled/hwOffload/config", "hoIp6FlowConfig"): {"key": {**offload, "ipFlowKey": V6}},
            ("flowtracking/sampled/hwOffload/counter/hfc", "hoIpFlowCounter"):
                {"key": key, "intfId": "Ethernet1", "packets": 1 << 63, "bytes": 2, "creationTime": 3.0, "lastUpdateTime": 4.0,
                 "hosEntries": 5},
            ("flowtracking/sampled/hwOffload/counter/status", "hosStateIpCounter"): {"key": {"state": 2}, "count": 7},
        }
        for table, record in records.items():
            with self.subTest(table=table):
                self.sft("table", "put", *table, text=lines(record))
                dumped, = self.dump(table)
                self.assertEqual({name: dumped[name] for name in record}, record)

    def test_putting_a_key_again_overwrites(self):
        self.sft("table", "put", *FOUR, text=lines(status(flow_key(*FLOW), state=3), status(flow_key(*FLOW), state=2)))
        self.assertEqual([row["state"] for row in self.dump(FOUR)], [2])

    def test_members_that_have_defaults_may_be_left_out(self):
        key = flow_key(*FLOW)
        del key["vrfId"]
        self.sft("table", "put", *FOUR, text=lines(status(key)))
        self.assertEqual(self.dump(FOUR)[0]["key"]["ipFlowKey"]["vrfId"], 16777215)

    def test_empty_lines_and_no_lines_are_no_mistake(self):
        self.assertEqual(self.sft("table", "put", *FOUR, text="\n  \n" + lines(status(flow_key(*FLOW))) + "\n"), [{"put": 1}])
        self.assertEqual(self.sft("table", "put", *FOUR, text=""), [{"put": 0}])

    def test_a_bad_line_is_named_and_nothing_is_stored(self):
        good = json.dumps(status(flow_key(*FLOW)))
        key = flow_key(*FLOW)
        mistakes = {
            "not json": ("not JSON at byte 2", ),
            "[]": ("expected", ),
            "{}": ("key", ),
            good + " x": ("not JSON at byte", ),
            json.dumps({**status(key), "speed": 1}): ("speed", ),
            json.dumps(status({**key, "vlan": 4096})): ("key.ipFlowKey.vlan", "4096"),
            json.dumps(status({**key, "vlan": "1"})): ("key.ipFlowKey.vlan", ),
            json.dumps(status({**key, "srcAddr": "10.0.0"})): ("key.ipFlowKey.srcAddr", "10.0.0"),
            json.dumps(status({**key, "srcAddr": "fd00::1"})): ("key.ipFlowKey.srcAddr", ),
            json.dumps(status({**key, "srcPort": 65536})): ("key.ipFlowKey.srcPort", ),
            json.dumps(status({**key, "srcPort": 1.5})): ("key.ipFlowKey.srcPort", ),
            json.dumps(status(key, direction=256)): ("key.direction", ),
            json.dumps(status(key, intf="x" * 23)): ("key.intfId", ),
            good.replace('"state": 2', '"state": 2, "state": 3'): ("member \"state\" comes twice", ),
        }
        self.sft("table", "put", *FOUR, text="")
        for line, said in mistakes.items():
            with self.subTest(line=line):
                error = self.sft_refused("table", "put", *FOUR, text=f"{good}\n\n{line}\n{good}\n")
                self.assertTrue(error.startswith("sft: standard input line 3: "), error)
                self.assertTrue(error.endswith("; nothing was changed"), error)
                for each in said:
                    self.assertIn(each, error)
                self.assertEqual(self.dump(FOUR), [])

    def test_deleting_tells_what_was_there(self):
        first, second = (status(flow_key("10.0.0.1", "10.0.0.2", port, 1)) for port in (1, 2))
        self.sft("table", "put", *FOUR, text=lines(first, second))
        gone = lines(first["key"], {**first["key"], "intfId": "Ethernet9"})
        self.assertEqual(self.sft("table", "del", *FOUR, text=gone), [{"deleted": 1, "absent": 1}])
        self.assertEqual([row["key"] for row in self.dump(FOUR)], [second["key"]])
        self.assertIn("line 1", self.sft_refused("table", "del", *FOUR, text=lines(first)))
        self.assertEqual(len(self.dump(FOUR)), 1)

    def test_the_list_has_every_table_with_its_collections(self):
        self.sft("table", "put", *FOUR, text=lines(status(flow_key(*FLOW))))
        row, = self.sft("table", "list")
        self.assertEqual(row, {"path": STATUS, "type": "FlowTracking::HoFlowStatus", "entries": 1, "writer": None,
                               "collections": [{"collection": SIX[1], "entries": 0, "writer": None},
                                               {"collection": FOUR[1], "entries": 1, "writer": None}]})

    def test_many_records(self):
        records = [status(flow_key("10.0.0.1", "10.0.0.2", port, 1)) for port in range(1, 20_001)]
        self.assertEqual(self.sft("table", "put", *FOUR, text=lines(*records)), [{"put": 20_000}])
        ports = sorted(row["key"]["ipFlowKey"]["srcPort"] for row in self.dump(FOUR))
        self.assertEqual(ports, list(range(1, 20_001)))

    def test_a_table_that_is_not_there(self):
        self.run_dir.mkdir()
        self.assertIn(STATUS, self.sft_refused("table", "dump", *FOUR))
        self.assertIn("no/such/table", self.sft_refused("table", "put", "no/such/table", "x", text=""))
        self.assertIn("..", self.sft_refused("table", "put", "../../etc", "x", text=""))
        self.sft("table", "put", *FOUR, text="")
        self.assertIn("noSuchCollection", self.sft_refused("table", "dump", STATUS, "noSuchCollection"))
        self.assertEqual(self.sft("table", "list")[0]["path"], STATUS)

    def test_a_run_directory_that_is_not_there(self):
        self.assertIn(str(self.run_dir), self.sft_refused("table", "list"))
        self.assertIn(str(self.run_dir), self.sft_refused("trace"))

    def test_a_file_that_is_no_table_is_told_and_the_others_are_shown(self):
        self.sft("table", "put", *FOUR, text=lines(status(flow_key(*FLOW))))
        (self.run_dir / "tables" / STATUS / "hoIp6FlowStatus").write_bytes(b"damaged" * 1000)
        self.assertIn("hoIp6FlowStatus", self.sft_refused("table", "dump", *SIX))
        rows = {row["collection"]: row for row in self.sft("table", "list")[0]["collections"]}
        self.assertIn("problem", rows["hoIp6FlowStatus"])
        self.assertEqual(rows["hoIpFlowStatus"]["entries"], 1)

    def test_for_people_there_are_aligned_columns(self):
        self.sft("table", "put", *FOUR, text=lines(status(flow_key(*FLOW)), status(flow_key("10.0.0.100", "10.0.0.2", 1, 2))))
        done = self.sft_any("table", "dump", *FOUR)
        heading, *rows = done.out.splitlines()
        self.assertEqual(heading.split(), ["vrfId", "vlan", "srcAddr", "dstAddr", "ipProto", "srcPort", "dstPort", "direction",
                                           "intfId", "state", "creationTime", "lastUpdateTime"])
        at = heading.index("dstAddr")
        self.assertEqual({row[at:at + 8] for row in rows}, {"10.0.0.2"})
        end = heading.index("srcPort") + len("srcPort")  # numbers stand to the right
        self.assertEqual({row[:end].split()[-1] for row in rows}, {"1000", "1"})


class Commands(ScenarioTest):
    def test_mistakes_on_the_command_line(self):
        for arguments in ([], ["dance"], ["table"], ["table", "dump"], ["table", "dump", STATUS], ["state"], ["state", "get"],
                          ["state", "set", TRACKING, "x"], ["ports", "extra"], ["--frobnicate", "ports"],
                          ["trace", "level", "Sft"], ["trace", "level", "Sft", "high"]):
            with self.subTest(arguments=arguments):
                error = self.sft_refused(*arguments)
                self.assertTrue(error.startswith("sft: "), error)
                self.assertIn("expected", error)

    def test_a_command_that_there_is_not_is_named(self):
        self.assertIn('sft has no command "dance"', self.sft_refused("dance"))
        self.assertIn('sft table has no command "dance"', self.sft_refused("table", "dance"))

    def test_help_is_no_mistake(self):
        done = self.sft_any("--help")
        self.assertEqual((done.code, done.err), (0, ""))
        for command in ("table", "flows", "status", "counters", "states", "flow", "local", "ports", "samples", "reasons", "state",
                        "attr", "trace"):
            self.assertIn(command, done.out)

    def test_no_agent_is_one_clear_line(self):
        for arguments in (["ports"], ["samples"], ["reasons"], ["local"], ["--json", "local"], ["state", "get", TRACKING],
                          ["attr", "get", "x"], ["trace", "level"]):
            with self.subTest(arguments=arguments):
                error = self.sft_refused(*arguments)
                self.assertIn(f"no agent answers at {self.run_dir}/control.sock: No such file or directory", error)
                self.assertIn("expected a running pexa-agent", error)

    def test_the_run_directory_may_come_from_the_environment(self):

        self.write_config([])
        self.start().wait_ready()
        done = subprocess.run([SFT, "--json", "ports"], capture_output=True, text=True, check=False,
                              env={**os.environ, "PEXA_RUN_DIR": str(self.run_dir)})
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def test_options_may_stand_behind_the_command(self):
        self.write_config([("Ethernet1", "write", "/dev/null")])
        self.start().wait_ready()
        self.assertEqual([row["name"] for row in self.sft_any("ports", "--json").rows()], ["Ethernet1"])


class Views(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.capture = self.write_capture("in.pcap", [udp_frame(*FLOW, b"12345678")] * 4 + [bytes(60)])

    def test_ports(self):
        damaged = self.write_capture("cut.pcap", [udp_frame(*FLOW)] * 2, cut=1)
        self.write_config([("Ethernet1", "capture", self.capture), ("Ethernet2", "capture", damaged),
                           ("Ethernet3", "write", self.dir / "out.pcap")], forward={"Ethernet1": "Ethernet3"})
        self.start_replayed(replays=2)
        ports = self.ports()
        sizes = 4 * 50 + 60
        self.assertEqual((ports["Ethernet1"]["kind"], ports["Ethernet1"]["packetsIn"], ports["Ethernet1"]["bytesIn"],
                          ports["Ethernet1"]["replay"]), ("capture", 5, sizes, "finished"))
        self.assertEqual((ports["Ethernet2"]["packetsIn"], ports["Ethernet2"]["replay"]), (1, "damaged"))
        self.assertIn("cut.pcap", ports["Ethernet2"]["error"])
        self.assertEqual((ports["Ethernet3"]["kind"], ports["Ethernet3"]["packetsOut"], ports["Ethernet3"]["bytesOut"]),
                         ("write", 5, sizes))
        self.assertNotIn("replay", ports["Ethernet3"])
        self.assertIn("Ethernet3", self.sft_any("ports").out)

    def test_samples_are_taken_and_counted_though_nothing_is_exported(self):
        self.write_config([("Ethernet1", "capture", self.capture)], rate=1)
        self.start_replayed()
        self.assertEqual(self.sft("samples"), [
            {"intfId": "Ethernet1", "direction": "ingress", "rate": 1, "pool": 5, "samples": 5, "drops": 0}])

    def test_reasons(self):
        self.write_config([("Ethernet1", "capture", self.capture)])
        self.start_replayed()
        self.assertEqual(self.sft("reasons"), [
            {"category": "Action", "source": "Sft", "reason": " Offloading IPv4", "count": 4},
            {"category": "Drop", "source": "Sft", "reason": "No flow status", "count": 4}])

    def test_no_counters_are_an_empty_display(self):
        self.write_config([("Ethernet1", "capture", self.capture)])
        self.start_replayed()
        self.assertEqual(self.sft("local"), [])
        self.assertRegex(self.sft_any("local").out, r"^\{\s*\}\n$")


class Trace(ScenarioTest):
    def setUp(self):
        super().setUp()
        self.want([wanted(flow_key(*FLOW))])
        capture = self.write_capture("in.pcap", [udp_frame(*FLOW)] * 3 + [udp_frame("10.9.9.9", "10.0.0.2", 7, 8)])
        self.write_config([("Ethernet1", "capture", capture)],
                          extra='[[trace_filter]]\nname = "nines"\nexpression = "host 10.9.9.9"\n')

    def test_the_ring_tells_of_the_start_and_of_packets_that_a_filter_matches(self):
        agent = self.start_replayed()
        records = self.sft("trace")
        self.assertTrue(records[0]["text"].endswith(" loaded SampledFlowTracker plugin"), records[0])
        self.assertEqual((records[0]["category"], records[0]["line"]), ("Sft", 364))
        packets = [record for record in records if record["volume"] == "packet"]
        self.assertEqual([(record["filter"], record["text"]) for record in packets], [("nines", "Sft Pkt4: No flow status")])
        self.assertEqual(agent.end(), 0)
        self.assertEqual(self.sft("trace"), records)  # the ring outlives its agent
        self.assertEqual(len(self.sft_any("trace").out.splitlines()), len(records))

    def test_what_is_traced_is_set_by_name(self):
        self.start_replayed()
        levels = {(row["name"], row["channel"]): row["level"] for row in self.sft("trace", "level")}
        self.assertEqual(levels[("Pexa::Sft", "text")], -1)
        self.assertEqual(levels[("Sft", "ring")], 0)
        self.assertEqual(self.sft("trace", "level", "Pexa::Sft", "3"), [])
        self.assertEqual(self.sft("trace", "level", "Sft", "-1"), [])
        levels = {(row["name"], row["channel"]): row["level"] for row in self.sft("trace", "level")}
        self.assertEqual((levels[("Pexa::Sft", "text")], levels[("Sft", "ring")]), (3, -1))
        self.assertIn("expected -1 to 9", self.sft_refused("trace", "level", "Pexa::Sft", "10"))
        self.assertIn("nothing traces as \"Nobody\"", self.sft_refused("trace", "level", "Nobody", "1"))

    def test_the_text_traces_of_the_configuration_are_on_from_the_start(self):
        with open(self.config, "a", encoding="utf-8") as config:
            config.write('[trace.level]\n"Pexa::Sft" = 0\n')
        agent = self.start_replayed()
        self.assertEqual(len(agent.said("Pkt1: Hw sampling packet")), 1)
        self.assertEqual(len(agent.said("Pkt4: No flow status")), 1)


if __name__ == "__main__":
    unittest.main()
