#!/usr/bin/python3
"""
Measures one period of path selection on a simulated node without its journal. What is not listed here goes to the
benchmark program, such as --benchmark_filter=ranking.

Ends with status 1 when a limit is broken.
"""
import argparse
import json
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "platform/sim"))

from kolt_node import Node, NodeError, sample  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402

OUTPUT = "/tmp/period.json"  # in the node
LONGEST_RUN = 600.0
BROKEN_LIMIT = 1


def parse_arguments() -> tuple[argparse.Namespace, list[str]]:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=build_directory(), help="build directory (%(default)s)")
    parser.add_argument("--report-only", action="store_true", help="end with status 0 whatever the figures are")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the benchmark's figures there too")
    return parser.parse_known_args()


def run(options: argparse.Namespace, words: list[str]) -> int:
    words = ["--benchmark_counters_tabular=true", *words]
    if options.json:
        words = [*words, f"--benchmark_out={OUTPUT}", "--benchmark_out_format=json"]
    with Node(options.build) as node:
        sample.set_up(node)
        node.write_file("/etc/kolt.json", json.dumps(sample.config()))
        node.stop_journal()
        done = node.run([node.build / "bin/period-bench", *words], timeout=LONGEST_RUN)
        print(done.stdout, end="", flush=True)
        print(done.stderr, end="", file=sys.stderr, flush=True)
        if options.json and done.status in (0, BROKEN_LIMIT):
            options.json.write_bytes(node.read_file(OUTPUT))
    return 0 if options.report_only and done.status == BROKEN_LIMIT else done.status


def main() -> int:
    try:
        return run(*parse_arguments())
    except (NodeError, OSError) as error:
        print(f"period: {error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
