"""The second half of the demonstration: the daemon measures the backhaul paths and places clients and streams on them."""
import re
import signal

from kolt_node import LogRecord, Mark, Node, hd_entry, sample
from kolt_node.messages import ha_entry, mac_bytes

LEGEND = """
=== The daemon's other job: path selection

  Once a period (here a second) it measures the radio paths and places clients and streams on them.

  PHY rate   how fast the radio sends, as its driver says, in Mbit/s
  busy       utilisation: for how much of the time the channel is taken, by anybody; hot is above 70 %
  quota      what the daemon may still put there: 100 % less utilisation and a reserve of 10 %
  client     here a device beyond the backhaul; an HD entry pins it to a path, by which new streams to it leave
  stream     the packets of one connection; an HA entry says by which path they leave"""
CALM_PROCESSOR = "cpu  0 0 0 1000 0 0 0 0 0 0\n"
FORWARDING_TABLE = 2
PATH_LINE = re.compile(r"path: (\S+), util: (\d+),.* quota: (\d+),.* processed_rate: (\d+)")
KIB = 1024
LIMIT_SECONDS = 20


class Tables:
    """The clients and streams of the sample, kept as the daemon places them: what the bridge itself would do."""

    def __init__(self, node: Node, indexes: dict[str, int]) -> None:
        self.node, self.indexes = node, indexes
        self.names = {index: name for name, index in indexes.items()}
        busy = indexes["wlan0.1"]
        self.hd = {mac: busy for mac in sample.SERVERS}
        self.streams = {(5000 + number, 443): {"src": client, "dst": server, "port": busy, "hash": number,
                                               "bytes": (number + 1) * 800 * KIB}
                        for number, (client, server) in enumerate(zip(sample.CLIENTS, sample.SERVERS))}

    def write(self) -> None:
        self.node.set_table("br-lan", "hd", [hd_entry(mac, port) for mac, port in self.hd.items()])
        self.node.set_table("br-lan", "ha", [
            ha_entry(one["src"], one["dst"], one["port"], hash=one["hash"], src_port=ports[0], dst_port=ports[1],
                     packets=one["bytes"] // 1200, bytes_=one["bytes"]) for ports, one in self.streams.items()])

    def follow(self, calls: list[dict]) -> list[str]:
        """Takes over what the daemon programmed; returns it in words."""
        told = []
        for entry in calls:
            given = entry["args"]
            if entry["call"] == "bridgeAddHDTableEntries":
                told.append(f"client {given['client_mac']} is pinned to {given['ifname']}")
                self.hd[given["client_mac"].lower()] = self.indexes[given["ifname"]]
            if entry["call"] == "bridgeSetHATableEntries":
                stream = self.streams[(given["src_port"], given["dst_port"])]
                told.append(f"stream {given['src_port']} of {given['dst']} ({stream['bytes'] // KIB} KiB a period) moves "
                            f"from {self.names[stream['port']]} to {given['ifname']}")
                stream["port"] = self.indexes[given["ifname"]]
        self.write()
        return told


def set_utilisation(node: Node, busy: int) -> None:
    """How busy the channel of each radio is; the 2.4 GHz one is what changes in this story."""
    for radio, link, util in (("wlan0", "2.4g", busy), ("wlan1", "5g", 40), ("wlan2", "5g_2", 20)):
        station = {"mac": mac_bytes(sample.CAP_MAC), "tx": sample.RATES[radio], "rssi": 45}
        node.set_driver_files(radio, link, [station], util)


def paths_of_a_period(node: Node, mark: Mark) -> list[LogRecord]:
    """What was said of each path in the first period since the mark; nothing before all was said."""
    records = node.log(mark, function="path_selection_init_path_quota")
    return records[:len(sample.UPLINKS)] if len(records) >= len(sample.UPLINKS) else []


def first_period(calls: list[dict]) -> list[dict]:
    """A period begins with the forwarding table; on a busy machine another one may have begun already."""
    begins = [at for at, entry in enumerate(calls)
              if entry["call"] == "bridgeTableAction" and entry["args"]["code"] == FORWARDING_TABLE]
    return calls[:begins[1]] if len(begins) > 1 else calls


def show_period(node: Node, tables: Tables, title: str) -> None:
    """
    Waits for the next whole period and prints what the daemon measured, decided and placed. It stands still afterwards,
    while what it reads is changed.
    """
    mark = node.mark()
    node.signal(node.daemon, signal.SIGCONT)
    measured = node.wait_for(lambda: paths_of_a_period(node, mark), LIMIT_SECONDS, "a period")
    node.wait_idle()
    node.signal(node.daemon, signal.SIGSTOP)
    node.drain()
    print(f"\n=== {title}\n")
    print("  path      PHY rate  busy   quota")
    for record in measured:
        if found := PATH_LINE.match(record.text):
            name, util, quota, rate = found.groups()
            print(f"  {name:8}  {rate:>8}  {util:>3} %  {int(quota) / 100:5.1f} %")
    told = tables.follow(first_period(node.journal(mark)))
    print("\n" + "\n".join(f"  {line}" for line in told or ["nothing moves"]))


def story(node: Node, indexes: dict[str, int]) -> None:
    print(LEGEND)
    sample.add_state_files(node)
    node.write_file("/proc/stat", CALM_PROCESSOR)  # on a busy machine the daemon would spare the 2.4 GHz path
    tables = Tables(node, indexes)
    tables.write()
    set_utilisation(node, 50)
    node.start_daemon(sample.config(period=1))
    show_period(node, tables, "A calm period. Clients are pinned to the path with the most capacity")
    set_utilisation(node, 92)
    show_period(node, tables, "The 2.4 GHz channel gets busy. One hot period alone moves no stream")
    show_period(node, tables, "It stays busy. Now the streams leave the hot path, one a client and period at the most")
    set_utilisation(node, 35)
    show_period(node, tables, "The channel has recovered")
    node.signal(node.daemon, signal.SIGCONT)
