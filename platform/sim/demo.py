#!/usr/bin/python3
"""
Shows the daemon at its two jobs: a sample range extender, what the daemon is told, and what it then programs.
"""
import os
import sys
from pathlib import Path

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))

import demo_paths  # noqa: E402
from kolt_node import IWEVEXPIRED, Node, sample, wireless_event  # noqa: E402
from kolt_node.command import run_command  # noqa: E402
from kolt_node.control import ROOT  # noqa: E402
from kolt_node.node import INSTALLED, build_directory, check_build  # noqa: E402

# What a port is programmed with, by library call: the column's title and the argument that is shown.
COLUMNS = {"bridgeSetIFType": ("type", "type"), "bridgeSetIFCompat": ("compat", "compat_group"),
           "bridgeSetIFGroup": ("relay", "group"), "bridgeSetIFClass": ("class", "bcast_class"),
           "bridgeSetIFPath": ("path", "path"), "bridgeSetNeedha": ("needha", "needha"),
           "bridgeSetIFBroadcast": ("broadcast", "allow")}
if INSTALLED:
    DOCUMENTS = ROOT.parents[1] / "share/doc/kolt"
    GLOSSARY, CONFIGURATION = f"{DOCUMENTS}/glossary.md", f"{DOCUMENTS}/examples/kolt.json"
    NODE, EVENING = "kolt-node", "kolt-sim run evening-streaming --report page.html"
else:
    GLOSSARY, CONFIGURATION = "docs/glossary.md", "packaging/kolt.json"
    NODE, EVENING = "platform/sim/kolt-node", "scripts/simulate"
LEGEND = f"""
How to read the tables; {GLOSSARY} has all words.

  type       what the port is the end of: a cable, power line, or a radio of that band
  compat     its compatibility group: which ports belong together, as the configuration says
  relay      yes: it always carries broadcast; no: a nonrelay port, and of those of one class a single one does
  class      which network's broadcast: 0 the home's, 1 the guests'
  path       yes: a backhaul link, on which clients and streams can be placed
  needha     need-HA. yes: the bridge keeps an entry for each stream, so that streams can be moved one by one
  broadcast  yes: it carries broadcast now
  *          this has changed

  bridge mode 0 is that of a range extender (work mode RE), 1 that of every other work mode (FAP, AP, HAP).
  A couple is a backhaul interface and its partner in the guests' network: one link that carries both.
  Stream placement is the HA table: by which port each stream leaves. Forgotten, streams are placed anew."""
TRY_NEXT = f"""
Try next: {NODE}, this node for as long as you like, with events that you type;
          {EVENING},
          an evening in a modelled home that reacts to the daemon, and a page of plots."""
TYPES = ["ethernet", "plc", "2.4g", "5g", "5g_2"]
FLUSHES = {"bridgeFlushHATable": "stream placement forgotten",
           "bridgeDelFdbByName": "forwarding entries forgotten:"}


class Programmed:
    """What the bridges are programmed with, followed through the journal of library calls."""

    def __init__(self, node: Node) -> None:
        self.node = node
        self.ports: dict[tuple[str, str], dict[str, int]] = {}
        self.mark = node.mark()

    def catch_up(self) -> tuple[list[dict], set[tuple[str, str, str]]]:
        """Takes in the calls since the last time; returns them, and which cells of the table they changed."""
        calls, changed = self.node.journal(self.mark), set()
        self.mark = self.node.mark()
        for entry in calls:
            if entry["call"] not in COLUMNS:
                continue
            title, argument = COLUMNS[entry["call"]]
            port = (entry["args"]["bridge"], entry["args"]["ifname"])
            cells = self.ports.setdefault(port, {})
            value = entry["args"][argument]
            if cells.get(title) != value:
                changed.add((*port, title))
            cells[title] = value
        return calls, changed

    def table(self, changed: set[tuple[str, str, str]]) -> list[str]:
        """The changed ports, a row each, the changed cells marked where a port had others before."""
        titles = [title for title, _ in COLUMNS.values()]
        rows = [["bridge", "port", *titles]]
        for (bridge, port), cells in self.ports.items():
            marks = {title for title in titles if (bridge, port, title) in changed}
            if marks:
                new = len(marks) == len(titles)
                rows.append([bridge, port, *(cell(title, cells) + ("*" if title in marks and not new else "")
                                             for title in titles)])
        widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
        return ["  " + "  ".join(word.ljust(width) for word, width in zip(row, widths)).rstrip() for row in rows]


