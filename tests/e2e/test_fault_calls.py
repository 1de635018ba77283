"""
Calls of the C library fail in the daemon: each number of each call once, all of one kind at once, with less than was
asked for, and with a clock that jumps. Part of the numbers where there are many, unless KOLT_EVERY_FAULT is set.
"""
from errno import (EADDRINUSE, EAGAIN, ECONNREFUSED, ECONNRESET, EINTR, EINVAL, EIO, EMFILE, ENOBUFS, ENODEV, ENOLCK,
                   ENOMEM, ENXIO, EPERM)

import pytest

from fault_scene import FaultScene, numbers
import scene

FAILURES = [("socket", EMFILE), ("bind", EADDRINUSE), ("connect", ECONNREFUSED), ("poll", ENOMEM), ("poll", EINTR),
            ("recv", ENOBUFS), ("recv", EINTR), ("recv", ECONNRESET), ("read", EIO), ("read", EINTR), ("open", EMFILE),
            ("fopen", EMFILE), ("popen", EMFILE), ("fcntl", EINVAL), ("ioctl", ENODEV), ("setsockopt", EPERM),
            ("sendto", ENOBUFS), ("epoll_ctl", ENOMEM), ("if_nametoindex", ENODEV), ("if_indextoname", ENXIO),
            ("epoll_create1", EMFILE), ("eventfd", EMFILE), ("timer_create", EAGAIN), ("sendmsg", ENOBUFS),
            ("fstat", EIO), ("flock", ENOLCK)]
AT_START = ("connect", "epoll_ctl", "epoll_create1", "eventfd", "timer_create")  # not called in a round
NOT_AT_START = ("fopen", "popen", "ioctl", "if_nametoindex")
DAY = 86400


def rows(left_out: tuple[str, ...]) -> list:
    return [pytest.param(call, error, id=f"{call}-{error}") for call, error in FAILURES if call not in left_out]


def calm(stage: FaultScene) -> list[str]:
    """What a round tells the bridges where nothing fails. The second before finds a lost bus again."""
    stage.faults.clear()
    stage.reconnect()
    stage.round()
    stage.reconnect()
    begin = scene.mark(stage.node)
    stage.round()
    return stage.told(begin)


def descriptors(stage: FaultScene) -> list[str]:
    return sorted(target.split(":")[0] for target in stage.node.descriptors().values())


def left_open(call: str, failures: int) -> list[str]:
    """A refused query of an address leaves its socket open on purpose; nothing else does."""
    return ["socket"] * failures if call == "ioctl" else []


class TestStart:
    @pytest.mark.parametrize(("call", "error"), rows(NOT_AT_START))
    def test_daemon_starts_or_ends_with_status_1_and_says_why(self, stage: FaultScene, call: str, error: int) -> None:
        node = stage.node
        stage.use_real_time()
        count, failed = self.start(stage, call, error, 0), 0
        for number in numbers(count, 5):
            begin = scene.mark(node)
            called = self.start(stage, call, error, number)
            assert stage.faults.failed(call) == (called >= number), number  # some depend on how fast the bus answers
            failed += stage.faults.failed(call)
            assert node.daemon.status in (None, 1), (number, node.stderr())
            if node.daemon.status is None:
                assert stage.hears(), number
                assert node.stop_daemon() == 0, number
            else:
                assert "Fatal" in scene.lines(node, begin)[-1], (number, node.recent(3))
        assert failed > 0

    def test_configuration_whose_end_cannot_be_read_is_none(self, stage: FaultScene) -> None:
        """The first reading gives all of it, the one that would tell its end fails. A sanitizer reads something before."""
        stage.use_real_time()
        begin = scene.mark(stage.node)
        stage.faults.forget_start()
        stage.faults.fail("read", EIO, first=2)
        daemon = stage.node.start_daemon(scene.config(), env=stage.faults.environment)
        assert stage.faults.failed("read") > 0 and daemon.status == 1
        assert scene.lines(stage.node, begin) == ["config_load: Fatal: parse config"]

    @staticmethod
    def start(stage: FaultScene, call: str, error: int, number: int) -> int:
        """Starts a daemon in which the call of this number fails; how many calls there were."""
        stage.faults.forget_start()
        stage.faults.fail_one(call, error, number)
        status = stage.node.start_daemon(scene.config(), env=stage.faults.environment).status
        calls = stage.faults.calls(call)
        if number == 0:
            assert status is None and stage.node.stop_daemon() == 0
        return calls


class TestRound:
    @pytest.mark.parametrize(("call", "error"), rows(AT_START))
    def test_each_failure_alone_is_survived(self, stage: FaultScene, call: str, error: int) -> None:
        stage.start()
        reference = calm(stage)
        held = descriptors(stage)
        stage.faults.count(call)
        stage.round()
        tried = numbers(stage.faults.calls(call), 2)
        for number in tried:
            stage.faults.fail_one(call, error, number)
            stage.round()
            assert stage.faults.failed(call) == 1, number
            assert stage.lives(), (number, stage.node.stderr())
            stage.reconnect()
        assert calm(stage) == reference
        assert descriptors(stage) == sorted(held + left_open(call, len(tried))) and not stage.children()

    @pytest.mark.parametrize(("call", "error"), [row for row in rows((*AT_START, "recv", "flock"))
                                                 if row.values[1] != EINTR])
    def test_all_failures_at_once_are_survived(self, stage: FaultScene, call: str, error: int) -> None:
        """Not of what a signal interrupts: without an end to that nothing could go on. A lock is waited for, so that
        without any all periods come later than in the round to compare with."""
        stage.start()
        reference = calm(stage)
        held = descriptors(stage)
        stage.faults.fail(call, error)
        stage.round()
        failures = stage.faults.failed(call)
        assert failures > 0 and stage.lives(), stage.node.stderr()
        assert calm(stage) == reference
        assert descriptors(stage) == sorted(held + left_open(call, failures)) and not stage.children()

    @pytest.mark.parametrize("size", [1, 3, 7])
    def test_files_that_come_in_small_pieces_are_read_whole(self, stage: FaultScene, size: int) -> None:
        stage.start()
        reference = calm(stage)
        stage.faults.fail("read", -size)
        begin = scene.mark(stage.node)
        stage.round()
        assert stage.faults.failed("read") > 1000 / size
        assert stage.told(begin) == reference

    @pytest.mark.parametrize("size", [1, 3, 7])
    def test_messages_of_the_bus_that_come_in_small_pieces_are_read_whole(self, stage: FaultScene, size: int) -> None:
        stage.start()
        reference = calm(stage)
        stage.faults.fail("recv", -size)
        begin = scene.mark(stage.node)
        stage.round()
        assert stage.faults.failed("recv") > 100 / size
        assert stage.told(begin) == reference


class TestClock:
    @pytest.mark.parametrize("seconds", [-DAY, -3, 3, DAY, 40 * 365 * DAY])
    def test_calendar_that_jumps_costs_no_period(self, stage: FaultScene, seconds: int) -> None:
        stage.start()
        reference = calm(stage)
        stage.faults.fail("clock", seconds, first=2)
        begin = scene.mark(stage.node)
        stage.round()
        assert stage.faults.failed("clock") > 0
        assert stage.told(begin)
        assert calm(stage) == reference

    def test_day_that_passes_at_once_is_one_late_period(self, stage: FaultScene) -> None:
        stage.start()
        reference = calm(stage)
        begin = scene.mark(stage.node)
        stage.clock.skip(DAY)
        asked = stage.node.journal(begin, "bridgeTableAction", code=2, bridge="br-lan")
        assert len(asked) == 1
        assert calm(stage) == reference
