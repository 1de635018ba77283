#!/usr/bin/python3
"""
Takes the named measurements one after the other, those of this folder, and closes with one line that names each limit that
was broken. Arguments behind "--" go to the measurement.

Ends with status 1 when a limit was broken, 2 when something could not be measured, 130 when it was interrupted.
"""
import subprocess
import sys
import tempfile
from pathlib import Path

import telling

HERE = Path(__file__).resolve().parent
BROKEN, INTERRUPTED = 1, 130


def measure(name: str, build: str, words: list[str], limits: Path) -> int:
    """Runs one measurement and returns its status."""
    with_limits = [] if name == "settings" else ["--limits", str(limits)]
    return subprocess.run([sys.executable, HERE / f"{name}.py", "--build", build, *with_limits, *words],
                          check=False).returncode


def main() -> int:
    build, *rest = sys.argv[1:]
    split = rest.index("--")
    names, words = rest[:split], rest[split + 1:]
    unable = []
    with tempfile.NamedTemporaryFile(prefix="limits-") as file:
        for number, name in enumerate(names):
            if number:
                print(flush=True)
            status = measure(name, build, words, Path(file.name))
            if status in (INTERRUPTED, -2):
                return INTERRUPTED
            if status not in (0, BROKEN):
                unable.append(name)
        limits = telling.noted(Path(file.name))
    line, status = telling.verdict(limits, unable)
    print(f"\n{line}", flush=True)
    return 0 if "--report-only" in words and status == BROKEN else status


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(INTERRUPTED)
