"""Tables of many modules: one row a dump, on this machine or on a Dask cluster.

    python -m calcut.fleet DUMPS... -o fleet.csv [--scheduler ADDRESS]
"""

from __future__ import annotations

import argparse
import itertools
import os
import sys
from concurrent.futures import FIRST_COMPLETED, ProcessPoolExecutor, wait
from concurrent.futures.process import BrokenProcessPool
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Tuple

import numpy as np
import pandas as pd

import calcut

LENS = list(calcut.Lens._fields)
STATISTICS = ["mean", "std", "min", "max", "median", "mad", "not_finite"]
TABLES = ["pixel_values", *(f"frequency{k}" for k in range(8)), "psf"]

#: What outliers() compares.
MEASURES = [*LENS, "masked_pixels", *(f"{table}_{name}" for table in TABLES for name in STATISTICS)]

#: Every table has all of these columns, whatever the dumps hold, so that tables can be compared and
#: put together.
COLUMNS: Dict[str, str] = {
    **dict.fromkeys(["path", "result", "fault"], "string"),
    "offset": "Int64",
    **dict.fromkeys(["fault_text", "warnings", "layout"], "string"),
    **dict.fromkeys(["columns", "rows", "frequencies"], "Int64"),
    **dict.fromkeys(["text0", "text1", "text2", "id_bytes"], "string"),
    **dict.fromkeys(MEASURES, "float64"),
}

_BATCH = 32  # dumps of one task: far more work than a scheduler's millisecond for it
_ATTEMPTS = 3

Item = Tuple[int, List[str]]  # number of the first row, paths
Part = Tuple[int, pd.DataFrame]


def statistics(values: np.ndarray[Any, Any]) -> Dict[str, float]:
    """Of the finite ones among the values; mad is the median distance from the median."""
    finite = values[np.isfinite(values)]
    result = dict.fromkeys(STATISTICS, float("nan"))
    result["not_finite"] = float(values.size - finite.size)
    if finite.size:
        median = float(np.median(finite))
        result.update(
            mean=float(finite.mean(dtype=np.float64)),
            std=float(finite.std(dtype=np.float64)),
            min=float(finite.min()),
            max=float(finite.max()),
            median=median,
            mad=float(np.median(np.abs(finite - np.float32(median)))),
        )
    return result


def _good_row(module: calcut.Calibration) -> Dict[str, Any]:
    row: Dict[str, Any] = {"result": "ok", **module.lens._asdict()}
    for name in ("layout", "columns", "rows", "text0", "text1", "text2"):
        row[name] = getattr(module, name)
    row["warnings"] = ";".join(warning.name for warning in module.warnings)
    row["id_bytes"] = (module.id_bytes or b"").hex()
    row["frequencies"] = len(module.frequencies)
    valid = module.mask != 0
    row["masked_pixels"] = float(valid.size - np.count_nonzero(valid))
    tables = {"pixel_values": module.pixel_values[valid]}
    for frequency in module.frequencies:
        tables[f"frequency{frequency.index}"] = frequency.pixel_table[valid]
    if module.psf is not None:
        tables["psf"] = module.psf.ravel()
    for table, values in tables.items():
        row.update({f"{table}_{name}": value for name, value in statistics(values).items()})
    return row


def _failed_row(result: str, fault: str, text: str) -> Dict[str, Any]:
    return {"result": result, "fault": fault, "fault_text": text}


def row(path: str) -> Dict[str, Any]:
    """The row of one dump; a dump that does not read has one, too."""
    try:
        return _good_row(calcut.read(path))
    except calcut.CalcutError as error:
        found = calcut.diagnose(path)
        return {
            **_failed_row("refused", error.name, error.finding.text),
            "offset": error.offset,
            "layout": found.layout,
            "warnings": ";".join(warning.name for warning in found.warnings),
        }
    except OSError as error:
        return _failed_row("unreadable", "file", str(error))
    except Exception as error:  # one dump must not take its neighbours along
        return _failed_row("failed", type(error).__name__, str(error))


def _frame(paths: List[str], rows: List[Dict[str, Any]]) -> pd.DataFrame:
    values = {"path": paths, **{name: [each.get(name) for each in rows] for name in COLUMNS if name != "path"}}
    return pd.DataFrame({name: pd.Series(values[name], dtype=dtype) for name, dtype in COLUMNS.items()})


def _rows(paths: List[str]) -> pd.DataFrame:
    return _frame(paths, [row(path) for path in paths])


def _lost(paths: List[str], why: str) -> pd.DataFrame:
    return _frame(paths, [_failed_row("lost", "worker", why) for _ in paths])


def _singly(item: Item) -> List[Item]:
    start, paths = item
    return [(start + i, [path]) for i, path in enumerate(paths)]


