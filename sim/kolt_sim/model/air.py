"""The backhaul links as they change over time: PHY rate, neighbours' air time, what is left to carry traffic."""
import math

import numpy as np

from ..scenario.records import WIFI, Fading, Path

NOISE_MEMORY = 0.8  # how much of a tick's noise is still there in the next
FULL = 100.0


class Ramp:
    """A figure that moves steadily from one value to another between two moments."""

    def __init__(self, value: float) -> None:
        self._origin = self._target = value
        self._start = self._end = 0.0

    def set(self, time: float, target: float, over: float) -> None:
        """From now on towards `target`, to be reached after `over` seconds."""
        self._origin = self.at(time)
        self._start, self._end, self._target = time, time + over, target

    def at(self, time: float) -> float:
        if time >= self._end:
            return self._target
        share = (time - self._start) / (self._end - self._start)
        return self._origin + share * (self._target - self._origin)


class Link:
    """
    One backhaul link. `capacity` is what its streams may carry together (Mbit/s, both directions), `rate` what the
    driver reports, `neighbours` the air time that others take (percent; 0 for a wired link).
    """

    def __init__(self, path: Path, seed: int) -> None:
        self.type, self.name, self.up = path.type, path.name, path.up
        self.is_wifi = path.type in WIFI
        self.efficiency = path.efficiency / FULL if self.is_wifi else 1.0
        self.fading = path.fading
        self._base = Ramp(path.rate)
        self._neighbours = Ramp(path.neighbours)
        self._random = np.random.default_rng([seed, *path.type.encode()])
        self._phase = self._random.uniform(0.0, 2.0 * math.pi)
        self._noise = 0.0
        self.rate = path.rate
        self.neighbours = path.neighbours

    def set_rate(self, time: float, rate: float, over: float) -> None:
        self._base.set(time, rate, over)

    def set_neighbours(self, time: float, percent: float, over: float) -> None:
        self._neighbours.set(time, percent, over)

    def update(self, time: float) -> None:
        """The rate and the neighbours of the tick that begins at `time`."""
        self.neighbours = self._neighbours.at(time)
        self.rate = max(1.0, self._base.at(time) * self._fade(self.fading, time))

    def _fade(self, fading: Fading, time: float) -> float:
        wave = 0.5 - 0.5 * math.cos(2.0 * math.pi * time / fading.period + self._phase)
        fresh = math.sqrt(1.0 - NOISE_MEMORY ** 2) * self._random.standard_normal()
        self._noise = NOISE_MEMORY * self._noise + fresh
        return (1.0 - fading.depth / FULL * wave) * max(0.05, 1.0 + fading.noise / FULL * self._noise)

    @property
    def capacity(self) -> float:
        """What all streams of the link may carry together, Mbit/s; 0 while it is down."""
        if not self.up:
            return 0.0
        return self.rate * self.efficiency * (1.0 - self.neighbours / FULL)

    def utilisation(self, carried: float) -> float:
        """Percent of the air time (of the wire) that is taken when the streams carry so much (Mbit/s)."""
        if not self.up:
            return 0.0
        return min(FULL, self.neighbours + FULL * carried / (self.rate * self.efficiency))


def share_fairly(demands: np.ndarray, capacity: float) -> np.ndarray:
    """
    Max-min fair shares of a capacity: nobody gets more than the demand, and who gets less than that gets as much as
    anybody. The result is in the order of the demands.
    """
    if demands.size == 0 or demands.sum() <= capacity:
        return demands
    ordered = np.sort(demands)
    before = np.concatenate(([0.0], np.cumsum(ordered)[:-1]))
    left = np.arange(ordered.size, 0, -1)
    levels = (capacity - before) / left  # the share of each if all smaller demands are met in full
    unmet = ordered > levels
    if not unmet.any():  # the sum was over the capacity by rounding alone
        return demands
    return np.minimum(demands, max(0.0, levels[int(np.argmax(unmet))]))
