"""The link-state event: what is stored and said, when the bridge is programmed anew, and the pauses in between."""
import signal
import time

from kolt_node import Mark, Node
import scene

SECOND = 1_000_000_000
FUNCTION = "event_ubus_receive_link_state"
PROGRAMMED = ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 0",
              *scene.port("br-lan wlan1.1", 3, compat=4, relay=0, bcast=1, path=1, needha=1),
              *scene.port("br-lan wlan0-b.1", 2, compat=5, relay=1, bcast=1, bcast_class=1, path=1)]
REAPPLIED = ["SetIFBroadcast br-lan wlan1.1 1", "SetIFBroadcast br-lan wlan0-b.1 1", "FlushHATable br-lan"]
RECONFIGURED = "loop_avoidance_event_cb: Info: reconfig bridge"


def set_up(node: Node, *, level: int = 1) -> None:
    scene.set_up(node, ["wlan1.1", "wlan0-b.1"])
    scene.start(node, level=level)


def hub_lines(node: Node, begin: Mark) -> list[str]:
    return [line.removeprefix(f"{FUNCTION}: ") for line in scene.lines(node, begin) if line.startswith(FUNCTION)]


def send(node: Node, attributes: dict) -> Mark:
    begin = scene.mark(node)
    node.event("kolt.link_state", attributes)
    return begin


def times(node: Node, begin: Mark) -> tuple[int, int]:
    """Of the first broadcast permission and of the last flush."""
    return (node.journal(begin, "bridgeSetIFBroadcast")[0]["time"],
            node.journal(begin, "bridgeFlushHATable")[-1]["time"])


class TestReconfigureFlag:
    def test_only_a_change_of_the_ethernet_state_programs_the_bridge_anew(self, node: Node) -> None:
        """Whatever the event says, the bridge has its broadcast permissions at once and is flushed a second later."""
        set_up(node)
        for attributes, changed in (({"LINK_ETH": 0, "LINK_PLC": 1}, False), ({"LINK_ETH": 1}, True),
                                    ({"LINK_ETH": 1}, False), ({"LINK_WIFI_5G": 0, "LINK_PLC": 1}, False),
                                    ({"LINK_ETH": -1}, True)):
            begin = send(node, attributes)
            assert scene.loop_requests(node, begin) == (PROGRAMMED if changed else []) + REAPPLIED, attributes
            assert scene.lines(node, begin) == ([RECONFIGURED] if changed else []), attributes
            permitted, flushed = times(node, begin)
            assert permitted - node.journal(begin)[0]["time"] < SECOND
            assert SECOND <= flushed - permitted < 2 * SECOND


class TestLog:
    def test_states_are_logged_in_a_fixed_order_and_as_signed_numbers(self, node: Node) -> None:
        set_up(node, level=2)
        begin = send(node, {"LINK_ETH": 2147483647, "LINK_PLC": 3, "LINK_WIFI_5G_2": -1, "LINK_WIFI_5G": 0,
                            "LINK_WIFI_2G": 2})
        assert hub_lines(node, begin) == [
            "Debug: link_state parse ", "Debug: wifi 2g state 2", "Debug: wifi 5g state 0", "Debug: wifi 5g2 state -1",
            "Debug: eth state 2147483647", "Debug: eth link state change, need_reconfig", "Debug: plc state 3"]
        picks = ["loop_avoidance_pick_bcast_nonrelay_port: Debug: Pick wlan1.1 as broadcast nonrelay port!"]
        operation = "loop_avoidance_configure_bridge_with_mode: Debug: "
        assert scene.lines(node, begin)[7:] == [
            RECONFIGURED, f"{operation}configure duon bridge with mode RE", *picks,
            f"{operation}bcast_port_0 is wlan1.1", f"{operation}bcast_port_1 is (null)", *picks]

    def test_attributes_of_a_wrong_type_are_missing(self, node: Node) -> None:
        set_up(node, level=2)
        begin = send(node, {"LINK_ETH": True, "LINK_PLC": "0", "LINK_WIFI_5G_2": 1 << 33, "LINK_WIFI_5G": [1],
                            "LINK_WIFI_2G": {"LINK_ETH": 1}, "link_eth": 1, "LINK_WIFI": 1})
        assert hub_lines(node, begin) == ["Debug: link_state parse "]
        assert scene.loop_requests(node, begin) == REAPPLIED

    def test_event_without_any_attribute_fails_to_parse(self, node: Node) -> None:
        set_up(node, level=2)
        begin = send(node, {})
        assert scene.lines(node, begin) == [f"{FUNCTION}: Debug: link_state parse ",
                                            f"{FUNCTION}: Debug: link_state parse failed"]
        assert node.journal(begin) == []
        node.set_log_level(1)
        begin = send(node, {})
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])


