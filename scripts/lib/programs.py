"""Programs that run beside the one that started them, and waiting for what they do."""
import pathlib
import signal
import socket
import subprocess
import time

import interrupts


_started = []


class Failure(Exception):
    """Something did not work; the text says what."""


class Program:
    """A running program. What it says goes to `log`. Signals of the terminal do not reach it: whoever started it ends it."""

    def __init__(self, name, command, log, environment=None):
        self.name = name
        self.command = [str(part) for part in command]
        self.log = pathlib.Path(log)
        with self.log.open("ab") as output, interrupts.held():
            self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                            env=environment, start_new_session=True)
            _started.append(self)

    @property
    def pid(self):
        return self.process.pid

    def said(self):
        return self.log.read_text(errors="replace")

    def runs(self):
        return self.process.poll() is None

    def end(self, how=signal.SIGTERM, seconds=30):
        """Ends it, if it still runs; its status."""
        if self.runs():
            self.process.send_signal(how)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.close()
            raise Failure(f"{self.name} did not end within {seconds} seconds of {signal.Signals(how).name}") from None

    def close(self):
        """Makes sure that it is gone."""
        if self.runs():
            self.process.kill()
        self.process.wait()


def close_all():
    """Makes sure that all programs that were started are gone."""
    for program in _started:
        program.close()


def until(look, seconds, trouble, programs=()):
    """Looks until it sees something true, and gives it, with the seconds that it took. None of the programs may end meanwhile."""
    began = time.monotonic()
    while True:
        for program in programs:
            if not program.runs():
                raise Failure(f"{program.name} ended with status {program.process.returncode}")
        found = look()
        took = time.monotonic() - began
        if found:
            return found, took
        if took > seconds:
            raise Failure(f"after {seconds:.0f} seconds: {trouble}")
        time.sleep(0.03)


def free_udp_port(address="127.0.0.1"):
    """A port on which nobody listens, for programs that do not choose one themselves."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind((address, 0))
        return free.getsockname()[1]


def udp_bytes_waiting(program):
    """Bytes that have arrived on a program's port, `program.port`, and that it has not taken yet."""
    sockets = [line.split() for line in pathlib.Path(f"/proc/{program.pid}/net/udp").read_text().splitlines()[1:]]
    return sum(int(each[4].split(":")[1], 16) for each in sockets if each[1].endswith(f":{program.port:04X}"))
