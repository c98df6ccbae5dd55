"""Real programs talk through the agent, between hosts in network namespaces; the kernel of the receiver counts with us."""
import signal
import subprocess
import sys
import unittest

from harness import EGRESS, INGRESS, ROOT, flow_key, flows, wanted
import namespaces  # found where harness looks for scripts' libraries
from conversations import stream
from live import LEFT, RIGHT, Load, LiveTest, needs

IP_UDP = {4: 28, 6: 48}  # bytes of headers


class Programs(LiveTest):
    """ping, curl and nginx, dig and dnsmasq, iperf3: with offloads as the kernel has them on."""

    def setUp(self):
        super().setUp()
        self.agent = self.start_live()

    def test_ping_in_both_families_and_below_tags(self):
        tagged, _ = self.vlan(10), self.vlan(100, 20)
        for address in (self.net.b.ipv4, self.net.b.ipv6, tagged[1].ipv4, tagged[1].ipv6, "10.77.20.2", "fd77:20::2"):
            with self.subTest(address):
                self.ping(self.net.a, address)

    @needs("curl", "nginx")
    def test_curl_gets_pages_from_nginx(self):
        page = bytes(range(256)) * 4096  # a megabyte: frames far longer than the MTU leave the server
        (self.dir / "page").write_bytes(page)
        conf = self.dir / "nginx.conf"
        temporary = " ".join(f"{each}_temp_path {self.dir}/{each};" for each in
                             ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        conf.write_text(f"user root; daemon off; worker_processes 1; pid {self.dir}/pid; error_log {self.dir}/errors;\n"
                        f"events {{}}\nhttp {{ access_log off; {temporary}\n"
                        f"server {{ listen 80; listen [::]:80; root {self.dir}; }} }}\n")
        self.net.b.popen(["nginx", "-c", conf], stderr=subprocess.DEVNULL)
        self.listening(self.net.b, 80)
        tagged = self.vlan(10)[1]
        for host in (self.net.b.ipv4, f"[{self.net.b.ipv6}]", tagged.ipv4, f"[{tagged.ipv6}]"):
            with self.subTest(host):
                got = self.net.a.run(["curl", "-gsSf", "--max-time", 60, f"http://{host}/page"], text=False).stdout
                self.assertEqual(got, page)
        self.assertGreater(self.ports()[RIGHT]["framesCut"], 0)
        self.assertEqual([row["framesUnusable"] for row in self.ports().values()], [0, 0])

    @needs("dig", "dnsmasq")
    def test_dig_asks_dnsmasq(self):
        self.net.b.popen(["dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--no-resolv", "--no-hosts", "--user=root",
                          f"--pid-file={self.dir}/dns.pid", "--host-record=alpha.test,192.0.2.1,2001:db8::1"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.listening(self.net.b, 53, "udp")
        for server in (self.net.b.ipv4, self.net.b.ipv6):
            for kind, answer in (("A", "192.0.2.1"), ("AAAA", "2001:db8::1")):
                said = self.net.a.run(["dig", "+short", "+tries=5", f"@{server}", "alpha.test", kind]).stdout
                self.assertEqual(said.strip(), answer)

    @needs("iperf3")
    def test_iperf3_over_tcp_and_udp(self):
        for options in ([], ["-6", "-R"], ["-u", "-b", "2M"]):
            with self.subTest(options):
                server = self.net.b.popen(["iperf3", "-s"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                try:
                    self.listening(self.net.b, 5201)
                    address = self.net.b.ipv6 if "-6" in options else self.net.b.ipv4
                    said = stream(self.net.a, address, "-t", 1, *options)
                finally:
                    server.terminate()
                    server.wait()
                if "-u" in options:
                    self.assertGreater(said["sum"]["packets"], 0)
                    self.assertEqual(said["sum"]["lost_packets"], 0)
                else:
                    self.assertGreater(said["sum_received"]["bytes"], 0)


class Counts(LiveTest):
    """Flows in hardware are counted as the receiving kernel counts them."""

    FLOWS = 8
    PACKETS = 4000

    def keys(self, source, destination, ports):
        for number in range(self.FLOWS):
            yield flow_key(source.ipv6 if number % 2 else source.ipv4, destination.ipv6 if number % 2 else destination.ipv4,
                           ports + number, 9000)

    def test_udp_of_both_families(self):
        self.start_live()
        keys = list(self.keys(self.net.a, self.net.b, 20000))
        self.admitted([wanted(key, INGRESS, LEFT) for key in keys])
        self.acquainted()
        load = Load(self.net.b, self.FLOWS)
        sent = load.send(self.net.a, self.PACKETS, 4000)
        self.assertEqual(sent["sent"], self.PACKETS)
        expected = {flows.from_json(key): (row["packets"], row["payloadBytes"] + row["packets"] * IP_UDP[6 if number % 2 else 4])
                    for number, (key, row) in enumerate(zip(keys, sent["flows"]))}
        self.eventually(self.published, expected)
        self.eventually(lambda: self.datagrams(self.net.b), self.PACKETS)
        received = load.finish()
        self.assertEqual(received["flows"], sent["flows"])
        self.assertEqual((received["twice"], received["dropped"]), (0, 0))

    @needs("iperf3")
    def test_tcp_that_the_sending_kernel_leaves_uncut(self):
        """A megabyte in frames of up to 64 KB. The receiving kernel tells how many segments it took in."""
        self.start_live()
        key = flow_key(self.net.a.ipv4, self.net.b.ipv4, 40000, 9000, proto=6)
        self.admitted([wanted(key, INGRESS, LEFT), wanted(key, EGRESS, RIGHT)])
        taking = ("import socket; s = socket.create_server(('', 9000)); print('ready', flush=True); c = s.accept()[0];"
                  "print(sum(len(data) for data in iter(lambda: c.recv(65536), b'')), flush=True)")
        server = self.net.b.popen([sys.executable, "-c", taking], stdout=subprocess.PIPE, text=True)
        self.assertEqual(server.stdout.readline(), "ready\n")
        sending = (f"import socket; s = socket.create_connection(('{self.net.b.ipv4}', 9000), 60, ('', 40000));"
                   "s.sendall(bytes(1 << 20)); s.shutdown(socket.SHUT_WR); s.recv(1); s.close()")
        self.net.a.run([sys.executable, "-c", sending])
        self.assertEqual(server.stdout.readline(), f"{1 << 20}\n")

        def differ():
            counted = self.published().get(flows.from_json(key), (0, 0))[0]  # what came in on the left, and left on the right
            return counted - 2 * self.counted(self.net.b, "Tcp", "InSegs")

        self.eventually(differ, 0)
        self.assertGreater(self.ports()[LEFT]["framesCut"], 0)
        self.assertGreater(self.ports()[LEFT]["packetsCut"], 600)

        def differ_below():
            kernel, port = self.net.b.counters("eth0"), self.ports()[RIGHT]
            return port["packetsOut"] - kernel["packets_in"], port["bytesOut"] - kernel["bytes_in"]

        self.eventually(differ_below, (0, 0))

    def test_udp_that_the_sending_kernel_leaves_uncut(self):
        """One call, sixty datagrams (UDP_SEGMENT): one frame until the agent cuts it."""
        self.start_live()
        self.acquainted()
        keys = [flow_key(self.net.a.ipv4, self.net.b.ipv4, 20000, 9000), flow_key(self.net.a.ipv6, self.net.b.ipv6, 20000, 9000)]
        self.admitted([wanted(key, INGRESS, LEFT) for key in keys])
        load = Load(self.net.b, 1)  # takes whatever comes to port 9000
        sending = ("import socket, sys\nfor family, to in ((socket.AF_INET, sys.argv[1]), (socket.AF_INET6, sys.argv[2])):\n"
                   "    s = socket.socket(family, socket.SOCK_DGRAM); s.bind(('', 20000))\n"
                   "    s.setsockopt(socket.IPPROTO_UDP, 103, 1000)\n"  # UDP_SEGMENT
                   "    s.sendto(bytes(59001), (to, 9000))\n")
        self.net.a.run([sys.executable, "-c", sending, self.net.b.ipv4, self.net.b.ipv6])
        expected = {flows.from_json(key): (60, 59001 + 60 * header) for key, header in zip(keys, IP_UDP.values())}
        self.eventually(self.published, expected)
        self.eventually(lambda: self.datagrams(self.net.b), 120)
        load.finish()
        port = self.ports()[LEFT]
        self.assertEqual((port["framesCut"], port["packetsCut"], port["framesUnusable"]), (2, 120, 0))


class Rate(LiveTest):
    """What is lost is counted by somebody: nothing goes silently. At a rate that any machine carries nothing is lost."""

    def test_mixed_sizes_and_many_flows(self):
        self.start_live()
        self.acquainted()
        before = self.net.a.counters("eth0")["drops_out"]
        load = Load(self.net.b, 64)
        sent = load.send(self.net.a, 40000, 20000)

        def lost():
            ports = self.ports()
            return (self.net.a.counters("eth0")["drops_out"] - before + ports[LEFT]["dropsIn"] + ports[RIGHT]["dropsOut"])

        self.eventually(lambda: self.datagrams(self.net.b) + lost(), sent["sent"])
        received = load.finish()
        self.assertEqual((received["received"], received["dropped"]), (sent["sent"], 0), lost())
        self.assertEqual((received["twice"], received["strange"]), (0, 0))


class Changes(LiveTest):
    """Interfaces that go down, away, and come back."""

    def setUp(self):
        super().setUp()
        self.agent = self.start_live()
        self.ping(self.net.a, self.net.b.ipv4)

    def works_again(self):
        self.eventually(lambda: [row["up"] for row in self.ports().values()], [True, True])
        self.eventually(lambda: self.net.a.run(["ping", "-n", "-c", 1, "-W", 1, self.net.b.ipv4], check=False).returncode, 0)
        self.ping(self.net.a, self.net.b.ipv6)

    def test_down_and_up(self):
        port = self.net.a.port
        self.net.agent.down(port)
        self.agent.wait_for(f"port {LEFT}: interface {port}: is down")
        self.assertIn("is down", self.ports()[LEFT]["error"])
        self.net.agent.up(port)
        self.agent.wait_for(f"port {LEFT}: up again")
        self.works_again()
        self.assertEqual(len(self.agent.said(f"interface {port}: is down")), 1)

    def test_the_other_end_goes_down_and_up(self):
        self.net.b.down("eth0")
        self.agent.wait_for(f"port {RIGHT}: interface {self.net.b.port}: has no carrier")
        self.assertTrue(self.ports()[LEFT]["up"])
        self.net.b.configure()
        self.agent.wait_for(f"port {RIGHT}: up again")
        self.works_again()

    def test_removed_while_packets_arrive_and_made_anew(self):
        flood = self.net.a.popen(["ping", "-n", "-q", "-i", "0.002", self.net.b.ipv4], stdout=subprocess.DEVNULL)
        self.net.b.unplug()
        self.agent.wait_for(f"port {RIGHT}: interface {self.net.b.port}: went away",
                            f"port {RIGHT}: interface {self.net.b.port}: there is no such interface")
        before = self.ports()
        self.eventually(lambda: self.ports()[RIGHT]["dropsOut"] > before[RIGHT]["dropsOut"], True)  # what b should have had
        self.eventually(lambda: self.ports()[LEFT]["packetsIn"] > before[LEFT]["packetsIn"], True)
        self.net.b.plug()
        self.agent.wait_for(f"port {RIGHT}: up again")
        self.works_again()
        flood.terminate()

    def test_renamed_and_named_back(self):
        port = self.net.b.port
        self.net.agent.down(port)
        self.net.agent.ip("link", "set", port, "name", "elsewhere")
        self.agent.wait_for(f"interface {port}: went away", f"interface {port}: there is no such interface")
        self.net.agent.ip("link", "set", "elsewhere", "name", port)
        self.net.agent.up(port)
        self.agent.wait_for(f"port {RIGHT}: up again")
        self.works_again()


class Start(LiveTest):
    """What a start says of interfaces."""

    def test_an_interface_that_is_missing_refuses_the_start(self):
        self.write_config([(LEFT, "device", "not-there")])
        self.assertIn('port "Ethernet1": interface not-there: there is no such interface', self.refused())

    def test_an_interface_that_is_down_is_waited_for(self):
        self.net.agent.down(self.net.a.port)
        agent = self.start_live()
        agent.wait_for(f"port {LEFT}: interface {self.net.a.port}: is down")
        self.net.agent.up(self.net.a.port)
        agent.wait_for(f"port {LEFT}: up again")
        self.ping(self.net.a, self.net.b.ipv4)


class LeftBehind(LiveTest):
    """Namespaces do not outlive their owner for long."""

    def test_what_a_killed_owner_left_is_removed_by_the_next(self):
        script = ("import os, signal, namespaces, subprocess; net = namespaces.Network();"
                  "print(net.a.name, net.b.name, net.agent.name, flush=True); nowhere = subprocess.DEVNULL;"
                  "net.a.popen(['sleep', '1000'], stdout=nowhere, stderr=nowhere);"
                  "os.kill(os.getpid(), signal.SIGKILL)")
        killed = subprocess.run([sys.executable, "-B", "-c", script], cwd=ROOT / "scripts/lib", capture_output=True, text=True,
                                check=False)
        names = set(killed.stdout.split())
        self.assertEqual((len(names), killed.returncode), (3, -signal.SIGKILL), killed.stderr)
        with namespaces.Network():
            there = {line.split()[0] for line in namespaces.ip("netns", "list").splitlines()}
        self.assertEqual(names & there, set())
        self.assertIn(self.net.a.name, there)  # its owner lives


if __name__ == "__main__":
    unittest.main()
