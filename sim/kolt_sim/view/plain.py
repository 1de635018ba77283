"""Plain lines, for a pipe or a file: the state every few seconds, what happens when it happens, and the summary."""
import math
from typing import TextIO

from ..record import Frame, PathFrame
from ..scenario.records import Scenario
from . import beside, verdict, words
from .columns import align, wrapped
from .story import Story

STEP_SECONDS = 10  # of simulated time between two states
STATES = 60  # a long run shows its state less often, about so many times


class ReaderGone(Exception):
    """Whoever read the lines has closed the pipe."""


class PlainView:
    """Writes lines of the form `TIME KIND TEXT`; TIME is in simulated seconds."""

    def __init__(self, out: TextIO) -> None:
        self._out = out
        self._story = Story(1.0, every_move=True)
        self._step, self._next_state = float(STEP_SECONDS), 0.0

    def start(self, scenario: Scenario) -> None:
        self._story = Story(scenario.tick, every_move=True)
        self._step, self._next_state = step_for(scenario.duration), 0.0
        self._write([f"scenario {scenario.name}: {words.clean(scenario.title)}",
                     f"{words.seconds(scenario.duration)} s in ticks of {words.seconds(scenario.tick)} s,"
                     f" {words.count(len(scenario.clients), 'client')}, {words.count(len(scenario.streams), 'stream')},"
                     f" seed {scenario.seed}; rates and goodput in Mbit/s, shares in percent", ""])

    def frame(self, frame: Frame) -> None:
        lines = [entry(line.time, line.kind, line.text) for line in self._story.tell(frame)]
        if frame.time >= self._next_state - 1e-6:
            lines += [entry(frame.time, "total", total_text(frame, self._story.moves)),
                      *(entry(frame.time, "path", path_text(path)) for path in frame.paths)]
            self._next_state = (math.floor(frame.time / self._step + 1e-6) + 1) * self._step
        self._write(lines)

    def finish(self, result: dict) -> None:
        self._write(["", *summary(result)])

    def close(self) -> None:
        """Nothing is left open."""

    def _write(self, lines: list[str]) -> None:
        try:
            self._out.write("".join(line + "\n" for line in lines))
            self._out.flush()
        except BrokenPipeError as error:
            raise ReaderGone from error


def step_for(duration: float) -> float:
    return STEP_SECONDS * max(1, math.ceil(duration / STATES / STEP_SECONDS))


def entry(time: float, kind: str, text: str) -> str:
    return f"{time:7.1f} {kind:<5} {text}"


def total_text(frame: Frame, moves: int) -> str:
    storms = [",".join(ports) or "no" for ports in (frame.storm, frame.storm_without)]
    return (f"demand={words.mbit(frame.demand):<5} goodput={words.mbit(frame.goodput):<5}"
            f" without={words.mbit(frame.without):<5} ideal={words.mbit(frame.ideal):<5}"
            f" moves={moves:<4} storm={storms[0]} storm_without={storms[1]}")


def path_text(path: PathFrame) -> str:
    """`busy` is the utilisation, `quota` what the daemon gives the path, both in percent of the air time."""
    quota = words.whole(path.quota)
    return (f"{path.name:<7} link={'up' if path.up else 'down':<4} rate={path.rate:<5.0f} neigh={path.neighbours:<3.0f}"
            f" busy={path.utilisation:<3.0f} quota={quota:<3} goodput={words.mbit(path.goodput):<5}"
            f" streams={path.streams:<4} clients={path.clients:<3} bcast={'yes' if path.broadcast else 'no'}")


def summary(result: dict) -> list[str]:
    """What the run came to, as text."""
    lines = [f"result: {verdict.headline(result)}", verdict.ratio_line(result),
             beside.without_sentence(result), beside.beside_sentence(result), "",
             *align([["", *verdict.HEADINGS], *verdict.figure_rows(result)])]
    lines += ["", "expectations", *expectation_lines(result["expectations"])]
    notes = [line for note in result["scenario"]["notes"] for line in wrapped(words.clean(note), "  ", "  ")]
    return lines + (["", "notes", *notes] if notes else [])


def expectation_lines(expectations: list[dict]) -> list[str]:
    rows = verdict.expectation_rows({"expectations": expectations})
    return ["  " + line for line in align(rows, left=(0, 1, 2))] if rows else []
