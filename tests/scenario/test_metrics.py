"""The agent's numbers: a real Prometheus server scrapes them, and what it then answers is what `sft` says and what is in the
capture. And the endpoint among clients that are slow, wrong or many."""
import collections
import concurrent.futures
import json
import re
import shutil
import socket
import subprocess
import threading
import unittest
import urllib.error
import urllib.parse
import urllib.request

from harness import (BUDGET, IN_HARDWARE, OVERFLOW, OWN_CAPTURES, PATIENCE, ScenarioTest, flows, is_ipv6, wanted)
import programs

MIXED = OWN_CAPTURES / "mixed.pcap"
SAMPLE = re.compile(r'(?P<name>[a-zA-Z_:][\w:]*)(?:\{(?P<labels>.*)\})? (?P<value>\S+)$')
LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')


def get(url, timeout=PATIENCE):
    with urllib.request.urlopen(url, timeout=timeout) as answer:
        return answer.read().decode()


def read_text(text):
    """The samples of a metrics page: (name, labels) -> value."""
    samples = {}
    for line in text.splitlines():
        if not line.startswith("#"):
            found = SAMPLE.match(line)
            samples[found["name"], frozenset(LABEL.findall(found["labels"] or ""))] = float(found["value"])
    return samples


def family_name(key):
    return "IPv6" if is_ipv6(key) else "IPv4"


class MetricsTest(ScenarioTest):
    def start_with_endpoint(self, listen="127.0.0.1:0", ports=(), budget=None, **how):
        self.write_config(list(ports), extra=f"[metrics]\nlisten = {json.dumps(listen)}\n", **how)
        self.agent = self.start(environment={BUDGET: str(budget)} if budget is not None else None)
        self.agent.wait_ready()
        [line] = self.agent.said(": metrics at ")
        self.url = line.split(" metrics at ")[1]
        self.port = urllib.parse.urlsplit(self.url).port
        return self.agent

    def replay_mixed(self, budget):
        """Half of the capture's flows are wanted; the budget has room for some of them."""
        traffic = flows.count(MIXED)
        half = list(traffic.flows)[::2]
        self.want([wanted(flows.to_json(key)) for key in half])
        self.start_with_endpoint(ports=[("Ethernet1", "capture", MIXED), ("Ethernet2", "write", self.dir / "out.pcap")],
                                 forward={"Ethernet1": "Ethernet2"}, budget=budget, rate=10)
        self.agent.wait_replayed()
        return traffic

    def rows(self, prefix):
        """What `sft metrics` says of names with a prefix: (name, labels) -> value."""
        return {(row["name"], frozenset(row["labels"].items())): row["value"]
                for row in self.sft("metrics", prefix) if "value" in row}


def outcomes_in(traffic, states):
    """What became of the packets on their way in: (family, outcome) -> packets."""
    expected = collections.Counter({("other", "not_offloaded_family"): traffic.family["other"]})
    left = dict(traffic.family)
    for key, flow in traffic.flows.items():
        name = family_name(flows.to_json(key))
        outcome = {IN_HARDWARE: "offloaded", OVERFLOW: "not_in_hardware", None: "no_flow_status"}[states.get(key)]
        expected[name, outcome] += flow.packets
        left[name] -= flow.packets
    for name in ("IPv4", "IPv6"):
        expected[name, "not_tcp_or_udp"] += left[name]
    return +expected


