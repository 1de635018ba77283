"""The report: one self-contained HTML page about a run, with plots that a person reads at a glance."""
import base64
import hashlib
import json
import re
from html import escape
from pathlib import Path
from string import Template

from . import report_beside, report_plots
from . import report_parts as parts
from .report_words import explained, section

HERE = Path(__file__).resolve().parent
LIBRARY = Path("/usr/share/javascript/dygraphs")
LICENCE = Path("/usr/share/doc/libjs-dygraphs/copyright")
SCRIPTS = ("report_base.js", "report_legend.js", "report_facts.js", "report_marks.js", "report_window.js",
           "report.js")
# The page may run its own two scripts and nothing else, and load nothing from anywhere.
POLICY = "default-src 'none'; style-src 'unsafe-inline'; script-src {}; base-uri 'none'; form-action 'none'"


class ReportError(Exception):
    """The page cannot be made here."""


def write_report(result: dict, path: Path) -> None:
    """Writes the page about a result. ReportError when the plotting library is missing, OSError from writing."""
    path.write_text(render_report(result), encoding="utf-8")


def render_report(result: dict) -> str:
    """The page about a result, as one text that refers to nothing outside itself."""
    scenario = result["scenario"]
    plots = report_plots.plots(result)
    texts = {"title": escape(scenario["title"]), "what": "modelled run of kolt", "about": escape(scenario["about"]),
             "facts": parts.facts(result), "verdict": parts.verdict(result), "figures": parts.figures(result),
             "beside": report_beside.section(result), "notes": parts.notes(result), "paths": parts.paths(result),
             "reading": reading(scenario["duration"], bool(result["events"])), "records": parts.records(result)}
    return render_page(texts, plots, report_plots.drawn(result, plots))


def render_page(texts: dict[str, str], plots: list[dict], drawn: dict) -> str:
    """A page from its texts, which are HTML already, its plots, and what the page's script gets to draw them."""
    library = "\n".join(map(_script_text, ("dygraph.min.js", "extras/synchronizer.js")))
    script = _inline_script(_own_script())
    figures = "\n".join(map(report_plots.figure, plots))
    return Template((HERE / "report.html").read_text(encoding="utf-8")).substitute(
        {"beside": ""} | texts, words=section("".join([*texts.values(), figures])),
        policy=POLICY.format(" ".join(map(_digest, (library, script)))),
        style=_library("dygraph.min.css") + (HERE / "report.css").read_text(encoding="utf-8"),
        plots=figures, licence=escape(_read_package(LICENCE)),
        data=_inline_data(drawn), library=library, script=script)


def reading(length: float, events: bool) -> str:
    """How to read the plots of a run, and to move in them."""
    unit = "hours:minutes" if length >= 3600 else "minutes:seconds"
    marks = explained(" Numbers mark events, listed below.") if events else ""
    return (f"Time in {unit}.{marks} Point at a plot or touch it to read its values, at a marker or a dotted word to read what "
            "it means. Drag across a plot with a mouse to zoom all of them, double-click to see the whole run, or use the "
            "buttons.")


def _library(name: str) -> str:
    """A file of the plotting library, without the pointer to a map that a browser would ask for."""
    return re.sub(r"(//|/\*)# sourceMappingURL=\S*( \*/)?", "", _read_package(LIBRARY / name))


def _read_package(path: Path) -> str:
    try:
        return path.read_text(encoding="utf-8")
    except OSError as error:
        raise ReportError(f"a report needs the package libjs-dygraphs: {path}: {error.strerror}") from error


def _own_script() -> str:
    """The parts of the page's script, in a block that keeps their names from the library's."""
    parts_of_it = [(HERE / name).read_text(encoding="utf-8") for name in SCRIPTS]
    return '"use strict";\n{\n' + "\n".join(parts_of_it) + "}\n"


def _script_text(name: str) -> str:
    return _inline_script(_library(name))


def _inline_script(text: str) -> str:
    """A script that cannot end its element early."""
    return re.sub(r"<(?=/script|!--)", r"\\x3c", text, flags=re.IGNORECASE)


def _inline_data(data: dict) -> str:
    """JSON that is the same inside an HTML element: no letter of it can begin a tag."""
    text = json.dumps(data, separators=(",", ":"), allow_nan=False)
    return text.replace("<", "\\u003c").replace(">", "\\u003e").replace("&", "\\u0026")


def _digest(script: str) -> str:
    return "'sha256-" + base64.b64encode(hashlib.sha256(script.encode()).digest()).decode() + "'"
