"""What the ports of a mesh node are called, and the configuration of the daemon that goes with them."""
import json
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

from .topology import Link, Topology

ROOT = Path(__file__).resolve().parents[3]
BRIDGE = "br-lan"
RADIOS = {"2.4g": 0, "5g": 1, "5g_2": 2}
CHILD_LETTERS = "bcdefhijklmnop"  # "a" is where clients are, "g" where guests are
UPWARDS = {"ethernet": {"compat_group": 1, "nonrelay": True, "path": True, "class": 0},
           "plc": {"compat_group": 3, "nonrelay": True, "path": True, "class": 0, "priority": 1}}
RADIO_UPWARDS = {"compat_group": 4, "nonrelay": True, "path": True, "class": 0, "needha": True}
DOWNWARDS = {"ethernet": {"compat_group": 2, "path": True}, "plc": {"compat_group": 3, "path": True}}
RADIO_DOWNWARDS = {"compat_group": 5, "path": True}
PRIORITIES = {"2.4g": 1, "5g": 2, "5g_2": 3}
ACCESS = {"type": "ethernet"}


@dataclass(frozen=True)
class Port:
    """A node's end of a link. `radio` is what the Wi-Fi driver calls it, empty on a wire."""
    node: str
    link: Link
    name: str
    upwards: bool
    mac: str

    @property
    def radio(self) -> str:
        return self.name.split(".")[0] if self.link.type in RADIOS else ""


def node_mac(topology: Topology, node: str, port: int = 0) -> str:
    """Port 0 is the bridge; a node that is named first has the smaller address."""
    return f"02:4b:00:{list(topology.nodes).index(node) + 1:02x}:00:{port:02x}"


def backhaul_ports(topology: Topology, node: str) -> list[Port]:
    """
    The node's ends of its links. One that can lead to a root is a nonrelay port: a station's interface on a radio. All
    others relay: an access point's.
    """
    count: Counter = Counter()
    made = []
    for number, link in enumerate(topology.links_of(node), 1):
        upwards = topology.leads_to_root(node, link)
        kind = link.type if link.type in RADIOS else "wire " + link.type
        index = count[kind, upwards if link.type in RADIOS else None]
        count[kind, upwards if link.type in RADIOS else None] += 1
        made.append(Port(node, link, _port_name(link.type, upwards, index), upwards,
                         node_mac(topology, node, number)))
    return made


def _port_name(kind: str, upwards: bool, index: int) -> str:
    if kind in RADIOS:
        return f"wlan{RADIOS[kind] + 3 * index}.1" if upwards else f"wlan{RADIOS[kind]}-{CHILD_LETTERS[index]}.1"
    return f"eth{index}" if kind == "ethernet" else f"plc{index}"


def access_port(topology: Topology, host: str) -> str:
    """The port at which a host hangs on its node."""
    beside = [name for name, node in topology.hosts.items() if node == topology.hosts[host]]
    return f"lan{beside.index(host) + 1}"


def access_ports(topology: Topology, node: str) -> list[str]:
    return [access_port(topology, host) for host, at in topology.hosts.items() if at == node]


def configuration(topology: Topology, node: str, **param: object) -> dict:
    """
    The daemon's configuration of a node: the packaged one's settings, this node's ports. How busy the processor is says
    nothing here, where all nodes share one.
    """
    packaged = json.loads((ROOT / "packaging/kolt.json").read_text(encoding="utf-8"))
    interfaces: dict[str, dict] = {}
    for port in backhaul_ports(topology, node):
        interfaces[port.name] = {"type": port.link.type} | _attributes(port)
    interfaces |= {name: dict(ACCESS) for name in access_ports(topology, node)}
    return {"enable": True, "bridges": {BRIDGE: {"loop_avoidance": True, "path_selection": True}},
            "param": packaged["param"] | {"cpu_threshold": 0} | param, "interfaces": interfaces}


def _attributes(port: Port) -> dict:
    kind = port.link.type
    if kind not in RADIOS:
        return UPWARDS[kind] if port.upwards else DOWNWARDS[kind]
    return RADIO_UPWARDS | {"priority": PRIORITIES[kind]} if port.upwards else RADIO_DOWNWARDS


def wired_hints(topology: Topology, node: str) -> dict[str, str]:
    """What a sibling daemon of the node says of its Ethernet ports: which carry backhaul, which have a neighbour."""
    wired = [port for port in backhaul_ports(topology, node) if port.link.type == "ethernet"]
    upwards = [port.name for port in wired if port.upwards]
    mask = sum(1 << number for number in range(len(wired)))
    return {"TrafficPlcRoot": str(int(node in topology.roots())), "TrafficEthActive": str(int(bool(upwards))),
            "TrafficEthInterface": upwards[0] if upwards else "", "eth_HasNeigh": str(mask)}
