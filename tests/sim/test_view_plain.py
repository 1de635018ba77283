"""The plain lines: what is said when, in a form that a program can find again."""
import io
import re
from dataclasses import replace

import pytest

from fake_run import STORMY, MISSED, fake_run
from homes import home, path, stream
from kolt_sim.record import Frame, Move, PathFrame, Placement
from kolt_sim.scenario.records import LinkEvent, Scenario
from kolt_sim.view import words
from kolt_sim.view.plain import PlainView, ReaderGone, summary
from kolt_sim.view.story import Story

TWO_PATHS = [path("2.4g", 144, neighbours=25), path("5g", 866)]


def some_home(**other) -> Scenario:
    return home(TWO_PATHS, {"gateway": "uplink", "tv-1": "eth1", "tv-2": "eth1"},
                [stream("film", "tv-1", "gateway", demand=40), stream("game", "tv-2", "gateway", demand=10)],
                [LinkEvent(20, "5g", False)], **other)


def lines_of(scenario: Scenario) -> list[str]:
    out = io.StringIO()
    view = PlainView(out)
    view.finish(fake_run(scenario, view))
    view.close()
    return out.getvalue().splitlines()


def of_kind(lines: list[str], kind: str) -> list[str]:
    return [line for line in lines if re.match(rf" *[\d.]+ {kind} ", line)]


def frame(time: float = 0, **other) -> Frame:
    one = PathFrame("wlan1.1", "5g", True, 866, 20, 61.7, None, 120.25, 34, 12, True)
    usual = {"time": time, "paths": [one], "demand": 310, "goodput": 280, "without": 120, "ideal": 300}
    return Frame(**(usual | other))


def told(*frames: Frame, every_move: bool = True) -> list[str]:
    story = Story(1, every_move=every_move)
    return [line.text for one in frames for line in story.tell(one)]


def shown(*frames: Frame) -> list[str]:
    out = io.StringIO()
    view = PlainView(out)
    view.start(some_home())
    for one in frames:
        view.frame(one)
    return out.getvalue().splitlines()[3:]


# The lines of a run

def test_the_first_line_names_the_scenario():
    assert lines_of(some_home())[0] == "scenario home: A home"


def test_the_state_comes_every_ten_seconds_with_a_line_for_each_path():
    lines = lines_of(some_home())
    assert [float(line.split()[0]) for line in of_kind(lines, "total")] == [0, 10, 20, 30, 40, 50]
    assert len(of_kind(lines, "path ")) == 12


def test_a_long_run_shows_its_state_less_often():
    totals = of_kind(lines_of(some_home(duration=3600)), "total")
    assert [float(line.split()[0]) for line in totals[:3]] == [0, 60, 120]
    assert len(totals) == 60


def test_ticks_that_do_not_divide_ten_seconds_still_show_each_ten():
    totals = of_kind(lines_of(some_home(tick=0.7)), "total")
    assert [float(line.split()[0]) for line in totals] == [0.0, 10.5, 20.3, 30.1, 40.6, 50.4]


def test_a_path_shows_all_its_figures_by_name():
    quota = PathFrame("wlan1.1", "5g", False, 866, 20, 61.7, 12.5, 120.25, 34, 12, False)
    shows = shown(frame(), frame(10, paths=[quota]))
    assert shows[1].split() == ["0.0", "path", "wlan1.1", "link=up", "rate=866", "neigh=20", "busy=62", "quota=-",
                                "goodput=120.2", "streams=34", "clients=12", "bcast=yes"]
    assert {"link=down", "quota=12", "bcast=no"} <= set(shows[3].split())


def test_the_totals_show_moves_so_far_and_both_storms():
    moves = [Move(0, "film", "tv", "wlan1.1", "wlan0.1")] * 2
    line = shown(frame(moves=moves, storm_without=["wlan0.1", "wlan1.1"]))[-2]
    assert line.split() == ["0.0", "total", "demand=310.0", "goodput=280.0", "without=120.0", "ideal=300.0", "moves=2",
                            "storm=no", "storm_without=wlan0.1,wlan1.1"]


def test_the_lines_of_a_calm_run_fit_a_hundred_and_twenty_columns():
    assert max(map(len, lines_of(some_home()))) <= 120


def test_there_are_no_escape_codes_whatever_a_file_says():
    evil = some_home(title="a \x1b[31m red\r\nhome", notes=["\x1b[2J"])
    text = "\n".join(lines_of(evil))
    assert "\x1b" not in text and "\r" not in text
    assert text.startswith("scenario home: a  [31m red  home\n")


def test_a_closed_pipe_is_told_apart():
    class Closed(io.StringIO):
        def write(self, _: str) -> int:
            raise BrokenPipeError
    with pytest.raises(ReaderGone):
        PlainView(Closed()).start(some_home())


# What happens

def test_each_move_has_a_line():
    moves = [Move(3, f"film-{number}", "tv", "wlan1.1", "wlan2.1") for number in range(5)]
    lines = of_kind(shown(frame(3, moves=moves)), "move ")
    assert len(lines) == 5
    assert lines[0] == "    3.0 move  film-0 (tv) from 5 GHz to 2nd 5 GHz"


def test_many_moves_on_one_way_become_one_sentence_where_room_is_short():
    moves = [Move(0, f"film-{number}", "tv", "wlan1.1", "wlan2.1") for number in range(4)]
    moves.append(Move(0, "game", "tv", "", "plc0"))
    assert told(frame(moves=moves), every_move=False) == ["game (tv) to Power line",
                                                          "4 streams from 5 GHz to 2nd 5 GHz"]


