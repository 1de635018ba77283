"""What the tests of the daemon share: a small node, configurations for it, and what the daemon did in readable form."""
from collections.abc import Iterator

from kolt_node import Mark, Node, NodeError, Process
from kolt_node.state import LINK_FILES, NODE_DIR

SANITIZER_WORDS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:")
UCI = {"TrafficPlcRoot": "0", "TrafficEthActive": "0", "TrafficEthInterface": "eth0", "eth_HasNeigh": "0"}
TYPES = ["ethernet", "plc", "2.4g", "5g", "5g_2"]
REQUESTED = ("bridgeSet", "bridgeFlush", "bridgeAdd", "bridgeDel")

# One port of each kind that the programming tells apart.
ETH0 = {"type": "ethernet", "compat_group": 1, "nonrelay": True, "path": True}
PLC0 = {"type": "plc", "compat_group": 3, "nonrelay": True, "path": True}
UPLINK = {"type": "5g", "compat_group": 4, "nonrelay": True, "path": True, "needha": True}
DOWNLINK = {"type": "2.4g", "compat_group": 5, "path": True, "class": 1}
INTERFACES = {"eth0": ETH0, "plc0": PLC0, "wlan1.1": UPLINK, "wlan0-b.1": DOWNLINK}


class SharedNode(Node):
    """A node that is lent to one test after another, where each of many needs little more than a daemon of its own."""

    def lend(self) -> Iterator[Node]:
        """The body of a fixture. The records are empty and the bridges are gone; interfaces and the bus remain."""
        drain(self)
        self._log.clear()
        self.journal()
        self._journal.clear()
        self.requests.clear()
        self.processes = {process.pid: process for process in self.processes.values() if process.status is None}
        self.remove_file(f"{NODE_DIR}/bridges")
        self.clear_failures()
        self.answer_requests()
        yield self
        if self.daemon is not None:
            self.stop_daemon()
        self.daemon = None
        for process in self.processes.values():
            assert not any(word in process.stderr for word in SANITIZER_WORDS), process.stderr

    def add_interface(self, name: str, **how: object) -> int:
        if how:
            return super().add_interface(name, **how)
        try:
            return self.ifindex(name)
        except (OSError, NodeError):
            return super().add_interface(name)


def config(interfaces: dict | None = None, *, bridges: dict | None = None, backhual: dict | None = None,
           **param: object) -> dict:
    """A configuration whose period is so long that no measurement falls into a test."""
    return {"enable": True,
            "bridges": {"br-lan": {"loop_avoidance": True}} if bridges is None else bridges,
            "param": {"period": 3600} | param,
            "interfaces": INTERFACES if interfaces is None else interfaces,
            "backhual": backhual or {}}


def set_up(node: Node, ports: list[str] | None = None, *, bridge: str = "br-lan", mode: str | None = "RE") -> None:
    """Makes the files that the daemon reads, all links up, and one bridge with these ports."""
    node.set_work_mode(mode)
    for link in LINK_FILES:
        node.set_link(link, 1)
    node.set_uci(UCI)
    node.set_ethernet_profile(["eth0", "eth1"])
    add_ports(node, bridge, list(INTERFACES) if ports is None else ports)


def add_ports(node: Node, bridge: str, names: list[str]) -> None:
    for name in names:
        node.add_interface(name)
    node.set_bridge(bridge, names)


def start(node: Node, configuration: dict | None = None, *, level: int = 1, **how: object) -> Process:
    """Starts a bus and the daemon, which must be up and running afterwards."""
    if node.broker is None or node.broker.status is not None:
        node.start_broker()
    daemon = node.start_daemon(configuration or config(), **how)
    assert daemon.status is None, daemon.stderr
    if level != 1:
        node.set_log_level(level)
    return daemon


def drain(node: Node) -> None:
    """Takes in what is on its way: a node answers in turn, so by the second answer it has passed on the log."""
    for _ in range(2):
        node.list_directory("/run/kolt-node")


def wait_answer(node: Node) -> None:
    """Waits until the event loop runs, also where it never rests: it answers an event that nobody knows."""
    node.wait_log("Loop avoidance initialized")
    begin = mark(node)
    node.event("kolt.hello", settle=False)
    node.wait_log("unknown subtype", since=begin)


def mark(node: Node) -> Mark:
    drain(node)
    return node.mark()


def lines(node: Node, since: Mark | None = None) -> list[str]:
    """The log as "function: Level: text", without what the module that measures paths has to say."""
    drain(node)
    texts = [(record, f"{record.level}({record.error})" if record.error else record.level)
             for record in node.log(since)]
    return [f"{record.function}: {level}: {record.text}" for record, level in texts
            if not record.function.startswith("path_selection") and record.text != "Path Selection initialized"]


def requests(node: Node, since: Mark | None = None) -> list[str]:
    """What the bridges were told, one line a call: its name without "bridge", then its arguments."""
    return [request_line(entry) for entry in node.journal(since) if entry["call"].startswith(REQUESTED)]


def loop_requests(node: Node, since: Mark) -> list[str]:
    """The same for a link-state event: another module flushes tables before loop avoidance sets anything."""
    told = requests(node, since)
    first = next((at for at, line in enumerate(told) if line.startswith("Set")), len(told))
    return told[first:]


def request_line(entry: dict) -> str:
    return " ".join([entry["call"].removeprefix("bridge"), *map(str, entry["args"].values())])


def port(bridge_and_name: str, type: int, *, compat: int = 255, relay: int, bcast: int, bcast_class: int = 0,
         path: int = 0, needha: int = 0) -> list[str]:
    """The seven requests for one port, in their order."""
    return [f"SetIFCompat {bridge_and_name} {compat}", f"SetIFGroup {bridge_and_name} {relay} {relay}",
            f"SetIFBroadcast {bridge_and_name} {bcast}", f"SetIFClass {bridge_and_name} {bcast_class}",
            f"SetIFPath {bridge_and_name} {path}", f"SetNeedha {bridge_and_name} {needha}",
            f"SetIFType {bridge_and_name} {type}"]


def short(value: object) -> str:
    """The name of a test's parameter."""
    return repr(value)[:40]


def values(told: list[str], call: str) -> list[str]:
    """The arguments of one call, each time that it was made."""
    return [line.removeprefix(call + " ") for line in told if line.split(" ")[0] == call]


def event_info(node: Node, *bridges: str) -> list[str]:
    """The renewal of the event registration, which comes first at every configure event."""
    return [f"SetEventInfo {bridge} {node.daemon.pid} 3 38" for bridge in bridges]
