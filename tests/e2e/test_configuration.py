"""The configuration file: what the loader says, and the names and values with which the bridges are then programmed."""
from collections.abc import Iterator
from pathlib import Path

import pytest

from kolt_node import Node
import scene

WIFI = {"type": "5g"}
READY = "main: Info: Loop avoidance initialized"


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[scene.SharedNode]:
    with scene.SharedNode(build) as fresh:
        yield fresh


@pytest.fixture
def node(shared: scene.SharedNode) -> Iterator[Node]:
    yield from shared.lend()


def couples(node: Node) -> list[str]:
    return scene.values(scene.requests(node), "SetCouple")


def names(node: Node) -> list[str]:
    """The interfaces that were programmed."""
    return [words.split(" ")[1] for words in scene.values(scene.requests(node), "SetIFType")]


class TestCapacities:
    def test_ninth_bridge_is_dropped_with_one_line(self, node: Node) -> None:
        scene.set_up(node, [])
        all_names = [f"br{number}" for number in range(11)]
        for name in all_names:
            node.set_bridge(name)
        scene.start(node, scene.config(bridges=dict.fromkeys(all_names, {"loop_avoidance": True})))
        assert scene.lines(node) == ["config_load: Info: too many bridges", READY]
        assert scene.values(scene.requests(node), "SetTcpSP") == [f"br{number} 0" for number in range(8)]

    def test_eight_bridges_draw_no_line(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(bridges={f"br{number}": {} for number in range(8)}))
        assert scene.lines(node) == [READY]

    def test_129th_interface_is_dropped_with_one_line(self, node: Node) -> None:
        all_names = [f"wlan{number}" for number in range(131)]
        scene.set_up(node, [])
        last = {name: node.add_interface(name) for name in (all_names[127], all_names[128])}
        node.set_bridge("br-lan", last)
        scene.start(node, scene.config(dict.fromkeys(all_names, WIFI)))
        assert scene.lines(node) == ["config_load: Info: too many interfaces", READY,
                                     f"kolt_get_active_ports: Error: No such interface {last['wlan128']}"]
        assert names(node) == ["wlan127"]

    def test_128_interfaces_are_all_programmed(self, node: Node) -> None:
        all_names = [f"wlan{number}" for number in range(128)]
        scene.set_up(node, all_names)
        scene.start(node, scene.config(dict.fromkeys(all_names, WIFI)))
        assert scene.lines(node) == [READY]
        assert names(node) == all_names

    def test_interface_left_out_for_its_vlan_takes_no_place(self, node: Node) -> None:
        kept = [f"wlan{number}" for number in range(128)]
        scene.set_up(node, kept[127:])
        scene.start(node, scene.config({"eth0": {"type": "ethernet", "exchange": 1}} | dict.fromkeys(kept, WIFI)))
        assert (scene.lines(node), names(node)) == ([READY], ["wlan127"])

    def test_17th_couple_is_dropped_with_one_line(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={f"a{n}": {"couple": f"b{n}"} for n in range(19)}))
        said = [f"config_load: Info: backhual lan:a{n}, guest:b{n}" for n in range(16)]
        assert scene.lines(node) == [*said, "config_load: Info: too many couple backhuals", READY]
        assert couples(node) == [f"br-lan a{n} b{n} {int(n == 0)}" for n in range(16)]

    def test_all_three_lines_come_in_the_order_of_the_sections(self, node: Node) -> None:
        scene.set_up(node, [])
        file = scene.config(dict.fromkeys([f"wlan{n}" for n in range(129)], WIFI),
                            bridges={f"br{n}": {} for n in range(9)},
                            backhual={f"a{n}": {"couple": "b", "key_exchange": 4} for n in range(17)},
                            plc_vlan_backhaul_id=7)
        scene.start(node, dict(reversed(file.items())))
        said = ["config_load: Info: too many bridges", "config_load: Info: too many interfaces",
                *["config_load: Info: backhaul lan: 7, guest: b"] * 16,
                "config_load: Info: too many couple backhuals", READY]
        assert scene.lines(node) == said


