"""Memory that is refused while the daemon reads its configuration: it must not take itself for disabled."""
import signal

from kolt_node import Node
import scene

ENDS = ("Fatal: parse config\n", "Fatal: ubus_connect\n")  # there is no bus for a configuration that was read


def test_daemon_that_is_refused_any_one_allocation_is_not_disabled(node: Node) -> None:
    """
    The parser fails without a word to its caller, and drops what it had; or it crashes where it copies the name of a
    member, which is its own fault.
    """
    scene.set_up(node, [])
    refused = []
    while not refused or refused[-1]:
        daemon = node.start_daemon(scene.config({}), ready=False, env={
            "LD_PRELOAD": str(node.build / "lib/librefuse-allocation.so"), "REFUSE_ALLOCATION": str(len(refused) + 1)})
        status = node.wait_exit(daemon)
        refused.append(daemon.stderr.partition("refused: ")[2].split("\n")[0])
        if status == -signal.SIGSEGV:
            assert refused[-1] == "strdup"
        else:
            assert status == 1 and daemon.stderr.endswith(ENDS), (status, daemon.stderr)
    assert len(refused) > 50 and {"malloc", "calloc", "strdup"} <= set(refused)
