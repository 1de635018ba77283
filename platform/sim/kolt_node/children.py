"""Processes inside a node: the daemon, the broker and whatever else a test runs."""
import ctypes
import os
import signal
from collections.abc import Callable

import mounts

PR_SET_PDEATHSIG = 1

_libc = ctypes.CDLL(None)


class Child:
    def __init__(self, pid: int, outputs: dict[int, str]) -> None:
        self.pid = pid
        self.pidfd = os.pidfd_open(pid)
        self.outputs = outputs  # descriptor -> stream name


class Children:
    def __init__(self, report: Callable[[dict], None], watch: Callable, forget: Callable) -> None:
        self._report, self._watch, self._forget = report, watch, forget
        self._children: dict[int, Child] = {}

    def spawn(self, argv: list[str], env: dict[str, str], argv0: str | None, stdin: str, cwd: str) -> int:
        stdin_fd = os.memfd_create("stdin")
        os.write(stdin_fd, bytes.fromhex(stdin))
        os.lseek(stdin_fd, 0, os.SEEK_SET)
        out_read, out_write = os.pipe()
        err_read, err_write = os.pipe()
        pid = os.fork()
        if pid == 0:
            self._become(argv, env, argv0, (stdin_fd, out_write, err_write), cwd)
        for fd in (stdin_fd, out_write, err_write):
            os.close(fd)
        child = Child(pid, {out_read: "stdout", err_read: "stderr"})
        self._children[pid] = child
        self._report({"news": "start", "pid": pid, "argv": argv})
        for fd in child.outputs:
            os.set_blocking(fd, False)
            self._watch(fd, lambda fd=fd: self._read_output(child, fd))
        self._watch(child.pidfd, lambda: self._reap(child))
        return pid

    @staticmethod
    def _become(argv: list[str], env: dict[str, str], argv0: str | None, stdio: tuple[int, ...], cwd: str) -> None:
        """Runs in the child. It dies with the agent, whatever happens to that."""
        try:
            _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
            mounts.show_process(os.getpid())
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            signal.signal(signal.SIGPIPE, signal.SIG_DFL)
            for target, fd in enumerate(stdio):
                os.dup2(fd, target)
            os.chdir(cwd)
            os.execve(argv[0], [argv0 or argv[0], *argv[1:]], env)
        except OSError as error:
            os.write(2, f"{argv[0]}: {error.strerror}\n".encode())
        finally:
            os._exit(127)

    def _read_output(self, child: Child, fd: int) -> None:
        while True:
            try:
                data = os.read(fd, 65536)
            except BlockingIOError:
                return
            if not data:
                self._close_output(child, fd)
                return
            self._report({"news": "output", "pid": child.pid, "stream": child.outputs[fd], "data": data.hex()})

    def _close_output(self, child: Child, fd: int) -> None:
        self._forget(fd)
        os.close(fd)
        del child.outputs[fd]

    def _reap(self, child: Child) -> None:
        """Reports the exit after the output that came before it; a grandchild may still hold the pipes."""
        for fd in list(child.outputs):
            self._read_output(child, fd)
        for fd in list(child.outputs):
            self._close_output(child, fd)
        _, status, usage = os.wait4(child.pid, 0)
        self._forget(child.pidfd)
        os.close(child.pidfd)
        del self._children[child.pid]
        mounts.hide_process(child.pid)
        cpu = usage.ru_utime + usage.ru_stime
        code = os.waitstatus_to_exitcode(status)
        self._report({"news": "exit", "pid": child.pid, "status": code, "cpu": cpu})

    def signal(self, pid: int, number: int) -> None:
        child = self._children.get(pid)
        if child is None:
            raise ProcessLookupError(3, f"process {pid} is not running here")
        signal.pidfd_send_signal(child.pidfd, number)

    def kill_all(self) -> None:
        for child in self._children.values():
            signal.pidfd_send_signal(child.pidfd, signal.SIGKILL)
        for child in self._children.values():
            os.waitpid(child.pid, 0)
