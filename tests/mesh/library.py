"""What libduon-bridge answers inside a node."""
import json

from kolt_mesh import ports
from kolt_mesh.node import MeshNode

CALLS = (ports.ROOT / "bench/library_calls.py").read_text(encoding="utf-8")


def ask(node: MeshNode, *words: str) -> dict:
    """One of the calls that library_calls.py knows, of the node's bridge."""
    done = node.run(["/usr/bin/python3", "-c", CALLS, ports.BRIDGE, *words], timeout=30)
    assert done.status == 0, done.stderr
    return json.loads(done.stdout)
