"""What a valid scenario file becomes."""
import json
from pathlib import Path

import jsonschema
import pytest
from scenario_files import SHIPPED, TOP, Desk, least, small

from kolt_sim.scenario import shape
from kolt_sim.scenario.check import PACKAGED_PERIOD
from kolt_sim.scenario.load import load
from kolt_sim.scenario.records import (INTERFACES, KINDS, PATH_TYPES, PLACES, WIFI, Client, ClientEvent, CpuEvent,
                                       Expectation, Fading, LinkEvent, NeighboursEvent, RateEvent)


@pytest.fixture
def desk(tmp_path: Path) -> Desk:
    return Desk(tmp_path)


def test_there_are_shipped_scenarios() -> None:
    assert "quiet-home" in [path.stem for path in SHIPPED]


@pytest.mark.parametrize("path", SHIPPED, ids=lambda path: path.stem)
def test_a_shipped_scenario_loads(path: Path) -> None:
    scenario = load(path)
    assert scenario.name == path.stem
    assert scenario.default_path in scenario.paths


def test_the_members_of_the_run_are_taken_over(desk: Desk) -> None:
    scenario = desk.load(small())
    assert (scenario.name, scenario.title, scenario.about) == ("home", "Small", "A home to test with.")
    assert (scenario.duration, scenario.tick, scenario.seed, scenario.default_path) == (300, 0.5, 7, "plc")
    assert (scenario.cpu, scenario.parent_known, scenario.settings) == (30, False, {"period": 3})
    assert scenario.notes == ["One.", "Two."]


def test_what_is_left_out_has_its_default(desk: Desk) -> None:
    scenario = desk.load(least())
    assert (scenario.tick, scenario.seed, scenario.default_path, scenario.cpu) == (1, 1, "5g", 20)
    assert (scenario.parent_known, scenario.settings, scenario.events, scenario.notes) == (True, {}, [], [])
    path = scenario.paths["5g"]
    assert (path.up, path.neighbours, path.efficiency, path.fading) == (True, 0, 55, Fading(0, 60, 0))
    assert scenario.expect == Expectation(storm_without=False)


def test_a_stream_has_its_defaults(desk: Desk) -> None:
    document = small()
    stream = desk.load(document).streams[-1]
    assert (stream.name, stream.client, stream.peer, stream.kind) == ("call", "phone-2", "gateway", "small")
    assert (stream.demand, stream.start, stream.end, stream.on, stream.off) == (0.2, 0, None, None, None)


def test_paths_carry_their_interfaces_and_come_in_one_order(desk: Desk) -> None:
    document = small()
    document["paths"] = dict(reversed(document["paths"].items()))
    paths = desk.load(document).paths
    assert [(kind, path.type, path.name) for kind, path in paths.items()] == [("plc", "plc", "plc0"),
                                                                              ("5g", "5g", "wlan1.1")]
    assert (paths["plc"].up, paths["plc"].rate, paths["plc"].neighbours) == (False, 90, 0)
    assert (paths["5g"].rate, paths["5g"].neighbours, paths["5g"].efficiency) == (866, 10, 60)
    assert paths["5g"].fading == Fading(depth=5, period=30, noise=2)


def test_expectations_are_taken_over(desk: Desk) -> None:
    assert desk.load(small()).expect == Expectation(True, 1.5, 85, 50, 0, 50, 30, 1, 9, 120)


def test_every_kind_of_event_is_taken_over(desk: Desk) -> None:
    assert desk.load(small()).events == [
        LinkEvent(20, "plc", True),
        LinkEvent(30, "5g", False), LinkEvent(32, "5g", True), LinkEvent(40, "5g", False), LinkEvent(42, "5g", True),
        RateEvent(50, "plc", 40, 5), NeighboursEvent(60, "5g", 50, 6),
        ClientEvent(70, "phone-1", "away"), ClientEvent(70, "phone-2", "away"), ClientEvent(70, "phone-3", "away"),
        CpuEvent(80, 95)]


def test_a_change_is_at_once_when_it_says_no_length(desk: Desk) -> None:
    document = least() | {"events": [{"at": 1, "path": "5g", "rate": 10}, {"at": 1, "path": "5g", "neighbours": 3}]}
    assert desk.load(document).events == [RateEvent(1, "5g", 10, 0), NeighboursEvent(1, "5g", 3, 0)]


def test_numbers_have_the_types_of_the_records(desk: Desk) -> None:
    document = small() | {"seed": 7.0, "settings": {"period": 3.0, "cpu_limit": True}}
    scenario = desk.load(document)
    assert [type(value) for value in (scenario.seed, *scenario.settings.values())] == [int, int, bool]
    assert {type(stream.demand) for stream in scenario.streams} == {float}
    assert [type(value) for value in (scenario.duration, scenario.cpu, scenario.paths["5g"].rate)] == [float] * 3


