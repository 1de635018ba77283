"""A record of a run that did not take place."""
from kolt_mesh.record import Expectation, LinkSeries, Record

TICKS = 40


def made_up(**changes: object) -> Record:
    """Three links, one of which is cut for a while; utilisation grows."""
    record = Record("home", "A home", "Two nodes & a <b>cable</b>.", "kolt", 1.0)
    record.time = [float(tick + 1) for tick in range(TICKS)]
    record.total = [40.0 + tick for tick in range(TICKS)]
    for name, kind in (("a-b 2.4g", "2.4g"), ("a-b 5g", "5g"), ("b-c ethernet", "ethernet")):
        lost = name == "a-b 5g"
        state = ["cut" if lost and 15 <= tick < 25 else "up" for tick in range(TICKS)]
        busy = [0.0 if one == "cut" else 60.0 + tick / 2 for tick, one in enumerate(state)]
        record.links[name] = LinkSeries(kind, 50.0, [value / 2 for value in busy], busy,
                                        [one == "up" and lost for one in state], state)
    record.events = [(15.2, "a-b 5g is cut"), (25.1, "a-b 5g is back")]
    record.figures = [("longest time without a frame", "2.4 ms")]
    record.expectations = [Expectation("no connection is lost", "none", True)]
    for name, value in changes.items():
        setattr(record, name, value)
    return record
