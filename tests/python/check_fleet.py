"""check_fleet.py DUMPS FULL SCHEDULER PID WORK: a cluster against this machine's own processes.

DUMPS and FULL are folders of dumps, small ones and some of full size; of the two workers of the
scheduler PID has no nurse that would start it again, and the other one ends for any dump named
"poison". WORK is a folder for stores.
"""

import os
import shutil
import signal
import sys
import threading
import time
from pathlib import Path

import calcut
import psutil
import xarray
from calcut import _measures, _workers, fleet
from distributed import Client
from pandas.testing import assert_frame_equal

results = []


def check(name, good):
    results.append(bool(good))
    print("ok     " if good else "FAILED ", name, flush=True)


def equal(table, expected):
    try:
        assert_frame_equal(table, expected)
        return True
    except AssertionError as error:
        print(error)
        return False


def damage(paths):
    """3 % of them, in four ways."""
    chosen = paths[::33]
    for place, path in enumerate(chosen):
        data = path.read_bytes()
        middle = len(data) // 2
        changed = data[:middle] + bytes([data[middle] ^ 4]) + data[middle + 1 :]
        path.write_bytes([data[:middle], b"\xff" * len(data), b"", changed][place % 4])
    return {str(path) for path in chosen}


def loopback():
    """Bytes that went over 127.0.0.1 so far."""
    lines = Path("/proc/self/net/dev").read_text().splitlines()
    return next(int(line.split(":")[1].split()[0]) for line in lines if line.strip().startswith("lo:"))


def measured(what, paths, client, **options):
    start, before = time.monotonic(), loopback()
    table = fleet.summarise(paths, client, **options)
    seconds, moved = time.monotonic() - start, loopback() - before
    print(f"{what}: {len(paths) / seconds:.0f} dumps/s; {moved / len(paths):.0f} bytes a dump through the scheduler")
    return table


def processor_time(function, paths):
    start = time.process_time()
    for path in paths:
        function(path)
    return 1000 * (time.process_time() - start) / len(paths)


def resident():
    return psutil.Process().memory_info().rss


def written(store):
    return sum(file.stat().st_size for file in Path(store).rglob("*") if file.is_file())


def stored(what, paths, client, store):
    """Writes a store, and returns the most memory that scheduler and workers had on the way."""
    most, ended = {}, threading.Event()

    def watch():
        while not ended.wait(0.05):
            found = {"scheduler": client.run_on_scheduler(resident), **client.run(resident)}
            most.update({name: max(size, most.get(name, 0)) for name, size in found.items()})

    watching = threading.Thread(target=watch)
    watching.start()
    start = time.monotonic()
    data = fleet.dataset(paths, client)
    between = time.monotonic()
    data.to_zarr(store, client=client)
    end = time.monotonic()
    ended.set()
    watching.join()
    print(f"{what}: {len(paths) / (between - start):.0f} modules/s looked at, {len(paths) / (end - between):.0f} written, "
          f"{written(store) / len(paths):.0f} bytes a module")  # fmt: skip
    workers = [size for name, size in most.items() if name != "scheduler"]
    return most["scheduler"] / 1e6, max(workers) / 1e6


def main():
    dumps, full, address, pid, work = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3], int(sys.argv[4]), Path(sys.argv[5])
    paths = sorted(dumps.iterdir())
    large = sorted(full.iterdir())
    healthy = paths[1:33]
    damaged = damage(paths)
    start = time.monotonic()
    expected = fleet.summarise(paths)
    print(f"without a cluster: {len(paths) / (time.monotonic() - start):.0f} dumps/s")
    _workers._prepare()
    signal.signal(signal.SIGINT, signal.default_int_handler)
    for some in (healthy, large[:32]):
        processor_time(_measures.row, some)
        print(f"processor time of a row of {calcut.read(some[0])!r}: {processor_time(_measures.row, some):.2f} ms, "
              f"of it {processor_time(calcut.read, some):.2f} ms the read")  # fmt: skip
    bad = expected[expected["result"] != "ok"]
    check(f"{len(damaged)} of {len(paths)} rows are those of damaged dumps", set(bad["path"]) == damaged)
    good = [path for path in paths if str(path) not in damaged]
    with Client(address, timeout=30) as client:
        client.wait_for_workers(2, timeout=60)
        client.run(fleet.summarise, [])  # imports are not what is measured
        check("two workers: the table is equal", equal(measured("2 workers", paths, client), expected))
        measured("2 workers, full size", large, client)
        stored("2 workers, full size, to a store", large, client, work / "full2.zarr")
        few = stored("100 modules", good[:100], client, work / "few.zarr")
        many = stored(f"{len(good)} modules", good, client, work / "many.zarr")
        print(f"MB of scheduler and largest worker: {few[0]:.0f} and {few[1]:.0f} with 100 modules, "
              f"{many[0]:.0f} and {many[1]:.0f} with {len(good)}")  # fmt: skip
        check("memory does not grow with the number of modules", all(b < a + 30 for a, b in zip(few, many)))
        killed = []

        def kill(done, total):
            if done >= total // 4 and not killed:
                os.kill(pid, signal.SIGKILL)
                killed.append(done)

        data = fleet.dataset(good, client)
        table = measured("a worker killed on the way", paths, client, progress=kill)
        check("a worker killed on the way: the table is equal", equal(table, expected))
        check("the worker was killed, and before the end", killed and killed[0] < len(paths) // 2)
        check("one worker is left", len(client.scheduler_info()["workers"]) == 1)
        measured("1 worker", paths, client)
        measured("1 worker, full size", large, client)
        stored("1 worker, full size, to a store", large, client, work / "full1.zarr")
        again = data.to_zarr(work / "many.zarr", client=client)
        check("a store that is whole stays as it is", again.sizes["module"] == len(good))
        same = xarray.open_zarr(work / "full1.zarr").equals(xarray.open_zarr(work / "full2.zarr"))
        check("one worker and two write the same", same)

        poison = dumps / "poison"
        shutil.copy(healthy[0], poison)
        table = fleet.summarise([*paths[:40], poison, *paths[40:80]], client)
        check("a dump that ends its worker has a row that says so", table["result"][40] == "lost")
        rest = table.drop(40).reset_index(drop=True)
        check("and its neighbours have theirs", equal(rest, expected[:80]))
    print(f"{results.count(True)} passed, {results.count(False)} failed")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
