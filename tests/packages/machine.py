"""A machine of its own in namespaces: a root file system whose systemd runs as its first process."""
import contextlib
import os
import subprocess
import time
from pathlib import Path

START_TIMEOUT = 180.0
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}

# Its control groups are below one of ours: the first process may do there what it likes.
JOIN = """
mount --make-rprivate /
mkdir -p "$1/mnt/groups"
mount -t cgroup2 none "$1/mnt/groups"
mkdir -p "$1/mnt/groups/$2"
echo $$ >"$1/mnt/groups/$2/cgroup.procs"
exec unshare --cgroup --mount --net --uts --ipc --pid --fork --kill-child sh -euc "$3" sh "$1"
"""
BOOT = """
umount "$1/mnt/groups"
mount --bind "$1" "$1"
mount -t proc proc "$1/proc"
mount -t sysfs -o ro sysfs "$1/sys"
mount -t cgroup2 none "$1/sys/fs/cgroup"
mount -t bpf bpf "$1/sys/fs/bpf"
mount -t tmpfs -o mode=755 tmpfs "$1/run"
mount -t tmpfs -o mode=1777 tmpfs "$1/tmp"
exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$1" /lib/systemd/systemd --system \
    --unit=multi-user.target
"""
LEAVE = """
mkdir -p "$1/mnt/groups"
mount -t cgroup2 none "$1/mnt/groups"
find "$1/mnt/groups/$2" -depth -type d -exec rmdir {} +
"""


class Machine:
    def __init__(self, root: Path) -> None:
        self.root = root
        self._group = f"kolt-packages-{os.getpid()}"
        self._outer: subprocess.Popen | None = None
        self.first = 0

    def chroot(self, *command: str) -> str:
        """Runs a command in the root while its systemd does not run: with this machine's network."""
        return self._finish(["chroot", str(self.root), *command])

    def boot(self) -> None:
        log = (self.root / "var/log/boot").open("wb")
        self._outer = subprocess.Popen(["unshare", "--mount", "sh", "-euc", JOIN, "sh", self.root, self._group, BOOT],
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self._wait(self._is_up, "systemd")

    def run(self, *command: str, status: int | None = 0) -> str:
        """Runs a command on the machine and returns what it says; `status` is what it has to end with, if anything."""
        return self._finish(["nsenter", f"--target={self.first}", "--mount", "--uts", "--ipc", "--net", "--pid", "--cgroup",
                             "--root", "--wd", *command], status)

    def property(self, unit: str, name: str) -> str:
        return self.run("systemctl", "show", "--value", "--property", name, unit).strip()

    def wait_for(self, unit: str, state: str) -> None:
        self._wait(lambda: self.property(unit, "ActiveState") == state, f"{unit} to be {state}")

    def halt(self) -> None:
        if self._outer is None:
            return
        if self.first:
            with contextlib.suppress(ProcessLookupError):
                os.kill(self.first, 9)
        self._outer.kill()
        self._outer.wait()
        self._outer, self.first = None, 0
        self._wait(lambda: subprocess.run(["unshare", "--mount", "sh", "-euc", LEAVE, "sh", self.root, self._group],
                                          capture_output=True).returncode == 0, "the control groups to go")

    def _is_up(self) -> bool:
        assert self._outer is not None
        if self._outer.poll() is not None:
            raise RuntimeError((self.root / "var/log/boot").read_text())
        children = Path(f"/proc/{self._outer.pid}/task/{self._outer.pid}/children").read_text().split()
        if not children or Path(f"/proc/{children[0]}/comm").read_text() != "systemd\n":
            return False
        self.first = int(children[0])
        return self.run("systemctl", "is-system-running", status=None).strip() in ("running", "degraded")

    @staticmethod
    def _finish(command: list[str], status: int | None = 0) -> str:
        done = subprocess.run(command, env=ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace", timeout=600)
        assert status is None or done.returncode == status, f"{command}: {done.returncode}\n{done.stdout}"
        return done.stdout

    @staticmethod
    def _wait(condition, what: str) -> None:
        deadline = time.monotonic() + START_TIMEOUT
        while not condition():
            if time.monotonic() > deadline:
                raise TimeoutError(f"waited {START_TIMEOUT} s in vain for {what}")
            time.sleep(0.1)
