"""What the figures of a mesh are held against. Each part is judged by what was measured of it; what was not has no limit."""
from telling import Limit

TIMES_THE_TREE = {2: 1.9, 3: 2.9}  # links to times the spanning tree's throughput, with the fewest streams
UNEVEN = 3  # periods in a row
OUTAGES = {"cut": ("carrier loss", 0.005), "silence": ("silent loss", 0.4)}  # seconds, median
FORWARDING = {"64 bytes forwarded, tcx, ours": 0.90, "1500 bytes forwarded, tcx, ours": 0.97}
RATE_UNIT = "of the plain bridge's rate"
STREAMS, PERIOD_MS = 5000, 2.0  # what so many of them may add to a period
PRIVATE_KIB = 2048
COUNTED = 0.001


def of(data: dict) -> list[Limit]:
    """Of all parts that are in `data`, the figures as they are written to a file."""
    return [limit for judge in (throughput, spread, outages, copies, moves, forwarding, streams) for limit in judge(data)]


def at_least(what: str, value: float, limit: float, unit: str = "") -> Limit:
    return Limit(what, f"{value:.2f}{unit}", f">= {limit:g}{unit}", value >= limit)


def none_of(what: str, count: int) -> Limit:
    return Limit(what, str(count), "0", count == 0)


def throughput(data: dict) -> list[Limit]:
    rows = data.get("throughput", [])
    fewest = min((row["streams"] for row in rows), default=0)
    rates = {(row["links"], row["with"]): row["mbit"] for row in rows if row["streams"] == fewest}
    return [at_least(f"{links} links, {fewest} streams, to the spanning tree",
                     rates[links, "kolt"] / rates[links, "stp-tuned"], times, " times")
            for links, times in TIMES_THE_TREE.items() if (links, "kolt") in rates]


def spread(data: dict) -> list[Limit]:
    return [Limit(f"a link idles beside a hot one, {row['links']} links, {row['streams']} streams", f"{row['uneven']} periods",
                  f"<= {UNEVEN} periods", row["uneven"] <= UNEVEN) for row in data.get("spread", [])]


def outages(data: dict) -> list[Limit]:
    limits = []
    for row in data.get("outage", []):
        if row["with"] != "kolt":
            continue
        name, most = OUTAGES[row["way"]]
        limits += [Limit(f"{name}, median", f"{1000 * row['median']:.1f} ms", f"<= {1000 * most:g} ms", row["median"] <= most),
                   none_of(f"{name}, streams stopped for good", row["for good"]),
                   none_of(f"{name}, frames twice", row["duplicates"])]
    return limits


def copies(data: dict) -> list[Limit]:
    return [Limit(f"copies of a broadcast, {row['topology']}", f"{row['fewest']} to {row['most']}, {row['circled']} circled", "1",
                  (row["fewest"], row["most"], row["circled"]) == (1, 1, 0))
            for row in data.get("copies", []) if row["with"] == "kolt"]


def moves(data: dict) -> list[Limit]:
    return [none_of(f"broadcasts twice or circled, its link's {row['what']}", row["duplicates"] + row["circled"])
            for row in data.get("moves", []) if row["with"] == "kolt"]


def forwarding(data: dict) -> list[Limit]:
    return [at_least(row["name"], row["value"], FORWARDING[row["name"]])
            for row in data.get("forwarding", []) if row["unit"] == RATE_UNIT and row["name"] in FORWARDING]


def streams(data: dict) -> list[Limit]:
    found = data.get("streams")
    if not found:
        return []
    kib, counted = found["private_kib"], found["counted"]
    limits = [Limit("kolt-bridged's private memory", f"{kib} KiB", f"< {PRIVATE_KIB} KiB", kib < PRIVATE_KIB),
              Limit("bytes counted to bytes carried", f"{counted:.5f}", f"1 +- {COUNTED:g}", abs(counted - 1) <= COUNTED)]
    for load in found["loads"]:
        if load["streams"] == STREAMS:
            added = 1000 * (load["kolt"] - found["idle_kolt"])
            limits.append(Limit(f"a period with {STREAMS:,} streams more than without", f"{added:.1f} ms", f"<= {PERIOD_MS:g} ms",
                                added <= PERIOD_MS))
    return limits
