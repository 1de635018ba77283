#!/usr/bin/python3
"""
Measures kolt in a mesh of namespaces against the kernel's spanning tree and against one link, on the same links: throughput,
outages, copies of broadcasts, and what a change of the broadcast link costs. Ends with one line on the limits, and with status
1 when one was broken (0 with --report-only).
"""
import argparse
import json
import os
import subprocess
import sys
from collections.abc import Callable
from concurrent.futures import ProcessPoolExecutor
from dataclasses import asdict
from multiprocessing import get_context
from pathlib import Path
from statistics import median

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "linux/mesh"), str(HERE.parent / "sim")]

import live_streams  # noqa: E402
import mesh_limits  # noqa: E402
import telling  # noqa: E402
from kolt_mesh import measures, node, tcp, topology  # noqa: E402
from kolt_mesh.kinds import Kind, OneLink, SpanningTree, TunedSpanningTree  # noqa: E402
from kolt_mesh.kolt import Kolt  # noqa: E402
from kolt_mesh.lab import Lab  # noqa: E402
from kolt_mesh.measures import WAYS, Contender  # noqa: E402
from kolt_mesh.netns import MeshError  # noqa: E402
from kolt_mesh.node import NodeError  # noqa: E402
from kolt_sim.view.columns import align  # noqa: E402

PARTS = ("throughput", "spread", "outage", "copies", "moves", "forwarding", "streams")
LIVE = (1000, 5000, 10000)
LINKS, STREAMS = (2, 3), (4, 16, 64)
SECONDS, ROUNDS, MOVES = 10, 10, 5
WATCHED = 3  # seconds after a link was cut or came back, at least
FORWARDING = "bin/forwarding-bench"  # prints a JSON list of {"name", "value", "unit"}
FORMAT = 1


def contenders(build: Path, with_kolt: bool) -> dict[str, Contender]:
    """Everything that is compared. A link that is lost stops a spanning tree for about its own timers."""
    made = [Contender("stp", SpanningTree, 60, {"cut": 33, "silence": 90}, 0.01),
            Contender("stp-tuned", TunedSpanningTree, 20, {"cut": 6, "silence": 20}, 0.002),
            Contender("one-link", OneLink, 5, {"cut": 1, "silence": 1}, 0.002)]
    if with_kolt:
        made.insert(0, Contender("kolt", lambda: Kolt(build), 15, {"cut": 1, "silence": 2}))
    return {one.name: one for one in made}


