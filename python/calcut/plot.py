"""A module's calibration as one sheet, and the differences of two modules, as matplotlib figures.

>>> calcut.plot.sheet("module.eeprom").savefig("sheet.png")
>>> calcut.plot.comparison("golden.eeprom", "module.eeprom").savefig("differences.pdf")
"""

from __future__ import annotations

import json
import os
import textwrap
from functools import partial
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple

import numpy as np

import calcut

from . import _calcut
from ._maps import OFFSETS, centred, draw_map, draw_mask, draw_psf, draw_rays, draw_rest, draw_table
from ._panel import (CURVE, DIVERGING, DPI, FAULT, HEIGHT, INK, MOST_RINGS, PIXELS, QUIET, SEQUENTIAL, STYLE, WIDTH, Array,
                     Box, Cell, Figure, around, matplotlib, statistics, uncollected)

Panel = Callable[[Cell], None]


def _profile(cell: Cell, light: Any, made: bool) -> None:
    x, y = light.radius, light.value
    if made:  # with the origin that making the PSF puts in front
        x, y = np.insert(x, 0, 0), np.insert(y, 0, 0)
    note = (f"PSF = {light.scale:.4g} exp(-g), {light.exponent:.4g}-norm radius; "
            f"offset {light.offset:.4g}, centre {light.centre:.4g}")
    cell.head("Straylight profile", note, ["● nodes" + ", with the origin" * made, "— interpolated"])
    box = Box(68, 76, 320, 212)
    axes = cell.axes(box)
    good = np.isfinite(x) & np.isfinite(y)
    left, right = around(x[good].min(initial=0), x[good].max(initial=0))
    between = np.linspace(left, right, 400, dtype=np.float32)
    curve = _calcut.interpolate(x, y, between)
    axes.plot(between, curve, color=CURVE, linewidth=1.6)
    axes.plot(x[good], y[good], "o", color=INK, markersize=4)
    heights = np.concatenate([y[good], curve[np.isfinite(curve)]])
    cell.scale(axes, box, "x", left, right, 50, "radius (PSF elements)", room=0.03)
    cell.scale(axes, box, "y", *around(heights.min(initial=0), heights.max(initial=0)), 40, "exponent g", room=0.03)


def _stems(cell: Cell, box: Box, title: str, pair: Sequence[Array]) -> None:
    """Entries of A and B with the same meaning, side by side, from zero."""
    every = np.concatenate([np.asarray(each, np.float64) for each in pair])
    every = every[np.isfinite(every)]
    low, high = around(every.min(initial=0), every.max(initial=0))
    room = 0.1 * (high - low)
    axes = cell.axes(box)
    left_out = cell.scale(axes, box, "y", low - room * (low < 0), high + room, 24)
    cell.text(box.x - 20, box.y - 8, title + left_out, 11, True, most=box.width + 30)
    axes.axhline(0, color=QUIET, linewidth=0.6)
    for values, side, face in zip(pair, (-0.14, 0.14), (CURVE, "white")):
        at = np.arange(len(values)) + side
        axes.vlines(at, 0, values, color=CURVE, linewidth=1.2)
        axes.plot(at, values, "o" if side < 0 else "s", markersize=4, color=CURVE, markerfacecolor=face)
        for place in np.nonzero(~np.isfinite(values))[0]:
            axes.text(at[place], 0, "nan", size=6, rotation=90, ha="center", va="bottom", color=FAULT)
    cell.scale(axes, box, "x", -0.5, max(*map(len, pair), 1) - 0.5, 14, whole=True)


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
    count = max(*map(len, pair), 1)
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
            cell.text(column, box.y + box.height * (place + 0.5) / count + 4, f"{value:.4g}", 11)
    cell.scale(axes, box, "x", low, high, 40, "log10 of the size", room=0.06)
    cell.scale(axes, box, "y", -0.5, count - 0.5, 20, whole=True)
    axes.invert_yaxis()
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
    found = [*module.faults, *module.warnings]
    for each in found[:6]:
        place = f"{each.what} at byte {each.offset}"
        lines += [(line, "", FAULT) for line in textwrap.wrap(place, 46)]
    lines += [(f"and {len(found) - 6} more (calcut inspect)", "", FAULT)] if len(found) > 6 else []
    lines += [(f"{module.columns} x {module.rows} pixels", "", INK)] if module.rows is not None else []
    lines += [(_texts(module), "", INK), ("", "", INK)]
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