class TestBridges:
    def test_active_loop_avoiding_bridges_alone_are_told_and_each_refusal_is_survived(self, node: Node) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.add_ports(node, "br-two", ["wlan0-b.1"])
        scene.add_ports(node, "br-plain", ["eth0"])
        scene.add_ports(node, "br-gone", ["plc0"])
        avoiding = {"loop_avoidance": True}
        scene.start(node, scene.config(bridges={"br-gone": avoiding, "br-lan": avoiding, "br-plain": {},
                                                "br-none": avoiding, "br-two": avoiding}))
        node.deactivate_bridge("br-gone")
        node.fail("bridgeSetIFBroadcast", -1)
        node.fail("bridgeFlushHATable", 7)
        begin = send(node, {"LINK_WIFI_2G": 1})
        assert scene.loop_requests(node, begin) == [
            "SetIFBroadcast br-lan wlan1.1 1", "SetIFBroadcast br-two wlan0-b.1 1",
            "FlushHATable br-lan", "FlushHATable br-two"]
        assert [line for line in scene.lines(node, begin) if line.startswith("loop_avoidance")] == [
            *["loop_avoidance_set_bcast_port: Error: bridgeSetIFBroadcast"] * 2,
            *["loop_avoidance_flush_ha_table: Error: bridgeFlushHATable"] * 2]

    def test_relay_flags_are_those_of_the_last_configuration(self, node: Node) -> None:
        """Power line relays since the node was an access point, and its link that went down changes nothing."""
        scene.set_up(node, ["plc0", "wlan1.1"])
        scene.start(node)
        node.event("kolt.configure", {"mode": "AP"})
        node.set_link("plc", 0)
        begin = send(node, {"LINK_PLC": 0})
        assert scene.loop_requests(node, begin) == ["SetIFBroadcast br-lan plc0 1", "SetIFBroadcast br-lan wlan1.1 1",
                                                    "FlushHATable br-lan"]

    def test_choice_of_the_broadcast_port_follows_the_files_not_the_event(self, node: Node) -> None:
        scene.set_up(node, ["plc0", "wlan1.1"])
        scene.start(node)
        node.set_link("5g", 0)
        begin = send(node, {"LINK_WIFI_5G": 1})
        assert scene.values(scene.requests(node, begin), "SetIFBroadcast") == ["br-lan plc0 1", "br-lan wlan1.1 0"]


class TestPauses:
    def test_power_line_that_goes_down_gets_a_second_for_its_file(self, node: Node) -> None:
        """Three events with the file up, down and missing: only the first waits before anything is done."""
        set_up(node, level=2)
        begins = []
        for status in (1, 0, None):
            if status is None:
                node.remove_file("/tmp/plc_runtime_info")
            else:
                node.set_link("plc", status)
            sent = time.monotonic_ns()
            begins.append(send(node, {"LINK_PLC": 0, "LINK_WIFI_2G": 1}))
            permitted, flushed = times(node, begins[-1])
            [heard] = node.log(begins[-1], function=FUNCTION, text="link_state parse ")
            if status == 1:
                assert permitted - sent >= SECOND
            else:
                assert permitted - heard.time < 0.9 * SECOND
            assert flushed - permitted >= SECOND
            assert hub_lines(node, begins[-1])[1:] == ["Debug: wifi 2g state 1", "Debug: plc state 0"]
        missing = "kolt_check_link_state: Debug: parse link state /tmp/plc_runtime_info"
        said = scene.lines(node, begins[2])
        assert missing in said
        assert missing not in scene.lines(node)[:-len(said)]

    def test_signals_do_not_shorten_a_pause(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_PLC": 0}, settle=False)
        for _ in range(15):
            node.signal(node.daemon, signal.SIGCHLD)
            time.sleep(0.1)
        node.wait_calls("bridgeSetIFBroadcast", since=begin)
        for _ in range(8):
            node.signal(node.daemon, signal.SIGCHLD)
            time.sleep(0.1)
        node.wait_idle()
        permitted, flushed = times(node, begin)
        assert flushed - permitted >= SECOND
        assert permitted - node.journal(begin)[0]["time"] < SECOND

    def test_everything_else_waits_for_the_end_of_the_pause(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1}, settle=False)
        node.wait_calls("bridgeSetIFBroadcast", since=begin, count=2)
        node.event("kolt.configure", {"mode": "HAP"}, settle=False)
        node.send_bridge_event(6)
        node.wait_idle()
        told = scene.loop_requests(node, begin)
        assert told[:3] == REAPPLIED
        assert sorted(scene.values(told[3:], "SetBridgeMode")) == ["br-lan 0", "br-lan 1"]
