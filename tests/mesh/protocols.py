"""
Speaks the netlink protocols of the daemon's libraries, inside a node: run with one of
  listen PROTOCOL                          the messages of it as they come, a line each, after a line "ready"
  moved SRC DST PORT PORT PROTOCOL TYPE    that a stream now leaves by a link of this type
"""
import ctypes
import os
import socket
import struct
import sys

HEADER = struct.Struct("=IHHII")
LEARNT = 5
FDB = struct.Struct("=6sBB4xB3x")
REQUESTS, MOVED = 52, 14
STREAM = struct.Struct("=8x6s6sHHIB3x")
REQUEST = 1  # NLM_F_REQUEST
KERNEL = struct.pack("=HHII", socket.AF_NETLINK, 0, 0, 0)

library = ctypes.CDLL("libduon-bridge.so", use_errno=True)


def opened(protocol: int) -> int:
    descriptor = library.socket(socket.AF_NETLINK, socket.SOCK_RAW, protocol)
    if descriptor < 0:
        sys.exit(f"protocol {protocol}: {os.strerror(ctypes.get_errno())}")
    return descriptor


def listen(protocol: int) -> None:
    descriptor = opened(protocol)
    print("ready", flush=True)
    while message := os.read(descriptor, 8192):
        kind, payload = HEADER.unpack_from(message)[1], message[HEADER.size:]
        if kind == LEARNT:
            mac, low, _, high = FDB.unpack(payload)
            print(kind, mac.hex(":"), socket.if_indextoname(low | high << 8), flush=True)
        else:
            print(kind, payload.hex(), flush=True)


def moved(source: str, target: str, *numbers: str) -> None:
    macs = (bytes.fromhex(mac.replace(":", "")) for mac in (source, target))
    payload = STREAM.pack(*macs, *map(int, numbers))
    message = HEADER.pack(HEADER.size + len(payload), MOVED, REQUEST, 1, 0) + payload
    descriptor = opened(REQUESTS)
    if library.sendto(descriptor, message, len(message), 0, KERNEL, len(KERNEL)) != len(message):
        sys.exit(os.strerror(ctypes.get_errno()))
    length, *_, error = struct.unpack_from("=IHHIIi", os.read(descriptor, 8192))
    if error:
        sys.exit(f"{length} bytes: {os.strerror(-error)}")


match sys.argv[1]:
    case "listen":
        listen(int(sys.argv[2]))
    case "moved":
        moved(*sys.argv[2:])
