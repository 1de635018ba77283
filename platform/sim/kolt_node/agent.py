"""The process that lives inside a node's namespaces and does there what the controlling side asks for.

Run as `agent.py FD KEEP...` in fresh mount and network namespaces; FD is a stream socket that carries one JSON object a
line. Requests have an "id" and an "op" and are answered in order; the rest is news: log datagrams, output and exits of
processes, requests to the node's kernel. When the socket closes, every process started here is killed.
"""
import json
import os
import select
import shutil
import signal
import socket
import sys
import time
from collections.abc import Callable

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import links  # noqa: E402
import mounts  # noqa: E402
from children import Children  # noqa: E402
from kernel import Kernel  # noqa: E402

CLOCK_ADDRESS = "\0kolt-node.clock"


class Agent:
    def __init__(self, control: socket.socket) -> None:
        self._control = control
        self._poll = select.poll()
        self._handlers: dict[int, Callable[[], None]] = {}
        self._unsent = bytearray()
        self._unread = bytearray()
        self._links = links.Links()
        self._links.set_up("lo", True)
        self._log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._log.bind("/dev/log")
        os.chmod("/dev/log", 0o666)
        self._kernel = Kernel(self.send)
        self._children = Children(self.send, self.watch, self.forget)
        self.watch(self._control.fileno(), self._read_control)
        self.watch(self._log.fileno(), self._read_log)
        self.watch(self._kernel.fileno(), self._kernel.answer)
        self._control.setblocking(False)
        self._log.setblocking(False)

    def watch(self, fd: int, handler: Callable[[], None]) -> None:
        self._handlers[fd] = handler
        self._poll.register(fd, select.POLLIN)

    def forget(self, fd: int) -> None:
        self._poll.unregister(fd)
        del self._handlers[fd]

    def send(self, message: dict) -> None:
        """Queues a line: the controlling side reads when it likes, and must not hold up the node."""
        self._unsent += json.dumps(message).encode() + b"\n"
        self._flush()

    def _flush(self) -> None:
        try:
            sent = self._control.send(self._unsent)
            del self._unsent[:sent]
        except BlockingIOError:
            pass
        events = select.POLLIN | (select.POLLOUT if self._unsent else 0)
        self._poll.modify(self._control.fileno(), events)

    def run(self) -> None:
        try:
            while True:
                for fd, events in self._poll.poll():
                    if fd == self._control.fileno() and events & select.POLLOUT:
                        self._flush()
                    if events & ~select.POLLOUT and fd in self._handlers:
                        self._handlers[fd]()
        except (EOFError, BrokenPipeError, ConnectionResetError):
            pass
        finally:
            self._children.kill_all()

    def _read_control(self) -> None:
        data = self._control.recv(1 << 20)
        if not data:
            raise EOFError
        self._unread += data
        *lines, rest = self._unread.split(b"\n")
        self._unread = bytearray(rest)
        for line in lines:
            self._handle(json.loads(line))

    def _read_log(self) -> None:
        try:
            while True:
                record = self._log.recv(65536)
                self.send({"news": "log", "time": time.monotonic_ns(), "text": record.decode("latin-1")})
        except BlockingIOError:
            pass

    def _handle(self, request: dict) -> None:
        number, operation = request.pop("id"), request.pop("op")
        try:
            value = getattr(self, "_do_" + operation)(**request)
            self.send({"id": number, "value": value})
        except OSError as error:
            self.send({"id": number, "error": told(error), "errno": error.errno})
        except Exception as error:  # a mistake of the caller must not end the node
            self.send({"id": number, "error": repr(error), "errno": None})

    def _do_write(self, path: str, data: str) -> None:
        check_private(path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        temporary = path + ".new"
        with open(temporary, "wb") as file:
            file.write(bytes.fromhex(data))
        os.rename(temporary, path)

    def _do_remove(self, path: str) -> None:
        check_private(path)
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        elif os.path.lexists(path):
            os.unlink(path)

    def _do_read(self, path: str) -> str:
        with open(path, "rb") as file:
            return file.read().hex()

    def _do_list(self, path: str) -> list[str]:
        return sorted(os.listdir(path))

    def _do_spawn(self, **what: object) -> int:
        return self._children.spawn(**what)

    def _do_signal(self, pid: int, number: int) -> None:
        self._children.signal(pid, number)

    def _do_accepts(self, path: str, kind: int = socket.SOCK_STREAM) -> bool:
        with socket.socket(socket.AF_UNIX, kind) as client:
            return client.connect_ex(path) == 0

    def _do_add_link(self, name: str, kind: str, index: int, mac: str, up: bool) -> int:
        return self._links.add(name, kind, index, mac, up)

    def _do_remove_link(self, name: str) -> None:
        self._links.remove(name)

    def _do_index_of_link(self, name: str) -> int:
        return socket.if_nametoindex(name)

    def _do_set_link(self, name: str, up: bool) -> None:
        self._links.set_up(name, up)

    def _do_send(self, protocol: int, port: int, data: str, count: int) -> int:
        return self._kernel.send(protocol, port, bytes.fromhex(data), count)

    def _do_answer(self, reply: str | None) -> None:
        self._kernel.reply = bytes.fromhex(reply) if reply is not None else None

    def _do_answer_normally(self) -> None:
        self._kernel.reply = Kernel.ACKNOWLEDGE


def told(error: OSError) -> str:
    """An error without its number, which goes beside it."""
    text = error.strerror or str(error)
    return f"{error.filename}: {text}" if error.filename else text


def check_private(path: str) -> None:
    """Refuses a path that would reach the machine's own files."""
    parent = os.path.realpath(os.path.dirname(path))
    inside = (parent + "/").startswith(tuple(root + "/" for root in mounts.PRIVATE_ROOTS))
    if not inside or parent.startswith(mounts.STAGE):
        raise PermissionError(1, f"{path} is not private to the node")


def set_sysctl(name: str, value: str) -> None:
    """Best effort: in a user namespace some of these belong to the machine."""
    try:
        with open("/proc/sys/" + name, "w") as file:
            file.write(value)
    except OSError:
        pass


def introduce(control: socket.socket) -> None:
    """
    Says that the node stands, and hands over what then costs the agent nothing: the journal, the root directory for
    writing files in bulk, and the socket where a daemon asks for simulated time.
    """
    journal = os.open(mounts.NODE_DIR + "/journal", os.O_RDONLY | os.O_CREAT, 0o644)
    root = os.open("/", os.O_PATH | os.O_DIRECTORY)
    hello = json.dumps({"news": "ready", "pid": os.getpid()}).encode() + b"\n"
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as clock:
        clock.bind(CLOCK_ADDRESS)
        clock.listen()
        socket.send_fds(control, [hello], [journal, root, clock.fileno()])
    os.close(root)
    os.close(journal)


def main() -> None:
    control = socket.socket(fileno=int(sys.argv[1]))
    control.set_inheritable(False)
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # a person's Ctrl-C is for the controlling side
    try:
        set_sysctl("net/unix/max_dgram_qlen", "4096")
        set_sysctl("net/ipv6/conf/default/disable_ipv6", "1")
        set_sysctl("net/ipv6/conf/all/disable_ipv6", "1")
        mounts.build(sys.argv[2:])
        agent = Agent(control)
    except OSError as error:
        control.sendall(json.dumps({"news": "unable", "text": told(error)}).encode() + b"\n")
        sys.exit(1)
    introduce(control)
    agent.run()


if __name__ == "__main__":
    main()
