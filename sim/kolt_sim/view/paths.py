"""The live view's table of backhaul paths."""
from collections.abc import Callable
from dataclasses import dataclass

from rich.table import Table
from rich.text import Text

from ..record import PathFrame
from . import words

BAR, WIDE_BAR = 5, 20
BUSY, FULL = 60.0, 85.0  # percent from which a path is shown yellow, and red


@dataclass(frozen=True)
class Column:
    """`rank` says how soon a narrow terminal loses the column: the highest goes first."""
    title: str
    width: int
    rank: int
    cell: Callable[[PathFrame], str | Text]
    left: bool = False


def path_cell(path: PathFrame) -> Text:
    return Text(words.path_label(path.type), style="bold" if path.up else "dim")


def link_cell(path: PathFrame) -> Text:
    return Text("up", style="green") if path.up else Text("down", style="red")


def share_style(percent: float) -> str:
    return "red" if percent >= FULL else "yellow" if percent >= BUSY else "green"


def busy_cell(path: PathFrame) -> Text:
    return Text(words.percent(path.utilisation) if path.up else words.NOTHING, style=share_style(path.utilisation))


def bar_cell(path: PathFrame, size: int, ascii_only: bool) -> Text:
    full = round(size * min(100.0, max(0.0, path.utilisation)) / 100)
    full_mark, rest_mark = ("#", ".") if ascii_only else ("█", "░")
    return Text.assemble((full_mark * full, share_style(path.utilisation)), (rest_mark * (size - full), "dim"))


COLUMNS = (
    Column("path", 10, 0, path_cell, left=True),
    Column("", 7, 4, lambda path: Text(path.name, style="dim"), left=True),
    Column("link", 4, 2, link_cell, left=True),
    Column("rate", 5, 5, lambda path: f"{path.rate:.0f}" if path.up else words.NOTHING),
    Column("neigh", 5, 9, lambda path: words.percent(path.neighbours)),
    Column("busy", 5, 1, busy_cell),
    Column("quota", 5, 6, lambda path: words.percent(path.quota)),
    Column("goodput", 7, 1, lambda path: words.mbit(path.goodput)),
    Column("streams", 7, 3, lambda path: str(path.streams)),
    Column("clients", 7, 7, lambda path: str(path.clients)),
    Column("bc", 2, 2, lambda path: Text("B" if path.broadcast else "", style="bold magenta"), left=True))
BAR_PLACE = 5  # before "busy"


def taken(columns: list[Column]) -> int:
    return sum(column.width for column in columns) + len(columns) - 1


def chosen_columns(width: int) -> list[Column]:
    columns = list(COLUMNS)
    while taken(columns) > width and len(columns) > 1:
        columns.remove(max(columns, key=lambda column: column.rank))
    return columns


def path_table(paths: list[PathFrame], width: int, ascii_only: bool = False) -> Table:
    """A line per path under the headings; rates and goodput in Mbit/s. Room that is left goes to a bar."""
    columns = chosen_columns(width)
    bar = min(WIDE_BAR, width - taken(columns) - 1)
    if len(columns) == len(COLUMNS) and bar >= BAR:
        columns.insert(BAR_PLACE, Column("", bar, 0, lambda path: bar_cell(path, bar, ascii_only), left=True))
    table = Table(box=None, pad_edge=False, padding=(0, 1, 0, 0), header_style="underline")
    for column in columns:
        table.add_column(column.title, width=column.width, no_wrap=True, justify="left" if column.left else "right")
    for path in paths:
        table.add_row(*(column.cell(path) for column in columns))
    return table
