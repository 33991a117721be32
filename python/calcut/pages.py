"""A fleet on paper: pages that stay readable when they are printed in grey. Needs matplotlib."""

from __future__ import annotations

import os
from typing import Any, Dict, Iterator, List, Sequence

import numpy as np
import pandas as pd  # type: ignore[import]

import calcut
from calcut import _files, fleet
from calcut._residual import residual

try:
    import matplotlib  # type: ignore[import]
    from matplotlib.backends.backend_pdf import PdfPages  # type: ignore[import]
    from matplotlib.figure import Figure  # type: ignore[import]
except ImportError as error:
    raise ImportError("pages need matplotlib (Debian: python3-matplotlib)") from error
from calcut._panel import Plain, uncollected

PAPER = (11.69, 8.27)  # A4, inches
GREY, DARK, MARK = "0.65", "0.25", "#0072B2"
COLOURS = "cividis"  # its lightness rises all the way
WORST = 12  # modules with a sheet of their own
SAMPLE = 256  # modules of the population maps, at most
CREATOR = "calcut.fleet"


def _plain(text: Any, most: int = 28) -> str:
    """Text as it is: no formulas between dollars, nothing that is no character, and not too long."""
    word = str(text).encode("utf-8", "backslashreplace").decode()
    word = word if len(word) <= most else f"{word[: most // 2 - 1]}…{word[-(most // 2):]}"
    return word.replace("$", r"\$")


def _name(path: Any) -> str:
    return _plain(os.path.basename(path) or path)


def _page(title: str, rows: int = 1, columns: int = 1, layout: Any = "constrained", **options: Any) -> Any:
    figure = Figure(figsize=PAPER, layout=layout)
    figure.suptitle(title)
    return figure, figure.subplots(rows, columns, squeeze=False, subplot_kw={"axes_class": Plain}, **options).ravel()


def _label(axes: Any, places: Sequence[Any], names: Sequence[str], most: int = 8, size: float = 6) -> None:
    """Names beside points, the first ones first, and none over another."""
    taken: List[Any] = []
    axes.figure.canvas.draw_idle()
    for place, name in zip(places, names):
        x, y = axes.transData.transform(place)
        width, height = 0.75 * size * (len(name) + 2), 1.6 * size
        if len(taken) < most and not any(abs(x - u) < max(width, w) and abs(y - v) < height for u, v, w in taken):
            taken.append((x, y, width))
            right = x > axes.bbox.x0 + 0.6 * axes.bbox.width
            axes.annotate(name, place, xytext=(-4 if right else 4, 2), textcoords="offset points", fontsize=size,
                          ha="right" if right else "left")  # fmt: skip


def scores_page(table: pd.DataFrame, threshold: float) -> Any:
    """The scores of every column, outliers named."""
    score = fleet.scores(table).dropna(axis="columns", how="all")
    far = score.abs() > threshold
    figure = Figure(figsize=(9, 2.5 + 0.17 * score.shape[1]), layout="constrained")
    axes = figure.subplots()
    axes.set_xscale("symlog", linthresh=threshold)
    size = score.abs().to_numpy()
    limit = 2 * max(threshold, size[np.isfinite(size)].max(initial=0))
    axes.set_xlim(-limit, limit)
    score = score.clip(-limit, limit)  # infinite ones are drawn at the edge
    axes.set_ylim(score.shape[1] - 0.5, -0.5)
    figure.draw_without_rendering()  # so that places on paper are known
    for place, column in enumerate(score):
        usual, others = score[column][~far[column]], score[column][far[column]]
        axes.plot(usual, np.full(len(usual), place), ".", color=GREY, markersize=3)
        axes.plot(others, np.full(len(others), place), "D", color=MARK, markersize=4, clip_on=False)
        others = others.loc[others.abs().sort_values(ascending=False).index]
        _label(axes, [(value, place) for value in others], [_name(table["path"][i]) for i in others.index], 4, 5)
    for value in (-threshold, threshold):
        axes.axvline(value, color="black", linestyle=":", linewidth=1)
    axes.set_yticks(range(score.shape[1]), score.columns, fontsize=6)
    axes.set_xlabel(f"modified z-score, linear up to the threshold of {threshold:g} (dotted)")
    modules = int(far.any(axis=1).sum())
    axes.set_title(f"{len(table)} dumps, {int((table['result'] == 'ok').sum())} read, {modules} beyond the threshold")
    return figure


