"""What a node shows of the model: every file that the daemon reads, read back from inside the node."""
import json
import os
import re
from collections.abc import Iterator

import pytest

from homes import home, path, stream
from kolt_node import Node, fdb_entry, hd_entry, sample
from kolt_sim.loop.files import Files
from kolt_sim.loop.publish import BRIDGE, BRIDGE_DIR, Publisher
from kolt_sim.loop.tables import client_mac
from kolt_sim.model.traffic import ACK_SHARE, MBIT
from kolt_sim.model.world import World
from kolt_sim.scenario.records import CpuEvent, LinkEvent, RateEvent

PERIOD = 5.0
ALL = [path("ethernet", 940), path("plc", 90), path("2.4g", 144, neighbours=25), path("5g", 866), path("5g_2", 1201)]
TWO = [path("5g", 800), path("5g_2", 1000)]  # 400 and 500 Mbit/s of capacity
CLIENTS = {"phone": "wlan1-a", "gateway": "uplink", "store": "uplink", "gone": "away"}
DRIVERS = {"2.4g": "/proc/wlan0", "5g": "/proc/net/rtk_wifi6/wlan1", "5g_2": "/proc/net/rtk_wifi6/wlan2"}
RUNTIME = {"ethernet": "/tmp/eth_runtime_info", "plc": "/tmp/plc_runtime_info", "2.4g": "/tmp/wifi_runtime_info.2g",
           "5g": "/tmp/wifi_runtime_info.5g", "5g_2": "/tmp/wifi_runtime_info.5g2"}
LOCAL = ["eth1", "wlan0-b.1", "wlan1-b.1", "wlan0-a", "wlan1-a"]


@pytest.fixture
def node() -> Iterator[Node]:
    with Node() as fresh:
        yield fresh


class Scene:
    """A home with its links and streams, shown on a node; a tick is a second."""

    def __init__(self, node: Node, streams=(), paths=TWO, events=(), **other) -> None:
        self.node = node
        self.world = World(home(list(paths), CLIENTS, list(streams), list(events), **other))
        self.world.begin(0.0)
        self.shown = Publisher(node, self.world, PERIOD)
        self.time = 0

    def tick(self, count: int = 1) -> None:
        """What the closed loop does with a tick, but for the daemon."""
        for _ in range(count):
            self.world.flow(1.0)
            self.time += 1
            happened = self.world.begin(float(self.time))
            if any(one.kind == "link" for one in happened):
                self.shown.publish_links()
            self.shown.publish(1.0)

    def program(self) -> None:
        """What loop avoidance does: one port carries broadcast, and streams are to be followed."""
        for name, port in self.world.bridge.ports.items():
            port.programmed, port.broadcast, port.needs_ha = True, name == self.world.links[-1].name, True
        self.world.bridge.follows = True

    def text(self, file: str) -> str:
        return self.node.read_file(file).decode()

    def status(self, kind: str) -> dict:
        return json.loads(self.text(RUNTIME[kind]))

    def ports(self) -> list[str]:
        return self.text(f"{BRIDGE_DIR}/ports").split()

    def options(self) -> dict[str, str]:
        found = re.findall(r"^\toption (\S+) '(.*)'$", self.text("/etc/config/tolmux"), re.MULTILINE)
        return dict(found)

    def stations(self, kind: str) -> list[dict[str, str]]:
        """The station table as the daemon takes it: the announced number, then a block a station."""
        first, *lines = self.text(f"{DRIVERS[kind]}/sta_info").splitlines()
        blocks: list[dict[str, str]] = []
        for line in lines:
            if "stat_info..." in line:
                blocks.append({})
            else:
                key, value = line.strip().split(": ")
                blocks[-1][key] = value.split()[-1]
        assert re.fullmatch(r"-- STA info table -- \(active: (\d+)\)", first)[1] == str(len(blocks))
        return blocks

    def busy(self, kind: str) -> int:
        return int(re.search(r"^ +ch_utilization: (\d+)$", self.text(f"{DRIVERS[kind]}/stats"), re.MULTILINE)[1])

    def counters(self) -> dict[str, list[int]]:
        """/proc/net/dev: received bytes and packets, sent bytes and packets, by interface."""
        lines = [line.split() for line in self.text("/proc/net/dev").splitlines()[2:]]
        assert all(len(words) == 17 and words[0].endswith(":") for words in lines)
        return {words[0][:-1]: [int(words[place]) for place in (1, 2, 9, 10)] for words in lines}

    def processor(self) -> tuple[int, int]:
        """Busy and idle time so far, as the daemon reads the first line of /proc/stat."""
        user, nice, system, idle, iowait, irq, softirq = self.processor_words()
        assert nice == system == iowait == irq == softirq == 0
        return user, idle

    def processor_words(self) -> list[int]:
        name, *words = self.text("/proc/stat").split()
        assert name == "cpu"
        return [int(word) for word in words[:7]]


