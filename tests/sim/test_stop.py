"""Being told to end, also at a moment in which Python loses the exception."""
import os
import signal

import pytest

from fake_run import fake_run
from homes import home, path
from kolt_sim import cli, compare
from kolt_sim.compare import SilentView
from kolt_sim.stop import Stop, check


class Dying:
    """Has the process told to end while it is destroyed, where an exception goes no further."""

    def __del__(self) -> None:
        os.kill(os.getpid(), signal.SIGINT)
        for _ in range(1000):  # a signal is handled between two steps of the interpreter
            pass


@pytest.fixture
def lose_an_interrupt():
    def lose() -> None:
        dying = Dying()
        del dying
    return lose


def test_without_a_signal_there_is_nothing_to_raise():
    with Stop():
        check()


def test_an_interrupt_that_was_lost_is_raised_again(lose_an_interrupt):
    with Stop() as stop:
        lose_an_interrupt()
        with pytest.raises(KeyboardInterrupt):
            check()
    assert stop.number == signal.SIGINT


def test_an_interrupt_is_over_with_its_command(lose_an_interrupt):
    with Stop():
        lose_an_interrupt()
    check()


def test_a_new_command_starts_without_the_last_one_s_interrupt(lose_an_interrupt):
    with Stop():
        lose_an_interrupt()
    with Stop():
        check()


def test_a_run_ends_at_the_next_tick_after_an_interrupt_that_was_lost(lose_an_interrupt):
    view = cli.Interruptible(SilentView())
    with Stop():
        view.frame(None)
        lose_an_interrupt()
        with pytest.raises(KeyboardInterrupt):
            view.frame(None)


def test_compare_ends_after_an_interrupt_that_was_lost_while_it_waited(lose_an_interrupt, monkeypatch):
    waits = []

    def wait(_: list, timeout: float) -> list:
        assert timeout < 5
        waits.append(timeout)
        assert len(waits) < 3
        lose_an_interrupt()
        return []
    monkeypatch.setattr(compare, "wait", wait)
    scenario = home([path("5g", 800)], {}, [], seed=6)
    with Stop(), pytest.raises(KeyboardInterrupt):
        compare.compare([scenario, scenario], fake_run, 2, (OSError,), lambda _: None)
    assert len(waits) == 1


def test_other_exceptions_that_python_loses_are_still_told(monkeypatch):
    told = []
    monkeypatch.setattr("sys.unraisablehook", told.append)

    class Failing:
        def __del__(self) -> None:
            raise ValueError

    with Stop():
        Failing()
    assert [type(one.exc_value) for one in told] == [ValueError]


def test_an_interrupt_that_was_lost_is_not_told_as_an_error(lose_an_interrupt, capsys):
    with Stop():
        lose_an_interrupt()
    assert capsys.readouterr().err == ""
