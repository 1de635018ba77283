"""Takes the figures of one daemon on a simulated node: how long it takes, how much memory, how much processor time."""
import json
import sys
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "platform/sim"))

from kolt_node import Node, NodeError, sample, wireless_event  # noqa: E402
from kolt_node.control import PYTHON  # noqa: E402
from kolt_node.node import BROKER_SOCKET  # noqa: E402

# Programs a bridge or one of its ports, which is what a start and a changed link end in.
PROGRAMMING = ("bridgeSetTcpSP", "bridgeSetBridgeMode", "bridgeSetFollowRE", "bridgeSetIFCompat", "bridgeSetIFGroup",
               "bridgeSetIFBroadcast", "bridgeSetIFClass", "bridgeSetIFPath", "bridgeSetNeedha", "bridgeSetIFType",
               "bridgeSetCouple")
REGISTRATION = ("bridgeSetEventInfo",)
FLUSH = "bridgeFlushHATable"

# Notes the clock and becomes the program in its arguments: nothing of the interpreter remains but the clock's line.
LAUNCHER = "import os, sys, time; os.write(1, b'%d\\n' % time.monotonic_ns()); os.execv(sys.argv[1], sys.argv[1:])"

STATION_PORT = "wlan0-b"  # a path that relays: an expired station there makes the daemon flush
STATION_EVENT, RECONFIGURE_EVENT = 5, 6  # messages of the bridge
BRIDGES = 2  # of the sample
EVENTS = 1000
LONGEST_BURST = 30.0


@dataclass
class Memory:
    """In KiB."""
    resident: int
    private: int


def milliseconds(begin: int, end: int) -> float:
    return (end - begin) / 1e6


def memory(node: Node) -> Memory:
    figures = node.memory()
    return Memory(figures["rss"], figures["private"])


def make_node(build: Path) -> Node:
    """A node set up as the sample, with a broker and a period that no measurement reaches; the caller closes it."""
    node = Node(build).start()
    try:
        sample.set_up(node)
        node.write_file("/etc/kolt.json", json.dumps(sample.config(period=3600)))
        node.start_broker()
    except BaseException:
        node.close()
        raise
    return node


def start(node: Node, program: str, until: tuple[str, ...] = PROGRAMMING) -> float:
    """Starts a program of the build; the milliseconds from its exec to the last of the calls `until`."""
    mark = node.mark()
    daemon = node.start_daemon(binary=PYTHON, args=["-IS", "-c", LAUNCHER, str(node.build / "bin" / program)])
    if daemon.status is not None:
        raise NodeError(f"{program} ended with status {daemon.status}: {daemon.stderr[-2000:]}")
    node.wait_for(lambda: "\n" in daemon.stdout, what="the launcher's clock")
    calls = node.journal(mark, until)
    if not calls:
        raise NodeError(f"{program} waits for events and has made none of its calls\n{node.recent()}")
    return milliseconds(int(daemon.stdout.split()[0]), calls[-1]["time"])


def stop(node: Node) -> None:
    status = node.stop_daemon()
    if status != 0:
        raise NodeError(f"the daemon ended with status {status}")


def send(node: Node, name: str, attributes: dict[str, object], count: int = 1) -> int:
    """Sends an event over the bus; the clock right before the first sending."""
    words = [PYTHON, "-IS", HERE / "bus_send.py", BROKER_SOCKET, name, json.dumps(attributes), str(count)]
    sender = node.run(words, timeout=LONGEST_BURST)
    if sender.status != 0:
        raise NodeError(f"sending {name} failed: {sender.stderr}")
    return int(sender.stdout)


def link_event(node: Node) -> float:
    """The milliseconds from sending that Ethernet came up to the first call that programs the bridge."""
    mark = node.mark()
    sent = send(node, "kolt.link_state", {"LINK_ETH": 1})
    calls = node.wait_calls(PROGRAMMING[0], since=mark)
    node.wait_calls(FLUSH, since=mark, count=BRIDGES)  # a second later, by design
    node.wait_idle()
    return milliseconds(sent, calls[0]["time"])


def link_notification(node: Node) -> float:
    """The milliseconds from an expired station to the first flush, with the way through the node's agent."""
    mark = node.mark()
    sent = time.monotonic_ns()
    node.send_link_notification(STATION_PORT, wireless_event())
    calls = node.wait_calls(FLUSH, since=mark)
    node.wait_idle()
    return milliseconds(sent, calls[0]["time"])


def station_event(node: Node) -> bytes:
    """A station's MAC and the number of the port that it moved to, its low and its high byte apart."""
    port = node.ifindex("eth0")
    return bytes.fromhex("0230000000aa") + bytes([port & 255]) + bytes(5) + bytes([port >> 8]) + bytes(3)


def burst(node: Node) -> None:
    """A thousand events of five kinds. Those that end in calls of the platform are checked to have been handled."""
    share = EVENTS // 5
    station = station_event(node)
    kinds: list[tuple[str, Callable[[], object]]] = [  # with a call that each event makes for every bridge
        ("", lambda: send(node, "kolt.debug", {"dbg_level": 1}, share)),
        (PROGRAMMING[0], lambda: send(node, "kolt.configure", {"mode": "RE"}, share)),
        ("", lambda: node.send_bridge_event(STATION_EVENT, station, count=share)),
        (FLUSH, lambda: node.send_bridge_event(RECONFIGURE_EVENT, count=share)),
        (FLUSH, lambda: node.send_link_notification(STATION_PORT, wireless_event(), count=share)),
    ]
    for call, deliver in kinds:
        mark = node.mark()
        deliver()
        node.wait_idle(LONGEST_BURST)
        made = len(node.journal(mark, call))
        if call and made < share * BRIDGES:
            raise NodeError(f"{share} events made {made} calls of {call}, not {share * BRIDGES}")


def idle_time(node: Node, seconds: float) -> float:
    """The processor microseconds that the daemon uses while nothing happens."""
    node.wait_idle()
    before = node.cpu_time()
    time.sleep(seconds)
    return (node.cpu_time() - before) * 1e6


def binary_size(build: Path, program: str) -> int:
    """In bytes. A program with symbols was not built as it is delivered, and nothing measured on it would count."""
    data = (build / "bin" / program).read_bytes()
    if b"\0.symtab\0" in data:
        raise NodeError(f"{program} is not stripped: measure a release build")
    return len(data)