class Bench:
    def __init__(self, options: argparse.Namespace) -> None:
        build = (options.build or node.build_directory()).absolute()
        lacking = node.missing(build)
        if lacking:
            print(f"without kolt: {build} lacks {lacking[0]}", flush=True)
        self.build = build
        self.contenders = contenders(build, not lacking)
        self.rounds, self.seconds = (2, 4) if options.quick else (ROUNDS, SECONDS)
        self.quick = options.quick
        self.data: dict = {"format": FORMAT, "processors": os.cpu_count(), "kernel": os.uname().release}

    def _each(self, *without: str) -> list[Contender]:
        return [one for name, one in self.contenders.items() if name not in without]

    def _loads(self) -> list[tuple[int, int]]:
        """Links and streams over them."""
        return [(links, streams) for links in LINKS for streams in (STREAMS[:1] if self.quick else STREAMS)]

    # Throughput

    def throughput(self) -> None:
        """Timers make no difference here, so the tuned tree stands for both."""
        rows = []
        for links in LINKS:
            for contender in self._each("stp"):
                with Lab(topology.pair(links), contender.make()) as lab:
                    measures.settle(lab, contender)
                    for streams in [count for among, count in self._loads() if among == links]:
                        mbit = measures.throughput(lab, streams, self.seconds)
                        rows.append({"links": links, "streams": streams, "with": contender.name, "mbit": round(mbit, 2)})
        self.data["throughput"] = rows
        self._show_throughput(rows)

    def _show_throughput(self, rows: list[dict]) -> None:
        names = [one.name for one in self._each("stp")]
        table = [["links", "streams", *(f"{name}, Mbit/s" for name in names), "kolt to STP"]]
        for links, streams in dict.fromkeys((row["links"], row["streams"]) for row in rows):
            found = {row["with"]: row["mbit"] for row in rows if (row["links"], row["streams"]) == (links, streams)}
            ratio = f"{found['kolt'] / found['stp-tuned']:.2f}" if "kolt" in found else "-"
            table.append([str(links), str(streams), *(f"{found[name]:.1f}" for name in names), ratio])
        show(f"Download over equal links of 50 Mbit/s, {self.seconds} s each", table)

    def spread(self) -> None:
        if "kolt" not in self.contenders:
            return
        rows = []
        for number, (links, streams) in enumerate(self._loads()):
            with Lab(topology.pair(links), self.contenders["kolt"].make()) as lab:
                measures.settle(lab, self.contenders["kolt"])
                found = measures.spread(lab, streams, 2 * self.seconds, number / (len(LINKS) * len(STREAMS)))
            rows.append({"links": links, "streams": streams} | asdict(found))
        self.data["spread"] = rows
        table = [["links", "streams", "periods", "uneven"]]
        table += [[str(row[key]) for key in ("links", "streams", "periods", "uneven")] for row in rows]
        show("Periods in a row in which a link idled beside a hot one, at most, from a download's start on", table)

    # Outages

    def outage(self) -> None:
        rows = []
        for contender in self._each():
            for way, seen in self._outages(contender).items():
                times = [one["outage"] for one in seen]
                rows.append({"with": contender.name, "way": way, "times": times,
                             "for good": sum(one["open"] for one in seen),
                             "median": median(times), "worst": max(times),
                             "lost": median(one["lost"] for one in seen),
                             "duplicates": sum(one["duplicates"] for one in seen)})
        self.data["outage"] = rows
        table = [["", "link lost by", "rounds", "median", "worst", "not over", "twice"]]
        table += [[row["with"], WAYS[row["way"]], str(len(row["times"])), time_text(row["median"]),
                   time_text(row["worst"]), str(row["for good"]), str(row["duplicates"])] for row in rows]
        show("How long a stream is stopped when its link of three is lost", table, left=(0, 1))

    def _outages(self, contender: Contender) -> dict[str, list[dict]]:
        """
        kolt's are measured one after the other on one lab, with nothing beside it; a spanning tree is waiting most of the
        time, so that its rounds run side by side, each on a lab of its own.
        """
        if contender.name == "kolt":
            return outages(contender, self.rounds)
        jobs = 1 if contender.name == "one-link" else self.rounds
        with ProcessPoolExecutor(jobs, get_context("fork")) as pool:
            results = list(pool.map(alone, [contender.name] * jobs))
        return {way: [one for result in results for one in result[way]] for way in WAYS}

    # Broadcasts

    def copies(self) -> None:
        rows = []
        for home in [topology.pair(3), *topology.shipped()]:
            for contender in self._each("stp"):
                with Lab(home, contender.make()) as lab:
                    measures.settle(lab, contender)
                    census = measures.copies(lab)
                counts = [count for host in lab.hosts for count in census.copies_of(host)]
                rows.append({"topology": home.name, "with": contender.name, "hosts": len(lab.hosts),
                             "broadcasts": len(census.sent), "fewest": min(counts), "most": max(counts),
                             "circled": len(census.circled())})
        self.data["copies"] = rows
        table = [["topology", "", "hosts", "broadcasts", "fewest", "most copies", "ports passed twice"]]
        table += [[row["topology"], row["with"], *(str(row[key]) for key in
                                                   ("hosts", "broadcasts", "fewest", "most", "circled"))] for row in rows]
        show("Copies of each of 100 broadcasts of every host, at every other host", table, left=(0, 1))

    def moves(self) -> None:
        rows = []
        for contender in self._each("stp", "one-link"):
            with Lab(topology.pair(3), contender.make()) as lab:
                measures.settle(lab, contender)
                told = measures.moves(lab, 2 if self.quick else MOVES, max(WATCHED, contender.outage["cut"]))
            rows += [{"with": contender.name, "what": what} | asdict(moved) for what, moved in told.items()]
        self.data["moves"] = rows
        table = [["", "its link", "rounds", "broadcasts", "lost a round", "twice", "ports passed twice"]]
        table += [[row["with"], "is cut" if row["what"] == "cut" else "comes back", str(row["rounds"]), str(row["sent"]),
                   f"{row['lost'] / row['rounds']:.1f}", str(row["duplicates"]), str(row["circled"])] for row in rows]
        show("Broadcasts, one a millisecond, while the link that carries them changes", table, left=(0, 1))

    # What a program of its own measures

    def forwarding(self) -> None:
        program = self.build / FORWARDING
        if not program.exists():
            print(f"\nForwarding rates are left out: {program} is missing", flush=True)
            return
        done = subprocess.run([program], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise MeshError(f"{program.name}: {done.stderr.strip() or done.returncode}")
        self.data["forwarding"] = json.loads(done.stdout)
        show("Forwarding, without a rate on the links", [[one["name"], f"{one['value']:g}", one.get("unit", "")]
                                        for one in self.data["forwarding"]], left=(0, 2))

    # Many streams

    def streams(self) -> None:
        if "kolt" not in self.contenders:
            return
        found = live_streams.measure(self.build, LIVE, 2 if self.quick else self.seconds)
        self.data["streams"] = asdict(found)
        table = [["streams", "kolt a period", "kolt-bridged a period", "reading them all", "re-pointing", "of them"]]
        table += [["0", time_text(found.idle_kolt), time_text(found.idle_bridged), "", "", ""]]
        table += [[str(load.streams), time_text(load.kolt), time_text(load.bridged), time_text(load.read),
                   time_text(load.point), str(load.moved)] for load in found.loads]
        show("Live streams of one node: processor time in a period of a second, and the library's calls", table)
        print(f"\n  kolt-bridged: {found.private_kib} KiB of private memory without streams, "
              f"{found.full_kib} KiB with the most of them")
        print(f"  bytes by the streams' counters over bytes by the interfaces': {found.counted:.5f}")


def outages(contender: Contender, rounds: int) -> dict[str, list[dict]]:
    """Each way of losing a link, so many times, on one lab."""
    with Lab(topology.pair(3), contender.make()) as lab:
        measures.settle(lab, contender)
        told: dict[str, list[dict]] = {way: [] for way in WAYS}
        for number in range(rounds * len(WAYS)):
            if number:
                measures.settle_again(lab, contender)
            way = list(WAYS)[number % len(WAYS)]
            told[way].append(asdict(measures.outage(lab, way, contender)))
    return told


def alone(name: str) -> dict[str, list[dict]]:
    """One round, in a process of its own."""
    return outages(contenders(Path(), False)[name], 1)


def time_text(seconds: float) -> str:
    return f"{1000 * seconds:.1f} ms" if seconds < 1 else f"{seconds:.1f} s"


def show(title: str, table: list[list[str]], left: tuple[int, ...] = ()) -> None:
    print(f"\n{title}\n")
    for line in align(table, left=left):
        print(f"  {line}")
    sys.stdout.flush()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, metavar="DIR", help="build directory (default: $KOLT_BUILD or build/release)")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures there too")
    parser.add_argument("--only", action="append", choices=PARTS, help="measure this alone; may be given several times")
    parser.add_argument("--report-only", action="store_true", help="end with status 0 whatever the figures are")
    parser.add_argument("--quick", action="store_true",
                        help="few rounds and short ones, with status 0 whatever the figures are: to see that it works")
    options = parser.parse_args()
    try:
        if not tcp.available():
            raise MeshError("a mesh needs Debian's package iperf3")
        bench = Bench(options)
        for part in PARTS:
            if not options.only or part in options.only:
                measure: Callable[[], None] = getattr(bench, part)
                measure()
                if options.json:
                    options.json.write_text(json.dumps(bench.data, indent=1) + "\n", encoding="utf-8")
    except (MeshError, NodeError, OSError) as error:
        print(f"mesh: {error}", file=sys.stderr)
        return 2
    line, status = telling.verdict(mesh_limits.of(bench.data), [])
    print(f"\n{line}")
    return 0 if options.report_only or options.quick else status


if __name__ == "__main__":
    sys.exit(main())
