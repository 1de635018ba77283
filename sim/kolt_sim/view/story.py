"""What happens in a run, in words, and the tallies that a view shows beside it."""
from collections import deque
from collections.abc import Iterator
from dataclasses import dataclass

from ..record import Frame
from . import words

MINUTE = 60.0


@dataclass(frozen=True)
class Line:
    """One thing that happened. `kind` is event, storm, place or move."""
    time: float
    kind: str
    text: str


class Story:
    """Follows the frames of one run. `every_move` gives each move a line of its own, however many there are."""

    def __init__(self, tick: float, *, every_move: bool) -> None:
        self.moves = 0
        self.placements = 0
        self.storm_seconds = {"with": 0.0, "without": 0.0}
        self._tick, self._every_move = tick, every_move
        self._loops: dict[str, list[str]] = {"with": [], "without": []}
        self._since = {"with": 0.0, "without": 0.0}
        self._recent: deque[float] = deque()
        self._now = 0.0

    @property
    def moves_last_minute(self) -> int:
        return len(self._recent)

    def tell(self, frame: Frame) -> list[Line]:
        """Takes a frame in and returns what is to be said about it."""
        self._count(frame)
        storms = [*self._storm("with", frame.storm, "STORM"),
                  *self._storm("without", frame.storm_without, "without the daemon")]
        moves = [words.move_sentence(move) for move in frame.moves] if self._every_move \
            else words.move_sentences(frame.moves)
        told = {"event": map(words.clean, frame.events), "storm": storms,
                "place": words.placement_sentences(frame.placements), "move": moves}
        return [Line(frame.time, kind, text) for kind, texts in told.items() for text in texts]

    def _count(self, frame: Frame) -> None:
        self._now = frame.time
        self.moves += len(frame.moves)
        self.placements += len(frame.placements)
        self._recent.extend(frame.time for _ in frame.moves)
        while self._recent and self._recent[0] <= frame.time - MINUTE:
            self._recent.popleft()

    def _storm(self, which: str, ports: list[str], word: str) -> Iterator[str]:
        """The beginning, a change and the end of a storm, with the daemon or without."""
        before, self._loops[which] = self._loops[which], list(ports)
        if ports:
            self.storm_seconds[which] += self._tick
        if not before:
            self._since[which] = self._now
        if ports and ports != before:
            yield f"{word}: {words.loop(ports)}"
        if before and not ports:
            yield f"{word}: over after {words.seconds(self._now - self._since[which])} s"
