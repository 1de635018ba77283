"""
Calls of the platform libraries, and of the sockets behind them, fail in the daemon: each alone and in pairs. A few of
the pairs, unless KOLT_EVERY_FAULT is set.
"""
import os
import random
from errno import EADDRINUSE, EMFILE, ENOBUFS
from itertools import combinations

import pytest

from fault_scene import EVERY, FaultScene, numbers
from kolt_node import Node
from kolt_node.state import NODE_DIR, rules
import scene

# What each returns when it fails; with an error number for what is a system call.
FAILURES = {
    "bridgeSetBridgeMode": -1, "bridgeSetTcpSP": -1, "bridgeSetFollowRE": -1, "bridgeSetIFGroup": -1,
    "bridgeSetIFType": -1, "bridgeSetIFClass": -1, "bridgeSetIFPath": -1, "bridgeSetIFCompat": -1,
    "bridgeSetIFBroadcast": -1, "bridgeSetNeedha": -1, "bridgeSetCouple": -1, "bridgeAllocTableBuf": -1,
    "bridgeTableAction": -1, "bridgeAddHDTableEntries": -1, "bridgeSetHATableEntries": -1, "bridgeFlushHDTable": -1,
    "bridgeFlushHATable": -1, "bridgeDelFdbByName": -1, "bridgeSetEventInfo": -1, "netlink_msg:0": -1,
    "netlink_msg:256": -1, "uci_get_profile_eths": -1, "uci_get_eth_port_num": -1, "socket:52": EMFILE,
    "bind:52": EADDRINUSE, "sendto:52": ENOBUFS, "socket:inet": EMFILE,
}
REQUESTS = {"socket:52", "bind:52", "sendto:52"}
OF_PORTS = {"bridgeSetIFGroup", "bridgeSetIFType", "bridgeSetIFClass", "bridgeSetIFPath", "bridgeSetIFCompat",
            "bridgeSetIFBroadcast", "bridgeSetNeedha", "bridgeDelFdbByName"}
ETHERNETS = {"uci_get_profile_eths", "uci_get_eth_port_num"}
MOVES = {"bridgeAddHDTableEntries", "bridgeSetHATableEntries"} | REQUESTS
# What is not called in a round any more when all calls of a name fail: without a buffer nothing is asked, and what does
# not answer is no bridge, or one without ports.
SHUTS_OUT = {
    "bridgeAllocTableBuf": FAILURES.keys() - {"bridgeAllocTableBuf"},
    "netlink_msg:0": FAILURES.keys() - {"bridgeAllocTableBuf", "netlink_msg:0", "netlink_msg:256"} - ETHERNETS,
    "netlink_msg:256": OF_PORTS | ETHERNETS | MOVES,
    "bridgeTableAction": MOVES,
    "bridgeAddHDTableEntries": MOVES - {"bridgeAddHDTableEntries"},
    "bridgeSetHATableEntries": REQUESTS,
    "uci_get_profile_eths": {"uci_get_eth_port_num"},
    "socket:52": REQUESTS - {"socket:52"},
    "socket:inet": REQUESTS | {"bridgeSetHATableEntries"},
}
PAIRS_IN_SHORT = 10  # one pair in so many
ALL, NONE = 0, 1 << 30  # as the number of a call


class Script:
    """Scripted failures, written straight through the node's root and so in no time."""

    def __init__(self, node: Node) -> None:
        self._root = node.root_fd
        self._folder = f"{NODE_DIR}/fail".lstrip("/")

    def set(self, call: str, number: int = 0) -> None:
        """Fails the call of this number, or all."""
        fd = os.open(f"{self._folder}/{call}", os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, 0o644,
                     dir_fd=self._root)
        with open(fd, "wb") as file:
            file.write(rules([(number or 1, number, FAILURES[call])]))

    def clear(self, call: str) -> int:
        """Undoes a failure; how often it came about."""
        fd = os.open(f"{self._folder}/{call}", os.O_RDONLY | os.O_CLOEXEC, dir_fd=self._root)
        with open(fd, "rb") as file:
            count = file.read().count(b".")
        os.unlink(f"{self._folder}/{call}", dir_fd=self._root)
        return count


def calm(stage: FaultScene) -> list[str]:
    stage.round()
    begin = scene.mark(stage.node)
    stage.round()
    return stage.told(begin)


def begin(stage: FaultScene) -> tuple[Script, list[str], int]:
    """Starts a daemon; what it tells the bridges in a round and how many descriptors it has, when nothing fails."""
    stage.start()
    stage.round()
    stage.node.call("write", path=f"{NODE_DIR}/fail/nothing", data="")  # makes the folder
    return Script(stage.node), calm(stage), len(stage.node.descriptors())


def end(stage: FaultScene, reference: list[str], held: int) -> None:
    """Nothing of the failures may have stayed."""
    assert calm(stage) == reference
    assert len(stage.node.descriptors()) == held and not stage.children()


def test_each_call_may_fail_alone(stage: FaultScene) -> None:
    """All calls of a name in a round, and the last of them alone, or each."""
    script, reference, held = begin(stage)
    rounds = failed = 0
    for call in FAILURES:
        script.set(call, NONE)
        stage.round()
        count = script.clear(call)
        for number in (ALL, *(numbers(count, 2) if EVERY else [count])):
            script.set(call, number)
            stage.round()
            counted = script.clear(call)
            assert stage.lives(), (call, number, stage.node.stderr())
            assert counted >= max(number, 1), (call, number)
            rounds, failed = rounds + 1, failed + (1 if number else counted)
    end(stage, reference, held)
    print(f"{rounds} rounds with {failed} failed calls of {len(FAILURES)} names")


def test_each_two_calls_may_fail_together(stage: FaultScene) -> None:
    script, reference, held = begin(stage)
    pairs = list(combinations(FAILURES, 2))
    failed = both = 0
    tried = pairs if EVERY else random.Random(1).sample(pairs, len(pairs) // PAIRS_IN_SHORT)
    for pair in tried:
        stage.round()  # in which what an earlier pair held up is made up for
        for call in pair:
            script.set(call)
        stage.round()
        fired = [script.clear(call) for call in pair]
        assert stage.lives(), (pair, stage.node.stderr())
        one, other = pair
        called = (one not in SHUTS_OUT.get(other, ()), other not in SHUTS_OUT.get(one, ()))
        assert (fired[0] > 0, fired[1] > 0) == called, (pair, fired)
        failed, both = failed + sum(fired), both + all(fired)
    end(stage, reference, held)
    print(f"{len(tried)} of {len(pairs)} pairs with {failed} failed calls, {both} in which both failed")
