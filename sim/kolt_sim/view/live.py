"""The live view of a terminal: redrawn in place while the run goes on; at the end the summary stays."""
import time
from collections import deque
from collections.abc import Callable

from rich.console import Console
from rich.live import Live

from ..record import Frame
from ..scenario.records import Scenario
from .screen import Picture, draw
from .story import Story
from .summary import summary

REDRAW_SECONDS = 0.1
REMEMBERED = 30  # more than any terminal that shows the last of them has room for


class LiveView:
    """`now` gives real seconds; a test may pass its own."""

    def __init__(self, console: Console, now: Callable[[], float] = time.monotonic) -> None:
        self._console, self._now = console, now
        self._live: Live | None = None
        self._picture: Picture | None = None
        self._drawn = 0.0

    def start(self, scenario: Scenario) -> None:
        story = Story(scenario.tick, every_move=False)
        self._picture = Picture(scenario, story, None, deque(maxlen=REMEMBERED))
        # No refresh from a thread of its own: a redraw needs a new frame.
        self._live = Live(console=self._console, screen=True, auto_refresh=False, redirect_stderr=False,
                          redirect_stdout=False)
        self._live.start()
        self._draw()

    def frame(self, frame: Frame) -> None:
        picture = self._picture
        picture.frame = frame
        picture.lines.extend(picture.story.tell(frame))
        if self._now() - self._drawn >= REDRAW_SECONDS:
            self._draw()

    def finish(self, result: dict) -> None:
        self.close()
        self._console.print(summary(result))

    def close(self) -> None:
        """Gives the terminal back."""
        if self._live is not None:
            self._live.stop()
            self._live = None

    def _draw(self) -> None:
        self._drawn = self._now()
        width, height = self._console.size
        self._live.update(draw(self._picture, width, height, self._console.options.ascii_only), refresh=True)
