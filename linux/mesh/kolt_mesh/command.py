"""The command kolt-mesh: what may be asked for, and the exit statuses."""
import argparse
import json
import sys
from collections.abc import Sequence
from pathlib import Path

from . import tcp, topology
from .kinds import Kind, SpanningTree
from .kolt import Kolt
from .lab import Lab
from .netns import MeshError
from .node import NodeError
from .record import Record
from .show import Limits, Show, picture

AS_EXPECTED, NOT_AS_EXPECTED, CANNOT = 0, 1, 2
KOLT_SETTLES = 10.0
DEFAULT = "chain"


def make_parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="kolt-mesh", description="Shows a home of several nodes, each in network namespaces of its own with a "
        "bridge, kolt and kolt-bridged: a download over all links, a link that fails, and nothing that circles.",
        epilog="exit status: 0 all as expected; 1 not so; 2 wrong use, or it cannot run here")
    parser.add_argument("--list", action="store_true", help="name the shipped topologies")
    parser.add_argument("--topology", metavar="NAME", default=DEFAULT,
                        help="a shipped topology, or the file of one (default: %(default)s)")
    parser.add_argument("--without", action="store_true", help="the kernel's spanning tree in the place of kolt")
    parser.add_argument("--report", metavar="FILE.html", type=Path, help="write a page with plots")
    parser.add_argument("--json", metavar="FILE", type=Path, help="write everything as data")
    parser.add_argument("--build", metavar="DIR", type=Path, help="build directory (default: $KOLT_BUILD or build/release)")
    return parser


def list_topologies() -> None:
    for one in topology.shipped():
        print(f"{one.name:10}  {len(one.nodes)} nodes, {len(one.links):2} links  {one.title}")


def choose(options: argparse.Namespace) -> tuple[Kind, Limits]:
    if options.without:
        tree = SpanningTree()
        return tree, Limits(tree.settling + 20, judged=False)
    return Kolt(options.build and options.build.absolute()), Limits(KOLT_SETTLES, judged=True)


def show(options: argparse.Namespace) -> int:
    home = topology.load(options.topology)
    if not tcp.available():
        raise MeshError("a mesh needs Debian's package iperf3")
    writer = page_writer() if options.report else None
    kind, limits = choose(options)
    print("\n".join(picture(home)) + "\n", flush=True)
    with Lab(home, kind) as lab:
        record = Show(lab, limits, lambda line: print(line, flush=True)).run()
    print("\n" + "\n".join(summary(record)))
    if options.json:
        options.json.write_text(json.dumps(record.as_data()) + "\n", encoding="utf-8")
    if writer:
        writer(record, options.report)
    return AS_EXPECTED if all(one.met for one in record.expectations) else NOT_AS_EXPECTED


def page_writer():
    """Whether the page can be made here is found out before anything runs."""
    from . import page
    if not page.LIBRARY.is_dir():
        raise MeshError(f"a report needs Debian's package libjs-dygraphs: {page.LIBRARY} is missing")
    return page.write


def summary(record: Record) -> list[str]:
    width = max(len(name) for name, _ in record.figures)
    lines = [f"  {name:{width}}  {value}" for name, value in record.figures]
    for one in record.expectations:
        lines.append(f"{'met    ' if one.met else 'NOT MET'}  {one.what}: {one.measured}")
    return lines


def main(arguments: Sequence[str] | None = None) -> int:
    options = make_parser().parse_args(arguments)
    try:
        if options.list:
            list_topologies()
            return AS_EXPECTED
        return show(options)
    except (MeshError, NodeError, topology.TopologyError, OSError) as error:
        print(f"kolt-mesh: {error}", file=sys.stderr)
        return CANNOT
    except KeyboardInterrupt:
        return 130
