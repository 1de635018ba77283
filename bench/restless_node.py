"""A simulated node that never stays as it is: links, tables, files, interfaces and its bus change all the time."""
import json
import os
import random
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "platform/sim"))

from bus_client import BusClient  # noqa: E402
from kolt_node import Node, NodeError, fdb_entry, ha_entry, hd_entry, sample, wireless_event  # noqa: E402
from kolt_node.messages import mac_bytes, radio_stats, station_info  # noqa: E402
from kolt_node.state import LINK_FILES, NODE_DIR  # noqa: E402

JOURNAL = f"{NODE_DIR}/journal".lstrip("/")
STATION_EVENT, RECONFIGURE_EVENT, FLOW_REPORT = 5, 6, 5
EVENTS_A_ROUND = 10
CROWDS = (0, 1, 20, 128, 256)  # clients; with every one of them two streams
BIG_TABLE = 5200  # entries: more than a first fetch has room for
MODES = ("RE", "RE", "RE", "FAP", "RE", "HAP", "RE", "nonsense")
BROKER_ROUNDS, INTERFACE_ROUNDS, LOUD_ROUNDS = 250, 20, 100  # one round in so many


class RestlessNode(Node):
    """The sample node; change() makes it another one, and disturb() sends it a round of events."""

    def __init__(self, build: Path, seed: int) -> None:
        super().__init__(build)
        self._chance = random.Random(seed)
        self.sent = dict.fromkeys(("bus", "bridge", "neighbour", "route"), 0)
        self.calls = 0  # of the platform, as the stand-in libraries noted them
        self.restarts = 0

    def set_up(self) -> None:
        self.indexes = sample.set_up(self)
        self.write_file("/proc/stat", "cpu 100 0 100 800 0 0 0 0\n")
        self.start_broker()
        self._bus = BusClient(self)
        self._tables = [self._make_tables(crowd) for crowd in CROWDS]

    def close(self) -> str:
        if hasattr(self, "_bus"):
            self._bus.close()
        return super().close()

    def _make_tables(self, crowd: int) -> dict[str, bytes]:
        busy = self.indexes["wlan0.1"]
        macs = [f"02:30:00:00:{number >> 8:02x}:{number & 255:02x}" for number in range(crowd)]
        streams = [ha_entry(sample.CLIENTS[0], mac, busy, hash=number + offset, src_port=number, dst_port=443,
                            packets=1000, bytes_=1000000)
                   for number, mac in enumerate(macs) for offset in (0, 1024)]
        if crowd == CROWDS[-1]:
            streams += streams[:1] * (BIG_TABLE - len(streams))
        own = [fdb_entry(sample.BRIDGE_MACS["br-lan"], busy, local=True)]
        return {"fdb": b"".join(own + [fdb_entry(mac, busy) for mac in macs]),
                "hd": b"".join(hd_entry(mac, busy) for mac in macs), "ha": b"".join(streams)}

    def replace(self, path: str, data: bytes | str) -> None:
        """Writes a file straight through the node's root: a message for each would take most of the time."""
        content = data.encode() if isinstance(data, str) else data
        inside = path.lstrip("/")
        how = os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC
        with open(os.open(inside + ".new", how, 0o644, dir_fd=self.root_fd), "wb") as file:
            file.write(content)
        os.rename(inside + ".new", inside, src_dir_fd=self.root_fd, dst_dir_fd=self.root_fd)

    def change(self, turn: int) -> None:
        """What the daemon will find in this round, which it reads afresh."""
        chance = self._chance
        mode = MODES[turn // 8 % len(MODES)]
        self.replace("/tmp/work_mode", json.dumps({"work_mode": mode, "cap_mac": sample.CAP_MAC,
                                                   "parent_mac": sample.CAP_MAC}))
        for link, path in LINK_FILES.items():
            self.replace(path, json.dumps({"status": chance.choice((1, 1, 1, 0)), "cap_has_plc": 1,
                                           "rootap_mac": sample.ROOT_APS.get(link, "")}))
        for table, content in chance.choice(self._tables).items():
            self.replace(f"{NODE_DIR}/bridges/br-lan/{table}", content)
        for uplink, link in sample.UPLINKS.items():
            radio = uplink.split(".")[0]
            base = f"/proc/{radio}" if link == "2.4g" else f"/proc/net/rtk_wifi6/{radio}"
            station = {"mac": sample.ROOT_APS[link], "tx": chance.randrange(1, 2000), "rssi": chance.randrange(100)}
            self.replace(f"{base}/sta_info", station_info([station] * chance.randrange(17)))
            self.replace(f"{base}/stats", radio_stats(chance.randrange(110)))
        counters = [f"{name}: {f'{chance.randrange(1 << 32)} ' * 16}\n" for name in sample.PORTS]
        self.replace("/proc/net/dev", "".join(counters))
        self.replace("/proc/stat", f"cpu {100 * turn} 0 {chance.randrange(100 * turn + 1)} {900 * turn} 0 0 0 0\n")
        clients = sample.CLIENTS[:chance.randrange(len(sample.CLIENTS) + 1)]
        self.replace("/tmp/client_mgmt/ap_client_list", json.dumps([{"mac": mac.replace(":", "-")} for mac in clients]))
        self.replace("/etc/config/tolmux", f"config tolmux 'tolmux'\n\toption TrafficEthActive '{turn % 2}'\n"
                                           f"\toption TrafficPlcRoot '{turn % 3}'\n\toption eth_HasNeigh '0'\n")
        if turn % INTERFACE_ROUNDS == 0:
            self._exchange_interface(chance.choice(("wlan1.1", "wlan0-a", "eth1")))
        if turn % BROKER_ROUNDS == 0:
            self._restart_broker()

    def _exchange_interface(self, name: str) -> None:
        """It goes, and another of its name comes with another index; the bridge tells of the old one meanwhile."""
        self.remove_interface(name)
        self.indexes[name] = self.add_interface(name)
        self.set_bridge("br-lan", sample.PORTS)

    def _restart_broker(self) -> None:
        assert self.broker is not None
        self._bus.close()
        self.signal(self.broker, 15)
        self.wait_exit(self.broker)
        del self.processes[self.broker.pid]
        self.start_broker()
        self._bus = BusClient(self)
        self.restarts += 1

    def disturb(self, turn: int) -> None:
        """Ten events from all four sides."""
        chance = self._chance
        port = self.indexes[chance.choice(("wlan0.1", "eth0", "wlan0-b.1"))]
        host = mac_bytes(f"02:30:00:00:00:{chance.randrange(256):02x}")
        station = host + bytes([port & 255]) + bytes(5) + bytes([port >> 8]) + bytes(3)
        self.send_bridge_event(STATION_EVENT, station, count=3)
        self.send_bridge_event(RECONFIGURE_EVENT + turn % 3)
        self.send_neighbour(FLOW_REPORT, chance.randbytes(chance.randrange(80)), count=2)
        self.send_link_notification(self.indexes["wlan0-b"], wireless_event(), count=2)
        links = ("LINK_ETH", "LINK_PLC", "LINK_WIFI_2G", "LINK_WIFI_5G", "LINK_WIFI_5G_2")
        states = {name: chance.randrange(2) for name in chance.sample(links, chance.randrange(1, 6))}
        self._bus.send("kolt.link_state", states)
        other = (("kolt.configure", {"mode": MODES[turn % len(MODES)]}), ("kolt.hello", {"text": "x" * (turn % 3000)}),
                 ("kolt.debug", {"dbg_level": 3 if turn % LOUD_ROUNDS == 1 else 1}))
        self._bus.send(*other[turn % 3])
        for side, count in {"bridge": 4, "neighbour": 2, "route": 2, "bus": 2}.items():
            self.sent[side] += count

    def forget(self) -> None:
        """Counts the platform's calls and drops all records of them, which would fill the machine."""
        data = os.pread(self._journal_fd, 1 << 30, 0)
        self.calls += data.count(b"\n")
        os.truncate(f"/proc/self/fd/{self.root_fd}/{JOURNAL}", 0)
        self._log.clear()
        self.requests.clear()
        assert self.daemon is not None
        if any(word in self.daemon.stderr for word in ("AddressSanitizer", "runtime error:")):
            raise NodeError(self.daemon.stderr[-4000:])
        self.daemon.output["stderr"].clear()
