"""The parts of the report that are text: verdict, figures, paths and records. Every text of a scenario is escaped."""
from collections.abc import Iterable, Sequence
from html import escape
from statistics import fmean

from . import report_data as data
from . import verdict as judged
from . import words
from .report_words import explained

COLUMNS_ON_A_PHONE = 3
MAX_LISTED = 200  # rows of the tables of moves and placements


def swatch(colour: str, dash: list[int]) -> str:
    pattern = f' stroke-dasharray="{" ".join(map(str, dash))}"' if dash else ""
    return (f'<svg class="swatch {colour}" viewBox="0 0 30 8" aria-hidden="true">'
            f'<line x1="0" y1="4" x2="30" y2="4"{pattern}/></svg>')


def facts(result: dict) -> str:
    scenario = result["scenario"]
    told = [f"{words.clock(scenario['duration'])} simulated", f"a tick every {words.seconds(scenario['tick'])} s",
            f"period of the daemon {words.seconds(scenario['period'])} s", f"seed {scenario['seed']}"]
    if words.is_number(result.get("wall_seconds")):
        told.append(f"computed in {words.seconds(result['wall_seconds'])} s")
    return explained(" · ".join(told)) + f" · scenario {escape(scenario['name'])}"


# Verdict

def verdict(result: dict) -> str:
    good = judged.as_expected(result)
    listed = "".join(map(expectation, result["expectations"]))
    return (f'<div><p class="outcome {_met(good)}">{"✓ As expected" if good else "✗ Not as expected"}</p>'
            f"<p>{explained(escape(_sentence(result)))}</p>{_storm_alarm(result)}</div>"
            f'<ul class="expectations">{listed or "<li>Nothing was expected.</li>"}</ul>')


def _sentence(result: dict) -> str:
    listed, missed = result["expectations"], len(judged.failures(result))
    if not missed:
        return f"All of {words.count(len(listed), 'expectation')} met."
    return f"{missed} of {words.count(len(listed), 'expectation')} not met."


def _met(good: bool) -> str:
    return "met" if good else "missed"


def expectation(one: dict) -> str:
    mark = "✓ met" if one["met"] else "✗ not met"
    return (f'<li><span class="mark {_met(one["met"])}">{mark}</span><span>{explained(escape(one["what"]))}</span>'
            f'<span class="measured">{escape(str(one["measured"]))}</span></li>')


def _storm_alarm(result: dict) -> str:
    with_, without = (result["judgement"][side]["storm_seconds"] or 0 for side in ("with", "without"))
    beside = f"{words.seconds(without)} s" if without else "never" if with_ else "never either"
    alarm = f'<b class="alarm">⚠ STORM with the daemon: {words.seconds(with_)} s</b>'
    calm = "<b>Broadcast storm: never</b>"
    return f'<p class="storm">{explained(alarm if with_ else calm)}<small>Without the daemon: {beside}</small></p>'


# Figures

def figures(result: dict) -> str:
    rows = [(explained(escape(name)), cells) for name, *cells in judged.figure_rows(result)]
    gain, of_ideal = result["ratios"]["gain"], result["ratios"]["of_ideal"]
    table = stacked_table("", judged.HEADINGS, rows, len(judged.HEADINGS) > COLUMNS_ON_A_PHONE)
    return (f'{table}<div class="tiles"><div class="card"><strong>{_times(gain)}</strong>'
            f"<span>{explained('the goodput without the daemon')}</span></div>"
            f'<div class="card"><strong>{words.percent(of_ideal)}</strong>'
            f"<span>{explained('of the goodput of an ideal placement')}</span></div></div>")


def _times(gain: float | None) -> str:
    return f"{words.factor(gain)} ×" if words.is_number(gain) else words.NOTHING


def notes(result: dict) -> str:
    listed = "".join(f"<li>{escape(note)}</li>" for note in result["scenario"]["notes"])
    return f'<section class="notes"><h2>Notes</h2><ul>{listed}</ul></section>' if listed else ""


# Paths