def _counts(table: pd.DataFrame, far: pd.DataFrame, threshold: float) -> Any:
    figure, (results, faults, measures, text) = _page("What the dumps are", 2, 2)
    again = fleet.duplicates(table)
    names = ["layout", "text1"]
    kinds = table.groupby(names, dropna=True).size().sort_values(ascending=False)[:8]
    bars = [
        (results, "result", table["result"].value_counts()),
        (faults, "fault of dumps that do not read", table["fault"].value_counts()[:12]),
        (measures, f"values beyond a score of {threshold:g}", far["column"].value_counts()[:12]),
    ]
    for axes, title, counts in bars:
        axes.barh(range(len(counts)), counts.to_numpy(dtype=float), color=GREY, edgecolor=DARK)
        axes.set_yticks(range(len(counts)), [_plain(word) for word in counts.index], fontsize=8)
        for place, count in enumerate(counts):
            axes.annotate(f" {count}", (count, place), va="center", fontsize=8)
        axes.margins(x=0.15)
        axes.locator_params(axis="x", integer=True)
        axes.invert_yaxis()
        axes.set_title(title, fontsize=10)
    lines = [f"{len(table)} files"]
    lines += [f"{count} x {_plain(layout)} {_plain(model)}" for (layout, model), count in kinds.items()]
    days = table["date"].dropna()
    if len(days):
        lines.append(f"calibrated {days.min():%Y-%m-%d} to {days.max():%Y-%m-%d}")
    lines.append(f"{far['path'].nunique()} modules with values far from their fleet")
    lines.append(f"{again['text2'].nunique()} serials more than once")
    for serial, group in list(again.groupby("text2"))[:6]:
        lines.append(f"  {_plain(serial)}: {', '.join(map(_name, group['path'][:4]))}")
    text.axis("off")
    text.text(0, 1, "\n".join(lines), va="top", fontsize=10)
    return figure


