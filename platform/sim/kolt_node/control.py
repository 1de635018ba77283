"""The controlling side of a node: starts its agent, talks with it, and collects the news that it sends."""
import json
import os
import re
import select
import socket
import subprocess
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, NamedTuple, Self

AGENT = Path(__file__).resolve().parent / "agent.py"
ROOT = AGENT.parents[3]
PYTHON = "/usr/bin/python3"
START_TIMEOUT = 15.0
POLL_SECONDS = 0.002  # how often a wait looks at what does not announce itself

_RECORD = re.compile(r"<(\d+)>(?:\w{3} [ \d]\d \d\d:\d\d:\d\d )?(.*)", re.DOTALL)
_LINE = re.compile(r"(.*?): ([A-Za-z_]\w*):(\d+): (.*)", re.DOTALL)
_LEVEL = re.compile(r"(Fatal|Error|Info|Debug|Dump)(?:\((.*?)\))?: (.*)", re.DOTALL)


class NodeError(Exception):
    """Something about the node went wrong; the text says what."""


@dataclass
class LogRecord:
    """One message to syslog. `error` is the system's error text that a fatal message carries after its level."""
    time: int
    priority: int
    facility: int
    ident: str
    function: str
    line: int
    level: str
    error: str
    text: str
    raw: str


@dataclass
class Process:
    """A process inside the node. `status` is None while it runs and -N when signal N ended it."""
    pid: int
    argv: list[str]
    status: int | None = None
    cpu: float = 0.0
    output: dict[str, bytearray] = field(default_factory=lambda: {"stdout": bytearray(), "stderr": bytearray()})

    @property
    def stdout(self) -> str:
        return self.output["stdout"].decode("utf-8", "replace")

    @property
    def stderr(self) -> str:
        return self.output["stderr"].decode("utf-8", "replace")


class Mark(NamedTuple):
    """A moment: how much of each record had been seen."""
    journal: int
    log: int
    requests: int


def parse_log(text: str, when: int) -> LogRecord:
    head = _RECORD.match(text)
    code, rest = (int(head[1]), head[2]) if head else (0, text)
    line = _LINE.match(rest)
    ident, function, number, body = (line[1], line[2], int(line[3]), line[4]) if line else ("", "", 0, rest)
    level = _LEVEL.match(body)
    word, error, message = (level[1], level[2] or "", level[3]) if level else ("", "", body)
    return LogRecord(when, code & 7, code >> 3, ident, function, number, word, error, message, text)


