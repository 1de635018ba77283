"""One bridge, period by period: what is measured, when streams may move, and what follows the links and their loads."""
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
from path_scene import CAP, HOSTS, HOT, LOCAL, ROOM, PathNode

CLIENT = "path_selection_update_uplink_paths: Debug: client: {}, ifname:wlan0.1, relay:norelay"
CHOSEN = "path_selection_update_uplink_paths: Debug: hd_path {}, best path {}"
ADDED = "path_selection_update_uplink_hd_table: Info: add hd client: {} to {} {}"
MOVED = "path_selection_update_ha_entry: Info: set ha entry {}, src_port: {}, dst_port: 443, client mac: {}, " \
        "old path: {}, new path: {}"
MAYBE = "path_selection_get_wlan_path_info: Debug: path: {} maybe disconnected"
HA_FUNCTIONS = ("path_selection_update_uplink_ha_table", "path_selection_update_ha_entry")


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[PathNode]:
    yield from paths.lend(build)


@pytest.fixture
def node(shared: PathNode) -> Iterator[PathNode]:
    yield from shared.lend()


def measured(name: str, rate: int, *, util: int = ROOM, quota: int = 8000, factor: int = 0, size: int = 0,
             received: int = 0, processed: int | None = None) -> str:
    return (f"path_selection_init_path_quota: Info: path: {name}, util: {util}, util_adjustment: 0, "
            f"adjusted_util: {util}, quota: {quota}, rx_tx_factor: {factor}, rx_pkt_size: {size}, "
            f"rx_selected: {received}, tx_rate: {rate}, rx_rate: {rate}, "
            f"processed_rate: {rate if processed is None else processed}")


def read_rate(radio: str, rate: int) -> str:
    return f"wlan_get_uplink_rate_rtk: Info: ifname: {radio}, txrate: {rate}, rxrate: {rate}, rssi: 40"


def upper(mac: str) -> str:
    return mac.upper()


