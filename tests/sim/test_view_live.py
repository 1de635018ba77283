"""The live view: what a picture shows at which size, how often it is drawn, and that the terminal is given back."""
import io
import re
from collections import deque
from dataclasses import replace

import pytest
from rich.console import Console

from fake_run import MISSED, STORMY, fake_frame, fake_run
from homes import home, path, stream
from kolt_sim.record import Move
from kolt_sim.scenario.records import Scenario
from kolt_sim.view.live import LiveView
from kolt_sim.view.screen import Picture, draw
from kolt_sim.view.story import Story
from terminal import Terminal, write_scenario

FIVE_PATHS = [path("ethernet", 1000, up=False), path("plc", 300), path("2.4g", 144, neighbours=25), path("5g", 866),
              path("5g_2", 1201)]
ENTER_SCREEN, LEAVE_SCREEN, HIDE_CURSOR, SHOW_CURSOR = "\x1b[?1049h", "\x1b[?1049l", "\x1b[?25l", "\x1b[?25h"

ENDLESS = 100_000  # seconds of a run that is interrupted: however slow the machine is, it must not end by itself


def some_home(**other) -> Scenario:
    return home(FIVE_PATHS, {"gateway": "uplink", "tv-1": "eth1", "tv-2": "eth1"},
                [stream("film", "tv-1", "gateway", demand=140), stream("game", "tv-2", "gateway", demand=10)],
                **({"title": "A busy home with a link that flaps", "duration": 600} | other))


def console(width: int = 80, height: int = 24, **other) -> Console:
    return Console(file=io.StringIO(), force_terminal=True, width=width, height=height, highlight=False,
                   **({"color_system": None, "_environ": {}} | other))


def picture_of(scenario: Scenario, ticks: int) -> Picture:
    """What there is to show after some ticks."""
    picture = Picture(scenario, Story(scenario.tick, every_move=False), None, deque())
    for number in range(ticks):
        picture.frame = fake_frame(scenario, number)
        picture.lines.extend(picture.story.tell(picture.frame))
    return picture


def drawn(picture: Picture, width: int = 80, height: int = 24, ascii_only: bool = False) -> list[str]:
    shows = console(width, height)
    shows.print(draw(picture, width, height, ascii_only))
    return re.sub(r"\x1b\[[\d;]*m", "", shows.file.getvalue()).splitlines()


def storm_picture() -> Picture:
    return picture_of(some_home(seed=STORMY), 14)


# A picture

def test_the_header_has_title_time_and_progress():
    lines = drawn(picture_of(some_home(), 150))
    assert lines[0].startswith("A busy home with a link that flaps ") and lines[0].endswith(" 2:29 of 10:00")
    assert lines[1].endswith(" 25 %")


def test_a_path_shows_label_link_rate_share_and_counts():
    lines = drawn(picture_of(some_home(), 12))
    row = next(line for line in lines if "wlan0.1" in line)
    assert row.split()[:7] == ["2.4", "GHz", "wlan0.1", "up", "144", "25", "%"]
    assert row.split()[-5:] == ["14", "%", "53.3", "5", "4"]
    assert next(line for line in lines if "plc0" in line).startswith("Power line plc0    up     300")


def test_a_bar_is_as_long_as_the_path_is_busy():
    picture = picture_of(some_home(), 1)
    for path_, busy in zip(picture.frame.paths, (0, 40, 100, 130, 0)):
        path_.utilisation, path_.up = busy, True
    bars = [re.search("[█░]+", line)[0] for line in drawn(picture) if re.search("[█░]", line)]
    assert bars == ["░░░░░", "██░░░", "█████", "█████", "░░░░░"]


def test_a_link_that_is_down_has_neither_rate_nor_utilisation():
    row = next(line for line in drawn(picture_of(some_home(), 12)) if "eth0" in line)
    assert row.split() == ["Ethernet", "eth0", "down", "-", "0", "%", "░░░░░", "-", "-", "0.0", "3", "2", "B"]


def test_the_totals_compare_with_without_and_ideal():
    lines = drawn(picture_of(some_home(), 1))
    assert "demand 150.0  with the daemon 135.0 (90 %)  without 60.0  ideal 142.5 Mbit/s" in lines


