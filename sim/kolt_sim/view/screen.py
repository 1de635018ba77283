"""One picture of the live view, made to fit the terminal: narrow ones get fewer columns, low ones fewer messages."""
from collections import deque
from dataclasses import dataclass

from rich.console import Group, RenderableType
from rich.text import Text

from ..record import Frame
from ..scenario.records import Scenario
from . import words
from .paths import path_table
from .story import Line, Story

MESSAGES = 8
ROOMY = 20  # terminals with fewer lines get no empty ones
LEGEND = "B: carries broadcast"
STORM_STYLE, CALM_STYLE, FAINT = "bold white on red", "green", "dim"
KIND_STYLES = {"event": "cyan", "storm": "bold red", "place": "blue", "move": "yellow"}


@dataclass
class Picture:
    """What there is to show."""
    scenario: Scenario
    story: Story
    frame: Frame | None
    lines: deque[Line]


def draw(picture: Picture, width: int, height: int, ascii_only: bool = False) -> RenderableType:
    """Everything that matters most comes first: what does not fit is cut off at the bottom."""
    frame, story = picture.frame, picture.story
    parts = [*header(picture, width, ascii_only)]
    if frame is None:
        return Group(*parts, line("starting", FAINT))
    gap = [Text("")] if height >= ROOMY else []
    parts += [alarm(frame, story, width), *gap, path_table(frame.paths, width, ascii_only), *gap,
              totals(frame, width), tallies(story, width), *gap]
    used = len(parts) + len(frame.paths)  # the table has a line for each path and one for the headings
    room = max(0, min(MESSAGES, height - used))
    recent = list(picture.lines)[-room:] if room else []
    return Group(*parts, *map(message, recent))


def line(text: str, style: str = "") -> Text:
    return Text(text, style=style, no_wrap=True, overflow="ellipsis")


def header(picture: Picture, width: int, ascii_only: bool) -> list[Text]:
    """The title with the time beside it, and how far the run is."""
    duration = picture.scenario.duration
    now = picture.frame.time if picture.frame is not None else 0.0
    done = min(1.0, (now + picture.scenario.tick) / duration) if picture.frame is not None else 0.0
    when = f"{words.clock(now)} of {words.clock(duration)}"
    title = Text(words.clean(picture.scenario.title), style="bold")
    title.truncate(max(0, width - len(when) - 2), overflow="ellipsis", pad=True)
    size = max(0, width - 6)
    full = round(size * done)
    full_mark, rest_mark = ("#", "-") if ascii_only else ("━", "─")
    progress = Text.assemble((full_mark * full, "blue"), (rest_mark * (size - full), FAINT), f" {100 * done:3.0f} %")
    return [Text.assemble(title, f"  {when}", no_wrap=True), progress]


def alarm(frame: Frame, story: Story, width: int) -> Text:
    without = f"   without the daemon: {'storm' if frame.storm_without else 'no storm'}"
    if frame.storm:
        text = f" STORM: {words.loop(frame.storm)} "
        return Text.assemble((text.ljust(max(0, width - len(without))), STORM_STYLE), without, no_wrap=True,
                             overflow="ellipsis")
    been = story.storm_seconds["with"]
    calm = ("no storm", CALM_STYLE) if not been else (f"no storm now, {words.seconds(been)} s so far", "red")
    return Text.assemble(calm, (without, "red" if frame.storm_without else FAINT), no_wrap=True, overflow="ellipsis")


def totals(frame: Frame, width: int) -> Text:
    share = words.share(frame.goodput, frame.demand)
    if width < 80:
        return line(f"{words.mbit(frame.goodput)} of {words.mbit(frame.demand)} Mbit/s ({share}), without "
                    f"{words.mbit(frame.without)}, ideal {words.mbit(frame.ideal)}")
    return Text.assemble(f"demand {words.mbit(frame.demand)}  with the daemon ",
                         (f"{words.mbit(frame.goodput)} ({share})", "bold"),
                         f"  without {words.mbit(frame.without)}  ideal {words.mbit(frame.ideal)} Mbit/s", no_wrap=True)


def tallies(story: Story, width: int) -> Text:
    """The numbers of moves and placements and, where there is room, what the table's last column means."""
    text = (f"{words.count(story.moves, 'move')}, {story.moves_last_minute} in the last minute; "
            f"{words.count(story.placements, 'client placement')}")
    room = width - len(text)
    legend = LEGEND.rjust(room) if room >= len(LEGEND) + 2 else ""
    return Text.assemble(text, (legend, FAINT), no_wrap=True, overflow="ellipsis")


def message(told: Line) -> Text:
    kind = (f"{told.kind:<5}  ", KIND_STYLES[told.kind])
    return Text.assemble((f"{words.clock(told.time):>7}  ", FAINT), kind, told.text, no_wrap=True, overflow="ellipsis")
