#!/usr/bin/python3
"""
Measures one period of path selection on a simulated node without its journal. What is not listed here goes to the
benchmark program, such as --benchmark_filter=ranking.

Ends with status 1 when a limit is broken.
"""
import argparse
import json
import re
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "platform/sim"))

import telling  # noqa: E402
from kolt_node import Node, NodeError, Process, sample  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402

OUTPUT = "/tmp/period.json"  # in the node
LONGEST_RUN = 600.0
BROKEN_LIMIT = 1
LIMIT = re.compile(r"^(\S.*?)  +([\d.]+) (\w+) +(<|>=) +(\d+)  (kept|BROKEN)$", re.MULTILINE)  # as the program prints it


def parse_arguments() -> tuple[argparse.Namespace, list[str]]:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=build_directory(), help="build directory (%(default)s)")
    parser.add_argument("--report-only", action="store_true", help="end with status 0 whatever the figures are")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the benchmark's figures there too")
    telling.add_option(parser)
    return parser.parse_known_args()


def limits(report: str, status: int) -> list[telling.Limit]:
    """The limits that the program's report tells of."""
    found = [telling.Limit(what, f"{value} {unit}", f"{relation} {limit} {unit}", word == "kept")
             for what, value, unit, relation, limit, word in LIMIT.findall(report)]
    if status == BROKEN_LIMIT and all(one.kept for one in found):
        found.append(telling.Limit("a period", "as shown", "as shown", False))
    return found


def in_order(report: str, sizes: str) -> str:
    """What a whole period costs comes first; the library's table of all sizes, with what it says of the machine, last."""
    machine, whole, rest = report.partition("A whole period")
    return "\n".join(part for part in (whole + rest, machine + sizes) if part)


def follow(node: Node, process: Process) -> None:
    """Waits for the end of the program, and counts the sizes that it has measured."""
    def ended() -> bool:
        telling.show_progress(f"period: {process.stdout.count('manual_time')} sizes measured")
        return process.status is not None
    try:
        node.wait_for(ended, LONGEST_RUN, "the end of the measurement")
    finally:
        telling.show_progress("")


def run(options: argparse.Namespace, words: list[str]) -> int:
    words = ["--benchmark_counters_tabular=true", *words]
    if options.json:
        words = [*words, f"--benchmark_out={OUTPUT}", "--benchmark_out_format=json"]
    with Node(options.build) as node:
        sample.set_up(node)
        node.write_file("/etc/kolt.json", json.dumps(sample.config()))
        node.stop_journal()
        done = node.spawn([node.build / "bin/period-bench", *words])
        follow(node, done)
        measured = done.status in (0, BROKEN_LIMIT)
        print(in_order(done.stderr, done.stdout), end="", file=sys.stdout if measured else sys.stderr, flush=True)
        telling.note(options.limits, limits(done.stderr, done.status))
        if options.json and measured:
            options.json.write_bytes(node.read_file(OUTPUT))
    return 0 if options.report_only and done.status == BROKEN_LIMIT else done.status


def main() -> int:
    try:
        return run(*parse_arguments())
    except (NodeError, OSError) as error:
        print(f"period: {error}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
