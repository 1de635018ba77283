"""The model of the stream ranking that the unit tests and the benchmark use too, as the build makes it for Python."""
import ctypes
import functools
from typing import NamedTuple

from kolt_node import mac_bytes
from kolt_node.node import build_directory

STREAMS = 20  # of a client


class Record(ctypes.Structure):
    """A ranked stream; all zero is none."""
    _fields_ = [("src", ctypes.c_uint8 * 6), ("dst", ctypes.c_uint8 * 6), ("port", ctypes.c_uint32),
                ("hash", ctypes.c_uint16), ("kind", ctypes.c_uint16), ("carried", ctypes.c_uint32),
                ("bytes", ctypes.c_uint32), ("packets", ctypes.c_uint32), ("directions", ctypes.c_uint32 * 4),
                ("flow", ctypes.c_uint32), ("flags", ctypes.c_uint8 * 2), ("src_port", ctypes.c_uint16),
                ("dst_port", ctypes.c_uint16), ("reserved", ctypes.c_uint16), ("protocol", ctypes.c_uint32 * 3)]


class ClientRecord(ctypes.Structure):
    _fields_ = [("mac", ctypes.c_uint8 * 6), ("type", ctypes.c_uint32), ("relay", ctypes.c_uint8),
                ("port", ctypes.c_uint32), ("pinned", ctypes.c_uint32), ("streams", Record * STREAMS)]


assert (ctypes.sizeof(Record), ctypes.sizeof(ClientRecord)) == (72, 1464)


class RankedClient(NamedTuple):
    mac: str
    relay: bool
    pinned: int


@functools.cache
def library() -> ctypes.CDLL:
    return ctypes.CDLL(str(build_directory() / "lib/libplain-ranking.so"))


def rank(entries: list[bytes], clients: list[RankedClient], nonrelay_ports: list[int]) -> list[list[Record]]:
    """The ranked streams of each client; `entries` are those of the table, as the bridge's library has them."""
    table = ctypes.create_string_buffer(b"".join(entries), 100 * len(entries) or 1)
    records = (ClientRecord * len(clients))()
    for record, client in zip(records, clients):
        record.mac[:] = mac_bytes(client.mac)
        record.relay = client.relay
        record.pinned = client.pinned
    ports = (ctypes.c_uint32 * len(nonrelay_ports))(*nonrelay_ports)
    library().plain_rank(table, len(entries), records, len(clients), ports, len(nonrelay_ports))
    return [[stream for stream in record.streams if stream.packets] for record in records]
