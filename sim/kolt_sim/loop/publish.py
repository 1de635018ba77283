"""Makes a node look as the model says: interfaces once, then each tick the files, counters and tables."""
import json

from kolt_node import Node, sample
from kolt_node.messages import radio_stats, station_info
from kolt_node.state import LINK_FILES

from ..model.world import World
from ..scenario.records import INTERFACES, PATH_TYPES
from .files import Files
from .tables import Tables

BRIDGE = "br-lan"
BRIDGE_DIR = f"/run/kolt-node/bridges/{BRIDGE}"
HERTZ, PROCESSORS = 100, 1
LOCAL = [port for port in sample.PORTS if port not in INTERFACES.values()]


def radio_of(ifname: str) -> str:
    """The driver's name of a Wi-Fi port: what stands before the dot."""
    return ifname.split(".")[0]


def driver_directory(kind: str, ifname: str) -> str:
    """Where the driver shows a Wi-Fi port's radio."""
    radio = radio_of(ifname)
    return f"/proc/{radio}" if kind == "2.4g" else f"/proc/net/rtk_wifi6/{radio}"


class Publisher:
    """Owns what the node shows. `period` is the daemon's, in seconds."""

    def __init__(self, node: Node, world: World, period: float) -> None:
        self.node, self.world = node, world
        self.indexes = sample.add_interfaces(node)
        self._prepare()
        self.files = Files(node.root_fd)
        self.tables = Tables(world, self.indexes, sample.BRIDGE_MACS[BRIDGE], period)
        self._ticks = {"busy": 0.0, "idle": 0.0}
        self.publish_links()
        self.publish(0.0)

    def _prepare(self) -> None:
        """Everything that does not change, and the directories of what does."""
        node, parent = self.node, {"parent_mac": sample.CAP_MAC} if self.world.scenario.parent_known else {}
        node.set_bridge(BRIDGE)
        node.set_work_mode("RE", cap_mac=sample.CAP_MAC, **parent)
        node.set_ethernet_profile(["eth0", "eth1"])
        node.write_json("/tmp/runtime_ip_info_lan", {"lan_gw": "192.168.0.1"})
        node.write_json("/tmp/sync-server/mesh_dev_list", {"cap": {"mac": sample.CAP_MAC}})
        node.write_json("/tmp/client_mgmt/ap_client_list", [])
        for kind, ifname in INTERFACES.items():
            if kind in sample.ROOT_APS:
                node.set_driver_files(radio_of(ifname), kind, [], 0)

    # What changes when a link comes or goes

    def publish_links(self) -> None:
        """The bridge's ports, the links' states and what other daemons say of the wired ones."""
        ups = {link.type: link.up for link in self.world.links}
        ports = [link.name for link in self.world.links if link.up or link.is_wifi] + LOCAL
        self.files.write(f"{BRIDGE_DIR}/ports", "".join(f"{port}\n" for port in ports))
        for kind in PATH_TYPES:
            state = {"status": int(ups.get(kind, False))}
            if kind in sample.ROOT_APS:
                state["rootap_mac"] = sample.ROOT_APS[kind]
            if kind == "plc":
                state["cap_has_plc"] = 1
            self.files.write(LINK_FILES[kind], json.dumps(state))
        wired = int(ups.get("ethernet", False))
        options = {"TrafficPlcRoot": 0, "TrafficEthActive": wired, "TrafficEthInterface": "eth0", "eth_HasNeigh": wired}
        self.files.write("/etc/config/tolmux", "config tolmux 'tolmux'\n" +
                         "".join(f"\toption {key} '{value}'\n" for key, value in options.items()))

    # What changes every tick

    def publish(self, seconds: float) -> None:
        """The state at the end of a tick of that length."""
        for link_number, link in enumerate(self.world.links):
            if link.is_wifi:
                self._publish_radio(link_number)
        self._publish_processor(seconds)
        self.files.write("/proc/net/dev", self._counters())
        self.publish_tables()
        self.files.write(f"{BRIDGE_DIR}/ha", self.tables.take_streams())

    def publish_tables(self) -> None:
        """Who is where, who is pinned, and on which port the node got its address."""
        self.files.write(f"{BRIDGE_DIR}/fdb", self.tables.forwarding())
        self.files.write(f"{BRIDGE_DIR}/hd", self.tables.pinned_clients())
        learnt = self.world.learnt_path()
        name = self.world.links[learnt].name if learnt >= 0 else ""
        self.files.write("/tmp/lanwatch_recv_dhcp_if", json.dumps({"recv_dhcp_if": name}))

    def _publish_radio(self, number: int) -> None:
        link = self.world.links[number]
        base = driver_directory(link.type, link.name)
        station = {"mac": sample.ROOT_APS[link.type], "tx": round(link.rate), "rssi": 50}
        self.files.write(f"{base}/sta_info", station_info([station] if link.up else []))
        self.files.write(f"{base}/stats", radio_stats(round(self.world.busy[number])))

    def _publish_processor(self, seconds: float) -> None:
        spent = seconds * HERTZ * PROCESSORS
        self._ticks["busy"] += spent * self.world.load / 100.0
        self._ticks["idle"] += spent * (1.0 - self.world.load / 100.0)
        busy, idle = round(self._ticks["busy"]), round(self._ticks["idle"])
        self.files.write("/proc/stat", f"cpu  {busy} 0 0 {idle} 0 0 0 0 0 0\n")

    def _counters(self) -> str:
        """The text that the kernel shows of its interfaces. The bytes are the model's: no frame is really sent."""
        lines = ["Inter-|   Receive                                                |  Transmit\n",
                 " face |bytes    packets errs drop fifo frame compressed multicast|"
                 "bytes    packets errs drop fifo colls carrier compressed\n"]
        for number, link in enumerate(self.world.links):
            (in_bytes, in_packets), (out_bytes, out_packets) = self.world.link_in[number], self.world.link_out[number]
            received = f"{int(in_bytes):7d} {int(in_packets):7d}    0    0    0     0          0         0"
            sent = f"{int(out_bytes):8d} {int(out_packets):7d}    0    0    0     0       0          0"
            lines.append(f"{link.name:>6}: {received} {sent}\n")
        return "".join(lines)