class TestCalmNode:
    def test_clients_are_pinned_to_the_best_path_and_no_stream_is_looked_at(self, node: PathNode) -> None:
        """The first host is on the best path already. What is read of the drivers comes first for all links."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:3], "wlan0.1")
        node.set_table("br-lan", "hd", [paths.hd_entry(HOSTS[0], node.ifindex("wlan2.1"))])
        node.set_table("br-lan", "ha", [paths.stream(node, 1, "wlan0.1")])
        node.begin(env=paths.watch_reads(node))
        paths.take_reads(node)
        period = node.period()
        assert period.codes() == [2, 1]
        assert [(args["capacity"], args["entries"]) for args in period.find("bridgeTableAction")] == [
            (5000, 3), (5000, 1)]
        assert period.hd() == [(HOSTS[1], "wlan2.1"), (HOSTS[2], "wlan2.1")]
        assert {args["second_mac"] for args in period.find("bridgeAddHDTableEntries")} == {paths.bridge_mac(0)}
        assert period.ha() == []
        assert period.requests == []
        assert period.lines == [
            *[read_rate(radio, paths.RATES[kind]) for kind, radio in paths.RADIOS.items()],
            *[measured(f"{radio}.1", paths.RATES[kind]) for kind, radio in paths.RADIOS.items()],
            "path_selection_update_uplink_paths: Debug: backhual: 5, prefered: 0, is_prefered: 0",
            CLIENT.format(upper(HOSTS[0])), CHOSEN.format("wlan2.1", "wlan2.1"),
            CLIENT.format(upper(HOSTS[1])), CHOSEN.format("wlan2.1", "wlan2.1"),
            ADDED.format(upper(HOSTS[1]), "wlan2.1", "success"),
            CLIENT.format(upper(HOSTS[2])), CHOSEN.format("wlan2.1", "wlan2.1"),
            ADDED.format(upper(HOSTS[2]), "wlan2.1", "success")]
        tables = ["/proc/wlan0/{}", "/proc/net/rtk_wifi6/wlan1/{}", "/proc/net/rtk_wifi6/wlan2/{}"]
        assert paths.take_reads(node) == [*[table.format("sta_info") for table in tables],
                                          *[table.format(file) for table in tables for file in ("sta_info", "stats")]]


class TestAdjusting:
    def test_streams_move_only_when_the_period_before_was_adjusting_too(self, node: PathNode) -> None:
        """The state starts as if one had been: the first period moves at once. All links hot is not adjusting."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 7, "wlan0.1")])
        node.begin()
        full = {"load_2_4g": HOT, "load_5g": HOT, "load_5g_2": HOT - 10}
        loads = [({"load_2_4g": HOT}, True, True), ({}, False, False), (full | {"load_5g_2": HOT - 11}, True, False),
                 ({"load_2_4g": HOT}, True, True), (full, False, False)]
        lighter = ["path 2 util: 90, path 3 util: 20", "", "path 2 util: 90, path 4 util: 79",
                   "path 2 util: 90, path 3 util: 20", ""]
        for number, (load, adjusting, moving) in enumerate(loads):
            node.set_load(**load)
            period = node.period()
            assert period.codes() == [2, 1] + [8] * adjusting, number
            assert period.hd() == [], number
            assert period.ha() == [(7, "wlan2.1")] * moving, number
            assert len(period.requests) == moving, number
            assert period.says("path_selection_check_paths_full_load") == [
                f"path_selection_check_paths_full_load: Debug: {lighter[number]}"] * adjusting, number
            assert bool(period.says(*HA_FUNCTIONS)) == moving, number
            if moving:
                assert period.says(*HA_FUNCTIONS) == self.report(node), number

    @staticmethod
    def report(node: PathNode) -> list[str]:
        """1000000 bytes are 15 units a second: 15 * 10000 / 1201 = 124 of the 8000 that the best path has left."""
        table, entry = "path_selection_update_uplink_ha_table: ", "path_selection_update_ha_entry: "
        index = node.ifindex("wlan0.1")
        return [f"{table}Debug: ha[0]: hash: 7, src_port: 7, dst_port: 443, port: {index}, num_bytes: 1000000, "
                "num_pkts: 1000, num_txbytes: 0, num_rxbytes: 0, estimated: 0, is_fcache: 0, flow_idx: 0",
                f"{table}Debug: adjust_num: 1",
                MOVED.format("success", 7, upper(HOSTS[0]), index, "wlan2.1"),
                f"{entry}Info: send notify msg success",
                f"{table}Info: ha_rate: 15, req_quota: 124, quota remain: 7876",
                f"{table}Debug: adjust_real_count: 1"]

    def test_each_client_moves_as_many_streams_as_allowed_and_as_fit(self, node: PathNode) -> None:
        """
        Half of the best path's room counts. A stream on the best path stays, one that fits the rest no more is passed
        over, and the order is that of the bytes. Every move is told to the parent.
        """
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:2], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [
            paths.stream(node, 1, "wlan0.1", bytes_=100000000),
            paths.stream(node, 2, "wlan0.1", bytes_=80000000, kind=1),
            paths.stream(node, 3, "wlan2.1", bytes_=70000000), paths.stream(node, 4, "wlan0.1", bytes_=9000000),
            paths.stream(node, 5, "wlan0.1", bytes_=1000000), paths.stream(node, 6, "wlan0.1", bytes_=60000),
            paths.stream(node, 9, "wlan0.1", host=HOSTS[1], bytes_=2000000, carried=77)])
        node.set_load(load_2_4g=HOT)
        node.begin(paths.config(adjusted_streams=3))
        period = node.period()
        # 100000000 bytes: 1562 units, 13005 of 8000; 80000000: 1250, 10407; 9000000: 140, 1165; 2000000: 31, 258.
        # The budget of 4000 is overdrawn by the first one, so that one stream may move: the first that fits.
        assert period.ha() == [(4, "wlan2.1"), (9, "wlan2.1")]
        assert [line for line in period.says(HA_FUNCTIONS[0]) if "ha[" not in line] == [
            f"{HA_FUNCTIONS[0]}: {text}" for text in
            ["Debug: adjust_num: 1", "Info: ha_rate: 140, req_quota: 1165, quota remain: 6835",
             "Debug: adjust_real_count: 1",
             "Debug: adjust_num: 1", "Info: ha_rate: 31, req_quota: 258, quota remain: 6577",
             "Debug: adjust_real_count: 1"]]
        last = period.find("bridgeSetHATableEntries")[1]
        assert (last["src"], last["dst"], last["src_port"], last["dst_port"], last["stream_kind"],
                last["carried_value"]) == (LOCAL, HOSTS[1], 9, 443, 0, 77)
        mac = bytes.fromhex(CAP.replace(":", ""))
        ends = [bytes.fromhex((LOCAL + host).replace(":", "")) for host in HOSTS[:2]]
        assert [request[16:] for request in period.requests] == [
            mac + bytes(2) + ends[0] + bytes([4, 0, 187, 1, 6, 0, 0, 0, 4, 0, 0, 0]),
            mac + bytes(2) + ends[1] + bytes([9, 0, 187, 1, 6, 0, 0, 0, 4, 0, 0, 0])]
        assert [request[:16] for request in period.requests] == [
            bytes([48, 0, 0, 0, 14, 0, 0, 0]) + bytes(4) + node.daemon.pid.to_bytes(4, "little")] * 2

    def test_parent_that_never_answers_costs_a_second_and_one_that_is_unknown_is_not_told(self, node: PathNode) -> None:
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 7, "wlan0.1")])
        node.set_load(load_2_4g=HOT)
        node.begin()
        node.answer_requests(silent=True)
        period = node.period()
        assert [line for line in period.lines if "notify" in line] == [
            "path_selection_update_ha_entry: Info: send notify msg failed"]
        assert period.lines[-2:] == [
            "path_selection_update_uplink_ha_table: Info: ha_rate: 15, req_quota: 124, quota remain: 7876",
            "path_selection_update_uplink_ha_table: Debug: adjust_real_count: 1"]
        [sent] = [entry["time"] for entry in period.calls if entry["call"] == "sendto"]
        records = {record.text: record.time for record in node.log()}
        assert 1_000_000_000 <= records["send notify msg failed"] - sent < 3_000_000_000
        node.set_work_mode("RE")
        period = node.period()
        assert (period.ha(), period.requests) == ([(7, "wlan2.1")], [])
        assert [line for line in period.lines if "notify" in line] == []
        node.set_work_mode("RE", parent_mac=CAP)
        node.fail("socket:52", 23)
        period = node.period()
        assert period.ha() == [(7, "wlan2.1")]
        assert period.says("kolt_netlink_msg", "path_selection_update_ha_entry")[-2:] == [
            "kolt_netlink_msg: Error: netlink socket create failed\n",
            "path_selection_update_ha_entry: Info: send notify msg failed"]


