"""What is wanted, what became of it and what was counted, as an operator reads it: from the tables alone, without an agent."""
import re
import time
import unittest

from harness import (CONFIG, COUNTER, EGRESS, OVERFLOW, STATES, STATUS, ScenarioTest, counter, flow_key, flows, status, wanted)

A = flow_key("10.0.0.1", "10.0.0.2", 1234, 80, vlan=10, proto=6)
B = flow_key("10.0.0.1", "10.0.0.2", 1235, 80, vlan=10, proto=6)
C = {**flow_key("10.0.0.9", "10.0.0.2", 5, 6, vlan=10), "vrfId": 7}
SIX = {"vrfId": flows.DEFAULT_VRF, "vlan": 0, "srcAddr": "2001:db8::1", "dstAddr": "2001:db8::2", "ipProto": 47, "srcPort": 1,
       "dstPort": 2}
TEXT_A = "10.0.0.1:1234 -> 10.0.0.2:80 tcp vlan 10"
TEXT_B = "10.0.0.1:1235 -> 10.0.0.2:80 tcp vlan 10"
TEXT_C = "10.0.0.9:5 -> 10.0.0.2:6 udp vlan 10 vrf 7"
TEXT_SIX = "[2001:db8::1]:1 -> [2001:db8::2]:2 protocol 47 vlan 0"


def since(record, seconds):
    return {**record, "creationTime": seconds, "lastUpdateTime": seconds}


class ViewTest(ScenarioTest):
    def columns(self, *arguments):
        """What people see: the heading's names, and each line's cells."""
        done = self.sft_any(*arguments)
        self.assertEqual((done.code, done.err), (0, ""))
        lines = done.out.splitlines()
        if not lines:
            return [], []
        starts = [match.start() for match in re.finditer(r"(?:^|(?<=  ))\S", lines[0])]
        return re.split(r"  +", lines[0].strip()), [re.split(r"  +", line.strip()) for line in lines[1:]] if starts else []


class Everywhere(ViewTest):
    VIEWS = ("flows", "status", "counters", "states")

    def test_tables_that_nobody_made_yet_are_empty(self):
        self.run_dir.mkdir()
        for view in self.VIEWS:
            with self.subTest(view=view):
                self.assertEqual(self.sft(view), [])

    def test_a_run_directory_that_is_not_there_is_told(self):
        for view in self.VIEWS:
            with self.subTest(view=view):
                self.assertIn(f"{self.run_dir}: no such folder", self.sft_refused(view))

    def test_a_file_that_is_no_table_is_told(self):
        for view, path, collection in (("flows", CONFIG, "hoIpFlowConfig"), ("status", STATUS, "hoIp6FlowStatus"),
                                       ("counters", COUNTER, "hoIpFlowCounter"), ("states", STATES, "hosStateIpCounter")):
            with self.subTest(view=view):
                file = self.run_dir / "tables" / path / collection
                file.parent.mkdir(parents=True)
                file.write_bytes(b"nonsense")
                self.assertIn(str(file), self.sft_refused(view))
                self.assertEqual(self.sft_any(view).code, 1)
                file.unlink()

    def test_both_families_at_once_are_a_misuse(self):
        done = self.sft_any("flows", "--ipv4", "--ipv6")
        self.assertEqual((done.code, done.out, done.err.count("\n")), (2, "", 1))

    def test_a_state_that_is_none_is_a_misuse_and_says_which_there_are(self):
        for view in ("flows", "status"):
            for state in ("asleep", "256", "-1", "2x"):
                with self.subTest(view=view, state=state):
                    done = self.sft_any(view, "--state", state)
                    self.assertEqual((done.code, done.out, done.err.count("\n")), (2, "", 1))
                    self.assertIn(f'"{state}"', done.err)
                    self.assertIn("in-hardware", done.err)
        self.assertEqual(self.sft_any("status", "--state", "waiting").code, 2)  # a status is never missing its status

    def test_a_running_agent_is_not_in_the_way(self):
        self.write_config([])
        self.start().wait_ready()
        for view in self.VIEWS:
            with self.subTest(view=view):
                self.assertEqual(self.sft_any(view).code, 0)
        self.assertEqual(self.sft("flows"), [])


