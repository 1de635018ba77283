"""The daemon with a driver that has everything: a flow cache, its counters, and a word on how quiet a channel is."""
import struct
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
import scene
from kolt_node import Process, mac_bytes
from path_scene import CAP, HOSTS, HOT, PathNode
from test_path_periods import counters

DRIVER_DIR = "/run/kolt-node/driver"
MOVING, BALANCING = "path_selection_update_ha_entry", "path_selection_update_uplink_ha_table"
CHOOSING, STATISTICS = "path_selection_update_uplink_paths", "path_selection_update_uplink_path_stats"

# A flow whose hash is known to be 64. The cache gives addresses and ports in network order.
CLIENT, SERVER = "66:77:88:99:aa:bb", "00:11:22:33:44:55"
SRC_PORT, DST_PORT = 34835, 20480  # 5000 and 80, the octets exchanged


class DriverNode(PathNode):
    """A node with such a driver. Its files are what the driver answers and what it was asked."""
    _read = 0

    def start_daemon(self, *how: object, **named: object) -> Process:
        program = self.build / "bin/kolt-test-driver"
        assert program.exists(), "build the target kolt-test-driver"
        return super().start_daemon(*how, **({"binary": program} | named))

    def answer(self, operation: str, result: int) -> None:
        self.write_file(f"{DRIVER_DIR}/{operation}", f"{result}\n")

    def set_flows(self, *flows: str) -> None:
        self.write_file(f"{DRIVER_DIR}/flows", "".join(f"{flow}\n" for flow in flows))

    def driver_calls(self, *operations: str) -> list[str]:
        """What the driver was told since the last time, of these operations or all: "operation arguments = result"."""
        told = self.read_file(f"{DRIVER_DIR}/journal").decode().splitlines()
        new, self._read = told[self._read:], len(told)
        return [line for line in new if not operations or line.split(" ")[0] in operations]

    def forget_driver(self) -> None:
        self.remove_file(DRIVER_DIR)
        self.write_file(f"{DRIVER_DIR}/journal", "")
        self._read = 0


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[DriverNode]:
    with DriverNode(build) as fresh:
        yield fresh


@pytest.fixture
def node(shared: DriverNode) -> Iterator[DriverNode]:
    shared.forget_driver()
    yield from shared.lend()


def flow(node: DriverNode, index: int, *, client: str = CLIENT, port: str = "wlan0.1", bytes_: int = 1000000) -> str:
    """A cached flow to a client, by its number in the cache."""
    return (f"{SERVER} {client} 192.168.1.2 10.0.0.1 {SRC_PORT} {DST_PORT} 6 {node.ifindex(port)} {bytes_} 1000 "
            f"{index} 3 99")


def start(node: DriverNode, **param: object) -> None:
    """A daemon that measures nothing while the test lasts."""
    bridges = {"br-lan": {"loop_avoidance": True, "path_selection": True}}
    scene.start(node, paths.config(bridges=bridges, **({"period": 3600} | param)))


