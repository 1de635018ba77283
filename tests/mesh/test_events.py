"""What kolt-bridged tells by itself: events of the bridge, and streams that a child has moved."""
import socket
import sys

import library
from kolt_mesh import frames, stream, topology
from kolt_mesh.kolt import Kolt
from kolt_mesh.netns import batch
from kolt_mesh.ports import BRIDGE
from rest import come_to_rest

BRIDGE_EVENTS, NEIGHBOURS = 39, 53
STRANGER = "02:ee:00:00:00:03"
UDP = 17
TYPES = {"5g": 3, "5g_2": 4}
SETTLES = 20.0


def test_who_listens_hears_of_macs_that_are_learnt_and_of_ports_that_come_and_go(make_lab):
    lab = make_lab(topology.pair(1), Kolt(kolt=False))
    node, space = lab.kind.nodes["b"], lab.nodes["b"].namespace
    told = library.listen(node, BRIDGE_EVENTS)
    with lab.socket("h2", socket.AF_PACKET, socket.SOCK_RAW) as wire:
        wire.bind(("eth0", 0))
        wire.send((b"\xff" * 6 + bytes.fromhex(STRANGER.replace(":", "")) + b"\x88\xb6").ljust(60, b"\0"))
    node.wait_for(lambda: f"5 {STRANGER} " in told.stdout, what="a MAC that is learnt")
    (port,) = [line.split()[2] for line in told.stdout.splitlines() if line.startswith(f"5 {STRANGER} ")]
    assert f"{STRANGER} dev {port} master" in space.run(["bridge", "fdb"])
    batch("ip", space, ["link add extra type veth peer name other", f"link set extra master {BRIDGE}"])
    node.wait_for(lambda: "\n6 \n" in told.stdout, what="a port that comes")
    assert "\n7 \n" not in told.stdout
    batch("ip", space, ["link set extra nomaster"])
    node.wait_for(lambda: "\n7 \n" in told.stdout, what="a port that goes")
    lines = told.stdout.splitlines()
    assert lines.count("6 ") == lines.count("7 ") == 1


def test_a_stream_that_a_child_moves_is_answered_by_the_link_it_took(make_lab):
    lab = make_lab(topology.pair(2), Kolt(period=60))  # longer than the test: kolt itself moves nothing
    parent, child = lab.kind.nodes["a"], lab.kind.nodes["b"]
    assert frames.reachable(lab, SETTLES)
    come_to_rest(lab, child)
    told = library.listen(parent, NEIGHBOURS)
    with stream.Stream(lab, "h2", "h1"):
        lab.wait(1.0)
    answers = str(stream.PORT)  # to the port after it
    by = {name: ends["a"].port.name for name, ends in lab.ends.items()}
    (other,) = [name for name, port in by.items() if port != library.ask(parent, "targets")[answers]]
    kind = TYPES[lab.ends[other]["a"].port.link.type]
    library.moved(child, lab.mac("h2"), lab.mac("h1"), stream.PORT + 1, stream.PORT, UDP, kind)
    parent.wait_for(lambda: library.ask(parent, "targets")[answers] == by[other], what="answers by the other link")
    macs = (lab.mac("h2") + lab.mac("h1")).replace(":", "")
    numbers = b"".join(number.to_bytes(size, sys.byteorder) for number, size in (
        (stream.PORT + 1, 2), (stream.PORT, 2), (UDP, 4), (kind, 1)))
    parent.wait_for(lambda: f"\n4 {macs}{numbers.hex()}\n" in told.stdout, what="the flow report")