# Radios

@pytest.mark.parametrize(("kind", "rate"), [("2.4g", "144"), ("5g", "866"), ("5g_2", "1201")])
def test_each_radio_has_its_access_point_at_the_link_s_rate(node, kind, rate):
    station, = Scene(node, paths=ALL).stations(kind)
    assert station["hwaddr"] == sample.ROOT_APS[kind].replace(":", "")
    assert (station["current_tx_rate"], station["current_rx_rate"], station["state"]) == (rate, rate, "1")


def test_a_radio_whose_link_is_down_has_no_station_and_an_idle_channel(node):
    scene = Scene(node, paths=[path("5g", 800), path("5g_2", 1000, up=False, neighbours=30)])
    assert (scene.stations("5g_2"), scene.busy("5g_2"), len(scene.stations("5g"))) == ([], 0, 1)


def test_a_radio_that_the_home_does_not_use_has_no_station(node):
    scene = Scene(node)
    assert (scene.stations("2.4g"), scene.busy("2.4g")) == ([], 0)


def test_the_station_goes_and_comes_with_the_link(node):
    scene = Scene(node, events=[LinkEvent(1, "5g", False), LinkEvent(2, "5g", True)])
    seen = []
    for _ in range(2):
        scene.tick()
        seen.append(len(scene.stations("5g")))
    assert seen == [0, 1]


def test_the_rate_is_told_in_whole_mbit(node):
    scene = Scene(node, events=[RateEvent(1, "5g", 433.6, 0)])
    scene.tick()
    assert scene.stations("5g")[0]["current_tx_rate"] == "434"


def test_a_busy_channel_is_told_with_the_neighbours_and_the_traffic(node):
    scene = Scene(node, [stream("s", "phone", "gateway", "small", 101)], [path("5g", 800, neighbours=25), TWO[1]])
    scene.tick()
    assert (scene.busy("5g"), scene.busy("5g_2")) == (50, 0)  # 25 % and 101 of 400 Mbit/s, rounded


def test_a_channel_is_never_busier_than_all_the_time(node):
    scene = Scene(node, [stream("s", "phone", "gateway", demand=5000)])
    scene.tick()
    assert scene.busy("5g") == 100


# Counters

def test_interface_counters_are_those_of_the_model(node):
    scene = Scene(node, [stream("s", "phone", "gateway", "download", 80), stream("t", "phone", "store", "upload", 40)],
                  paths=ALL[1:])
    scene.tick(3)
    inwards, outwards = 80 + ACK_SHARE * 40, 40 + ACK_SHARE * 80
    received, in_packets, sent, out_packets = scene.counters()["wlan1.1"]
    assert (received, sent) == (int(3 * inwards * MBIT), int(3 * outwards * MBIT))
    assert in_packets == pytest.approx(3 * (80 + 40 / 2) * MBIT / 1500, abs=1)
    assert out_packets == pytest.approx(3 * (40 + 80 / 2) * MBIT / 1500, abs=1)


def test_a_link_without_traffic_counts_nothing(node):
    scene = Scene(node, [stream("s", "phone", "gateway")], paths=ALL)
    scene.tick()
    counters = scene.counters()
    assert sorted(counters) == ["eth0", "plc0", "wlan0.1", "wlan1.1", "wlan2.1"]
    assert [name for name, words in counters.items() if any(words)] == ["eth0"]


def test_large_counters_keep_their_columns_apart(node):
    scene = Scene(node, [stream("s", "phone", "gateway", "small", 400)])
    scene.world.link_in[0] = scene.world.link_out[0] = 2.0 ** 52, 2.0 ** 40
    scene.tick()
    assert scene.counters()["wlan1.1"][0] == 2 ** 52 + int(200 * MBIT)


def test_the_processor_is_as_busy_as_the_model_says(node):
    scene = Scene(node, events=[CpuEvent(10, 95)], cpu=30)
    scene.tick(9)
    busy, idle = scene.processor()
    assert (busy, idle) == (270, 630)
    scene.tick(11)
    later_busy, later_idle = scene.processor()
    assert (later_busy - busy, later_idle - idle) == (30 + 10 * 95, 70 + 10 * 5)  # the tick from 9 to 10 was before


