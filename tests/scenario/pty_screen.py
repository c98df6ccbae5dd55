"""A program in a pseudo terminal, and the screen that it draws there.

The screen understands what curses sends to an xterm: cursor movements, erasing, inserting, deleting, scrolling, repeating. Colours and other
attributes are passed over. Nothing here sleeps: `wait` reads until the screen is as asked for.
"""
import codecs
import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import termios
import time

CONTROL = re.compile(r"\x1b\[([?>]?)([0-9;]*)([@-~])|\x1b\][^\x07]*\x07|\x1b[()][0-9A-B]|\x1b[=>78M]|\x1b(?=[^\[\]()])|[\x00-\x1a]")
UNFINISHED = re.compile(r"\x1b(\[[?>]?[0-9;]*|\][^\x07]*|[()])?$")


class Screen:
    """What a terminal of this size shows."""

    def __init__(self, rows, columns):
        self.row = self.column = 0
        self.last = " "
        self.pending = ""
        self.cells = []
        self.resize(rows, columns)

    def resize(self, rows, columns):
        old = self.cells
        self.rows, self.columns = rows, columns
        self.top, self.bottom = 0, rows - 1  # the region that scrolls
        self.cells = [([*old[row], *" " * columns][:columns] if row < len(old) else [" "] * columns) for row in range(rows)]
        self.row, self.column = min(self.row, rows - 1), min(self.column, columns - 1)

    def lines(self):
        return ["".join(each).rstrip() for each in self.cells]

    def feed(self, text):
        text = self.pending + text
        held = UNFINISHED.search(text)
        self.pending = text[held.start():] if held else ""
        text = text[: len(text) - len(self.pending)]
        at = 0
        while at < len(text):
            found = CONTROL.match(text, at)
            if found is None:
                self.put(text[at])
                at += 1
                continue
            at = found.end() if found.end() > at else at + 1
            if found[3]:
                if not found[1]:
                    self.sequence(found[3], [int(each or 0) for each in found[2].split(";")])
            elif found[0] == "\x1bM":
                self.move(-1)
            else:
                self.control(found[0])

    def put(self, character):
        if self.column >= self.columns:
            self.column = 0
            self.move(1)
        self.cells[self.row][self.column] = self.last = character
        self.column += 1

    def move(self, step):
        """A row down or up, scrolling at the end of the region."""
        if step == 1 and self.row == self.bottom:
            self.cells.insert(self.bottom + 1, [" "] * self.columns)
            del self.cells[self.top]
        elif step == -1 and self.row == self.top:
            del self.cells[self.bottom]
            self.cells.insert(self.top, [" "] * self.columns)
        else:
            self.row = min(max(self.row + step, 0), self.rows - 1)

    def control(self, character):
        if character == "\r":
            self.column = 0
        elif character == "\n":
            self.move(1)
        elif character == "\b":
            self.column = max(self.column - 1, 0)
        elif character == "\t":
            self.column = min(self.column // 8 * 8 + 8, self.columns - 1)

    def sequence(self, final, numbers):
        first = max(numbers[0], 1)
        line = self.cells[self.row]
        blank = [" "] * first
        if final in "Hf":
            self.row = min(first, self.rows) - 1
            self.column = min(max(numbers[1], 1) if len(numbers) > 1 else 1, self.columns) - 1
        elif final in "ABCDGd":
            self.row = {"A": self.row - first, "B": self.row + first, "d": first - 1}.get(final, self.row)
            self.column = {"C": self.column + first, "D": self.column - first, "G": first - 1}.get(final, self.column)
            self.row = min(max(self.row, 0), self.rows - 1)
            self.column = min(max(self.column, 0), self.columns - 1)
        elif final in "JK":
            self.erase(final, numbers[0])
        elif final == "X":
            line[self.column:self.column + first] = blank[: self.columns - self.column]
        elif final == "P":
            line[self.column:] = (line[self.column + first:] + blank)[: self.columns - self.column]
        elif final == "@":
            line[self.column:] = (blank + line[self.column:])[: self.columns - self.column]
        elif final == "b":
            for _ in range(first):
                self.put(self.last)
        elif final == "r":
            self.top = first - 1
            self.bottom = min(numbers[1] if len(numbers) > 1 and numbers[1] else self.rows, self.rows) - 1
            self.row = self.column = 0
        elif final in "LM":
            for _ in range(first):
                del self.cells[self.bottom if final == "L" else self.row]
                self.cells.insert(self.row if final == "L" else self.bottom, [" "] * self.columns)
        elif final in "ST":
            row, self.row = self.row, self.bottom if final == "S" else self.top
            for _ in range(first):
                self.move(1 if final == "S" else -1)
            self.row = row
        elif final not in "mhlt":
            raise AssertionError(f"the screen does not know the sequence {numbers} {final}")

    def erase(self, final, how):
        line = self.cells[self.row]
        if how == 0:
            line[self.column:] = [" "] * (self.columns - self.column)
        elif how == 1:
            line[: self.column + 1] = [" "] * (self.column + 1)
        else:
            line[:] = [" "] * self.columns
        if final == "J":
            rows = {0: range(self.row + 1, self.rows), 1: range(self.row)}.get(how, range(self.rows))
            for row in rows:
                self.cells[row] = [" "] * self.columns


class Terminal:
    """A program that runs in a terminal of its own."""

    def __init__(self, command, rows=24, columns=80, patience=120, environment=None):
        self.patience = patience
        self.screen = Screen(rows, columns)
        self.decoder = codecs.getincrementaldecoder("utf-8")()
        self.sent = ""  # all that the program wrote
        self.master, self.slave = pty.openpty()
        self.size(rows, columns)
        self.before = termios.tcgetattr(self.slave)
        variables = {**os.environ, "TERM": "xterm", "LC_ALL": "C.UTF-8", **(environment or {})}
        for name in ("LINES", "COLUMNS", "NO_COLOR"):
            if name not in (environment or {}):
                variables.pop(name, None)
        self.process = subprocess.Popen([str(each) for each in command], stdin=self.slave, stdout=self.slave, stderr=self.slave,
                                        env=variables, start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))

    def size(self, rows, columns):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def resize(self, rows, columns):
        self.screen.resize(rows, columns)
        self.size(rows, columns)

    def type(self, keys):
        os.write(self.master, keys.encode())

    def read(self, seconds):
        """Takes what comes within a time; whether anything did."""
        ready, _, _ = select.select([self.master], [], [], seconds)
        if not ready:
            return False
        text = self.decoder.decode(os.read(self.master, 65536))
        self.sent += text
        self.screen.feed(text)
        return True

    def wait(self, seen, again=None):
        """Reads until `seen(lines)`, and gives the lines. `again` is called whenever nothing has come for a while."""
        deadline = time.monotonic() + self.patience
        while not seen(self.screen.lines()):
            if time.monotonic() > deadline or self.process.poll() is not None:
                raise AssertionError("the screen is not as expected:\n" + "\n".join(self.screen.lines()))
            if not self.read(0.2) and again:
                again()
        return self.screen.lines()

    def wait_for(self, *texts, without=(), again=None):
        """Waits until each of the texts is somewhere on the screen, and none of those that should not be."""
        def seen(lines):
            shown = "\n".join(lines)
            return all(text in shown for text in texts) and not any(text in shown for text in without)
        return self.wait(seen, again)

    def wait_end(self):
        """The program's status, once it has left by itself."""
        deadline = time.monotonic() + self.patience
        while self.process.poll() is None and time.monotonic() < deadline:
            self.read(0.1)
        while self.read(0):
            pass
        return self.process.wait(1)

    def attributes(self):
        """The terminal's modes now; `before` has those that the program found."""
        return termios.tcgetattr(self.slave)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self.master)
        os.close(self.slave)
