"""The page of plots about a run: the one of the modelled node, with a mesh's links for its paths."""
import sys
from html import escape
from pathlib import Path

from .ports import ROOT
from .record import LinkSeries, Record

sys.path[:0] = [str(ROOT / "sim"), str(ROOT / "platform/sim")]

from kolt_sim.view import report, report_opening, report_parts, words  # noqa: E402
from kolt_sim.view import report_data as data  # noqa: E402
from kolt_sim.view.report_words import explained  # noqa: E402
from kolt_sim.view.report import LIBRARY, ReportError  # noqa: E402

__all__ = ["LIBRARY", "ReportError", "render", "write"]

ACCENTS = (1.8, 3.0, 1.0)  # line widths, for links of one type between different nodes


def write(record: Record, path: Path) -> None:
    """Writes the page. ReportError when the plotting library is missing, OSError from writing."""
    path.write_text(render(record), encoding="utf-8")


def render(record: Record) -> str:
    plots = _plots(record)
    good = all(one.met for one in record.expectations)
    texts = {"title": escape(record.title), "what": "a mesh of namespaces with kolt", "about": escape(record.about),
             "facts": f"{_length(record):.0f} s · {explained('topology')} {escape(record.name)} · "
                      f"{explained('in the nodes')}: {escape(record.kind)}",
             "verdict": _verdict(record, good), "figures": _figures(record), "notes": "", "paths": _links(record),
             "reading": report.reading(_length(record), bool(record.events)),
             "records": report_parts.table("Events", ("", "time", "event"), _events(record), data.MAX_EVENTS,
                                           len(record.events), "event-")}
    return report.render_page(texts, plots, _drawn(record, plots))


def _length(record: Record) -> float:
    return record.time[-1] if record.time else 0.0


def _events(record: Record) -> list[tuple]:
    return [(str(number), words.clock(at), text) for number, (at, text) in enumerate(record.events, 1)]


def _verdict(record: Record, good: bool) -> str:
    listed = "".join(report_parts.expectation({"what": one.what, "measured": one.measured, "met": one.met})
                     for one in record.expectations)
    outcome = "✓ As expected" if good else "✗ Not as expected"
    if not record.expectations:
        good, outcome = True, "For comparison"
    return (f'<div><p class="outcome {"met" if good else "missed"}">{outcome}</p></div>'
            f'<ul class="expectations">{listed or "<li>Nothing was expected.</li>"}</ul>')


def _figures(record: Record) -> str:
    rows = "".join(f"<tr><th scope=row>{explained(escape(name))}</th><td>{escape(value)}</td></tr>"
                   for name, value in record.figures)
    return f'<div class="scroll"><table><tbody>{rows}</tbody></table></div>'


def _links(record: Record) -> str:
    """The legend of the plots, with what each link did in the whole run."""
    heads = ("rate, Mbit/s", "utilisation, mean", "utilisation, highest", "carried broadcast", "link lost")
    return report_parts.stacked_table("Link", heads, [_link_row(name, series) for name, series in record.links.items()])


def _link_row(name: str, series: LinkSeries) -> tuple[str, tuple[str, ...]]:
    ticks = len(series.state)
    lost = sum(state in ("cut", "silent", "unused") for state in series.state)
    busy = series.utilisation
    cells = (f"{series.rate:g}" if series.rate else words.NOTHING,
             words.percent(sum(busy) / ticks if ticks else None), words.percent(max(busy, default=None)),
             words.share(sum(series.broadcast), ticks), words.share(lost, ticks))
    mark = report_parts.swatch(data.colour(series.type), data.DASHES.get(series.type, []))
    return f"{mark} {escape(name)}", cells


# Plots

def _plots(record: Record) -> list[dict]:
    total = [{"label": "Arriving at all hosts", "colour": "with", "dash": [], "width": 2.6,
              "values": data.thin(list(record.total), "mean")}]
    return [_plot("total", "lines", "Goodput", "Mbit/s that arrive at the hosts.", total),
            _plot("utilisation", "lines", "Utilisation of each link", "Percent of the link's rate.",
                  _series(record, "utilisation", "extremes")) | {"percent": True},
            _plot("goodput", "stack", "Carried by each link", "Mbit/s in the busier direction, stacked.",
                  _series(record, "mbit", "mean")),
            {"id": "broadcast", "kind": "lanes", "title": "Broadcast", "lanes": _lanes(record),
             "caption": "Which link carries frames to everybody, and which is lost.",
             "empty": "" if record.time and record.links else "There is nothing to show."}]


def _plot(name: str, kind: str, title: str, caption: str, series: list[dict]) -> dict:
    shown = any(one["values"] for one in series)
    return {"id": name, "kind": kind, "title": title, "caption": caption, "series": series,
            "empty": "" if shown else "There is nothing to show."}


def _series(record: Record, member: str, how: str) -> list[dict]:
    seen: dict[str, int] = {}
    made = []
    for name, series in record.links.items():
        number = seen[series.type] = seen.get(series.type, -1) + 1
        made.append({"label": name, "colour": data.colour(series.type), "dash": data.DASHES.get(series.type, []),
                     "width": ACCENTS[number % len(ACCENTS)], "values": data.thin(list(getattr(series, member)), how)})
    return made


def _lanes(record: Record) -> list[dict]:
    over = _length(record) + record.tick
    lanes = []
    for name, series in record.links.items():
        ends, kind = name.split(" ", 1)
        states = ["down" if state in ("cut", "silent", "unused") else "broadcast" if carries else ""
                  for state, carries in zip(series.state, series.broadcast)]
        lanes.append({"label": kind, "detail": ends, "colour": data.colour(series.type),
                      "spans": data.spans(record.time, states, over)})
    return lanes


def _drawn(record: Record, plots: list[dict]) -> dict:
    """What the page's script gets."""
    keep = ("id", "kind", "series", "lanes", "percent")
    end = _length(record) + record.tick
    opening = report_opening.opening([(at, report_opening.EVENT) for at, _ in record.events], [0.0, end])
    return {"window": [0.0, end], "opening": opening, "times": record.time[::data.stride(len(record.time))],
            "tick": record.tick, "end": end, "names": {}, "moves": [], "events": [list(event) for event in record.events], "storms": [],
            "threshold": None,
            "plots": [{key: plot[key] for key in keep if key in plot} for plot in plots if not plot["empty"]]}