def _alone(item: Item) -> Iterator[Part]:
    """In a process of its own, so that no other row is lost when that one ends."""
    start, paths = item
    for _ in range(_ATTEMPTS if len(paths) == 1 else 1):
        try:
            with ProcessPoolExecutor(1) as pool:
                yield start, pool.submit(_rows, paths).result()
                return
        except BrokenProcessPool:
            pass
    if len(paths) == 1:
        yield start, _lost(paths, "the process that read it ended")
        return
    for single in _singly(item):
        yield from _alone(single)


def _on_processes(items: List[Item], jobs: int) -> Iterator[Part]:
    waiting = items[::-1]
    while waiting:
        running: Dict[Any, Item] = {}
        try:
            with ProcessPoolExecutor(jobs) as pool:
                while waiting or running:
                    while waiting and len(running) < 2 * jobs:
                        running[pool.submit(_rows, waiting[-1][1])] = waiting[-1]
                        waiting.pop()
                    for future in wait(running, return_when=FIRST_COMPLETED).done:
                        part = future.result()
                        yield running.pop(future)[0], part
        except BrokenProcessPool:  # by one of these
            for item in running.values():
                yield from _alone(item)


def _on_cluster(items: List[Item], client: Any) -> Iterator[Part]:
    from distributed import KilledWorker, as_completed

    def submit(paths: List[str]) -> Any:
        return client.submit(_rows, paths, pure=False, retries=_ATTEMPTS)

    running = {submit(item[1]): item for item in items}
    suspects: List[Item] = []
    for future in as_completed(list(running)):
        item = running.pop(future)
        try:
            yield item[0], future.result()
        except KilledWorker:
            suspects += _singly(item)
    # What was under way on workers that ended is blamed for it, too. One by one it shows who did it.
    for start, paths in suspects:
        try:
            yield start, submit(paths).result()
        except KilledWorker:
            yield start, _lost(paths, "the workers that read it ended")


def summarise(
    paths: Iterable[Any],
    client: Any = None,
    *,
    jobs: Optional[int] = None,
    progress: Optional[Callable[[int, int], None]] = None,
) -> pd.DataFrame:
    """A table with one row a dump, in the order of the paths, with the columns of COLUMNS.

    result is "ok", "refused" (fault, offset and fault_text say why), "unreadable" (the file),
    "failed" (no room for it, say) or "lost": whoever read it ended, several times. Statistics are
    those of the finite values of pixels that are not masked, and not_finite counts the others.

    client is a dask.distributed.Client, whose workers see the dumps under the same paths and have
    this package; without one, jobs processes of this machine (default: one for each processor).
    progress is called with the rows done and the rows in all. The table does not depend on any of
    these.
    """
    names: List[str] = [os.fsdecode(path) for path in paths]
    items = [(start, names[start : start + _BATCH]) for start in range(0, len(names), _BATCH)]
    parts: List[Part] = [(-1, _frame([], []))]
    done = 0
    found = _on_cluster(items, client) if client is not None else _on_processes(items, jobs or os.cpu_count() or 1)
    for part in found:
        parts.append(part)
        done += len(part[1])
        if progress is not None:
            progress(done, len(names))
    parts.sort(key=lambda part: part[0])
    return pd.concat([frame for _, frame in parts], ignore_index=True)


def scores(table: pd.DataFrame) -> pd.DataFrame:
    """Modified z-score of each value of MEASURES: 0.6745 (x - median) / MAD.

    B. Iglewicz and D. C. Hoaglin, "How to Detect and Handle Outliers", 1993. 0.6745 is the MAD of
    a normal distribution of deviation 1. Where more than half of a fleet have the same value, so
    that MAD is 0, the mean distance d from the median stands in for it: (x - median) / (1.2533 d),
    1.2533 being the square root of pi / 2, again for a normal distribution. Where all are equal, 0.
    """
    measured = table[MEASURES].where(table["result"] == "ok")
    distance = measured - measured.median()
    mad = distance.abs().median()
    scale = (mad / 0.6745).where(mad > 0, np.sqrt(np.pi / 2) * distance.abs().mean())
    return (distance / scale.where(scale > 0)).mask(distance == 0, 0.0)


def outliers(table: pd.DataFrame, threshold: float = 3.5) -> pd.DataFrame:
    """The values whose score is above the threshold (3.5 is the authors'), the farthest first.

    One row a value: row (of the table), path, column, value, median, score.
    """
    columns = ["row", "path", "column", "value", "median", "score"]
    score = scores(table)
    rows, places = np.nonzero((score.abs() > threshold).to_numpy())
    values = table[MEASURES].to_numpy()[rows, places]
    medians = table[MEASURES].where(table["result"] == "ok").median().to_numpy()[places]
    marks = pd.DataFrame(
        dict(zip(columns, [rows, table["path"].to_numpy()[rows], np.array(MEASURES)[places], values, medians,
                           score.to_numpy()[rows, places]]))
    )
    order = marks["score"].abs().sort_values(ascending=False, kind="stable").index
    return marks.loc[order].reset_index(drop=True)


