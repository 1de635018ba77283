"""The private files of a node: what is mounted before anything runs in it.

Directories that a node needs but the machine may lack (/etc/config, /var/state, /dev/log) are not made on the machine:
their parent is covered by a tmpfs of links to the real entries, and the missing ones are added there.
"""
import ctypes
import os

STAGE = "/run/.machine"  # where the real /proc, /etc, /var and /dev stay reachable
NODE_DIR = "/run/kolt-node"
PRIVATE_ROOTS = ("/tmp", "/run", "/etc", "/var", "/proc", "/dev")

MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 0x40000

_libc = ctypes.CDLL(None, use_errno=True)


def mount(source: str, target: str, kind: str | None, flags: int, data: str | None = None) -> None:
    def encode(text: str | None) -> bytes | None:
        return text.encode() if text is not None else None

    if _libc.mount(encode(source), encode(target), encode(kind), ctypes.c_ulong(flags), encode(data)) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"mount of {target}: {os.strerror(error)}")


def _tmpfs(target: str) -> None:
    mount("tmpfs", target, "tmpfs", 0, "mode=755")


def _bind(source: str, target: str) -> None:
    mount(source, target, None, MS_BIND | MS_REC)


def _link_entries(real: str, cover: str, skip: tuple[str, ...] = ()) -> None:
    """Fills `cover` with links to the entries of `real`; links among them keep their own text."""
    for entry in os.scandir(real):
        if entry.name in skip:
            continue
        target = os.readlink(entry.path) if entry.is_symlink() else entry.path
        os.symlink(target, os.path.join(cover, entry.name))


def _cover(directory: str, skip: tuple[str, ...] = ()) -> None:
    """Makes `directory` private; its real entries stay visible through the stage."""
    real = STAGE + directory
    os.makedirs(real)
    _bind(directory, real)
    _tmpfs(directory)
    _link_entries(real, directory, skip)


def _cover_proc() -> None:
    """A /proc of links: of the processes only `self`, of the network files those that libc or a reader may want."""
    real = STAGE + "/proc"
    os.makedirs(real)
    _bind("/proc", real)
    _tmpfs("/proc")
    for name in os.listdir(real):
        if not name.isdigit() and name != "net":
            os.symlink(f"{real}/{name}", f"/proc/{name}")
    os.makedirs("/proc/net/rtk_wifi6")
    for name in ("dev", "arp", "route", "if_inet6", "netlink", "packet", "unix"):
        os.symlink(f"{real}/net/{name}", f"/proc/net/{name}")


def show_process(pid: int) -> None:
    """Gives a process its own entry in the private /proc: leak checkers look their threads up by number."""
    os.symlink(f"{STAGE}/proc/{pid}", f"/proc/{pid}")


def hide_process(pid: int) -> None:
    try:
        os.unlink(f"/proc/{pid}")
    except OSError:
        pass


def _is_hidden(path: str) -> bool:
    return path.startswith(("/tmp/", "/run/"))


def build(keep: list[str]) -> None:
    """Mounts everything. `keep` names directories that stay where they are although /tmp or /run is covered."""
    mount("none", "/", None, MS_REC | MS_PRIVATE)
    kept = {path: os.open(path, os.O_PATH | os.O_CLOEXEC) for path in keep if _is_hidden(path)}
    _tmpfs("/run")
    mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777")
    for path, fd in kept.items():
        os.makedirs(path, exist_ok=True)
        _bind(f"/proc/self/fd/{fd}", path)
        os.close(fd)
    _cover("/etc", ("config", "kolt.json"))
    _cover("/var", ("state", "run"))
    _cover("/dev", ("log",))
    os.symlink("/run", "/var/run")
    for directory in ("/etc/config", "/var/state", "/run/ubus", NODE_DIR, NODE_DIR + "/bridges", NODE_DIR + "/fail"):
        os.makedirs(directory)
    _cover_proc()
