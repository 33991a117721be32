"""A module's calibration as one sheet, and the differences of two modules, as matplotlib figures.

>>> calcut.plot.sheet("module.eeprom").savefig("sheet.png")
>>> calcut.plot.comparison("golden.eeprom", "module.eeprom").savefig("differences.pdf")
"""

from __future__ import annotations

import json
import os
from functools import partial
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple

import numpy as np

import calcut

from . import _calcut
from ._panel import (CURVE, DIVERGING, DPI, FAULT, HEIGHT, INK, LINE, LONGEST, MOST_RINGS, QUIET, SEQUENTIAL, STYLE, WIDTH, Array, Box,
                     Cell, Figure, ListedColormap, around, matplotlib, statistics, text_width, ticks, widest)
from ._residual import residual

Panel = Callable[[Cell], None]
Limits = Optional[Tuple[float, float]]
PIXELS = ("row (pixels)", "column (pixels)")
OFFSETS = ("offset y (elements)", "offset x (elements)")
ROOM = Box(68, 76, 230, 200)  # of an image in its panel
_REST = Box(68, 72, 230, 148)  # of a residual


# --------------------------------------------------------------------------------------- panels --


def _rings(axes: Any, chosen: Array, origin: Tuple[int, int] = (0, 0)) -> None:
    row, column = np.nonzero(chosen)
    for colour, width in (("white", 2.6), (INK, 1.0)):
        axes.scatter(column + origin[1], row + origin[0], 50, facecolors="none", edgecolors=colour, linewidths=width)


def _map(cell: Cell, title: str, values: Array, label: str, limits: Limits = None, mask: Optional[Array] = None,
         colours: Any = SEQUENTIAL, origin: Tuple[int, int] = (0, 0), note: str = "", legend: Sequence[str] = (),
         footer: str = "", rings: Optional[Array] = None, sides: Tuple[str, str] = PIXELS, told: bool = True) -> Any:
    """A panel with one value for each pixel; without a label there is no colour bar. told: what marks mean.

    Returns its axes, or None where there is nothing to draw.
    """
    masked = np.zeros(values.shape, bool) if mask is None else mask == 0
    found = statistics(values, masked)
    low, high = limits or around(found.low, found.high)
    good = np.isfinite(values) & ~masked
    # The tail of normally distributed noise reaches this far once in several images.
    wild = good & (np.abs(values - 0.5 * (low + high)) > 0.75 * (high - low)) if label and rings is None else ~good & good
    broken = ~(good | masked)
    many = ", too many to ring" if np.count_nonzero(wild) > MOST_RINGS else ""
    marks = ((masked, "□ masked ({})"), (broken, "■ not finite ({})"), (wild, "○ outliers ({}" + many + ")"))
    words = [text.format(np.count_nonzero(chosen)) for chosen, text in marks if told and chosen.any()]
    words += ["stretched"] if max(values.shape) > LONGEST * min(values.shape) > 0 else []
    cell.head(title, note, [*legend, *words])
    if not values.size:
        cell.text(WIDTH / 2, HEIGHT / 2, "empty", 15, colour=QUIET, ha="center")
        return None
    axes, box = cell.image(values, colours, (low, high), ROOM, origin, masked)
    for chosen, most in ((wild, MOST_RINGS), (broken, 20), (rings, MOST_RINGS)):
        if chosen is not None and 0 < np.count_nonzero(chosen) <= most:
            _rings(axes, chosen, origin)
    rows, columns = (widest([text.get_text() for text in axis.get_ticklabels()]) for axis in (axes.yaxis, axes.xaxis))
    cell.upright(box.x - rows - 16, box, sides[0])
    cell.text(box.x + box.width / 2, box.y + box.height + 36, sides[1], most=300, ha="center")
    cell.text(12, 334, footer or found.text, 11, colour=QUIET)
    if label and found.count:
        cell.bar(box, colours, (low, high), label, (values[good] < low).any(), (values[good] > high).any())
    return axes