class TestLinks:
    def test_slow_5g_is_abnormal_only_behind_a_healthy_2_4g(self, node: PathNode) -> None:
        """The order is that of the bridge's ports. A path that looks broken gets nobody, and its streams are let go."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1")
        node.begin()
        paths.set_radio(node, "wlan1", "5g", 12, ROOM)
        paths.set_radio(node, "wlan2", "5g_2", 13, ROOM)
        said = "path_selection_get_wlan_path_info: Info: path: {} tx:{} rx:{} abnormal, not choose"
        period = node.period()
        assert [entry["args"] for entry in period.calls if entry["call"] == "bridgeFlushHATable"] == [
            {"bridge": "br-lan"}]
        assert period.says("path_selection_get_wlan_path_info") == [said.format("wlan1.1", 12, 12)]
        assert measured("wlan1.1", 0) in period.lines
        assert period.hd() == [(HOSTS[0], "wlan0.1")]
        paths.set_radio(node, "wlan0", "2.4g", 12, ROOM)
        node.fail("bridgeFlushHATable")
        period = node.period()
        assert period.find("bridgeFlushHATable") == []
        assert period.says("path_selection_get_wlan_path_info") == []
        # The history of the 2.4 GHz path is 300 and 12, of which the first stands for it.
        assert measured("wlan0.1", 12, processed=300) in period.lines
        node.set_bridge("br-lan", ["wlan2.1", "wlan0.1", "wlan1.1"])
        paths.set_radio(node, "wlan0", "2.4g", 13, ROOM)
        paths.set_radio(node, "wlan2", "5g_2", 12, ROOM)
        period = node.period()
        assert len(period.find("bridgeFlushHATable")) == 1
        assert period.says("path_selection_get_wlan_path_info") == [said.format("wlan1.1", 12, 12)]
        assert measured("wlan2.1", 12, processed=13) in period.lines
        assert measured("wlan1.1", 12, processed=0) in period.lines

    def test_link_that_goes_down_loses_its_clients_and_gets_them_back(self, node: PathNode) -> None:
        """A link whose driver has no station is lost as well, and says so; one without any statistics is no path."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1")
        node.begin()
        assert node.period().hd() == [(HOSTS[0], "wlan2.1")]
        node.set_link("5g_2", 0)
        node.set_driver_files("wlan0", "2.4g", [], ROOM)
        period = node.period()
        assert period.hd() == [(HOSTS[0], "wlan1.1")]
        assert period.lines[:2] == [MAYBE.format("wlan0.1"), read_rate("wlan1", 866)]
        assert [line.split(",")[0] for line in period.says("path_selection_init_path_quota")] == [
            "path_selection_init_path_quota: Info: path: wlan1.1"]
        node.remove_file("/tmp/wifi_runtime_info.5g")
        period = node.period()
        assert period.hd() == []
        assert period.lines == [
            MAYBE.format("wlan0.1"), "kolt_check_link_state: Debug: parse link state /tmp/wifi_runtime_info.5g",
            "path_selection_update_uplink_paths: Debug: backhual: 5, prefered: 0, is_prefered: 0",
            CLIENT.format(upper(HOSTS[0]))]
        node.set_link("5g_2", 1)
        assert node.period().hd() == [(HOSTS[0], "wlan2.1")]


