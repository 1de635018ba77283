"""A message bus whose every byte a test decides: the broker's end of the daemon's connection."""
import socket
import struct

from kolt_node import Node, Process

import scene

HELLO, STATUS, DATA, INVOKE, ADD_OBJECT = 0, 1, 2, 5, 6
ATTR_STATUS, ATTR_OBJID, ATTR_METHOD, ATTR_DATA, ATTR_NO_REPLY = 1, 3, 4, 7, 10
ARRAY, TABLE, STRING, INT64, INT32, INT16, INT8, DOUBLE = range(1, 9)
OBJECT = 0xBBBF01E0  # the number that the broker gives the daemon's object


def attribute(id: int, payload: bytes, *, extended: bool = False, length: int | None = None) -> bytes:
    announced = 4 + len(payload) if length is None else length
    return struct.pack(">I", extended << 31 | id << 24 | announced) + payload + bytes(-len(payload) % 4)


def member(type: int, name: str, value: bytes, *, length: int | None = None) -> bytes:
    """A named attribute; its head is padded, its value follows."""
    head = struct.pack(">H", len(name)) + name.encode() + b"\0"
    return attribute(type, head + bytes(-len(head) % 4) + value, extended=True, length=length)


def text(name: str, value: str) -> bytes:
    return member(STRING, name, value.encode() + b"\0")


def number(name: str, value: int) -> bytes:
    return member(INT32, name, struct.pack(">I", value & 0xFFFFFFFF))


def message(type: int, seq: int, peer: int, body: bytes = b"", *, version: int = 0) -> bytes:
    return struct.pack(">BBHI", version, type, seq, peer) + attribute(0, body)


def event(name: str, members: bytes, *, object: int = OBJECT, seq: int = 1, silent: bool = False) -> bytes:
    body = attribute(ATTR_OBJID, struct.pack(">I", object)) + attribute(ATTR_METHOD, name.encode() + b"\0")
    body += attribute(ATTR_DATA, members)
    return message(INVOKE, seq, 0, body + (attribute(ATTR_NO_REPLY, b"\1") if silent else b""))


def status(seq: int, code: int, peer: int = 0) -> bytes:
    return message(STATUS, seq, peer, attribute(ATTR_STATUS, struct.pack(">I", code)))


class Bus:
    """Listens where the daemon looks for its broker. The path into the node leads through one of its processes."""

    def __init__(self, node: Node) -> None:
        self.node = node
        inside = node.spawn(["/bin/sleep", "1000"])
        self._path = f"/proc/{inside.pid}/root/run/ubus/ubus.sock"
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(self._path)
        self._listener.listen()
        self._listener.settimeout(10)
        self.connection: socket.socket | None = None
        self._callers: list[socket.socket] = []

    def fill_queue(self) -> None:
        """Lets no further connection in until some of these, which say nothing, were accepted."""
        self._listener.listen(0)
        while True:
            caller = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
            try:
                caller.connect(self._path)
            except BlockingIOError:
                caller.close()
                return
            self._callers.append(caller)

    def empty_queue(self) -> None:
        for caller in self._callers:
            self._listener.accept()[0].close()
            caller.close()
        self._callers.clear()

    def accept(self, *, greet: bool = True) -> None:
        self.connection, _ = self._listener.accept()
        self.connection.settimeout(10)
        if greet:
            self.send(message(HELLO, 0, 0xCB631148))

    def send(self, data: bytes) -> None:
        self.connection.sendall(data)

    def receive(self) -> bytes:
        """One whole message; empty when the daemon has closed the connection."""
        head = self._exactly(12)
        length = struct.unpack(">I", head[8:])[0] & 0xFFFFFF if head else 4
        return head + self._exactly(length - 4)

    def _exactly(self, length: int) -> bytes:
        data = b""
        while len(data) < length:
            try:
                part = self.connection.recv(length - len(data))
            except ConnectionResetError:
                part = b""
            if not part:
                return b""
            data += part
        return data

    def add_object(self) -> bytes:
        """Takes the request for an object and grants it."""
        asked = self.receive()
        seq = struct.unpack_from(">H", asked, 2)[0]
        self.send(message(DATA, seq, 0, attribute(ATTR_OBJID, struct.pack(">I", OBJECT))) + status(seq, 0))
        return asked

    def register(self, code: int = 0) -> bytes:
        """Takes the request for events and answers it."""
        asked = self.receive()
        self.send(status(struct.unpack_from(">H", asked, 2)[0], code, 1))
        return asked

    def drop(self) -> None:
        self.connection.close()

    def close(self) -> None:
        self._listener.close()
        if self.connection is not None:
            self.connection.close()

    def start_daemon(self, configuration: dict | None = None, *, level: int = 1) -> Process:
        """Starts the daemon and leads it through its registration."""
        daemon = self.node.start_daemon(configuration or scene.config(), ready=False)
        self.accept()
        self.add_object()
        self.register()
        self.node.wait_idle()
        if level != 1:
            self.deliver("kolt.debug", number("dbg_level", level))
        return daemon

    def deliver(self, name: str, members: bytes, **how: int) -> bytes:
        """Sends an event and returns the daemon's answer, by which it has handled the event."""
        self.send(event(name, members, **how))
        return self.receive()