def test_a_byte_order_mark_is_no_problem(desk: Desk) -> None:
    desk.file.write_bytes(b"\xef\xbb\xbf" + json.dumps(least()).encode())
    assert load(str(desk.file)).title == "Least"


def test_the_largest_home_loads(desk: Desk) -> None:
    document = least() | {"clients": [{"name": "a", "at": "uplink"}, {"name": "b", "count": 255, "at": "eth1"}]}
    stream = {"client": "a", "peer": "b", "kind": "upload", "demand": 1, "count": 5000}
    document["streams"] = [stream | {"name": name} for name in ("s", "t", "u", "v")]
    scenario = desk.load(document)
    assert (len(scenario.clients), len(scenario.streams)) == (256, 20_000)
    assert scenario.clients[-1] == Client("b-255", "eth1")


def test_times_may_reach_the_end_of_the_run(desk: Desk) -> None:
    document = small()
    document["streams"][0]["end"] = 300
    document["expect"] |= {"relief": 300, "settled_by": 300, "moves_at_least": 9}
    scenario = desk.load(document)
    assert (scenario.streams[0].end, scenario.expect.relief, scenario.expect.settled_by) == (300, 300, 300)


def test_a_run_may_be_a_single_tick(desk: Desk) -> None:
    scenario = desk.load(least() | {"duration": 5, "tick": 5})
    assert (scenario.duration, scenario.tick) == (5, 5)


@pytest.mark.parametrize(("tick", "settings"), [
    (0.1, {}), (0.2, {}), (0.25, {}), (0.3125, {}), (1, {}), (2.5, {}), (5, {}), (0.3, {"period": 3}),
    (0.7, {"period": 7}), (3, {"period": 9}), (10, {"period": 10}), (10, {"period": 3600}), (0.1, {"period": 3600})])
def test_a_tick_may_be_any_divisor_of_the_period(desk: Desk, tick: float, settings: dict) -> None:
    assert desk.load(least() | {"tick": tick, "settings": settings}).tick == tick


def test_the_period_that_is_taken_for_granted_is_the_packaged_one() -> None:
    assert json.loads((TOP / "packaging/kolt.json").read_text())["param"]["period"] == PACKAGED_PERIOD


def test_the_longest_run_loads(desk: Desk) -> None:
    scenario = desk.load(least() | {"duration": 10_000, "tick": 0.1})
    assert (scenario.duration, scenario.tick) == (10_000, 0.1)


def test_the_most_events_load(desk: Desk) -> None:
    flap = {"at": 1, "link": "5g", "flap": {"down": 0.01, "up": 0.01, "times": 1000}}
    assert len(desk.load(least() | {"events": [flap] * 50}).events) == 100_000


def test_a_large_file_loads(desk: Desk) -> None:
    desk.file.write_text(json.dumps(least()).ljust(16 * 1024 * 1024))
    assert load(desk.file).title == "Least"


def test_the_schema_is_one() -> None:
    jsonschema.Draft202012Validator.check_schema(shape.SCHEMA)


def test_the_schema_names_what_the_records_name() -> None:
    kinds = shape.SCHEMA["$defs"]
    assert kinds["pathType"]["enum"] == list(PATH_TYPES) == list(INTERFACES)
    assert list(shape.SCHEMA["properties"]["paths"]["properties"]) == list(PATH_TYPES)
    assert kinds["wifiType"]["enum"] == list(WIFI)
    assert kinds["place"]["enum"] == list(PLACES)
    assert kinds["stream"]["properties"]["kind"]["enum"] == list(KINDS)


def test_the_settings_of_the_packaged_configuration_are_known_by_their_types() -> None:
    packaged = json.loads((TOP / "packaging/kolt.json").read_text())["param"]
    known = shape.SCHEMA["$defs"]["settings"]["properties"]
    assert {name: known[name]["type"] for name in packaged} == {
        name: "boolean" if isinstance(value, bool) else "integer" for name, value in packaged.items()}


def test_the_packaged_configuration_is_within_the_bounds_of_the_settings(desk: Desk) -> None:
    packaged = json.loads((TOP / "packaging/kolt.json").read_text())["param"]
    assert desk.load(least() | {"settings": packaged}).settings == packaged


def test_every_part_of_the_schema_can_be_put_into_words() -> None:
    parts = [shape.SCHEMA, *shape.SCHEMA["$defs"].values()]
    members = [shape.resolve(member) for part in parts for member in part.get("properties", {}).values()]
    assert len(members) > 80
    assert all(shape.describe(member) for member in members)
