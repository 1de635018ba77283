"""When a node's daemon has dealt with its links."""
import time

from kolt_mesh.lab import Lab
from kolt_mesh.node import MeshNode

PAUSE = 1.0  # seconds that kolt waits before it acts on a link
LONGEST = 20.0


def come_to_rest(lab: Lab, node: MeshNode) -> None:
    """Until kolt has nothing more to say of links that came up: it waits for a second before it acts on one."""
    node.event("kolt.debug", {"dbg_level": 2}, settle=False)
    begin = quiet_since = time.monotonic()
    said = len(node.log())
    while time.monotonic() < quiet_since + 2 * PAUSE:
        assert time.monotonic() < begin + LONGEST, node.recent()
        lab.wait(0.1)
        if len(node.log()) != said:
            said, quiet_since = len(node.log()), time.monotonic()
