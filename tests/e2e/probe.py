"""Runs node-probe, the small client of the platform libraries that the node's own tests use."""
import sys

from kolt_node import Node, Process


def probe(node: Node, *words: object, **how: object) -> Process:
    done = node.run([node.build / "bin/node-probe", *map(str, words)], **how)
    assert done.status == 0, done.stdout + done.stderr
    return done


def values(process: Process) -> dict[str, str]:
    """The last value printed under each key."""
    return dict(line.split(" ", 1) for line in process.stdout.splitlines() if " " in line)


def query(node: Node, type: int = 256, bridge: str = "br-lan", size: int = 4608) -> dict[str, str]:
    return values(probe(node, "query", type, bridge, size))


def indexes(answer: dict[str, str]) -> list[int]:
    """The interface indexes of a reply's port records."""
    payload = bytes.fromhex(answer["payload"])
    return [int.from_bytes(payload[i:i + 4], sys.byteorder) for i in range(0, int(answer["length"]), 36)]