def _stored(tree: Dict[str, Any], block: int, limits: Tuple[float, float]) -> str:
    """How finely a block stores its values, so that the steps of a coarse table are not taken for contours."""
    found = [each for each in (tree["calibration"] or {"blocks": []})["blocks"] if each["id"] == block]
    if not found or found[-1]["bits"] is None:
        return "stored as floats" if found else ""
    step = abs(float(found[-1]["scale"]))
    bands = "; bands are these steps, no contours" if limits[1] - limits[0] < 64 * step else ""
    return f"stored in {found[-1]['bits']} bits, step {step:.3g}{bands}"


def _table(cell: Cell, tree: Dict[str, Any], title: str, values: Array, mask: Array, block: int, limits: Limits) -> None:
    found = statistics(values, mask == 0)
    label = "value (unit not recorded)" if limits is None else "value, same scale for all"
    limits = limits or around(found.low, found.high)
    _map(cell, title, values, label, limits, mask, note=_stored(tree, block, limits))


def _rest(cell: Cell, title: str, values: Array, mask: Array) -> None:
    """What the smooth part hides: the residual, the means of its rows and columns, and its histogram."""
    rest = residual(values, mask)
    good = np.isfinite(rest)
    found = statistics(rest, ~good)
    words = f"std {np.std(rest[good], dtype=np.float64):.4g}, from {np.min(rest[good]):.4g} to {np.max(rest[good]):.4g}" if found.count else ""
    cell.head(title + ", residual", "the table less a smooth fit of order 4", [words])
    if not found.count:
        cell.text(WIDTH / 2, HEIGHT / 2, statistics(values, mask == 0).text, 13, colour=QUIET, most=390, ha="center")
        return
    reach = around(0, max(-found.low, found.high))[1]
    axes, box = cell.image(rest, DIVERGING, (-reach, reach), _REST, masked=~good)
    axes.tick_params(labelbottom=False)
    wild = good & (np.abs(rest) > 1.5 * reach)
    if 0 < np.count_nonzero(wild) <= MOST_RINGS:
        _rings(axes, wild)
    labels = [text.get_text() for text in axes.get_yticklabels()]
    cell.upright(box.x - widest(labels) - 16, box, PIXELS[0])
    with np.errstate(invalid="ignore"):
        means = [np.where(good, rest, 0).sum(axis, np.float64) / good.sum(axis) for axis in (0, 1)]
    most = around(0, max(np.nanmax(np.abs(each)) for each in means))[1]
    # Strips below and beside the image, in its coordinates along the edge.
    blend = matplotlib.transforms.blended_transform_factory
    for each, way, side, length in ((means[0], "vertical", -1, box.height), (means[1], "horizontal", 1, box.width)):
        thick, middle = 26 / length, (side + 1) / 2 + side * 18 / length
        ways = (axes.transData, axes.transAxes)[::-side]
        step = matplotlib.patches.StepPatch(middle + each / most * thick / 2, np.arange(len(each) + 1) - 0.5, fill=True,
                                            orientation=way, baseline=middle, transform=blend(*ways), color=CURVE, linewidth=0)
        corner, size = (middle - thick / 2, 0), (thick, 1)
        frame = matplotlib.patches.Rectangle(corner[::side], *size[::side], transform=axes.transAxes, fill=False,
                                             edgecolor=LINE, linewidth=0.7)
        for patch in (step, frame):
            axes.add_artist(patch).set_clip_on(False)
    lines = ["means up to", f"±{most:.2g}", ""]
    for name, each in (("row", means[1]), ("column", means[0])):
        at = int(np.nanargmax(np.abs(each)))
        lines += [f"{name} {at}:", f"{each[at]:+.3g}"]
    lines += [f"○ outliers", f"({np.count_nonzero(wild)})"] if wild.any() else []
    for place, line in enumerate(lines):
        cell.text(box.x + box.width + 41, box.y + 10 + 15 * place, line, 10.5, colour=QUIET)
    # The histogram is the colour bar.
    bar = Box(_REST.x, box.y + box.height + 36, _REST.width, 44)
    bars = cell.axes(bar)
    counts, edges = np.histogram(np.clip(rest[good], -reach, reach), 64, (-reach, reach))
    corners = np.array([[edges[:-1], 0 * counts], [edges[:-1], counts], [edges[1:], counts], [edges[1:], 0 * counts]])
    shades = DIVERGING(np.linspace(0, 1, 64))
    bars.add_collection(matplotlib.collections.PolyCollection(corners.transpose(2, 0, 1), facecolors=shades, linewidths=0),
                        autolim=False)
    places, labels, left_out = ticks(-reach, reach, bar.width / 50)
    bars.set_xticks(places, labels)
    bars.set(xlim=(-reach, reach), ylim=(0, counts.max() * 1.05), yticks=[])
    cell.text(bar.x + bar.width / 2, bar.y + bar.height + 34, "table - fit (unit not recorded)" + left_out, most=330, ha="center")


