"""The whole model, without a daemon: events, places, placement, sharing, storms, the ideal."""
import pytest

from homes import home, path, stream
from kolt_sim.model.bridge import NOWHERE
from kolt_sim.model.ideal import broken
from kolt_sim.model.world import World
from kolt_sim.scenario.records import ClientEvent, CpuEvent, Fading, LinkEvent, NeighboursEvent, RateEvent

TWO = [path("5g", 800), path("5g_2", 1000)]  # 400 and 500 Mbit/s of capacity
CLIENTS = {"phone": "wlan1-a", "gateway": "uplink", "store": "uplink"}


def world(streams=(), paths=TWO, clients=CLIENTS, events=(), **other) -> World:
    return World(home(list(paths), dict(clients), list(streams), list(events), **other))


def run(made: World, ticks: int, start: int = 0) -> list[float]:
    """The goodput of each tick."""
    goodput = []
    for time in range(start, start + ticks):
        made.begin(float(time))
        made.flow(1.0)
        goodput.append(float(made.payload.sum()))
    return goodput


def program(made: World, *, broadcast: str) -> None:
    """What loop avoidance does: one port carries broadcast; and streams are to be followed."""
    for name, port in made.bridge.ports.items():
        port.programmed, port.broadcast, port.needs_ha = True, name == broadcast, True
    made.bridge.follows = True


def test_without_a_daemon_all_traffic_takes_the_default_link():
    made = world([stream("s", "phone", "gateway", demand=600)])
    assert run(made, 1) == [pytest.approx(400.0, rel=0.03)]
    assert made.carried.tolist() == [pytest.approx(400.0), 0.0]


def test_without_a_daemon_a_cable_serves_while_it_is_plugged_in():
    made = world([stream("s", "phone", "gateway", demand=100)], [path("ethernet", 940), path("plc", 500), *TWO],
                 events=[LinkEvent(1, "ethernet", False), LinkEvent(2, "ethernet", True)])
    seen = []
    for time in range(3):
        made.begin(float(time))
        made.flow(1.0)
        seen.append([link.type for link, carried in zip(made.links, made.carried) if carried > 0])
    assert seen == [["ethernet"], ["5g"], ["ethernet"]]


def test_without_a_daemon_the_next_link_serves_when_the_default_one_is_down():
    made = world([stream("s", "phone", "gateway", demand=100)], events=[LinkEvent(2, "5g", False)])
    run(made, 3)
    assert made.carried[0] == 0.0
    assert made.carried[1] > 99.0


def test_the_air_time_is_that_of_the_last_tick_until_the_next_has_passed():
    made = world([stream("s", "phone", "gateway", "small", 100)], events=[NeighboursEvent(1, "5g_2", 20, 0)])
    seen = [made.busy.tolist()]
    for time in range(2):
        made.begin(float(time))
        seen.append(made.busy.tolist())
        made.flow(1.0)
        seen.append(made.busy.tolist())
    assert seen == [[0, 0], [0, 0], [25, 0], [25, 0], [25, 20]]


def test_the_processor_s_load_is_that_of_the_last_tick_until_the_next_has_passed():
    made = world(events=[CpuEvent(1, 90)], cpu=30)
    seen = [made.load]
    for time in range(2):
        made.begin(float(time))
        seen.append(made.load)
        made.flow(1.0)
        seen.append(made.load)
    assert seen == [30, 30, 30, 30, 90]


def test_streams_between_clients_of_one_side_do_not_load_the_links():
    made = world([stream("far", "store", "gateway"), stream("near", "phone", "tv")],
                 clients=CLIENTS | {"tv": "eth1"})
    assert run(made, 1) == [0.0]


def test_a_client_that_is_away_neither_sends_nor_asks():
    made = world([stream("s", "phone", "gateway")], clients=CLIENTS | {"phone": "away"})
    run(made, 1)
    assert made.wanted.sum() == 0.0


def test_a_client_that_roams_to_the_far_side_takes_its_streams_off_the_links():
    made = world([stream("s", "phone", "gateway")], events=[ClientEvent(1, "phone", "uplink")])
    assert run(made, 2) == [10.0, 0.0]


def test_both_directions_are_counted_on_their_links():
    made = world([stream("down", "phone", "gateway", "download", 80), stream("up", "phone", "store", "upload", 40)])
    run(made, 3)
    (in_bytes, _), (out_bytes, _) = made.link_in[0], made.link_out[0]
    assert in_bytes == pytest.approx(3 * (80 + 0.022 * 40) * 1e6 / 8)
    assert out_bytes == pytest.approx(3 * (40 + 0.022 * 80) * 1e6 / 8)


def test_a_far_client_downloads_outwards():
    made = world([stream("s", "store", "phone", "download", 80)])
    run(made, 1)
    assert made.link_out[0][0] == pytest.approx(80 * 1e6 / 8)


