"""
Calls libduon-bridge as kolt does, inside a node: run with the bridge's name and one of
  hd             the placed clients, and the ports by their MACs
  place MAC PORT a client on a port
  read TIMES     the table of streams, and the times that reading it took
  point A B      every stream on A is put on B and the other way round, and the time that took
  targets        the ports of the streams, by their source ports
Prints a JSON object. Times in seconds.
"""
import ctypes
import json
import socket
import struct
import sys
import time
from pathlib import Path

HD, HA = 1, 8
CAPACITY, WIDEST = 16384, 100
CLIENT = struct.Struct("=6s6sI8x")
STREAM = struct.Struct("=H6s6s6xHHH2xI28x8xII8xIB11x")
OTHER_DIRECTION = 0x10
assert STREAM.size == WIDEST and CLIENT.size == 24

bridge = sys.argv[1].encode()
library = ctypes.CDLL("libduon-bridge.so")
library.bridgeAllocTableBuf.restype = ctypes.c_void_p
buffer = library.bridgeAllocTableBuf(ctypes.c_uint32(CAPACITY * WIDEST), bridge)


def read(code: int) -> tuple[int, float]:
    entries = ctypes.c_uint32(CAPACITY)
    began = time.perf_counter()
    failed = library.bridgeTableAction(bridge, code, ctypes.byref(entries), ctypes.c_void_p(buffer), 0)
    took = time.perf_counter() - began
    if failed:
        sys.exit(f"bridgeTableAction: {failed}, {entries.value} entries")
    return entries.value, took


def streams() -> list[tuple]:
    count, _ = read(HA)
    found = STREAM.iter_unpack(ctypes.string_at(buffer, count * WIDEST))
    return [one[:-1] for one in found if not one[-1] & OTHER_DIRECTION]


def point(one: str, other: str) -> dict:
    index = {socket.if_nametoindex(one): other.encode(), socket.if_nametoindex(other): one.encode()}
    calls = [(ctypes.c_uint16(key), src, dst, ctypes.c_uint16(source), ctypes.c_uint16(target), index[port],
              ctypes.c_uint16(kind), ctypes.c_uint32(value))
             for key, src, dst, source, target, kind, port, _, _, value in streams() if port in index]
    began = time.perf_counter()
    failed = sum(library.bridgeSetHATableEntries(bridge, *call) != 0 for call in calls)
    return {"streams": len(calls), "failed": failed, "seconds": time.perf_counter() - began}


def clients() -> dict:
    count, _ = read(HD)
    found = CLIENT.iter_unpack(ctypes.string_at(buffer, count * CLIENT.size))
    return {"clients": count, "ports": {mac.hex(":"): socket.if_indextoname(port) for mac, _, port in found}}


def place(mac: str, port: str) -> dict:
    own = Path(f"/sys/class/net/{sys.argv[1]}/address").read_text(encoding="ascii")
    macs = (bytes.fromhex(one.strip().replace(":", "")) for one in (mac, own))
    return {"failed": library.bridgeAddHDTableEntries(bridge, *macs, port.encode(), port.encode(), 0)}


match sys.argv[2]:
    case "hd":
        told = clients()
    case "place":
        told = place(*sys.argv[3:])
    case "targets":
        told = {str(source): socket.if_indextoname(port) for _, _, _, source, _, _, port, *_ in streams()}
    case "read":
        times = sorted(read(HA)[1] for _ in range(int(sys.argv[3])))
        now = streams()
        told = {"streams": len(now), "seconds": times[len(times) // 2], "packets": sum(one[7] for one in now),
                "bytes": sum(one[8] for one in now)}
    case "point":
        told = point(*sys.argv[3:])
print(json.dumps(told))