# Links

def test_each_link_has_its_state_file(node):
    scene = Scene(node, paths=[path("plc", 90), path("5g", 800, up=False), TWO[1]])
    assert {kind: scene.status(kind)["status"] for kind in RUNTIME} == {
        "ethernet": 0, "plc": 1, "2.4g": 0, "5g": 0, "5g_2": 1}


def test_a_state_file_says_what_the_daemon_asks_of_that_kind(node):
    scene = Scene(node, paths=ALL)
    assert {kind: scene.status(kind).get("rootap_mac") for kind in DRIVERS} == sample.ROOT_APS
    assert scene.status("plc")["cap_has_plc"] == 1
    assert scene.status("ethernet") == {"status": 1}


def test_a_state_file_follows_its_link(node):
    scene = Scene(node, paths=ALL, events=[LinkEvent(1, "plc", False), LinkEvent(2, "plc", True)])
    seen = []
    for _ in range(2):
        scene.tick()
        seen.append((scene.status("plc")["status"], "plc0" in scene.ports()))
    assert seen == [(0, False), (1, True)]


def test_ethernet_that_comes_and_goes_is_told_in_the_options(node):
    scene = Scene(node, paths=[path("ethernet", 940, up=False), *TWO],
                  events=[LinkEvent(1, "ethernet", True), LinkEvent(2, "ethernet", False)])
    seen = [scene.options()]
    for _ in range(2):
        scene.tick()
        seen.append(scene.options())
    assert [(one["TrafficEthActive"], one["eth_HasNeigh"]) for one in seen] == [("0", "0"), ("1", "1"), ("0", "0")]
    assert {(one["TrafficEthInterface"], one["TrafficPlcRoot"]) for one in seen} == {("eth0", "0")}


def test_a_wired_port_is_in_the_bridge_while_its_link_is_up(node):
    scene = Scene(node, paths=[path("ethernet", 940, up=False), *TWO],
                  events=[LinkEvent(1, "ethernet", True), LinkEvent(2, "ethernet", False)])
    seen = ["eth0" in scene.ports()]
    for _ in range(2):
        scene.tick()
        seen.append("eth0" in scene.ports())
    assert seen == [False, True, False]


def test_a_radio_s_port_stays_in_the_bridge_when_its_link_is_down(node):
    scene = Scene(node, paths=[path("2.4g", 144, up=False), path("5g_2", 1000)])
    assert scene.ports() == ["wlan0.1", "wlan2.1", *LOCAL]


# Tables

def test_the_forwarding_table_holds_everybody_at_the_right_port(node):
    scene = Scene(node)
    scene.tick()
    index = node.ifindex
    assert node.read_file(f"{BRIDGE_DIR}/fdb") == b"".join([
        fdb_entry(client_mac(0), index("wlan1-a")), fdb_entry(client_mac(1), index("wlan1.1")),
        fdb_entry(client_mac(2), index("wlan1.1")),
        fdb_entry(sample.BRIDGE_MACS[BRIDGE], index("br-lan"), local=True)])


def test_pinned_clients_are_in_the_table(node):
    scene = Scene(node)
    scene.world.bridge.pin_client(2, "wlan2.1", bytes(range(6)))
    scene.tick()
    expected = hd_entry(client_mac(2), node.ifindex("wlan2.1"), second=bytes(range(6)))
    assert node.read_file(f"{BRIDGE_DIR}/hd") == expected


def test_an_entry_of_a_stream_has_the_bytes_of_a_period(node):
    scene = Scene(node, [stream("s", "phone", "gateway", "download", 12)])
    scene.program()
    scene.tick(8)
    table = node.read_file(f"{BRIDGE_DIR}/ha")
    assert len(table) == 2 * 100
    second = 12 * MBIT
    assert int.from_bytes(table[100 + 64:100 + 68], "little") == pytest.approx(PERIOD * second, abs=1)
    assert int.from_bytes(table[64:68], "little") == pytest.approx(PERIOD * second * ACK_SHARE, abs=1)
    assert {int.from_bytes(table[at + 28:at + 32], "little") for at in (0, 100)} == {node.ifindex("wlan2.1")}