class TestInterfaceNames:
    IDS = {"eth_vlan_id": 3, "iptv_vlan_id": 1234, "iptv_vlan_backhaul_id": 22, "plc_vlan_backhaul_id": 10,
           "plc_vlan_guest_id": 20, "plc_vlan_iptv_id": 30}

    @pytest.mark.parametrize("key, exchange, name", [
        ("eth0", 1, "eth3"), ("eth0", 2, "eth1234"), ("eth0", 3, "eth22"), ("plc0", 4, "plc10"), ("plc0", 5, "plc20"),
        ("plc0", 6, "plc30"), ("eth0", 7, "eth3"), ("eth0", 0, "eth3"), ("eth0", -1, "eth3"), ("plc0", "4", "plc10"),
        ("eth0", "x", "eth3"), ("wlan0.1", 4, "wlan0.10"), ("x", 4, "10"),
        ("abcdefghijklmn0", 2, "abcdefghijklmn1"), ("abcdefghijkl0", 2, "abcdefghijkl123"),
        ("abcdefghijk0", 2, "abcdefghijk1234"), ("abcdefghijklmnop", 2, "abcdefghijklmno"),
    ], ids=scene.short)
    def test_exchange_replaces_the_last_character_by_a_vlan_id(self, node: Node, key: str, exchange: object,
                                                               name: str) -> None:
        scene.set_up(node, [name])
        node.set_bridge("br-lan", [node.ifindex(name)])
        scene.start(node, scene.config({key: WIFI | {"exchange": exchange}}, **self.IDS))
        assert (scene.lines(node), names(node)) == ([READY], [name])

    @pytest.mark.parametrize("exchange, id", [(1, "eth_vlan_id"), (2, "iptv_vlan_id"), (3, "iptv_vlan_backhaul_id"),
                                              (4, "plc_vlan_backhaul_id"), (5, "plc_vlan_guest_id"),
                                              (6, "plc_vlan_iptv_id"), (99, "eth_vlan_id")])
    @pytest.mark.parametrize("value", [0, -5, None])
    def test_without_its_vlan_id_an_interface_is_left_out_silently(self, node: Node, exchange: int, id: str,
                                                                   value: object) -> None:
        scene.set_up(node, ["eth0", "eth3", "plc1"])
        ids = self.IDS | {id: value}
        if value is None:
            del ids[id]
        scene.start(node, scene.config({"eth0": WIFI | {"exchange": exchange}, "plc1": WIFI}, **ids))
        unknown = [node.ifindex("eth0"), node.ifindex("eth3")]
        assert scene.lines(node) == [READY, *[f"kolt_get_active_ports: Error: No such interface {index}"
                                              for index in unknown]]
        assert names(node) == ["plc1"]

    def test_left_out_interface_may_have_any_type(self, node: Node) -> None:
        scene.set_up(node, ["plc1"])
        scene.start(node, scene.config({"eth0": {"exchange": 1}, "plc1": WIFI}))
        assert names(node) == ["plc1"]

    def test_vlan_ids_count_wherever_they_stand_in_the_file(self, node: Node) -> None:
        scene.set_up(node, ["eth3"])
        file = scene.config({"eth0": WIFI | {"exchange": 1}}, eth_vlan_id=3)
        file["param"] = file.pop("param")
        scene.start(node, file)
        assert names(node) == ["eth3"]

    @pytest.mark.parametrize("id, name", [(4094, "eth4094"), (4095, "eth4094"), (2147483647, "eth4094"), (1, "eth1"),
                                          ("17", "eth17"), (2.9, "eth2"), (True, "eth1")], ids=scene.short)
    def test_vlan_id_is_clamped_and_converted(self, node: Node, id: object, name: str) -> None:
        scene.set_up(node, [name])
        scene.start(node, scene.config({"eth0": WIFI | {"exchange": 1}}, eth_vlan_id=id))
        assert names(node) == [name]

    def test_name_of_15_characters_is_programmed(self, node: Node) -> None:
        scene.set_up(node, ["abcdefghijklmno"])
        scene.start(node, scene.config({"abcdefghijklmno": WIFI}))
        assert names(node) == ["abcdefghijklmno"]

    @pytest.mark.parametrize("key", ["abcdefghijklmnop", "abcdefghijklmnopq", "a" * 1000, "abcdefghijklmn", ""])
    def test_other_name_is_no_match_for_a_port(self, node: Node, key: str) -> None:
        scene.set_up(node, ["abcdefghijklmno"])
        scene.start(node, scene.config({key: WIFI}))
        index = node.ifindex("abcdefghijklmno")
        assert scene.lines(node) == [READY, f"kolt_get_active_ports: Error: No such interface {index}"]
        assert names(node) == []

    def test_first_of_two_interfaces_with_one_name_counts(self, node: Node) -> None:
        scene.set_up(node, ["eth3"])
        scene.start(node, scene.config({"eth0": WIFI | {"exchange": 1, "compat_group": 1},
                                        "eth3": WIFI | {"compat_group": 2}}, eth_vlan_id=3))
        assert scene.values(scene.requests(node), "SetIFCompat") == ["br-lan eth3 1"]

    @pytest.mark.parametrize("name", ["abcdefghijklmnop", "abcdefghijklmnopq" + "r" * 1000])
    def test_bridge_name_ends_with_its_field(self, node: Node, name: str) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(bridges={name: {"loop_avoidance": True}, "br-lan": {"loop_avoidance": True}}))
        asked = [entry["args"]["bridge"] for entry in node.journal(call="bridgeAllocTableBuf")]
        assert set(asked) == {"abcdefghijklmnop", "br-lan"}
        assert scene.values(scene.requests(node), "SetTcpSP") == ["br-lan 0"]


