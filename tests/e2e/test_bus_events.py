"""Events of the bus: node mode, log level, and what is none of the three."""
import pytest

from kolt_node import Mark, Node
import scene

PORTS = ["eth0", "plc0"]
MODES = {"RE": 0, "FAP": 1, "AP": 1, "HAP": 2}
MODE_NAMES = {0: "RE", 1: "FAP", 2: "HAP", 3: "Invalid"}
UNKNOWN = "event_ubus_receive_cb: Info: unknown subtype"


def programming(mode: int) -> list[str]:
    """All that the bridge br-lan with eth0 and plc0 is told: power line relays for an access point only."""
    relay = int(mode == 1)
    return ["SetTcpSP br-lan 0", f"SetBridgeMode br-lan {int(mode != 0)}",
            *scene.port("br-lan eth0", 0, compat=1, relay=1, bcast=1, path=1),
            *scene.port("br-lan plc0", 1, compat=3, relay=relay, bcast=1, path=1)]


def mode_lines(node: Node, begin: Mark) -> list[str]:
    return [line for line in scene.lines(node, begin) if "with mode" in line]


def configured(mode: int) -> list[str]:
    function = "loop_avoidance_configure_bridge_with_mode"
    return [f"{function}: Debug: configure duon bridge with mode {MODE_NAMES[mode]}"]


def observed_level(node: Node) -> int:
    """The log level, by the messages that a configuration and an unknown event draw."""
    begin = scene.mark(node)
    node.event("kolt.configure", {"mode": "RE"})
    node.event("kolt.unknown")
    scene.drain(node)
    levels = {record.level for record in node.log(begin)}
    shown = [level for level in ("Info", "Debug", "Dump") if level in levels]
    assert shown == ["Info", "Debug", "Dump"][:len(shown)]
    return len(shown)


class TestStart:
    @pytest.mark.parametrize("mode", MODES)
    def test_start_programs_the_bridges_by_the_work_mode(self, node: Node, mode: str) -> None:
        scene.set_up(node, PORTS, mode=mode)
        scene.start(node)
        assert scene.requests(node) == [*scene.event_info(node, "br-lan"), *programming(MODES[mode])]

    @pytest.mark.parametrize("mode", ["re", "Re", "RE ", "", "MESH", None])
    def test_unknown_work_mode_is_programmed_like_an_access_point_that_does_not_relay(self, node: Node,
                                                                                     mode: str | None) -> None:
        scene.set_up(node, PORTS, mode=mode)
        scene.start(node)
        assert scene.requests(node)[1:] == programming(3)
        assert scene.lines(node) == ["main: Info: Loop avoidance initialized"]


