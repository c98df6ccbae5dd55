"""A capture at an even pace, for what receives what becomes of it: bursts would overrun the buffers of sockets."""
import struct

import flows

PACE = 50e-6  # seconds between packets at least


def write_evenly(capture, path, least):
    """Copies a capture of Ethernet frames so that replayed at recorded pace it takes `least` seconds, or as many more as the
    pace needs; gives the seconds. What stands before damage is copied."""
    frames = []
    try:
        for _, frame in flows.frames(capture):
            frames.append(frame)
    except flows.CaptureError:
        pass
    seconds = max(least, PACE * len(frames))
    with open(path, "wb") as output:
        output.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, flows.ETHERNET))
        for number, frame in enumerate(frames):
            whole, part = divmod(number * seconds / len(frames), 1)
            output.write(struct.pack("<IIII", int(whole), int(part * 1e6), len(frame), len(frame)) + frame)
    return seconds
