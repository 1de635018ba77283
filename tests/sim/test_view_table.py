"""The comparison: aligned, narrow enough, and complete about what went wrong."""
import io
import multiprocessing
import os
import re
import time

import pytest
from rich.console import Console

from fake_run import BROKEN, MISSED, REFUSED, STORMY, fake_run
from homes import home, path, stream
from kolt_node import NodeError
from kolt_sim.compare import SilentView, compare
from kolt_sim.scenario.records import Scenario
from kolt_sim.view.board import show
from kolt_sim.view.columns import WIDTH
from kolt_sim.view.table import TABLES, Outcome, table_lines, write_plain


def some_home(name: str, **other) -> Scenario:
    return home([path("5g", 866), path("5g_2", 1201)], {"gateway": "uplink", "tv": "eth1"},
                [stream("film", "tv", "gateway", demand=200)], name=name, **other)


def outcome(name: str, **other) -> Outcome:
    return Outcome(name, fake_run(some_home(name, **other), SilentView()))


def plain(*outcomes: Outcome) -> list[str]:
    out = io.StringIO()
    write_plain(outcomes, out)
    return out.getvalue().splitlines()


def in_terminal(*outcomes: Outcome, width: int = 120, colours: str | None = None) -> str:
    console = Console(file=io.StringIO(), force_terminal=True, width=width, height=24, color_system=colours,
                      highlight=False, _environ={})
    show(outcomes, console)
    return console.file.getvalue()


# The table

def test_a_row_has_every_figure_of_a_scenario():
    lines = plain(outcome("quiet"))
    assert lines[1].split() == ["scenario", "with", "w/o", "on", "best", "hash", "w.hash", "ideal",
                                "w/o", "best", "hash", "w.hash", "ideal", "verdict"]
    assert lines[2].split() == ["quiet", "180.0", "80.0", "5g", "120.0", "140.0", "184.0", "190.0",
                                "2.25", "1.50", "1.29", "0.98", "95", "ok"]
    assert lines[5].split() == ["scenario", "with", "w/o", "best", "hash", "w.hash", "ideal", "moves", "back", "placed",
                                "back", "%", "relief", "with", "w/o"]
    assert lines[6].split() == ["quiet", "82", "50", "50", "20", "60", "90", "3", "0", "2", "1", "75", "7", "0", "60"]


def test_the_fixed_link_is_named():
    made = outcome("quiet", default_path="5g_2")
    assert plain(made)[2].split()[3] == "5g_2"


def test_figures_stand_below_the_ends_of_their_headings():
    lines = plain(outcome("quiet"))
    for groups, headings, row, last in ((*lines[:3], -1), (*lines[4:7], None)):
        ends = [found.end() for found in re.finditer(r"\S+", headings)][1:last]
        assert ends == [found.end() for found in re.finditer(r"\S+", row)][1:last]
        assert re.match(r" +(goodput|worst)", groups).end() - 8 <= headings.index("with") <= len(groups)


def test_the_foot_says_which_link_is_meant_and_that_storms_are_free():
    foot = " ".join(line.strip() for line in plain(outcome("quiet")))
    assert "w/o: no daemon, all traffic on the link named, or the cable while there is one." in foot
    assert "A storm costs no goodput here: without the daemon and with hashes there is one" in foot


def test_rows_come_in_the_given_order():
    assert [line.split()[0] for line in plain(outcome("zebra"), outcome("ant"))[2:4]] == ["zebra", "ant"]


def test_even_the_widest_figures_fit():
    wide = outcome("a-scenario-with-a-very-long-name-indeed", duration=3600)
    figures = {"goodput": 12345.6, "worst_client": {"name": "tv", "share": 100.0}, "moves": 12345, "bounces": 1234,
               "placements": 123456, "client_bounces": 123456, "calm": 100.0, "relief": 1234.5, "storm_seconds": 3600.0}
    for side in wide.result["judgement"].values():
        side.update(figures)
    wide.result["ratios"] = {name: 12.34 for name in wide.result["ratios"]} | {"of_ideal": 100}
    wide.result["scenario"]["default_path"] = "ethernet"
    for table in TABLES:
        lines = table_lines([wide, Outcome("short", None, "reason")], table)
        assert max(map(len, lines)) <= WIDTH
        assert "-" in lines[-1].split() and lines[-1].startswith("short ")


def test_a_long_name_is_cut_in_the_table_and_whole_below_it():
    name = "a-scenario-with-a-very-long-name-indeed"
    lines = plain(outcome(name, seed=MISSED))
    assert len(lines[2]) <= WIDTH and re.match(r"a-scenario-with-a-\S*\.\.\.  ", lines[2])
    assert f"{name}: not met: bounces at most 0, measured 4" in lines