def test_moves_are_counted_in_all_and_in_the_last_minute():
    line = next(line for line in drawn(picture_of(some_home(), 131)) if "in the last minute" in line)
    assert line.startswith("7 moves, 3 in the last minute; 3 client placements")


def test_a_calm_run_says_that_there_is_no_storm():
    assert "no storm   without the daemon: storm" in drawn(picture_of(some_home(), 1))


def test_a_storm_is_a_loud_line_that_names_the_ports():
    shows = console(color_system="standard")
    shows.print(draw(storm_picture(), 80, 24))
    assert "\x1b[1;37;41m STORM: wlan1.1, wlan2.1 form a loop " in shows.file.getvalue()
    assert drawn(storm_picture())[2].rstrip().endswith("without the daemon: storm")


def test_a_storm_that_is_over_is_not_forgotten():
    assert "no storm now, 3 s so far   without the daemon: storm" in drawn(picture_of(some_home(seed=STORMY), 100))


def test_the_last_eight_messages_are_shown_with_their_times():
    lines = drawn(picture_of(some_home(), 300))
    assert lines[-1] == "   4:50  move   film (tv-1) from Ethernet to 2nd 5 GHz"
    assert sum(" move " in line for line in lines) == 8


def test_many_moves_of_a_tick_take_one_message():
    picture = picture_of(some_home(), 2)
    moves = [Move(2, f"film-{number}", "tv", "wlan1.1", "plc0") for number in range(40)]
    picture.lines.extend(picture.story.tell(replace(picture.frame, time=2.0, moves=moves)))
    assert drawn(picture)[-1] == "   0:02  move   40 streams from 5 GHz to Power line"


def test_before_the_first_frame_the_scenario_is_named():
    lines = drawn(Picture(some_home(), Story(1, every_move=False), None, deque()))
    assert lines[0].startswith("A busy home") and lines[2] == "starting"


def test_words_of_a_file_are_never_taken_for_markup():
    odd = some_home(title="[red]home[/] \x1b[2J")
    assert drawn(picture_of(odd, 1))[0].startswith("[red]home[/]  [2J")


# Sizes

@pytest.mark.parametrize("width, height", [(80, 24), (80, 20), (60, 16), (100, 30), (40, 14), (200, 60)])
def test_a_full_picture_fits_the_terminal(width, height):
    lines = drawn(picture_of(some_home(seed=STORMY), 300), width, height)
    assert len(lines) <= height
    assert max(map(len, lines)) <= width


@pytest.mark.parametrize("width", [1, 2, 10, 20])
def test_a_tiny_terminal_is_no_reason_to_fail(width):
    assert max(map(len, drawn(storm_picture(), width, 3))) <= width


def test_eighty_columns_have_room_for_every_column():
    headings = next(line for line in drawn(picture_of(some_home(), 1)) if "clients" in line)
    assert headings.split() == ["path", "link", "rate", "neigh", "busy", "quota", "goodput", "streams", "clients", "bc"]


def test_a_narrow_terminal_keeps_path_utilisation_and_goodput():
    headings = next(line for line in drawn(picture_of(some_home(), 1), 30) if line.startswith("path "))
    assert headings.split() == ["path", "busy", "goodput", "bc"]


def test_a_wide_terminal_gets_a_longer_bar():
    row = next(line for line in drawn(picture_of(some_home(), 12), 120) if "wlan0.1" in line)
    assert len(re.search("[█░]+", row)[0]) == 20


def test_a_terminal_without_such_letters_gets_plain_ones():
    text = "\n".join(drawn(picture_of(some_home(), 12), ascii_only=True))
    assert text.isascii() and "####" in text


# Drawing

class Clock:
    def __init__(self) -> None:
        self.now = 100.0

    def __call__(self) -> float:
        return self.now


def test_it_is_drawn_ten_times_a_second_at_most():
    clock, scenario = Clock(), some_home()
    shows = console()
    view = LiveView(shows, clock)
    view.start(scenario)
    for number in range(100):
        clock.now += 0.03
        view.frame(fake_frame(scenario, number))
    view.close()
    assert shows.file.getvalue().count("\x1b[H") - 1 == 1 + 25  # one more comes from entering the screen


