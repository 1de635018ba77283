"""The figures of a run and the expectations."""
import numpy as np
import pytest

from kolt_sim.judge import Ledger, bounces, calm_share, check, ratios, repinned
from kolt_sim.record import Move, Placement
from kolt_sim.scenario.records import Expectation

CLIENT = np.array([0, 1])


def ledger(payloads: list[float], ideal: float = 100.0) -> Ledger:
    """One stream of client 0 that carries these payloads, a tick of two seconds each."""
    made = Ledger.empty(2, 2.0)
    for number, payload in enumerate(payloads):
        made.add(2.0 * number, CLIENT, np.array([100.0, 0.0]), np.array([payload, 0.0]), ideal, storm=number == 0)
    return made


def figures(payloads: list[float]) -> dict:
    return ledger(payloads).figures(["first", "second"], 2.0 * len(payloads))


def judgement(**changes: object) -> dict:
    base = {"goodput": 100.0, "demand": 120.0, "worst_client": {"name": "x", "share": 80.0}, "moves": 3, "bounces": 1,
            "calm": 60.0, "changes": 5, "relief": 20.0, "overloads": 1, "unrelieved": 0, "storm_seconds": 0.0}
    return {"with": base | changes, "without": base | {"goodput": 50.0, "storm_seconds": 9.0},
            "ideal": base | {"goodput": 110.0}}


def move(time: float, origin: str, target: str, stream: str = "s") -> Move:
    return Move(time, stream, "c", origin, target)


def test_goodput_and_demand_are_means_over_the_run():
    assert figures([100, 50])["goodput"] == 75.0
    assert figures([100, 50])["demand"] == 100.0


def test_a_run_that_keeps_up_was_never_overloaded():
    assert (figures([95, 90])["relief"], figures([95, 90])["overloads"]) == (None, 0)


def test_relief_is_the_time_until_the_ideal_is_nearly_reached_again():
    result = figures([100, 80, 92, 96, 100])
    assert (result["relief"], result["overloads"], result["unrelieved"]) == (4.0, 1, 0)


def test_an_overload_without_end_counts_to_the_end_of_the_run():
    result = figures([100, 80, 80, 80])
    assert (result["relief"], result["overloads"], result["unrelieved"]) == (6.0, 1, 1)


def test_the_longest_of_several_overloads_is_told():
    result = figures([80, 100, 80, 80, 100])
    assert (result["relief"], result["overloads"]) == (4.0, 2)


def test_seconds_of_storm_are_counted():
    assert figures([100, 100])["storm_seconds"] == 2.0


def test_the_worst_client_is_the_one_with_the_smallest_part_of_its_demand():
    made = Ledger.empty(3, 1.0)
    made.add(0.0, np.array([0, 1, 1]), np.array([10.0, 10.0, 30.0]), np.array([8.0, 5.0, 10.0]), 50.0, False)
    assert made.figures(["a", "b", "idle"], 1.0)["worst_client"] == {"name": "b", "share": 37.5}


def test_without_any_demand_there_is_no_worst_client():
    made = Ledger.empty(1, 1.0)
    made.add(0.0, np.array([0]), np.array([0.0]), np.array([0.0]), 0.0, False)
    assert made.figures(["a"], 1.0)["worst_client"] is None


@pytest.mark.parametrize(("moves", "count"), [
    ([], 0),
    ([("a", "b")], 0),
    ([("a", "b"), ("b", "c")], 0),
    ([("a", "b"), ("b", "a")], 1),
    ([("a", "b"), ("b", "a"), ("a", "b")], 2),
    ([("a", "b"), ("b", "c"), ("c", "a")], 1),
], ids=["none", "one", "onwards", "back", "to and fro", "round"])
def test_a_bounce_is_a_move_back_to_where_a_stream_was_taken_from(moves, count):
    assert len(bounces([move(number, *one) for number, one in enumerate(moves)])) == count


def test_streams_bounce_each_for_itself():
    assert bounces([move(0, "a", "b", "one"), move(1, "b", "a", "other")]) == []


def placements(*paths: str) -> list[Placement]:
    """One client that is pinned to these paths, half a minute apart."""
    return [Placement(30.0 * number, "tv", path) for number, path in enumerate(paths)]


def test_the_first_placement_of_a_client_takes_it_from_nowhere():
    assert repinned(placements("a", "b", "b", "a")) == [
        Move(30.0, "tv", "tv", "a", "b"), Move(90.0, "tv", "tv", "b", "a")]


def test_clients_are_pinned_each_for_itself():
    assert repinned([Placement(0, "tv", "a"), Placement(1, "pc", "b"), Placement(2, "tv", "a")]) == []


