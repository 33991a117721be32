"""Panels with a value for each pixel or element: mask, rays, tables, what a smooth fit leaves of them, PSF."""

from __future__ import annotations

from typing import Any, Dict, Optional, Sequence, Tuple

import matplotlib
import numpy as np

from ._panel import (CURVE, DIVERGING, HEIGHT, INK, LINE, LONGEST, MOST_RINGS, PIXELS, QUIET, SEQUENTIAL, WIDTH, Array,
                     Box, Cell, ListedColormap, around, statistics)
from ._residual import ORDER, residual

Limits = Optional[Tuple[float, float]]
OFFSETS = ("offset y (elements)", "offset x (elements)")
ROOM = Box(68, 76, 230, 200)  # of an image in its panel
REST_ROOM = Box(68, 72, 230, 148)


def _rings(axes: Any, chosen: Array, origin: Tuple[int, int] = (0, 0)) -> None:
    row, column = np.nonzero(chosen)
    for colour, width in (("white", 2.6), (INK, 1.0)):
        axes.scatter(column + origin[1], row + origin[0], 50, facecolors="none", edgecolors=colour, linewidths=width)


def draw_map(cell: Cell, title: str, values: Array, label: str, limits: Limits = None, mask: Optional[Array] = None,
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
    axes, box = cell.image(values, colours, (low, high), ROOM, masked, origin, sides)
    for chosen, most in ((wild, MOST_RINGS), (broken, 20), (rings, MOST_RINGS)):
        if chosen is not None and 0 < np.count_nonzero(chosen) <= most:
            _rings(axes, chosen, origin)
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


def draw_table(cell: Cell, tree: Dict[str, Any], title: str, values: Array, mask: Array, block: int, limits: Limits) -> None:
    found = statistics(values, mask == 0)
    label = "value (unit not recorded)" if limits is None else "value, same scale for all"
    limits = limits or around(found.low, found.high)
    draw_map(cell, title, values, label, limits, mask, note=_stored(tree, block, limits))


def draw_rest(cell: Cell, title: str, values: Array, mask: Array) -> None:
    """What the smooth part hides: the residual, the means of its rows and columns, and its histogram."""
    rest = residual(values, mask)
    good = np.isfinite(rest)
    found = statistics(rest, ~good)
    words = f"std {np.std(rest[good], dtype=np.float64):.4g}, from {np.min(rest[good]):.4g} to {np.max(rest[good]):.4g}" if found.count else ""
    cell.head(title + ", residual", f"the table less a smooth fit of order {ORDER}", [words])
    if not found.count:
        cell.text(WIDTH / 2, HEIGHT / 2, statistics(values, mask == 0).text, 13, colour=QUIET, most=390, ha="center")
        return
    reach = around(0, max(-found.low, found.high))[1]
    axes, box = cell.image(rest, DIVERGING, (-reach, reach), REST_ROOM, ~good, sides=(PIXELS[0], ""))
    axes.tick_params(labelbottom=False)
    wild = good & (np.abs(rest) > 1.5 * reach)
    if 0 < np.count_nonzero(wild) <= MOST_RINGS:
        _rings(axes, wild)
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
    lines += ["○ outliers", f"({np.count_nonzero(wild)})"] if wild.any() else []
    for place, line in enumerate(lines):
        cell.text(box.x + box.width + 41, box.y + 10 + 15 * place, line, 10.5, colour=QUIET)
    # The histogram is the colour bar.
    bar = Box(REST_ROOM.x, box.y + box.height + 36, REST_ROOM.width, 44)
    bars = cell.axes(bar)
    counts, edges = np.histogram(np.clip(rest[good], -reach, reach), 64, (-reach, reach))
    corners = np.array([[edges[:-1], 0 * counts], [edges[:-1], counts], [edges[1:], counts], [edges[1:], 0 * counts]])
    shades = DIVERGING(np.linspace(0, 1, 64))
    bars.add_collection(matplotlib.collections.PolyCollection(corners.transpose(2, 0, 1), facecolors=shades, linewidths=0),
                        autolim=False)
    cell.scale(bars, bar, "x", -reach, reach, 50, "table - fit (unit not recorded)")
    bars.set(ylim=(0, counts.max() * 1.05), yticks=[])


def draw_mask(cell: Cell, mask: Array) -> None:
    zeros = np.count_nonzero(mask == 0)
    share = 100 * zeros / max(mask.size, 1)
    highest = int(mask.max(initial=0))
    words = [f"■ masked, 0 ({zeros})"] + [f"□ valid, 1 ({mask.size - zeros})"] * (highest < 2)
    colours = SEQUENTIAL.copy() if highest > 1 else ListedColormap(["white"])
    colours.set_bad("black")
    padded = np.pad(mask, 1, constant_values=1) == 0
    beside = padded[:-2, 1:-1] | padded[2:, 1:-1] | padded[1:-1, :-2] | padded[1:-1, 2:]
    draw_map(cell, "Pixel mask", mask, "mask value" if highest > 1 else "", (1.0, max(highest, 2.0)), mask, colours,
         legend=words, footer=f"{share:.4g} % of {mask.size} pixels are masked", rings=(mask == 0) & ~beside, told=False)


def draw_rays(cell: Cell, rays: Array, lens: Any) -> None:
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
    axes = draw_map(cell, "Ray directions", angles, "angle from axis (degrees)", note=note, legend=[centre])
    if axes is None:
        return
    if factor:
        many = [max(1, int(count / step)) for count in (rows, columns)]
        row, column = ((2 * np.arange(k) + 1) * count // (2 * k) for k, count in zip(many, (rows, columns)))
        at = np.ix_(row, column)
        x, y = np.meshgrid(column, row)
        axes.quiver(x, y, factor * across[at], factor * down[at], angles="xy", scale_units="xy", scale=1, units="dots",
                    width=1.6, color="white", edgecolor=INK, linewidth=0.5)  # the edge keeps them visible on light colours
    if inside:
        for colour, width in (("white", 3.0), (INK, 1.2)):
            axes.plot(lens.cx, lens.cy, "+", color=colour, markersize=9, markeredgewidth=width)


def centred(psf: Array) -> Tuple[Array, Tuple[int, int]]:
    """With the origin, element (0, 0), in the middle: offsets wrap around the edges."""
    behind = tuple((size - 1) // 2 for size in psf.shape)
    return np.roll(psf, behind, (0, 1)), (-behind[0], -behind[1])


def draw_psf(cell: Cell, psf: Optional[Array], width: int, height: int) -> None:
    note = f"{width} x {height} elements"
    if psf is None or width * height == 0:
        draw_map(cell, "Straylight PSF", np.empty((0, 0)), "", note=note)
        return
    middle, origin = centred(psf)
    with np.errstate(all="ignore"):
        decades = np.log10(middle, dtype=np.float64)
    found = decades[np.isfinite(decades)]
    highest = found.max(initial=-np.inf)
    # It falls by hundreds of decades; more than these say nothing about the optics.
    limits = around(max(found.min(initial=np.inf), highest - 12), highest)
    footer = statistics(psf, np.zeros(psf.shape, bool)).text
    draw_map(cell, "Straylight PSF", decades, "log10 of the element", limits, origin=origin, footer=footer,
         note=note + ", the origin in the middle", sides=OFFSETS)
