"""`sft top` in a terminal: what it shows, its keys, an agent that goes and comes, sizes, and the terminal that it leaves behind."""
import signal
import time
import unittest

from harness import (BUDGET, COUNTER, OVERFLOW, PATIENCE, SFT, STATES, ScenarioTest, counter, flow_key, status, udp_frame,
                     wanted)
from pty_screen import Terminal

A = flow_key("10.0.0.1", "10.0.0.2", 1001, 80)
B = flow_key("10.0.0.1", "10.0.0.2", 1002, 80)
C = flow_key("10.0.0.1", "10.0.0.2", 1003, 80)
D = flow_key("10.0.0.1", "10.0.0.2", 1004, 80)
SIX = {**flow_key("2001:db8::1", "2001:db8::2", 1006, 53), "vlan": 10}
NAMES = {"A": ":1001 ", "B": ":1002 ", "C": ":1003 ", "D": ":1004 ", "SIX": "[2001:db8::1]:1006 "}
ALTERNATE, NORMAL = "\x1b[?1049h", "\x1b[?1049l"


def shown(lines):
    """The flows on the screen, from the top down."""
    return [name for line in lines for name, text in NAMES.items() if text in line and "->" in line]


class TopTest(ScenarioTest):
    def top(self, *arguments, rows=24, columns=80, environment=None):
        terminal = Terminal([SFT, "--run-dir", self.run_dir, "top", "--interval", "0.2", *arguments], rows, columns, PATIENCE,
                            environment)
        self.addCleanup(terminal.close)
        return terminal

    def order(self, terminal, *names):
        terminal.wait(lambda lines: shown(lines) == list(names))

    def put_flows(self):
        """A and SIX in hardware, B held back, C without a status."""
        now = time.time()
        self.want([wanted(each) for each in (A, B, C, SIX)])
        self.put([{**status(each, state=state), "creationTime": now - age, "lastUpdateTime": now - age}
                  for each, state, age in ((A, 2, 300), (B, OVERFLOW, 30), (SIX, 2, 3000))])
        self.put([counter(A, 100, 9000, created=now), counter(SIX, 300, 5000, created=now)], COUNTER)
        self.sft("table", "put", STATES, "hosStateIpCounter",
                 text='{"key":{"state":2},"count":1}\n{"key":{"state":3},"count":1}\n')


