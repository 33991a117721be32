"""The row of one dump: everything that is measured about a module."""

from __future__ import annotations

import os
import re
from functools import lru_cache
from typing import Any, Dict, List, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

import calcut
from calcut import _calcut
from calcut._residual import rest_and_valid

Array = NDArray[Any]

LENS = list(calcut.Lens._fields)
STATISTICS = ["mean", "std", "min", "max", "median", "mad", "not_finite"]
#: Of a table less its smooth part.
RESIDUALS = ["residual", "row_max", "row_stripe", "column_max", "column_stripe", "single", "farthest", "region"]
DIFFERENCES = ["mean", "rms", "max"]
BROAD = 8  # rows or columns: what has a longer period is no stripe
PIXEL_TABLES = ["pixel_values", *(f"frequency{k}" for k in range(8))]
TABLES = [*PIXEL_TABLES, "psf"]

#: What is compared across a fleet.
MEASURES = [
    *LENS,
    "masked_pixels",
    *(f"{table}_{name}" for table in PIXEL_TABLES for name in STATISTICS + RESIDUALS),
    *(f"psf_{name}" for name in STATISTICS),
]
#: Differences from a golden unit.
GOLDEN = [f"{table}_golden_{name}" for table in [*TABLES, "lens"] for name in DIFFERENCES]
#: The largest of many values, and so spread like one.
EXTREMES = [name for name in MEASURES if name.rsplit("_", 1)[-1] in ("min", "max", "stripe", "single", "farthest", "region")]

#: Every table has all of these columns, whatever the dumps hold, so that tables can be compared and
#: put together.
COLUMNS: Dict[str, str] = {
    **dict.fromkeys(["path", "result", "fault"], "string"),
    "offset": "Int64",
    **dict.fromkeys(["fault_text", "warnings", "layout"], "string"),
    **dict.fromkeys(["columns", "rows", "frequencies"], "Int64"),
    **dict.fromkeys(["text0", "text1", "text2", "id_bytes"], "string"),
    "date": "datetime64[ns]",
    **dict.fromkeys(MEASURES, "float64"),
}


def columns(golden: Any = None) -> Dict[str, str]:
    """COLUMNS, and those of a golden unit where there is one."""
    return COLUMNS if golden is None else {**COLUMNS, **dict.fromkeys(GOLDEN, "float64")}


