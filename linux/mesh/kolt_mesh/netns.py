"""
Network namespaces without names: a descriptor keeps each alive, and with the process that made it, however that ends, the
namespace goes with all links in it.
"""
import contextlib
import ctypes
import os
import socket
import subprocess
from collections.abc import Iterator, Sequence

CLONE_NEWNET = 0x40000000
OWN = "/proc/thread-self/ns/net"

_libc = ctypes.CDLL(None, use_errno=True)


class MeshError(Exception):
    """Something about the mesh went wrong, or the machine does not allow it; the text says what."""


def _check(result: int, what: str) -> None:
    if result != 0:
        error = ctypes.get_errno()
        raise MeshError(f"this machine does not allow {what}: {os.strerror(error)}")


class NetNamespace:
    def __init__(self) -> None:
        home = os.open(OWN, os.O_RDONLY | os.O_CLOEXEC)
        try:
            _check(_libc.unshare(CLONE_NEWNET), "network namespaces, which a mesh needs (they take root)")
            self.fd = os.open(OWN, os.O_RDONLY | os.O_CLOEXEC)
            _check(_libc.setns(home, CLONE_NEWNET), "going back to its own network")
        finally:
            os.close(home)

    @property
    def path(self) -> str:
        """Under which another program finds the namespace while this process lives."""
        return f"/proc/{os.getpid()}/fd/{self.fd}"

    @contextlib.contextmanager
    def entered(self) -> Iterator[None]:
        """What this thread opens or starts in here belongs to the namespace, and stays in it afterwards."""
        home = os.open(OWN, os.O_RDONLY | os.O_CLOEXEC)
        try:
            _check(_libc.setns(self.fd, CLONE_NEWNET), "entering a network namespace")
            yield
        finally:
            _libc.setns(home, CLONE_NEWNET)
            os.close(home)

    def socket(self, family: int, kind: int, protocol: int = 0) -> socket.socket:
        with self.entered():
            return socket.socket(family, kind, protocol)

    def sysctl(self, name: str, value: object) -> None:
        with self.entered(), open(f"/proc/sys/net/{name}", "w", encoding="ascii") as file:
            file.write(str(value))

    def run(self, argv: Sequence[str], text: str = "") -> str:
        """Runs a program in the namespace and returns its output; MeshError when it fails."""
        with self.entered():
            done = subprocess.run(argv, input=text, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise MeshError(f"{' '.join(argv)}: {done.stderr.strip() or done.returncode}")
        return done.stdout

    def close(self) -> None:
        if self.fd >= 0:
            os.close(self.fd)
        self.fd = -1


def batch(tool: str, namespace: NetNamespace, lines: Sequence[str]) -> None:
    """Has ip, tc or bridge do many things at once."""
    if lines:
        namespace.run([tool, "-batch", "-"], "\n".join(lines) + "\n")