class TestFlowCacheStream:
    def hot_node(self, node: DriverNode) -> str:
        """The client is on the best path, its cached flow on the hot one. Returns the hot path's index."""
        paths.set_up(node)
        paths.add_hosts(node, [CLIENT], "wlan0.1", pinned="wlan2.1")
        node.set_load(load_2_4g=HOT)
        node.set_flows(flow(node, 77))
        return str(node.ifindex("wlan0.1"))

    @staticmethod
    def moved(old: str, *, set_: str = "success", flush: str = "success", index: int = 77) -> list[str]:
        address = CLIENT.upper()
        return [f"{MOVING}: Info: set ha entry {set_}, src_port: {SRC_PORT}, dst_port: {DST_PORT}, "
                f"dst_addr: {address}, old path: {old}, new path: wlan2.1",
                f"{MOVING}: Info: flush flow idx({index}) {flush}, src_port:{SRC_PORT}, dst_port:{DST_PORT}, "
                f"protocol: 6, dst_addr: {address},"]

    def test_is_hashed_anew_and_flushed_and_the_parent_is_told(self, node: DriverNode) -> None:
        """1000000 bytes are 15 units a second: 15 * 10000 / 1201 = 124 of the 8000 that the best path has left."""
        old = self.hot_node(node)
        node.begin()
        period = node.period()
        assert period.says(BALANCING, MOVING) == [
            f"{BALANCING}: Debug: ha[0]: hash: 0, src_port: {SRC_PORT}, dst_port: {DST_PORT}, port: {old}, "
            "num_bytes: 1000000, num_pkts: 1000, num_txbytes: 0, num_rxbytes: 0, estimated: 0, is_fcache: 1, "
            "flow_idx: 77",
            f"{BALANCING}: Debug: adjust_num: 1", *self.moved(old), f"{MOVING}: Info: send notify msg success",
            f"{BALANCING}: Info: ha_rate: 15, req_quota: 124, quota remain: 7876",
            f"{BALANCING}: Debug: adjust_real_count: 1"]
        assert period.find("bridgeSetHATableEntries") == [
            {"bridge": "br-lan", "hash": 64, "src": SERVER, "dst": CLIENT, "src_port": SRC_PORT, "dst_port": DST_PORT,
             "ifname": "wlan2.1", "stream_kind": 3, "carried_value": 99}]
        assert node.driver_calls("get_maximal_ha_entries_from_fcache", "flush_fcache_flow_entry") == [
            "get_maximal_ha_entries_from_fcache 1 20 4 = 1", "flush_fcache_flow_entry 77 = 1"]
        [request] = period.requests
        assert request[:6] == struct.pack("=IH", 48, 14)
        assert request[16:] == (mac_bytes(CAP) + bytes(2) + mac_bytes(SERVER) + mac_bytes(CLIENT)
                                + struct.pack("=HHIB3x", SRC_PORT, DST_PORT, 6, 4))

    def test_flush_alone_decides_whether_the_stream_has_moved(self, node: DriverNode) -> None:
        old = self.hot_node(node)
        node.answer("flush_fcache_flow_entry", 0)
        node.begin()
        period = node.period()
        assert period.says(MOVING) == self.moved(old, flush="failed")
        assert period.requests == []
        assert period.says(BALANCING)[1:] == [f"{BALANCING}: Debug: adjust_num: 1",
                                              f"{BALANCING}: Debug: adjust_real_count: 0"]
        node.answer("flush_fcache_flow_entry", 2)
        node.fail("bridgeSetHATableEntries", -1)
        period = node.period()
        assert period.says(MOVING) == [*self.moved(old, set_="failed"), f"{MOVING}: Info: send notify msg success"]
        assert len(period.requests) == 1
        assert period.says(BALANCING)[-1] == f"{BALANCING}: Debug: adjust_real_count: 1"

    def test_without_a_parent_nobody_is_told(self, node: DriverNode) -> None:
        old = self.hot_node(node)
        node.set_work_mode("RE")
        node.begin()
        period = node.period()
        assert period.says(MOVING) == self.moved(old)
        assert period.requests == []

    def test_stands_behind_the_streams_of_the_table_and_both_kinds_move(self, node: DriverNode) -> None:
        old = self.hot_node(node)
        node.set_flows(flow(node, 77), flow(node, 78, port="wlan2.1"), flow(node, 79, client=HOSTS[0]), flow(node, 80))
        node.set_table("br-lan", "ha", [paths.stream(node, 5, "wlan0.1", host=CLIENT)])
        node.begin(paths.config(adjusted_streams=9))
        period = node.period()
        assert period.ha() == [(5, "wlan2.1"), (64, "wlan2.1"), (64, "wlan2.1")]
        assert period.says(MOVING)[2:4] == self.moved(old)
        assert period.says(MOVING)[5:7] == self.moved(old, index=80)
        assert node.driver_calls("flush_fcache_flow_entry") == ["flush_fcache_flow_entry 77 = 1",
                                                                "flush_fcache_flow_entry 80 = 1"]
        assert period.says(BALANCING)[-1] == f"{BALANCING}: Debug: adjust_real_count: 3"

    def test_is_not_looked_for_in_a_calm_period(self, node: DriverNode) -> None:
        self.hot_node(node)
        node.set_load()
        node.begin()
        assert node.period().ha() == []
        assert node.driver_calls("get_maximal_ha_entries_from_fcache", "flush_fcache_flow_entry") == []


