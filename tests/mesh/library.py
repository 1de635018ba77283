"""What the daemon's libraries say inside a node."""
import json
from pathlib import Path

from kolt_mesh import ports
from kolt_mesh.node import MeshNode

from kolt_node import Process

PYTHON = "/usr/bin/python3"
CALLS = (ports.ROOT / "bench/library_calls.py").read_text(encoding="utf-8")
PROTOCOLS = (Path(__file__).resolve().parent / "protocols.py").read_text(encoding="utf-8")


def ask(node: MeshNode, *words: str) -> dict:
    """One of the calls that library_calls.py knows, of the node's bridge."""
    done = node.run([PYTHON, "-c", CALLS, ports.BRIDGE, *words], timeout=30)
    assert done.status == 0, done.stderr
    return json.loads(done.stdout)


def listen(node: MeshNode, protocol: int) -> Process:
    """A process that writes a line for each message of the protocol."""
    listener = node.spawn([PYTHON, "-c", PROTOCOLS, "listen", str(protocol)])
    node.wait_for(lambda: listener.status is not None or "ready" in listener.stdout, what="a listener")
    assert listener.status is None, listener.stderr
    return listener


def moved(node: MeshNode, *stream: str | int) -> None:
    """Tells the node's kolt-bridged of a stream that was moved, as kolt does."""
    done = node.run([PYTHON, "-c", PROTOCOLS, "moved", *map(str, stream)])
    assert done.status == 0, done.stderr