def test_every_frame_counts_even_when_it_is_not_drawn():
    clock, scenario = Clock(), some_home()
    shows = console()
    view = LiveView(shows, clock)
    view.start(scenario)
    for number in range(31):
        view.frame(fake_frame(scenario, number))
    clock.now += 1
    view.frame(fake_frame(scenario, 31))
    view.close()
    assert "2 moves, 2 in the last minute; 3 client placements" in shows.file.getvalue()


def test_the_screen_is_given_back_before_the_summary():
    shows = console()
    view = LiveView(shows)
    view.finish(fake_run(some_home(), view))
    text = shows.file.getvalue()
    assert text.index(ENTER_SCREEN) < text.rindex(LEAVE_SCREEN) < text.index("link that flaps: as expected")
    assert text.rindex(HIDE_CURSOR) < text.rindex(SHOW_CURSOR)


def test_closing_gives_the_terminal_back_and_may_be_repeated():
    shows = console()
    view = LiveView(shows)
    view.start(some_home())
    view.close()
    view.close()
    assert shows.file.getvalue().count(LEAVE_SCREEN) == 1


def test_without_colours_a_storm_still_stands_out():
    shows = console(color_system="standard", no_color=True)
    shows.print(draw(storm_picture(), 80, 24))
    text = shows.file.getvalue()
    assert not re.search(r"\x1b\[[\d;]*[34]\d", text)
    assert "\x1b[1m STORM: wlan1.1, wlan2.1 form a loop" in text


# The summary

def summary_of(scenario: Scenario) -> list[str]:
    shows = console()
    view = LiveView(shows)
    view.finish(fake_run(scenario, view))
    return re.sub(r"\x1b\[[\d;?]*[a-zA-Z]", "", shows.file.getvalue().rsplit(LEAVE_SCREEN, 1)[1]).splitlines()


def test_the_summary_fits_a_terminal():
    lines = summary_of(some_home(notes=["a rule keeps small streams where they are"]))
    assert len(lines) < 24 and max(map(len, lines)) <= 80


def test_the_summary_shows_figures_expectations_and_notes():
    lines = [line.rstrip() for line in summary_of(some_home(seed=MISSED, notes=["one [b]rule[/b]"]))]
    assert lines[0].endswith("A busy home with a link that flaps: 1 of 3 expectations not met")
    assert "goodput, Mbit/s                    135.0     60.0  142.5" in lines
    assert [line.split() for line in lines if line.startswith("path changes")] == [["path", "changes", "32", "8", "-"]]
    assert "NOT MET  bounces at most 0          4" in lines
    assert lines[-1] == "note: one [b]rule[/b]"


# A real terminal

def test_on_a_terminal_the_command_draws_and_leaves_the_summary(tmp_path):
    with Terminal(["run", str(write_scenario(tmp_path)), "--speed", "100"]) as terminal:
        assert terminal.end() == 0
    text = terminal.text
    assert text.index(ENTER_SCREEN) < text.index("link  rate neigh") < text.rindex(LEAVE_SCREEN)
    assert "as expected" in text[text.rindex(LEAVE_SCREEN):]


def test_a_terminal_can_be_resized_in_the_middle(tmp_path):
    with Terminal(["run", str(write_scenario(tmp_path, duration=ENDLESS)), "--speed", "100"]) as terminal:
        terminal.wait_for("clients bc")
        terminal.resize(40, 14)
        terminal.wait_for("streams bc")
        terminal.interrupt()
        assert terminal.end() == 130


def test_ctrl_c_gives_the_terminal_back(tmp_path):
    with Terminal(["run", str(write_scenario(tmp_path, duration=ENDLESS))]) as terminal:
        terminal.wait_for("demand")
        terminal.interrupt()
        assert terminal.end() == 130
    assert terminal.text.rindex(LEAVE_SCREEN) > terminal.text.rindex(ENTER_SCREEN)
    assert terminal.text.rindex(SHOW_CURSOR) > terminal.text.rindex(HIDE_CURSOR)
    assert terminal.text.rstrip().endswith("kolt-sim: interrupted")
    assert "Traceback" not in terminal.text


def test_a_dumb_terminal_gets_plain_lines(tmp_path):
    with Terminal(["run", str(write_scenario(tmp_path)), "--speed", "0"], TERM="dumb") as terminal:
        assert terminal.end() == 0
    assert "\x1b" not in terminal.raw
    assert "result: as expected" in terminal.text