def plot(table: pd.DataFrame, target: Any, threshold: float = 3.5) -> None:
    """Draws the scores of each column into a file, outliers named. Needs matplotlib."""
    try:
        from matplotlib.figure import Figure
    except ImportError as error:
        raise ImportError("a plot needs matplotlib (Debian: python3-matplotlib)") from error
    score = scores(table).dropna(axis="columns", how="all")
    figure = Figure(figsize=(9, 1.5 + 0.2 * score.shape[1]), layout="constrained")
    axes = figure.subplots()
    for place, column in enumerate(score):
        far = score[column].abs() > threshold
        axes.plot(score[column][~far], np.full((~far).sum(), place), ".", color="0.6", markersize=3)
        axes.plot(score[column][far], np.full(far.sum(), place), "D", color="#0072B2", markersize=4)
        for index in score.index[far]:
            axes.annotate(os.path.basename(table["path"][index]), (score[column][index], place), fontsize=5)
    axes.set_xscale("symlog", linthresh=threshold)
    for limit in (-threshold, threshold):
        axes.axvline(limit, color="black", linestyle=":", linewidth=1)
    axes.set_yticks(range(score.shape[1]), score.columns, fontsize=7)
    axes.invert_yaxis()
    axes.set_xlabel(f"modified z-score (linear up to {threshold})")
    figure.savefig(target)


def _dumps(words: List[str], list_file: Optional[str]) -> Iterator[str]:
    listed: List[str] = []
    if list_file is not None:
        with open(list_file, encoding="utf-8", errors="surrogateescape") as file:
            listed = [line.rstrip("\n") for line in file if line.strip()]
    for word in itertools.chain(words, listed):
        if not os.path.isdir(word):
            yield word
            continue
        for folder, folders, names in os.walk(word):
            folders.sort()
            yield from (os.path.join(folder, name) for name in sorted(names))


def _write_csv(table: pd.DataFrame, target: str) -> None:
    """The file gets its name when it is whole."""
    unfinished = f"{target}.{os.getpid()}.part"
    try:
        table.to_csv(unfinished, index=False, errors="surrogateescape")
        os.replace(unfinished, target)
    finally:
        if os.path.exists(unfinished):
            os.remove(unfinished)


def _arguments() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser("python -m calcut.fleet", description="A table with one row a dump.")
    parser.add_argument("dumps", nargs="*", metavar="DUMP", help="dumps, and folders of nothing else")
    parser.add_argument("--files-from", metavar="FILE", help="a path on each line")
    parser.add_argument("-o", "--output", required=True, metavar="FILE.csv", help="the table")
    parser.add_argument("--outliers", metavar="FILE.csv", help="the values far from their fleet")
    parser.add_argument("--plot", metavar="FILE.png", help="a picture of them (.png, .pdf or .svg)")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a Dask cluster; else processes here")
    parser.add_argument("--jobs", type=int, metavar="N", help="processes here, one for each processor")
    return parser


def main(words: Optional[List[str]] = None) -> int:
    """Returns 0 when every dump read, else 1."""
    parser = _arguments()
    options = parser.parse_args(words)
    targets = [(options.output, [".csv"]), (options.outliers, [".csv"]), (options.plot, [".png", ".pdf", ".svg"])]
    for target, endings in targets:
        # A dump that was given in the wrong place stays what it is.
        if target is not None and os.path.splitext(target)[1] not in endings:
            parser.error(f"{target} must end in {' or '.join(endings)}")
    paths = list(_dumps(options.dumps, options.files_from))
    if not paths:
        parser.error("no dumps")
    client = None
    if options.scheduler is not None:
        from distributed import Client

        client = Client(options.scheduler)
    try:
        table = summarise(paths, client, jobs=options.jobs)
    finally:
        if client is not None:
            client.close()
    _write_csv(table, options.output)
    far = outliers(table)
    if options.outliers is not None:
        _write_csv(far, options.outliers)
    if options.plot is not None:
        plot(table, options.plot)
    counts = ", ".join(f"{count} {result}" for result, count in table["result"].value_counts().items())
    print(f"{options.output}: {len(table)} dumps, {counts}; {far['path'].nunique()} far from their fleet")
    return 0 if (table["result"] == "ok").all() else 1


if __name__ == "__main__":
    # As workers know it, not as __main__.
    from calcut.fleet import main as _main

    sys.exit(_main())
