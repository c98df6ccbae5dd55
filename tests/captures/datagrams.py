#!/usr/bin/env python3
"""UDP talkers for the recording.

    datagrams.py send HOST PORT COUNT BYTES     sends and waits for each datagram's acknowledgement
    datagrams.py receive HOST PORT COUNT        acknowledges each datagram with its length
    datagrams.py refused HOST PORT COUNT        sends to a port where nobody listens
"""
import socket
import sys
import time


def udp(host):
    sock = socket.socket(socket.AF_INET6 if ":" in host else socket.AF_INET, socket.SOCK_DGRAM)
    sock.settimeout(5)
    return sock


def send(host, port, count, size):
    sock = udp(host)
    for number in range(count):
        payload = (b"datagram %d " % number * size)[:size]
        for _ in range(50):  # the receiver may not be there yet
            sock.sendto(payload, (host, port))
            try:
                sock.settimeout(0.5)
                answer = sock.recv(64)
                break
            except (socket.timeout, ConnectionRefusedError):
                time.sleep(0.05)
        else:
            sys.exit(f"no answer from {host} port {port}")
        if int(answer) != size:
            sys.exit(f"{size} bytes sent, {int(answer)} arrived")


def receive(host, port, count):
    sock = udp(host)
    sock.bind((host, port))
    for _ in range(count):
        payload, sender = sock.recvfrom(65535)
        sock.sendto(b"%d" % len(payload), sender)


def refused(host, port, count):
    sock = udp(host)
    for _ in range(count):
        sock.sendto(b"anybody there?", (host, port))
        time.sleep(0.05)


if __name__ == "__main__":
    action, host, *numbers = sys.argv[1:]
    {"send": send, "receive": receive, "refused": refused}[action](host, *map(int, numbers))
