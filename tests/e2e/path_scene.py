"""What the stories of path selection share: a node with three Wi-Fi uplinks, and its daemon one period at a time."""
import contextlib
import signal
from collections.abc import Callable, Iterable, Iterator
from dataclasses import dataclass

import scene
from kolt_node import Mark, Node, NodeError, fdb_entry, ha_entry, hd_entry
from kolt_node.clock import SimulatedClock
from kolt_node.state import NODE_DIR

CAP = "02:10:00:00:00:10"
LOCAL = "02:20:00:00:00:01"  # a device on this node's own side, where the streams come from
HOSTS = [f"02:30:00:00:00:{number:02x}" for number in range(1, 7)]  # what is seen through the uplinks
RADIOS = {"2.4g": "wlan0", "5g": "wlan1", "5g_2": "wlan2"}
RATES = {"2.4g": 300, "5g": 866, "5g_2": 1201}
UPLINKS = {f"{radio}.1": {"type": kind, "nonrelay": True, "path": True} for kind, radio in RADIOS.items()}
INTERFACES = UPLINKS | {"eth0": {"type": "ethernet", "nonrelay": True}, "wlan0-a": {"type": "2.4g"}}
ROOM, HOT = 20, 90  # channel utilisations
CAT = "#!/bin/sh\necho \"$*\" >>/tmp/read\nexec /bin/cat \"$@\"\n"


@dataclass
class Period:
    """What the daemon did and said in one period."""
    calls: list[dict]
    lines: list[str]
    requests: list[bytes]

    def find(self, call: str, bridge: str = "") -> list[dict]:
        return [entry["args"] for entry in self.calls
                if entry["call"] == call and bridge in ("", entry["args"].get("bridge"))]

    def hd(self, bridge: str = "") -> list[tuple[str, str]]:
        """The clients that were given an entry, each with its interface."""
        return [(args["client_mac"], args["ifname"]) for args in self.find("bridgeAddHDTableEntries", bridge)]

    def ha(self, bridge: str = "") -> list[tuple[int, str]]:
        """The streams that were moved, by hash, each with its interface."""
        return [(args["hash"], args["ifname"]) for args in self.find("bridgeSetHATableEntries", bridge)]

    def codes(self, bridge: str = "") -> list[int]:
        """The codes of the tables that were fetched: 2 forwarding, 1 clients, 8 streams."""
        return [args["code"] for args in self.find("bridgeTableAction", bridge)]

    def says(self, *functions: str) -> list[str]:
        return [line for line in self.lines if line.split(":")[0] in functions]


class PathNode(scene.SharedNode):
    """A shared node whose daemon's time stands still between two periods, so that a test may change it without haste."""
    _seen: Mark | None = None

    def begin(self, configuration: dict | None = None, *, level: int = 2, **how: object) -> None:
        """Starts the daemon, whose first period comes when it is let come."""
        self.use_simulated_clock()
        scene.start(self, configuration or config(), ready=False, **how)
        SimulatedClock(self).attach()
        self.remove_file(f"{NODE_DIR}/clock")  # for whom a test starts by itself
        self.set_log_level(level)
        self._seen = scene.mark(self)

    def period(self) -> Period:
        """Lets one period pass."""
        self.begin_period()
        self.wait_idle(10)
        return self._end_period()

    def begin_period(self) -> None:
        """Lets one come, and does not wait for its end."""
        self.clock.wake()

    def period_with(self, change: Callable[[], None]) -> Period:
        """Lets one pass, and `change` happens while the daemon waits in vain for the answer to its first move."""
        begin = self._seen
        self.answer_requests(silent=True)
        self.begin_period()
        self.wait_calls("sendto", since=begin, timeout=10)
        self.signal(self.daemon, signal.SIGSTOP)  # the wait is in real time
        self.drain()
        if self.log(begin, text="send notify msg failed"):
            raise NodeError("the test was held up until the wait was over")
        change()
        self.answer_requests()
        self.signal(self.daemon, signal.SIGCONT)
        self.wait_idle(10)
        return self._end_period()

    def _end_period(self) -> Period:
        begin, self._seen = self._seen, scene.mark(self)
        calls = self.journal(begin)
        asked = [entry["args"]["bridge"] for entry in calls
                 if entry["call"] == "netlink_msg" and entry["args"]["type"] == 0]
        if not asked or len(asked) > len(set(asked)):
            raise NodeError("it was no period, or more than one")
        lines = [f"{record.function}: {record.level}: {record.text}" for record in self.log(begin)]
        return Period(calls, lines, self.requests[begin.requests:])

    def set_load(self, **utilisation: int) -> None:
        """How busy the channels are, by interface types: load_2_4g, load_5g and load_5g_2."""
        for kind, radio in RADIOS.items():
            load = utilisation.get("load_" + kind.replace(".", "_"), ROOM)
            set_radio(self, radio, kind, RATES[kind], load)


