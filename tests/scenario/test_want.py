"""Wanted offloads published and withdrawn from the command line."""
import fcntl
import os
import time
import unittest

from harness import CONFIG, ScenarioTest, flow_key, flows, wanted

A = flow_key("10.0.0.1", "10.0.0.2", 1234, 80, vlan=10, proto=6)
ARGUMENTS = {"--proto": "tcp", "--vlan": "10", "--direction": "ingress", "--interface": "Ethernet1"}
ENDS = ("10.0.0.1:1234", "10.0.0.2:80")
TEXT = "10.0.0.1:1234 -> 10.0.0.2:80 tcp vlan 10, ingress on Ethernet1"


def arguments(ends=ENDS, **changes):
    """A command line; a change names an argument without its dashes, None leaves it out."""
    options = {**ARGUMENTS, **{f"--{name}": value for name, value in changes.items()}}
    return [*ends, *(word for name, value in options.items() if value is not None for word in (name, value))]


class WantTest(ScenarioTest):
    def wanted(self):
        """What is in the table: both families."""
        found = []
        for collection in ("hoIpFlowConfig", "hoIp6FlowConfig"):
            if (self.run_dir / "tables" / CONFIG / collection).exists():
                found += self.sft("table", "dump", CONFIG, collection)
        return found


class Want(WantTest):
    def test_publishes_the_offload_with_the_time_of_now(self):
        before = time.time()
        row, = self.sft("flow", "want", *arguments())
        record, = self.wanted()
        self.assertEqual(record["key"], wanted(A)["key"])
        self.assertTrue(before <= record["requestTime"] <= time.time(), record)
        self.assertEqual(row, {**wanted(A), "family": "IPv4", "flow": "10.0.0.1:1234 -> 10.0.0.2:80 tcp vlan 10",
                               "directionName": "ingress", "wanted": True, "before": False})

    def test_every_member_of_the_key_can_be_told(self):
        self.sft("flow", "want", *arguments(("[2001:db8::1]:0", "[::ffff:1.2.3.4]:65535"), proto="udp", vlan="4095",
                                            direction="egress", interface="Port-Channel 1/2.3", vrf="0"))
        record, = self.wanted()
        self.assertEqual(record["key"], {
            "ipFlowKey": {"vrfId": 0, "vlan": 4095, "srcAddr": "2001:db8::1", "dstAddr": "::ffff:1.2.3.4", "ipProto": 17,
                          "srcPort": 0, "dstPort": 65535}, "direction": 2, "intfId": "Port-Channel 1/2.3"})

    def test_the_vrf_is_the_default_one_unless_told(self):
        self.sft("flow", "want", *arguments())
        self.assertEqual(self.wanted()[0]["key"]["ipFlowKey"]["vrfId"], flows.DEFAULT_VRF)

    def test_a_protocol_may_be_a_number(self):
        self.sft("flow", "want", *arguments(proto="6"))
        self.assertEqual([record["key"] for record in self.wanted()], [wanted(A)["key"]])

    def test_one_that_is_wanted_already_is_asked_for_again(self):
        self.sft("flow", "want", *arguments())
        first, = self.wanted()
        row, = self.sft("flow", "want", *arguments())
        again, = self.wanted()
        self.assertTrue(row["before"])
        self.assertGreater(again["requestTime"], first["requestTime"])
        self.assertEqual(again["key"], first["key"])

    def test_people_are_told_in_words(self):
        self.assertEqual(self.sft_any("flow", "want", *arguments()).out, f"wanted: {TEXT}\n")
        self.assertEqual(self.sft_any("flow", "want", *arguments()).out, f"wanted already, asked for again: {TEXT}\n")
        self.assertEqual(self.sft_any("flow", "unwant", *arguments()).out, f"not wanted any more: {TEXT}\n")

    def test_the_flow_shows_as_waiting(self):
        self.sft("flow", "want", *arguments())
        self.assertEqual([row["stands"] for row in self.sft("flows")], ["waiting: wanted, no status yet"])


class Unwant(WantTest):
    def test_withdraws_the_offload_and_no_other(self):
        for direction in ("ingress", "egress"):
            self.sft("flow", "want", *arguments(direction=direction))
        row, = self.sft("flow", "unwant", *arguments())
        self.assertEqual((row["wanted"], row["before"], row["key"]), (False, True, wanted(A)["key"]))
        self.assertEqual([record["key"]["direction"] for record in self.wanted()], [2])

    def test_one_that_is_not_wanted_is_told(self):
        self.sft("flow", "want", *arguments())
        for change in ({"vlan": "11"}, {"direction": "egress"}, {"interface": "Ethernet2"}, {"proto": "udp"}, {"vrf": "1"},
                       {"ends": (ENDS[1], ENDS[0])}):
            with self.subTest(change=change):
                done = self.sft_any("flow", "unwant", *arguments(**change))
                self.assertEqual((done.code, done.out, done.err.count("\n")), (1, "", 1))
                self.assertIn("is not wanted", done.err)
        self.assertEqual(len(self.wanted()), 1)

    def test_where_nothing_was_ever_wanted_no_table_is_made(self):
        self.run_dir.mkdir()
        done = self.sft_any("flow", "unwant", *arguments())
        self.assertEqual(done.code, 1)
        self.assertIn(f"{TEXT} is not wanted", done.err)
        self.assertEqual(os.listdir(self.run_dir), [])

    def test_a_run_directory_that_is_not_there(self):
        self.assertIn(f"{self.run_dir}: no such folder", self.sft_refused("flow", "unwant", *arguments()))
        self.assertFalse(self.run_dir.exists())


