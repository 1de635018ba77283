"""Whatever comes in by a port: the mesh does not circle, does not crash, and is whole when it is over."""
import random

import hostile
import pytest
from copies import assert_one_copy
from kolt_mesh import frames, topology
from kolt_mesh.frames import Broadcasts
from kolt_mesh.kolt import Kolt
from kolt_mesh.lab import HOST_PORT, Lab

SETTLES = 20.0
INTERVAL = 20  # ms between two frames to a neighbour
FORGOTTEN = 200 * INTERVAL / 1000 + 2  # seconds for which somebody else's word stands
ROUNDS, AT_ONCE = 60, 40


@pytest.fixture
def lab(make_lab) -> Lab:
    """Two nodes, two links, a host at each, with everything in the nodes."""
    made = make_lab(topology.pair(2), Kolt(options=("--interval", str(INTERVAL))))
    assert frames.reachable(made, SETTLES)
    return made


def uplink(lab: Lab) -> str:
    return lab.ends["a-b 5g"]["b"].port.name


def attack(lab: Lab, attacker: hostile.Attacker, sent) -> Broadcasts:
    """Broadcasts, and so many hostile frames before each of them; what became of the broadcasts."""
    with Broadcasts(lab) as counting:
        for _ in range(ROUNDS):
            for _ in range(AT_ONCE):
                attacker.send(next(sent))
            counting.run(0.02, gap=0.005)
        counting.listen()
    attacker.close()
    return counting


def all_run(lab: Lab) -> bool:
    lab.check()
    return all(node.bridged.status is None and node.daemon.status is None for node in lab.kind.nodes.values())


def test_neighbours_frames_from_a_host_change_nothing(lab):
    real = hostile.heard(lab, "b", uplink(lab))
    chance = random.Random(1)
    kept = (chance.choice(real) if chance.randrange(2) else hostile.altered(chance.choice(real), chance)
            for _ in iter(int, 1))
    assert_one_copy(lambda: attack(lab, hostile.Attacker(lab.hosts["h2"].namespace, HOST_PORT), kept).census)
    assert all_run(lab)


def test_a_host_that_claims_to_be_the_best_root_is_not_believed(lab):
    chosen = [frame for frame in hostile.heard(lab, "a", lab.ends["a-b 5g"]["a"].port.name) if frame[15] == 1]
    nobody = bytes(8)
    claims = [frame[:16] + nobody + frame[24:50] + nobody + nobody + frame[66:] for frame in chosen]
    chance = random.Random(2)
    sent = (chance.choice(claims) for _ in iter(int, 1))
    assert_one_copy(lambda: attack(lab, hostile.Attacker(lab.hosts["h2"].namespace, HOST_PORT), sent).census)


@pytest.mark.parametrize("seed", range(3))
def test_frames_of_every_kind_on_a_backhaul_link_make_nothing_circle(lab, seed):
    real = hostile.heard(lab, "b", uplink(lab))
    attacker = hostile.Attacker(lab.nodes["a"].namespace, lab.ends["a-b 5g"]["a"].port.name)
    counting = attack(lab, attacker, hostile.frames(real, seed))
    assert not counting.census.circled() and not counting.census.duplicates()
    assert all_run(lab)
    assert frames.reachable(lab, FORGOTTEN + SETTLES)


def test_frames_of_every_kind_from_a_host_make_nothing_circle(lab):
    real = hostile.heard(lab, "b", uplink(lab))
    attacker = hostile.Attacker(lab.hosts["h1"].namespace, HOST_PORT)
    counting = attack(lab, attacker, hostile.frames(real, 7))
    assert not counting.census.circled() and not counting.census.duplicates()
    assert all_run(lab)
    assert frames.reachable(lab, SETTLES)
