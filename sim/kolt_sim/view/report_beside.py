"""The part of the report that sets the daemon beside simpler ways to use the links: a table, its words, and a plot."""
from html import escape

from . import beside, words
from . import report_data as data
from .report_parts import stacked_table
from .report_words import explained
from .verdict import worst_share

ROWS = (("with", "With the daemon", "with"), ("best_link", "Best link alone", "best-link"),
        ("hash", "Flow hash", "hash"), ("weighted_hash", "Weighted flow hash", "weighted-hash"),
        ("without", "Without the daemon", "without"), ("ideal", "Ideal placement", "ideal"))
RATIOS = {"without": "gain", "best_link": "by_best_link", "hash": "by_hash", "weighted_hash": "by_weighted_hash"}
HEADS = ("goodput, Mbit/s", "daemon ÷ it", "worst client", "path changes", "storm, s")
DRAWN = {"with": ("goodput", [], 2.6), "best_link": ("best_link", [8, 4], 1.8), "hash": ("hash", [2, 3], 1.8),
         "weighted_hash": ("weighted_hash", [11, 3, 2, 3], 1.8)}


def section(result: dict) -> str:
    """The table with a row for each way, and what each is."""
    rows = [(explained(title), _cells(result, side)) for side, title, _ in ROWS]
    told = "".join(f"<li>{explained(escape(text))}</li>" for text in explanations(result))
    return ('<section id="beside" aria-label="Simpler ways"><h2>Beside simpler ways to use the links</h2>'
            f"{stacked_table('', HEADS, rows)}<ul>{told}</ul></section>")


def _cells(result: dict, side: str) -> list[str]:
    figures = result["judgement"][side]
    return [words.mbit(figures["goodput"]), words.factor(_daemon_by(result["ratios"], side)), worst_share(figures),
            *(words.NOTHING if side == "ideal" else words.whole(figures[key]) for key in ("changes", "storm_seconds"))]


def _daemon_by(ratios: dict, side: str) -> float | None:
    """The daemon's goodput by that of a side."""
    if side == "ideal":
        return ratios["of_ideal"] / 100 if ratios["of_ideal"] is not None else None
    return ratios.get(RATIOS.get(side))


def explanations(result: dict) -> list[str]:
    """What each way is, which link "without" means, and what a storm does here."""
    ranges = {way: " to ".join(map(words.mbit, result["judgement"][way]["goodput_range"]))
              for way in ("hash", "weighted_hash")}
    without = beside.without_sentence(result)
    return [
        "Best link alone: at every moment the one link that carries most, the cable included. It has no loop.",
        "Flow hash: each stream on the link that its hash names, with equal chances; weighted: in proportion to what "
        "the links carry at that moment. These are balancers without protection from loops. Of five hash functions the "
        f"one with the middle goodput is shown; they carried {ranges['hash']} Mbit/s, "
        f"weighted {ranges['weighted_hash']}.",
        "These three know the links exactly and may change them at no cost, which nothing real can.",
        f"{without[0].upper()}{without[1:]}.",
        "A broadcast storm costs no goodput in this model, neither without the daemon nor with a hash: it is counted "
        "alone. On a real bridge it would leave little of theirs."]


def series(result: dict) -> list[dict]:
    """Goodput over time of the daemon and the simpler ways."""
    titles = {side: (title, colour) for side, title, colour in ROWS}
    return [{"label": titles[side][0], "colour": titles[side][1], "dash": dash, "width": width,
             "values": data.thin(result["series"]["total"][member], "mean")}
            for side, (member, dash, width) in DRAWN.items()]
