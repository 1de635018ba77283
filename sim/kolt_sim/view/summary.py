"""What stays on a terminal when a run is over."""
from rich.console import Group, RenderableType
from rich.table import Table
from rich.text import Text

from . import beside, verdict, words


def headline(result: dict) -> Text:
    style = "bold green" if verdict.as_expected(result) else "bold red"
    return Text.assemble((words.clean(result["scenario"]["title"]), "bold"), ": ", (verdict.headline(result), style))


def plain_table(titles: list[str], *, right: bool) -> Table:
    table = Table(box=None, pad_edge=False, padding=(0, 2, 0, 0), header_style="underline")
    table.add_column(titles[0])
    for title in titles[1:]:
        table.add_column(title, justify="right" if right else "left")
    return table


def figures(result: dict) -> Table:
    table = plain_table(["", *verdict.HEADINGS], right=True)
    for row in verdict.figure_rows(result):
        table.add_row(*map(Text, row))
    return table


def expectations(listed: list[dict]) -> Table:
    table = plain_table(["", "expected", "measured"], right=False)
    for met, what, measured in verdict.expectation_rows({"expectations": listed}):
        table.add_row(Text(met, style="green" if met == "met" else "bold red"), Text(what), Text(measured))
    return table


def notes(result: dict) -> list[Text]:
    return [Text(f"note: {words.clean(note)}", style="dim") for note in result["scenario"]["notes"]]


def summary(result: dict) -> RenderableType:
    """The verdict, the figures with the daemon, without it and at best, the expectations, and the scenario's notes."""
    sentences = verdict.ratio_line(result), beside.without_sentence(result), beside.beside_sentence(result)
    return Group(headline(result), *map(Text, sentences), figures(result), Text(""),
                 expectations(result["expectations"]), *notes(result))