def _mask(cell: Cell, mask: Array) -> None:
    zeros = np.count_nonzero(mask == 0)
    share = 100 * zeros / max(mask.size, 1)
    highest = int(mask.max(initial=0))
    words = [f"■ masked, 0 ({zeros})"] + [f"□ valid, 1 ({mask.size - zeros})"] * (highest < 2)
    colours = SEQUENTIAL.copy() if highest > 1 else ListedColormap(["white"])
    colours.set_bad("black")
    padded = np.pad(mask, 1, constant_values=1) == 0
    beside = padded[:-2, 1:-1] | padded[2:, 1:-1] | padded[1:-1, :-2] | padded[1:-1, 2:]
    _map(cell, "Pixel mask", mask, "mask value" if highest > 1 else "", (1.0, max(highest, 2.0)), mask, colours,
         legend=words, footer=f"{share:.4g} % of {mask.size} pixels are masked", rings=(mask == 0) & ~beside, told=False)


def _arrows(axes: Any, x: Array, y: Array, across: Array, down: Array) -> None:
    """A dark edge keeps them visible on light colours."""
    tips = np.stack([x + across, y + down], -1).reshape(-1, 2)
    ways = tips - np.stack([x, y], -1).reshape(-1, 2)
    sizes = np.hypot(*ways.T)[:, None]
    tips, ways, sizes = (each[(sizes > 0).ravel()] for each in (tips, ways, sizes))
    heads = ways * np.minimum(1, abs(np.diff(axes.get_xlim())) / 38 / sizes)
    barbs = [tips - heads @ np.array([[np.cos(turn), np.sin(turn)], [-np.sin(turn), np.cos(turn)]]) for turn in (0.45, -0.45)]
    lines = [*np.stack([tips - ways, tips], 1), *np.stack([barbs[0], tips, barbs[1]], 1)]
    for colour, width in ((INK, 2.2), ("white", 1.0)):
        axes.add_collection(matplotlib.collections.LineCollection(lines, colors=colour, linewidths=width), autolim=False)