@pytest.mark.parametrize("seed, word", [(1, "ok"), (MISSED, "1 not met"), (STORMY, "STORM")])
def test_the_verdict_ends_the_row(seed, word):
    assert plain(outcome("home", seed=seed))[2].endswith("  " + word)


def test_only_expectations_that_were_missed_are_listed():
    lines = [line for line in plain(outcome("good"), outcome("bad", seed=MISSED)) if "not met:" in line]
    assert lines == ["bad: not met: bounces at most 0, measured 4"]


def test_notes_are_listed_below_the_table():
    assert plain(outcome("home", notes=["small streams stay"]))[-1] == "home: note: small streams stay"


def test_a_long_note_is_wrapped():
    lines = plain(outcome("home", notes=["streams below the threshold stay where they are " * 4]))
    assert lines[-2].startswith("home: note: streams") and lines[-1].startswith("    ")
    assert max(map(len, lines)) <= WIDTH


def test_a_scenario_without_a_result_keeps_its_row_and_gives_the_reason():
    lines = plain(outcome("one"), Outcome("two", None, "the daemon ended\n\nstatus 3"))
    assert lines[3].split() == ["two", *["-"] * 12, "no", "result"]
    assert lines[8].split() == ["two", *["-"] * 14]
    assert lines[-1] == "two: no result: the daemon ended; status 3"


def test_a_pipe_gets_no_escape_codes():
    assert "\x1b" not in "\n".join(plain(outcome("home", notes=["\x1b[2J"])))


# In a terminal

def test_a_wide_terminal_shows_the_same_table():
    outcomes = [outcome("one"), outcome("two", seed=STORMY)]
    assert in_terminal(*outcomes).splitlines()[:16] == plain(*outcomes)[:16]


def test_the_verdict_is_coloured():
    text = in_terminal(outcome("one"), outcome("two", seed=STORMY), colours="standard")
    assert "\x1b[32mok\x1b[0m" in text and "\x1b[1;31mSTORM\x1b[0m" in text


def test_a_narrow_terminal_gets_a_block_for_each_scenario():
    lines = in_terminal(outcome("one"), Outcome("two", None, "no namespaces"), width=80).splitlines()
    assert max(map(len, lines)) <= 80
    assert lines[0] == "A home: as expected"
    assert "two: no result: no namespaces" in lines


# Several runs

def compared(*scenarios: Scenario, jobs: int = 2, run=fake_run) -> tuple[list[Outcome], list[int]]:
    done: list[int] = []
    return compare(scenarios, run, jobs, (NodeError,), done.append), done


@pytest.mark.parametrize("jobs", [1, 2, 8])
def test_outcomes_come_in_the_given_order_whatever_the_number_of_jobs(jobs):
    scenarios = [some_home(f"home-{number}", duration=600 if number == 0 else 10) for number in range(5)]
    outcomes, done = compared(*scenarios, jobs=jobs)
    assert [outcome.name for outcome in outcomes] == [f"home-{number}" for number in range(5)]
    assert [one.result["scenario"]["name"] for one in outcomes] == [outcome.name for outcome in outcomes]
    assert done == [1, 2, 3, 4, 5]


def test_a_scenario_may_be_given_twice():
    assert len(compared(some_home("one"), some_home("one"))[0]) == 2


def test_a_run_that_cannot_be_gives_its_reason_and_the_others_go_on():
    outcomes, _ = compared(some_home("one", seed=REFUSED), some_home("two"))
    assert outcomes[0].result is None and "does not allow the namespaces" in outcomes[0].problem
    assert outcomes[1].result is not None


def test_a_worker_that_ends_unexpectedly_is_an_outcome_too(capfd):
    outcomes, _ = compared(some_home("one", seed=BROKEN), some_home("two"))
    assert outcomes[0].problem == "its process ended with status 1"
    assert outcomes[1].result is not None
    assert "KeyError" in capfd.readouterr().err


def test_as_many_run_at_once_as_there_are_jobs():
    barrier = multiprocessing.get_context("fork").Barrier(2)

    def meet(_scenario: Scenario, _view: object) -> dict:
        barrier.wait(20)
        return {"pid": os.getpid()}
    outcomes, _ = compared(some_home("one"), some_home("two"), jobs=2, run=meet)
    assert len({outcome.result["pid"] for outcome in outcomes} - {os.getpid()}) == 2


def test_one_job_runs_one_after_the_other():
    def note_times(scenario: Scenario, view: object) -> dict:
        began = time.monotonic()
        fake_run(scenario, view)
        return {"began": began, "ended": time.monotonic()}
    outcomes, _ = compared(*[some_home(f"home-{number}") for number in range(3)], jobs=1, run=note_times)
    assert all(before.result["ended"] <= after.result["began"] for before, after in zip(outcomes, outcomes[1:]))
