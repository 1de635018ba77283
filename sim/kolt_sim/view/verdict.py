"""What a result comes to: figures in rows, expectations, and whether all is as it should be."""
from . import words

SIDES = ("with", "without", "ideal")
HEADINGS = ("with the daemon", "without", "ideal")
# What has no meaning for the ideal placement; None counts as nothing to show.
TALLIES = (("stream moves, back", "moves", "bounces"), ("client placements, back", "placements", "client_bounces"),
           ("calm minutes, %", "calm"), ("path changes", "changes"), ("overloads", "overloads"),
           ("not relieved", "unrelieved"), ("longest relief, s", "relief"), ("storm, s", "storm_seconds"))


def has_storm(result: dict) -> bool:
    return (result["judgement"]["with"]["storm_seconds"] or 0) > 0


def failures(result: dict) -> list[dict]:
    return [one for one in result["expectations"] if not one["met"]]


def as_expected(result: dict) -> bool:
    return not failures(result) and not has_storm(result)


def verdict(result: dict) -> str:
    """In a word or two, narrow enough for a column."""
    if has_storm(result):
        return "STORM"
    missed = len(failures(result))
    return f"{missed} not met" if missed else "ok"


def headline(result: dict) -> str:
    if has_storm(result):
        return f"STORM with the daemon, {words.seconds(result['judgement']['with']['storm_seconds'])} s"
    missed = len(failures(result))
    return f"{missed} of {words.count(len(result['expectations']), 'expectation')} not met" if missed else "as expected"


def ratio_line(result: dict) -> str:
    ratios, wall = result["ratios"], result["wall_seconds"]
    return (f"goodput is {words.factor(ratios['gain'])} times that without the daemon and "
            f"{words.percent(ratios['of_ideal'])} of the ideal; took {words.seconds(wall)} s")


def figure_rows(result: dict) -> list[list[str]]:
    """A row per figure: its name, then its value with the daemon, without it, and in the ideal."""
    sides = [result["judgement"][side] for side in SIDES]
    rows = [["goodput, Mbit/s", *(words.mbit(side["goodput"]) for side in sides)],
            ["share of the demand", *(words.share(side["goodput"], side["demand"]) for side in sides)],
            ["worst client's share", *(worst_share(side) for side in sides)],
            ["worst client", *(words.clean(worst(side, "name") or words.NOTHING) for side in sides)]]
    return rows + [[title, *(", ".join(words.seconds(side[key]) for key in keys) for side in sides[:2]), words.NOTHING]
                   for title, *keys in TALLIES]


def worst(side: dict, key: str) -> object:
    """The name or share of the worst client; None where no client wanted anything."""
    return (side["worst_client"] or {}).get(key)


def worst_share(side: dict) -> str:
    return words.percent(worst(side, "share"))


def expectation_rows(result: dict) -> list[list[str]]:
    return [["met" if one["met"] else "NOT MET", one["what"], str(one["measured"])] for one in result["expectations"]]