class WithoutAgent(TopTest):
    def setUp(self):
        super().setUp()
        self.run_dir.mkdir()
        self.put_flows()

    def test_the_tables_are_shown_and_the_agent_s_absence_is_said(self):
        terminal = self.top()
        lines = terminal.wait_for("no agent answers: ", "4 of 4")
        self.assertTrue(lines[0].startswith("sft top  "), lines)
        self.assertIn("1 of ? in hardware, 1 in overflow", lines[1])
        self.assertEqual(sorted(shown(lines)), ["A", "B", "C", "SIX"])
        self.assertIn("in hardware", lines[[":1001 " in line for line in lines].index(True)])
        terminal.type("\t\t")
        terminal.wait(lambda lines: "[reasons]" in lines[4] and lines[6] == "no agent answers")

    def test_keys_sort_reverse_filter_and_leave_a_family_out(self):
        terminal = self.top()
        terminal.type("N")
        self.order(terminal, "A", "B", "C", "SIX")
        terminal.type("r")
        self.order(terminal, "SIX", "C", "B", "A")
        terminal.type("rP")
        self.order(terminal, "SIX", "A", "B", "C")
        terminal.type("B")
        self.order(terminal, "A", "SIX", "B", "C")
        terminal.type("A")
        self.order(terminal, "SIX", "A", "B", "C")
        terminal.type("T")
        self.order(terminal, "A", "SIX", "B", "C")
        terminal.type("6")
        self.order(terminal, "A", "B", "C")
        terminal.type("4")
        terminal.wait(lambda lines: shown(lines) == [] and "(off)" in lines[1])
        terminal.type("46N/:100")
        terminal.wait_for("filter: :100_")
        terminal.type("2")
        self.order(terminal, "B")
        terminal.type("\x7f\x7f3\r")
        self.order(terminal)
        terminal.type("c")
        self.order(terminal, "A", "B", "C", "SIX")
        terminal.type("ff")
        terminal.wait(lambda lines: shown(lines) == ["B"] and "by name, overflow" in lines[4])

    def test_flows_stand_by_their_rates(self):
        terminal = self.top()
        counts = {"A": 100, "SIX": 300}

        def count():
            """The next publication: A gets one packet, SIX three hundred."""
            counts["A"] += 1
            counts["SIX"] += 300
            now = time.time()
            records = [counter(A, counts["A"], 90 * counts["A"], created=1, updated=now),
                       counter(SIX, counts["SIX"], 60 * counts["SIX"], created=1, updated=now)]
            self.put(records, COUNTER)

        def rates(lines):
            cells = [line.split() for line in lines if "in hardware" in line and "->" in line]
            return len(cells) == 2 and "1006" in cells[0][0] and all(cell[-1].startswith(("\u2588", "\u258f")) for cell in cells[:1])
        terminal.wait(rates, again=count)

    def test_paused_nothing_comes_and_resumed_it_does(self):
        terminal = self.top()
        terminal.wait_for("4 of 4")
        terminal.type(" ")
        terminal.wait_for("PAUSED")
        self.want([wanted(D)])
        terminal.type("N")
        self.assertNotIn("D", shown(terminal.wait_for("by name")))
        terminal.type(" ")
        terminal.wait(lambda lines: shown(lines) == ["A", "B", "C", "D", "SIX"] and "PAUSED" not in lines[0])

    def test_a_table_that_grows_is_followed_and_scrolled_through(self):
        terminal = self.top("--sort", "name")
        terminal.wait_for("4 of 4")
        self.want([wanted(flow_key("10.9.0.1", "10.0.0.2", port, 80)) for port in range(1, 3001)])
        terminal.wait_for("of 3004")
        terminal.type("\x1bOF")
        terminal.wait(lambda lines: shown(lines) == ["SIX"])
        terminal.wait_for("3004 of 3004", "10.9.0.1:3000 ")
        terminal.type("\x1bOH")
        terminal.wait(lambda lines: shown(lines) == ["A", "B", "C"])

    def test_every_size_is_drawn(self):
        terminal = self.top()
        terminal.wait_for("4 of 4", "q quit")
        terminal.resize(10, 40)
        lines = terminal.wait(lambda lines: len(lines) == 10 and shown(lines) and "[flows]" in "\n".join(lines))
        self.assertTrue(all(len(line) <= 40 for line in lines))
        terminal.resize(1, 1)
        terminal.resize(60, 200)
        lines = terminal.wait_for("4 of 4", "q quit", "sampling", "reasons", "ports")
        self.assertTrue(lines[59].startswith("q quit"), lines)
        terminal.resize(24, 80)
        lines = terminal.wait(lambda lines: lines[23].startswith("q quit"))
        self.assertEqual(len(shown(lines)), 4)

    def test_help_is_a_page_and_goes_again(self):
        terminal = self.top()
        terminal.wait_for("4 of 4")
        terminal.type("?")
        terminal.wait_for("Ctrl-L", "by age, by name, by state")
        terminal.type("?")
        terminal.wait_for(NAMES["A"], without=["Ctrl-L"])

    def left_behind(self, terminal):
        """What must be so once the program is gone."""
        self.assertEqual(terminal.attributes(), terminal.before)
        self.assertEqual((terminal.sent.count(ALTERNATE), terminal.sent.count(NORMAL)), (1, 1))
        self.assertTrue(terminal.sent.rindex(NORMAL) > terminal.sent.rindex(NAMES["A"]))

    def test_it_leaves_the_terminal_as_it_found_it(self):
        for leave in (lambda terminal: terminal.type("q"), lambda terminal: terminal.type("\x03"),
                      lambda terminal: terminal.process.send_signal(signal.SIGTERM)):
            terminal = self.top()
            terminal.wait_for("4 of 4", NAMES["A"])
            self.assertNotEqual(terminal.attributes(), terminal.before)
            leave(terminal)
            self.assertEqual(terminal.wait_end(), 0)
            self.left_behind(terminal)

    def test_colours_are_used_unless_refused(self):
        terminal = self.top()
        terminal.wait_for("4 of 4")
        self.assertRegex(terminal.sent, "\x1b\\[[0-9;]*3[1-6]")
        terminal = self.top(environment={"NO_COLOR": "1"})
        terminal.wait_for("4 of 4")
        self.assertNotRegex(terminal.sent, "\x1b\\[[0-9;]*3[1-6]")
        terminal = self.top(environment={"TERM": "vt100", "LC_ALL": "C"})
        self.assertTrue(terminal.wait_for("4 of 4", "q quit")[4].startswith("[flows]"))

    def test_what_is_no_terminal_gets_one_clear_line(self):
        self.assertEqual(self.sft_refused("top"), "sft: top: standard input or output is no terminal, expected one, or --once, "
                                                  "which prints one frame")
        for name, why in (("dumb", "cannot move its cursor"), ("no-such", "is not known")):
            terminal = self.top(environment={"TERM": name})
            self.assertEqual(terminal.wait_end(), 1)
            self.assertEqual(terminal.sent, f'sft: top: TERM "{name}" {why}, expected a terminal that moves its cursor, or --once, '
                                            "which prints one frame\r\n")
            self.assertEqual(terminal.attributes(), terminal.before)
        self.assertIn("--interval", self.sft_refused("top", "--once", "--interval", "0"))
        self.assertIn("--sort", self.sft_refused("top", "--once", "--sort", "size"))

    def test_once_prints_one_frame_as_text_or_rows(self):
        done = self.sft_any("top", "--once", "--interval", "0.1", "--sort", "name", environment={"LINES": "12", "COLUMNS": "80"})
        self.assertEqual((done.code, done.err), (0, ""))
        lines = done.out.splitlines()
        self.assertEqual(len(lines), 12)
        self.assertEqual(shown(lines), ["A", "B", "C", "SIX"])
        self.assertNotIn("\x1b", done.out)
        rows = self.sft("top", "--interval", "0.1", "--once", "--state", "in-hardware", "--sort", "packets")
        self.assertEqual([row["flow"].split()[0] for row in rows if row["panel"] == "flow"], ["[2001:db8::1]:1006", "10.0.0.1:1001"])
        self.assertFalse(rows[0]["answers"])
        self.assertEqual(rows[1]["flows"], 4)


