"""The comparison in a terminal: the tables in colours where they fit, otherwise a block for each scenario."""
from collections.abc import Sequence

from rich.console import Console
from rich.text import Text

from . import beside, verdict
from .summary import expectations, figures, headline, notes
from .table import FOOT, TABLES, Outcome, remarks, table_lines

HEADING_LINES = 2


def style_of(outcome: Outcome) -> str:
    return "green" if outcome.result is not None and verdict.as_expected(outcome.result) else "bold red"


def coloured(line: str, outcome: Outcome) -> Text:
    """A row whose verdict, its last words, shows at a glance."""
    text = Text(line, no_wrap=True, overflow="ellipsis")
    word = verdict.verdict(outcome.result) if outcome.result is not None else "no result"
    text.stylize(style_of(outcome), len(line) - len(word))
    return text


def show(outcomes: Sequence[Outcome], console: Console) -> None:
    drawn = [(table, table_lines(outcomes, table)) for table in TABLES]
    if max(len(line) for _, lines in drawn for line in lines) > console.width:
        show_blocks(outcomes, console)
        return
    for table, lines in drawn:
        for heading in lines[:HEADING_LINES]:
            console.print(Text(heading, style="bold", no_wrap=True))
        for line, outcome in zip(lines[HEADING_LINES:], outcomes):
            console.print(coloured(line, outcome) if table.verdict else Text(line, no_wrap=True, overflow="ellipsis"))
        console.print()
    console.print(Text("\n".join(FOOT), style="dim"))
    for outcome in outcomes:
        for remark in remarks(outcome):
            console.print(Text(remark, style="" if ": note: " in remark else "red"))


def show_blocks(outcomes: Sequence[Outcome], console: Console) -> None:
    for outcome in outcomes:
        if outcome.result is None:
            console.print(Text(remarks(outcome)[0], style="bold red"), Text(""), sep="\n")
            continue
        missed = verdict.failures(outcome.result)
        sentences = beside.without_sentence(outcome.result), beside.beside_sentence(outcome.result)
        console.print(headline(outcome.result), *map(Text, sentences), figures(outcome.result),
                      *([expectations(missed)] if missed else []), *notes(outcome.result), Text(""), sep="\n")
