"""A simulated node as tests, benchmarks and the demonstration use it."""
import contextlib
import json
import os
import signal as signals
import time
from collections.abc import Iterable
from pathlib import Path
from typing import TYPE_CHECKING

from .control import POLL_SECONDS, ROOT, LogRecord, Mark, NodeError, Process
from .messages import link_message, nlmsghdr
from .state import NODE_DIR, State

if TYPE_CHECKING:
    from .clock import SimulatedClock

BROKER_SOCKET = "/var/run/ubus/ubus.sock"
VALGRIND_LOG = "/tmp/valgrind.log"
VALGRIND = ["/usr/bin/valgrind", "--error-exitcode=99", "--leak-check=full",
            "--errors-for-leak-kinds=definite,indirect", f"--log-file={VALGRIND_LOG}"]
BRIDGE_EVENTS, NEIGHBOUR, ROUTE = 39, 53, 0
BUILD_HINT = "build it with: cmake --preset release && cmake --build --preset release"
CALLS = {  # the numbers of system calls that are slept in, of epoll_wait with its kin
    "x86_64": {"epoll": ("232", "281", "441"), "connect": ("42",), "openat": ("257",)},
    "aarch64": {"epoll": ("22", "441"), "connect": ("203",), "openat": ("56",)}}

INSTALLED = (ROOT / "programs").is_dir()  # the programs are beside this tree then
USUAL_BUILD = "programs" if INSTALLED else "build/release"
BUILD_HELP = f"build directory (default: $KOLT_BUILD or {'the installed programs' if INSTALLED else USUAL_BUILD})"
NEEDED = ("bin/kolt", "bin/kolt-ubusd", "bin/kolt-event", "lib/libduon-bridge.so", "lib/libeth_encap.so")


def check_build(build: Path) -> None:
    """NodeError where a build lacks what a node with a daemon and a bus needs."""
    missing = [name for name in NEEDED if not (build / name).exists()]
    if missing:
        raise NodeError(f"{os.path.relpath(build)} holds no build: {missing[0]} is missing\n{BUILD_HINT}")


def build_directory() -> Path:
    """Where the programs are: $KOLT_BUILD, relative to the top of the tree, by default the usual place."""
    return ROOT / os.environ.get("KOLT_BUILD", USUAL_BUILD)


