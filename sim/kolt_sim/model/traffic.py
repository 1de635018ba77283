"""The streams: who talks to whom, how much each wants, when it is active, and what it has carried."""
import numpy as np

from ..scenario.records import Scenario

DATA_PACKET = 1500.0  # bytes
ACK_PACKET = 66.0
SMALL_PACKET = 200.0
ACK_SHARE = ACK_PACKET / (2.0 * DATA_PACKET)  # bytes of acknowledgement per byte of data: one for two packets
MBIT = 1e6 / 8.0  # bytes
MOST_TOGGLES = 16  # in one tick

DOWNWARD = ("download", "video")  # towards the stream's client


class Traffic:
    """
    Columns with one row a stream. Rates are in Mbit/s. A stream's data goes towards its client ("download", "video"),
    away from it ("upload") or half each way ("small"); TCP streams have their acknowledgements the other way.
    """

    def __init__(self, scenario: Scenario) -> None:
        streams = scenario.streams
        number = {client.name: index for index, client in enumerate(scenario.clients)}
        kinds = np.array([stream.kind for stream in streams], dtype=object)
        self.count = len(streams)
        self.names = [stream.name for stream in streams]
        self.client = np.array([number[stream.client] for stream in streams], dtype=np.intp)
        self.peer = np.array([number[stream.peer] for stream in streams], dtype=np.intp)
        self.demand = np.array([stream.demand for stream in streams], dtype=float)
        self.is_udp = kinds == "small"
        self.is_down = np.isin(kinds, DOWNWARD)
        self._start = np.array([stream.start for stream in streams], dtype=float)
        self._end = np.array([np.inf if stream.end is None else stream.end for stream in streams])
        self._on = np.array([stream.on or np.inf for stream in streams])
        self._off = np.array([stream.off or np.inf for stream in streams])
        self._random = np.random.default_rng([scenario.seed, 2])
        self._talking = np.ones(self.count, dtype=bool)
        self._toggle = self._start + self._on * self._random.standard_exponential(self.count)
        self.active = np.zeros(self.count, dtype=bool)

    def update(self, time: float) -> None:
        """Who is active in the tick that begins at `time`."""
        due = np.flatnonzero(self._toggle <= time)
        for _ in range(MOST_TOGGLES):
            if due.size == 0:
                break
            self._talking[due] = ~self._talking[due]
            mean = np.where(self._talking[due], self._on[due], self._off[due])
            self._toggle[due] += mean * self._random.standard_exponential(due.size)
            due = due[self._toggle[due] <= time]
        if due.size > 0:  # pauses far shorter than a tick: what was missed makes no difference
            share = self._on[due] / (self._on[due] + self._off[due])
            self._talking[due] = self._random.random(due.size) < share
            self._toggle[due] = time
        self.active = self._talking & (self._start <= time) & (time < self._end)

    def wanted(self, towards_client: bool) -> np.ndarray:
        """What each stream would like to carry in one direction, acknowledgements included."""
        main = self.is_down == towards_client
        tcp = np.where(main, self.demand, self.demand * ACK_SHARE)
        return np.where(self.is_udp, self.demand / 2.0, tcp)

    def settle(self, towards_client: np.ndarray, from_client: np.ndarray) -> tuple[np.ndarray, ...]:
        """
        What a stream really carries when each direction could carry so much: the acknowledgements follow the data, and
        data without acknowledgements stops. Returns (towards the client, from the client, payload).
        """
        data = np.where(self.is_down, towards_client, from_client)
        back = np.where(self.is_down, from_client, towards_client)
        data = np.where((back > 0.0) | self.is_udp, data, 0.0)
        back = np.where(self.is_udp, back, np.minimum(back, data * ACK_SHARE))
        payload = np.where(self.is_udp, data + back, data)
        return np.where(self.is_down, data, back), np.where(self.is_down, back, data), payload

    def packets(self, towards_client: bool, rates: np.ndarray) -> np.ndarray:
        """Packets a second at these rates (Mbit/s) in one direction."""
        main = self.is_down == towards_client
        size = np.where(self.is_udp, SMALL_PACKET, np.where(main, DATA_PACKET, ACK_PACKET))
        return rates * MBIT / size