class TestInterfaceValues:
    def programmed(self, node: Node, **members: object) -> list[str]:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node, scene.config({"wlan1.1": {"type": "5g"} | members}))
        assert scene.lines(node) == [READY]
        return [line for line in scene.requests(node) if " wlan1.1 " in line]

    def test_defaults(self, node: Node) -> None:
        assert self.programmed(node) == scene.port("br-lan wlan1.1", 3, relay=1, bcast=1)

    @pytest.mark.parametrize("code, type", enumerate(scene.TYPES))
    def test_type_names_have_their_codes(self, node: Node, code: int, type: str) -> None:
        assert f"SetIFType br-lan wlan1.1 {code}" in self.programmed(node, type=type)

    @pytest.mark.parametrize("value, expected", [(0, 0), (255, 255), (256, 0), (300, 44), (-1, 255), ("7", 7), (3.9, 3),
                                                 (True, 1), ("x", 0), (None, 255), (1e12, 255), ([], 0)],
                             ids=scene.short)
    def test_compat_group_keeps_its_low_8_bits(self, node: Node, value: object, expected: int) -> None:
        assert self.programmed(node, compat_group=value)[0] == f"SetIFCompat br-lan wlan1.1 {expected}"

    @pytest.mark.parametrize("value, expected", [(1, 1), (256, 0), (257, 1), (-1, 255), ("1", 1), (None, 0)],
                             ids=scene.short)
    def test_class_keeps_its_low_8_bits(self, node: Node, value: object, expected: int) -> None:
        assert f"SetIFClass br-lan wlan1.1 {expected}" in self.programmed(node, **{"class": value})

    @pytest.mark.parametrize("value, expected", [(True, 1), (1, 1), ("yes", 1), ("false", 1), (-1, 1), (0.5, 1),
                                                 (False, 0), (0, 0), ("", 0), (None, 0), ({}, 0), ([1], 0)],
                             ids=scene.short)
    def test_flags_are_converted(self, node: Node, value: object, expected: int) -> None:
        told = self.programmed(node, path=value, needha=value, nonrelay=value)
        assert f"SetIFPath br-lan wlan1.1 {expected}" in told
        assert f"SetNeedha br-lan wlan1.1 {expected}" in told
        assert f"SetIFGroup br-lan wlan1.1 {1 - expected} {1 - expected}" in told