def _distributions(table: pd.DataFrame, threshold: float) -> Iterator[Any]:
    """A histogram of each measure with what the threshold is in its unit, outliers named."""
    score = fleet.scores(table).dropna(axis="columns", how="all")
    # What all modules share has no distribution.
    chosen = [name for name in score if score[name].abs().max() > 0]
    for start in range(0, len(chosen), 12):
        figure, panels = _page("Distributions: dotted is the median, dashed where values count as far", 3, 4, None)
        # Nothing beside these needs room of its own, and finding that out would take a third of the time.
        figure.subplots_adjust(0.02, 0.04, 0.98, 0.9, 0.08, 0.3)
        for axes, name in zip(panels, chosen[start : start + 12]):
            value, far = table[name].where(table["result"] == "ok"), score[name].abs() > threshold
            usual = value[~far & np.isfinite(value)]
            axes.hist(usual, bins=min(40, max(5, len(usual) // 8)), color=GREY)
            axes.axvline(value.median(), color="black", linestyle=":", linewidth=1)
            finite = score[name][np.isfinite(score[name])]
            for side in (finite[finite > 0].index, finite[finite < 0].index):
                if len(side) and (value[side] != value.median()).any():
                    at = score[name][side].abs().idxmax()
                    step = threshold * (value[at] - value.median()) / abs(score[name][at])
                    axes.axvline(value.median() + step, color=DARK, linestyle="--", linewidth=1)
            lowest, highest = axes.get_xlim()
            axes.set_xlim(lowest, highest)  # a far one must not squeeze the others: it is put at the edge
            height = axes.get_ylim()[1]
            worst = score[name].abs()[far].sort_values(ascending=False).index
            lines = [f"{_name(table['path'][i])}: {value[i]:.4g}" for i in worst[:4]]
            lines += [f"and {len(worst) - 4} more"] if len(worst) > 4 else []
            if len(worst):
                axes.plot(value[worst].clip(lowest, highest), np.full(len(worst), 0.04 * height), "D", color=MARK,
                          markersize=4, clip_on=False)  # fmt: skip
            axes.text(0.98, 0.97, "\n".join(lines), transform=axes.transAxes, fontsize=6, va="top", ha="right")
            axes.set_title(name, fontsize=8)
            axes.tick_params(labelsize=6)
            axes.locator_params(axis="x", nbins=4)
            axes.set_yticks([])
        for axes in panels[len(chosen) - start :]:
            axes.axis("off")
        yield figure


def _draw_control(axes: Any, chart: pd.DataFrame, column: str, by: str) -> None:
    place = np.arange(len(chart))
    out = chart[chart["rule"] > 0]
    axes.plot(place, chart["value"], "-", color=GREY, linewidth=0.5)
    axes.plot(place, chart["value"], ".", color=DARK, markersize=2)
    centre, sigma = (chart[name].iloc[0] for name in ("centre", "sigma"))
    axes.axhline(centre, color="black", linewidth=0.8)
    for side in (-1, 1):
        axes.axhline(centre + 3 * side * sigma, color="black", linestyle="--", linewidth=0.8)
    for rule, marker in zip((1, 2, 3, 4), "Dsv^"):
        some = out[out["rule"] == rule]
        axes.plot(some.index, some["value"], marker, color=MARK, markersize=4, linestyle="",
                  label=f"rule {rule}: {len(some)}")  # fmt: skip
    ticks = np.unique(np.linspace(0, len(chart) - 1, 6).astype(int))
    axes.set_xticks(ticks, [str(chart[by].iloc[tick])[:10] for tick in ticks], fontsize=7)
    axes.set_xlabel(f"modules by {by}", fontsize=8)
    axes.set_ylabel(column, fontsize=8)
    axes.margins(y=0.15)
    axes.legend(fontsize=6, ncols=4, loc="upper left", title="out of control (Western Electric)", title_fontsize=6)
    axes.figure.draw_without_rendering()
    worst = out.loc[((out["value"] - centre).abs() / max(sigma, 1e-300) - out["rule"]).sort_values().index[::-1]]
    _label(axes, list(zip(worst.index, worst["value"])), [_name(path) for path in worst["path"]])


def control_chart(chart: pd.DataFrame, column: str, by: str) -> Any:
    """What fleet.control() found, with the limits and the points out of control named."""
    if chart.empty:
        raise ValueError(f"no module has both {column} and {by}")
    figure, (axes,) = _page(f"{column} by {by}: individuals chart with limits from the moving range")
    _draw_control(axes, chart, column, by)
    return figure


def _controls(table: pd.DataFrame) -> Iterator[Any]:
    for pair in (("fx", "fy"), ("cx", "cy"), ("k1", "masked_pixels")):
        charts = [(name, fleet.control(table, name)) for name in pair]
        if all(len(chart) >= 8 for _, chart in charts):
            figure, panels = _page("Control charts: individuals with limits from the moving range", 2)
            for axes, (name, chart) in zip(panels, charts):
                _draw_control(axes, chart, name, "date")
            yield figure


def _map(axes: Any, image: Any, title: str) -> None:
    finite = image[np.isfinite(image)]
    low, high = np.percentile(finite, [1, 99]) if finite.size else (0, 1)
    drawn = axes.imshow(image, cmap=COLOURS, vmin=low, vmax=high if high > low else low + 1, interpolation="nearest")
    axes.figure.colorbar(drawn, ax=axes, shrink=0.7).ax.tick_params(labelsize=6)
    axes.set_title(title, fontsize=8)
    axes.set_xticks([])
    axes.set_yticks([])


def population(data: Any) -> Any:
    """Maps of a dataset over its modules: mean, and of what is left without the smooth part deviation and far values."""
    import dask  # type: ignore[import]
    import xarray  # type: ignore[import]

    tables = {"pixel values": data["pixel_values"]}
    for place in range(data.sizes["frequency"]):
        tables[f"frequency {place}"] = data["pixel_table"].isel(frequency=place, drop=True)
    valid, sides = data["mask"] != 0, ["row", "column"]
    maps: Dict[str, Any] = {"modules where it is masked": (~valid).sum("module")}
    for name, table in tables.items():
        rest = xarray.apply_ufunc(residual, table, valid, input_core_dims=[sides, sides], output_core_dims=[sides],
                                  vectorize=True, dask="parallelized", output_dtypes=[np.float32])  # fmt: skip
        deviation = rest.std("module")
        maps[f"{name}: mean"] = table.where(valid).mean("module")
        maps[f"{name}: deviation of the residual"] = deviation
        far = abs(rest - rest.mean("module")) > fleet.THRESHOLD * deviation
        maps[f"{name}: modules with a far residual"] = far.sum("module")
    with np.errstate(all="ignore"):  # pixels that are masked in every module
        images = dask.compute(maps)[0]
    title = f"Population of {data.sizes['module']} modules; far is beyond {fleet.THRESHOLD:g} deviations of its pixel"
    figure, panels = _page(title, -(-len(maps) // 4), 4)
    for axes, (name, image) in zip(panels, images.items()):
        _map(axes, image.to_numpy(), name)
    for axes in panels[len(maps) :]:
        axes.axis("off")
    return figure


def _population_of(table: pd.DataFrame) -> Iterator[Any]:
    from calcut import dataset

    good = table[table["result"] == "ok"]
    for _, some in good.groupby(["columns", "rows", "frequencies"]):
        if len(some) >= 8:
            chosen = some.iloc[np.unique(np.linspace(0, len(some) - 1, SAMPLE).astype(int))]
            yield population(dataset.dataset(list(chosen["path"])))


def _sheet(axes: Any, text: Any, path: str, marks: pd.DataFrame) -> None:
    """Where a module is odd: the residual of the table that it is odd in, and its farthest values."""
    lines = [f"{_plain(mark.column)} {mark.value:.5g}, score {mark.score:.3g}" for mark in marks[:6].itertuples()]
    lines += [f"and {len(marks) - 6} more"] if len(marks) > 6 else []
    text.axis("off")
    text.text(0, 1, "\n".join(lines), va="top", fontsize=7, transform=text.transAxes)
    from calcut._measures import PIXEL_TABLES, tables_of

    found = [table for mark in marks["column"] for table in PIXEL_TABLES if mark.startswith(table)]
    table = found[0] if found else "pixel_values"
    try:
        module = calcut.read(path)
        _map(axes, residual(tables_of(module)[table], module.mask), f"{_name(path)}\n{table} less its smooth part")
    except (OSError, KeyError, calcut.CalcutError):  # gone or changed since
        axes.axis("off")
        axes.set_title(f"{_name(path)}: does not read any more", fontsize=8)


def _worst(far: pd.DataFrame) -> Iterator[Any]:
    paths = list(dict.fromkeys(far["path"]))[:WORST]
    for start in range(0, len(paths), 6):
        figure, panels = _page("The modules farthest from their fleet", 4, 3, height_ratios=[3, 1, 3, 1])
        grid = panels.reshape(4, 3)
        for axes in panels:
            axes.axis("off")
        for place, path in enumerate(paths[start : start + 6]):
            row, column = 2 * (place // 3), place % 3
            grid[row, column].axis("on")
            _sheet(grid[row, column], grid[row + 1, column], path, far[far["path"] == path])
        yield figure


def figures(table: pd.DataFrame, threshold: float) -> Iterator[Any]:
    """All pages, one after the other."""
    far = fleet.outliers(table, threshold)
    yield _counts(table, far, threshold)
    if (table["result"] == "ok").any():
        yield scores_page(table, threshold)
        yield from _distributions(table, threshold)
        yield from _controls(table)
        yield from _population_of(table)
        yield from _worst(far)


def save(table: pd.DataFrame, target: _files.Path, threshold: float) -> None:
    """Pages into a .pdf, the page of scores into a .png or .svg. The same table gives the same bytes."""
    ending, table = os.path.splitext(os.fsdecode(target))[1], table.reset_index(drop=True)
    with _files.whole(target) as unfinished, matplotlib.rc_context({"svg.hashsalt": CREATOR}), uncollected():
        if ending == ".pdf":
            with PdfPages(unfinished, metadata={"Creator": CREATOR, "CreationDate": None}) as pages:
                for figure in figures(table, threshold):
                    pages.savefig(figure)
        else:
            metadata: Dict[str, Any] = {"Software": CREATOR} if ending == ".png" else {"Creator": CREATOR, "Date": None}
            scores_page(table, threshold).savefig(unfinished, metadata=metadata, dpi=120)
