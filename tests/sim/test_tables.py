"""The tables as bytes, read back field by field."""
import struct

import pytest

from homes import home, path, stream
from kolt_sim.loop.tables import REVERSE, Tables, client_mac
from kolt_sim.model.bridge import NOWHERE
from kolt_sim.model.world import World

BRIDGE_MAC = "02:40:00:00:00:01"
INDEXES = {"br-lan": 3, "wlan1.1": 300, "wlan2.1": 12, "wlan1-a": 7}
WINDOW = 5.0


class Scene:
    """A programmed home with two links, a phone here and a gateway and a store on the far side."""

    def __init__(self, *streams) -> None:
        clients = {"phone": "wlan1-a", "gateway": "uplink", "store": "uplink", "gone": "away"}
        self.world = World(home([path("5g", 800), path("5g_2", 1000)], clients, list(streams)))
        for name, port in self.world.bridge.ports.items():
            port.programmed, port.needs_ha, port.broadcast = True, True, name == "wlan1.1"
        self.world.bridge.follows = True
        self.tables = Tables(self.world, INDEXES, BRIDGE_MAC, WINDOW)
        self.time = 0
        self.world.begin(0.0)
        self.tables.take_streams()  # as a node is shown before the first tick

    def tick(self) -> list[bytes]:
        self.world.begin(float(self.time))
        self.world.flow(1.0)
        self.time += 1
        data = self.tables.take_streams()
        return [data[start:start + 100] for start in range(0, len(data), 100)]


def mac(text: str) -> bytes:
    return bytes.fromhex(text.replace(":", ""))


def field(entry: bytes, form: str, offset: int) -> int:
    return struct.unpack_from("<" + form, entry, offset)[0]


def test_the_forwarding_table_tells_who_is_where():
    scene = Scene()
    scene.tick()
    data = scene.tables.forwarding()
    entries = {data[start:start + 6]: data[start:start + 16] for start in range(0, len(data), 16)}
    ports = {key: entry[6] + 256 * entry[12] for key, entry in entries.items()}
    assert ports == {mac(BRIDGE_MAC): 3, mac(client_mac(0)): 7, mac(client_mac(1)): 300, mac(client_mac(2)): 300}
    assert [key for key, entry in entries.items() if entry[7]] == [mac(BRIDGE_MAC)]
    assert list(entries)[-1] == mac(BRIDGE_MAC)


def test_pinned_clients_are_listed_with_their_port_and_second_address():
    scene = Scene()
    scene.world.bridge.pin_client(2, "wlan2.1", mac("02:99:00:00:00:01"))
    data = scene.tables.pinned_clients()
    assert (data[:6], data[6:12]) == (mac(client_mac(2)), mac("02:99:00:00:00:01"))
    assert (field(data, "I", 12), len(data)) == (12, 24)


def test_a_stream_has_an_entry_for_each_direction():
    ahead, behind = Scene(stream("s", "phone", "gateway", "download", 80)).tick()
    assert (ahead[2:8], ahead[8:14]) == (mac(client_mac(0)), mac(client_mac(1)))
    assert (behind[2:8], behind[8:14]) == (mac(client_mac(1)), mac(client_mac(0)))
    assert (field(ahead, "H", 20), field(ahead, "H", 22)) == (field(behind, "H", 22), field(behind, "H", 20))
    assert (ahead[88], behind[88]) == (0, REVERSE)
    assert field(ahead, "H", 0) != field(behind, "H", 0)
    assert (field(ahead, "I", 28), field(behind, "I", 28)) == (300, 300)


def test_the_far_client_is_the_destination_whoever_asked():
    ahead, _ = Scene(stream("s", "gateway", "phone", "download", 80)).tick()
    assert ahead[8:14] == mac(client_mac(1))


def test_counters_hold_the_bytes_and_packets_of_a_period():
    scene = Scene(stream("s", "phone", "gateway", "download", 12))
    for _ in range(10):
        ahead, behind = scene.tick()
    second = 12e6 / 8
    assert field(behind, "I", 64) == pytest.approx(WINDOW * second)
    assert field(behind, "I", 60) == pytest.approx(WINDOW * second / 1500)
    assert field(ahead, "I", 60) == pytest.approx(WINDOW * second / 3000)
    assert field(ahead, "I", 64) == pytest.approx(WINDOW * second / 3000 * 66)