def test_counters_of_a_stream_are_those_of_its_two_directions():
    made = world([stream("s", "phone", "gateway", "download", 80)])
    run(made, 2)
    assert made.total_in[0] == pytest.approx(2 * 10e6)
    assert made.packets_in[0] == pytest.approx(2 * 10e6 / 1500)
    assert made.packets_out[0] == pytest.approx(made.packets_in[0] / 2)


def test_clients_are_learnt_where_their_broadcast_comes_in():
    made = world([stream("s", "phone", "gateway")])
    program(made, broadcast="wlan2.1")
    run(made, 1)
    assert made.links[made.learnt_path()].type == "5g_2"
    assert made.carried[1] > 10.0


def test_when_no_link_carries_broadcast_nobody_is_learnt():
    made = world([stream("s", "phone", "gateway")])
    program(made, broadcast="none")
    assert run(made, 1) == [0.0]
    assert made.learnt_path() == NOWHERE


def test_a_plain_bridge_with_two_links_storms_and_a_programmed_one_does_not():
    made = world()
    made.begin(0.0)
    assert sorted(made.storm()) == ["wlan1.1", "wlan2.1"]
    program(made, broadcast="wlan1.1")
    assert made.storm() == []


def test_a_plain_bridge_with_one_link_does_not_storm():
    made = world(paths=[path("5g", 800)])
    made.begin(0.0)
    assert made.storm() == []


def test_a_wired_port_that_comes_back_is_a_plain_one_again():
    made = world(paths=[path("ethernet", 940), *TWO],
                 events=[LinkEvent(1, "ethernet", False), LinkEvent(2, "ethernet", True)])
    program(made, broadcast="wlan1.1")
    run(made, 2)
    assert made.storm() == []
    made.begin(2.0)
    assert sorted(made.storm()) == ["eth0", "wlan1.1"]


def test_events_happen_at_their_moment_and_are_told():
    made = world(events=[LinkEvent(1, "5g", False), RateEvent(1, "5g_2", 500, 0), NeighboursEvent(2, "5g_2", 20, 0),
                         CpuEvent(2, 90), ClientEvent(3, "phone", "away")])
    told = [[one.text for one in made.begin(float(time))] for time in range(4)]
    assert told == [[], ["link 5g down", "rate of 5g_2 goes to 500 Mbit/s"],
                    ["neighbours of 5g_2 go to 20 %", "processor load 90 %"], ["client phone leaves"]]
    assert (made.links[1].rate, made.links[1].neighbours, made.cpu) == (500.0, 20.0, 90)


def test_the_same_seed_gives_the_same_run():
    fading = [path("5g", 800, fading=Fading(20, 30, 10)), path("5g_2", 1000)]
    streams = [stream(f"s{number}", "phone", "gateway", demand=70, on=4, off=4) for number in range(8)]
    assert run(world(streams, fading), 60) == run(world(streams, fading), 60)
    assert run(world(streams, fading), 60) != run(world(streams, fading, seed=2), 60)


# Changes of path

def test_a_stream_that_stays_where_it_is_changes_no_path():
    made = world([stream("s", "phone", "gateway")])
    program(made, broadcast="wlan1.1")
    run(made, 5)
    assert made.changes == 0


def test_streams_that_follow_the_default_link_change_their_paths():
    made = world([stream(f"s{number}", "phone", "gateway") for number in range(3)],
                 events=[LinkEvent(1, "5g", False), LinkEvent(3, "5g", True)])
    run(made, 5)
    assert made.changes == 6


def test_a_stream_that_the_daemon_moves_changes_its_path():
    made = world([stream("s", "phone", "gateway")])
    program(made, broadcast="wlan1.1")
    run(made, 2)
    made.bridge.pin_stream(0, "wlan2.1")
    run(made, 2, start=2)
    assert made.changes == 1


def test_a_stream_that_is_flushed_and_placed_anew_elsewhere_changes_its_path():
    made = world([stream("s", "phone", "gateway")])
    program(made, broadcast="wlan1.1")
    run(made, 2)
    made.bridge.pin_client(1, "wlan2.1", bytes(6))
    run(made, 2, start=2)
    assert made.changes == 0
    made.bridge.flush_streams()
    run(made, 2, start=4)
    assert made.changes == 1


def test_a_stream_that_comes_back_from_a_pause_elsewhere_has_changed_no_path():
    made = world([stream("s", "phone", "gateway")], events=[ClientEvent(1, "phone", "away"), LinkEvent(2, "5g", False),
                                                            ClientEvent(3, "phone", "eth1")])
    assert run(made, 5) == [10.0, 0.0, 0.0, 10.0, 10.0]
    assert made.changes == 0


# A dead link

def test_an_entry_leads_into_a_dead_link_until_it_is_flushed():
    made = world([stream("s", "phone", "gateway")], events=[LinkEvent(2, "5g", False)])
    program(made, broadcast="wlan1.1")
    assert run(made, 4) == [10.0, 10.0, 0.0, 0.0]
    program(made, broadcast="wlan2.1")
    assert run(made, 1, start=4) == [0.0]
    made.bridge.flush_streams()
    assert run(made, 1, start=5) == [10.0]


