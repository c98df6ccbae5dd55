"""Real programs that talk between the hosts of a Network: servers on one, clients on the other, and what the kernels counted."""
import collections
import json
import pathlib
import subprocess

from programs import Failure, Program, until

NGINX = """user root;
daemon off;
worker_processes 1;
pid {folder}/nginx.pid;
error_log stderr notice;
events {{}}
http {{
  access_log off;
  client_body_temp_path {folder}/body; proxy_temp_path {folder}/proxy; fastcgi_temp_path {folder}/fastcgi;
  uwsgi_temp_path {folder}/uwsgi; scgi_temp_path {folder}/scgi;
  server {{ listen 80; listen [::]:80; root {folder}; }}
}}
"""
PAGE = "page"
PAGE_BYTES = 300_000
LISTENING = ("tcp :80", "tcp :5201", "udp :53")  # of the servers, in this order


def run(host, *command):
    """What a command on a host prints."""
    try:
        done = host.run(command, check=False)
    except subprocess.TimeoutExpired as hanging:
        raise Failure(f"{' '.join(map(str, command))}\n  did not end within {hanging.timeout:.0f} seconds") from None
    if done.returncode != 0:
        raise Failure(f"{' '.join(map(str, command))}\n  ended with status {done.returncode}: {(done.stderr or done.stdout).strip()}")
    return done.stdout


class Servers:
    """nginx, iperf3 and dnsmasq on a host."""

    def __init__(self, host, folder):
        self.host = host
        folder = pathlib.Path(folder)
        folder.mkdir()
        (folder / PAGE).write_bytes(bytes(PAGE_BYTES))
        (folder / "nginx.conf").write_text(NGINX.format(folder=folder))
        self.programs = [self._start(folder, name, *command) for name, *command in (
            ("nginx", "nginx", "-e", "stderr", "-c", folder / "nginx.conf"),
            ("iperf3", "iperf3", "-s"),
            ("dnsmasq", "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--no-resolv", "--no-hosts", "--user=root",
             f"--pid-file={folder}/dnsmasq.pid", "--address=/example.test/192.0.2.7", "--address=/example.test/2001:db8::7"))]
        until(self._listen, 30, f"not all of {', '.join(LISTENING)} are listened on", self.programs)

    def _start(self, folder, name, *command):
        return Program(name, self.host.command(command), folder / f"{name}.log")

    def _listen(self):
        sockets = [line.split() for line in run(self.host, "ss", "-Hlntu").splitlines()]
        found = {f"{each[0]} :{each[4].rsplit(':', 1)[1]}" for each in sockets}
        return found.issuperset(LISTENING)

    def end(self):
        for program in self.programs:
            program.end()


def fetch(host, address):
    """A page from nginx; what curl says."""
    return run(host, "curl", "-gsSf", "-o", "/dev/null", "-w", "%{http_code}, %{size_download} bytes\\n", f"http://{address}/{PAGE}")


def ask_name(host, address, kind):
    return run(host, "dig", "+short", "+tries=3", f"@{address}", "www.example.test", kind)


def stream(host, address, *options):
    """An iperf3 run; the end of its report. Once in a while iperf3 ends well without one, and is asked again."""
    for _ in range(3):
        report = json.loads(run(host, "iperf3", "-J", "-c", address, *options))
        if "sum" in report["end"] or "sum_received" in report["end"]:
            return report["end"]
    raise Failure(f"iperf3 -c {address} {' '.join(map(str, options))}\n  does not report what was received: {report.get('error', report)}")


def kernel_counts(host):
    """What a host's kernel received since the host was made: "tcp" and "udp" packets, over IPv4 and IPv6 together, and "ipv4" octets."""
    values = collections.Counter()
    lines = run(host, "cat", "/proc/net/snmp", "/proc/net/netstat").splitlines()
    for names, numbers in zip(lines[::2], lines[1::2]):
        kind, *names = names.split()
        values.update({kind + name: int(number) for name, number in zip(names, numbers.split()[1:])})
    for line in run(host, "cat", "/proc/net/snmp6").splitlines():
        name, number = line.split()
        values[name] = int(number)
    delivered = values["Ip:InDelivers"] + values["Ip6InDelivers"]
    icmp = values["Icmp:InMsgs"] + values["Icmp6InMsgs"]
    # UDP itself counts only what somebody has read.
    return {"tcp": values["Tcp:InSegs"], "udp": delivered - icmp - values["Tcp:InSegs"], "ipv4": values["IpExt:InOctets"]}