class ScrapedTest(MetricsTest):
    """With a server of the `prometheus` package."""

    def start_prometheus(self):
        config = self.dir / "prometheus.yml"
        config.write_text("global: {scrape_interval: 1s, scrape_timeout: 1s}\nscrape_configs:\n"
                          f"- {{job_name: agent, static_configs: [{{targets: ['127.0.0.1:{self.port}']}}]}}\n")
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        server = programs.Program("prometheus", ["prometheus", f"--config.file={config}",
                                                 f"--storage.tsdb.path={self.dir / 'tsdb'}",
                                                 f"--web.listen-address=127.0.0.1:{port}"], self.dir / "prometheus.log")
        self.addCleanup(server.close)
        self.api = f"http://127.0.0.1:{port}/api/v1/query?query="
        programs.until(lambda: self.query("up") == {frozenset(): 1.0}, PATIENCE, "prometheus has not scraped the agent", [server])

    def query(self, expression):
        """What the server answers: labels -> value."""
        try:
            answer = json.loads(get(self.api + urllib.parse.quote(expression)))
        except OSError:
            return None  # it does not answer yet
        self.assertEqual(answer["status"], "success", answer)
        leave = ("__name__", "instance", "job")
        return {frozenset(item for item in each["metric"].items() if item[0] not in leave): float(each["value"][1])
                for each in answer["data"]["result"]}

    @unittest.skipUnless(shutil.which("prometheus"), "no prometheus")
    def test_a_server_that_scrapes_the_agent_answers_what_sft_says_and_what_is_in_the_capture(self):
        traffic = self.replay_mixed(budget=20)
        self.start_prometheus()
        states = {key: state for (key, _direction, _intf), state in self.states().items()}
        expected = outcomes_in(traffic, states)

        def of(expression, **labels):
            return lambda: (self.query(expression) or {}).get(frozenset(labels.items()))

        def outcomes():
            return {(dict(labels)["family"], dict(labels)["outcome"]): packets
                    for labels, packets in (self.query('sft_packets_total{direction="ingress"}') or {}).items() if packets}
        self.eventually(outcomes, expected)
        for family in ("IPv4", "IPv6"):
            mine = collections.Counter(state for key, state in states.items() if family_name(flows.to_json(key)) == family)
            self.assertEqual(mine[IN_HARDWARE], 20, "the budget is used up")
            self.eventually(of("sft_hardware_flows_max", family=family), 20)
            self.eventually(of("sft_flows", family=family, state="in-hardware"), 20)
            self.eventually(of("sft_flows", family=family, state="overflow"), mine[OVERFLOW])
            self.eventually(of("sft_overflow_entries", family=family), mine[OVERFLOW])
            self.eventually(of("sft_admissions_total", family=family), 20)
        self.eventually(of("sum(pexa_port_packets_total{direction='in'})"), traffic.packets)
        self.eventually(of("count(sft_reconciliation_pending == 0)"), 10)
        [sampling] = [row for row in self.sft("samples") if row["direction"] == "ingress"]
        self.eventually(of("pexa_samples_total", interface="Ethernet1", direction="ingress"), sampling["samples"])
        self.eventually(of("pexa_sample_pool_packets_total", interface="Ethernet1", direction="ingress"),
                        traffic.packets - expected["IPv4", "offloaded"] - expected["IPv6", "offloaded"])
        self.eventually(lambda: bool(self.query('histogram_quantile(1, pexa_loop_slice_seconds_bucket{work="packets"}) > 0')), True)
        self.withdraw_one_and_see_a_promotion(states, of)

    def withdraw_one_and_see_a_promotion(self, states, of):
        [first, *_] = [key for key, state in states.items() if state == IN_HARDWARE and not is_ipv6(flows.to_json(key))]
        self.unwant([wanted(flows.to_json(first))])
        self.eventually(of("sft_promotions_total", family="IPv4"), 1)
        self.eventually(of("sft_withdrawals_total", family="IPv4"), 1)
        self.eventually(of("sft_admissions_total", family="IPv4"), 21)

    @unittest.skipUnless(shutil.which("promtool"), "no promtool")
    def test_promtool_finds_nothing_wrong(self):
        self.replay_mixed(budget=20)
        checked = subprocess.run(["promtool", "check", "metrics"], input=get(self.url), capture_output=True, text=True,
                                 check=False, timeout=PATIENCE)
        self.assertEqual((checked.returncode, checked.stdout, checked.stderr), (0, "", ""))


