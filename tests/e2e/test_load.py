"""The short form of the flood from all sides at once."""
import subprocess
from pathlib import Path

from kolt_node.control import PYTHON, ROOT

COUNT = 1500


def test_flood_from_all_sides_is_handled_whole_and_in_order(build: Path) -> None:
    """The command fails where something is lost or comes in another order, memory grows, or the periods do not go on."""
    done = subprocess.run([PYTHON, ROOT / "bench/load.py", "--build", build, "--count", str(COUNT)],
                          capture_output=True, text=True, timeout=400)  # more than it gives itself
    assert done.returncode == 0, done.stdout + done.stderr
    assert "handled in order: all" in done.stdout
    assert f'"bridge": {COUNT}, "neighbour": {COUNT}' in done.stdout
    assert done.stdout.count("the next one was heard") == 2
