"""The end that a person or the system asks for."""
import signal
import sys
from typing import Any, Self


class Stop:
    """Turns the signals that end a command into a KeyboardInterrupt, so that a node is taken down. `number`: which."""
    SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    latest = 0  # the number of the signal that the process was last told to end by

    def __init__(self) -> None:
        self.number = 0

    def __enter__(self) -> Self:
        Stop.latest = 0
        self._report = sys.unraisablehook
        sys.unraisablehook = self._report_lost
        self._before = {number: signal.signal(number, self._take) for number in self.SIGNALS}
        return self

    def __exit__(self, *_: object) -> None:
        Stop.latest = 0
        sys.unraisablehook = self._report
        for number, handler in self._before.items():
            signal.signal(number, handler)

    def _report_lost(self, lost: Any) -> None:
        """What Python says of an exception that it has lost; an interrupt is not lost, see `check`."""
        if not isinstance(lost.exc_value, KeyboardInterrupt):
            self._report(lost)

    def _take(self, number: int, _: object) -> None:
        self.number = Stop.latest = number
        raise KeyboardInterrupt


def check() -> None:
    """Raises the interrupt again: one that comes while a destructor runs is lost there. To be called now and then."""
    if Stop.latest:
        raise KeyboardInterrupt