def test_an_entry_leads_into_a_dead_link_until_it_is_re_pointed():
    made = world([stream("s", "phone", "gateway")], events=[LinkEvent(1, "5g", False)])
    program(made, broadcast="wlan1.1")
    assert run(made, 2) == [10.0, 0.0]
    made.bridge.pin_stream(0, "wlan2.1")
    made.bridge.back[0] = 1
    assert run(made, 1, start=2) == [10.0]


def test_a_client_pinned_to_a_dead_link_is_not_reached_until_it_is_flushed():
    made = world([stream("s", "phone", "gateway")], paths=[path("5g", 800), path("5g_2", 1000, up=False)])
    program(made, broadcast="wlan1.1")
    made.bridge.pin_client(1, "wlan2.1", bytes(6))
    assert run(made, 2) == [0.0, 0.0]
    made.bridge.flush_clients()
    made.bridge.flush_streams()
    assert run(made, 1, start=2) == [10.0]


# The ideal

NONE = frozenset()
FOUR = [path("ethernet", 940), path("plc", 90), path("5g", 800), path("5g_2", 1000)]


def many(count: int, demand: float) -> list:
    """Streams whose payload is all that they carry."""
    return [stream(f"s{number}", "phone", "gateway", "small", demand) for number in range(count)]


def test_the_ideal_uses_all_links_as_one_pool():
    made = world(many(10, 100))
    run(made, 1)
    assert made.ideal(NONE, made.learnt_path()).sum() == pytest.approx(900.0)


def test_the_ideal_gives_no_stream_more_than_the_widest_link():
    made = world(many(1, 2000))
    run(made, 1)
    assert made.ideal(NONE, made.learnt_path()).sum() == pytest.approx(500.0)


@pytest.mark.parametrize(("learnt", "total"), [
    ("ethernet", 940 + 400 + 500), ("plc", 90 + 400 + 500), ("5g", 400 + 500), (None, 400 + 500)])
def test_the_ideal_uses_a_wire_only_when_clients_are_learnt_there(learnt, total):
    made = world(many(100, 50), paths=FOUR)
    run(made, 1)
    assert made.ideal(NONE, made.by_type.get(learnt, NOWHERE)).sum() == pytest.approx(total)


@pytest.mark.parametrize(("learnt", "total"), [("5g", 400), ("5g_2", 900)])
def test_the_ideal_uses_a_forbidden_radio_only_when_clients_are_learnt_there(learnt, total):
    made = world(many(100, 50))
    run(made, 1)
    assert made.ideal(frozenset({"5g_2"}), made.by_type[learnt]).sum() == pytest.approx(total)


def test_the_ideal_uses_no_link_that_is_down():
    made = world(many(100, 50), paths=[path("ethernet", 940, up=False), path("5g", 800), path("5g_2", 1000, up=False)])
    run(made, 1)
    assert made.ideal(NONE, made.by_type["ethernet"]).sum() == pytest.approx(400.0)


def test_without_any_link_the_ideal_is_nothing():
    made = world(many(2, 50), paths=[path("5g", 800, up=False)])
    run(made, 1)
    assert made.ideal(NONE, made.learnt_path()).tolist() == [0.0, 0.0]


@pytest.mark.parametrize(("rates", "types"), [
    ({"2.4g": 144, "5g": 12, "5g_2": 1000}, {"5g"}),
    ({"2.4g": 144, "5g": 12, "5g_2": 12}, {"5g", "5g_2"}),
    ({"2.4g": 13, "5g": 12.9, "5g_2": 13}, {"5g"}),
    ({"2.4g": 12, "5g": 12, "5g_2": 1000}, set()),
    ({"2.4g": 12, "5g": 800}, set()),
    ({"5g": 12, "5g_2": 1000}, set()),
    ({"ethernet": 10, "plc": 5, "2.4g": 144}, set()),
], ids=["one", "both", "at the threshold", "2.4 GHz is no better", "2.4 GHz itself", "no 2.4 GHz", "wires"])
def test_a_5_ghz_link_below_the_threshold_is_broken_beside_a_healthy_2_4_ghz_one(rates, types):
    made = world(paths=[path(kind, rate) for kind, rate in rates.items()])
    made.begin(0.0)
    assert broken(made.links, 13) == types


def test_beside_a_2_4_ghz_link_that_is_down_nothing_is_broken():
    made = world(paths=[path("2.4g", 144, up=False), path("5g", 12)])
    made.begin(0.0)
    assert broken(made.links, 13) == set()


def test_no_placement_beats_the_ideal():
    streams = [stream(f"s{number}", "phone", "gateway", demand=15 + number) for number in range(40)]
    made = world(streams)
    program(made, broadcast="wlan2.1")
    for time in range(30):
        made.begin(float(time))
        made.bridge.out[:] = (time * 7 + made.bridge.out * 3) % 2  # whatever
        made.bridge.pinned[:] = True
        made.flow(1.0)
        assert made.payload.sum() <= made.ideal(NONE, made.learnt_path()).sum() + 1e-6
