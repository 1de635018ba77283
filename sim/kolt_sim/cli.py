"""The command kolt-sim: what may be asked for, and the exit statuses."""
import argparse
import contextlib
import difflib
import json
import math
import os
import signal
import sys
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path
from typing import TYPE_CHECKING

from kolt_node import NodeError
from kolt_node.command import let_go_of_output, reason
from kolt_node.node import BUILD_HELP, build_directory, check_build

from .compare import compare
from .files import Output, write_json
from .record import RESULT_FORMAT, Frame
from .scenario.records import Scenario
from .shelf import Unusable, close_names, load_all, load_or_fail, shipped
from .stop import Stop, check
from .view import table, verdict, words
from .view.columns import align
from .view.plain import PlainView, ReaderGone

if TYPE_CHECKING:
    from .view.live import LiveView

AS_EXPECTED, NOT_AS_EXPECTED, CANNOT = 0, 1, 2
READER_GONE = 128 + signal.SIGPIPE  # what a shell shows for other tools whose reader has gone
STATUSES = """
exit status: 0 all as expected; 1 an expectation was not met, or a storm with the daemon; 2 wrong use, a faulty
scenario, or it cannot run here
"""
WATCHING_SPEED = 20.0
RUN_ERRORS = (NodeError, OSError)
FAILURES = (KeyboardInterrupt, ReaderGone, Unusable, *RUN_ERRORS)

Run = Callable[..., dict]


# Arguments

def speed(text: str) -> float:
    value = float(text)
    if not math.isfinite(value) or value < 0:
        raise ValueError
    return value


def jobs(text: str) -> int:
    value = int(text)
    if value < 1:
        raise ValueError
    return value


def setting(text: str) -> tuple[str, object]:
    name, equals, value = text.partition("=")
    if not name or not equals:
        raise ValueError
    return name, json.loads(value)


def make_parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="kolt-sim", epilog=STATUSES,
                                     description="Runs the daemon in closed loop with a modelled mesh node.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    scenario_help = "a scenario's file, or the name of a shipped one (see kolt-sim list)"

    def add(name: str, text: str, count: str | None = None) -> argparse.ArgumentParser:
        command = commands.add_parser(name, help=text, description=text.capitalize() + ".", epilog=STATUSES)
        if name != "list":
            command.add_argument("scenario", metavar="SCENARIO", nargs=count, help=scenario_help)
        return command

    run = add("run", "runs a scenario and shows it")
    run.add_argument("--report", metavar="FILE.html", help="write a page with plots")
    run.add_argument("--json", metavar="FILE", help="write everything as data")
    run.add_argument("--speed", metavar="FACTOR", type=speed,
                     help=f"simulated seconds in a real one at most, 0 for no limit (default: {WATCHING_SPEED:g} in a "
                          "terminal, otherwise no limit)")
    several = add("compare", "runs scenarios and compares what the daemon made of them", "+")
    several.add_argument("--json", metavar="FILE", help="write all results as data")
    several.add_argument("--jobs", metavar="N", type=jobs, default=len(os.sched_getaffinity(0)),
                         help="how many run at once (default: %(default)s, one for each core)")
    for command in (run, several):
        command.add_argument("--set", metavar="NAME=VALUE", type=setting, action="append", default=[], dest="settings",
                             help="a setting of the daemon that goes before the scenario's, such as reserved_ratio=30")
        command.add_argument("--build", metavar="DIR", help=BUILD_HELP)
    add("check", "says whether scenarios are valid, without running them", "+")
    add("list", "names the shipped scenarios")
    return parser


# What a run needs

def find_build(asked: str | None) -> Path:
    build = Path(asked) if asked else build_directory()
    check_build(build)
    return build


def real_run(asked_build: str | None) -> Run:
    """The closed loop on a build that is there."""
    build = find_build(asked_build)
    from .loop.closed import run

    def on_build(scenario: Scenario, view: object, speed: float = 0) -> dict:
        return run(scenario, view, build=build, speed=speed)
    return on_build


@contextlib.contextmanager
def opened(asked: str | None) -> Iterator[Output | None]:
    """The file that was asked for, or None; what stands in its way is told before anything runs."""
    if asked is None:
        yield None
        return
    output = Output(asked)
    try:
        output.__enter__()
    except OSError as error:
        raise Unusable(f"cannot write {asked}: {error.strerror}") from error
    with contextlib.ExitStack() as stack:
        stack.push(output)
        yield output


def keep(output: Output | None, write: Callable[[Path], None]) -> None:
    """Has a file written and puts it in place, if it was asked for."""
    if output is None:
        return
    try:
        write(output.path)
        output.commit()
    except OSError as error:
        raise Unusable(f"cannot write {output.target}: {error.strerror}") from error


# Commands

def run_command(options: argparse.Namespace, run: Run | None) -> int:
    scenario = load_or_fail([options.scenario], dict(options.settings))[0]
    if options.report and options.json and os.path.realpath(options.report) == os.path.realpath(options.json):
        raise Unusable(f"{options.json} cannot be both the report and the data")
    with opened(options.report) as report, opened(options.json) as data:
        write_report = report_writer() if report else None
        run = run or real_run(options.build)
        view, watching = make_view()
        with contextlib.closing(view):
            factor = options.speed if options.speed is not None else WATCHING_SPEED if watching else 0.0
            result = watch(run, scenario, view, factor)
            keep(data, lambda path: write_json(result, path))
            keep(report, lambda path: write_report(result, path))
            view.finish(result)
    if report:
        print(f"page: {report.target.absolute().as_uri()}")  # terminals make it a link
    return AS_EXPECTED if verdict.as_expected(result) else NOT_AS_EXPECTED


