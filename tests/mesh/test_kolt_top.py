"""kolt-top beside kolt on a node of the mesh: a second client of kolt-bridged that reads and changes nothing."""
import json
import re
import time

from kolt_mesh import frames, stream, topology
from kolt_mesh.kolt import Kolt

PERIOD = 2
SETTLES = 20.0
TIMES = re.compile(r"used [0-9/]+")


def readings(node, *words: str) -> list[dict]:
    done = node.run([node.build / "bin/kolt-top", "--json", *words], timeout=20)
    assert done.status == 0, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


def client_of(reading: dict, mac: str) -> dict | None:
    (bridge,) = reading["bridges"]
    return next((one for one in bridge["clients"] if one["mac"] == mac.upper()), None)


def test_kolt_top_sees_what_kolt_places_and_disturbs_neither_it_nor_the_bridge(make_lab):
    lab = make_lab(topology.pair(3), Kolt(period=PERIOD))
    assert frames.reachable(lab, SETTLES)
    node, namespace = lab.kind.nodes["b"], lab.nodes["b"].namespace

    def kernel() -> str:
        return TIMES.sub("", "".join(namespace.run(words.split()) for words in ("bridge -d link", "bridge fdb")))

    with stream.Stream(lab, "h2", "h1") as running:
        # Placed, streaming, and counted for a whole period.
        for _ in range(20):
            lab.wait(0.5)
            (seen,) = readings(node, "--once")
            found = client_of(seen, lab.mac("h1"))
            if found and found["placement"] == "in-place" and found["streams"]["bytes"]:
                break
        assert found["placement"] == "in-place" and found["streams"]["count"] >= 1, found
        before, said = kernel(), len(node.log())
        began = time.monotonic()
        seen = readings(node, "-i", "0.1", "-n", "10")
        periods = (time.monotonic() - began) / PERIOD
        assert kernel() == before
        assert not [line for line in node.log()[said:] if line.level in ("Error", "Fatal")]
        assert running.end().lost == 0
    # Whoever reads does not begin the counters anew: they change at the end of a period and at no other time.
    counted = [client_of(one, lab.mac("h1"))["streams"]["bytes"] for one in seen]
    assert len(set(counted)) <= 2 + int(periods) and min(counted) > 0, counted
    assert all(one["notes"] == [] for one in seen)
    assert len(readings(node, "--once")) == 1 and node.daemon.status is None and node.bridged.status is None