def test_placements_are_told_singly_up_to_three_of_a_path():
    placements = [Placement(0, f"tv-{number}", "wlan1.1") for number in range(3)]
    assert told(frame(placements=placements)) == ["tv-0 to 5 GHz", "tv-1 to 5 GHz", "tv-2 to 5 GHz"]


def test_many_placements_are_summed_up_by_path():
    placements = [Placement(0, f"tv-{number}", "wlan1.1") for number in range(14)]
    assert told(frame(placements=placements + [Placement(0, "phone", "plc0")])) == ["phone to Power line",
                                                                                   "14 clients to 5 GHz"]


def test_an_event_is_told_in_its_own_words():
    assert of_kind(lines_of(some_home()), "event") == ["   20.0 event link 5g down"]


def test_a_storm_is_told_when_it_begins_changes_and_ends():
    two, three = ["wlan0.1", "wlan1.1"], ["wlan0.1", "wlan1.1", "plc0"]
    assert told(frame(0), frame(1, storm=two), frame(2, storm=two), frame(3, storm=three), frame(4.5)) == [
        "STORM: wlan0.1, wlan1.1 form a loop", "STORM: wlan0.1, wlan1.1, plc0 form a loop", "STORM: over after 3.5 s"]


def test_a_storm_without_the_daemon_is_never_taken_for_one_with_it():
    text = told(frame(0, storm_without=["wlan0.1", "wlan1.1"]), frame(2))
    assert text == ["without the daemon: wlan0.1, wlan1.1 form a loop", "without the daemon: over after 2 s"]


def test_the_story_counts_moves_of_the_last_minute_and_storm_seconds():
    story = Story(0.5, every_move=False)
    move = Move(0, "film", "tv", "wlan1.1", "wlan2.1")
    for one in (frame(0, moves=[move]), frame(30, moves=[move] * 2, storm=["wlan0.1", "wlan1.1"]), frame(60)):
        story.tell(one)
    assert (story.moves, story.moves_last_minute, story.storm_seconds["with"]) == (3, 2, 0.5)


# The summary

def test_the_summary_begins_with_the_verdict():
    assert "result: as expected" in lines_of(some_home())
    assert "result: 1 of 3 expectations not met" in lines_of(some_home(seed=MISSED))
    assert "result: STORM with the daemon, 3 s" in lines_of(some_home(seed=STORMY))


def test_the_summary_compares_with_without_and_ideal():
    lines = lines_of(some_home())
    heading = next(line for line in lines if "with the daemon  without  ideal" in line)
    goodput = next(line for line in lines if line.startswith("goodput, Mbit/s"))
    assert goodput.split()[-3:] == ["45.0", "20.0", "47.5"]
    assert len(goodput) == len(heading)


def test_the_summary_tells_moves_placements_and_path_changes_one_below_the_other():
    lines = lines_of(some_home())
    start = next(place for place, line in enumerate(lines) if line.startswith("stream moves"))
    assert [re.split(r" {2,}", line.strip()) for line in lines[start:start + 5]] == [
        ["stream moves, back", "3, 0", "0, 0", "-"], ["client placements, back", "3, 1", "0, 0", "-"],
        ["calm minutes, %", "75", "100", "-"], ["path changes", "5", "8", "-"],
        ["overloads", "2", "1", "-"]]


def test_the_summary_lists_expectations_with_what_was_measured():
    lines = lines_of(some_home(seed=MISSED))
    assert "  met      goodput gain at least 1.5  2.25" in lines
    assert "  NOT MET  bounces at most 0          4" in lines


def test_notes_come_last_and_only_when_there_are_any():
    assert lines_of(some_home(notes=["a rule keeps small streams where they are"]))[-2:] == [
        "notes", "  a rule keeps small streams where they are"]
    assert "notes" not in lines_of(some_home())


def test_a_long_note_is_wrapped():
    lines = lines_of(some_home(notes=["streams below the threshold stay where they are " * 4]))
    assert lines[-3] == "notes" and lines[-2].startswith("  streams") and lines[-1].startswith("    ")
    assert max(map(len, lines[-2:])) <= 120


def test_figures_that_do_not_exist_are_dashes():
    result = fake_run(replace(some_home(), seed=1), PlainView(io.StringIO()))
    result["ratios"] = {"gain": None, "of_ideal": None}
    result["judgement"]["without"] |= {"worst_client": None, "relief": None, "demand": 0}
    lines = summary(result)
    assert lines[1].startswith("goodput is - times that without the daemon and - of the ideal")
    assert next(line for line in lines if line.startswith("longest relief")).split()[-3:] == ["7", "-", "-"]
    assert next(line for line in lines if line.startswith("worst client ")).split()[-3:] == ["tv-2", "-", "tv-1"]


# Words

@pytest.mark.parametrize("value, text", [(0, "0.0"), (999.94, "999.9"), (999.96, "1000"), (12345.6, "12346"),
                                         (None, "-"), (float("inf"), "-"), (float("nan"), "-")])
def test_rates_have_a_decimal_below_a_thousand(value, text):
    assert words.mbit(value) == text


@pytest.mark.parametrize("value, text", [(0, "0:00"), (59.9, "0:59"), (247, "4:07"), (3600, "1:00:00"),
                                         (3847, "1:04:07")])
def test_simulated_time_reads_as_a_clock(value, text):
    assert words.clock(value) == text


@pytest.mark.parametrize("path_, label", [("5g_2", "2nd 5 GHz"), ("wlan2.1", "2nd 5 GHz"), ("wlan0-a", "wlan0-a")])
def test_a_path_is_labelled_by_type_and_by_interface(path_, label):
    assert words.path_label(path_) == label
