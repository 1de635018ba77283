"""The plots of the report: what each shows, its caption, its text for those who cannot see it, and its data."""
from html import escape
from statistics import fmean

from . import report_beside, words
from . import report_data as data
from .report_opening import happenings, opening
from .report_words import explained

THINNED = {"mean": "means", "last": "last values", "extremes": "lowest and highest values"}


def plots(result: dict) -> list[dict]:
    """Every plot in the order of the page. One without anything to draw says so in `empty`."""
    shaded = " Red strip: a broadcast storm without the daemon." if any(result["series"]["storm_without"]) else ""
    made = [
        _plot("total", "lines", "Goodput of the node",
              f"Mbit/s with the daemon, without the daemon and ideal, and the demand.{shaded}",
              data.total_series(result), "mean"),
        _plot("beside", "lines", "Goodput beside simpler ways",
              "Mbit/s with the daemon, on the best link alone, and by hashes.", report_beside.series(result), "mean"),
        _plot("utilisation", "lines", "Utilisation of each path", _utilisation_caption(result),
              data.path_series(result, "utilisation", "extremes"), "extremes"),
        _plot("goodput", "stack", "Goodput by path", "Mbit/s, stacked.",
              data.path_series(result, "goodput", "mean"), "mean"),
        _plot("quota", "lines", "Quota of each path", "Percent of the air time that the daemon may still fill.",
              data.path_series(result, "quota", "extremes"), "extremes", "The daemon gave no path a quota."),
        _plot("rate", "lines", "Rate of each path",
              "Mbit/s: PHY rate of Wi-Fi, throughput of wired links; no line while a link is down.",
              data.path_series(result, "rate", "extremes", only_up=True), "extremes", "No link was ever up."),
        _plot("clients", "steps", "Placement of clients", "Clients that the daemon has pinned to each path, stacked.",
              data.path_series(result, "clients", "last"), "last", "The daemon pinned no client."),
    ]
    made[2]["percent"] = True
    return [_thinned(plot, result) for plot in made] + [_lanes(result)]


def _utilisation_caption(result: dict) -> str:
    caption, threshold = "Percent of the air time or of the link.", result["scenario"].get("high_threshold")
    if result["moves"]:
        caption += " ▼ marks streams that moved to the path of that row, with their number."
    if threshold is not None:
        caption += f" Level line: the daemon's high threshold, {threshold:g} %."
    return caption


def _plot(name: str, kind: str, title: str, caption: str, series: list[dict], how: str, nothing: str = "") -> dict:
    """A plot; it is empty when nothing is known or, where zero means the same, when all is zero."""
    values = [value for one in series for value in one["values"] if value is not None]
    blank = not values or (name == "clients" and not any(values))
    return {"id": name, "kind": kind, "title": title, "caption": caption, "series": series, "how": how,
            "empty": (nothing or "There is nothing to show.") if blank else ""}


def _thinned(plot: dict, result: dict) -> dict:
    ticks = len(result["series"]["time"])
    step = data.stride(ticks) * (2 if plot["how"] == "extremes" else 1)
    if data.stride(ticks) > 1:
        plot["caption"] += f" Thinned to the {THINNED[plot['how']]} of every {step} ticks."
    return plot


def _lanes(result: dict) -> dict:
    return {"id": "broadcast", "kind": "lanes", "title": "Broadcast ports",
            "caption": "Which path carries flooded frames, which link is down, and storms.",
            "lanes": data.lanes(result), "empty": "" if result["series"]["time"] else "There is nothing to show."}


# For those who cannot see a plot

def summary(plot: dict) -> str:
    """A plot in words: each series with its mean and its highest value, or each lane with the time in each state."""
    parts = map(_lane_words, plot["lanes"]) if plot["kind"] == "lanes" else map(_series_words, plot["series"])
    return f"{plot['title']} over time. " + " ".join(parts)


def _series_words(series: dict) -> str:
    known = [value for value in series["values"] if value is not None]
    if not known:
        return f"{series['label']}: no values."
    return f"{series['label']}: mean {fmean(known):.1f}, highest {max(known):.1f}."


def _lane_words(lane: dict) -> str:
    seconds: dict[str, float] = {}
    for start, until, state, *_ in lane["spans"]:
        seconds[state] = seconds.get(state, 0) + until - start
    told = ", ".join(f"{state} {words.seconds(length)} s" for state, length in seconds.items())
    return f"{lane['label']} ({lane['detail']}): {told or 'nothing'}."


# HTML

def figure(plot: dict) -> str:
    """The place of one plot on the page."""
    head = (f'<figure id="plot-{plot["id"]}"><figcaption><b>{explained(plot["title"])}</b>'
            f'<span>{explained(escape(plot["caption"]))}</span></figcaption>')
    if plot["empty"]:
        return f'{head}<p class="empty">{plot["empty"]}</p></figure>'
    moves = '<div class="moves"></div>' if plot["id"] == "utilisation" else ""
    return (f'{head}<div class="legend"></div><div class="rail events"></div>{moves}<div class="area">'
            f'<div class="plot" role="img" aria-label="{escape(summary(plot))}"></div></div></figure>')


def drawn(result: dict, made: list[dict]) -> dict:
    """What the page's script gets."""
    events = [[event["time"], event["text"] if number < data.MAX_EVENTS else ""]
              for number, event in enumerate(result["events"])]
    keep = ("id", "kind", "series", "lanes", "percent")
    window = data.window(result)
    return {"window": window, "opening": opening(happenings(result), window), "times": data.row_times(result),
            "tick": result["scenario"]["tick"], "end": data.end(result),
            "names": data.names(result), "moves": data.moves(result), "events": events,
            "storms": data.storms(result, "storm_without"),
            "threshold": result["scenario"].get("high_threshold"),
            "plots": [{key: plot[key] for key in keep if key in plot} for plot in made if not plot["empty"]]}