class Node(State):
    """
    Use as a context manager. `build` is the build directory whose bin/ and lib/ are run; `keep` names further
    directories that stay visible inside although they lie under /tmp or /run.
    """

    def __init__(self, build: str | Path | None = None, keep: Iterable[str | Path] = ()) -> None:
        self.build = (Path(build) if build else build_directory()).absolute()
        # Where this is installed, the programs are links to the system's.
        programs = {path.resolve().parent for path in self.build.glob("bin/*")}
        super().__init__((self.build, self.build.resolve(), *programs, *keep))
        self.daemon: Process | None = None
        self.broker: Process | None = None
        self.clock: SimulatedClock | None = None  # while the daemon follows one

    # Processes

    def spawn(self, argv: Iterable[str | Path], *, env: dict[str, str] | None = None, argv0: str | None = None,
              stdin: bytes = b"", cwd: str = "/") -> Process:
        """Starts a program inside the node. The environment is a small one of the node's, plus `env`."""
        words = [str(word) for word in argv]
        pid = self.call("spawn", argv=words, env=self._environment(env), argv0=argv0, stdin=stdin.hex(), cwd=cwd)
        return self.processes[pid]

    def run(self, argv: Iterable[str | Path], *, timeout: float = 10.0, **how: object) -> Process:
        """Runs a program inside the node to its end."""
        process = self.spawn(argv, **how)
        self.wait_exit(process, timeout)
        return process

    def wait_exit(self, process: Process, timeout: float = 10.0) -> int:
        """Waits for a process to end, kills it when it takes too long, and returns its status."""
        try:
            self.wait_for(lambda: process.status is not None, timeout, f"the end of {process.argv[0]}")
        except NodeError:
            self.signal(process, signals.SIGKILL)
            raise
        assert process.status is not None
        return process.status

    def signal(self, process: Process, number: int) -> None:
        if process.status is None:
            with contextlib.suppress(ProcessLookupError):  # it has ended, and the news is on its way
                self.call("signal", pid=process.pid, number=int(number))

    def start_broker(self) -> Process:
        """Starts the message bus and waits until it takes connections."""
        self.broker = self.spawn([self.build / "bin/kolt-ubusd", "-s", BROKER_SOCKET])
        broker = self.broker
        self.wait_for(lambda: broker.status is not None or self.call("accepts", path=BROKER_SOCKET), 5, "the broker")
        if broker.status is not None:
            raise NodeError(f"the broker ended with status {broker.status}: {broker.stderr}")
        return broker

    def start_daemon(self, config: dict | str | None = None, *, args: Iterable[str] = (), argv0: str | None = None,
                     valgrind: bool = False, env: dict[str, str] | None = None, ready: bool = True,
                     binary: str | Path | None = None, timeout: float = 10.0) -> Process:
        """
        Starts the daemon, with `config` as its /etc/kolt.json where given. Returns when it waits for events, or has
        ended; with ready=False at once.
        """
        if config is not None:
            self.write_file("/etc/kolt.json", config if isinstance(config, str) else json.dumps(config))
        program = str(binary or self.build / "bin/kolt")
        tool = VALGRIND if valgrind else []
        self.daemon = self.spawn([*tool, program, *args], argv0=None if valgrind else argv0, env=env)
        if ready:
            self.wait_idle(timeout * (6 if valgrind else 1), or_ended=True)
        return self.daemon

    def use_simulated_clock(self) -> None:
        """
        From now on a program that is started here asks kolt_node.clock.SimulatedClock for the time, and stands still
        until it is attached: the daemon is to be started with ready=False.
        """
        self.write_file(f"{NODE_DIR}/clock", b"")

    def stop_daemon(self, signal: int = signals.SIGTERM, timeout: float = 10.0) -> int:
        """Ends the daemon by a signal and returns its exit status; one that has already ended only gives that."""
        daemon = self._daemon()
        self.signal(daemon, signal)
        if self.clock is not None:
            self.clock.close()  # it may be pausing, and ends in real time
        return self.wait_exit(daemon, timeout)

    def wait_idle(self, timeout: float = 5.0, *, or_ended: bool = False) -> None:
        """
        Waits until the daemon has handled everything that it was sent and waits for more in its event loop, or, in
        simulated time, pauses.
        """
        daemon = self._daemon()
        if self.clock is not None:
            self.clock.settle(timeout)
        else:
            self.wait_for(lambda: daemon.status is not None or is_waiting(daemon.pid), timeout, "the daemon to be idle")
        self.drain()
        if daemon.status is not None and not or_ended:
            raise NodeError(f"the daemon ended with status {daemon.status}: {daemon.stderr[-2000:]}")

    def drain(self) -> None:
        """Takes in what is on its way: the agent answers in turn, so by its second answer it has passed on the log."""
        for _ in range(2):
            self.list_directory("/run/kolt-node")

    def valgrind_report(self) -> str:
        return self.read_file(VALGRIND_LOG).decode("utf-8", "replace")

    # What reaches the daemon

    def event(self, name: str, attributes: dict | str | None = None, *, settle: bool = True) -> None:
        """Sends an event such as "kolt.link_state" over the bus; `settle` waits until the daemon has handled it."""
        text = attributes if isinstance(attributes, str) else json.dumps(attributes or {})
        sender = self.run([self.build / "bin/kolt-event", "-s", BROKER_SOCKET, name, text])
        if sender.status != 0:
            raise NodeError(f"sending {name} failed with status {sender.status}: {sender.stderr}")
        if settle and self.daemon is not None:
            self.wait_idle()

    def set_log_level(self, level: int) -> None:
        self.event("kolt.debug", {"dbg_level": level})

    def send_bridge_event(self, type: int, payload: bytes = b"", *, raw: bytes | None = None, count: int = 1) -> None:
        """A message on protocol 39; `raw` replaces the whole datagram."""
        self._send(BRIDGE_EVENTS, nlmsghdr(type, payload) if raw is None else raw, count)

    def send_neighbour(self, type: int, payload: bytes = b"", *, raw: bytes | None = None, count: int = 1) -> None:
        """A message on protocol 53."""
        self._send(NEIGHBOUR, nlmsghdr(type, payload) if raw is None else raw, count)

    def send_link_notification(self, interface: str | int, wireless: bytes | Iterable[bytes] | None = None, *,
                               raw: bytes | None = None, count: int = 1) -> None:
        """A route netlink message about an interface; `wireless` is the content of its wireless attribute."""
        index = self.ifindex(interface) if isinstance(interface, str) else interface
        self._send(ROUTE, link_message(index, wireless) if raw is None else raw, count)

    # What it did

    def mark(self) -> Mark:
        """The present moment, for `since`."""
        return Mark(len(self.journal()), len(self.log()), len(self.requests))

    def journal(self, since: Mark | None = None, call: str | Iterable[str] = (), **arguments: object) -> list[dict]:
        """The platform calls so far (time, pid, call, args, result), of the given names and argument values."""
        self._pump(0)
        self._read_journal()
        names = {call} if isinstance(call, str) else set(call)
        return [entry for entry in self._journal[since.journal if since else 0:]
                if (not names or entry["call"] in names)
                and all(entry["args"].get(key) == value for key, value in arguments.items())]

    def log(self, since: Mark | None = None, *, text: str | None = None, level: str | None = None,
            function: str | None = None) -> list[LogRecord]:
        """The messages to syslog so far; `text` is the whole message behind the level word."""
        self._pump(0)
        return [record for record in self._log[since.log if since else 0:]
                if text in (None, record.text) and level in (None, record.level)
                and function in (None, record.function)]

    def wait_log(self, text: str, *, since: Mark | None = None, timeout: float = 5.0, **which: str) -> LogRecord:
        """Waits for a message and returns the first such."""
        return self.wait_for(lambda: self.log(since, text=text, **which), timeout, f"the message '{text}'")[0]

    def wait_calls(self, call: str, *, since: Mark | None = None, count: int = 1, timeout: float = 5.0,
                   **arguments: object) -> list[dict]:
        """Waits until a platform call was made `count` times."""
        def enough() -> list[dict] | None:
            found = self.journal(since, call, **arguments)
            return found if len(found) >= count else None
        return self.wait_for(enough, timeout, f"{count} calls of {call}")

    def stderr(self) -> str:
        """What the daemon has written on its standard error."""
        self._pump(0)
        return self._daemon().stderr

    def memory(self) -> dict[str, int]:
        """The daemon's memory in KiB: rss, pss and private."""
        fields: dict[str, int] = {}
        for line in self._proc("smaps_rollup").splitlines()[1:]:
            key, value = line.split(":")
            fields[key] = int(value.split()[0])
        private = fields["Private_Clean"] + fields["Private_Dirty"]
        return {"rss": fields["Rss"], "pss": fields["Pss"], "private": private}

    def cpu_time(self) -> float:
        """Processor seconds that the daemon itself has used, without its children."""
        return int(self._proc("schedstat").split()[0]) / 1e9

    def descriptors(self) -> dict[int, str]:
        """The daemon's open descriptors and what they lead to."""
        base = f"/proc/{self._daemon().pid}/fd"
        return {int(name): os.readlink(f"{base}/{name}") for name in os.listdir(base)}

    def _environment(self, extra: dict[str, str] | None) -> dict[str, str]:
        inherited = {key: value for key, value in os.environ.items() if key.endswith("SAN_OPTIONS")}
        own = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LD_LIBRARY_PATH": str(self.build / "lib")}
        return own | inherited | (extra or {})

    def _daemon(self) -> Process:
        if self.daemon is None:
            raise NodeError("no daemon was started")
        return self.daemon

    def _proc(self, name: str) -> str:
        return Path(f"/proc/{self._daemon().pid}/{name}").read_text()

    def _send(self, protocol: int, data: bytes, count: int, timeout: float = 10.0) -> None:
        deadline = time.monotonic() + timeout
        while count > 0:
            count -= self.call("send", protocol=protocol, port=self._daemon().pid, data=data.hex(), count=count)
            if count > 0:
                if time.monotonic() > deadline:
                    raise NodeError("the daemon does not read its messages")
                self._pump(POLL_SECONDS)


def is_waiting(pid: int, call: str = "epoll") -> bool:
    """
    Whether a process is blocked waiting for events, or in another of CALLS; one that was just sent something no longer
    is. Its state is asked first: one that is being woken is running by that, but may still be shown in the call that
    it slept in.
    """
    try:
        asleep = Path(f"/proc/{pid}/stat").read_bytes().rpartition(b")")[2].split()[0] == b"S"
        words = Path(f"/proc/{pid}/syscall").read_text().split()
    except OSError:
        return False
    return asleep and words[0] in CALLS.get(os.uname().machine, {}).get(call, ())
