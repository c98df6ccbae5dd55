"""A running flow-tracker: its configuration, and what its control socket answers."""
import json
import re
import socket

from programs import Failure, Program, until

SOCKET = "flow-tracker.sock"


def configuration(run_dir, interfaces, collectors=(), samples_to_learn=2, idle_timeout=600, most=8192, listen="127.0.0.1:0"):
    """The text of a configuration file; interface indexes count from 1, as the agent's do."""
    quote = json.dumps  # a JSON string is a TOML string
    lines = [f"listen = {quote(listen)}", f"run_dir = {quote(str(run_dir))}", f"samples_to_learn = {samples_to_learn}",
             f"idle_timeout = {idle_timeout}", f"max_flows = {most}", f"max_candidates = {most}"]
    for index, name in enumerate(interfaces, 1):
        lines += ["[[interface]]", f"index = {index}", f"name = {quote(name)}"]
    for address in collectors:
        lines += ["[[collector]]", f"address = {quote(address)}"]
    lines += ["[ipfix]", f"active_timeout = {idle_timeout}"]
    return "\n".join(lines) + "\n"


class Tracker(Program):
    def __init__(self, command, run_dir, log):
        super().__init__("flow-tracker", command, log)
        self.socket = run_dir / SOCKET

    def await_ready(self, seconds=30):
        """The port on which it listens."""
        found, _ = until(lambda: re.findall(r": ready: listening on \S+:(\d+)", self.said()), seconds,
                         "flow-tracker is not ready", [self])
        return int(found[-1])

    def ask(self, request):
        """The rows of an answer."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
            control.settimeout(30)
            try:
                control.connect(str(self.socket))
                control.sendall(json.dumps({"request": request}).encode() + b"\n")
                rows = []
                for line in control.makefile():
                    answer = json.loads(line)
                    if "row" not in answer:
                        return rows
                    rows.append(answer["row"])
            except (OSError, ValueError) as error:  # also half a line, of one that ended meanwhile
                raise Failure(f"flow-tracker does not answer \"{request}\": {error}") from error
        raise Failure(f"flow-tracker hung up while it answered \"{request}\"")

    def statistics(self):
        return self.ask("statistics")[0]
