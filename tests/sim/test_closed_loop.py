"""The daemon and the model together: short runs of small homes, watched from both sides."""
import os
import re
import signal
import time as wall
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from homes import home, path, stream
from kolt_node import LogRecord, Node, NodeError
from kolt_node.node import build_directory
from kolt_sim.beside import WAYS
from kolt_sim.compare import SilentView
from kolt_sim.loop import closed
from kolt_sim.loop.tables import FIRST_PORT, client_mac
from kolt_sim.model.traffic import ACK_SHARE, MBIT
from kolt_sim.record import Frame
from kolt_sim.scenario.records import ClientEvent, Expectation, Fading, LinkEvent, NeighboursEvent, Scenario

TWO = [path("5g", 866), path("5g_2", 1201)]  # 433 and 600 Mbit/s of capacity
HOME = {"gateway": "uplink", "store": "uplink", "tv": "wlan1-a", "pc": "eth1"}
PERIOD = 5
DEBUG = 2
QUOTA = re.compile(r"path: (\S+), util: (\d+), .* quota: (-?\d+), rx_tx_factor")
STEP = re.compile(r"ha_rate: (\d+), ")


class Watch(SilentView):
    """A view that also looks at the node: what the daemon called and logged before each frame, by the frame's time."""

    def __init__(self, loop: "Loop") -> None:
        self._loop = loop
        self.frames: dict[float, Frame] = {}
        self.calls: dict[float, list[dict]] = {}
        self.log: dict[float, list[LogRecord]] = {}
        self.scenario: Scenario | None = None

    def start(self, scenario: Scenario) -> None:
        self.scenario = scenario
        self._mark = None

    def frame(self, frame: Frame) -> None:
        node = self._loop.node
        node.drain()
        self.frames[frame.time] = frame
        self.calls[frame.time], self.log[frame.time] = node.journal(self._mark), node.log(self._mark)
        self._mark = node.mark()
        self._loop.then.get(frame.time, lambda _: None)(node)

    def times(self, name: str, **given: object) -> list[float]:
        """When the daemon made a call, once for each call."""
        return [time for time, calls in self.calls.items() for one in calls
                if one["call"] == name and one["args"].items() >= given.items()]

    def logged(self, pattern: re.Pattern) -> list[tuple[float, re.Match]]:
        return [(time, found) for time, records in self.log.items() for record in records
                if (found := pattern.match(record.text))]

    def path(self, time: float, name: str):
        return next(one for one in self.frames[time].paths if one.name == name)

    def broadcast(self, time: float) -> list[str]:
        return [one.name for one in self.frames[time].paths if one.broadcast]


class Loop:
    """Runs scenarios. `first` is done to a node before its daemon starts, `then` after the frames of these times."""

    def __init__(self) -> None:
        self.first: Callable[[Node], object] = lambda _: None
        self.then: dict[float, Callable[[Node], object]] = {}
        self.node: Node | None = None
        self.status: int | None = None

    def run(self, scenario: Scenario, build: Path | None = None, **how: float) -> tuple[dict, Watch]:
        watch = Watch(self)
        return closed.run(scenario, watch, build, **how), watch


@pytest.fixture
def loop(monkeypatch) -> Iterator[Loop]:
    made = Loop()

    class WatchedNode(Node):
        def __enter__(self) -> "WatchedNode":
            made.node = self
            return super().__enter__()

        def start_daemon(self, *args, **how):
            made.first(self)
            return super().start_daemon(*args, **how)

        def stop_daemon(self, *args, **how) -> int:
            made.status = super().stop_daemon(*args, **how)
            return made.status

    monkeypatch.setattr(closed, "Node", WatchedNode)
    yield made
    assert made.node is None or is_gone(made.node)


def is_gone(node: Node) -> bool:
    return not any(Path(f"/proc/{pid}").exists() for pid in [node._agent.pid, *node.processes])


def films(count: int, demand: float, client: str = "tv", peer: str = "gateway") -> list:
    return [stream(f"{client}-film-{number}", client, peer, "video", demand) for number in range(count)]