class EndpointTest(MetricsTest):
    def test_the_page_and_sft_metrics_tell_the_same(self):
        self.replay_mixed(budget=20)
        self.eventually(lambda: {state for state in self.states().values()} == {IN_HARDWARE, OVERFLOW}, True)
        for prefix in ("sft_packets", "sft_flows", "sft_admissions", "pexa_reasons", "pexa_port", "pexa_sampl", "pexa_table_records",
                       "pexa_build_info", "process_start"):
            def page():
                return {sample: value for sample, value in read_text(get(self.url)).items() if sample[0].startswith(prefix)}
            said = self.rows(prefix)
            self.assertTrue(said, prefix)
            self.eventually(lambda: {key: float(f"{value:.10g}") for key, value in page().items()},
                            {key: float(f"{value:.10g}") for key, value in said.items()})

    def test_sft_metrics_lists_for_people_and_refuses_what_is_not_there(self):
        self.start_with_endpoint()
        shown = self.sft_any("metrics", "sft_hardware")
        self.assertEqual(shown.out.split("\n")[0].split(), ["metric", "labels", "value"])
        self.assertIn("sft_hardware_flows_max  family=IPv4", shown.out)
        self.assertIn("pexa_loop_slice_seconds", self.sft_any("metrics").out)
        self.assertEqual(self.sft_refused("metrics", "nothing"),
                         'sft: no metric begins with "nothing", expected one of sft metrics')

    def test_without_the_table_there_is_no_endpoint_and_sft_metrics_answers_all_the_same(self):
        self.write_config([])
        agent = self.start()
        agent.wait_ready()
        self.assertEqual(agent.said("metrics at"), [])
        self.assertTrue(self.sft("metrics", "sft_hardware_flows_max"))

    def test_another_path_is_not_found(self):
        self.start_with_endpoint()
        for path in ("/", "/metric", "/..%2f..%2fetc/passwd"):
            with self.assertRaises(urllib.error.HTTPError) as refused:
                get(f"http://127.0.0.1:{self.port}{path}")
            self.assertEqual(refused.exception.code, 404, path)
            refused.exception.close()

    def test_an_address_that_is_taken_is_refused_and_nothing_is_changed(self):
        out = self.dir / "out.pcap"
        out.write_text("kept")
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            self.write_config([("Ethernet1", "write", out)], extra=f'[metrics]\nlisten = "127.0.0.1:{port}"\n')
            line = self.config.read_text().count("\n")
            self.assertEqual(self.refused(), f"pexa-agent: {self.config}:{line}: [metrics] cannot listen on 127.0.0.1:{port}: "
                             "Address already in use, expected an address of this machine and a free port")
        self.assertEqual(out.read_text(), "kept")

    def test_slow_clients_hold_up_neither_others_nor_the_agent(self):
        self.start_with_endpoint()
        slow = [socket.create_connection(("127.0.0.1", self.port)) for _ in range(8)]
        for each in slow:
            self.addCleanup(each.close)
            each.sendall(b"GET /metrics HT")
        self.assertEqual(len(self.sft("ports")), 0)
        self.assertIn("pexa_build_info", get(self.url))
        for each in slow:
            each.settimeout(PATIENCE)
            self.assertNotIn(b"pexa_", each.recv(100))  # refused, or closed

    def test_many_who_ask_at_once_are_all_answered(self):
        self.start_with_endpoint()
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            pages = list(pool.map(lambda _: get(self.url), range(40)))
        names = {name for name, _ in read_text(pages[0])}
        for page in pages:
            self.assertEqual({name for name, _ in read_text(page)}, names)

    def test_the_agent_ends_in_order_while_it_is_scraped(self):
        agent = self.start_with_endpoint()
        asked = threading.Semaphore(0)

        def scrape():
            try:
                while True:
                    get(self.url)
                    asked.release()
            except OSError:
                pass  # it is gone
        scrapers = [threading.Thread(target=scrape) for _ in range(4)]
        for each in scrapers:
            each.start()
        for _ in range(20):
            self.assertTrue(asked.acquire(timeout=PATIENCE))
        self.assertEqual(agent.end(), 0)
        for each in scrapers:
            each.join(PATIENCE)
            self.assertFalse(each.is_alive())


if __name__ == "__main__":
    unittest.main()