class Mistakes(WantTest):
    MISTAKES = (
        ("10.0.0.1", dict(ends=("10.0.0.1", ENDS[1]))),
        ("ADDRESS:PORT", dict(ends=("", ENDS[1]))),
        ("10.0.0.256", dict(ends=("10.0.0.256:1", ENDS[1]))),
        ("expected an IPv4 address", dict(ends=(":1", ENDS[1]))),
        ("expected an IPv4 address", dict(ends=("localhost:1", ENDS[1]))),
        ("65535", dict(ends=("10.0.0.1:65536", ENDS[1]))),
        ("65535", dict(ends=("10.0.0.1:", ENDS[1]))),
        ("65535", dict(ends=("10.0.0.1:-1", ENDS[1]))),
        ("65535", dict(ends=("10.0.0.1:80x", ENDS[1]))),
        ("65535", dict(ends=("10.0.0.1:http", ENDS[1]))),
        ("in brackets", dict(ends=("2001:db8::1:80", "[::1]:80"))),
        ("ADDRESS:PORT", dict(ends=("[2001:db8::1]", "[::1]:80"))),
        ("expected an IPv6 address", dict(ends=("[10.0.0.1]:80", "[::1]:80"))),
        ("expected an IPv6 address", dict(ends=("[fe80::1%eth0]:80", "[::1]:80"))),
        ("an IPv6 address as SOURCE has", dict(ends=("[2001:db8::1]:80", ENDS[1]))),
        ("an IPv4 address as SOURCE has", dict(ends=(ENDS[0], "[2001:db8::1]:80"))),
        ("DESTINATION", dict(ends=(ENDS[0],))),
        ("SOURCE", dict(ends=())),
        ("third", dict(ends=(*ENDS, "third"))),
        ("tcp, udp", dict(proto="sctp")),
        ("tcp, udp", dict(proto="256")),
        ("--proto", dict(proto=None)),
        ("4095", dict(vlan="4096")),
        ("4095", dict(vlan="-1")),
        ("4095", dict(vlan="ten")),
        ("--vlan", dict(vlan=None)),
        ("ingress or egress", dict(direction="both")),
        ("--direction", dict(direction=None)),
        ("at most 22 bytes", dict(interface="x" * 23)),
        ("--interface", dict(interface="")),
        ("--interface", dict(interface=None)),
        ("4294967295", dict(vrf="4294967296")),
    )

    def test_each_is_one_clear_line_and_changes_nothing(self):
        self.sft("flow", "want", *arguments())
        before = self.wanted()
        for verb in ("want", "unwant"):
            for said, change in self.MISTAKES:
                with self.subTest(verb=verb, change=change):
                    done = self.sft_any("flow", verb, *arguments(**change))
                    self.assertEqual((done.code, done.out, done.err.count("\n")), (2, "", 1), done.err)
                    self.assertTrue(done.err.startswith("sft: "), done.err)
                    self.assertIn(said, done.err)
                    self.assertIn("expected", done.err)
        self.assertEqual(self.wanted(), before)

    def test_a_verb_is_needed(self):
        self.assertEqual(self.sft_any("flow").code, 2)
        self.assertEqual(self.sft_any("flow", "like", *arguments()).code, 2)

    def test_nothing_is_made_for_a_mistake(self):
        self.assertEqual(self.sft_any("flow", "want", *arguments(vlan="4096")).code, 2)
        self.assertFalse(self.run_dir.exists())


class AnotherWriter(WantTest):
    def test_is_told_and_nothing_is_changed(self):
        self.sft("flow", "want", *arguments())
        before = self.wanted()
        table = self.run_dir / "tables" / CONFIG / "hoIpFlowConfig"
        with open(table, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)  # as who writes the table holds it
            for verb in ("want", "unwant"):
                done = self.sft_any("flow", verb, *arguments())
                self.assertEqual((done.code, done.out, done.err.count("\n")), (1, "", 1))
                self.assertIn(str(table), done.err)
                self.assertIn("writ", done.err)
            self.sft("flow", "want", *arguments(("[::1]:1", "[::2]:2")))  # the other family has a file of its own
        self.assertEqual([record for record in self.wanted() if record["key"] == wanted(A)["key"]], before)


if __name__ == "__main__":
    unittest.main()