def _rays(cell: Cell, rays: Array, lens: Any) -> None:
    """Angles, and arrows from pixels to where a pinhole without distortion sees the same ray."""
    rays = rays.astype(np.float64)
    x, y, z = rays[..., 0], rays[..., 1], rays[..., 2]
    rows, columns = x.shape
    with np.errstate(all="ignore"):
        angles = np.degrees(np.arctan2(np.hypot(x, y), z))
        angles[~np.isfinite(rays).all(2)] = np.nan
        across = lens.fx * x / z + lens.cx - np.arange(columns)
        down = lens.fy * y / z + lens.cy - np.arange(rows)[:, None]
        shift = np.where(np.isfinite(angles), np.hypot(across, down), np.nan)
    shifts = statistics(shift, np.zeros(shift.shape, bool))
    bad = np.count_nonzero(np.isnan(angles))
    note = f"{bad} of {angles.size} rays are not finite; " if bad else ""
    step = max(1.0, max(rows, columns) / 12)
    factor = 0.0
    if bad == angles.size:
        note = "no ray is finite: look at the lens parameters" if bad else ""
    elif not shifts.count:
        note += "none can be compared with a pinhole's"
    elif shifts.high <= 1e-3:
        note += f"no distortion: every {'other ' if bad else ''}ray is that of a pinhole"
    else:
        # One digit times a power of ten; none but a few wild ones much longer than half the way on.
        limit = max(0.7 * step / shifts.high, 1e-6)
        power = 10 ** np.floor(np.log10(limit))
        factor = power * np.floor(limit / power * (1 + 1e-12))
        note += f"arrows, {factor:.3g}x: to the same ray of a pinhole (longest {np.nanmax(shift):.3g} px)"
    inside = -0.5 <= lens.cx <= columns - 0.5 and -0.5 <= lens.cy <= rows - 0.5
    centre = f"+ principal point ({lens.cx:.4g}, {lens.cy:.4g}){'' if inside else ', not on the image'}"
    axes = _map(cell, "Ray directions", angles, "angle from axis (degrees)", note=note, legend=[centre])
    if axes is None:
        return
    if factor:
        many = [max(1, int(count / step)) for count in (rows, columns)]
        row, column = ((2 * np.arange(k) + 1) * count // (2 * k) for k, count in zip(many, (rows, columns)))
        at = np.ix_(row, column)
        _arrows(axes, *np.meshgrid(column, row), factor * across[at], factor * down[at])
    if inside:
        for colour, width in (("white", 3.0), (INK, 1.2)):
            axes.plot(lens.cx, lens.cy, "+", color=colour, markersize=9, markeredgewidth=width)


def _centred(psf: Array) -> Tuple[Array, Tuple[int, int]]:
    """With the origin, element (0, 0), in the middle: offsets wrap around the edges."""
    behind = tuple((size - 1) // 2 for size in psf.shape)
    return np.roll(psf, behind, (0, 1)), (-behind[0], -behind[1])


def _psf(cell: Cell, psf: Optional[Array], width: int, height: int) -> None:
    note = f"{width} x {height} elements"
    if psf is None or width * height == 0:
        _map(cell, "Straylight PSF", np.empty((0, 0)), "", note=note)
        return
    centred, origin = _centred(psf)
    with np.errstate(all="ignore"):
        decades = np.log10(centred, dtype=np.float64)
    found = decades[np.isfinite(decades)]
    highest = found.max(initial=-np.inf)
    # It falls by hundreds of decades; more than these say nothing about the optics.
    limits = around(max(found.min(initial=np.inf), highest - 12), highest)
    footer = statistics(psf, np.zeros(psf.shape, bool)).text
    _map(cell, "Straylight PSF", decades, "log10 of the element", limits, origin=origin, footer=footer,
         note=note + ", the origin in the middle", sides=OFFSETS)


def _profile(cell: Cell, light: Any, made: bool) -> None:
    x, y = light.radius, light.value
    if made:  # with the origin that making the PSF puts in front
        x, y = np.insert(x, 0, 0), np.insert(y, 0, 0)
    note = (f"PSF = {light.scale:.4g} exp(-g), {light.exponent:.4g}-norm radius; "
            f"offset {light.offset:.4g}, centre {light.centre:.4g}")
    cell.head("Straylight profile", note, ["● nodes" + ", with the origin" * made, "— interpolated"])
    axes = cell.axes(Box(68, 76, 320, 212))
    good = np.isfinite(x) & np.isfinite(y)
    left, right = around(x[good].min(initial=0), x[good].max(initial=0))
    between = np.linspace(left, right, 400, dtype=np.float32)
    curve = _calcut.interpolate(x, y, between)
    axes.plot(between, curve, color=CURVE, linewidth=1.6)
    axes.plot(x[good], y[good], "o", color=INK, markersize=4)
    heights = np.concatenate([y[good], curve[np.isfinite(curve)]])
    _scales(cell, axes, Box(68, 76, 320, 212), (left, right), around(heights.min(initial=0), heights.max(initial=0)),
            "radius (PSF elements)", "exponent g")


def _scales(cell: Cell, axes: Any, box: Box, x: Tuple[float, float], y: Tuple[float, float], across: str,
            up: str) -> None:
    for axis, (low, high), most in ((axes.xaxis, x, box.width / 50), (axes.yaxis, y, box.height / 40)):
        room = 0.03 * (high - low)
        places, labels, left_out = ticks(low, high, most)
        axis.set_ticks(places, labels=labels)
        if axis is axes.xaxis:
            axes.set_xlim(low - room, high + room)
            cell.text(box.x + box.width / 2, box.y + box.height + 36, across + left_out, most=box.width, ha="center")
        else:
            axes.set_ylim(low - room, high + room)
            cell.upright(box.x - widest(labels) - 16, box, up + left_out)


def _stems(cell: Cell, box: Box, title: str, pair: Sequence[Array]) -> None:
    """Entries of A and B with the same meaning, side by side, from zero."""
    every = np.concatenate([np.asarray(each, np.float64) for each in pair])
    every = every[np.isfinite(every)]
    low, high = around(every.min(initial=0), every.max(initial=0))
    places, labels, left_out = ticks(low - 0.08 * (high - low) * (low < 0), high + 0.08 * (high - low), box.height / 24)
    cell.text(box.x - 20, box.y - 8, title + left_out, 11, True, most=box.width + 30)
    axes = cell.axes(box)
    axes.axhline(0, color=QUIET, linewidth=0.6)
    for values, side, face in zip(pair, (-0.14, 0.14), (CURVE, "white")):
        at = np.arange(len(values)) + side
        axes.vlines(at, 0, values, color=CURVE, linewidth=1.2)
        axes.plot(at, values, "o" if side < 0 else "s", markersize=4, color=CURVE, markerfacecolor=face)
        for place in np.nonzero(~np.isfinite(values))[0]:
            axes.text(at[place], 0, "nan", size=6, rotation=90, ha="center", va="bottom", color=FAULT)
    count = max(map(len, pair))
    axes.set_xticks(range(count), map(str, range(count)))
    axes.set_yticks(places, labels)
    axes.set(xlim=(-0.5, max(count, 1) - 0.5), ylim=(low - 0.1 * (high - low) * (low < 0), high + 0.1 * (high - low)))


def _small_tables(cell: Cell, frequency: Any) -> None:
    tables = frequency.wiggling_a, frequency.wiggling_b
    legend = []
    for mark, name, table in zip("●□", "AB", tables):
        header = "no wiggling" if table is None or not len(table.first) else (
            f"header {np.uint32(table.header).view(np.float32):.5g}")
        legend.append(f"{mark} {name}, {header}")
    cell.head(f"Frequency {frequency.index}: small tables, by entry", legend=legend)
    # Nine decades apart: sizes on a logarithmic scale, signs and digits as numbers.
    pair = [np.zeros(0) if each is None else np.asarray(each, np.float64) for each in (frequency.values_a, frequency.values_b)]
    box = Box(48, 92, 168, 82)
    cell.text(box.x - 20, box.y - 8, "values A and B", 11, True)
    axes = cell.axes(box)
    count = max(map(len, pair))
    with np.errstate(all="ignore"):
        sizes = [np.log10(np.abs(each)) for each in pair]
    every = np.concatenate(sizes)
    every = every[np.isfinite(every)]
    low, high = around(every.min(initial=0), every.max(initial=0)) if every.size else (-1.0, 1.0)
    for column, values, size, mark, face in zip((236, 324), pair, sizes, "os", (CURVE, "white")):
        at = np.arange(len(values)) + (-0.14 if mark == "o" else 0.14)
        axes.plot(size, at, mark, markersize=4, color=CURVE, markerfacecolor=face)
        cell.text(column, box.y - 8, "A" if mark == "o" else "B", 11, True)
        for place, value in enumerate(values):
            cell.text(column, box.y + box.height * (place + 0.5) / max(count, 1) + 4, f"{value:.4g}", 11)
    places, labels, _ = ticks(low, high, box.width / 40)
    axes.set_xticks(places, labels)
    cell.text(box.x + box.width / 2, box.y + box.height + 33, "log10 of the size", ha="center")
    axes.set_yticks(range(count), map(str, range(count)))
    axes.set(xlim=(low - 0.06 * (high - low), high + 0.06 * (high - low)), ylim=(max(count, 1) - 0.5, -0.5))
    for place, part in enumerate(("first", "second", "third")):
        pair = [np.zeros(0) if table is None else getattr(table, part) for table in tables]
        _stems(cell, Box(46 + 136 * place, 242, 88, 80), f"wiggling, {part}", pair)


# ----------------------------------------------------------------------------------------- pages --


def _texts(module: Any) -> str:
    return "  ·  ".join(text for text in (module.text1, module.text2) if text)


def _summary(cell: Cell, module: Any, tree: Dict[str, Any], name: str) -> None:
    cell.text(12, 28, name, 17, True)
    kind = "packed calibration" if module.layout == "packed" else f"{module.layout} image"
    lines: List[Tuple[str, str, str]] = [(f"{kind}, {tree['bytes']} bytes", "", INK)]
    found = [*getattr(module, "faults", ()), *module.warnings]
    lines += [(f"{each.what} at byte {each.offset}", "", FAULT) for each in found[:6]]
    lines += [(f"and {len(found) - 6} more (calcut inspect)", "", FAULT)] if len(found) > 6 else []
    lines += [(f"{module.columns} x {module.rows} pixels", "", INK), (_texts(module), "", INK), ("", "", INK)]
    if module.lens is not None:
        values = [f"{name}  {str(np.float32(value))}" for name, value in module.lens._asdict().items()]
        left = [f"{each} pixels" for each in values[:4]] + [""]
        lines += [(one, other, INK) for one, other in zip(left, values[4:])] + [("", "", INK)]
    for each in module.frequencies:
        scalar = "" if each.scalar is None or np.isnan(each.scalar) else f", scalar {str(np.float32(each.scalar))}"
        lines.append((f"frequency {each.index}:  id {each.id}{scalar}", "", INK))
    light = tree["record"] and tree["record"]["straylight"]
    lines.append((f"straylight:  PSF {light['psfWidth']} x {light['psfHeight']}" if light else "no straylight model", "", INK))
    lines.append(("", "", INK))
    for text in ("Colours reach from 0.1 to 99.9 % of the values. An arrow on",
                 "the bar: some lie outside; ringed: by more than a quarter of it."):
        lines.append((text, "", QUIET))
    spacing = min(20.0, (cell.height - 44) / len(lines))
    y = 28.0
    for one, other, colour in lines:
        y += spacing if one or other else spacing / 2
        size = 11.5 if colour == QUIET else 13
        cell.text(12, y, one, size, colour == FAULT, colour, cell.width / 2 - 16 if other else None)
        cell.text(cell.width / 2, y, other, size, colour=colour)


def _page(rows: List[List[Panel]], columns: int, top: int = 0) -> Figure:
    """Rows of panels, below a head over the whole width."""
    figure = Figure((columns * WIDTH / DPI, (len(rows) * HEIGHT + top) / DPI), DPI, facecolor="white")
    for row, panels in enumerate(rows):
        for column, panel in enumerate(panels):
            panel(Cell(figure, column * WIDTH, top + row * HEIGHT))
    return figure


def _in_rows(panels: Sequence[Panel], columns: int) -> List[List[Panel]]:
    return [list(panels[start : start + columns]) for start in range(0, len(panels), columns)]


def _opened(module: Any, name: Optional[str]) -> Tuple[Any, str]:
    if isinstance(module, calcut.Calibration):
        return module, name or "module"
    path = isinstance(module, (str, os.PathLike))
    return calcut.read(module), name or (os.path.basename(os.fsdecode(module)) if path else "module")


def sheet(module: Any, name: Optional[str] = None, *, shared_scale: bool = False) -> Figure:
    """All of a calibration on one page.

    module is a Calibration, or what calcut.read takes; name heads the page, by default the file's.
    Faults of a dump that was read with strict=False are told in red. shared_scale draws the pixel
    tables of all frequencies in the same colours.
    """
    module, name = _opened(module, name)
    tree = json.loads(_calcut.tree_json(module))
    mask = module.mask
    frequencies = [each for each in module.frequencies if each.pixel_table is not None]
    found = [statistics(each.pixel_table, mask == 0) for each in frequencies if shared_scale]
    found = [each for each in found if each.count]
    shared = around(min(each.low for each in found), max(each.high for each in found)) if found else None
    tables = [("Pixel values", module.pixel_values, 3, None)] if module.pixel_values is not None else []
    tables += [(f"Frequency {each.index} (id {each.id}): pixel table", each.pixel_table, 17 + 7 * each.index, shared)
               for each in frequencies]
    columns = min((4, 5), key=lambda count: -len(tables) % count)  # few empty places
    first: List[Panel] = [lambda cell: _summary(cell, module, tree, name)]
    last: List[Panel] = [partial(_small_tables, frequency=each) for each in frequencies]
    if mask is not None:
        first.append(partial(_mask, mask=mask))
    if module.directions is not None:
        first.append(partial(_rays, rays=module.directions, lens=module.lens))
    light = tree["record"] and tree["record"]["straylight"]
    if light:
        first.append(partial(_psf, psf=module.psf, width=light["psfWidth"], height=light["psfHeight"]))
        profile = partial(_profile, light=module.straylight, made=module.psf is not None)
        (first if columns > 4 else last).append(profile)
    rows = [first]
    for several in _in_rows(tables, columns):
        rows += [[partial(_table, tree=tree, title=title, values=values, mask=mask, block=block, limits=limits)
                  for title, values, block, limits in several],
                 [partial(_rest, title=title.split(":")[0], values=values, mask=mask) for title, values, _, _ in several]]
    if 2 * len(tables) <= columns:
        rows[1:] = [sum(rows[1:], [])]  # one row has room for both
    with matplotlib.rc_context(STYLE):
        return _page(rows + _in_rows(last, columns), columns)


# ------------------------------------------------------------------------------------ comparison --


def _arrays(module: Any) -> Dict[str, Array]:
    found = {"mask": module.mask, "pixel_values": module.pixel_values, "rays": module.directions, "psf": module.psf}
    found.update({f"frequency_{each.index}_pixel_table": each.pixel_table for each in module.frequencies})
    return found


def _difference(cell: Cell, about: Dict[str, Any], a: Array, b: Array, tolerance: float) -> None:
    """B - A; of rays the angle between them, of the PSF the ratio of what falls by decades."""
    a, b = a.astype(np.float64), b.astype(np.float64)
    origin, sides = (0, 0), PIXELS
    with np.errstate(all="ignore"):
        change = b - a
        change[(a == b) | (np.isnan(a) & np.isnan(b))] = 0
        far = ~(np.abs(change) <= (0 if about["name"] == "mask" else tolerance))
        shown, label = change, "B - A"
        if about["name"] == "rays":
            far = far.any(2)
            angle = np.arctan2(np.linalg.norm(np.cross(a, b), axis=2), (a * b).sum(2))
            shown, label = np.where((change == 0).all(2), 0, np.degrees(angle)), "angle between the rays (degrees)"
        if about["name"] == "psf":
            shown, label = np.where(change == 0, 0, np.log10(b / a)), "log10 (B / A)"
            far, _ = _centred(far)
            shown, origin = _centred(shown)
            sides = OFFSETS
    ringed = far if np.count_nonzero(far) <= MOST_RINGS else np.zeros(far.shape, bool)
    sizes = np.sort(np.abs(shown[far & np.isfinite(shown)]))
    # Of the differing values alone: a few among many equal ones must keep their colour.
    reach = around(0, sizes[-1 if ringed.any() else int(0.999 * (len(sizes) - 1))])[1] if len(sizes) else 1.0
    limits, colours = ((-reach, reach), DIVERGING) if about["name"] != "rays" else ((0.0, reach), SEQUENTIAL)
    note = f"{about['differing']} of {about['elements']} differ"
    legend = []
    if about["max"] and about["name"] != "rays":
        most = about["max"]
        note += f"; RMS {about['rms']:.4g}"
        legend = [f"largest {most['difference']:+.4g} at column {most['column']}, row {most['row']}"]
    _map(cell, about["title"][0].upper() + about["title"][1:], shown, label, limits, colours=colours, origin=origin,
         note=note, legend=legend + ["○ different"] * bool(ringed.any()), rings=ringed, sides=sides)


def _listed(tables: Sequence[Dict[str, Any]]) -> str:
    numbers = [each["name"].split("_")[1] for each in tables if each["name"].startswith("frequency")]
    titles = [each["title"] for each in tables if not each["name"].startswith("frequency")]
    return ", ".join(titles + ["the pixel tables of frequencies " + " ".join(numbers)] * bool(numbers))


def comparison(a: Any, b: Any, names: Sequence[Optional[str]] = (None, None), *,
               tolerance: Optional[float] = None) -> Figure:
    """What two modules have different: in words, and B - A of each table that differs.

    Calibrations, or what calcut.read takes; tolerance as in calcut.compare.
    """
    (a, name_a), (b, name_b) = _opened(a, names[0]), _opened(b, names[1])
    tree = json.loads(_calcut.compare_json(a, b, tolerance))
    tables = tree["tables"]
    sizes = [(each.columns, each.rows) for each in (a, b)]
    ofA, ofB = _arrays(a), _arrays(b)
    panels = [partial(_difference, about=each, a=ofA[each["name"]], b=ofB[each["name"]], tolerance=tolerance or 0.0)
              for each in tables if each["differs"] and each["elements"] is not None]
    columns = 3 if len(panels) in (0, 1, 2, 3, 5, 6, 9) else 4
    lens = [(name, each) for name, each in (tree["lens"] or {}).items()]
    lens_differs = any(each["differs"] for _, each in lens)
    lines: List[Tuple[str, str, bool]] = []
    for letter, module, name in (("A", a, name_a), ("B", b, name_b)):
        lines.append((f"{letter}  {name}", INK, True))
        lines.append((f"     {module.layout}, {module.columns} x {module.rows} pixels   {_texts(module)}", INK, False))
    verdict = "equal" if tree["equal"] else "different"
    within = "" if tolerance is None else f", {'within' if tree['equal'] else 'beyond'} {tolerance:g}"
    lines += [("", INK, False), (f"Verdict: {verdict}{within}", INK, True)]
    if sizes[0] != sizes[1]:
        lines.append(("The sensors have different sizes: their tables cannot be compared.", FAULT, True))
    for title, chosen in (
        ("only in A", [each for each in tables if each["b"] is None]),
        ("only in B", [each for each in tables if each["a"] is None]),
        ("of different size", [each for each in tables if each["a"] and each["b"] and each["elements"] is None and
                               (each["name"] == "psf" or sizes[0] == sizes[1])]),
        ("equal", [each for each in tables if not each["differs"]]),
    ):
        if chosen:
            lines.append((f"{title}: {_listed(chosen)}", INK, False))
    same = sum(not each["differs"] for each in tree["blocks"])
    lines.append((f"blocks stored the same: {same} of {len(tree['blocks'])}", INK, False))
    values = [f"{each['name']}:  {each['a']}  to  {each['b']}" for each in tree["values"]]
    lines += [(f"other values that differ: {len(values)}", INK, False)] if values else []
    lines += [("     " + text, QUIET, False) for text in values[:5]] + [("     ...", QUIET, False)] * (len(values) > 5)
    top = 30 + 19 * max(len(lines), 11 if lens_differs else 0)
    with matplotlib.rc_context(STYLE):
        figure = _page(_in_rows(panels, columns), columns, top)
        head = Cell(figure, 0, 0, columns * WIDTH, top)
        right = columns * WIDTH - 450
        for place, (text, colour, bold) in enumerate(lines):
            head.text(12, 28 + 19 * place, text, 13, bold, colour, right - 24)
        if lens_differs:
            rows = [("lens", "A", "B", "B - A")]
            for name, each in lens:
                one, other = ("" if each[side] is None else f"{each[side]}" for side in "ab")
                change = each["difference"]
                rows.append((name, one, other, "" if change is None else f"{change:+.6g}"))
            for place, row in enumerate(rows):
                for x, text in zip((0, 40, 180, 320), row):
                    head.text(right + x, 28 + 19 * place, text, 13, not place or not x, most=130)
        else:
            head.text(right, 28, "lens: equal" if lens else "no lens on one side", 13)
    return figure
