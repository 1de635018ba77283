"""What the daemon is told of what happens: by the radios, by the bridge, and over the bus."""
import pytest

from homes import home, path
from kolt_node.messages import mac_bytes, wireless_event
from kolt_sim.loop.messenger import PORT_JOINS, PORT_LEAVES, STATION_EVENT, Messenger
from kolt_sim.loop.tables import Tables, client_mac
from kolt_sim.model.world import World
from kolt_sim.scenario.records import ClientEvent, CpuEvent, LinkEvent

INDEXES = {"br-lan": 3, "eth0": 4, "eth1": 9, "plc0": 6, "wlan1.1": 300, "wlan0-a": 8, "wlan1-a": 7, "wlan1-b.1": 11}
PHONE = 0


class FakeNode:
    """Keeps what is sent to the daemon."""

    def __init__(self) -> None:
        self.sent: list[tuple] = []

    def send_link_notification(self, *given: object) -> None:
        self.sent.append(("radio", *given))

    def send_bridge_event(self, *given: object) -> None:
        self.sent.append(("bridge", *given))

    def event(self, name: str, states: dict, *, settle: bool) -> None:
        assert not settle
        self.sent.append((name, states))


def told(event: object, at: str = "wlan1-a") -> list[tuple]:
    """What the daemon hears of an event in a home with a phone at that place."""
    paths = [path("ethernet", 940, up=False), path("plc", 90), path("5g", 800)]
    world, node = World(home(paths, {"phone": at, "gateway": "uplink"}, [], [event], default_path="5g")), FakeNode()
    messenger = Messenger(node, world, Tables(world, INDEXES, "02:40:00:00:00:01", 5.0))
    assert not messenger.tell(world.begin(0.0))
    assert messenger.tell(world.begin(1.0)) == bool(node.sent)
    return node.sent


def learnt(port: str) -> tuple:
    """The bridge's message that it has seen the phone on a port."""
    index = INDEXES[port]
    station = mac_bytes(client_mac(PHONE)) + bytes([index & 255]) + bytes(5) + bytes([index >> 8])
    return "bridge", STATION_EVENT, station


@pytest.mark.parametrize(("at", "radio"), [("wlan0-a", "wlan0-a"), ("wlan1-a", "wlan1-a"), ("wlan1-b.1", "wlan1-b")])
def test_a_radio_reports_a_station_that_leaves(at, radio):
    assert told(ClientEvent(1, "phone", "away"), at) == [("radio", radio, wireless_event())]


@pytest.mark.parametrize("at", ["eth1", "uplink", "away"])
def test_nobody_reports_a_client_that_leaves_no_radio(at):
    world = World(home([path("5g", 800)], {"phone": at}, [], [ClientEvent(1, "phone", "away")]))
    node = FakeNode()
    messenger = Messenger(node, world, Tables(world, INDEXES, "02:40:00:00:00:01", 5.0))
    messenger.tell(world.begin(1.0))
    assert node.sent == []


@pytest.mark.parametrize(("at", "to", "radio"), [
    ("wlan1-a", "wlan0-a", ["wlan1-a"]), ("wlan1-b.1", "eth1", ["wlan1-b"]), ("eth1", "wlan0-a", []),
    ("away", "wlan1-b.1", [])])
def test_a_client_that_roams_leaves_its_radio_and_is_learnt_where_it_went(at, to, radio):
    assert told(ClientEvent(1, "phone", to), at) == [*(("radio", one, wireless_event()) for one in radio), learnt(to)]


def test_a_client_that_goes_to_the_far_side_is_learnt_where_broadcast_comes_in():
    assert told(ClientEvent(1, "phone", "uplink"), "eth1") == [learnt("wlan1.1")]


def test_a_client_that_stays_has_not_left_its_radio():
    assert told(ClientEvent(1, "phone", "wlan1-a")) == [learnt("wlan1-a")]


@pytest.mark.parametrize(("kind", "up", "port"), [("plc", False, [PORT_LEAVES]), ("ethernet", True, [PORT_JOINS]),
                                                  ("5g", False, [])])
def test_the_bus_says_how_all_links_are_after_a_wired_port_has_joined_or_left(kind, up, port):
    states = {"LINK_WIFI_2G": 0, "LINK_WIFI_5G": 1, "LINK_WIFI_5G_2": 0, "LINK_PLC": 1, "LINK_ETH": 0}
    changed = {"plc": "LINK_PLC", "ethernet": "LINK_ETH", "5g": "LINK_WIFI_5G"}[kind]
    assert told(LinkEvent(1, kind, up)) == [*(("bridge", one) for one in port),
                                            ("kolt.link_state", states | {changed: int(up)})]


def test_what_happens_to_the_processor_nobody_tells():
    assert told(CpuEvent(1, 90)) == []
