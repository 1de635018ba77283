"""The shipped configurations in the daemon's hands: it starts, and programs what kolt-check says it would."""
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

from check_tool import BUILD, SHIPPED, TOP, check

sys.path.insert(0, str(TOP / "platform/sim"))

from kolt_node import Mark, Node, NodeError  # noqa: E402
from kolt_node.state import LINK_FILES  # noqa: E402

UCI = {"TrafficPlcRoot": "0", "TrafficEthActive": "0", "TrafficEthInterface": "eth0", "eth_HasNeigh": "0"}
MODES = {"access-point.json": "FAP", "hybrid.json": "HAP"}


TYPES = ["ethernet", "plc", "2.4g", "5g", "5g_2"]
SETTERS = {"bridgeSetIFCompat": "compat_group", "bridgeSetIFClass": "class", "bridgeSetIFPath": "path",
           "bridgeSetNeedha": "needha"}


@pytest.fixture(scope="module")
def shared() -> Iterator[Node]:
    with Node(BUILD) as fresh:
        fresh.set_uci(UCI)
        fresh.set_ethernet_profile(["eth0", "eth1"])
        for link in LINK_FILES:
            fresh.set_link(link, 1)
        fresh.start_broker()
        yield fresh


def ports_by_bridge(told: dict) -> dict[str, list[str]]:
    """Class 1 is the guests' network."""
    bridges: dict[str, list[str]] = {bridge["name"]: [] for bridge in told["bridges"]}
    for port in told["interfaces"]:
        guest = port["settings"]["class"]["value"] == 1
        bridges["br-guest" if guest else "br-lan"].append(port["name"])
    return bridges


def set_up(node: Node, bridges: dict[str, list[str]]) -> None:
    for bridge, ports in bridges.items():
        for port in ports:
            try:
                node.ifindex(port)
            except (OSError, NodeError):
                node.add_interface(port)
        node.set_bridge(bridge, ports)


def programmed(node: Node, call: str, begin: Mark) -> set[tuple]:
    return {tuple(entry["args"].values()) for entry in node.journal(begin, call)}


@pytest.mark.parametrize("path", SHIPPED, ids=lambda path: path.name)
def test_daemon_starts_and_programs_what_kolt_check_says(shared: Node, path: Path) -> None:
    told = check(path.read_text())
    shared.set_work_mode(MODES.get(path.name, "RE"))
    bridges = ports_by_bridge(told)
    set_up(shared, bridges)
    begin = shared.mark()
    daemon = shared.start_daemon(path.read_text())
    assert daemon.status is None, daemon.stderr
    owner = {port: bridge for bridge, ports in bridges.items() for port in ports}
    for call, key in SETTERS.items():
        assert programmed(shared, call, begin) == {
            (owner[port["name"]], port["name"], int(port["settings"][key]["value"])) for port in told["interfaces"]}
    assert programmed(shared, "bridgeSetIFType", begin) == {
        (owner[port["name"]], port["name"], TYPES.index(port["type"])) for port in told["interfaces"]}
    assert {pair[1:3] for pair in programmed(shared, "bridgeSetCouple", begin)} == {
        (couple["lan"], couple["guest"]) for couple in told["couples"]}
    assert shared.stop_daemon() == 0
