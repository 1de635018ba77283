"""How loop avoidance programs the bridges: each mode, the broadcast ports, couples, and refusals on the way."""
import pytest

from kolt_node import Mark, Node
import scene

OPERATION = "loop_avoidance_configure_bridge_with_mode"
AVOIDING = {"loop_avoidance": True}
NAMES = {"ethernet": "eth0", "plc": "plc0", "2.4g": "wlan0.1", "5g": "wlan1.1", "5g_2": "wlan2.1"}


def configure(node: Node, mode: str = "RE") -> Mark:
    begin = scene.mark(node)
    node.event("kolt.configure", {"mode": mode})
    return begin


def told(node: Node, mode: str = "RE") -> list[str]:
    """What the bridges are told at a configure event, without the renewal of the event registration."""
    return [line for line in scene.requests(node, configure(node, mode)) if not line.startswith("SetEventInfo")]


class TestWholeProgramming:
    @pytest.mark.parametrize("mode, code, plc", [("RE", 0, 0), ("FAP", 1, 1), ("HAP", 1, 0)])
    def test_every_kind_of_port_with_its_values_and_in_order(self, node: Node, mode: str, code: int, plc: int) -> None:
        scene.set_up(node, mode=mode)
        scene.start(node, scene.config(backhual={"wlan1.1": {"couple": "wlan1-g"}}))
        assert scene.requests(node)[1:] == [
            "SetTcpSP br-lan 0", f"SetBridgeMode br-lan {code}",
            *scene.port("br-lan eth0", 0, compat=1, relay=1, bcast=1, path=1),
            *scene.port("br-lan plc0", 1, compat=3, relay=plc, bcast=plc, path=1),
            *scene.port("br-lan wlan1.1", 3, compat=4, relay=0, bcast=1, path=1, needha=1),
            *scene.port("br-lan wlan0-b.1", 2, compat=5, relay=1, bcast=1, bcast_class=1, path=1),
            "SetCouple br-lan wlan1.1 wlan1-g 1"]

    def test_ports_come_in_the_order_of_the_bridge(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        for order in (["wlan0-b.1", "eth0"], ["eth0", "plc0", "wlan0-b.1"], ["plc0", "plc0"]):
            node.set_bridge("br-lan", order)
            assert scene.values(told(node), "SetIFCompat") == [
                f"br-lan {name} {scene.INTERFACES[name]['compat_group']}" for name in order]

    def test_debug_lines_of_one_programming(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node, level=2)
        assert scene.lines(node, configure(node)) == [
            f"{OPERATION}: Debug: configure duon bridge with mode RE",
            f"{OPERATION}: Debug: name:eth0, compat_group:1, relay:1",
            "loop_avoidance_pick_bcast_nonrelay_port: Debug: Pick wlan1.1 as broadcast nonrelay port!",
            f"{OPERATION}: Debug: bcast_port_0 is wlan1.1", f"{OPERATION}: Debug: bcast_port_1 is (null)"]

    def test_bridge_without_ports_gets_its_own_calls_and_the_couples(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={"a": {"couple": "b"}}), level=2)
        begin = configure(node, "HAP")
        assert scene.requests(node, begin)[1:] == ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 1",
                                                   "SetCouple br-lan a b 1"]
        assert scene.lines(node, begin) == [
            f"{OPERATION}: Debug: configure duon bridge with mode HAP",
            f"{OPERATION}: Debug: bcast_port_0 is (null)", f"{OPERATION}: Debug: bcast_port_1 is (null)"]

    def test_bridges_with_their_flags_in_every_combination(self, node: Node) -> None:
        scene.set_up(node, [])
        flags = {"br-none": {}, "br-path": {"path_selection": True},
                 "br-both": {"loop_avoidance": True, "path_selection": True}, "br-loop": AVOIDING,
                 "br-gone": {"loop_avoidance": True, "path_selection": True}}
        for name in ("br-none", "br-path", "br-both", "br-loop"):
            node.set_bridge(name)
        scene.start(node, scene.config(bridges=flags))
        begin = configure(node)
        assert scene.requests(node, begin) == [
            *scene.event_info(node, "br-none", "br-path", "br-both", "br-loop"),
            "SetTcpSP br-both 0", "SetBridgeMode br-both 0", "SetFollowRE br-both 1",
            "SetTcpSP br-loop 0", "SetBridgeMode br-loop 0"]

    def test_couples_are_declared_on_each_bridge_with_a_first_of_its_own(self, node: Node) -> None:
        scene.set_up(node, [])
        node.set_bridge("br-two")
        scene.start(node, scene.config(bridges={"br-lan": AVOIDING, "br-two": AVOIDING},
                                       backhual={"a": {"couple": "b"}, "c": {"couple": "d"}}))
        assert scene.values(told(node), "SetCouple") == ["br-lan a b 1", "br-lan c d 0", "br-two a b 1",
                                                         "br-two c d 0"]