def test_datagrams_are_marked_as_such():
    assert [field(entry, "H", 24) for entry in Scene(stream("s", "phone", "gateway", "small", 1)).tick()] == [1, 1]
    assert [field(entry, "H", 24) for entry in Scene(stream("s", "phone", "gateway", "video", 1)).tick()] == [0, 0]


def test_a_silent_stream_has_no_entry():
    scene = Scene(stream("s", "phone", "gateway", end=1), stream("t", "phone", "gateway"))
    assert (len(scene.tick()), len(scene.tick())) == (4, 2)


def test_a_flushed_stream_has_no_entry_until_it_carries_again():
    scene = Scene(stream("s", "phone", "gateway"))
    scene.tick()
    scene.world.bridge.flush_streams()
    assert scene.tables.take_streams() == b""
    assert len(scene.tick()) == 2


def test_a_new_entry_counts_from_its_own_beginning():
    scene = Scene(stream("s", "phone", "gateway", "small", 8))
    for _ in range(10):
        scene.tick()
    scene.world.bridge.flush_streams()
    seen = [[field(entry, "I", 64) for entry in scene.tick()] for _ in range(7)]
    assert seen == [[ticks * 500_000] * 2 for ticks in (1, 2, 3, 4, 5, 5, 5)]


def test_a_new_entry_counts_its_packets_from_its_own_beginning():
    scene = Scene(stream("s", "phone", "gateway", "small", 8))
    for _ in range(3):
        scene.tick()
    scene.world.bridge.flush_streams()
    assert [field(entry, "I", 60) for entry in scene.tick()] == [2500, 2500]


def test_a_stream_that_is_re_pointed_goes_on_counting():
    scene = Scene(stream("s", "phone", "gateway", "small", 8))
    scene.tick()
    scene.world.bridge.pin_stream(0, "wlan2.1")
    assert [field(entry, "I", 64) for entry in scene.tick()] == [1_000_000] * 2


def test_an_entry_counts_in_the_first_tick_of_all():
    scene = Scene(stream("s", "phone", "gateway", "small", 8))
    assert [field(entry, "I", 64) for entry in scene.tick()] == [500_000] * 2


def test_each_entry_counts_for_itself():
    scene = Scene(stream("s", "phone", "gateway", "small", 8), stream("t", "phone", "gateway", "small", 8, start=2))
    for _ in range(2):
        scene.tick()
    first, second, *_ = scene.tick()
    assert (field(first, "I", 64), field(second, "I", 64)) == (1_500_000, 500_000)


def identity(number: int, **other) -> dict:
    """What the daemon calls an entry of the phone's by."""
    return {"hash": number, "src": client_mac(0), "dst": client_mac(1), "stream_kind": 0} | other


@pytest.mark.parametrize(("given", "is_entry"), [
    (identity(1), True), (identity(1, dst=client_mac(1).upper()), True), (identity(0), False), (identity(3), False),
    (identity(1, stream_kind=1), False), (identity(1, src=client_mac(2)), False),
    (identity(1, src=client_mac(1), dst=client_mac(0)), False),
], ids=["as it is", "capitals", "another hash", "the answer's hash", "another kind", "another source",
        "the answer's addresses"])
def test_an_entry_is_known_by_its_hash_kind_and_addresses(given, is_entry):
    scene = Scene(*[stream(f"s{number}", "phone", "gateway") for number in range(2)])
    scene.tick()
    assert scene.tables.is_forward_entry(1, given) is is_entry


def test_a_stream_is_found_again_by_its_ports():
    scene = Scene(*[stream(f"s{number}", "phone", "gateway") for number in range(3)])
    ahead = scene.tick()[2]
    assert scene.tables.stream_of(field(ahead, "H", 20), field(ahead, "H", 22)) == 2
    assert scene.tables.stream_of(9999, 443) == NOWHERE
    assert scene.tables.stream_of(10003, 443) == NOWHERE
    assert scene.tables.stream_of(10000, 80) == NOWHERE


def test_an_address_says_the_number_of_its_client():
    assert (client_mac(1), client_mac(255), client_mac(256)) == (
        "02:20:00:00:00:01", "02:20:00:00:00:ff", "02:20:00:00:01:00")