class Status(ViewTest):
    def test_a_record_comes_whole_with_words_behind(self):
        record = since(status(A, EGRESS, "Ethernet3", OVERFLOW), 1700000000.25)
        self.put([record])
        before = time.time()
        row, = self.sft("status")
        self.assertEqual({name: row[name] for name in record}, record)
        self.assertEqual((row["family"], row["flow"], row["directionName"], row["stateName"], row["since"]),
                         ("IPv4", TEXT_A, "egress", "overflow", "2023-11-14T22:13:20.250Z"))
        self.assertLess(abs(row["age"] - (before - 1700000000.25)), 60)

    def test_people_get_sorted_columns_in_words(self):
        now = time.time()
        self.put([since(status(B), now - 10), since(status(SIX, state=OVERFLOW), now - 3 * 86400), status(C, state=7),
                  since(status(A, EGRESS, "Ethernet3"), now - 600), since(status(A), now - 4 * 3600)])
        heading, rows = self.columns("status")
        self.assertEqual(heading, ["flow", "direction", "interface", "state", "since", "age"])
        self.assertEqual([[row[0], row[1], row[2], row[3]] for row in rows],
                         [[TEXT_C, "ingress", "Ethernet1", "state 7"], [TEXT_A, "ingress", "Ethernet1", "in hardware"],
                          [TEXT_A, "egress", "Ethernet3", "in hardware"], [TEXT_B, "ingress", "Ethernet1", "in hardware"],
                          [TEXT_SIX, "ingress", "Ethernet1", "overflow"]])
        self.assertEqual([row[4] == "-" for row in rows], [True, False, False, False, False])
        self.assertEqual([row[5].split()[-1] for row in rows], ["-", "h", "min", "s", "d"])

    def test_a_time_that_was_never_set_has_no_age(self):
        self.put([status(A)])
        row, = self.sft("status")
        self.assertEqual((row["since"], row["age"]), (None, None))

    def test_families_and_states_can_be_left_out(self):
        self.put([status(A), status(B, state=OVERFLOW), status(SIX), status(C, state=9)])

        def shown(*arguments):
            return sorted(row["flow"] for row in self.sft("status", *arguments))

        self.assertEqual(shown("--ipv6"), [TEXT_SIX])
        self.assertEqual(shown("--ipv4"), [TEXT_A, TEXT_B, TEXT_C])
        self.assertEqual(shown("--state", "in-hardware"), [TEXT_A, TEXT_SIX])
        self.assertEqual(shown("--state", "in hardware", "--ipv4"), [TEXT_A])
        self.assertEqual(shown("--state", "3"), [TEXT_B])
        self.assertEqual(shown("--state", "9"), [TEXT_C])


class Counters(ViewTest):
    def test_a_record_comes_whole_with_words_behind(self):
        record = counter(SIX, 1 << 63, 12, "Ethernet7", 3, 1.5, 1700000000.0)
        self.put([record], COUNTER)
        row, = self.sft("counters")
        self.assertEqual({name: row[name] for name in record}, record)
        self.assertEqual((row["family"], row["flow"], row["since"], row["lastUpdate"]),
                         ("IPv6", TEXT_SIX, "1970-01-01T00:00:01.500Z", "2023-11-14T22:13:20.000Z"))

    def test_people_get_sorted_columns(self):
        self.put([counter(B, 5, 500, updated=0.0), counter(SIX, 1, 2), counter(A, 12345, 67890, "Ethernet3", 2)], COUNTER)
        heading, rows = self.columns("counters")
        self.assertEqual(heading, ["flow", "packets", "bytes", "last seen on", "last update", "counted since", "references"])
        self.assertEqual([row[:4] + row[6:] for row in rows],
                         [[TEXT_A, "12345", "67890", "Ethernet3", "2"], [TEXT_B, "5", "500", "Ethernet1", "1"],
                          [TEXT_SIX, "1", "2", "Ethernet1", "1"]])
        self.assertEqual([row[4] for row in rows], ["1970-01-01T00:00:02.000Z", "-", "1970-01-01T00:00:02.000Z"])

    def test_a_family_can_be_left_out(self):
        self.put([counter(A, 1, 1), counter(SIX, 1, 1)], COUNTER)
        self.assertEqual([row["flow"] for row in self.sft("counters", "--ipv4")], [TEXT_A])
        self.assertEqual([row["flow"] for row in self.sft("counters", "--ipv6")], [TEXT_SIX])


