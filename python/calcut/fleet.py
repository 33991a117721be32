"""Tables of many modules: one row a dump, on this machine or on a Dask cluster.

    python -m calcut.fleet DUMPS... -o fleet.csv [--plot fleet.pdf] [--golden DUMP] [--scheduler ADDRESS]
"""

from __future__ import annotations

import argparse
import os
import sys
from functools import partial
from importlib.util import find_spec
from typing import Any, Callable, Dict, Iterable, List, Optional, Tuple, Union

import numpy as np
import pandas as pd  # type: ignore[import]

import calcut
from calcut import _calcut, _files, _measures, _workers
from calcut._measures import COLUMNS, EXTREMES, GOLDEN, LENS, MEASURES, columns, date_of, row

__all__ = [
    "COLUMNS", "EXTREMES", "GOLDEN", "LENS", "MEASURES", "columns", "control", "control_chart", "dataset", "date_of",
    "distances", "duplicates", "load", "outliers", "plot", "population", "row", "scores", "summarise",
]  # fmt: skip

#: 3.5 is the usual one for a single column. A module has some 70, so that one in thirty would be far.
THRESHOLD = 4.5


class Table:
    """Rows as they come, in any order; what came makes a table at any time."""

    def __init__(self, golden: Optional[str]) -> None:
        self.golden = golden
        self.rows: Dict[int, Tuple[Any, ...]] = {}

    def add(self, start: int, paths: List[str], rows: Optional[List[Any]]) -> None:
        lost = _measures.failed_row("lost", "worker", "the process that read it ended")
        found = rows or [_measures.values_of(path, dict(lost), self.golden) for path in paths]
        self.rows.update(enumerate(found, start))

    def frame(self) -> pd.DataFrame:
        names = columns(self.golden)
        values = list(zip(*(self.rows[place] for place in sorted(self.rows)))) or [()] * len(names)
        return pd.DataFrame({name: pd.Series(v, dtype=kind) for (name, kind), v in zip(names.items(), values)})


def _collect(table: Table, paths: List[str], client: Any, jobs: Optional[int],
             progress: Optional[Callable[[int, int], None]]) -> None:  # fmt: skip
    for part in _workers.parts(partial(_measures.rows, golden=table.golden), paths, client, jobs):
        table.add(*part)
        if progress is not None:
            progress(len(table.rows), len(paths))


def summarise(
    paths: Union[_files.Path, Iterable[_files.Path]],
    client: Any = None,
    *,
    golden: Optional[_files.Path] = None,
    jobs: Optional[int] = None,
    progress: Optional[Callable[[int, int], None]] = None,
) -> pd.DataFrame:
    """A table with one row a dump, in the order of the paths, with the columns of COLUMNS.

    A folder stands for every file below it. result is "ok", "refused" (fault, offset and fault_text
    say why), "unreadable" (the file), "failed" (no room for it, say) or "lost": whoever read it
    ended, several times. Measures are those of pixels that are valid, and not_finite counts the
    values among them that are no numbers.

    golden is the dump of a golden unit; the table then has the columns GOLDEN, too. client is a
    dask.distributed.Client, whose workers see the dumps under the same paths and have this package;
    without one, jobs processes of this machine (default: one for each processor). progress is called
    with the rows done and the rows in all. The table does not depend on any of these.
    """
    table = Table(None if golden is None else os.fsdecode(golden))
    if table.golden is not None:
        calcut.read(table.golden)  # raises now rather than in each row
    _collect(table, _files.dumps(paths), client, jobs, progress)
    return table.frame()


def load(path: _files.Path) -> pd.DataFrame:
    """A table that was written as CSV, with its types."""
    with open(path, encoding="utf-8") as file:
        names = pd.read_csv(file, nrows=0).columns
    # Texts such as "NA" are texts.
    return pd.read_csv(path, dtype={name: kind for name, kind in columns("").items() if name != "date"}, na_values=[""],
                       parse_dates=[name for name in names if name == "date"], keep_default_na=False,
                       float_precision="round_trip")  # fmt: skip


