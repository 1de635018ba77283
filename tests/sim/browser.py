"""A headless browser that is told what to do over its debugging pipe: sizes of a phone, touches, and answers of scripts."""
import base64
import json
import os
import select
import signal
import subprocess
import time
from pathlib import Path
from typing import Any, Self

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--remote-debugging-pipe"]
TIMEOUT = 180.0  # seconds; a fraction of one is usual
COMMANDS_FD, ANSWERS_FD = 3, 4  # where the browser expects its pipe


class Browser:
    """Use as a context manager."""

    def __init__(self, profile: Path) -> None:
        command_read, self._commands = os.pipe()
        self._answers, answer_write = os.pipe()

        def place_pipe() -> None:  # by way of high numbers: the pipe's own may be 3 and 4
            ends = [os.dup2(command_read, 100), os.dup2(answer_write, 101)]
            os.dup2(ends[0], COMMANDS_FD)
            os.dup2(ends[1], ANSWERS_FD)
        self._browser = subprocess.Popen(["/usr/bin/chromium", *FLAGS, f"--user-data-dir={profile}", "about:blank"],
                                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                         start_new_session=True, preexec_fn=place_pipe, close_fds=False)
        os.close(command_read)
        os.close(answer_write)
        self._unread = b""
        self._number = 0
        self._session = ""

    def __enter__(self) -> Self:
        target = self._tell("Target.createTarget", url="about:blank")["targetId"]
        self._session = self._tell("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self._tell("Page.enable")
        return self

    def __exit__(self, *_: object) -> None:
        os.killpg(self._browser.pid, signal.SIGKILL)
        self._browser.wait()
        os.close(self._commands)
        os.close(self._answers)

    def become(self, width: int, height: int = 900, *, touch: bool = False, dark: bool = False) -> Self:
        """A window of that size in pixels of the page; with `touch` it has a finger instead of a mouse."""
        self._tell("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=touch)
        self._tell("Emulation.setTouchEmulationEnabled", enabled=touch)
        features = [("prefers-color-scheme", "dark" if dark else "light")]
        features += [("hover", "none"), ("pointer", "coarse")] if touch else []
        self._tell("Emulation.setEmulatedMedia", features=[{"name": name, "value": value} for name, value in features])
        return self

    def open(self, page: Path) -> None:
        """Shows a page and returns when its scripts have run."""
        self._tell("Page.navigate", url=page.as_uri())
        deadline = time.monotonic() + TIMEOUT
        while self.ask("document.readyState") != "complete" or self.ask("location.href") == "about:blank":
            assert time.monotonic() < deadline
            time.sleep(0.02)

    def ask(self, expression: str) -> Any:
        """The value of an expression in the page, which may be a promise."""
        answer = self._tell("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        assert "exceptionDetails" not in answer, answer
        return answer["result"].get("value")

    def touch(self, *points: tuple[float, float]) -> None:
        """A finger that comes down at the first point, goes through the others and is lifted at the last."""
        for kind, at in [("touchStart", points[0]), *(("touchMove", point) for point in points[1:])]:
            self._tell("Input.dispatchTouchEvent", type=kind, touchPoints=[{"x": at[0], "y": at[1]}])
        self._tell("Input.dispatchTouchEvent", type="touchEnd", touchPoints=[])
        self._settle()

    def tap(self, selector: str, number: int = 0) -> None:
        """Touches the middle of one of the elements that a selector names, brought into view first."""
        self.touch(self._middle(selector, number))

    def point(self, selector: str, number: int = 0) -> None:
        """Moves the mouse over the middle of one of the elements that a selector names."""
        x, y = self._middle(selector, number)
        self._tell("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y)
        self._settle()

    def _middle(self, selector: str, number: int) -> tuple[float, float]:
        return tuple(self.ask(f"""(() => {{
            const one = document.querySelectorAll({json.dumps(selector)})[{number}];
            one.scrollIntoView({{block: "center", behavior: "instant"}});
            const box = one.getClientRects()[0];
            return [box.left + box.width / 2, box.top + box.height / 2];
        }})()"""))

    def _settle(self) -> None:
        """Waits until what was done has been answered and drawn."""
        self.ask("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)))")

    def key(self, name: str) -> None:
        for kind in ("keyDown", "keyUp"):
            self._tell("Input.dispatchKeyEvent", type=kind, key=name, code=name)

    def shoot(self, path: Path, *, whole: bool = True) -> None:
        """A picture of the page, or of what a person sees of it without scrolling."""
        data = self._tell("Page.captureScreenshot", format="png", captureBeyondViewport=whole)["data"]
        path.write_bytes(base64.b64decode(data))

    def _tell(self, method: str, **parameters: object) -> dict:
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._commands, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + TIMEOUT
        while True:
            answer = self._read(deadline)
            if answer.get("id") == self._number:
                assert "error" not in answer, (method, answer["error"])
                return answer["result"]

    def _read(self, deadline: float) -> dict:
        while b"\0" not in self._unread:
            assert select.select([self._answers], [], [], max(0.0, deadline - time.monotonic()))[0], "the browser hangs"
            data = os.read(self._answers, 1 << 20)
            assert data, "the browser has ended"
            self._unread += data
        line, _, self._unread = self._unread.partition(b"\0")
        return json.loads(line)