class States(ViewTest):
    def setUp(self):
        super().setUp()
        for collection, counts in (("hosStateIpCounter", {2: 1, 3: 5}), ("hosStateIp6Counter", {2: 4294967295})):
            text = "".join(f'{{"key":{{"state":{state}}},"count":{count}}}\n' for state, count in counts.items())
            self.sft("table", "put", STATES, collection, text=text)

    def test_a_record_comes_whole_with_words_behind(self):
        rows = sorted(self.sft("states"), key=lambda row: (row["family"], row["key"]["state"]))
        self.assertEqual(rows, [
            {"key": {"state": 2}, "count": 1, "family": "IPv4", "stateName": "in hardware"},
            {"key": {"state": 3}, "count": 5, "family": "IPv4", "stateName": "overflow"},
            {"key": {"state": 2}, "count": 4294967295, "family": "IPv6", "stateName": "in hardware"}])

    def test_people_get_a_total_a_family(self):
        self.assertEqual(self.columns("states"), (["family", "state", "flows"], [
            ["IPv4", "in hardware", "1"], ["IPv4", "overflow", "5"], ["IPv4", "all", "6"],
            ["IPv6", "in hardware", "4294967295"], ["IPv6", "all", "4294967295"]]))

    def test_a_family_can_be_left_out(self):
        self.assertEqual({row["family"] for row in self.sft("states", "--ipv6")}, {"IPv6"})


