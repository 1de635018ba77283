"""Columns and paragraphs of plain text."""
import textwrap
from collections.abc import Sequence


WIDTH = 120


def align(rows: Sequence[Sequence[str]], *, left: Sequence[int] = (0,), gap: str = "  ") -> list[str]:
    """The rows as lines whose cells stand below each other; `left` names the columns that are not figures."""
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    return [gap.join(cell.ljust(width) if column in left else cell.rjust(width)
                     for column, (cell, width) in enumerate(zip(row, widths))).rstrip() for row in rows]


def wrapped(text: str, indent: str = "", further: str = "    ") -> list[str]:
    """The text as lines that are not too long; those after the first are indented further."""
    return textwrap.wrap(text, WIDTH, initial_indent=indent, subsequent_indent=indent + further,
                         break_long_words=False, break_on_hyphens=False)