def test_placements_are_counted_and_those_that_go_back_besides():
    made = ledger([100]).figures(["first", "second"], 300.0, [], placements("a", "b", "a", "c", "a"))
    assert (made["placements"], made["client_bounces"]) == (5, 2)
    assert (made["moves"], made["bounces"]) == (0, 0)


def test_a_minute_in_which_only_a_client_goes_back_is_not_calm():
    assert ledger([100]).figures(["first", "second"], 300.0, [], placements("a", "b", "a", "b"))["calm"] == 80.0


def test_a_minute_in_which_only_a_stream_goes_back_is_not_calm():
    moves = [move(10, "a", "b"), move(20, "b", "a"), move(30, "a", "b"), move(250, "b", "a")]
    assert ledger([100]).figures(["first", "second"], 300.0, moves)["calm"] == 60.0


@pytest.mark.parametrize(("seconds", "end", "share"), [
    ([], 300.0, 100.0), ([59.9], 300.0, 80.0), ([0, 59], 300.0, 80.0), ([59, 60], 300.0, 60.0), ([119], 120.0, 50.0),
    ([5], 30.0, 0.0), ([], 30.0, 100.0), ([85], 90.0, 50.0)])
def test_calm_is_the_share_of_minutes_in_which_nothing_goes_back(seconds, end, share):
    assert calm_share([move(time, "a", "b") for time in seconds], end) == share


def test_ratios_compare_with_the_run_without_and_the_ideal():
    assert ratios(judgement()) == {"gain": 2.0, "of_ideal": 90.91}


def test_ratios_of_an_idle_home_are_unknown():
    idle = judgement(goodput=0.0)
    idle["without"]["goodput"] = idle["ideal"]["goodput"] = 0.0
    assert ratios(idle) == {"gain": None, "of_ideal": None}


@pytest.mark.parametrize(("expect", "what", "met"), [
    ({"gain": 2.0}, "goodput gain at least 2", True),
    ({"gain": 2.01}, "goodput gain at least 2.01", False),
    ({"of_ideal": 90}, "percent of the ideal goodput at least 90", True),
    ({"of_ideal": 91}, "percent of the ideal goodput at least 91", False),
    ({"worst_client": 80}, "worst client's percent of its demand at least 80", True),
    ({"worst_client": 81}, "worst client's percent of its demand at least 81", False),
    ({"bounces": 1}, "bounces at most 1", True),
    ({"bounces": 0}, "bounces at most 0", False),
    ({"calm": 60}, "percent of calm minutes at least 60", True),
    ({"calm": 61}, "percent of calm minutes at least 61", False),
    ({"relief": 20}, "seconds from overload to relief at most 20", True),
    ({"relief": 19}, "seconds from overload to relief at most 19", False),
    ({"moves_at_least": 4}, "stream moves at least 4", False),
    ({"moves_at_most": 3}, "stream moves at most 3", True),
    ({"settled_by": 30}, "seconds until the last move at most 30", True),
    ({"settled_by": 29}, "seconds until the last move at most 29", False),
], ids=lambda value: " ".join(f"{key} {bound}" for key, bound in value.items()) if isinstance(value, dict) else None)
def test_each_expectation_is_checked_at_its_bound(expect, what, met):
    results = check(Expectation(storm_without=True, **expect), judgement(), [move(30.0, "a", "b")])
    assert [(one["what"], one["met"]) for one in results[2:]] == [(what, met)]


def test_a_storm_with_the_daemon_is_never_as_expected():
    first = check(Expectation(storm_without=True), judgement(storm_seconds=1.0), [])[0]
    assert first == {"what": "no storm with the daemon", "measured": "1 s of storm", "met": False}


@pytest.mark.parametrize(("expected", "met"), [(True, True), (False, False)])
def test_a_storm_without_the_daemon_is_expected_or_not(expected, met):
    second = check(Expectation(storm_without=expected), judgement(), [])[1]
    assert (second["measured"], second["met"]) == ("9 s of storm", met)


@pytest.mark.parametrize("bound", [20, 10_000])
def test_an_overload_that_is_open_at_the_end_was_not_relieved(bound):
    results = check(Expectation(storm_without=True, relief=bound), judgement(unrelieved=1), [])
    assert results[-1] == {"what": f"seconds from overload to relief at most {bound}", "measured": "none", "met": False}


def test_a_relief_that_never_was_needed_takes_no_time():
    results = check(Expectation(storm_without=True, relief=1), judgement(relief=None), [])
    assert results[-1]["met"]
