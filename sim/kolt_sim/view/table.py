"""The tables that compare scenarios, a row each: what is carried, what it costs; below them what was missed."""
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from typing import TextIO

from . import beside, verdict, words
from .columns import WIDTH, align, wrapped

SHORTEST_NAME = 16  # names are cut to what the figures leave, but not further than this
GAP = 2
SIDES = ("with", "without", "best_link", "hash", "weighted_hash", "ideal")
SIDE_HEADINGS = ("with", "w/o", "best", "hash", "w.hash", "ideal")
FOOT = """\
with: the daemon. w/o: no daemon, all traffic on the link named, or the cable while there is one. best: on the link that
    carries most at that moment. hash, w.hash: each flow on the link that its hash names, with equal chances or by what
    the links carry now; the middle one of five hash functions. All three know the links and change them at no cost. A
    storm costs no goodput here: without the daemon and with hashes there is one, a best link alone has none.
worst client: share of its demand. back: to a path left before. calm: minutes in which nothing went back, neither stream
    nor client. relief: seconds that the longest overload lasted.""".splitlines()


@dataclass(frozen=True)
class Outcome:
    """What became of a scenario: its result, or the reason why there is none."""
    name: str
    result: dict | None
    problem: str = ""


@dataclass(frozen=True)
class Table:
    """A group's title stands above the first of its columns. `cells` are those of a result between name and verdict."""
    groups: tuple[str, ...]
    headings: tuple[str, ...]
    cells: Callable[[dict], list[str]]
    verdict: bool

    def row(self, outcome: Outcome) -> list[str]:
        """The cells of an outcome, with dashes where there is no result."""
        if outcome.result is None:
            return [outcome.name, *[words.NOTHING] * len(self.headings), *(["no result"] if self.verdict else [])]
        return [outcome.name, *self.cells(outcome.result), *([verdict.verdict(outcome.result)] if self.verdict else [])]


def goodput_cells(result: dict) -> list[str]:
    figures = [words.mbit(result["judgement"][side]["goodput"]) for side in SIDES]
    ratios = result["ratios"]
    return [*figures[:2], beside.fixed_link(result), *figures[2:],
            *(words.factor(ratios[name]) for name in ("gain", "by_best_link", "by_hash", "by_weighted_hash")),
            words.whole(ratios["of_ideal"])]


def cost_cells(result: dict) -> list[str]:
    sides = result["judgement"]
    ours = sides["with"]
    tallies = ("moves", "bounces", "placements", "client_bounces", "calm")
    return [*(words.whole(verdict.worst(sides[side], "share")) for side in SIDES),
            *(words.whole(ours[key]) for key in tallies), words.seconds(ours["relief"]),
            words.whole(ours["storm_seconds"]), words.whole(sides["without"]["storm_seconds"])]


TABLES = (
    Table(("goodput, Mbit/s", *[""] * 6, "with, by that of", "", "", "", "% of"),
          (*SIDE_HEADINGS[:2], "on", *SIDE_HEADINGS[2:], *SIDE_HEADINGS[1:]), goodput_cells, True),
    Table(("worst client, %", *[""] * 5, "stream", "", "client", "", "calm", "", "storm, s", ""),
          (*SIDE_HEADINGS, "moves", "back", "placed", "back", "%", "relief", "with", "w/o"), cost_cells, False))


def grouped_heading(groups: Sequence[str], widths: Sequence[int]) -> str:
    """The line above the headings: a group's title begins above its first column and may reach over the next ones."""
    line, place = "", 0
    for title, width in zip(groups, widths):
        if title:
            start = place if len(title) > width else place + width - len(title)
            line = line.ljust(start) + title
        place += width + GAP
    return line


def table_lines(outcomes: Sequence[Outcome], table: Table = TABLES[0]) -> list[str]:
    """Two lines of headings and a row for each outcome."""
    rows = [["scenario", *table.headings, *(["verdict"] if table.verdict else [])], *map(table.row, outcomes)]
    widths = [max(len(one[column]) for one in rows) for column in range(len(rows[0]))]
    widths[0] = min(widths[0], max(SHORTEST_NAME, WIDTH - sum(widths[1:]) - GAP * (len(widths) - 1)))
    for one in rows:
        if len(one[0]) > widths[0]:
            one[0] = one[0][:widths[0] - 3] + "..."
    left = (0, len(widths) - 1) if table.verdict else (0,)
    return [grouped_heading(("", *table.groups), widths), *align(rows, left=left, gap=" " * GAP)]


def remarks(outcome: Outcome) -> list[str]:
    """What a reader of the outcome's row should know besides."""
    if outcome.result is None:
        return [f"{outcome.name}: no result: {'; '.join(filter(str.strip, outcome.problem.splitlines()))}"]
    missed = [f"{outcome.name}: not met: {words.clean(one['what'])}, measured {one['measured']}"
              for one in verdict.failures(outcome.result)]
    return missed + [f"{outcome.name}: note: {words.clean(note)}" for note in outcome.result["scenario"]["notes"]]


def write_plain(outcomes: Sequence[Outcome], out: TextIO) -> None:
    listed = [line for outcome in outcomes for remark in remarks(outcome) for line in wrapped(remark)]
    tables = [line for table in TABLES for line in (*table_lines(outcomes, table), "")]
    lines = [*tables, *FOOT, *([""] if listed else []), *listed]
    out.write("".join(line + "\n" for line in lines))
    out.flush()