class Control:
    """A running agent in namespaces of its own. Everything that waits has a timeout."""

    agent = AGENT  # the program that runs inside

    def __init__(self, keep: tuple[str | Path, ...] = ()) -> None:
        self._keep = [str(ROOT), *(str(path) for path in keep)]
        self._socket: socket.socket | None = None
        self._agent: subprocess.Popen | None = None
        self._unread = bytearray()
        self._answers: dict[int, dict] = {}
        self._next_id = 0
        self._ready: dict | None = None
        self._journal_fd = -1
        self.root_fd = -1
        self.clock_listener: socket.socket | None = None
        self._journal_rest = b""
        self._journal: list[dict] = []
        self._log: list[LogRecord] = []
        self.requests: list[bytes] = []
        self.processes: dict[int, Process] = {}

    def __enter__(self) -> Self:
        if self._socket is None:
            self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def start(self) -> Self:
        reasons = [reason for way in self.ways() if (reason := self._try_start(way))]
        if self._ready is None:
            raise NodeError(f"this machine does not allow the namespaces that a simulated node needs: {reasons[-1]}; "
                            "run it as root, in a container as a privileged one")
        return self

    def ways(self) -> list[list[str]]:
        """The commands, best first, that make the namespaces and become what is written behind them."""
        with_root = [["unshare", "-mn"]] if os.geteuid() == 0 else []
        return [*with_root, ["unshare", "-Urmn"]]

    def _try_start(self, way: list[str]) -> str:
        """Starts the agent in one way; returns why it could not, or nothing."""
        if self._ready is not None:
            return ""
        ours, theirs = socket.socketpair()
        command = [*way, PYTHON, "-I", "-S", str(self.agent), str(theirs.fileno()), *self._keep]
        try:
            self._agent = subprocess.Popen(command, pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL,
                                           stderr=subprocess.PIPE)
        except OSError as error:
            return f"{error.filename}: {error.strerror}"
        finally:
            theirs.close()
        self._socket = ours
        deadline = time.monotonic() + START_TIMEOUT
        try:
            while self._ready is None:
                self._pump(max(0.0, deadline - time.monotonic()))
                if time.monotonic() > deadline:
                    raise NodeError(f"the agent did not answer within {START_TIMEOUT} s")
        except NodeError as error:
            stderr = self.close()
            return stderr.strip().replace("\n", "; ") or str(error)
        return ""

    def close(self) -> str:
        """Ends the node with every process in it; returns what the agent wrote on its standard error."""
        if self._socket is None or self._agent is None:
            return ""
        self._socket.close()
        self._socket = None
        try:
            _, errors = self._agent.communicate(timeout=10)
        except subprocess.TimeoutExpired:
            self._agent.kill()
            _, errors = self._agent.communicate()
        if self._journal_fd >= 0:
            self._read_journal()
            self._close_descriptors()
        return errors.decode("utf-8", "replace")

    def call(self, operation: str, timeout: float = 10.0, **arguments: object) -> Any:
        """Has the agent do something and returns its result; OSError where the system refused."""
        if self._socket is None:
            raise NodeError("the node is not running")
        self._next_id += 1
        number = self._next_id
        try:
            self._socket.sendall(json.dumps({"id": number, "op": operation, **arguments}).encode() + b"\n")
        except (BrokenPipeError, ConnectionResetError):
            raise NodeError("the node's agent has ended") from None
        deadline = time.monotonic() + timeout
        while number not in self._answers:
            if time.monotonic() > deadline:
                raise NodeError(f"the agent did not answer '{operation}' within {timeout} s")
            self._pump(max(0.0, deadline - time.monotonic()))
        answer = self._answers.pop(number)
        if "error" not in answer:
            return answer["value"]
        if answer["errno"] is not None:
            raise OSError(answer["errno"], answer["error"])
        raise NodeError(answer["error"])

    def wait_for(self, predicate: Callable[[], Any], timeout: float = 5.0, what: str = "") -> Any:
        """Waits until `predicate()` gives something true and returns that. It may look at anything of the node."""
        deadline = time.monotonic() + timeout
        while True:
            self._pump(0)
            if value := predicate():
                return value
            if time.monotonic() > deadline:
                raise NodeError(f"waited {timeout} s in vain for {what or predicate}\n{self.recent()}")
            self._pump(POLL_SECONDS)

    def recent(self, count: int = 15) -> str:
        """The last log messages, for error texts."""
        return "\n".join(record.raw for record in self._log[-count:])

    def wait_readable(self, other: socket.socket, timeout: float) -> bool:
        """Waits up to `timeout` seconds for the node's news, which are taken in, or for another socket: is it ready?"""
        if self._socket is None:
            raise NodeError("the node is not running")
        poll = select.poll()
        poll.register(self._socket, select.POLLIN)
        poll.register(other, select.POLLIN)
        ready = [fd for fd, _ in poll.poll(timeout * 1000)]
        if self._socket.fileno() in ready:
            self._pump(0)
        return other.fileno() in ready

    def _pump(self, timeout: float) -> None:
        """Takes in what the agent has sent, waiting up to `timeout` seconds for the first of it."""
        if self._socket is None:
            return
        while select.select([self._socket], [], [], timeout)[0]:
            data, fds, _, _ = socket.recv_fds(self._socket, 1 << 20, 3, socket.MSG_CMSG_CLOEXEC)
            if fds:
                self._adopt(fds)
            if not data:
                raise NodeError("the node's agent has ended")
            self._unread += data
            *lines, rest = self._unread.split(b"\n")
            self._unread = bytearray(rest)
            for line in lines:
                self._take(json.loads(line))
            timeout = 0

    def _adopt(self, fds: list[int]) -> None:
        """
        Takes what the agent hands over: its journal, its "/" and the socket that a daemon asks for simulated time.
        `root_fd` serves as dir_fd for relative paths below tmp, run, etc/config and proc; mind that a link on the way
        which starts with a slash leads out of the node.
        """
        self._journal_fd, self.root_fd, clock = fds
        self.clock_listener = socket.socket(fileno=clock)

    def _close_descriptors(self) -> None:
        os.close(self._journal_fd)
        os.close(self.root_fd)
        self._journal_fd = self.root_fd = -1
        if self.clock_listener is not None:
            self.clock_listener.close()
        self.clock_listener = None

    def _take(self, message: dict) -> None:
        match message.get("news"):
            case None:
                self._answers[message["id"]] = message
            case "log":
                self._log.append(parse_log(message["text"], message["time"]))
            case "start":
                self.processes[message["pid"]] = Process(message["pid"], message["argv"])
            case "output":
                self.processes[message["pid"]].output[message["stream"]] += bytes.fromhex(message["data"])
            case "exit":
                process = self.processes[message["pid"]]
                process.status, process.cpu = message["status"], message["cpu"]
            case "request":
                self.requests.append(bytes.fromhex(message["data"]))
            case "ready":
                self._ready = message
            case "unable":
                raise NodeError(message["text"])

    def _read_journal(self) -> None:
        while data := os.read(self._journal_fd, 1 << 20):
            *lines, self._journal_rest = (self._journal_rest + data).split(b"\n")
            self._journal += [json.loads(line) for line in lines]