def quiet_home(**other) -> Scenario:
    return home(TWO, HOME, films(2, 10), **other)


def busy_home(*events, **other) -> Scenario:
    """The path that the bridge begins with is in use four fifths of the time, the other one is idle."""
    return home(TWO, HOME, films(12, 40), list(events), **other)


# The daemon in the model

def test_a_run_has_a_frame_for_each_tick_and_ends_well(loop):
    result, watch = loop.run(quiet_home(duration=30, tick=2.5))
    assert list(watch.frames) == [2.5 * number for number in range(12)]
    assert result["series"]["time"] == list(watch.frames)
    assert (watch.scenario.name, result["scenario"]["period"], loop.status) == ("home", PERIOD, 0)


@pytest.mark.parametrize(("tick", "period"), [(1, 5), (1, 3), (0.5, 2), (0.25, 1), (5, 5)])
def test_a_period_runs_exactly_every_so_many_simulated_seconds(loop, tick, period):
    _, watch = loop.run(quiet_home(duration=40, tick=tick, settings={"period": period}))
    assert watch.times("bridgeTableAction", code=2) == [period * number for number in range(1, -(-40 // period))]


def test_with_the_daemon_nothing_storms_from_the_first_frame_on(loop):
    result, watch = loop.run(quiet_home(duration=10))
    assert not any(frame.storm for frame in watch.frames.values())
    assert all(frame.storm_without == ["wlan1.1", "wlan2.1"] for frame in watch.frames.values())
    assert result["judgement"]["without"]["storm_seconds"] == 10


def test_the_daemon_logs_the_utilisation_of_the_tick_before(loop):
    _, watch = loop.run(busy_home(NeighboursEvent(12, "5g", 30, 0), duration=60))
    logged = watch.logged(QUOTA)
    assert len({time for time, _ in logged}) == 11
    assert len({found[2] for _, found in logged}) > 4
    for time, found in logged:
        assert int(found[2]) == round(watch.path(time - 1, found[1]).utilisation)


def test_a_tick_s_utilisation_is_told_as_it_was_even_if_the_air_changes_right_after(loop):
    _, watch = loop.run(quiet_home(events=[NeighboursEvent(5, "5g", 60, 0)], duration=12))
    assert (watch.path(4, "wlan1.1").utilisation, watch.path(9, "wlan1.1").utilisation) == (0, 60)
    told = {time: found[2] for time, found in watch.logged(QUOTA) if found[1] == "wlan1.1"}
    assert told == {5: "0", 10: "60"}


def test_the_quotas_of_the_log_are_shown_from_the_first_period_on(loop):
    _, watch = loop.run(quiet_home(duration=20))
    first = dict((found[1], int(found[3]) / 100) for time, found in watch.logged(QUOTA) if time == 5)
    assert [watch.path(4, name).quota for name in first] == [None, None]
    assert {name: watch.path(5, name).quota for name in first} == first
    assert set(first) == {"wlan1.1", "wlan2.1"}


@pytest.mark.parametrize(("kind", "demand"), [("video", 40), ("upload", 37.5), ("small", 40)])
def test_the_daemon_takes_a_stream_for_what_it_carries(loop, kind, demand):
    streams = [stream(f"s{number}", "tv", "gateway", kind, demand) for number in range(12)]
    _, watch = loop.run(home(TWO, HOME, streams, duration=40))
    both_ways = demand if kind == "small" else demand * (1 + ACK_SHARE)
    of_the_period = both_ways * MBIT * PERIOD
    steps = [int(found[1]) for _, found in watch.logged(STEP)]
    assert steps and set(steps) == {int(of_the_period / (PERIOD * 1000)) >> 6}


def test_the_daemon_sees_what_a_stream_gets_rather_than_what_it_wants(loop):
    result, watch = loop.run(home(TWO, HOME, films(2, 900) + films(1, 900, "pc", "store"), duration=12))
    moved = watch.logged(STEP)
    share = watch.frames[moved[0][0] - 1].goodput / 3 * (1 + ACK_SHARE) * MBIT
    assert int(moved[0][1][1]) == int(share / 1000) >> 6
    assert result["moves"]


# The model after the daemon

def test_streams_move_as_the_daemon_says_and_when_it_does(loop):
    result, watch = loop.run(busy_home(duration=60))
    calls = [(time, one["args"]) for time, calls in watch.calls.items() for one in calls
             if one["call"] == "bridgeSetHATableEntries"]
    assert len(calls) >= 2
    assert [(move["time"], move["stream"], move["target"]) for move in result["moves"]] == [
        (time, f"tv-film-{given['src_port'] - FIRST_PORT}", given["ifname"]) for time, given in calls]
    assert {(move["client"], move["origin"]) for move in result["moves"]} == {("gateway", "wlan2.1")}


def test_paths_that_streams_change_are_counted_with_and_without_the_daemon(loop):
    result, watch = loop.run(busy_home(LinkEvent(40, "5g", False), duration=60))
    moved, displaced = len(result["moves"]), watch.path(39, "wlan1.1").streams
    assert moved >= 2 and displaced >= 2
    assert [result["judgement"][side]["changes"] for side in ("with", "without", "ideal")] == [moved + displaced, 12, 0]


def test_a_move_takes_its_load_along(loop):
    result, watch = loop.run(busy_home(duration=60))
    first = result["moves"][0]
    for name, change in ((first["target"], 1), (first["origin"], -1)):
        before, after = watch.path(first["time"] - 1, name), watch.path(first["time"], name)
        assert after.streams - before.streams == change
        assert after.goodput - before.goodput == pytest.approx(40 * change)
        assert (after.utilisation - before.utilisation) * change > 0


def test_clients_are_where_the_daemon_pinned_them_last(loop):
    streams = films(8, 40) + films(6, 40, "pc", "store")
    result, watch = loop.run(home(TWO, HOME, streams, duration=60))
    last = {one["args"]["client_mac"]: one["args"]["ifname"] for calls in watch.calls.values() for one in calls
            if one["call"] == "bridgeAddHDTableEntries"}
    assert sorted(last) == [client_mac(0), client_mac(1)]
    placed = {one["client"]: one["path"] for one in result["placements"]}
    assert placed == {"gateway": last[client_mac(0)], "store": last[client_mac(1)]}
    for name in ("wlan1.1", "wlan2.1"):
        assert watch.path(59, name).clients == list(last.values()).count(name)


def test_an_overload_is_relieved_and_the_moves_end(loop):
    result, watch = loop.run(home(TWO, HOME, films(20, 40), duration=90))
    assert watch.frames[0].goodput < 0.8 * watch.frames[0].ideal
    assert watch.frames[89].goodput == pytest.approx(watch.frames[89].demand)
    figures = result["judgement"]["with"]
    assert (figures["overloads"], figures["unrelieved"], figures["bounces"]) == (1, 0, 0)
    assert figures["relief"] == next(time for time, frame in watch.frames.items()
                                     if frame.goodput >= 0.95 * frame.ideal)


def test_the_answers_follow_a_stream_whose_parent_was_told(loop):
    _, told = loop.run(busy_home(duration=30))
    _, untold = loop.run(busy_home(duration=30, parent_known=False))
    at = told.times("bridgeSetHATableEntries")[0]
    assert at == untold.times("bridgeSetHATableEntries")[0] == told.times("sendto", type=14)[0]
    assert untold.times("sendto", type=14) == []
    assert told.path(at, "wlan2.1").goodput < told.path(at - 1, "wlan2.1").goodput
    assert untold.path(at, "wlan2.1").goodput == pytest.approx(untold.path(at - 1, "wlan2.1").goodput)


# Broadcast

@pytest.mark.parametrize(("kind", "rate", "name"), [("5g_2", 1201, "wlan2.1"), ("ethernet", 940, "eth0")])
def test_broadcast_leaves_a_link_that_goes_down_within_the_tick_and_comes_back_with_it(loop, kind, rate, name):
    paths = [path("2.4g", 144), path("5g", 866), path(kind, rate)]
    events = [LinkEvent(12, kind, False), LinkEvent(22, kind, True), LinkEvent(34, kind, False)]
    result, watch = loop.run(home(paths, HOME, films(2, 10), events, duration=45))
    carrying = {time: watch.broadcast(time) for time in watch.frames}
    assert [carrying[time] for time in (11, 12, 21, 22, 33, 34, 44)] == [
        [name], ["wlan1.1"], ["wlan1.1"], [name], [name], ["wlan1.1"], ["wlan1.1"]]
    assert [time for time, frame in watch.frames.items() if frame.storm or len(carrying[time]) != 1] == []
    assert result["judgement"]["with"]["storm_seconds"] == 0


def test_power_line_carries_broadcast_while_it_is_all_that_is_left(loop):
    events = [LinkEvent(12, "5g", False), LinkEvent(22, "5g", True), LinkEvent(30, "plc", False)]
    paths = [path("plc", 90), path("5g", 866)]
    _, watch = loop.run(home(paths, HOME, films(2, 10), events, duration=35))
    assert [watch.broadcast(time) for time in (11, 12, 21, 22, 34)] == [
        ["wlan1.1"], ["plc0"], ["plc0"], ["wlan1.1"], ["wlan1.1"]]
    assert {(bool(frame.storm), frame.goodput) for frame in watch.frames.values()} == {(False, 20.0)}


def test_ethernet_that_is_plugged_in_and_pulled_again_and_again_never_storms(loop):
    events = [LinkEvent(3 + 2 * number, "ethernet", number % 2 == 0) for number in range(20)]
    result, watch = loop.run(home([path("ethernet", 940, up=False), *TWO], HOME, films(2, 10), events, duration=60))
    assert not any(frame.storm for frame in watch.frames.values())
    assert {tuple(watch.broadcast(time)) for time in watch.frames} == {("eth0",), ("wlan2.1",)}
    assert (result["expectations"][0]["met"], len(result["events"])) == (True, 20)


def test_a_wired_port_that_joins_or_leaves_has_the_bridge_programmed_anew(loop):
    events = [LinkEvent(12, "plc", False), LinkEvent(22, "plc", True), LinkEvent(32, "5g", False)]
    _, watch = loop.run(home([path("plc", 90), *TWO], HOME, films(2, 10), events, duration=40))
    assert watch.times("bridgeSetBridgeMode", bridge="br-lan") == [0, 12, 22]
    assert {12, 22, 32} <= set(watch.times("bridgeFlushHATable", bridge="br-lan"))


def test_when_all_links_are_down_nothing_storms_and_nothing_passes(loop):
    events = [LinkEvent(10, kind, False) for kind in ("5g", "5g_2")] + [LinkEvent(20, "5g", True)]
    _, watch = loop.run(home(TWO, HOME, films(2, 10), events, duration=30))
    assert [watch.frames[time].goodput for time in (9, 10, 19, 20)] == [20, 0, 0, 20]
    assert [watch.broadcast(time) for time in (15, 25)] == [[], ["wlan1.1"]]


def test_a_daemon_that_cannot_program_the_bridge_storms_and_the_result_says_so(loop):
    loop.first = lambda node: node.fail("bridgeSetIFBroadcast")
    result, watch = loop.run(quiet_home(duration=30))
    assert all(frame.storm == ["wlan1.1", "wlan2.1"] for frame in watch.frames.values())
    assert result["series"]["storm"] == [["wlan1.1", "wlan2.1"]] * 30
    assert result["judgement"]["with"]["storm_seconds"] == 30
    assert result["expectations"][0] == {"what": "no storm with the daemon", "measured": "30 s of storm", "met": False}


def test_a_storm_that_passes_is_told_with_its_length(loop):
    loop.then[9] = lambda node: node.fail("bridgeSetIFBroadcast")
    loop.then[14] = lambda node: node.clear_failures("bridgeSetIFBroadcast")
    events = [LinkEvent(10, "ethernet", True), LinkEvent(15, "5g", False), LinkEvent(16, "5g", True)]
    paths = [path("ethernet", 940, up=False), *TWO]
    result, watch = loop.run(home(paths, HOME, films(2, 10), events, duration=30))
    assert [time for time, frame in watch.frames.items() if frame.storm] == [10, 11, 12, 13, 14]
    assert result["expectations"][0]["measured"] == "5 s of storm"


# Clients

def debug(node: Node) -> None:
    node.set_log_level(DEBUG)


@pytest.mark.parametrize(("to", "port"), [("wlan0-a", "wlan0-a"), ("eth1", "eth1"), ("uplink", "wlan2.1")])
def test_a_client_that_roams_is_an_event_of_the_bridge(loop, to, port):
    loop.then[0] = debug
    _, watch = loop.run(quiet_home(events=[ClientEvent(12, "tv", to)], duration=20))
    learnt = watch.logged(re.compile(r"update fdb from if: (\S+)"))
    cached = watch.logged(re.compile(r"flush fc flow by mac: (\S+)"))
    assert [(time, found[1]) for time, found in learnt] == [(12, port)]
    assert [(time, found[1].lower()) for time, found in cached] == [(12, client_mac(2))]


def test_a_client_that_leaves_is_no_event_of_the_bridge(loop):
    loop.then[0] = debug
    _, watch = loop.run(quiet_home(events=[ClientEvent(12, "tv", "away")], duration=20))
    assert watch.logged(re.compile("update fdb from if")) == []
    assert [watch.frames[time].goodput for time in (11, 12)] == [20, 0]


@pytest.mark.parametrize("to", ["away", "wlan1-a", "uplink"])
def test_a_client_that_leaves_an_extender_further_down_has_the_tables_flushed(loop, to):
    clients = HOME | {"phone": "wlan1-b.1"}
    streams = films(2, 10, "phone") + films(1, 10)
    _, watch = loop.run(home(TWO, clients, streams, [ClientEvent(12, "phone", to)], duration=20))
    assert watch.times("bridgeFlushHATable", bridge="br-lan") == [12]
    assert watch.times("bridgeDelFdbByName", bridge="br-lan", ifname="wlan1-b.1") == [12]


def test_a_client_that_leaves_an_access_point_of_this_node_flushes_nothing(loop):
    _, watch = loop.run(quiet_home(events=[ClientEvent(12, "tv", "away")], duration=20))
    assert (watch.times("bridgeFlushHATable"), watch.times("bridgeDelFdbByName")) == ([], [])


def test_a_client_that_comes_home_is_placed_in_the_next_period(loop):
    clients = HOME | {"visitor": "away"}
    streams = films(2, 10, "visitor") + films(1, 10, "pc", "visitor")
    result, watch = loop.run(home(TWO, clients, streams, [ClientEvent(12, "visitor", "uplink")], duration=30))
    assert [one["time"] for one in result["placements"] if one["client"] == "visitor"] == [15]
    assert [watch.frames[time].goodput for time in (11, 12)] == [0, 10]


# Repeatable

def lively_home(**other) -> Scenario:
    paths = [path("2.4g", 144, neighbours=20), path("5g", 866, fading=Fading(30, 20, 10)), TWO[1]]
    streams = films(9, 60) + [stream(f"page-{number}", "pc", "store", demand=30, on=4, off=4) for number in range(8)]
    events = [LinkEvent(20, "5g_2", False), LinkEvent(26, "5g_2", True), ClientEvent(33, "pc", "wlan0-a")]
    return home(paths, HOME, streams, events, **other)


def outcome(loop: Loop, scenario: Scenario) -> dict:
    result, _ = loop.run(scenario)
    assert result.pop("wall_seconds") > 0
    return result


def test_two_runs_of_a_scenario_are_equal(loop):
    first, second = outcome(loop, lively_home()), outcome(loop, lively_home())
    assert first["moves"] and first["placements"]
    assert first == second


def test_another_seed_gives_another_run(loop):
    first, second = outcome(loop, lively_home()), outcome(loop, lively_home(seed=2))
    assert first["series"]["total"]["goodput"] != second["series"]["total"]["goodput"]
    assert first["series"]["paths"]["wlan1.1"]["rate"] != second["series"]["paths"]["wlan1.1"]["rate"]


def test_a_run_that_is_slowed_down_gives_the_same_and_takes_its_time(loop):
    scenario = quiet_home(duration=10)
    began = wall.monotonic()
    result, _ = loop.run(scenario, speed=20)
    assert wall.monotonic() - began >= 0.5
    assert result.pop("wall_seconds") >= 0.5
    assert outcome(loop, scenario) == result


# Expectations

def test_what_was_expected_is_judged_in_the_result(loop):
    scenario = home(TWO, HOME, films(20, 40), duration=60,
                    expect=Expectation(storm_without=True, gain=1.2, of_ideal=100, bounces=0, moves_at_least=1,
                                       moves_at_most=1, settled_by=59))
    result, _ = loop.run(scenario)
    assert {one["what"]: one["met"] for one in result["expectations"]} == {
        "no storm with the daemon": True, "a storm without the daemon": True, "goodput gain at least 1.2": True,
        "percent of the ideal goodput at least 100": False, "bounces at most 0": True, "stream moves at least 1": True,
        "stream moves at most 1": False, "seconds until the last move at most 59": True}


# What goes wrong

@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM, signal.SIGSEGV])
def test_a_daemon_that_ends_in_the_middle_is_an_error_and_leaves_no_process(loop, number):
    loop.then[12] = lambda node: node.signal(node.daemon, number)
    with pytest.raises(NodeError, match="the daemon ended"):
        loop.run(quiet_home(duration=60))
    assert len(loop.node.processes) >= 2
    assert is_gone(loop.node)


def test_a_view_that_gives_up_leaves_no_process(loop):
    def give_up(_: Node) -> None:
        raise KeyboardInterrupt
    loop.then[12] = give_up
    with pytest.raises(KeyboardInterrupt):
        loop.run(quiet_home(duration=60))
    assert is_gone(loop.node)


def test_a_build_directory_that_is_not_there_is_named(loop, tmp_path):
    with pytest.raises(NodeError, match=re.escape(str(tmp_path / "nothing"))) as error:
        loop.run(quiet_home(), tmp_path / "nothing")
    assert "namespaces" not in str(error.value)


def test_a_program_that_is_not_there_is_named(loop, tmp_path):
    with pytest.raises(NodeError, match=re.escape(str(tmp_path / "bin/kolt-ubusd"))):
        loop.run(quiet_home(), tmp_path)
    assert is_gone(loop.node)


def test_a_build_without_the_daemon_is_an_error_that_names_it(loop, tmp_path):
    (tmp_path / "bin").mkdir()
    os.symlink(build_directory() / "bin/kolt-ubusd", tmp_path / "bin/kolt-ubusd")
    with pytest.raises(NodeError, match=re.escape(str(tmp_path / "bin/kolt")) + ": No such file"):
        loop.run(quiet_home(), tmp_path)
    assert is_gone(loop.node)


# Beside the daemon

def test_simpler_ways_to_use_the_links_are_judged_over_the_same_ticks(loop):
    result, _ = loop.run(home(TWO, HOME, films(20, 40), duration=20))
    judgement, total = result["judgement"], result["series"]["total"]
    assert [judgement[way]["demand"] for way in WAYS] == [800.0] * 3
    assert [len(total[way]) for way in WAYS] == [20] * 3
    assert judgement["best_link"]["goodput"] == pytest.approx(600.5 / (1 + ACK_SHARE), abs=0.01)
    assert judgement["hash"]["storm_seconds"] == judgement["without"]["storm_seconds"] == 20
    assert result["ratios"]["by_best_link"] == pytest.approx(
        judgement["with"]["goodput"] / judgement["best_link"]["goodput"], abs=0.001)
