"""One run of a scenario: the daemon on a modelled node, beside the same home without it and the ideal placement."""
import time as wall
from pathlib import Path
from typing import Protocol

import numpy as np

from kolt_node import Node, sample
from kolt_node.clock import SimulatedClock
from kolt_node.control import NodeError
from kolt_node.node import build_directory

from .. import beside, judge
from ..model.ideal import broken
from ..model.world import UPLINK, World
from ..record import RESULT_FORMAT, Frame, PathFrame, Recorder
from ..scenario.records import Scenario
from .follow import Follower, Reaction
from .messenger import Messenger
from .publish import Publisher


class View(Protocol):
    """What is shown while a run goes on."""

    def start(self, scenario: Scenario) -> None: ...
    def frame(self, frame: Frame) -> None: ...


def run(scenario: Scenario, view: View, build: Path | None = None, speed: float = 0.0) -> dict:
    """
    Runs the scenario with the daemon of a build directory and returns the result. `speed` is how many simulated seconds
    a real one may hold at most; 0 for as many as it can. NodeError when this machine cannot run a node, or when the
    daemon ended.
    """
    began = wall.monotonic()
    where = Path(build) if build else build_directory()
    if not where.is_dir():
        raise NodeError(f"{where} is no build directory")
    with Node(where) as node:
        result = _Run(scenario, node, speed).whole(view)
    result["wall_seconds"] = round(wall.monotonic() - began, 2)
    return result


class _Run:
    """One run: the worlds with and without the daemon, the node, and what has come of them so far."""

    def __init__(self, scenario: Scenario, node: Node, speed: float) -> None:
        self.scenario, self.node, self.speed = scenario, node, speed
        self.world, self.plain = World(scenario), World(scenario)
        self.config = sample.config(**scenario.settings)
        self.period = float(self.config["param"]["period"])
        clients = len(scenario.clients)
        self.ledgers = {name: judge.Ledger.empty(clients, scenario.tick) for name in ("with", "without", "ideal")}
        self.beside = beside.Beside(self.plain)
        self.recorder = Recorder()
        self.quotas: dict[str, float] = {}
        self.happened = self.world.begin(0.0)
        self.plain.begin(0.0)
        self.publisher = Publisher(node, self.world, self.period)
        self.follower = Follower(node, self.world, self.publisher.tables)
        self.messenger = Messenger(node, self.world, self.publisher.tables)
        self.clock = self._start_daemon()
        self.origin = self.clock.now

    def whole(self, view: View) -> dict:
        scenario, happened = self.scenario, self.happened
        view.start(scenario)
        began = wall.monotonic()
        for number in range(round(scenario.duration / scenario.tick)):
            time = round(number * scenario.tick, 9)
            if number > 0:
                happened = self._next_moment(time)
            reaction = self.follower.follow(time)
            self.world.flow(scenario.tick)
            self.plain.flow(scenario.tick)
            frame = self._frame(time, reaction, [one.text for one in happened])
            self.recorder.add(frame)
            view.frame(frame)
            self._keep_pace(began, time)
        status = self.node.stop_daemon()
        if status != 0:
            raise NodeError(f"the daemon ended with status {status}\n{self.node.stderr()[-2000:]}")
        return self._result()

    def _start_daemon(self) -> SimulatedClock:
        self.node.use_simulated_clock()
        self.node.start_broker()
        self.node.start_daemon(self.config, ready=False)
        clock = SimulatedClock(self.node)
        clock.attach()
        return clock

    def _next_moment(self, time: float) -> list:
        """The tick before is over: the node shows what it brought, and the daemon reacts to that and to the events."""
        happened = self.world.begin(time)
        self.plain.begin(time)
        if any(one.kind == "link" for one in happened):
            self.publisher.publish_links()
        self.publisher.publish(self.scenario.tick)
        self.clock.advance(self.origin + time)
        if self.messenger.tell(happened):
            self.clock.settle()
        return happened

    def _keep_pace(self, began: float, time: float) -> None:
        if self.speed > 0:
            ahead = began + (time + self.scenario.tick) / self.speed - wall.monotonic()
            if ahead > 0:
                wall.sleep(ahead)

    def _frame(self, time: float, reaction: Reaction, events: list[str]) -> Frame:
        world, plain = self.world, self.plain
        if reaction.quotas is not None:
            self.quotas = reaction.quotas
        ideal = world.ideal(self._forbidden(), world.learnt_path())
        storm, storm_without = world.storm(), plain.storm()
        runs = {"with": (world.payload, storm), "without": (plain.payload, storm_without), "ideal": (ideal, [])}
        for name, (payload, loop) in runs.items():
            self.ledgers[name].add(time, world.traffic.client, world.wanted, payload, float(ideal.sum()), bool(loop))
        self.beside.add(float(ideal.sum()), bool(storm_without))
        return Frame(time=time, paths=self._paths(), demand=float(world.wanted.sum()),
                     goodput=float(world.payload.sum()), without=float(plain.payload.sum()), ideal=float(ideal.sum()),
                     moves=reaction.moves, placements=reaction.placements, events=events, storm=storm,
                     storm_without=storm_without)

    def _forbidden(self) -> frozenset[str]:
        """Links that the daemon leaves alone: 2.4 GHz while the processor is over its threshold, and broken ones."""
        param, world = self.config["param"], self.world
        busy = frozenset({"2.4g"} if 0 < param["cpu_threshold"] < world.load else ())
        if not param["wifi_rate_check"]:
            return busy
        return busy | broken(world.links, param["rate_abnormal_threshold"])

    def _paths(self) -> list[PathFrame]:
        world, bridge = self.world, self.world.bridge
        flooding = world.broadcast_ports()
        far = np.array([world.place[name] == UPLINK for name in world.clients], dtype=bool)
        frames = []
        for index, link in enumerate(world.links):
            data = np.where(world.traffic.is_down == world.client_far, bridge.out, bridge.back)
            mine = world.crossing & (data == index)
            frames.append(PathFrame(
                name=link.name, type=link.type, up=link.up, rate=link.rate, neighbours=link.neighbours,
                utilisation=float(world.busy[index]), quota=self.quotas.get(link.name),
                goodput=float(world.payload[mine].sum()), streams=int(mine.sum()),
                clients=int((far & (bridge.hd == index)).sum()), broadcast=link.name in flooding))
        return frames

    def _result(self) -> dict:
        scenario, moves = self.scenario, self.recorder.moves
        names = self.world.clients
        judgement = {name: ledger.figures(names, scenario.duration) for name, ledger in self.ledgers.items()}
        judgement["with"] = self.ledgers["with"].figures(names, scenario.duration, moves, self.recorder.placements)
        for name, changes in (("with", self.world.changes), ("without", self.plain.changes), ("ideal", 0)):
            judgement[name]["changes"] = changes
        judgement |= self.beside.judgement()
        series = self.recorder.series()
        series["total"] |= self.beside.series()
        members = ("name", "title", "about", "duration", "tick", "seed", "settings", "notes")
        about = {key: getattr(scenario, key) for key in members}
        param = self.config["param"]
        return {
            "format": RESULT_FORMAT,
            "scenario": about | {"period": self.period, "high_threshold": param["high_threshold"],
                                 "default_path": scenario.default_path},
            "series": series,
            "moves": [vars(move) for move in moves],
            "placements": [vars(placement) for placement in self.recorder.placements],
            "events": self.recorder.events,
            "judgement": judgement,
            "ratios": judge.ratios(judgement) | beside.ratios(judgement),
            "expectations": judge.check(scenario.expect, judgement, moves),
        }
