"""Small homes for the tests of the model, made without a file."""
from dataclasses import replace

from kolt_sim.scenario.records import (INTERFACES, Client, Event, Expectation, Fading, Path, Scenario, Stream)


def path(kind: str, rate: float, *, neighbours: float = 0, up: bool = True, efficiency: float = 50,
         fading: Fading = Fading()) -> Path:
    return Path(kind, INTERFACES[kind], up, rate, neighbours, efficiency, fading)


def stream(name: str, client: str, peer: str, kind: str = "download", demand: float = 10, *, start: float = 0,
           end: float | None = None, on: float | None = None, off: float | None = None) -> Stream:
    return Stream(name, client, peer, kind, demand, start, end, on, off)


def home(paths: list[Path], clients: dict[str, str], streams: list[Stream], events: list[Event] = (),
         **other: object) -> Scenario:
    """A home with these links, clients (name and place) and streams; 60 seconds, a tick a second."""
    plain = Scenario(name="home", title="A home", about="", duration=60, tick=1, seed=1, default_path="5g", cpu=20,
                     parent_known=True, settings={}, paths={one.type: one for one in paths},
                     clients=[Client(name, at) for name, at in clients.items()], streams=list(streams),
                     events=list(events), expect=Expectation(storm_without=True), notes=[])
    return replace(plain, **other)
