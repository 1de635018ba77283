"""The short form of the soak: some weeks' kinds of change within two hundred seconds of simulated time."""
import re
import subprocess
from pathlib import Path

from kolt_node.control import PYTHON, ROOT

PERIODS = 40


def test_daemon_takes_no_more_of_its_node_however_much_changes(build: Path) -> None:
    """The command fails where memory, descriptors or children grow, or a period is missed."""
    done = subprocess.run([PYTHON, ROOT / "bench/soak.py", "--build", build, "--periods", str(PERIODS)],
                          capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stdout + done.stderr
    assert f"{PERIODS} of them with a period, {PERIODS * 10} events" in done.stdout
    assert int(re.search(r"(\d+) calls of the platform", done.stdout)[1]) > 100 * PERIODS