def statistics(values: Array) -> Dict[str, float]:
    """Of the finite ones among the values; mad is the median distance from the median."""
    values = np.ravel(values)
    ordered = np.sort(values[np.isfinite(values)]).astype(np.float64)
    count = len(ordered)
    result = dict.fromkeys(STATISTICS, float("nan"))
    result["not_finite"] = float(values.size - count)
    if count:
        # Around the middle: one place of an odd count, two of an even one.
        middle = slice((count - 1) // 2, count // 2 + 1)
        median = ordered[middle].mean()
        # The k values nearest to the median are neighbours in the order.
        nearest = [
            np.maximum(median - ordered[: count - k], ordered[k:] - median).min()
            for k in range(middle.start, middle.stop)
        ]
        mean = ordered.mean()
        ordered_from_mean = ordered - mean
        result.update(
            mean=float(mean),
            std=float(np.sqrt(np.dot(ordered_from_mean, ordered_from_mean) / count)),
            min=float(ordered[0]),
            max=float(ordered[-1]),
            median=float(median),
            mad=float(np.mean(nearest)),
        )
    return result


@lru_cache(maxsize=8)
def _enough(packed: bytes, rows: int, columns: int) -> List[Tuple[Array, Array]]:
    """Columns, then rows, that are valid for a quarter or more, and how many of their pixels are."""
    valid = np.unpackbits(np.frombuffer(packed, np.uint8), count=rows * columns).reshape(rows, columns)
    counts = [valid.sum(axis=axis, dtype=np.int64) for axis in (0, 1)]
    places = [np.flatnonzero(4 * count >= size) for count, size in zip(counts, (rows, columns))]
    return [(place, count[place]) for place, count in zip(places, counts)]


def residuals(table: Array, mask: Array) -> Dict[str, float]:
    """Of the valid pixels of a table less its smooth part: deviation, row and column means, farthest value.

    max is the farthest of the means of rows or columns, stripe the largest amplitude in their spectrum,
    of stripes that repeat within 8, also where they are far below the noise of a pixel. region counts the pixels of the largest connected region of one value, in the table itself.
    """
    rest, valid = rest_and_valid(table, mask)
    result = dict.fromkeys(RESIDUALS, float("nan"))
    count = np.count_nonzero(valid)
    if not count:
        return result
    enough = _enough(np.packbits(valid).tobytes(), *valid.shape)
    for name, sums, (places, counts) in zip(("column", "row"), (rest.sum(axis=0), rest.sum(axis=1)), enough):
        if len(places):
            means = sums[places] / counts
            result[f"{name}_max"] = float(np.abs(means).max())
            result[f"{name}_stripe"] = float(np.abs(np.fft.rfft(means))[len(means) // BROAD :].max() / len(means))
    result["residual"] = float(np.sqrt(np.vdot(rest, rest) / count))
    result["single"] = float(max(rest.max(), -rest.min()))
    region, result["farthest"] = _calcut.table_measures(table, valid)
    result["region"] = float(region)
    return result


def tables_of(module: calcut.Calibration) -> Dict[str, Array]:
    """The pixel tables and the PSF, by the names that columns begin with."""
    tables = {"pixel_values": module.pixel_values}
    tables.update({f"frequency{frequency.index}": frequency.pixel_table for frequency in module.frequencies})
    if module.psf is not None:
        tables["psf"] = module.psf
    return tables


@lru_cache(maxsize=2)
def _golden_unit(path: str, _size: int, _changed: int) -> calcut.Calibration:
    return calcut.read(path)


def _angles(module: calcut.Calibration, golden: calcut.Calibration) -> Array:
    """Degrees between the rays of the same pixel."""
    apart = np.linalg.norm(module.directions.astype(np.float64) - golden.directions, axis=2)
    return np.degrees(2 * np.arcsin(np.clip(apart / 2, 0, 1)))


def differences(module: calcut.Calibration, golden: calcut.Calibration) -> Dict[str, float]:
    """Mean, RMS and largest difference from a golden unit, over pixels that are valid in both.

    The lens is compared by the angle between the rays of the same pixel, in degrees. Nothing of
    tables that only one of them has, nor of modules of another size.
    """
    result: Dict[str, float] = {}
    if (module.rows, module.columns) != (golden.rows, golden.columns):
        return result
    valid = (module.mask != 0) & (golden.mask != 0)
    theirs = tables_of(golden)
    apart = {"lens": _angles(module, golden)[valid]}
    for name, table in tables_of(module).items():
        if name in theirs and theirs[name].shape == table.shape:
            difference = table.astype(np.float64) - theirs[name]
            apart[name] = difference.ravel() if name == "psf" else difference[valid]
    for name, values in apart.items():
        values = values[np.isfinite(values)]
        if len(values):
            numbers = (values.mean(), np.sqrt(np.mean(values**2)), np.abs(values).max())
            result.update({f"{name}_golden_{kind}": float(n) for kind, n in zip(DIFFERENCES, numbers)})
    return result


def date_of(text: Optional[str]) -> np.datetime64:
    """The day that a number such as 20260110 in the text names, or NaT."""
    found = re.search(r"(?<!\d)(\d{4})(\d\d)(\d\d)(?!\d)", text or "")
    try:
        day = np.datetime64("-".join(found.groups()) if found else "NaT", "D")
    except ValueError:  # no such day
        day = np.datetime64("NaT", "D")
    # A year that nanoseconds cannot count to is no day of a calibration.
    held = np.datetime64("1678") <= day < np.datetime64("2262")
    return np.datetime64(day if held else "NaT", "ns")


def good_row(module: calcut.Calibration, golden: Optional[str] = None) -> Dict[str, Any]:
    """The columns of a module that reads."""
    row: Dict[str, Any] = {"result": "ok", **module.lens._asdict()}
    for name in ("layout", "columns", "rows", "text0", "text1", "text2"):
        row[name] = getattr(module, name)
    row["date"] = date_of(module.text0)
    row["warnings"] = ";".join(warning.name for warning in module.warnings)
    row["id_bytes"] = (module.id_bytes or b"").hex()
    row["frequencies"] = len(module.frequencies)
    valid = module.mask != 0
    row["masked_pixels"] = float(valid.size - np.count_nonzero(valid))
    for name, table in tables_of(module).items():
        measured = statistics(table if name == "psf" else table[valid])
        if name != "psf":
            measured.update(residuals(table, module.mask))
        row.update({f"{name}_{measure}": value for measure, value in measured.items()})
    if golden is not None:
        about = os.stat(golden)  # it may be replaced while a worker lives
        row.update(differences(module, _golden_unit(golden, about.st_size, about.st_mtime_ns)))
    return row


def failed_row(result: str, fault: str, text: str) -> Dict[str, Any]:
    return {"result": result, "fault": fault, "fault_text": text}


def row(path: str, golden: Optional[str] = None) -> Dict[str, Any]:
    """The row of one dump; a dump that does not read has one, too."""
    try:
        return good_row(calcut.read(path), golden)
    except calcut.CalcutError as error:
        found = calcut.diagnose(path)
        return {
            **failed_row("refused", error.name, error.finding.text),
            "offset": error.offset,
            "layout": found.layout,
            "warnings": ";".join(warning.name for warning in found.warnings),
        }
    except OSError as error:
        return failed_row("unreadable", "file", str(error))
    except Exception as error:  # one dump must not take its neighbours along
        return failed_row("failed", type(error).__name__, str(error))


def rows(_start: int, paths: List[str], golden: Optional[str] = None) -> List[Tuple[Any, ...]]:
    """Rows as they travel: values in the order of columns()."""
    return [values_of(path, row(path, golden), golden) for path in paths]


def values_of(path: str, found: Dict[str, Any], golden: Optional[str] = None) -> Tuple[Any, ...]:
    found["path"] = path
    return tuple(map(found.get, columns(golden)))
