"""check_fleet.py DUMPS FULL SCHEDULER PID: a cluster against this machine's own processes.

DUMPS and FULL are folders of dumps, small ones and some of full size; of the two workers of the
scheduler PID has no nurse that would start it again, and the other one ends for any dump named
"poison".
"""

import os
import shutil
import signal
import sys
import time
from pathlib import Path

from calcut import fleet
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
    read = sum(path.stat().st_size for path in paths) / len(paths)
    print(f"{what}: {len(paths) / seconds:.0f} dumps/s; bytes a dump: {read:.0f} read by workers, "
          f"{moved / len(paths):.0f} through the scheduler")
    return table


def main():
    dumps, full, address, pid = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3], int(sys.argv[4])
    paths = sorted(dumps.iterdir())
    large = sorted(full.iterdir())
    damaged = damage(paths)
    start = time.monotonic()
    expected = fleet.summarise(paths)
    print(f"without a cluster: {len(paths) / (time.monotonic() - start):.0f} dumps/s")
    for some in (paths[1:33], large[:32]):
        start = time.process_time()
        for path in some:
            fleet.row(path)
        print(f"processor time of a row: {1000 * (time.process_time() - start) / len(some):.2f} ms")
    bad = expected[expected["result"] != "ok"]
    check(f"{len(damaged)} of {len(paths)} rows are those of damaged dumps", set(bad["path"]) == damaged)
    with Client(address, timeout=30) as client:
        client.wait_for_workers(2, timeout=60)
        client.run(fleet.summarise, [])  # imports are not what is measured
        check("two workers: the table is equal", equal(measured("2 workers", paths, client), expected))
        measured("2 workers, full size", large, client)
        killed = []

        def kill(done, total):
            if done >= total // 4 and not killed:
                os.kill(pid, signal.SIGKILL)
                killed.append(done)

        table = measured("a worker killed on the way", paths, client, progress=kill)
        check("a worker killed on the way: the table is equal", equal(table, expected))
        check("the worker was killed, and before the end", killed and killed[0] < len(paths) // 2)
        check("one worker is left", len(client.scheduler_info()["workers"]) == 1)
        measured("1 worker", paths, client)
        measured("1 worker, full size", large, client)

        poison = dumps / "poison"
        shutil.copy(paths[1], poison)
        table = fleet.summarise([*paths[:40], poison, *paths[40:80]], client)
        check("a dump that ends its worker has a row that says so", table["result"][40] == "lost")
        rest = table.drop(40).reset_index(drop=True)
        check("and its neighbours have theirs", equal(rest, expected[:80]))
    print(f"{results.count(True)} passed, {results.count(False)} failed")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