class TestChoice:
    def test_driver_table_calls_no_channel_quiet_so_no_backhaul_is_ever_preferred(self, node: PathNode) -> None:
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1")
        node.begin(paths.config(backhual_prefered=2, rate_threshold=4))
        period = node.period()
        assert "path_selection_update_uplink_paths: Debug: backhual: 3, prefered: 2, is_prefered: 0" in period.lines
        assert period.hd() == [(HOSTS[0], "wlan2.1")]

    def test_majority_of_the_choices_leads_and_a_busy_node_holds_its_clients(self, node: PathNode) -> None:
        """5g_2, 5g, 5g: the tie goes to the higher one, then the majority turns, for the second client as well."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:2], "wlan0.1")
        node.write_file("/proc/net/dev", counters({}))
        node.begin(paths.config(cpu_limit=True, estimate_ack_enable=True), level=3)
        rings = []
        for number, target in enumerate(["wlan2.1", "wlan2.1", "wlan1.1"]):
            node.set_load(load_5g_2=ROOM if number == 0 else 65)
            period = node.period()
            assert period.hd() == [(HOSTS[0], target), (HOSTS[1], target)], number
            rings += [line for line in period.lines if "hd samples" in line]
            sums = [line for line in period.lines if "data rate of sample" in line]
            assert sums == [f"path_selection_is_high_data_rate: Dump: data rate of sample[{slot}] is: 0"
                            for slot in range(5)] * 2
        shown = "path_selection_find_hd_port: Dump: hd samples: "
        assert rings == [shown + ", ".join([*"433"[:number], *"5" * (20 - number)]) for number in (1, 2, 3)]
        # In an adjusting period the counters are read, before any client is placed.
        for number, (total, added, busy) in enumerate([(3000000, 3000000, False), (6000001, 3000001, True),
                                                       (6000001, 0, False)]):
            node.set_load(load_2_4g=HOT, load_5g_2=65)
            node.write_file("/proc/net/dev", counters({"wlan0.1": (total - 100, 10, 100, 10)}))
            period = node.period()
            assert period.hd() == ([] if busy else [(host, "wlan1.1") for host in HOSTS[:2]]), number
            sums = [added] if busy else [added, 0, 0, 0, 0]  # the period before is overwritten, not moved on
            assert period.says("path_selection_is_high_data_rate") == [
                f"path_selection_is_high_data_rate: Dump: data rate of sample[{slot}] is: {total}"
                for slot, total in enumerate(sums)] * 2, number


def counters(values: dict[str, tuple[int, int, int, int]]) -> str:
    """The kernel's table: bytes and packets received, then sent."""
    text = "Inter-|   Receive\n face |bytes\n"
    for name in ["wlan0.1", "wlan1.1", "wlan2.1"]:
        received, received_packets, sent, sent_packets = values.get(name, (0, 0, 0, 0))
        text += f"{name}: {received} {received_packets} 0 0 0 0 0 0 {sent} {sent_packets} 0 0 0 0 0 0\n"
    return text


