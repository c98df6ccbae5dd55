"""What a running agent says of the packets that passed, and how that is shown."""
import flows


class Outcome:
    """As of now."""

    def __init__(self, bench, ports):
        self.ports = ports
        self.reasons = bench.sft("reasons")
        self.samples = bench.sft("samples")
        self.local = bench.counts("local")

    def reason(self, category, reason):
        return sum(row["count"] for row in self.reasons if (row["category"], row["reason"]) == (category, reason))

    def sampler(self, port, direction):
        for row in self.samples:
            if (row["intfId"], row["direction"]) == (port, direction):
                return row
        return {"rate": 0, "pool": 0, "samples": 0, "drops": 0}

    def sampled(self):
        """Samples taken, on all interfaces."""
        return sum(row["samples"] for row in self.samples)

    def in_hardware(self):
        """Packets counted."""
        return sum(packets for packets, _ in self.local.values())


def show_packets(page, outcome, entry, leave):
    """From the port of this name to that one."""
    entered = outcome.ports[entry]["packetsIn"]
    ingress = outcome.sampler(entry, "ingress")
    page.row(f"entered on {entry}", f"{entered:,}", f"{outcome.ports[entry]['bytesIn']:,} bytes")
    page.share("in hardware: counted, not sampled", outcome.in_hardware(), entered)
    page.share(f"sampled, one in {ingress['rate']}", ingress["samples"], entered)
    page.share("left to sampling, not drawn", ingress["pool"] - ingress["samples"], entered)
    page.row(f"left on {leave}", f"{outcome.ports[leave]['packetsOut']:,}", f"{outcome.ports[leave]['bytesOut']:,} bytes")


def show_reasons(outcome):
    for row in sorted(outcome.reasons, key=lambda row: (row["category"], -row["count"], row["reason"])):
        print(f"  {row['category']:<8}{row['source']:<6}{row['reason'].strip():<36}{row['count']:>10,}")


def show_flows(page, columns, counts, top):
    """`counts` holds, for each flow, (packets, octets) a column; the first column ranks."""
    ranked = sorted(counts.items(), key=lambda item: (tuple(-each for each in item[1][0]), item[0]))
    line = "  " + "".join("{:>28}" for _ in columns) + "  {}"
    more = f" (the first {top} of {len(ranked):,})" if len(ranked) > top else ""
    print(page.paint("2", line.format(*(f"{each}: packets, octets" for each in columns), "flow" + more)))
    for key, told in ranked[:top]:
        print(line.format(*(f"{packets:,} {octets:>9,}" for packets, octets in told), flows.text(key)))
    sums = [f"{sum(told[at][0] for told in counts.values()):,} {sum(told[at][1] for told in counts.values()):>9,}" for at in range(len(columns))]
    print(page.paint("1", line.format(*sums, f"all {len(ranked):,}")))