def _measured(table: pd.DataFrame) -> pd.DataFrame:
    return table.reindex(columns=MEASURES).where(table["result"] == "ok")


def scores(table: pd.DataFrame) -> pd.DataFrame:
    """Modified z-score of each value of MEASURES: 0.6745 (x - median) / MAD.

    B. Iglewicz and D. C. Hoaglin, "How to Detect and Handle Outliers", 1993. 0.6745 is the MAD of
    a normal distribution of deviation 1. Where more than half of a fleet have the same value, so
    that MAD is 0, the mean distance d from the median stands in for it: (x - median) / (1.2533 d),
    1.2533 being the square root of pi / 2, again for a normal distribution. Where all are equal, 0.
    An infinite value has an infinite score.

    Few measures are spread evenly to both sides. A value's MAD is therefore that of its own side of
    the median where that is larger. The largest of many values has a longer tail upwards still (E. J.
    Gumbel, "Statistics of Extremes", 1958): above the median the score of EXTREMES is halved.
    Regions are counted in pixels, and their deviation is taken as 1 at least.
    """
    measured = _measured(table)
    distance = measured - measured.median()
    size = distance.abs()
    mad, mean = size.median(), np.sqrt(np.pi / 2) * size.where(np.isfinite(size)).mean()
    regions = [name for name in MEASURES if name.endswith("_region")]

    def scale(side: pd.DataFrame) -> pd.Series:
        of_side = np.maximum(mad, size.where(side).median().fillna(0)) / 0.6745
        of_side[regions] = of_side[regions].clip(lower=1)
        of_side = of_side.where(of_side > 0, mean)
        return of_side.where(of_side > 0)

    score = (distance / scale(distance >= 0)).where(distance >= 0, distance / scale(distance <= 0))
    score = score.mask(distance == 0, 0.0).mask(np.isinf(distance), distance)
    extremes = score[EXTREMES]
    score[EXTREMES] = extremes.where(extremes < 0, extremes / 2)
    return score


