"""The whole program against softflowd and nfpcapd: one capture, read and counted by each, from exec to exit."""
import collections
import ipaddress
import shutil
import statistics

from bench_programs import AgentRun
from bench_report import Row
from collectors import Nfcapd, NfdumpCollector
from programs import Failure

GROUP = "replay"
SIZES = (2_000, 65_000, 1_000_000)
PEERS = (("softflowd", 0.5), ("nfpcapd", 0.25))


def measure(setting):
    flows, packets = (100, 1_000) if setting.quick else (2_000, 2_000_000)
    yield from _against_peers(setting, flows, packets)
    yield from _by_size(setting, (100,) if setting.quick else SIZES, packets)


def _against_peers(setting, flows, packets):
    absent = [name for name, _ in PEERS if not shutil.which(name)]
    if absent:
        yield Row(GROUP, "replay against " + " and ".join(absent), None, note="not installed: scripts/bootstrap bench")
        return
    traffic = setting.traffic(flows, packets)
    capture = traffic / "traffic.pcap"
    contenders = {"agent": AgentRun(setting, "replay", traffic), "agent, ingress only": AgentRun(setting, "replay-in", traffic, egress=False)}
    took = collections.defaultdict(list)
    for _ in range(setting.runs):  # in turn, so that what disturbs the machine disturbs all
        for name, agent in contenders.items():
            agent.want()
            took[name].append(agent.to_the_end())
        for peer, _ in PEERS:
            took[peer].append(count_with(setting, peer, capture))
    wrong = _compare(setting, traffic, contenders["agent"])
    cpu = {name: statistics.median(each.cpu for each in runs) for name, runs in took.items()}
    wall = {name: statistics.median(each.wall for each in runs) for name, runs in took.items()}
    for name in ("agent", "agent, ingress only", "softflowd", "nfpcapd"):
        yield Row(GROUP, f"{name}: processor time a packet", cpu[name] / packets * 1e9, "ns",
                  note=f"{cpu[name]:.2f} s, {wall[name]:.2f} s on the clock")
    for peer, most in PEERS:
        yield Row(GROUP, f"agent to {peer}, processor time", cpu["agent"] / cpu[peer], "", most=most)
        yield Row(GROUP, f"agent to {peer}, on the clock", wall["agent"] / wall[peer], "", most=most)
    for peer, count in wrong.items():
        yield Row(GROUP, f"flows of which agent and {peer} differ", count, f"of {flows}", most=0)
    for agent in contenders.values():
        agent.forget()


def count_with(setting, peer, capture):
    """What a peer takes to count a capture."""
    if peer == "softflowd":
        return setting.run(["softflowd", "-r", capture, "-v", "9", "-m", "10000000"])
    folder = setting.folder / "nfpcapd"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    return setting.run(["nfpcapd", "-r", capture, "-l", folder, "-t", "86400"])


def _truth(traffic):
    totals = {}
    for line in (traffic / "flows.tsv").read_text().splitlines():
        _, _, source, sport, destination, dport, protocol, packets, octets = line.split("\t")
        totals[_key(source, sport, destination, dport, protocol)] = (int(packets), int(octets))
    return totals


def _key(source, sport, destination, dport, protocol):
    """A flow without its VLAN, which the peers do not tell; addresses alone tell the generated flows apart."""
    return ipaddress.ip_address(source).packed, int(sport), ipaddress.ip_address(destination).packed, int(dport), int(protocol)


def _without_vlan(totals):
    return {(key.src, key.sport, key.dst, key.dport, key.proto): each for key, each in totals.items()}


def _compare(setting, traffic, agent):
    """Of how many flows each peer's totals are not the agent's; Failure when the agent's are not those of the generator."""
    truth = _truth(traffic)
    counted = {}
    for row in agent.sft("counters"):
        key = row["key"]
        packets, octets = row["packets"], row["bytes"]  # of both directions
        counted[_key(key["srcAddr"], key["srcPort"], key["dstAddr"], key["dstPort"], key["ipProto"])] = (packets / 2, octets / 2)
    differ = sum(truth[key] != counted.get(key) for key in truth)
    if differ or counted.keys() - truth.keys():
        raise Failure(f"the agent's counts are not those of the traffic: {differ} of {len(truth)} flows differ")
    heard = Nfcapd(setting.folder / "heard")
    try:
        heard.await_start()
        setting.run(["softflowd", "-r", traffic / "traffic.pcap", "-v", "9", "-m", "10000000", "-n", f"127.0.0.1:{heard.port}"])
        heard.finish()
    finally:
        heard.close()
    found = {"softflowd": _without_vlan(heard.totals()), "nfpcapd": _without_vlan(Written(setting.folder / "nfpcapd").totals())}
    return {peer: sum(counted[key] != totals.get(key) for key in counted) + len(totals.keys() - counted.keys())
            for peer, totals in found.items()}


class Written(NfdumpCollector):
    """A folder that is there already."""

    def __init__(self, folder):  # nothing is started
        self.folder = folder


def _by_size(setting, sizes, packets):
    """A packet's way through the loop, by the number of flows."""
    for flows in sizes:
        run = AgentRun(setting, f"size-{flows}", setting.traffic(flows, packets))
        run.want()
        yield Row(GROUP, f"loop's time a packet, {flows:,} flows", loop_time(run) / packets * 1e9, "ns")
        run.forget()


def loop_time(run):
    """Seconds that the agent's loop takes for the packets of a capture whose flows are wanted: its slices with packets."""
    agent = run.start()
    try:
        run.await_replay(agent)
        return _seconds(row for row in run.sft("metrics", "pexa_loop_slice_seconds") if row["labels"].get("work") == "packets")
    finally:
        agent.end(seconds=60)


def _seconds(rows):
    return sum(row["sum"] for row in rows)