class TestCouples:
    IDS = {"eth_vlan_id": 3, "plc_vlan_backhaul_id": 10, "plc_vlan_guest_id": 20}

    @pytest.mark.parametrize("key, value, line, couple", [
        ("wlan0.1", {"couple": "wlan0-g"}, "backhual lan:wlan0.1, guest:wlan0-g", "wlan0.1 wlan0-g"),
        ("plc0", {"couple": "plc0", "exchange": 5}, "backhual lan:plc0, guest:plc20", "plc0 plc20"),
        ("plc0", {"couple": "plc0", "exchange": 4}, "backhual lan:plc0, guest:plc3", "plc0 plc3"),
        ("plc0", {"couple": "plc0", "exchange": "5"}, "backhual lan:plc0, guest:plc20", "plc0 plc20"),
        ("key", {"couple": "plc0", "exchange": 5, "key_exchange": 4}, "backhaul lan: plc10, guest: plc20",
         "plc10 plc20"),
        ("key", {"couple": "plc0", "key_exchange": 4}, "backhaul lan: plc10, guest: plc0", "plc10 plc0"),
        ("key", {"couple": "plc0", "exchange": 1, "key_exchange": "4"}, "backhaul lan: plc10, guest: plc3",
         "plc10 plc3"),
        ("k" * 17, {"couple": "c" * 17}, f"backhual lan:{'k' * 16}, guest:{'c' * 16}", f"{'k' * 16} {'c' * 16}"),
        ("key", {"couple": "abcdefghijklmn0", "exchange": 5, "key_exchange": 4},
         "backhaul lan: abcdefghijklmn1, guest: abcdefghijklmn2", "abcdefghijklmn1 abcdefghijklmn2"),
        ("key", {"couple": "c", "exchange": 5}, "backhual lan:key, guest:20", "key 20"),
        ("key", {"couple": 77}, "backhual lan:key, guest:77", "key 77"),
    ], ids=scene.short)
    def test_couple_is_announced_and_declared_by_its_names(self, node: Node, key: str, value: dict, line: str,
                                                           couple: str) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={key: value}, **self.IDS))
        assert scene.lines(node) == [f"config_load: Info: {line}", READY]
        assert couples(node) == [f"br-lan {couple} 1"]

    @pytest.mark.parametrize("value, missing", [
        ({"couple": "plc0", "exchange": 5}, "plc_vlan_guest_id"), ({"couple": "plc0", "exchange": 6}, "eth_vlan_id"),
        ({"couple": "plc0", "key_exchange": 4}, "plc_vlan_backhaul_id"), ({"couple": "plc0", "key_exchange": 5}, ""),
        ({"couple": "plc0", "key_exchange": 0}, ""), ({}, ""), ({"couple": None}, ""), (5, ""), (None, ""),
        ([], ""), ("couple", ""),
    ], ids=scene.short)
    def test_couple_without_a_name_is_left_out_silently(self, node: Node, value: object, missing: str) -> None:
        scene.set_up(node, [])
        ids = {id: number for id, number in self.IDS.items() if id != missing}
        scene.start(node, scene.config(backhual={"x": value, "a": {"couple": "b"}}, **ids))
        assert scene.lines(node) == ["config_load: Info: backhual lan:a, guest:b", READY]
        assert couples(node) == ["br-lan a b 1"]

    @pytest.mark.parametrize("key, value", [("", {"couple": ""}), ("", {"couple": "", "exchange": 5}),
                                            ("", {"couple": "", "exchange": 5, "key_exchange": 4}),
                                            ("k", {"couple": "c" * 5000, "exchange": 5, "key_exchange": 4})],
                             ids=scene.short)
    def test_empty_and_endless_names_do_no_harm(self, node: Node, key: str, value: dict) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(backhual={key: value, "a": {"couple": "b"}}, **self.IDS))
        assert scene.lines(node)[-2:] == ["config_load: Info: backhual lan:a, guest:b", READY]
        assert couples(node)[-1] == "br-lan a b 0"


class TestSections:
    @pytest.mark.parametrize("section", ["bridges", "param", "interfaces", "backhual"])
    @pytest.mark.parametrize("value", [None, 5, "text", True, [], [{}], {}], ids=scene.short)
    def test_section_of_a_wrong_type_is_an_empty_one(self, node: Node, section: str, value: object) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config() | {section: value}, ready=section != "param")
        scene.wait_answer(node)
        assert scene.lines(node)[0] == READY
        assert node.stop_daemon() == 0

    @pytest.mark.parametrize("value", [None, 5, "text", True, [], {}, {"loop_avoidance": False},
                                       {"loop_avoidance": None}, {"loop_avoidance": ""}, {"path_selection": False}],
                             ids=scene.short)
    def test_bridge_without_the_flag_is_registered_for_events_only(self, node: Node, value: object) -> None:
        scene.set_up(node)
        scene.start(node, scene.config(bridges={"br-lan": value}))
        assert (scene.lines(node), scene.requests(node)) == ([READY], scene.event_info(node, "br-lan"))

    @pytest.mark.parametrize("value", [True, 1, "yes", 0.1], ids=scene.short)
    def test_bridge_flag_is_converted(self, node: Node, value: object) -> None:
        scene.set_up(node, [])
        scene.start(node, scene.config(bridges={"br-lan": {"loop_avoidance": value}}))
        assert scene.requests(node)[1:] == ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 0"]

    def test_file_with_nothing_but_enable_runs(self, node: Node) -> None:
        scene.start(node, {"enable": True}, ready=False)
        scene.wait_answer(node)
        assert scene.lines(node)[0] == READY
        assert node.stop_daemon() == 0
        assert scene.requests(node) == []

    def test_unknown_members_are_ignored(self, node: Node) -> None:
        scene.set_up(node, [])
        file = scene.config(unknown=1) | {"more": [1, {"x": None}], "": 2}
        scene.start(node, file)
        assert scene.lines(node) == [READY]

    def test_large_file_is_read(self, node: Node) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node, scene.config({"wlan1.1": WIFI}) | {"comment": "x" * 1_000_000})
        assert (scene.lines(node), names(node)) == ([READY], ["wlan1.1"])