def distances(table: pd.DataFrame) -> pd.Series:
    """How far each module is from its fleet in all measures at once, as a score like those of scores().

    Mahalanobis distances with the minimum covariance determinant (P. J. Rousseeuw and K. Van
    Driessen, "A Fast Algorithm for the Minimum Covariance Determinant Estimator", 1999), which sees
    values that are usual one by one but not together. Their squares are spread like chi squared; the
    cube root makes that a normal distribution (E. B. Wilson and M. M. Hilferty, 1931). Over the
    principal components of the scores, of which a fleet has to have five times as many modules: a
    smaller one gets NaN. Needs scikit-learn.
    """
    from sklearn.covariance import MinCovDet  # type: ignore[import]
    from sklearn.decomposition import PCA  # type: ignore[import]

    result = pd.Series(np.nan, index=table.index, name="distance")
    table = table.reset_index(drop=True)
    score = scores(table)[table["result"] == "ok"].dropna(axis="columns", how="all")
    score = score.loc[:, score.abs().median() > 0].dropna().clip(-100, 100)
    if len(score) < 25 or score.shape[1] < 2:
        return result
    usual = score[(score.abs() <= THRESHOLD).all(axis=1)]
    if len(usual) < 20:
        return result
    axes = PCA(n_components=min(score.shape[1], len(usual) // 5), svd_solver="full").fit(usual)
    kept = axes.explained_variance_ > 1e-9 * axes.explained_variance_[0]
    places = axes.transform(score)[:, kept] / np.sqrt(axes.explained_variance_[kept])
    square = MinCovDet(random_state=0).fit(places).mahalanobis(places)
    spread = 2 / (9 * places.shape[1])
    root = np.cbrt(square / places.shape[1])
    score_of_all = (root - np.median(root)) / np.sqrt(spread)
    result.iloc[score.index] = score_of_all
    return result


def outliers(table: pd.DataFrame, threshold: float = THRESHOLD, *, multivariate: bool = False) -> pd.DataFrame:
    """The values whose score is above the threshold, the farthest first.

    One row a value: row (of the table), path, column, value, median, score. multivariate adds the
    modules whose distances() are, as the column "distance".
    """
    score, values = scores(table), _measured(table)
    if multivariate:
        score["distance"] = values["distance"] = distances(table)
    rows, places = np.nonzero((score.abs() > threshold).to_numpy())
    found = {
        "row": rows,
        "path": table["path"].to_numpy()[rows],
        "column": score.columns.to_numpy()[places],
        "value": values.to_numpy()[rows, places],
        "median": values.median().to_numpy()[places],
        "score": score.to_numpy()[rows, places],
    }
    order = np.argsort(-np.abs(found["score"]), kind="stable")
    return pd.DataFrame(found).iloc[order].reset_index(drop=True)


def duplicates(table: pd.DataFrame, by: str = "text2") -> pd.DataFrame:
    """The rows whose serial another row has, too, next to each other."""
    same = table[table[by].notna() & (table[by] != "") & table.duplicated(by, keep=False)]
    return same.sort_values(by, kind="stable")


def control(table: pd.DataFrame, column: str, by: str = "date") -> pd.DataFrame:
    """Individuals control chart of a column: its points in the order of by, and which are out of control.

    Columns row, path, by, value (finite ones), centre, sigma and rule. sigma is the mean moving range / 1.128, the
    limits are centre +- 3 sigma. rule is the first of the Western Electric rules that a point
    completes, or 0: 1, beyond 3 sigma; 2, two of three beyond 2 sigma; 3, four of five beyond 1
    sigma; 4, eight in a row; each on one side (W. A. Shewhart, 1931; NIST/SEMATECH e-Handbook of
    Statistical Methods, 6.3.2).
    """
    table = table.reset_index(drop=True)
    good = table[(table["result"] == "ok") & np.isfinite(table[column].astype(float)) & table[by].notna()]
    good = good.sort_values(by, kind="stable")
    value = good[column].astype(float)
    centre, sigma = value.mean(), value.diff().abs().mean() / 1.128
    chart = pd.DataFrame({"row": good.index, "path": good["path"].to_numpy(), by: good[by].to_numpy()})
    chart = chart.assign(value=value.to_numpy(), centre=centre, sigma=sigma, rule=0)
    for rule, (many, of, beyond) in reversed(list(enumerate([(1, 1, 3), (2, 3, 2), (4, 5, 1), (8, 8, 0)], 1))):
        for side in (1, -1):
            far = side * (chart["value"] - centre) > beyond * sigma
            chart.loc[far & (far.astype(int).rolling(of, min_periods=many).sum() >= many), "rule"] = rule
    return chart


def control_chart(table: pd.DataFrame, column: str, by: str = "date") -> Any:
    """Draws control(); a matplotlib Figure."""
    from calcut import pages

    return pages.control_chart(control(table, column, by), column, by)


def plot(table: pd.DataFrame, target: _files.Path, threshold: float = THRESHOLD) -> None:
    """Draws a table: all pages into a .pdf, one page into a .png or .svg. Needs matplotlib."""
    from calcut import pages

    pages.save(table, target, threshold)


def dataset(paths: Any, client: Any = None, **options: Any) -> Any:
    """The fleet as one xarray.Dataset: calcut.dataset.dataset. Needs xarray and Dask."""
    from calcut import dataset as module

    return module.dataset(paths, client, **options)


def population(data: Any) -> Any:
    """Maps of a dataset's mean, deviation and outliers; a matplotlib Figure."""
    from calcut import pages

    return pages.population(data)


def _arguments() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser("python -m calcut.fleet", description="A table with one row a dump.")
    _files.add_arguments(parser)
    parser.add_argument("-o", "--output", required=True, metavar="FILE.csv", help="the table")
    parser.add_argument("--outliers", metavar="FILE.csv", help="the values far from their fleet")
    parser.add_argument("--plot", metavar="FILE.pdf", help="pages of pictures (.png and .svg: one page)")
    parser.add_argument("--threshold", type=float, default=THRESHOLD, metavar="SCORE", help=f"of an outlier [{THRESHOLD}]")
    parser.add_argument("--multivariate", action="store_true", help="outliers in all measures at once, too")
    return parser


def check_options(parser: argparse.ArgumentParser, options: argparse.Namespace, targets: Any, modules: Any) -> None:
    """Ends the program where an output or a package would be missing at the end of the work."""
    names = [os.path.realpath(target) for target, _ in targets if target]
    if len(set(names)) < len(names):
        parser.error("two outputs have the same name")
    for target, endings in targets:
        why = target and _files.why_not_written(target, endings, options.force)
        if why:
            parser.error(f"{target}: {why}")
    for wanted, name, package in modules:
        if wanted and find_spec(name) is None:
            parser.error(f"this needs {name} (Debian: {package})")
    if options.jobs is not None and options.jobs < 1:
        parser.error("--jobs takes a number from 1 on")
    try:
        if options.golden is not None:
            calcut.read(options.golden)
    except (OSError, calcut.CalcutError) as error:
        parser.error(f"the golden unit: {error}")


def read_all(parser: argparse.ArgumentParser, options: argparse.Namespace, paths: List[str],
             targets: Any) -> Tuple[pd.DataFrame, bool]:  # fmt: skip
    """The table, and whether it was interrupted. Earlier outputs go away first: none may pass for this run's."""
    client, table, progress = None, Table(options.golden), _files.Progress()
    if options.scheduler is not None:
        from distributed import Client

        try:
            client = Client(options.scheduler)
        except (OSError, ValueError) as error:
            parser.error(f"the scheduler {options.scheduler}: {error}")
    for target, _ in targets:
        if target and os.path.exists(target):
            os.remove(target)
    try:
        _collect(table, paths, client, options.jobs, progress)
    except KeyboardInterrupt:
        progress.clear()
        return table.frame(), True
    finally:
        if client is not None:
            client.close()
    return table.frame(), False


def _summary(table: pd.DataFrame, far: pd.DataFrame) -> str:
    bare = int((table["layout"] == "packed").sum())
    counts = ", ".join(f"{count} {result}" for result, count in table["result"].value_counts().items())
    kinds = f"{len(table) - bare} dumps" + (f" and {bare} bare calibration{'s'[:bare - 1]}" if bare else "")
    again = duplicates(table)
    lines = [f"{kinds}: {counts}; {far['path'].nunique()} far from their fleet"]
    for serial, group in list(again.groupby("text2"))[:10]:
        lines.append(f"the serial {serial} is that of {', '.join(map(_calcut.escape_path, group['path']))}")
    return "\n".join(lines)


def main(words: Optional[List[str]] = None) -> int:
    """Returns 0 when every dump read, 1 when one did not, 130 when interrupted."""
    parser = _arguments()
    options = parser.parse_args(words)
    targets = [(options.output, [".csv"]), (options.outliers, [".csv"]), (options.plot, [".pdf", ".png", ".svg"])]
    if not options.threshold > 0:
        parser.error("--threshold takes a number above 0")
    pages = (options.plot or "").endswith(".pdf")
    check_options(parser, options, targets, [
        (options.plot, "matplotlib", "python3-matplotlib"),
        (pages, "xarray", "python3-xarray"),
        (pages, "dask", "python3-dask"),
        (options.multivariate, "sklearn", "python3-sklearn"),
        (options.scheduler, "distributed", "python3-distributed"),
    ])  # fmt: skip
    try:
        paths = _files.listed(options.dumps, options.files_from, [target for target, _ in targets])
    except OSError as error:
        parser.error(str(error))
    if not paths:
        parser.error("no dumps")
    table, interrupted = read_all(parser, options, paths, targets)
    _files.write_csv(table, options.output)
    if interrupted:
        print(f"interrupted: {options.output} has {len(table)} of {len(paths)} rows", file=sys.stderr)
        return 130
    far = outliers(table, options.threshold, multivariate=options.multivariate)
    if options.outliers is not None:
        _files.write_csv(far, options.outliers)
    if options.plot is not None:
        plot(table, options.plot, options.threshold)
    print(f"{options.output}: {_summary(table, far)}")
    return 0 if (table["result"] == "ok").all() else 1


if __name__ == "__main__":
    # As workers know it, not as __main__.
    from calcut.fleet import main as _main

    sys.exit(_main())