def _in_rows(panels: Sequence[Any], columns: int) -> List[List[Any]]:
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
    # What a damaged dump does not have is left out.
    mask = np.ones((module.rows or 0, module.columns or 0), np.uint8) if module.mask is None else module.mask
    frequencies = [each for each in module.frequencies if each.pixel_table is not None]
    found = [statistics(each.pixel_table, mask == 0) for each in frequencies if shared_scale]
    found = [each for each in found if each.count]
    shared = around(min(each.low for each in found), max(each.high for each in found)) if found else None
    tables: List[Tuple[str, Array, int, Any]]
    tables = [("Pixel values", module.pixel_values, 3, None)] if module.pixel_values is not None else []
    tables += [(f"Frequency {each.index} (id {each.id}): pixel table", each.pixel_table, 17 + 7 * each.index, shared)
               for each in frequencies]
    columns = min((4, 5), key=lambda count: -len(tables) % count)  # few empty places
    first: List[Panel] = [lambda cell: _summary(cell, module, tree, name or "")]
    last: List[Panel] = [partial(_small_tables, frequency=each) for each in frequencies]
    if module.mask is not None:
        first.append(partial(draw_mask, mask=mask))
    if module.directions is not None:
        first.append(partial(draw_rays, rays=module.directions, lens=module.lens))
    light = tree["record"] and tree["record"]["straylight"]
    if light and (module.psf is not None or light["psfWidth"] * light["psfHeight"] == 0):
        first.append(partial(draw_psf, psf=module.psf, width=light["psfWidth"], height=light["psfHeight"]))
    if module.straylight is not None:
        profile = partial(_profile, light=module.straylight, made=module.psf is not None)
        (first if columns > 4 else last).append(profile)
    rows = [first]
    for several in _in_rows(tables, columns):
        rows += [[partial(draw_table, tree=tree, title=title, values=values, mask=mask, block=block, limits=limits)
                  for title, values, block, limits in several],
                 [partial(draw_rest, title=title.split(":")[0], values=values, mask=mask) for title, values, _, _ in several]]
    if 0 < 2 * len(tables) <= columns:
        rows[1:] = [sum(rows[1:], [])]  # one row has room for both
    with matplotlib.rc_context(STYLE), uncollected():
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
            far, _ = centred(far)
            shown, origin = centred(shown)
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
    draw_map(cell, about["title"][0].upper() + about["title"][1:], shown, label, limits, colours=colours, origin=origin,
         note=note, legend=legend + ["○ different"] * bool(ringed.any()), rings=ringed, sides=sides)


def _short(value: Any) -> str:
    text = str(value)
    return text if len(text) <= 32 else f"{text[:14]} .. {text[-14:]} ({len(text)} letters)"


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
        lines += [(f"     {each.what} at byte {each.offset}", FAULT, True) for each in module.faults[:3]]
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
    values = [f"{each['name']}:  {_short(each['a'])}  to  {_short(each['b'])}" for each in tree["values"]]
    lines += [(f"other values that differ: {len(values)}", INK, False)] if values else []
    lines += [("     " + text, QUIET, False) for text in values[:5]] + [("     ...", QUIET, False)] * (len(values) > 5)
    top = 30 + 19 * max(len(lines), 11 if lens_differs else 0)
    with matplotlib.rc_context(STYLE), uncollected():
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