def cell(title: str, cells: dict[str, int]) -> str:
    value = cells.get(title)
    if value is None:
        return "-"
    if title == "type":
        return TYPES[value]
    return str(value) if title in ("compat", "class") else ("yes" if value else "no")


def show(programmed: Programmed, title: str, told: str) -> None:
    """Prints one step: what happened to the node, what the daemon did, and which ports are now programmed otherwise."""
    calls, changed = programmed.catch_up()
    print(f"\n=== {title}\n    {told}\n")
    spent = (calls[-1]["time"] - calls[0]["time"]) / 1e6 if calls else 0.0
    print(f"  {len(calls)} calls to the platform libraries in {spent:.1f} ms")
    for entry in calls:
        arguments = entry["args"]
        if entry["call"] == "bridgeSetBridgeMode":
            print(f"  {arguments['bridge']}: bridge mode {arguments['mode']}")
        if entry["call"] == "bridgeSetCouple":
            print(f"  {arguments['bridge']}: {arguments['ifname']} is coupled with {arguments['couple']}")
        if entry["call"] in FLUSHES:
            print(f"  {arguments['bridge']}: {FLUSHES[entry['call']]} {arguments.get('ifname', '')}".rstrip())
    if changed:
        print("\n".join(programmed.table(changed)))


def describe(indexes: dict[str, int]) -> None:
    print("A range extender on a simulated node: real interfaces in namespaces of its own, the platform libraries and")
    print("the kernel's netlink protocols stood in for, everything else as on a device.\n")
    print(f"  br-lan    {' '.join(sample.PORTS)}")
    print(f"  br-guest  {' '.join(sample.GUEST_PORTS)}")
    print("  links up  power line, 2.4 GHz, 5 GHz, second 5 GHz; the Ethernet link is down")
    print(f"  {len(indexes)} interfaces, work mode RE, configuration {CONFIGURATION}")
    print(LEGEND)


def story(node: Node) -> None:
    programmed = Programmed(node)
    node.start_daemon(sample.config(period=3600))
    show(programmed, "Start", "kolt -c /etc/kolt.json: every loop-avoiding bridge is programmed for mode RE.")

    node.set_link("5g_2", 0)
    node.event("kolt.link_state", {"LINK_WIFI_5G_2": 0})
    show(programmed, "The second 5 GHz link goes down",
         'event kolt.link_state {"LINK_WIFI_5G_2": 0}: broadcast moves to the next best nonrelay port; the flush comes\n'
         "    after a pause of one second in which the bridge settles.")

    node.set_link("ethernet", 1)
    node.set_uci({"TrafficPlcRoot": "0", "TrafficEthActive": "1", "TrafficEthInterface": "eth0", "eth_HasNeigh": "1"})
    node.event("kolt.link_state", {"LINK_ETH": 1})
    show(programmed, "The Ethernet backhaul comes up",
         'event kolt.link_state {"LINK_ETH": 1}: the bridges are programmed anew, eth0 is now nonrelay and carries broadcast.')

    node.event("kolt.configure", {"mode": "HAP"})
    show(programmed, "The node becomes a HAP", 'event kolt.configure {"mode": "HAP"}')

    node.send_bridge_event(6)
    node.wait_idle()
    show(programmed, "The bridge reports a change", "bridge event 6: mode RE is read again from the runtime file.")

    node.send_link_notification("wlan0-b", wireless_event(IWEVEXPIRED))
    node.wait_idle()
    show(programmed, "An extender further down went away",
         "link notification of wlan0-b, whose VLAN interface wlan0-b.1 is a relaying backhaul path.")


def end(node: Node) -> int:
    """Ends the daemon and prints what it had to say, without the lines that a period repeats."""
    status = node.stop_daemon()
    print(f"\n=== SIGTERM\n\n  The daemon ended with status {status}.")
    return status


def main() -> int:
    check_build(build_directory())
    with Node() as node:
        indexes = sample.set_up(node)
        describe(indexes)
        node.start_broker()
        story(node)
        first = end(node)
        print("  Its log:")
        for record in node.log():
            print(f"    {record.function}: {record.level}: {record.text.strip()}")
        demo_paths.story(node, indexes)
        status = first or end(node)
        print(TRY_NEXT)
        return status


if __name__ == "__main__":
    sys.exit(run_command(Path(sys.argv[0]).stem, main))