def paths(result: dict) -> str:
    """The legend of all plots, with what each path did in the whole run."""
    heads = ("mean rate, Mbit/s", "utilisation, mean", "utilisation, highest", "mean goodput, Mbit/s",
             "clients at the end", "carried broadcast", "link down")
    rows = [_path_row(name, path, result) for name, path in result["series"]["paths"].items()]
    return stacked_table("Path", heads, rows)


def stacked_table(first: str, heads: Sequence[str], rows: Iterable[tuple[str, Sequence[str]]],
                  stacked: bool = True) -> str:
    """
    A table of rows with a name, which is HTML already, and cells. A narrow window has no room for many columns, so there
    each cell stands in a line of its own behind its heading, unless `stacked` is false.
    """
    beside = [f'<span class="head">{explained(escape(head))}</span>' if stacked else "" for head in heads]
    body = "".join(f"<tr><th scope=row>{name}</th>" + "".join(f"<td>{head}<span>{escape(cell)}</span></td>"
                                                              for head, cell in zip(beside, cells)) + "</tr>"
                   for name, cells in rows)
    head = "".join(f"<th scope=col>{explained(escape(text))}</th>" for text in ([first] if first else []) + list(heads))
    return (f'<div class="scroll"><table class="{"stack" if stacked else "columns"}"><thead>'
            f'<tr>{"" if first else "<td></td>"}{head}</tr></thead><tbody>{body}</tbody></table></div>')


def _path_row(name: str, path: dict, result: dict) -> tuple[str, Sequence[str]]:
    ticks = len(path["up"])
    up_rates = [rate for rate, up in zip(path["rate"], path["up"]) if up]
    broadcast = sum(flag and up for flag, up in zip(path["broadcast"], path["up"]))
    cells = (words.mbit(_mean(up_rates)), words.percent(_mean(path["utilisation"])),
             words.percent(max(path["utilisation"], default=None)), words.mbit(_mean(path["goodput"])),
             words.whole(path["clients"][-1] if ticks else None), words.share(broadcast, ticks),
             words.share(ticks - sum(path["up"]), ticks))
    label = escape(data.full_label(name, path["type"]))
    mark = swatch(data.colour(path["type"]), data.DASHES.get(path["type"], [5, 5]))
    return f"{mark} {label}", cells


def _mean(values: list[float]) -> float | None:
    return fmean(values) if values else None


# Records

def records(result: dict) -> str:
    """Tables of what happened, each folded away unless it is short."""
    events = [(words.clock(event["time"]), event["text"]) for event in result["events"]]
    moves = [(words.clock(move["time"]), move["stream"], move["client"], _path(move["origin"]), _path(move["target"]))
             for move in result["moves"][:MAX_LISTED]]
    placements = [(words.clock(one["time"]), one["client"], _path(one["path"]))
                  for one in result["placements"][:MAX_LISTED]]
    return (table("Events", ("", "time", "event"), [(str(number), *row) for number, row in enumerate(events, 1)],
                   data.MAX_EVENTS, len(events), "event-")
            + table("Stream moves", ("time", "stream", "client", "from", "to"), moves, MAX_LISTED,
                     len(result["moves"]))
            + table("Placements of clients", ("time", "client", "path"), placements, MAX_LISTED,
                     len(result["placements"])))


def _path(name: str) -> str:
    return words.path_label(name) if name else "no path"


def table(title: str, heads: Iterable[str], rows: list[tuple], limit: int, total: int, anchor: str = "") -> str:
    """A table that can be opened; `anchor` gives each row an id to point at."""
    if not total:
        return f'<p class="empty">{title}: none.</p>'
    shown = f"{limit} of {total}" if total > limit else str(total)
    head = "".join(f"<th scope=col>{head}</th>" for head in heads)
    body = "".join((f'<tr id="{anchor}{number}">' if anchor else "<tr>")
                   + "".join(f'<td class="text">{escape(str(cell))}</td>' for cell in row) + "</tr>"
                   for number, row in enumerate(rows[:limit], 1))
    unfolded = " open" if anchor and total <= 20 else ""
    return (f'<details{unfolded}><summary>{title} ({shown})</summary><div class="scroll"><table>'
            f"<thead><tr>{head}</tr></thead><tbody>{body}</tbody></table></div></details>")