class TestRelay:
    def test_power_line_and_ethernet_follow_the_mode_and_wireless_keeps_its_flag(self, node: Node) -> None:
        """The configured flags of the first two do not matter."""
        interfaces = {f"{kind}{nonrelay:d}": {"type": type, "nonrelay": nonrelay}
                      for kind, type in (("eth", "ethernet"), ("plc", "plc"), ("wlan", "5g"))
                      for nonrelay in (False, True)}
        scene.set_up(node, list(interfaces))
        scene.start(node, scene.config(interfaces))
        wired = ["br-lan eth0 1 1", "br-lan eth1 1 1"]
        wireless = ["br-lan wlan0 1 1", "br-lan wlan1 0 0"]
        for mode, root, plc in (("RE", "1", 0), ("FAP", "0", 1), ("HAP", "0", 0), ("HAP", "1", 1), ("RE", "0", 0),
                                ("AP", "1", 1), ("HAP", "2", 0), ("HAP", "", 0)):
            node.set_uci(scene.UCI | {"TrafficPlcRoot": root})
            expected = [*wired, f"br-lan plc0 {plc} {plc}", f"br-lan plc1 {plc} {plc}", *wireless]
            assert scene.values(told(node, mode), "SetIFGroup") == expected, (mode, root)
        node.set_work_mode("else")
        assert "SetIFGroup br-lan plc0 0 0" in told(node, "keep")

    def test_active_ethernet_traffic_takes_the_relay_flag_from_its_group_in_re_mode_only(self, node: Node) -> None:
        interfaces = {"eth0": {"type": "ethernet", "compat_group": 1}, "eth1": {"type": "ethernet", "compat_group": 1},
                      "eth2": {"type": "ethernet", "compat_group": 2}, "eth3": {"type": "ethernet", "compat_group": 0},
                      "wlan0": {"type": "5g", "compat_group": 1}}
        scene.set_up(node, list(interfaces))
        scene.start(node, scene.config(interfaces))
        for mode, active, name, nonrelay in (
                ("RE", "1", "eth0", ["eth0", "eth1"]), ("RE", "1", "wlan0", ["eth0", "eth1"]),
                ("RE", "1", "eth2", ["eth2"]), ("RE", "0", "eth0", []), ("RE", "01", "eth0", []),
                ("FAP", "1", "eth0", []), ("HAP", "1", "eth0", []), ("RE", "1", "eth", ["eth3"]),
                ("RE", "1", "none", ["eth3"])):
            node.set_uci({"TrafficPlcRoot": "0", "TrafficEthActive": active, "TrafficEthInterface": name})
            groups = scene.values(told(node, mode), "SetIFGroup")
            assert groups == [f"br-lan {port} 0 0" if port in nonrelay else f"br-lan {port} 1 1"
                              for port in interfaces], (mode, active, name)

    def test_traffic_interface_that_cannot_be_read_changes_no_flag(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        node.set_uci({"TrafficEthActive": "1"})
        scene.start(node)
        begin = configure(node)
        assert scene.values(scene.requests(node, begin), "SetIFGroup") == ["br-lan eth0 1 1"]
        assert scene.lines(node, begin) == ["uci_get_value: Error: element type is not option:3"]

    def test_changed_flag_precedes_the_choice_of_the_broadcast_port(self, node: Node) -> None:
        scene.set_up(node, ["eth0", "wlan1.1"])
        node.set_uci(scene.UCI | {"TrafficEthActive": "1"})
        scene.start(node)
        assert scene.values(told(node), "SetIFBroadcast") == ["br-lan eth0 1", "br-lan wlan1.1 0"]


class TestBroadcastPort:
    """Ethernet ports are nonrelay here because of their active traffic."""

    @pytest.fixture
    def ready(self, node: Node) -> Node:
        interfaces = {name: {"type": type, "nonrelay": True} for type, name in NAMES.items()}
        interfaces |= {"eth1": {"type": "ethernet"}, "wlan9": {"type": "5g"},
                       "wlan1.2": {"type": "5g", "nonrelay": True},
                       "g0": {"type": "2.4g", "nonrelay": True, "class": 1},
                       "g1": {"type": "5g", "nonrelay": True, "class": 1},
                       "g2": {"type": "5g_2", "nonrelay": True, "class": 2}}
        scene.set_up(node, list(interfaces))
        node.set_uci(scene.UCI | {"TrafficEthActive": "1"})
        scene.start(node, scene.config(interfaces))
        return node

    def permitted(self, node: Node, ports: list[str], up: str) -> list[str]:
        node.set_bridge("br-lan", ports)
        for type in scene.TYPES:
            node.set_link(type, int(type in up.split()))
        permissions = scene.values(told(node), "SetIFBroadcast")
        assert [words.split()[1] for words in permissions] == ports
        return [words.split()[1] for words in permissions if words.endswith(" 1")]

    def test_preference_by_link_and_state(self, ready: Node) -> None:
        names = list(NAMES.values())
        everything = " ".join(scene.TYPES)
        for ports, up, chosen in (
                (names, everything, "eth0"), (names[::-1], everything, "eth0"),
                (["eth0", "plc0"], "ethernet plc", "eth0"), (["plc0", "eth0"], "ethernet plc", "eth0"),
                (["eth0", "plc0"], "plc", "plc0"), (["eth0", "plc0"], "", "eth0"), (["plc0", "eth0"], "", "plc0"),
                (["plc0", "wlan2.1"], everything, "wlan2.1"), (["plc0", "wlan0.1"], everything, "wlan0.1"),
                (["plc0", "wlan2.1"], "plc", "plc0"), (["wlan2.1", "plc0"], "plc", "plc0"),
                (["wlan0.1", "wlan1.1", "wlan2.1"], everything, "wlan2.1"),
                (["wlan0.1", "wlan1.1", "wlan2.1"], "2.4g 5g", "wlan1.1"),
                (["wlan2.1", "wlan1.1", "wlan0.1"], "2.4g", "wlan0.1"),
                (["wlan1.1", "wlan1.2"], everything, "wlan1.1"), (["wlan1.2", "wlan1.1"], everything, "wlan1.2"),
                (["wlan1.2", "wlan1.1"], "", "wlan1.2"), (["wlan2.1"], "", "wlan2.1"), (["plc0"], "", "plc0")):
            assert self.permitted(ready, ports, up) == [chosen], (ports, up)

    def test_each_class_has_a_port_of_its_own_and_others_have_none(self, ready: Node) -> None:
        assert self.permitted(ready, ["g0", "g1", "wlan0.1", "g2"], "2.4g 5g 5g_2") == ["g1", "wlan0.1"]
        assert self.permitted(ready, ["g0", "g1"], "2.4g") == ["g0"]
        assert self.permitted(ready, ["g2"], "5g_2") == []

    def test_relay_ports_always_have_permission_and_are_never_chosen(self, ready: Node) -> None:
        assert self.permitted(ready, ["wlan9", "wlan0.1", "wlan1.1"], "2.4g 5g") == ["wlan9", "wlan1.1"]
        assert self.permitted(ready, ["wlan9"], "") == ["wlan9"]

    def test_choice_is_logged_for_each_class(self, ready: Node) -> None:
        ready.set_log_level(2)
        ready.set_bridge("br-lan", ["g1", "wlan1.1"])
        said = scene.lines(ready, configure(ready))
        pick = "loop_avoidance_pick_bcast_nonrelay_port: Debug: Pick {} as broadcast nonrelay port!"
        assert said[1:] == [pick.format("wlan1.1"), pick.format("g1"), f"{OPERATION}: Debug: bcast_port_0 is wlan1.1",
                            f"{OPERATION}: Debug: bcast_port_1 is g1"]

    def test_link_without_a_readable_state_is_down(self, ready: Node) -> None:
        """Files of each kind of value for the 5 GHz link, which is otherwise preferred to the 2.4 GHz one."""
        ready.set_bridge("br-lan", ["wlan0.1", "wlan1.1"])
        for text, up in (('{"status": 1}', True), ('{"status": 2}', True), ('{"status": -1}', True),
                         ('{"status": "1"}', True), ('{"status": true}', True), ('{"status": 0}', False),
                         ('{"status": "0"}', False), ('{"status": "up"}', False), ('{"status": null}', False),
                         ('{"status": [1]}', False), ('{"status": {"status": 1}}', False), ('{"Status": 1}', False),
                         ('{}', False), ('[1]', False), ('1 ', False), ('', False), ('{"status": 1', False),
                         ('{"status": 0.9}', False), ('{"status": 1.5}', True)):
            ready.write_file("/tmp/wifi_runtime_info.5g", text)
            chosen = "br-lan wlan1.1 1" if up else "br-lan wlan0.1 1"
            assert chosen in scene.values(told(ready), "SetIFBroadcast"), text


class TestCouples:
    def test_wired_couples_need_a_neighbour_or_the_power_line_vlan(self, node: Node) -> None:
        scene.set_up(node, [])
        names = ["eth0", "eth1", "eth10", "eth2", "wlan0.1", "plc0", "ethernet"]
        scene.start(node, scene.config(backhual={name: {"couple": "g"} for name in names}, plc_vlan_backhaul_id=10))
        node.set_ethernet_profile(["eth1", "eth0"])
        always = ["eth10", "wlan0.1", "plc0"]
        for mask, wired in (("0", []), ("1", ["eth1"]), ("2", ["eth0"]), ("3", ["eth0", "eth1"]),
                            ("4", ["eth2", "ethernet"]), ("7", ["eth0", "eth1", "eth2", "ethernet"]), ("x", []),
                            ("5 and more", ["eth1", "eth2", "ethernet"]), (" 2", ["eth0"]), ("-1", names), ("", [])):
            node.set_uci(scene.UCI | {"eth_HasNeigh": mask})
            declared = [name for name in names if name in always or name in wired]
            assert scene.values(told(node), "SetCouple") == [
                f"br-lan {name} g {int(at == 0)}" for at, name in enumerate(declared)], mask

    def test_vlan_text_counts_only_where_it_is_configured(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={"eth0": {"couple": "g"}, "eth01": {"couple": "g"}}))
        assert scene.values(told(node), "SetCouple") == []

    def test_unknown_wired_name_is_logged_each_time_that_it_is_asked_for(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={"eth7": {"couple": "g"}}))
        begin = configure(node)
        assert scene.lines(node, begin) == ["kolt_check_eth_has_neigh: Error: can't find ifname[eth7] in eth_ifname"]

    @pytest.mark.parametrize("function", ["uci_get_profile_eths", "uci_get_eth_port_num"])
    def test_profile_that_cannot_be_read_means_no_neighbour(self, node: Node, function: str) -> None:
        scene.set_up(node, [])
        node.set_uci({"TrafficEthActive": "0", "eth_HasNeigh": "-1"})
        node.fail(function, -1)
        scene.start(node, scene.config(backhual={"eth0": {"couple": "g"}}))
        begin = configure(node)
        assert (scene.values(scene.requests(node, begin), "SetCouple"), scene.lines(node, begin)) == ([], [])

    def test_port_counts_out_of_range_do_no_harm(self, node: Node) -> None:
        scene.set_up(node, [])
        node.set_uci(scene.UCI | {"eth_HasNeigh": "-1"})
        scene.start(node, scene.config(backhual={"eth9": {"couple": "g"}}))
        for count, declared in ((0, 1), (2, 1), (9, 1), (10, 0), (11, 0), (64, 0), (2147483647, 0), (-1, 0),
                                (-2147483648, 0)):
            node.set_ethernet_profile(["eth0"], count)
            assert len(scene.values(told(node), "SetCouple")) == declared, count


