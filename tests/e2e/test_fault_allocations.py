"""
Every allocation of the daemon and its libraries fails once: at the start, in each kind of event and in a period. Part of
the numbers where there are many, unless KOLT_EVERY_FAULT is set. Needs a daemon without sanitizers, whose allocator
nothing comes before.
"""
from collections.abc import Callable

import pytest

from fault_scene import EVENTS, FaultScene, numbers
import scene

ENOMEM = 12
# json-c leaves a value to nobody that it could not add to its object.
LEAKS_ONE = ": json_object_object_add_ex"


def survive_each(stage: FaultScene, act: Callable[[], None], most: int) -> None:
    """Does something once for each of its allocations, which fails; nothing of that may stay."""
    stage.faults.count("allocation")
    act()
    count, failed = stage.faults.calls("allocation"), 0
    for number in numbers(count, most):
        live = stage.faults.live
        stage.faults.fail_one("allocation", ENOMEM, number)
        act()
        assert stage.faults.failed("allocation") == 1, number
        if stage.faults.place.startswith("kolt:"):
            stage.reconnect()  # a message that finds no memory costs the connection
        assert stage.faults.live - live <= stage.faults.place.endswith(LEAKS_ONE), (number, stage.faults.place)
        failed += 1
    stage.faults.clear()
    print(f"{failed} of {count} allocations failed")


class TestStart:
    def start(self, stage: FaultScene, number: int) -> int | None:
        """Starts a daemon whose allocation of that number fails; its status, None when it runs."""
        stage.faults.forget_start()
        stage.faults.fail_one("allocation", ENOMEM, number)
        return stage.node.start_daemon(scene.config(), env=stage.faults.environment).status

    def test_daemon_starts_or_ends_with_status_1_and_says_why(self, stage: FaultScene) -> None:
        node = stage.node
        stage.use_real_time()
        assert self.start(stage, 0) is None
        count = stage.faults.calls("allocation")
        node.stop_daemon()
        ended = 0
        for number in numbers(count, 60):
            begin = scene.mark(node)
            status = self.start(stage, number)
            assert stage.faults.failed("allocation") == 1, number
            assert status in (None, 1), (number, stage.faults.place, status, node.stderr())
            if status is None:
                left_out = node.log(begin, function="loop_avoidance_init")  # the module that the daemon hears with
                assert stage.lives() if left_out else stage.hears(), number
                assert node.stop_daemon() == 0, number
            else:
                ended += 1
                assert scene.lines(node, begin)[-1].split(": ")[1].startswith("Fatal"), (number, node.recent(3))
        assert 0 < ended < count
        print(f"{len(numbers(count, 60))} of {count} allocations failed, {ended} of them ended the start")


class TestEvents:
    @pytest.mark.parametrize("kind", EVENTS)
    def test_each_failure_is_survived_and_leaves_nothing(self, stage: FaultScene, kind: str) -> None:
        stage.start(period=3600)
        for _ in range(3):
            stage.round()
        begin = scene.mark(stage.node)
        stage.send(kind)
        reference = stage.told(begin)
        survive_each(stage, lambda: stage.send(kind), 50)
        stage.round()
        begin = scene.mark(stage.node)
        stage.send(kind)
        assert stage.lives() and stage.told(begin) == reference


class TestPeriod:
    def test_each_failure_is_survived_and_leaves_nothing(self, stage: FaultScene) -> None:
        stage.start()
        for _ in range(3):
            stage.round()
        survive_each(stage, stage.period, 40)
        begin = scene.mark(stage.node)
        stage.period()
        assert stage.lives() and not stage.children()
        assert len(stage.node.journal(begin, "bridgeTableAction")) >= 3
