"""What a node is made of: files, interfaces, bridges with their tables, scripted failures."""
import json
from collections.abc import Iterable

from .control import Control
from .messages import radio_stats, station_info

NODE_DIR = "/run/kolt-node"
LINK_FILES = {"ethernet": "/tmp/eth_runtime_info", "plc": "/tmp/plc_runtime_info",
              "2.4g": "/tmp/wifi_runtime_info.2g", "5g": "/tmp/wifi_runtime_info.5g",
              "5g_2": "/tmp/wifi_runtime_info.5g2"}

Rules = Iterable[tuple[int, int, int]]


class State(Control):
    def write_file(self, path: str, text: str | bytes) -> None:
        """Replaces a file of the node at once; its directory is made where it is missing."""
        data = text if isinstance(text, bytes) else text.encode("utf-8", "surrogateescape")
        self.call("write", path=path, data=data.hex())

    def write_json(self, path: str, value: object) -> None:
        self.write_file(path, json.dumps(value))

    def remove_file(self, path: str) -> None:
        """Removes a file or a directory with all below it; a missing one is fine."""
        self.call("remove", path=path)

    def read_file(self, path: str) -> bytes:
        return bytes.fromhex(self.call("read", path=path))

    def list_directory(self, path: str) -> list[str]:
        return self.call("list", path=path)

    def add_interface(self, name: str, *, kind: str = "veth", index: int = 0, mac: str = "", up: bool = True) -> int:
        """Makes a network interface ("veth" or "bridge") and returns its index; `index` asks for a certain one."""
        return self.call("add_link", name=name, kind=kind, index=index, mac=mac, up=up)

    def remove_interface(self, name: str) -> None:
        self.call("remove_link", name=name)

    def set_interface_up(self, name: str, up: bool = True) -> None:
        self.call("set_link", name=name, up=up)

    def ifindex(self, name: str) -> int:
        return self.call("index_of_link", name=name)

    def set_bridge(self, name: str, ports: Iterable[str | int] = ()) -> None:
        """Makes a bridge exist, with these ports: interface names, or indexes that are reported as they are."""
        self.write_file(f"{NODE_DIR}/bridges/{name}/ports", "".join(f"{port}\n" for port in ports))

    def deactivate_bridge(self, name: str) -> None:
        """Makes the kernel forget a bridge, with its tables."""
        self.remove_file(f"{NODE_DIR}/bridges/{name}")

    def set_port_reply(self, bridge: str, reply: bytes | None = None, *, length: int | None = None) -> None:
        """Raw bytes instead of the list of ports, and a length word instead of the true one; None undoes either."""
        base = f"{NODE_DIR}/bridges/{bridge}/reply"
        self._write_or_remove(base, reply)
        self._write_or_remove(base + ".length", None if length is None else rules([(1, 0, length)]))

    def set_table(self, bridge: str, kind: str, entries: bytes | Iterable[bytes]) -> None:
        """The entries of a table: "fdb", "hd" or "ha"."""
        data = entries if isinstance(entries, bytes) else b"".join(entries)
        self.write_file(f"{NODE_DIR}/bridges/{bridge}/{kind}", data)

    def set_table_need(self, bridge: str, kind: str, *numbers: int) -> None:
        """
        How many entries the bridge says it has, one number a call and the last for good; a number over the caller's
        capacity makes the call fail. No number: as many as there are.
        """
        self._set_numbers(f"{NODE_DIR}/bridges/{bridge}/{kind}.need", numbers)

    def set_table_count(self, bridge: str, kind: str, *numbers: int) -> None:
        """Claims that many entries with success, even beyond the caller's capacity. No number undoes it."""
        self._set_numbers(f"{NODE_DIR}/bridges/{bridge}/{kind}.count", numbers)

    def set_ethernet_profile(self, names: Iterable[str], count: int | None = None) -> None:
        """The device's Ethernet interface names and, where it differs from theirs, the number of ports."""
        listed = list(names)
        self.write_file(f"{NODE_DIR}/eth-names", "".join(f"{name}\n" for name in listed))
        self.write_file(f"{NODE_DIR}/eth-ports", str(len(listed) if count is None else count))

    def fail(self, function: str, result: int = -1, *, bridge: str = "", nth: int = 0, start: int = 1,
             also: Rules = ()) -> None:
        """
        Scripts a failure, counted from now: always, the nth call only, or from call `start` on; `also` adds
        (first, last, result) with last 0 for no end. `function` is a library function, "netlink_msg:256" for one
        query type, or "socket", "bind" or "sendto" with ":39", ":52", ":53", ":0" (netlink), ":packet" or ":inet",
        whose result is an errno.
        """
        first, last = (nth, nth) if nth else (start, 0)
        name = f"{function}@{bridge}" if bridge else function
        self.write_file(f"{NODE_DIR}/fail/{name}", rules([*also, (first, last, result)]))

    def calls_counted(self, function: str, bridge: str = "") -> int:
        """How many calls have consulted a scripted failure since it was set."""
        name = f"{function}@{bridge}" if bridge else function
        return self.read_file(f"{NODE_DIR}/fail/{name}").count(b".")

    def clear_failures(self, function: str = "", bridge: str = "") -> None:
        """Undoes one scripted failure, or all."""
        name = f"{function}@{bridge}" if bridge else function
        if name:
            self.remove_file(f"{NODE_DIR}/fail/{name}")
            return
        for entry in self.list_directory(f"{NODE_DIR}/fail"):
            self.remove_file(f"{NODE_DIR}/fail/{entry}")

    def answer_requests(self, reply: bytes | None = None, *, silent: bool = False) -> None:
        """How the kernel answers on protocol 52: an acknowledgement, these bytes, or not at all."""
        if reply is None and not silent:
            self.call("answer_normally")
            return
        self.call("answer", reply=None if silent or reply is None else reply.hex())

    def set_uci(self, content: str | dict[str, str], *, package: str = "tolmux", pending: str | None = None) -> None:
        """A package of the configuration directory: its text, or options of one section that has its name."""
        if isinstance(content, dict):
            options = "".join(f"\toption {key} '{value}'\n" for key, value in content.items())
            content = f"config {package} '{package}'\n{options}"
        self.write_file(f"/etc/config/{package}", content)
        self._write_or_remove(f"/var/state/{package}", None if pending is None else pending.encode())

    def set_work_mode(self, mode: str | None, **keys: object) -> None:
        """The node's role, with keys such as cap_mac and parent_mac; None leaves the key out."""
        self.write_json("/tmp/work_mode", ({} if mode is None else {"work_mode": mode}) | keys)

    def set_link(self, link: str, status: int, **keys: object) -> None:
        """The state of a backhaul link: "ethernet", "plc", "2.4g", "5g" or "5g_2"."""
        self.write_json(LINK_FILES[link], {"status": status} | keys)

    def set_driver_files(self, ifname: str, type: str | int, stations: Iterable[dict] | str | None = None,
                         utilisation: int | str | None = None) -> None:
        """The Wi-Fi driver's files of a radio; text is written as it is, None removes the file."""
        base = f"/proc/{ifname}" if type in (2, "2.4g") else f"/proc/net/rtk_wifi6/{ifname}"
        table = station_info(stations) if stations is not None and not isinstance(stations, str) else stations
        stats = radio_stats(utilisation) if isinstance(utilisation, int) else utilisation
        self._write_or_remove(f"{base}/sta_info", None if table is None else table.encode())
        self._write_or_remove(f"{base}/stats", None if stats is None else stats.encode())

    def stop_journal(self) -> None:
        """No more lines for the rest of the node's life: a benchmark wants the calls without their cost."""
        self.remove_file(f"{NODE_DIR}/journal")

    def _write_or_remove(self, path: str, data: bytes | None) -> None:
        if data is None:
            self.remove_file(path)
        else:
            self.write_file(path, data)

    def _set_numbers(self, path: str, numbers: tuple[int, ...]) -> None:
        triples = [(call, call, number) for call, number in enumerate(numbers, 1)]
        if triples:
            triples[-1] = (len(numbers), 0, numbers[-1])
        self._write_or_remove(path, rules(triples) if triples else None)


def rules(triples: Rules) -> bytes:
    """The text of a rule file; the libraries count calls by appending to it."""
    return " ".join(f"{first} {last} {value}" for first, last, value in triples).encode() + b"\n"
