"""
A sample range extender that suits packaging/kolt.json: two Ethernet ports, power line, three radios with a station
link upwards each, two of them serving extenders further down. The 2.4 GHz uplink is busy, so periods adjust.
"""
import json
from typing import Any

from .control import ROOT
from .messages import fdb_entry, ha_entry, hd_entry
from .node import Node

CAP_MAC = "02:10:00:00:00:10"
BRIDGE_MACS = {"br-lan": "02:40:00:00:00:01", "br-guest": "02:40:00:00:00:02"}
CLIENTS = [f"02:20:00:00:00:{number:02x}" for number in range(1, 7)]
SERVERS = [f"02:30:00:00:00:{number:02x}" for number in range(1, 7)]

UPLINKS = {"wlan0.1": "2.4g", "wlan1.1": "5g", "wlan2.1": "5g_2"}
PORTS = ["eth0", "eth1", "plc0", *UPLINKS, "wlan0-b.1", "wlan1-b.1", "wlan0-a", "wlan1-a"]
GUEST_PORTS = ["plc20", "wlan0-g", "wlan1-g"]
RADIOS = ["wlan0", "wlan1", "wlan2", "wlan0-b", "wlan1-b"]  # what the driver reports stations on
RATES = {"wlan0": 144, "wlan1": 866, "wlan2": 1201}
UTILISATION = {"wlan0": 85, "wlan1": 40, "wlan2": 20}
# The radios' access points: offsets from the central access point's MAC in the last octet.
ROOT_APS = {"2.4g": "02:10:00:00:00:12", "5g": "02:10:00:00:00:13", "5g_2": "02:10:00:00:00:12"}


def config(**param: Any) -> dict:
    """The packaged configuration, with other tuning parameters where given."""
    loaded = json.loads((ROOT / "packaging/kolt.json").read_text())
    loaded["param"] |= param
    return loaded


def set_up(node: Node) -> dict[str, int]:
    """Describes the sample to a node and returns the interface indexes by name."""
    indexes = add_interfaces(node)
    node.set_bridge("br-lan", PORTS)
    node.set_bridge("br-guest", GUEST_PORTS)
    node.set_ethernet_profile(["eth0", "eth1"])
    add_state_files(node)
    add_radios(node)
    add_clients(node, indexes)
    return indexes


def add_interfaces(node: Node) -> dict[str, int]:
    indexes = {name: node.add_interface(name, kind="bridge", mac=mac) for name, mac in BRIDGE_MACS.items()}
    return indexes | {name: node.add_interface(name) for name in [*PORTS, *GUEST_PORTS, *RADIOS]}


def add_state_files(node: Node) -> None:
    node.set_work_mode("RE", cap_mac=CAP_MAC, parent_mac=CAP_MAC)
    node.set_link("ethernet", 0)
    node.set_link("plc", 1, cap_has_plc=1)
    for link, root in ROOT_APS.items():
        node.set_link(link, 1, rootap_mac=root)
    node.set_uci({"TrafficPlcRoot": "0", "TrafficEthActive": "0", "TrafficEthInterface": "eth0", "eth_HasNeigh": "0"})
    node.write_json("/tmp/lanwatch_recv_dhcp_if", {"recv_dhcp_if": "wlan1.1"})
    node.write_json("/tmp/runtime_ip_info_lan", {"lan_gw": "192.168.0.1"})
    node.write_json("/tmp/sync-server/mesh_dev_list", {"cap": {"mac": CAP_MAC}, "re": {"mac": "02:11:00:00:00:01"}})
    node.write_json("/tmp/client_mgmt/ap_client_list", [{"mac": mac.replace(":", "-")} for mac in CLIENTS])


def add_radios(node: Node) -> None:
    for number, (uplink, link) in enumerate(UPLINKS.items()):
        radio = uplink.split(".")[0]
        station = {"mac": ROOT_APS[link], "tx": RATES[radio], "rssi": 50 - 5 * number}
        node.set_driver_files(radio, link, [station], UTILISATION[radio])
    node.set_driver_files("wlan0-b", "2.4g", [{"mac": "02:11:00:00:00:01", "tx": 144}], UTILISATION["wlan0"])
    node.set_driver_files("wlan1-b", "5g", [{"mac": "02:11:00:00:00:01", "tx": 866}], UTILISATION["wlan1"])


def add_clients(node: Node, indexes: dict[str, int]) -> None:
    """Servers are seen through the busy uplink, clients on this node's own access points."""
    busy = indexes["wlan0.1"]
    own = [fdb_entry("02:40:00:00:00:01", busy, local=True)]
    seen = [fdb_entry(mac, busy) for mac in SERVERS] + [fdb_entry(mac, indexes["wlan1-a"]) for mac in CLIENTS]
    streams = []
    for number, (client, server) in enumerate(zip(CLIENTS, SERVERS)):
        ports = {"src_port": 5000 + number, "dst_port": 443}
        back = {"src_port": 443, "dst_port": 5000 + number}
        count = 100 * (number + 1)
        streams.append(ha_entry(client, server, busy, hash=number, packets=count, bytes_=count * 1200, **ports))
        streams.append(ha_entry(server, client, busy, hash=64 + number, packets=2 * count, bytes_=count * 2400,
                                flags=0x10, **back))
    node.set_table("br-lan", "fdb", own + seen)
    node.set_table("br-lan", "hd", [hd_entry(mac, busy) for mac in SERVERS])
    node.set_table("br-lan", "ha", streams)
