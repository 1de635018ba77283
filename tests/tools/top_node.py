"""kolt-top on a simulated node: what the tests of it share."""
import json
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "platform/sim"))

from kolt_node import Node, Process, sample  # noqa: E402
from kolt_node.control import PYTHON  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402

DRIVER = Path(__file__).with_name("in_terminal.py")
READING = {"bridgeAllocTableBuf", "bridgeFreeTableBuf", "bridgeTableAction", "netlink_msg"}
SANITIZER_WORDS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:")
STEERED, OWN = sample.SERVERS[0].upper(), sample.CLIENTS[0].upper()  # behind the busy uplink, and on this node's own side


@pytest.fixture
def node() -> Iterator[Node]:
    """The sample: a range extender whose 2.4 GHz uplink is hot while the others have room."""
    with Node(build_directory()) as fresh:
        sample.set_up(fresh)
        configure(fresh)
        yield fresh
        for process in fresh.processes.values():
            assert not any(word in process.stderr for word in SANITIZER_WORDS), process.stderr


def configure(node: Node, **param: object) -> None:
    """A busy processor of the machine is no matter of the sample, unless a test says so."""
    node.write_json("/etc/kolt.json", sample.config(**({"cpu_threshold": 0} | param)))


def program(node: Node) -> Path:
    return node.build / "bin/kolt-top"


def run(node: Node, *words: str, **how: Any) -> Process:
    return node.run([program(node), *words], **how)


def told(node: Node, *words: str) -> dict:
    """One reading as JSON."""
    done = run(node, "--json", "--once", *words)
    assert done.status == 0, done.stderr
    return json.loads(done.stdout)


def bridge(reading: dict, name: str = "br-lan") -> dict:
    return next(one for one in reading["bridges"] if one["name"] == name)


def path(reading: dict, link: str) -> dict:
    return next(one for one in bridge(reading)["paths"] if one["link"] == link)


def client(reading: dict, mac: str) -> dict:
    return next(one for one in bridge(reading)["clients"] if one["mac"] == mac)


def in_terminal(node: Node, words: list[str], steps: list[list], *, rows: int = 24, columns: int = 80,
                **variables: str) -> dict:
    """
    Runs kolt-top in a terminal of its own inside the node and takes the steps there; what the driver saw. A leak checker
    would look there for what /proc shows of the driver's children, which is nothing; other runs are looked at.
    """
    what = {"argv": [str(program(node)), *words], "steps": steps, "rows": rows, "columns": columns,
            "variables": {"TERM": "xterm", "ASAN_OPTIONS": "detect_leaks=0"} | variables}
    done = node.run([PYTHON, "-IS", "-c", DRIVER.read_text(), json.dumps(what)], timeout=60)
    assert done.status == 0, done.stdout + done.stderr
    return json.loads(done.stdout)
