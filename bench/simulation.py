#!/usr/bin/python3
"""Measures how fast a modelled node runs: an hour of 256 clients and 5,000 streams against its limit."""
import argparse
import json
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "sim"), str(ROOT / "platform/sim")]

import telling  # noqa: E402
from kolt_sim.compare import SilentView  # noqa: E402
from kolt_sim.loop import closed  # noqa: E402
from kolt_sim.scenario.load import load  # noqa: E402
from kolt_sim.view.report import render_report  # noqa: E402

SCENARIO = ROOT / "sim/scenarios/crowded-mesh.json"
LIMIT = 120.0  # seconds


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--report-only", action="store_true", help="do not fail when the limit is broken")
    parser.add_argument("--json", metavar="FILE", help="write the figures as data")
    telling.add_option(parser)
    options = parser.parse_args()
    scenario = load(SCENARIO)
    result = closed.run(scenario, SilentView(), Path(options.build).absolute())
    wall, page = result["wall_seconds"], len(render_report(result))
    figures = {"clients": len(scenario.clients), "streams": len(scenario.streams), "wall_seconds": wall, "limit": LIMIT,
               "simulated_seconds": scenario.duration, "report_bytes": page}
    print(f"{len(scenario.clients)} clients, {len(scenario.streams)} streams, {scenario.duration:g} simulated seconds: "
          f"{wall:.1f} s (limit {LIMIT:g} s), {scenario.duration / wall:.0f} times as fast as the clock; "
          f"the report's page has {page / 1024:.0f} KiB")
    kept = wall < LIMIT
    telling.note(options.limits, [telling.Limit("an hour of the modelled node", f"{wall:.1f} s", f"< {LIMIT:g} s", kept)])
    if options.json:
        Path(options.json).write_text(json.dumps(figures, indent=1) + "\n")
    return 0 if options.report_only or kept else 1


if __name__ == "__main__":
    sys.exit(main())