class WithAgent(TopTest):
    def setUp(self):
        super().setUp()
        self.write_capture("in.pcap", [udp_frame("10.0.0.1", "10.0.0.2", 1001, 80)] * 20)
        self.write_config([("Ethernet1", "capture", self.dir / "in.pcap"), ("Ethernet2", "write", self.dir / "out.pcap")],
                          {"Ethernet1": "Ethernet2"}, rate=1)

    def agent(self):
        return self.start_replayed(environment={BUDGET: "1"})

    def test_an_agent_that_is_killed_and_comes_again_is_followed(self):
        agent = self.agent()
        self.want([wanted(A), wanted(B)])
        terminal = self.top("--sort", "name")
        lines = terminal.wait_for("1 of 1 in hardware, 1 in overflow", "samples", "2 of 2")
        self.assertEqual(shown(lines), ["A", "B"])
        terminal.type("\t")
        terminal.wait_for("[sampling]", "Ethernet1", "ingress")
        terminal.type("\t")
        terminal.wait_for("[reasons]", "No flow status")
        terminal.type("\t")
        terminal.wait_for("[ports]", "finished")
        terminal.type("\t")
        agent.end(signal.SIGKILL)
        lines = terminal.wait_for("no agent answers: ", "1 of 1 in hardware, 1 in overflow")
        self.assertEqual(shown(lines), ["A", "B"])
        self.want([wanted(C)])
        terminal.wait(lambda lines: shown(lines) == ["A", "B", "C"] and any(NAMES["C"] in line and "waiting" in line for line in lines))
        self.agent()
        terminal.wait(lambda lines: any(NAMES["C"] in line and "overflow" in line for line in lines))
        terminal.wait_for("3 of 3", "samples", without=["no agent"])

    def test_an_agent_that_hangs_does_not_stop_the_display(self):
        agent = self.agent()
        self.want([wanted(A)])
        terminal = self.top("--sort", "name")
        terminal.wait_for("1 of 1 in hardware", "samples")
        agent.process.send_signal(signal.SIGSTOP)
        terminal.wait_for("has not answered for")
        terminal.type("\t")
        terminal.wait_for("[sampling]")
        agent.process.send_signal(signal.SIGCONT)
        terminal.wait_for("Ethernet1", without=["has not answered"])


if __name__ == "__main__":
    unittest.main()