class TestConfigure:
    def test_each_mode_text_gives_its_mode(self, node: Node) -> None:
        scene.set_up(node, PORTS, mode=None)
        scene.start(node, level=2)
        for text, mode in MODES.items():
            begin = scene.mark(node)
            node.event("kolt.configure", {"mode": text})
            assert scene.requests(node, begin) == [*scene.event_info(node, "br-lan"), *programming(mode)]
            assert mode_lines(node, begin) == configured(mode)

    @pytest.mark.parametrize("current", ["RE", "AP", "HAP", "else"])
    def test_anything_else_keeps_the_current_mode(self, node: Node, current: str) -> None:
        scene.set_up(node, PORTS, mode=current)
        scene.start(node, level=2)
        mode = MODES.get(current, 3)
        for attributes in ({"mode": "ap"}, {"mode": ""}, {"mode": "RE "}, {"mode": "x" * 100000}, {"Mode": "RE"},
                           {"mode": 0}, {"mode": True}, {"mode": 1.5}, {"mode": ["RE"]}, {"mode": {"mode": "RE"}},
                           {"mode": None}, {"mode": 1 << 40}, {"other": "RE"}):
            begin = scene.mark(node)
            node.event("kolt.configure", attributes)
            assert scene.requests(node, begin) == [*scene.event_info(node, "br-lan"), *programming(mode)], attributes
            assert mode_lines(node, begin) == configured(mode)

    def test_mode_is_found_among_other_attributes(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node)
        begin = scene.mark(node)
        node.event("kolt.configure", {"a": 1, "b": [1, {"mode": "RE"}], "mode": "HAP", "modes": "RE"})
        assert scene.requests(node, begin)[1:] == programming(2)

    def test_work_mode_is_read_afresh(self, node: Node) -> None:
        scene.set_up(node, PORTS, mode="RE")
        scene.start(node)
        for text, mode in MODES.items():
            node.set_work_mode(text)
            begin = scene.mark(node)
            node.event("kolt.configure", {"keep": 1})
            assert scene.requests(node, begin)[1:] == programming(mode)

    def test_missing_work_mode_file_is_logged_only_where_it_is_needed(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node)
        node.remove_file("/tmp/work_mode")
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "HAP"})
        assert scene.lines(node, begin) == []
        node.event("kolt.configure", {"keep": 1})
        assert scene.lines(node, begin) == ["kolt_get_work_mode: Error: parse work_mode"]
        assert scene.requests(node, begin)[-14:] == programming(3)[-14:]

    def test_event_without_any_attribute_is_dropped_silently(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node, level=3)
        begin = scene.mark(node)
        node.event("kolt.configure", {})
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_registration_is_renewed_also_for_a_bridge_that_came_up_since(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        flags = {"br-lan": {"loop_avoidance": True}, "br-new": {}, "br-never": {"loop_avoidance": True}}
        scene.start(node, scene.config(bridges=flags))
        node.set_bridge("br-new", [])
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        assert scene.requests(node, begin) == [*scene.event_info(node, "br-lan", "br-new"), *programming(0)]
        node.deactivate_bridge("br-lan")
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        assert scene.requests(node, begin) == scene.event_info(node, "br-new")

    def test_refused_renewal_is_logged_for_each_bridge_and_survived(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        node.set_bridge("br-two", [])
        scene.start(node, scene.config(bridges={"br-lan": {"loop_avoidance": True}, "br-two": {}}))
        node.fail("bridgeSetEventInfo", -1)
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        assert scene.lines(node, begin) == ["event_bridge_set_event: Error: bridgeSetEventInfo"] * 2
        assert scene.requests(node, begin) == [*scene.event_info(node, "br-lan", "br-two"), *programming(0)]

    def test_whole_journal_of_one_event(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        pid = scene.start(node).pid
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "FAP"})
        check = ["AllocTableBuf 8 br-lan", "netlink_msg 0 br-lan 8 38 0", "FreeTableBuf 8"]
        ports = ["AllocTableBuf 4608 br-lan", "netlink_msg 256 br-lan 4608 38 36", "FreeTableBuf 4608"]
        assert [scene.request_line(entry) for entry in node.journal(begin)] == [
            *check, f"SetEventInfo br-lan {pid} 3 38",
            *check, "SetTcpSP br-lan 0", "SetBridgeMode br-lan 1", *ports,
            *scene.port("br-lan eth0", 0, compat=1, relay=1, bcast=1, path=1)]

    def test_events_sent_at_once_are_handled_each_in_order(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node)
        begin = scene.mark(node)
        for number in range(60):
            node.event("kolt.configure", {"mode": "RE" if number % 3 else "AP"}, settle=False)
        node.wait_calls("bridgeSetBridgeMode", since=begin, count=60)
        modes = scene.values(scene.requests(node, begin), "SetBridgeMode")
        assert modes == [f"br-lan {0 if number % 3 else 1}" for number in range(60)]


class TestDebug:
    def test_each_value_gives_its_level(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node)
        assert observed_level(node) == 1
        for attributes, level in (({"dbg_level": 0}, 0), ({"dbg_level": 2}, 2), ({"dbg_level": 3}, 3),
                                  ({"dbg_level": 1}, 1), ({"dbg_level": 4}, 3), ({"other": 2}, 1),
                                  ({"dbg_level": 7}, 3), ({"dbg_level": "2"}, 1), ({"dbg_level": -1}, 3),
                                  ({"dbg_level": True}, 1), ({"dbg_level": -2147483648}, 3), ({"dbg_level": 1.0}, 1),
                                  ({"dbg_level": 2147483647}, 3), ({"dbg_level": 1 << 32}, 1),
                                  ({"dbg_level": [3]}, 1), ({"a": 0, "dbg_level": 0, "b": 3}, 0),
                                  ({"DBG_LEVEL": 3}, 1)):
            node.event("kolt.debug", attributes)
            assert observed_level(node) == level, attributes

    def test_event_without_any_attribute_changes_nothing(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node, level=3)
        begin = scene.mark(node)
        node.event("kolt.debug", {})
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
        assert observed_level(node) == 3

    def test_level_change_touches_no_bridge(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node)
        begin = scene.mark(node)
        node.set_log_level(3)
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_errors_are_written_at_level_0_and_information_is_not(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node, level=0)
        node.remove_file("/tmp/work_mode")
        begin = scene.mark(node)
        node.event("kolt.configure", {"keep": 1})
        node.event("kolt.unknown", {"a": 1})
        assert scene.lines(node, begin) == ["kolt_get_work_mode: Error: parse work_mode"]

    def test_level_starts_anew_with_the_process(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node, level=3)
        node.stop_daemon()
        node.start_daemon()
        assert observed_level(node) == 1


class TestOtherEvents:
    def test_unknown_subtype_draws_one_line_and_nothing_else(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node)
        for name in ("kolt.Configure", "kolt.", "kolt.configure ", "kolt.link_states", "kolt.link", "kolt..debug",
                     "kolt.debug.x", "kolt.kolt.debug", "kolt." + "x" * 10000):
            for attributes in ({}, {"mode": "HAP", "dbg_level": 3, "LINK_ETH": 1}):
                begin = scene.mark(node)
                node.event(name, attributes)
                assert (scene.lines(node, begin), node.journal(begin)) == ([UNKNOWN], []), name

    def test_events_of_others_do_not_reach_the_daemon(self, node: Node) -> None:
        scene.set_up(node, PORTS)
        scene.start(node, level=3)
        begin = scene.mark(node)
        for name in ("kol.debug", "koltx.debug", "kolt", "Kolt.debug", "xkolt.debug", "network.interface"):
            node.event(name, {"dbg_level": 0})
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