class TestRefusals:
    FUNCTIONS = ["bridgeSetTcpSP", "bridgeSetBridgeMode", "bridgeSetFollowRE", "bridgeSetIFCompat", "bridgeSetIFGroup",
                 "bridgeSetIFBroadcast", "bridgeSetIFClass", "bridgeSetIFPath", "bridgeSetNeedha", "bridgeSetIFType",
                 "bridgeSetCouple"]

    @pytest.fixture
    def ready(self, node: Node) -> Node:
        scene.set_up(node, ["eth0", "wlan1.1"])
        node.set_bridge("br-two", ["wlan1.1"])
        both = {"loop_avoidance": True, "path_selection": True}
        scene.start(node, scene.config(bridges={"br-lan": both, "br-two": both},
                                       backhual={"a": {"couple": "b"}, "c": {"couple": "d"}}))
        return node

    def test_refusal_of_each_call_is_logged_by_its_name_and_everything_else_is_still_done(self, ready: Node) -> None:
        expected = told(ready)
        for function in self.FUNCTIONS:
            for result in (-1, 1):
                ready.fail(function, result)
                begin = configure(ready)
                times = len(ready.journal(begin, function))
                assert times >= 2
                assert scene.lines(ready, begin) == [f"{OPERATION}: Error: {function}"] * times
                assert scene.requests(ready, begin)[2:] == expected
                ready.clear_failures()

    def test_all_calls_refused_at_once(self, ready: Node) -> None:
        expected = told(ready)
        for function in self.FUNCTIONS:
            ready.fail(function)
        begin = configure(ready)
        assert scene.requests(ready, begin)[2:] == expected
        calls = [entry["call"] for entry in ready.journal(begin) if entry["call"] in self.FUNCTIONS]
        assert scene.lines(ready, begin) == [f"{OPERATION}: Error: {call}" for call in calls]

    def test_one_bridge_refusing_does_not_concern_the_other(self, ready: Node) -> None:
        ready.fail("bridgeSetIFType", bridge="br-lan")
        begin = configure(ready)
        assert scene.lines(ready, begin) == [f"{OPERATION}: Error: bridgeSetIFType"] * 2

    def test_buffer_that_cannot_be_had_for_the_check_makes_a_bridge_inactive(self, ready: Node) -> None:
        ready.fail("bridgeAllocTableBuf", bridge="br-lan")
        begin = configure(ready)
        assert scene.lines(ready, begin) == ["kolt_check_active_bridge: Error: bridgeAllocTableBuf"] * 2
        assert {line.split()[1] for line in scene.requests(ready, begin)} == {"br-two"}

    def test_check_that_fails_makes_a_bridge_inactive_silently(self, ready: Node) -> None:
        ready.fail("netlink_msg:0", -1, bridge="br-lan")
        begin = configure(ready)
        assert scene.lines(ready, begin) == []
        assert {line.split()[1] for line in scene.requests(ready, begin)} == {"br-two"}

    def test_ports_that_cannot_be_asked_for_leave_a_bridge_without_any(self, ready: Node) -> None:
        whole = ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 0", "SetFollowRE br-lan 1", "SetCouple br-lan a b 1",
                 "SetCouple br-lan c d 0"]
        for function, line, nth in (("netlink_msg:256", "netlink_msg", 1),
                                    ("bridgeAllocTableBuf", "bridgeAllocTableBuf", 3)):
            ready.fail(function, -1, bridge="br-lan", nth=nth)
            begin = configure(ready)
            assert scene.lines(ready, begin) == [f"kolt_get_active_ports: Error: {line}"]
            assert [line for line in scene.requests(ready, begin)[2:] if " br-lan" in line] == whole
            ready.clear_failures()

    def test_buffers_are_given_back_whatever_fails(self, ready: Node) -> None:
        begin = scene.mark(ready)
        ready.fail("netlink_msg", -1)
        ready.event("kolt.configure", {"mode": "RE"})
        ready.clear_failures()
        ready.fail("netlink_msg:256", -1)
        ready.event("kolt.configure", {"mode": "RE"})
        sizes = [entry["args"]["size"] for entry in ready.journal(begin, "bridgeAllocTableBuf")]
        freed = [entry["args"]["buf"] for entry in ready.journal(begin, "bridgeFreeTableBuf")]
        assert sizes == freed
        assert sorted(set(sizes)) == [8, 4608]


class TestUnknownPorts:
    def test_unconfigured_port_is_logged_and_the_others_are_programmed(self, node: Node) -> None:
        scene.set_up(node, ["eth0", "other", "wlan1.1"])
        scene.start(node)
        begin = configure(node)
        other = node.ifindex("other")
        assert scene.lines(node, begin) == [f"kolt_get_active_ports: Error: No such interface {other}"]
        assert [line.split()[1] for line in scene.values(scene.requests(node, begin), "SetIFType")] == ["eth0",
                                                                                                       "wlan1.1"]

    def test_port_without_a_name_is_logged_twice(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        node.set_bridge("br-lan", [4711, "eth0"])
        scene.start(node)
        begin = configure(node)
        assert scene.lines(node, begin) == ["config_find_interface_by_index: Error: if_indextoname",
                                            "kolt_get_active_ports: Error: No such interface 4711"]
        assert scene.values(scene.requests(node, begin), "SetIFType") == ["br-lan eth0 0"]
