"""Signals that ask a script to end, as an exception, so that everything it started is ended and removed on the way out."""
import contextlib
import signal

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
_holding = 0
_held = None


class Interrupted(BaseException):
    """A signal that asks to end."""

    def __init__(self, number):
        super().__init__(signal.Signals(number).name)
        self.number = number


def _arrived(number, _frame):
    global _held
    if _holding:
        _held = number
    else:
        raise Interrupted(number)


def handle_with(handler):
    for number in SIGNALS:
        signal.signal(number, handler)


def raise_interrupted():
    """From now on the signals raise Interrupted, on the main thread."""
    handle_with(_arrived)


def ignore():
    """From now on the signals change nothing."""
    handle_with(signal.SIG_IGN)


@contextlib.contextmanager
def held():
    """What is done within is done whole: a signal that arrives meanwhile raises Interrupted behind it."""
    global _holding, _held
    _holding += 1
    try:
        yield
    finally:
        _holding -= 1
    if not _holding and _held is not None:
        number, _held = _held, None
        raise Interrupted(number)
