"""Runs several scenarios, a process each, a few at a time."""
import ctypes
import multiprocessing
import os
import signal
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from multiprocessing.connection import Connection, wait
from multiprocessing.process import BaseProcess

from .scenario.records import Scenario
from .stop import check
from .view.table import Outcome

PR_SET_PDEATHSIG = 1
CHECK_SECONDS = 0.5
GRACE_SECONDS = 15.0  # a worker that was told to end still has its node to take down

ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

Run = Callable[..., dict]


class SilentView:
    """For runs that nobody watches."""

    def start(self, scenario: Scenario) -> None:
        """Shows nothing."""

    def frame(self, frame: object) -> None:
        """Shows nothing."""


@dataclass
class Worker:
    process: BaseProcess
    answer: Connection
    place: int


def compare(scenarios: Sequence[Scenario], run: Run, jobs: int, errors: tuple[type[Exception], ...],
            progress: Callable[[int], None]) -> list[Outcome]:
    """
    The outcomes in the order of the scenarios, at most `jobs` of them at work at once. `errors` are the exceptions by
    which a run says that it cannot be; `progress` hears how many are done. However this ends, no worker is left.
    """
    outcomes: dict[int, Outcome] = {}
    workers: dict[Connection, Worker] = {}
    waiting = list(enumerate(scenarios))
    try:
        while waiting or workers:
            while waiting and len(workers) < jobs:
                worker = start(*waiting.pop(0), run, errors)
                workers[worker.answer] = worker
            check()
            for answer in wait(list(workers), CHECK_SECONDS):
                worker = workers[answer]
                outcomes[worker.place] = collect(worker, scenarios[worker.place].name)
                del workers[answer]
                progress(len(outcomes))
    finally:
        end(list(workers.values()))
    return [outcomes[place] for place in range(len(scenarios))]


def start(place: int, scenario: Scenario, run: Run, errors: tuple[type[Exception], ...]) -> Worker:
    context = multiprocessing.get_context("fork")
    receiver, sender = context.Pipe(duplex=False)
    process = context.Process(target=work, args=(sender, scenario, run, errors, os.getpid()), daemon=True)
    before = signal.pthread_sigmask(signal.SIG_BLOCK, ENDING)  # until the worker has handlers of its own
    try:
        process.start()
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)
    sender.close()
    return Worker(process, receiver, place)


def work(answer: Connection, scenario: Scenario, run: Run, errors: tuple[type[Exception], ...], parent: int) -> None:
    """Runs in the worker. It ends with its parent, which alone hears Ctrl-C and passes it on as SIGTERM."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGHUP, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, leave)
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, ENDING)
    if os.getppid() == parent:
        answer.send(attempt(scenario, run, errors))


def attempt(scenario: Scenario, run: Run, errors: tuple[type[Exception], ...]) -> Outcome:
    try:
        return Outcome(scenario.name, run(scenario, SilentView()))
    except errors as error:
        return Outcome(scenario.name, None, str(error))


def leave(number: int, _: object) -> None:
    """Unwinds the run, which takes its node down; once is enough."""
    signal.signal(number, signal.SIG_IGN)
    raise SystemExit(128 + number)


def collect(worker: Worker, name: str) -> Outcome:
    try:
        outcome = worker.answer.recv()
    except EOFError:
        worker.process.join()
        outcome = Outcome(name, None, f"its process ended with status {worker.process.exitcode}")
    worker.process.join()
    worker.answer.close()
    return outcome


def end(workers: Sequence[Worker]) -> None:
    for worker in workers:
        worker.process.terminate()
    for worker in workers:
        worker.process.join(GRACE_SECONDS)
        worker.process.kill()
        worker.process.join()
