"""kolt-sim on made-up runs in a terminal of its own, as a person would use it."""
import contextlib
import ctypes
import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
from collections.abc import Sequence
from pathlib import Path
from typing import Self

from kolt_node.mounts import MS_PRIVATE, MS_REC, mount

COMMAND = ["/usr/bin/python3", str(Path(__file__).resolve().parent / "fake_run.py")]
LIMIT_SECONDS = 120.0  # far more than a busy machine needs; nothing takes as long unless it hangs
CLONE_NEWNS = 0x20000
COLOURS = re.compile(r"\x1b\[[\d;]*m")


def environment(**other: str) -> dict[str, str]:
    """Nothing of the caller's, which may steer colours, sizes or buffers."""
    return {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TERM": "xterm-256color", "LC_ALL": "C.UTF-8"} | other


def write_scenario(directory: Path, name: str = "home", **changes: object) -> Path:
    """A small scenario as a file; its seed chooses what a made-up run comes to."""
    whole = {"title": "A small home", "about": "Two links, one film.", "duration": 60,
             "paths": {"5g": {"rate": 866}, "5g_2": {"rate": 1201}},
             "clients": [{"name": "gateway", "at": "uplink"}, {"name": "tv", "at": "eth1"}],
             "streams": [{"name": "film", "client": "tv", "peer": "gateway", "kind": "video", "demand": 40}],
             "expect": {"storm_without": True}}
    path = directory / f"{name}.json"
    path.write_text(json.dumps(whole | changes))
    return path


def open_terminal() -> tuple[int, int]:
    """Both ends of a new terminal. A bare root has none, and then this process makes itself some that nobody else sees."""
    try:
        return pty.openpty()
    except OSError:
        if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNS) != 0:
            raise
        mount("none", "/", None, MS_REC | MS_PRIVATE)
        mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666")
        return pty.openpty()


class Terminal:
    """Use as a context manager. `raw` is all that was written so far, `text` the same without colours."""

    def __init__(self, arguments: Sequence[str], width: int = 80, height: int = 24, **variables: str) -> None:
        self.raw = ""
        self._master, slave = open_terminal()
        self.resize(width, height)
        self.process = subprocess.Popen([*COMMAND, *arguments], stdin=slave, stdout=slave, stderr=slave,
                                        env=environment(**variables), start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        os.close(self._master)

    @property
    def text(self) -> str:
        return COLOURS.sub("", self.raw)

    def resize(self, width: int, height: int) -> None:
        fcntl.ioctl(self._master, termios.TIOCSWINSZ, struct.pack("HHHH", height, width, 0, 0))

    def interrupt(self) -> None:
        """What Ctrl-C does: the line discipline signals everything in the foreground."""
        os.write(self._master, b"\x03")

    def wait_for(self, words: str) -> None:
        """Reads on until words appear that were not read before."""
        start = len(self.text)
        deadline = time.monotonic() + LIMIT_SECONDS
        while words not in self.text[start:]:
            assert self._read(deadline), f"no {words!r} but {self.text[start:][-2000:]}"

    def end(self) -> int:
        """Reads to the end and returns the exit status."""
        deadline = time.monotonic() + LIMIT_SECONDS
        while self._read(deadline):
            pass
        return self.process.wait(max(0.1, deadline - time.monotonic()))

    def _read(self, deadline: float) -> bool:
        """Takes in what there is; False at the end, or when the time is up."""
        if not select.select([self._master], [], [], max(0.0, deadline - time.monotonic()))[0]:
            return False
        try:
            data = os.read(self._master, 65536)
        except OSError:  # the other side has closed it
            return False
        self.raw += data.decode("utf-8", "replace")
        return bool(data)