class Interruptible:
    """A view that ends the run where it was told to end."""

    def __init__(self, view: "PlainView | LiveView") -> None:
        self.start, self._frame = view.start, view.frame

    def frame(self, frame: Frame) -> None:
        check()
        self._frame(frame)


def watch(run: Run, scenario: Scenario, view: "PlainView | LiveView", factor: float) -> dict:
    try:
        return run(scenario, Interruptible(view), speed=factor)
    except BrokenPipeError as error:  # not standard output's: that one is told apart by the view
        raise Unusable("the simulated node has ended") from error


def report_writer() -> Callable[[dict, Path], None]:
    """Writes the page about a result; whether it can be made here is found out now."""
    from .view.report import LIBRARY, ReportError, write_report
    if not LIBRARY.is_dir():
        raise Unusable(f"a report needs Debian's package libjs-dygraphs: {LIBRARY} is missing")

    def write(result: dict, path: Path) -> None:
        try:
            write_report(result, path)
        except ReportError as error:
            raise Unusable(str(error)) from error
    return write


def make_view() -> "tuple[PlainView | LiveView, bool]":
    """The view that suits standard output, and whether a person watches it."""
    if not sys.stdout.isatty():
        return PlainView(sys.stdout), False
    from rich.console import Console
    console = Console(highlight=False)
    if console.is_dumb_terminal:
        return PlainView(sys.stdout), True
    from .view.live import LiveView
    return LiveView(console), True


def compare_command(options: argparse.Namespace, run: Run | None) -> int:
    scenarios = load_or_fail(options.scenario, dict(options.settings))
    with opened(options.json) as data:
        run = run or real_run(options.build)
        with progress(len(scenarios)) as tell:
            outcomes = compare(scenarios, run, options.jobs, RUN_ERRORS, tell)
        results = [outcome.result for outcome in outcomes if outcome.result is not None]
        keep(data, lambda path: write_json({"format": RESULT_FORMAT, "results": results}, path))
    show_table(outcomes)
    if len(results) < len(outcomes):
        return CANNOT
    return AS_EXPECTED if all(map(verdict.as_expected, results)) else NOT_AS_EXPECTED


@contextlib.contextmanager
def progress(total: int) -> Iterator[Callable[[int], None]]:
    """Counts on a terminal's standard error, on a line that vanishes at the end."""
    if not sys.stderr.isatty():
        yield lambda done: None
        return

    def show(done: int) -> None:
        print(f"\r{done} of {total} done", end="", file=sys.stderr, flush=True)
    show(0)
    try:
        yield show
    finally:
        print("\r\x1b[K", end="", file=sys.stderr, flush=True)


def show_table(outcomes: Sequence[table.Outcome]) -> None:
    if sys.stdout.isatty():
        from rich.console import Console
        console = Console(highlight=False)
        if not console.is_dumb_terminal:
            from .view.board import show
            show(outcomes, console)
            return
    table.write_plain(outcomes, sys.stdout)


def check_command(options: argparse.Namespace, _: Run | None) -> int:
    scenarios, problems = load_all(options.scenario)
    for scenario in scenarios:
        print(f"{scenario.name}: valid, {words.seconds(scenario.duration)} s,"
              f" {words.count(len(scenario.clients), 'client')}, {words.count(len(scenario.streams), 'stream')}")
    if problems:
        raise Unusable("\n".join(problems))
    return AS_EXPECTED


def list_command(_options: argparse.Namespace, _: Run | None) -> int:
    scenarios, problems = load_all(shipped())
    rows = [[scenario.name, f"{words.clock(scenario.duration)}", words.clean(scenario.title)] for scenario in scenarios]
    for line in align(rows, left=(0, 2)) if rows else []:
        print(line)
    if problems:
        raise Unusable("\n".join(problems))
    return AS_EXPECTED


COMMANDS = {"run": run_command, "compare": compare_command, "check": check_command, "list": list_command}


# The process

def complain(text: str) -> None:
    for line in filter(str.strip, text.splitlines()):
        print(f"kolt-sim: {line}", file=sys.stderr)


def explain(error: BaseException, stop: Stop) -> int:
    """Says what went wrong and returns the exit status; silent when that is just that nobody reads on."""
    let_go_of_output()
    if isinstance(error, (BrokenPipeError, ReaderGone)):
        return READER_GONE
    if stop.number:  # whatever else went wrong came of that
        complain("interrupted")
        return 128 + stop.number
    complain(reason(error))
    return CANNOT


def check_command_word(arguments: Sequence[str]) -> None:
    """The argument parser would name the commands, but not the one that a misspelt word or a lone scenario is meant for."""
    word = arguments[0] if arguments else ""
    if not word or word.startswith("-") or word in COMMANDS:
        return
    meant = difflib.get_close_matches(word, COMMANDS, 1) or [f"run {name}" for name in close_names(word)[:1]]
    if meant:
        raise Unusable(f"{word}: no command of kolt-sim; did you mean kolt-sim {meant[0]}?")


def obey(arguments: Sequence[str] | None, run: Run | None) -> int:
    check_command_word(sys.argv[1:] if arguments is None else arguments)
    try:
        options = make_parser().parse_args(arguments)
    except SystemExit as end:  # after the help, which may still be in standard output's buffer
        return int(end.code or 0)
    return COMMANDS[options.command](options, run)


def main(arguments: Sequence[str] | None = None, run: Run | None = None) -> int:
    """`run` replaces the closed loop, for tests. Returns the exit status."""
    with Stop() as stop:
        try:
            status = obey(arguments, run)
            sys.stdout.flush()
            return status
        except FAILURES as error:
            return explain(error, stop)
