"""Builders for the bytes that a node's kernel and tables hold: netlink messages, table entries, wireless records."""
import struct
from collections.abc import Iterable

RTM_NEWLINK = 16
IFLA_WIRELESS = 11
IWEVEXPIRED = 0x8C04
IWEVREGISTERED = 0x8C03


def mac_bytes(mac: str | bytes) -> bytes:
    return mac if isinstance(mac, bytes) else bytes.fromhex(mac.replace(":", "").replace("-", ""))


def nlmsghdr(type: int, payload: bytes = b"", *, length: int | None = None, flags: int = 0, seq: int = 0,
             pid: int = 0) -> bytes:
    """A netlink message; `length` overrides what the header announces."""
    announced = 16 + len(payload) if length is None else length
    return struct.pack("=IHHII", announced, type, flags, seq, pid) + payload


def attribute(type: int, data: bytes, *, length: int | None = None) -> bytes:
    """A route attribute, padded to a multiple of 4."""
    announced = 4 + len(data) if length is None else length
    return struct.pack("=HH", announced, type) + data + bytes(-len(data) % 4)


def wireless_event(command: int = IWEVEXPIRED, data: bytes = bytes(20), *, length: int | None = None) -> bytes:
    """One wireless record: its 16-bit length and command, then its data."""
    announced = 4 + len(data) if length is None else length
    return struct.pack("=HH", announced, command) + data


def link_message(ifindex: int, wireless: bytes | Iterable[bytes] | None = None, *, attributes: bytes = b"",
                 type: int = RTM_NEWLINK) -> bytes:
    """A route netlink link message: `wireless` is the content of one IFLA_WIRELESS attribute, or of several."""
    body = struct.pack("=BxHiII", 0, 1, ifindex, 0, 0) + attributes
    contents = [wireless] if isinstance(wireless, bytes) else (wireless or [])
    for content in contents:
        body += attribute(IFLA_WIRELESS, content)
    return nlmsghdr(type, body)


def fdb_entry(mac: str | bytes, port: int, *, local: bool = False, ageing: int = 0) -> bytes:
    """16 bytes: a MAC learnt on a port, whose number is split into a low and a high byte."""
    return struct.pack("=6sBBIBxH", mac_bytes(mac), port & 255, int(local), ageing, port >> 8, 0)


def hd_entry(mac: str | bytes, port: int, *, second: str | bytes = bytes(6)) -> bytes:
    """24 bytes: a client pinned to a port."""
    return struct.pack("=6s6sI8x", mac_bytes(mac), mac_bytes(second), port)


def ha_entry(src: str | bytes, dst: str | bytes, port: int, *, hash: int = 0, src_port: int = 0, dst_port: int = 0,
             kind: int = 0, packets: int = 0, bytes_: int = 0, c1: int = 0, c2: int = 0, reverse_packets: int = 0,
             reverse_bytes: int = 0, carried: int = 0, flags: int = 0) -> bytes:
    """100 bytes: one stream. `packets` and `bytes_` are its counters A (offset 60) and B (offset 64)."""
    return struct.pack("=H6s6s6xHHHxxI28xIIIIIIIB11x", hash, mac_bytes(src), mac_bytes(dst), src_port, dst_port, kind,
                       port, packets, bytes_, c1, c2, reverse_packets, reverse_bytes, carried, flags)


def station_info(stations: Iterable[dict], *, active: int | None = None) -> str:
    """The Wi-Fi driver's station table. A station has mac and, where they matter, state, tx, rx, rssi."""
    rows = list(stations)
    lines = [f"-- STA info table -- (active: {len(rows) if active is None else active})"]
    for number, station in enumerate(rows, 1):
        lines += [
            f" {number}: stat_info...",
            f"    state: {station.get('state', 1)}",
            "    ft_state: 0",
            f"    hwaddr: {mac_bytes(station['mac']).hex()}",
            f"    rssi: {station.get('rssi', 40)}",
            f"    current_tx_rate: HE_SS2_MCS9 {station.get('tx', 600)}",
            f"    current_rx_rate: HE_SS2_MCS9 {station.get('rx', station.get('tx', 600))}",
        ]
    return "\n".join(lines) + "\n"


def radio_stats(utilisation: int) -> str:
    """The Wi-Fi driver's statistics file."""
    return f"  up_time: 86400\n  ch_utilization: {utilisation}\n"