class TestPreferredBackhaul:
    """The best path is wlan2.1, whatever is preferred."""

    @pytest.mark.parametrize("prefered, quiet, threshold, target, asked", [
        pytest.param(2, 1, 4, "wlan1.1", [(866, 20, 1)], id="quiet"),
        pytest.param(2, 7, 865, "wlan1.1", [(866, 20, 7)], id="just-fast-enough"),
        pytest.param(2, 1, 866, "wlan2.1", [(866, 20, 1)], id="not-faster-than-the-threshold"),
        pytest.param(2, 0, 4, "wlan2.1", [(866, 20, 0)], id="noisy"),
        pytest.param(1, 1, 4, "wlan0.1", [(300, 20, 1)], id="2.4g"),
        pytest.param(4, 1, 4, "wlan2.1", [], id="no-such-path"),
        pytest.param(0, 1, 4, "wlan2.1", [], id="none"),
    ])
    def test_takes_every_client_while_its_channel_is_quiet(self, node: DriverNode, prefered: int, quiet: int,
                                                           threshold: int, target: str,
                                                           asked: list[tuple[int, int, int]]) -> None:
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:2], "wlan0.1")
        node.answer("is_5g_low_noise", quiet)
        node.begin(paths.config(backhual_prefered=prefered, rate_threshold=threshold))
        period = node.period()
        backhaul = prefered + 1 if prefered else 5
        qualifies = int(target != "wlan2.1")
        assert period.hd() == [(HOSTS[0], target), (HOSTS[1], target)]
        assert (f"{CHOOSING}: Debug: backhual: {backhaul}, prefered: {prefered}, is_prefered: {qualifies}"
                in period.lines)
        assert period.lines.count(f"{CHOOSING}: Debug: hd_path {target}, best path wlan2.1") == 2
        assert node.driver_calls("is_5g_low_noise") == [
            f"is_5g_low_noise {rate} {util} = {result}" for rate, util, result in asked]

    def test_streams_go_to_the_best_path_all_the_same(self, node: DriverNode) -> None:
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan1.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 7, "wlan0.1")])
        node.set_load(load_2_4g=HOT)
        node.begin(paths.config(backhual_prefered=2, rate_threshold=4))
        period = node.period()
        assert (period.hd(), period.ha()) == ([], [(7, "wlan2.1")])

    def test_absent_one_is_not_asked_about(self, node: DriverNode) -> None:
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1")
        node.set_link("5g", 0)
        node.begin(paths.config(backhual_prefered=2))
        assert node.period().hd() == [(HOSTS[0], "wlan2.1")]
        assert node.driver_calls("is_5g_low_noise") == []

    def test_limited_processor_makes_5g_the_candidate_whatever_is_preferred(self, node: DriverNode) -> None:
        """Of two choices the higher type leads when they are even, so a noisy period turns the clients at once."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:2], "wlan0.1")
        node.begin(paths.config(backhual_prefered=3, cpu_limit=True), level=3)
        rings = []
        for quiet, target in [(1, "wlan1.1"), (0, "wlan2.1"), (1, "wlan1.1")]:
            node.answer("is_5g_low_noise", quiet)
            period = node.period()
            assert period.hd() == [(HOSTS[0], target), (HOSTS[1], target)]
            assert f"{CHOOSING}: Debug: backhual: 4, prefered: 3, is_prefered: {quiet}" in period.lines
            rings += [line.split("hd samples: ")[1] for line in period.lines if "hd samples: " in line]
        assert rings == [", ".join([*"343"[:number], *"5" * (20 - number)]) for number in (1, 2, 3)]
        assert node.driver_calls("is_5g_low_noise") == [f"is_5g_low_noise 1201 20 = {quiet}" for quiet in (1, 0, 1)]


class TestCachedTraffic:
    def test_is_added_to_what_the_kernel_counted(self, node: DriverNode) -> None:
        """
        The kernel saw 1400 bytes in 1 packet come and 100 go in 1, the cache 418600 bytes in 299 and 5900 in 99: 3
        packets of 1400 bytes for each. The stream of small packets grows to 1000 * 3 * 1400 bytes.
        """
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 1, "wlan0.1", bytes_=60000, packets=1000)])
        node.set_load(load_2_4g=HOT)
        node.write_file("/proc/net/dev", counters({"wlan0.1": (1400, 1, 100, 1)}))
        indexes = [node.ifindex(name) for name in ("wlan0.1", "wlan1.1", "wlan2.1")]
        node.write_file(f"{DRIVER_DIR}/counters", f"{indexes[0]} 299 418600 99 5900\n{indexes[2]} 0 30 0 12\n")
        node.begin(paths.config(estimate_ack_enable=True))
        period = node.period()
        assert period.says(STATISTICS) == [
            f"{STATISTICS}: Debug: path: wlan0.1, diff_rx_bytes: 420000, diff_tx_bytes: 6000",
            f"{STATISTICS}: Debug: path: wlan1.1, diff_rx_bytes: 0, diff_tx_bytes: 0",
            f"{STATISTICS}: Debug: path: wlan2.1, diff_rx_bytes: 30, diff_tx_bytes: 12"]
        assert node.driver_calls("get_if_stat_from_fcache") == [
            f"get_if_stat_from_fcache {index} = 1" for index in indexes]
        [stream] = [line for line in period.says(BALANCING) if "ha[0]" in line]
        assert "num_bytes: 4200000," in stream and "estimated: 1" in stream
        assert f"{BALANCING}: Info: ha_rate: 65, req_quota: 541, quota remain: 7459" in period.lines
        [line] = [line for line in node.period().lines if "init_path_quota" in line and "wlan0.1" in line]
        assert "rx_tx_factor: 3, rx_pkt_size: 1400, rx_selected: 1," in line

    def test_cached_stream_of_small_packets_is_estimated_too(self, node: DriverNode) -> None:
        paths.set_up(node)
        paths.add_hosts(node, [CLIENT], "wlan0.1", pinned="wlan2.1")
        node.set_load(load_2_4g=HOT)
        node.set_flows(flow(node, 5, bytes_=60000))
        node.write_file("/proc/net/dev", counters({"wlan0.1": (1400, 1, 100, 1)}))
        node.begin(paths.config(estimate_ack_enable=True))
        [stream] = [line for line in node.period().says(BALANCING) if "ha[0]" in line]
        assert "num_bytes: 1400000," in stream and "estimated: 1, is_fcache: 1" in stream


class TestFlushes:
    REPORT = mac_bytes(SERVER) + mac_bytes(CLIENT) + struct.pack("=HHIB", 5000, 80, 17, 3)

    def test_mode_is_configured_with_the_bridges(self, node: DriverNode) -> None:
        """Once each time, before the first bridge, also where no bridge is there."""
        paths.set_up(node)
        start(node)
        assert node.driver_calls() == ["configure_fc_mode 0 = 1"]
        for mode, code in [("FAP", 1), ("HAP", 2), ("RE", 0)]:
            node.event("kolt.configure", {"mode": mode})
            assert node.driver_calls("configure_fc_mode") == [f"configure_fc_mode {code} = 1"]
        node.answer("configure_fc_mode", 0)
        node.set_work_mode("HAP")
        for number in (6, 7):
            node.send_bridge_event(number)
            node.wait_idle()
            assert node.driver_calls() == ["configure_fc_mode 2 = 0", "flush_all_fcache_flow = 1"]
        node.deactivate_bridge("br-lan")
        node.send_bridge_event(6)
        node.wait_idle()
        assert node.driver_calls("configure_fc_mode") == ["configure_fc_mode 2 = 0"]

    @pytest.mark.parametrize("states, reconfigured", [
        pytest.param({"LINK_WIFI_5G": 1}, False, id="a-link"), pytest.param({"LINK_PLC": 0}, False, id="no-link"),
        pytest.param({"LINK_ETH": 1}, True, id="ethernet")])
    def test_link_change_flushes_every_flow_once_for_each_module(self, node: DriverNode, states: dict[str, int],
                                                                  reconfigured: bool) -> None:
        paths.set_up(node)
        start(node)
        node.driver_calls()
        begin = scene.mark(node)
        node.event("kolt.link_state", states)
        node.wait_calls("bridgeFlushHATable", since=begin, count=2)
        node.wait_idle()
        flush = "flush_all_fcache_flow = 1"
        assert node.driver_calls() == [flush, *["configure_fc_mode 0 = 1"] * reconfigured, flush]

    def test_station_event_flushes_the_flows_of_its_mac(self, node: DriverNode) -> None:
        paths.set_up(node)
        start(node)
        node.set_log_level(2)
        node.driver_calls()
        begin = scene.mark(node)
        station = mac_bytes(CLIENT) + bytes([1]) + bytes(5) + bytes([0]) + bytes(3)
        for result in (1, -3):
            node.answer("flush_fc_flow_by_mac", result)
            node.send_bridge_event(5, station)
            node.wait_idle()
            assert node.driver_calls() == [f"flush_fc_flow_by_mac {CLIENT} 0 = {result}"]
        said = [line for line in scene.lines(node, begin) if "flush fc flow" in line]
        assert said == [f"loop_avoidance_event_cb: Debug: flush fc flow by mac: {CLIENT.upper()}"] * 2
        node.send_bridge_event(5, station[:12])
        node.send_bridge_event(4, station)
        node.wait_idle()
        assert node.driver_calls() == []

    def test_flow_report_flushes_the_opposite_direction(self, node: DriverNode) -> None:
        paths.set_up(node)
        start(node)
        node.driver_calls()
        begin = scene.mark(node)
        node.send_neighbour(4, self.REPORT)
        node.wait_idle()
        assert node.driver_calls() == [f"flush_fc_flow_by_ha {CLIENT} {SERVER} 80 5000 17 0 3 = 0"]
        assert [record.text for record in node.log(begin, function="path_selection_event_cb")] == [
            "sa: 00:11:22:33:44:55, da:66:77:88:99:AA:BB, src_port: 5000, dst_port:80, protocol:17, type:3"]
        node.send_neighbour(4, self.REPORT[:-1])
        node.send_neighbour(3, self.REPORT)
        node.wait_idle()
        assert node.driver_calls() == []
