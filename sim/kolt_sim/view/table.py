"""The table that compares scenarios: a row each, what was missed and the notes below."""
from collections.abc import Sequence
from dataclasses import dataclass
from typing import TextIO

from . import verdict, words
from .columns import WIDTH, align, wrapped

SHORTEST_NAME = 16  # names are cut to what the figures leave, but not further than this
GROUPS = ("", "goodput, Mbit/s", "", "", "", "% of", "worst client, %", "", "", "stream", "", "", "storm, s", "", "")
HEADINGS = ("scenario", "with", "w/o", "ideal", "gain", "ideal", "with", "w/o", "ideal", "moves", "back", "relief",
            "with", "w/o", "verdict")
GAP = 2
LEFT = (0, len(HEADINGS) - 1)
FOOT = ("with, w/o: with and without the daemon; worst client: share of its demand;",
        "back: moves to a path that the stream had left before; relief: seconds that the longest overload lasted")


@dataclass(frozen=True)
class Outcome:
    """What became of a scenario: its result, or the reason why there is none."""
    name: str
    result: dict | None
    problem: str = ""


def row(outcome: Outcome) -> list[str]:
    if outcome.result is None:
        return [outcome.name, *[words.NOTHING] * (len(HEADINGS) - 2), "no result"]
    ours, plain, _ = sides = [outcome.result["judgement"][side] for side in verdict.SIDES]
    ratios = outcome.result["ratios"]
    return [outcome.name, *(words.mbit(side["goodput"]) for side in sides),
            words.factor(ratios["gain"]), words.whole(ratios["of_ideal"]),
            *(words.whole(verdict.worst(side, "share")) for side in sides),
            words.whole(ours["moves"]), words.whole(ours["bounces"]), words.seconds(ours["relief"]),
            words.whole(ours["storm_seconds"]), words.whole(plain["storm_seconds"]), verdict.verdict(outcome.result)]


def grouped_heading(widths: Sequence[int]) -> str:
    """The line above the headings: a group's title begins above its first column and may reach over the next ones."""
    line, place = "", 0
    for title, width in zip(GROUPS, widths):
        if title:
            start = place if len(title) > width else place + width - len(title)
            line = line.ljust(start) + title
        place += width + GAP
    return line


def table_lines(outcomes: Sequence[Outcome]) -> list[str]:
    rows = [list(HEADINGS), *map(row, outcomes)]
    widths = [max(len(one[column]) for one in rows) for column in range(len(HEADINGS))]
    widths[0] = min(widths[0], max(SHORTEST_NAME, WIDTH - sum(widths[1:]) - GAP * (len(widths) - 1)))
    for one in rows:
        if len(one[0]) > widths[0]:
            one[0] = one[0][:widths[0] - 3] + "..."
    return [grouped_heading(widths), *align(rows, left=LEFT, gap=" " * GAP)]


def remarks(outcome: Outcome) -> list[str]:
    """What a reader of the outcome's row should know besides."""
    if outcome.result is None:
        return [f"{outcome.name}: no result: {'; '.join(filter(str.strip, outcome.problem.splitlines()))}"]
    missed = [f"{outcome.name}: not met: {words.clean(one['what'])}, measured {one['measured']}"
              for one in verdict.failures(outcome.result)]
    return missed + [f"{outcome.name}: note: {words.clean(note)}" for note in outcome.result["scenario"]["notes"]]


def write_plain(outcomes: Sequence[Outcome], out: TextIO) -> None:
    listed = [line for outcome in outcomes for remark in remarks(outcome) for line in wrapped(remark)]
    lines = [*table_lines(outcomes), "", *FOOT, *([""] if listed else []), *listed]
    out.write("".join(line + "\n" for line in lines))
    out.flush()