def test_a_link_change_alone_leaves_a_period_s_counters_alone(node):
    scene = Scene(node, [stream("s", "phone", "gateway", "download", 12)])
    scene.program()
    scene.tick(8)
    table = node.read_file(f"{BRIDGE_DIR}/ha")
    for _ in range(10):
        scene.shown.publish_links()
    scene.time += 1
    scene.world.begin(float(scene.time))
    scene.world.flow(1.0)
    scene.shown.publish(1.0)
    assert node.read_file(f"{BRIDGE_DIR}/ha")[164:168] == table[164:168]


def test_a_plain_bridge_has_no_streams_in_its_table(node):
    scene = Scene(node, [stream("s", "phone", "gateway")])
    scene.tick()
    assert node.read_file(f"{BRIDGE_DIR}/ha") == b""


def test_where_broadcast_comes_in_is_told(node):
    scene = Scene(node)
    assert json.loads(scene.text("/tmp/lanwatch_recv_dhcp_if")) == {"recv_dhcp_if": "wlan1.1"}
    scene.program()
    scene.tick()
    assert json.loads(scene.text("/tmp/lanwatch_recv_dhcp_if")) == {"recv_dhcp_if": "wlan2.1"}


# What stays

@pytest.mark.parametrize(("known", "parent"), [(True, sample.CAP_MAC), (False, None)])
def test_the_node_is_an_extender_that_knows_its_parent_or_not(node, known, parent):
    mode = json.loads(Scene(node, parent_known=known).text("/tmp/work_mode"))
    assert (mode["work_mode"], mode["cap_mac"], mode.get("parent_mac")) == ("RE", sample.CAP_MAC, parent)


def test_the_other_daemons_lists_are_there(node):
    scene = Scene(node)
    assert json.loads(scene.text("/tmp/sync-server/mesh_dev_list"))["cap"]["mac"] == sample.CAP_MAC
    assert json.loads(scene.text("/tmp/client_mgmt/ap_client_list")) == []
    assert json.loads(scene.text("/tmp/runtime_ip_info_lan"))["lan_gw"] == "192.168.0.1"
    assert node.read_file("/run/kolt-node/eth-names").split() == [b"eth0", b"eth1"]


def test_every_interface_that_is_named_exists(node):
    scene = Scene(node, paths=ALL)
    assert {name: node.ifindex(name) for name in ["br-lan", *scene.ports()]}.items() <= scene.shown.indexes.items()


# How it is written

def inodes(node: Node, files: list[str]) -> dict[str, int]:
    return {file: os.stat(file.lstrip("/"), dir_fd=node.root_fd).st_ino for file in files}


WRITTEN = [f"{DRIVERS[kind]}/{name}" for kind in ("5g", "5g_2") for name in ("sta_info", "stats")] + [
    "/proc/stat", "/proc/net/dev", "/etc/config/tolmux", "/tmp/lanwatch_recv_dhcp_if", *RUNTIME.values(),
    *(f"{BRIDGE_DIR}/{name}" for name in ("ports", "fdb", "hd", "ha"))]


def test_what_has_not_changed_is_not_written_again(node):
    scene = Scene(node)
    before = inodes(node, WRITTEN)
    scene.tick()
    scene.shown.publish_links()
    assert [file for file, inode in inodes(node, WRITTEN).items() if inode != before[file]] == ["/proc/stat"]


def test_what_has_changed_is_replaced_as_a_whole(node):
    scene = Scene(node, [stream("s", "phone", "gateway")], events=[RateEvent(1, "5g", 700, 0)])
    before = inodes(node, WRITTEN)
    scene.tick()
    assert {file for file, inode in inodes(node, WRITTEN).items() if inode != before[file]} == {
        "/proc/stat", "/proc/net/dev", f"{DRIVERS['5g']}/sta_info", f"{DRIVERS['5g']}/stats"}


def test_only_the_files_of_a_node_are_written(node, monkeypatch):
    touched = set()
    write = Files.write
    monkeypatch.setattr(Files, "write", lambda files, file, data: (touched.add(file), write(files, file, data)))
    scene = Scene(node, [stream("s", "phone", "gateway")], paths=ALL, events=[LinkEvent(1, "ethernet", False)])
    scene.tick(2)
    assert touched == {*WRITTEN, "/proc/wlan0/sta_info", "/proc/wlan0/stats"}


def test_no_unfinished_files_are_left(node):
    Scene(node, [stream("s", "phone", "gateway")]).tick(2)
    left = [name for directory in sorted({os.path.dirname(file) for file in WRITTEN} - {"/proc"})
            for name in node.list_directory(directory) if name.endswith(".new")]
    assert left == []