class TestAcknowledgements:
    def test_small_packets_weigh_as_much_as_the_traffic_that_they_answer(self, node: PathNode) -> None:
        """
        The first reading counts from 0; the second sees 300 packets of 1400 bytes received for each 100 sent. A
        stream of 1000 packets is then worth 1000 * 3 * 1400 bytes, and overtakes nothing: the order stays.
        """
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [
            paths.stream(node, 1, "wlan0.1", bytes_=200000, packets=1000),  # on average 200 bytes: no longer small
            paths.stream(node, 2, "wlan0.1", bytes_=60000, packets=1000),
            paths.stream(node, 3, "wlan2.1", bytes_=59000)])
        node.set_load(load_2_4g=HOT)
        node.write_file("/proc/net/dev", counters({"wlan0.1": (0, 0, 5000, 10)}))
        node.begin(paths.config(estimate_ack_enable=True, adjusted_streams=5))
        stats = "path_selection_update_uplink_path_stats: "
        period = node.period()
        assert period.says(stats[:-2]) == [
            f"{stats}Debug: path: {name}, diff_rx_bytes: 0, diff_tx_bytes: {sent}"
            for name, sent in (("wlan0.1", 5000), ("wlan1.1", 0), ("wlan2.1", 0))]
        assert period.ha() == [(1, "wlan2.1")]
        node.write_file("/proc/net/dev", counters({"wlan0.1": (420000, 300, 11000, 110)}))
        period = node.period()
        assert period.says(stats[:-2])[0] == f"{stats}Debug: path: wlan0.1, diff_rx_bytes: 420000, diff_tx_bytes: 6000"
        seen = [line.split("num_bytes: ")[1].split(",")[0] + line[line.index(", estimated"):line.index(", is_fc")]
                for line in period.lines if "ha[" in line]
        assert seen == ["200000, estimated: 0", "4200000, estimated: 1", "59000, estimated: 0"]
        # 200000 bytes: 3 units, 24 of 10000; 4200000: 65, 541.
        assert period.ha() == [(1, "wlan2.1"), (2, "wlan2.1")]
        assert "path_selection_update_uplink_ha_table: Info: ha_rate: 65, req_quota: 541, quota remain: 7435" \
            in period.lines
        # A path whose counters cannot be read ends the statistics, and nothing is estimated.
        node.write_file("/proc/net/dev", "wlan0.1: 420000 300 0 0 0 0 0 0 11000 110\n")
        period = node.period()
        assert period.says(stats[:-2]) == [f"{stats}Debug: path: wlan0.1, diff_rx_bytes: 0, diff_tx_bytes: 0",
                                           f"{stats}Error: get wlan1.1 stat failed"]
        assert not any("estimated: 1" in line for line in period.lines)
        assert measured("wlan0.1", 300, util=HOT, quota=1000, factor=3, size=1400, received=1) in period.lines
