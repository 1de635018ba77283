"""
Runs a program in a terminal of its own and takes steps there. The argument and what is printed are JSON. Steps:
["wait", TEXT] for a text that was not there before, ["keys", TEXT], ["resize", ROWS, COLUMNS], ["signal", NUMBER],
["stopped"] for the program to be stopped. Then the program must end by itself.
"""
import contextlib
import ctypes
import fcntl
import json
import os
import pty
import select
import signal
import struct
import sys
import termios
import time

LIMIT_SECONDS = 20.0
CLONE_NEWNS = 0x20000
TIOCGPTN, TIOCSPTLCK = 0x80045430, 0x40045431


def open_terminal() -> tuple[int, int]:
    """Both ends of a new terminal. A bare root has none, and then this process makes itself some that nobody else sees."""
    with contextlib.suppress(OSError):
        return pty.openpty()
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS) != 0 or libc.mount(b"devpts", b"/dev/pts", b"devpts", 0, b"newinstance,ptmxmode=0666") != 0:
        raise OSError(ctypes.get_errno(), "no terminal")
    master = os.open("/dev/pts/ptmx", os.O_RDWR | os.O_NOCTTY)
    fcntl.ioctl(master, TIOCSPTLCK, struct.pack("i", 0))
    (number,) = struct.unpack("i", fcntl.ioctl(master, TIOCGPTN, bytes(4)))
    return master, os.open(f"/dev/pts/{number}", os.O_RDWR | os.O_NOCTTY)


class Terminal:
    def __init__(self, what: dict) -> None:
        self.raw = b""
        self.seen = 0  # what waits have looked at
        self.master, self.slave = open_terminal()
        self.resize(what["rows"], what["columns"])
        self.before = termios.tcgetattr(self.slave)
        self.lead_session()
        self.pid = os.fork()
        if self.pid == 0:
            self.become(what)
        os.waitpid(self.pid, os.WUNTRACED)  # it stops until its group has the terminal
        os.tcsetpgrp(self.slave, self.pid)
        os.kill(self.pid, signal.SIGCONT)

    def lead_session(self) -> None:
        """As a shell does: what runs in a session without one cannot be stopped."""
        with contextlib.suppress(PermissionError):  # it leads one already
            os.setsid()
        fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
        signal.signal(signal.SIGTTOU, signal.SIG_IGN)

    def become(self, what: dict) -> None:
        os.setpgid(0, 0)
        signal.signal(signal.SIGTTOU, signal.SIG_DFL)
        os.kill(os.getpid(), signal.SIGSTOP)
        for number in range(3):
            os.dup2(self.slave, number)
        os.execve(what["argv"][0], what["argv"], {"PATH": "/usr/bin:/bin"} | what["variables"])

    def resize(self, rows: int, columns: int) -> None:
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self, seconds: float) -> bool:
        if not select.select([self.master], [], [], seconds)[0]:
            return False
        self.raw += os.read(self.master, 65536)
        return True

    def wait(self, text: str) -> None:
        until = time.monotonic() + LIMIT_SECONDS
        while (at := self.raw.find(text.encode(), self.seen)) < 0:
            if time.monotonic() > until:
                sys.exit(f"no {text!r} in {self.raw[self.seen:][-2000:]!r}")
            self.read(0.05)
        self.seen = at + len(text.encode())

    def wait_status(self, options: int) -> int:
        until = time.monotonic() + LIMIT_SECONDS
        while True:
            pid, status = os.waitpid(self.pid, options | os.WNOHANG)
            if pid:
                return status
            if time.monotonic() > until:
                os.kill(self.pid, 9)
                sys.exit(f"it does not end: {self.raw[-2000:]!r}")
            self.read(0.05)

    def take(self, step: list) -> None:
        match step[0]:
            case "wait":
                self.wait(step[1])
            case "keys":
                self.seen = len(self.raw)
                os.write(self.master, step[1].encode())
            case "resize":
                self.seen = len(self.raw)
                self.resize(step[1], step[2])
            case "signal":
                os.kill(self.pid, step[1])
            case "stopped":
                if not os.WIFSTOPPED(self.wait_status(os.WUNTRACED)):
                    sys.exit("it ended instead")
                self.restored()

    def restored(self) -> None:
        if termios.tcgetattr(self.slave) != self.before:
            sys.exit("the terminal's settings are not as before")


def main() -> None:
    what = json.loads(sys.argv[1])
    terminal = Terminal(what)
    for step in what["steps"]:
        terminal.take(step)
    status = os.waitstatus_to_exitcode(terminal.wait_status(0))
    while terminal.read(0):
        pass
    terminal.restored()
    print(json.dumps({"raw": terminal.raw.decode("utf-8", "replace"), "status": status}))


main()
