"""Periods among waits: bus events that pause, and moved streams whose answer does not come."""
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
import scene
from path_scene import HOSTS, HOT, PathNode

MOVED = 7  # the stream whose move is not answered
NO_NAME = "path_selection_update_uplink_paths: Error: error ifname"
NO_PATH = "path_selection_get_path_by_port: Error: get interface name"


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[PathNode]:
    yield from paths.lend(build)


@pytest.fixture
def node(shared: PathNode) -> Iterator[PathNode]:
    yield from shared.lend()


def rename(node: PathNode, old: str, new: str) -> None:
    for words in (["down"], ["name", new]):
        assert node.run(["/sbin/ip", "link", "set", "dev", old, *words]).status == 0


def hosts_on(node: PathNode, ports: list[str]) -> None:
    """Hosts in this order on these ports, all of them pinned to the best path already."""
    node.set_table("br-lan", "fdb", [paths.fdb_entry(host, node.ifindex(port)) for host, port in zip(HOSTS, ports)])
    node.set_table("br-lan", "hd", [paths.hd_entry(host, node.ifindex("wlan2.1")) for host in HOSTS[:len(ports)]])
    node.set_load(load_2_4g=HOT)


def test_client_is_passed_over_whose_port_is_deleted_during_the_wait(node: PathNode) -> None:
    """The port's name was asked for before: what the kernel said then counts no more."""
    paths.set_up(node)
    hosts_on(node, ["eth0", "wlan0.1", "eth0"])
    node.set_table("br-lan", "ha", [paths.stream(node, MOVED, "wlan0.1", host=HOSTS[1])])
    node.begin()
    period = node.period_with(lambda: node.remove_interface("eth0"))
    assert period.ha() == [(MOVED, "wlan2.1")]
    assert period.lines.count(NO_NAME) == 1
    assert period.lines.index(NO_NAME) > period.lines.index(
        "path_selection_update_ha_entry: Info: send notify msg failed")


def test_streams_stay_whose_path_is_deleted_during_the_wait(node: PathNode) -> None:
    paths.set_up(node)
    hosts_on(node, ["eth0", "eth0"])
    node.set_table("br-lan", "ha", [paths.stream(node, MOVED, "wlan0.1"),
                                    paths.stream(node, 8, "wlan0.1", host=HOSTS[1])])
    node.begin()
    period = node.period_with(lambda: node.remove_interface("wlan0.1"))
    assert period.ha() == [(MOVED, "wlan2.1")]
    assert period.lines.count(NO_PATH) == 1


def test_streams_stay_whose_path_has_another_name_after_the_wait(node: PathNode) -> None:
    paths.set_up(node)
    hosts_on(node, ["eth0", "eth0"])
    node.set_table("br-lan", "ha", [paths.stream(node, MOVED, "wlan0.1"),
                                    paths.stream(node, 8, "wlan0.1", host=HOSTS[1])])
    node.begin()
    period = node.period_with(lambda: rename(node, "wlan0.1", "gone0.1"))
    assert period.ha() == [(MOVED, "wlan2.1")]
    rename(node, "gone0.1", "wlan0.1")


def test_client_is_pinned_anew_when_the_best_path_has_another_index_after_the_wait(node: PathNode) -> None:
    """Its entry names an interface that is no longer the path's."""
    paths.set_up(node)
    hosts_on(node, ["eth0", "eth0"])
    node.set_table("br-lan", "ha", [paths.stream(node, MOVED, "wlan0.1")])
    node.begin()

    def replace() -> None:
        node.remove_interface("wlan2.1")
        node.add_interface("wlan2.1")

    period = node.period_with(replace)
    assert period.hd() == [(HOSTS[1], "wlan2.1")]


def test_periods_go_on_between_bus_events_that_wait_in_a_row(node: PathNode) -> None:
    """Each event pauses for as long as a period lasts, so that a timer is due after every one."""
    paths.set_up(node)
    scene.start(node, paths.config(bridges={"br-lan": {"loop_avoidance": True, "path_selection": True}}))
    begin = scene.mark(node)
    for _ in range(20):
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1}, settle=False)
    node.wait_calls("bridgeTableAction", since=begin, count=4, timeout=30, code=2)
    flushed = scene.requests(node, begin).count("FlushHATable br-lan")  # before the pause and after it
    assert flushed < 40, "the periods came behind the last event"


def begin_moves_without_an_answer(node: PathNode, count: int) -> None:
    """Has a period begin that moves so many streams, each with a notify message that nobody answers."""
    hosts = [f"02:40:00:00:00:{number:02x}" for number in range(count)]
    paths.set_up(node)
    paths.add_hosts(node, hosts, "eth0", pinned="wlan2.1")
    node.set_table("br-lan", "ha", [paths.stream(node, number, "wlan0.1", host=host)
                                    for number, host in enumerate(hosts)])
    node.set_load(load_2_4g=HOT)
    node.answer_requests(silent=True)
    scene.start(node, paths.config())


def told_moves(node: PathNode) -> list[int]:
    return [entry["time"] for entry in node.journal(call="sendto") if entry["args"]["type"] == 14]


def test_moves_without_an_answer_cost_two_seconds_a_period(node: PathNode) -> None:
    """All are made and told all the same: the parent may have heard what it does not answer."""
    begin_moves_without_an_answer(node, 100)
    node.wait_for(lambda: len(node.log(text="send notify msg failed")) == 100, 10, "the end of the period")
    told = told_moves(node)
    assert len(told) == len(node.journal(call="bridgeSetHATableEntries")) == 100
    assert 1.9e9 < told[-1] - told[0] < 8e9, "a second each would be a hundred"
    assert node.stop_daemon() == 0


def test_stop_signal_during_a_row_of_moves_without_an_answer_is_obeyed(node: PathNode) -> None:
    begin_moves_without_an_answer(node, 100)
    node.wait_for(lambda: told_moves(node), 10, "the first move")
    assert len(node.log(text="send notify msg failed")) < 100, "the row was over before the signal"
    assert node.stop_daemon() == 0
    assert len(node.journal(call="bridgeTableAction", code=2)) == 1, "another period followed"