def set_radio(node: Node, radio: str, kind: str, rate: int, load: int) -> None:
    node.set_driver_files(radio, kind, [{"mac": CAP, "tx": rate, "rx": 7}], load)


def config(interfaces: dict | None = None, *, bridges: dict | None = None, **param: object) -> dict:
    """A period of one second on one bridge, measuring Wi-Fi."""
    chosen = {"br-lan": {"path_selection": True}} if bridges is None else bridges
    return scene.config(interfaces or INTERFACES, bridges=chosen, **({"period": 1, "wlan_enable": True} | param))


def set_up(node: PathNode, *, bridges: Iterable[str] = ("br-lan",), ports: Iterable[str] = INTERFACES) -> None:
    """Bridges that all have these ports, calm radios, and no client."""
    scene.set_up(node, [])
    node.set_work_mode("RE", parent_mac=CAP)
    node.remove_file(f"{NODE_DIR}/bridges/br-lan")
    for name in ports:
        node.add_interface(name)
    for number, name in enumerate(bridges):
        with contextlib.suppress(FileExistsError):  # another test's, with the same number
            node.add_interface(name, mac=bridge_mac(number))
        node.set_bridge(name, ports)
    node.set_load()


def bridge_mac(number: int) -> str:
    return f"02:0b:00:00:00:{number:02x}"


def add_hosts(node: Node, hosts: Iterable[str], port: str, *, bridge: str = "br-lan", pinned: str = "") -> None:
    """Hosts that are seen through a port, with an entry each that pins them to a port where one is named."""
    index = node.ifindex(port)
    node.set_table(bridge, "fdb", [fdb_entry(host, index) for host in hosts])
    node.set_table(bridge, "hd", [hd_entry(host, node.ifindex(pinned)) for host in hosts] if pinned else b"")


def stream(node: Node, number: int, port: str, *, host: str = HOSTS[0], bytes_: int = 1000000, packets: int = 1000,
           **fields: object) -> bytes:
    """A stream of this node's side to a host, whose hash and source port are its number."""
    return ha_entry(LOCAL, host, node.ifindex(port), hash=number, src_port=number, dst_port=443, bytes_=bytes_,
                    packets=packets, **fields)


def watch_reads(node: Node) -> dict[str, str]:
    """The environment for a daemon whose readings of the kernel's and the driver's files are recorded."""
    node.write_file("/tmp/bin/cat", CAT)
    node.run(["/bin/chmod", "755", "/tmp/bin/cat"])
    node.write_file("/tmp/read", "")
    return {"PATH": "/tmp/bin:/usr/bin:/bin"}


def take_reads(node: Node) -> list[str]:
    """What was read since the last time."""
    read = node.read_file("/tmp/read").decode().splitlines()
    node.write_file("/tmp/read", "")
    return read


def lend(build: object) -> Iterator[PathNode]:
    with PathNode(build) as fresh:
        yield fresh
