"""The end that a person or the system asks for."""
import signal
from typing import Self


class Stop:
    """Turns the signals that end a command into a KeyboardInterrupt, so that a node is taken down. `number`: which."""
    SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def __init__(self) -> None:
        self.number = 0

    def __enter__(self) -> Self:
        self._before = {number: signal.signal(number, self._take) for number in self.SIGNALS}
        return self

    def __exit__(self, *_: object) -> None:
        for number, handler in self._before.items():
            signal.signal(number, handler)

    def _take(self, number: int, _: object) -> None:
        self.number = number
        raise KeyboardInterrupt
