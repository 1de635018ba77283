#!/usr/bin/python3
"""
Sends an event over the message bus and prints the monotonic clock, in nanoseconds, right before the (first) sending:

  bus_send.py SOCKET NAME JSON [COUNT]

A program of its own because it has to run inside the node, and in Python because a sender that is started for each
event would be measured with it. Each sending is acknowledged by the broker before the next.
"""
import json
import socket
import struct
import sys
import time

STATUS, INVOKE = 1, 5
OBJECT_ID, METHOD, DATA = 3, 4, 7
TABLE, STRING, INT32 = 2, 3, 5
EVENT_OBJECT = 1


def attribute(kind: int, payload: bytes) -> bytes:
    """A number and a length, big-endian; the padding is not counted."""
    return struct.pack(">BBH", kind, 0, 4 + len(payload)) + payload + bytes(-len(payload) % 4)


def member(name: str, value: object) -> bytes:
    """A named value: an integer, a string or an object of these."""
    head = struct.pack(">H", len(name)) + name.encode() + b"\0"
    head += bytes(-len(head) % 4)
    if isinstance(value, dict):
        return attribute(0x80 | TABLE, head + members(value))
    if isinstance(value, int):
        return attribute(0x80 | INT32, head + struct.pack(">I", value))
    return attribute(0x80 | STRING, head + str(value).encode() + b"\0")


def members(values: dict[str, object]) -> bytes:
    return b"".join(member(name, value) for name, value in values.items())


def request(sequence: int, name: str, attributes: dict[str, object]) -> bytes:
    content = attribute(OBJECT_ID, struct.pack(">I", EVENT_OBJECT)) + attribute(METHOD, b"send\0")
    content += attribute(DATA, members({"id": name, "data": attributes}))
    return struct.pack(">BBHI", 0, INVOKE, sequence, EVENT_OBJECT) + attribute(0, content)


def receive(bus: socket.socket) -> tuple[int, bytes]:
    """One message: its type and its content."""
    head = bus.recv(12, socket.MSG_WAITALL)
    if len(head) < 12:
        raise ConnectionError("the broker went away")
    length = struct.unpack_from(">I", head, 8)[0] & 0xFFFFFF
    return head[1], bus.recv(length - 4, socket.MSG_WAITALL) if length > 4 else b""


def send(bus: socket.socket, sequence: int, name: str, attributes: dict[str, object]) -> None:
    bus.sendall(request(sequence, name, attributes))
    kind, content = receive(bus)
    while kind != STATUS:
        kind, content = receive(bus)
    status = struct.unpack_from(">I", content, 4)[0]
    if status != 0:
        raise ConnectionError(f"the broker refused the event with status {status}")


def main() -> None:
    path, name, text, *count = sys.argv[1:]
    attributes = json.loads(text)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as bus:
        bus.settimeout(10)
        bus.connect(path)
        receive(bus)  # the greeting
        begin = time.monotonic_ns()
        for number in range(int(count[0]) if count else 1):
            send(bus, number % 65535 + 1, name, attributes)
    print(begin)


if __name__ == "__main__":
    main()
