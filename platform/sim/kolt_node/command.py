"""What the commands around a node have in common: output as it happens, and a line for whatever stands in their way."""
import os
import signal
import sys
from collections.abc import Callable

from .control import NodeError

CANNOT = 2
INTERRUPTED = 128 + signal.SIGINT
READER_GONE = 128 + signal.SIGPIPE  # what a shell shows for other tools whose reader has gone


def run_command(name: str, main: Callable[[], int]) -> int:
    """Runs a command's main function and returns the exit status; an error is told in a line, with the command's name."""
    if sys.stdout is None:
        print(f"{name}: standard output is closed", file=sys.stderr)
        return CANNOT
    sys.stdout.reconfigure(line_buffering=True, errors="replace")  # on a pipe as on a terminal
    try:
        return main()
    except KeyboardInterrupt:
        print(f"{name}: interrupted", file=sys.stderr)
        return INTERRUPTED
    except BrokenPipeError:
        return READER_GONE
    except (NodeError, OSError) as error:
        for line in filter(str.strip, reason(error).splitlines()):
            print(f"{name}: {line}", file=sys.stderr)
        return CANNOT
    finally:
        let_go_of_output()


def reason(error: BaseException) -> str:
    """What went wrong, and with which file, in one line."""
    if not isinstance(error, OSError) or error.strerror is None:
        return str(error)
    return f"{error.filename}: {error.strerror}" if error.filename else error.strerror


def let_go_of_output() -> None:
    """Writes out what is left in standard output's buffer; what cannot be written must not raise again at exit."""
    try:
        sys.stdout.flush()
    except OSError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
