"""Work over many dumps, in processes of this machine or on a Dask cluster; one that dies loses no other."""

from __future__ import annotations

import ctypes
import os
import signal
from concurrent.futures import FIRST_COMPLETED, ProcessPoolExecutor, wait
from concurrent.futures.process import BrokenProcessPool
from typing import Any, Callable, Dict, Iterator, List, Optional, Tuple

BATCH = 32  # dumps of one task: far more work than a scheduler's millisecond for it
ATTEMPTS = 3
AHEAD = 4  # tasks of a thread that a scheduler knows at a time

Item = Tuple[int, List[Any]]  # number of the first path, paths
Work = Callable[[int, List[Any]], List[Any]]  # one result a path
Part = Tuple[int, List[Any], Optional[List[Any]]]  # None: whoever did it ended, each time

_PR_SET_PDEATHSIG = 1
_M_TRIM_THRESHOLD, _M_MMAP_THRESHOLD, _KEPT = -1, -3, 1 << 26


def _prepare() -> None:
    """In a process of our own: an interrupt is the parent's, and memory stays for the next dump.

    It ends with its parent, also when that is killed. By default glibc hands large arrays back to the
    system at once, and each page costs a fault again.
    """
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    system = ctypes.CDLL(None)
    for name, *words in (("prctl", _PR_SET_PDEATHSIG, signal.SIGKILL), ("mallopt", _M_MMAP_THRESHOLD, _KEPT),
                         ("mallopt", _M_TRIM_THRESHOLD, _KEPT)):  # fmt: skip
        if hasattr(system, name):
            getattr(system, name)(*words)


def _pool(jobs: int) -> ProcessPoolExecutor:
    return ProcessPoolExecutor(jobs, initializer=_prepare)


def _singly(item: Item) -> List[Item]:
    start, paths = item
    return [(start + i, [path]) for i, path in enumerate(paths)]


def _alone(work: Work, item: Item) -> Iterator[Part]:
    """In a process of its own, so that no other result is lost when that one ends."""
    start, paths = item
    for _ in range(ATTEMPTS if len(paths) == 1 else 1):
        try:
            with _pool(1) as pool:
                yield start, paths, pool.submit(work, start, paths).result()
                return
        except BrokenProcessPool:
            pass
    if len(paths) == 1:
        yield start, paths, None
        return
    for single in _singly(item):
        yield from _alone(work, single)


def _on_processes(work: Work, items: List[Item], jobs: int) -> Iterator[Part]:
    waiting = items[::-1]
    while waiting:
        running: Any = {}
        pool = _pool(jobs)
        try:
            while waiting or running:
                while waiting and len(running) < 2 * jobs:
                    running[pool.submit(work, *waiting[-1])] = waiting[-1]
                    waiting.pop()
                for future in wait(running, return_when=FIRST_COMPLETED).done:
                    done = future.result()
                    start, paths = running.pop(future)
                    yield start, paths, done
        except BrokenProcessPool:  # by one of these
            for item in running.values():
                yield from _alone(work, item)
        finally:
            pool.shutdown(cancel_futures=True)


def _on_cluster(work: Work, items: List[Item], client: Any) -> Iterator[Part]:
    from distributed import KilledWorker, as_completed  # type: ignore[import]

    def submit(item: Item) -> Any:
        return client.submit(work, *item, pure=False, retries=ATTEMPTS)

    # No more at a time than keeps the workers busy, so that the scheduler's memory does not grow with the fleet.
    waiting: List[Item] = items[::-1]
    running: Dict[Any, Item] = {}
    ahead = AHEAD * max(1, sum(client.ncores().values()))
    suspects: List[Item] = []
    done = as_completed()
    while waiting or running:
        while waiting and len(running) < ahead:
            future = submit(waiting[-1])
            running[future] = waiting.pop()
            done.add(future)
        future = next(done)
        item = running.pop(future)
        try:
            yield (*item, future.result())
        except KilledWorker:
            suspects += _singly(item)
    # What was under way on workers that ended is blamed for it, too. One by one it shows who did it.
    for item in suspects:
        try:
            yield (*item, submit(item).result())
        except KilledWorker:
            yield (*item, None)


def run(work: Work, items: List[Item], client: Any = None, jobs: Optional[int] = None) -> Iterator[Part]:
    """work over all items, each as soon as it is done."""
    if client is not None:
        return _on_cluster(work, items, client)
    return _on_processes(work, items, jobs or os.cpu_count() or 1)


def parts(work: Work, paths: List[str], client: Any = None, jobs: Optional[int] = None) -> Iterator[Part]:
    """work over all paths in batches."""
    items = [(start, paths[start : start + BATCH]) for start in range(0, len(paths), BATCH)]
    return run(work, items, client, jobs)