class Flows(ViewTest):
    def setUp(self):
        super().setUp()
        now = time.time()
        self.want([{**wanted(A), "requestTime": 1700000000.5}, wanted(A, EGRESS, "Ethernet3"), wanted(B), wanted(SIX)])
        self.put([since(status(A), now - 30), since(status(A, EGRESS, "Ethernet3", OVERFLOW), now), status(C), status(SIX)])
        self.put([counter(A, 12, 3400, references=2), counter(SIX, 1, 60)], COUNTER)

    def rows(self, *arguments):
        return {(row["flow"], row["directionName"]): row for row in self.sft("flows", *arguments)}

    def test_each_flow_that_is_wanted_or_has_a_status_comes_once(self):
        rows = self.sft("flows")
        self.assertEqual(sorted((row["flow"], row["key"]["direction"]) for row in rows),
                         sorted([(TEXT_A, 1), (TEXT_A, 2), (TEXT_B, 1), (TEXT_C, 1), (TEXT_SIX, 1)]))

    def test_it_says_where_the_flow_stands(self):
        rows = self.rows()
        self.assertEqual({name: rows[TEXT_A, "ingress"][name] for name in
                          ("key", "family", "wanted", "requestTime", "state", "stateName", "stands", "packets", "bytes")},
                         {**wanted(A), "family": "IPv4", "wanted": True, "requestTime": 1700000000.5, "state": 2,
                          "stateName": "in hardware", "stands": "in hardware", "packets": 12, "bytes": 3400})
        stands = {key: (row["wanted"], row["state"], row["stateName"], row["stands"]) for key, row in rows.items()}
        self.assertEqual(stands, {
            (TEXT_A, "ingress"): (True, 2, "in hardware", "in hardware"),
            (TEXT_A, "egress"): (True, 3, "overflow", "overflow: waiting for room"),
            (TEXT_B, "ingress"): (True, None, "waiting", "waiting: wanted, no status yet"),
            (TEXT_C, "ingress"): (False, 2, "in hardware", "in hardware: not wanted any more"),
            (TEXT_SIX, "ingress"): (True, 2, "in hardware", "in hardware")})

    def test_counts_are_the_flow_s_in_whatever_direction_it_is_wanted(self):
        counted = {key: (row["packets"], row["bytes"]) for key, row in self.rows().items()}
        self.assertEqual(counted, {(TEXT_A, "ingress"): (12, 3400), (TEXT_A, "egress"): (12, 3400),
                                   (TEXT_B, "ingress"): (None, None), (TEXT_C, "ingress"): (None, None),
                                   (TEXT_SIX, "ingress"): (1, 60)})

    def test_people_get_sorted_columns_in_words(self):
        heading, rows = self.columns("flows")
        self.assertEqual(heading, ["flow", "direction", "interface", "stands", "since", "age", "packets", "bytes"])
        self.assertEqual([[row[0], row[1], row[3], *row[6:]] for row in rows], [
            [TEXT_C, "ingress", "in hardware: not wanted any more", "-", "-"],
            [TEXT_A, "ingress", "in hardware", "12", "3400"],
            [TEXT_A, "egress", "overflow: waiting for room", "12", "3400"],
            [TEXT_B, "ingress", "waiting: wanted, no status yet", "-", "-"],
            [TEXT_SIX, "ingress", "in hardware", "1", "60"]])

    def test_families_and_states_can_be_left_out(self):
        self.assertEqual(set(self.rows("--ipv6")), {(TEXT_SIX, "ingress")})
        self.assertEqual(set(self.rows("--state", "waiting")), {(TEXT_B, "ingress")})
        self.assertEqual(set(self.rows("--state", "unwanted")), {(TEXT_C, "ingress")})
        self.assertEqual(set(self.rows("--state", "overflow")), {(TEXT_A, "egress")})
        self.assertEqual(set(self.rows("--state", "2", "--ipv4")), {(TEXT_A, "ingress"), (TEXT_C, "ingress")})

    def test_a_damaged_counter_is_told_and_the_rest_is_shown(self):
        self.damage(COUNTER, "hoIpFlowCounter")
        done = self.sft_any("--json", "flows")
        self.assertEqual(done.code, 1)
        self.assertIn("damaged", done.err)
        rows = {(row["flow"], row["directionName"]): row for row in done.rows()}
        self.assertEqual(len(rows), 5)
        self.assertIsNone(rows[TEXT_A, "ingress"]["packets"])
        self.assertEqual(rows[TEXT_SIX, "ingress"]["packets"], 1)

    def test_damaged_status_is_told_and_the_rest_is_shown(self):
        self.damage(STATUS, "hoIpFlowStatus")
        done = self.sft_any("--json", "flows")
        self.assertEqual(done.code, 1)
        self.assertIn("damaged", done.err.splitlines()[-1])
        rows = {(row["flow"], row["directionName"]): row for row in done.rows()}
        self.assertEqual(rows[TEXT_A, "ingress"]["state"], None)
        self.assertEqual(rows[TEXT_A, "egress"]["state"], OVERFLOW)  # on another interface, whose record is whole
        self.assertEqual(rows[TEXT_SIX, "ingress"]["state"], 2)
        self.assertEqual(self.sft_any("status").code, 1)


class Many(ViewTest):
    def test_two_large_tables_are_joined_flow_by_flow(self):
        keys = [flow_key("10.0.0.1", "10.0.0.2", port, 1) for port in range(1, 6001)]
        self.want([wanted(key) for key in keys[:4000]])
        self.put([status(key) for key in keys[2000:]])
        rows = self.sft("flows")
        stands = {row["key"]["ipFlowKey"]["srcPort"]: row["stands"] for row in rows}
        self.assertEqual((len(rows), len(stands)), (6000, 6000))
        for port, text in stands.items():
            expected = ("waiting: wanted, no status yet" if port <= 2000 else
                        "in hardware" if port <= 4000 else "in hardware: not wanted any more")
            self.assertEqual(text, expected, port)


if __name__ == "__main__":
    unittest.main()
