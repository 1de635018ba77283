"""How counts, spreads and flaps of a scenario become members, demands and events."""
from pathlib import Path

import pytest
from scenario_files import Desk, least

from kolt_sim.scenario.records import ClientEvent, CpuEvent, LinkEvent, Scenario

CLIENTS = [{"name": "server", "count": 2, "at": "uplink"}, {"name": "tv", "count": 3, "at": "eth1"},
           {"name": "laptop", "at": "wlan1-a"}]
GROUP = {"name": "film", "client": "tv", "peer": "server", "kind": "video", "demand": 10}


@pytest.fixture
def desk(tmp_path: Path) -> Desk:
    return Desk(tmp_path)


def home(desk: Desk, *streams: dict, **other: object) -> Scenario:
    return desk.load(least() | {"clients": CLIENTS, "streams": list(streams)} | other)


def demands(scenario: Scenario, group: str) -> list[float]:
    return [stream.demand for stream in scenario.streams if stream.name.startswith(group)]


def test_several_clients_are_numbered_and_a_single_one_is_not(desk: Desk) -> None:
    clients = home(desk).clients
    assert [(client.name, client.at) for client in clients] == [
        ("server-1", "uplink"), ("server-2", "uplink"), ("tv-1", "eth1"), ("tv-2", "eth1"), ("tv-3", "eth1"),
        ("laptop", "wlan1-a")]


def test_streams_go_round_robin_over_clients_and_peers(desk: Desk) -> None:
    streams = home(desk, GROUP | {"count": 7}).streams
    assert [(stream.name, stream.client, stream.peer) for stream in streams] == [
        ("film-1", "tv-1", "server-1"), ("film-2", "tv-2", "server-2"), ("film-3", "tv-3", "server-1"),
        ("film-4", "tv-1", "server-2"), ("film-5", "tv-2", "server-1"), ("film-6", "tv-3", "server-2"),
        ("film-7", "tv-1", "server-1")]


def test_a_single_stream_keeps_the_name_of_its_group(desk: Desk) -> None:
    assert [stream.name for stream in home(desk, GROUP).streams] == ["film"]


def test_a_stream_may_name_one_member(desk: Desk) -> None:
    streams = home(desk, GROUP | {"client": "tv-2", "count": 2}).streams
    assert [(stream.client, stream.peer) for stream in streams] == [("tv-2", "server-1"), ("tv-2", "server-2")]


def test_two_members_of_one_group_may_talk(desk: Desk) -> None:
    streams = home(desk, GROUP | {"client": "tv-1", "peer": "tv-3"}).streams
    assert [(stream.client, stream.peer) for stream in streams] == [("tv-1", "tv-3")]


def test_each_stream_has_the_whole_of_its_groups_other_members(desk: Desk) -> None:
    streams = home(desk, GROUP | {"count": 3, "start": 5, "end": 50, "on": 3, "off": 4}).streams
    assert {(stream.kind, stream.start, stream.end, stream.on, stream.off) for stream in streams} == {
        ("video", 5, 50, 3, 4)}


def test_without_a_spread_all_demands_are_alike(desk: Desk) -> None:
    assert demands(home(desk, GROUP | {"count": 5}), "film") == [10] * 5


def test_a_spread_draws_demands_around_the_groups(desk: Desk) -> None:
    drawn = demands(home(desk, GROUP | {"count": 2000, "spread": 30}), "film")
    assert all(7 <= demand <= 13 for demand in drawn)
    assert min(drawn) < 7.1 and max(drawn) > 12.9
    assert sum(drawn) / len(drawn) == pytest.approx(10, abs=0.2)
    assert sum(demand < 8.5 for demand in drawn) == pytest.approx(500, abs=80)  # evenly


def test_a_full_spread_leaves_every_stream_some_demand(desk: Desk) -> None:
    drawn = demands(home(desk, GROUP | {"count": 5000, "spread": 100}), "film")
    assert all(0 < demand <= 20 for demand in drawn)


def test_the_same_file_gives_the_same_scenario(desk: Desk) -> None:
    group = GROUP | {"count": 50, "spread": 50}
    assert home(desk, group) == home(desk, group)


def test_another_seed_gives_other_demands(desk: Desk) -> None:
    group = GROUP | {"count": 50, "spread": 50}
    assert demands(home(desk, group, seed=1), "film") != demands(home(desk, group, seed=2), "film")


def test_another_group_changes_no_demands(desk: Desk) -> None:
    group, other = GROUP | {"count": 50, "spread": 50}, GROUP | {"name": "other", "count": 9, "spread": 90}
    alone = demands(home(desk, group), "film")
    assert demands(home(desk, other, group), "film") == alone
    assert demands(home(desk, group, other), "film") == alone


def test_two_groups_have_demands_of_their_own(desk: Desk) -> None:
    group = GROUP | {"count": 50, "spread": 50}
    scenario = home(desk, group, group | {"name": "other"})
    assert demands(scenario, "film") != demands(scenario, "other")


def test_a_longer_group_begins_as_the_shorter_does(desk: Desk) -> None:
    short, long = (demands(home(desk, GROUP | {"count": count, "spread": 50}), "film") for count in (10, 20))
    assert long[:10] == short


def test_a_flap_becomes_link_events(desk: Desk) -> None:
    flap = {"at": 10, "link": "5g", "flap": {"down": 2, "up": 5, "times": 3}}
    assert home(desk, events=[flap]).events == [
        LinkEvent(10, "5g", False), LinkEvent(12, "5g", True), LinkEvent(17, "5g", False), LinkEvent(19, "5g", True),
        LinkEvent(24, "5g", False), LinkEvent(26, "5g", True)]


def test_events_are_sorted_by_time_and_otherwise_stay_in_the_files_order(desk: Desk) -> None:
    flap = {"at": 10, "link": "5g", "flap": {"down": 2, "up": 5, "times": 1}}
    events = [{"at": 30, "cpu": 3}, {"at": 12, "cpu": 1}, flap, {"at": 12, "cpu": 2}]
    assert home(desk, events=events).events == [
        LinkEvent(10, "5g", False), CpuEvent(12, 1), LinkEvent(12, "5g", True), CpuEvent(12, 2), CpuEvent(30, 3)]


def test_an_event_of_a_group_is_one_of_each_member(desk: Desk) -> None:
    events = [{"at": 5, "client": "tv", "to": "away"}, {"at": 6, "client": "tv-2", "to": "wlan1-b.1"}]
    assert home(desk, events=events).events == [
        ClientEvent(5, "tv-1", "away"), ClientEvent(5, "tv-2", "away"), ClientEvent(5, "tv-3", "away"),
        ClientEvent(6, "tv-2", "wlan1-b.1")]
