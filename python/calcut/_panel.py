"""What the panels of calcut.plot are made of: numbers, colours, and places on a figure."""

from __future__ import annotations

import gc
from contextlib import contextmanager
from typing import Any, Iterator, List, NamedTuple, Optional, Sequence, Tuple

import numpy as np

try:
    import matplotlib
except ImportError as error:
    raise ImportError("pictures need matplotlib (Debian: python3-matplotlib)") from error
from matplotlib.axes import Axes
from matplotlib.colors import Colormap, LinearSegmentedColormap, ListedColormap
from matplotlib.figure import Figure
from matplotlib.font_manager import findfont, get_font
from matplotlib.ticker import MaxNLocator

Array = Any  # of NumPy

DPI = 100
WIDTH, HEIGHT = 420, 350  # of a panel; lengths are pixels at this DPI
POINTS = 72 / DPI
INK, QUIET, LINE, CURVE, FAULT = "#202020", "#606060", "#404040", "#2e6d8e", "#c01010"
STYLE = {
    "font.family": "DejaVu Sans",
    "text.parse_math": False,  # dollar signs in names stay what they are
    "text.usetex": False,
    "axes.facecolor": "white",
    "axes.edgecolor": LINE,
    "axes.linewidth": 0.7,
    "axes.grid": False,
    **{f"{side}.{name}": value for side in ("xtick", "ytick") for name, value in (
        ("labelsize", 11.5 * POINTS), ("labelcolor", INK), ("color", LINE), ("major.size", 3.5), ("major.width", 0.7),
        ("major.pad", 3), ("direction", "out"))},
}
LONGEST = 12  # an image with longer sides than that would be a mere line
PIXELS = ("row (pixels)", "column (pixels)")
MOST_RINGS = 200  # more hide what they point at

# White is left to masked pixels and black to what is not finite, so that both can be told from every
# value, in grey print, too. Lightness of the first: from 19 to 84; of the second: from 34 (blue) over
# 84 (grey) to 34 (red), along straight lines in CIELAB.
SEQUENTIAL: Colormap = ListedColormap(matplotlib.colormaps["viridis"](np.linspace(0.05, 0.89, 256)))
DIVERGING: Colormap = LinearSegmentedColormap.from_list(
    "differences",
    "#194d9d #3e5ca4 #576baa #6e7bb1 #828bb7 #969cbe #aaadc4 #bdbeca #d0d0d0 "
    "#ccbcb6 #c7a79d #c19384 #b9806c #b06c54 #a7583e #9c4427 #902f10".split(),
)
for _colours in (SEQUENTIAL, DIVERGING):
    _colours.set_bad("white")


@contextmanager
def uncollected() -> Iterator[None]:
    """Without garbage collections, which would take a fifth of the time: matplotlib's objects are many and refer to each other."""
    was = gc.isenabled()
    gc.disable()
    try:
        yield
    finally:
        if was:
            gc.enable()


class Plain(Axes):  # type: ignore[misc]
    def grid(self, *words: Any, **named: Any) -> None:
        """Making axes turns the grid off twice, which takes a seventh of the time of a sheet."""
        if self.has_data():
            super().grid(*words, **named)


class Box(NamedTuple):
    """Pixels from the upper left corner of a cell."""

    x: float
    y: float
    width: float
    height: float


class Statistics(NamedTuple):
    """Of the finite values that are not masked."""

    count: int  # type: ignore[assignment]
    low: float = np.nan  #: one value in a thousand lies below
    high: float = np.nan  #: one value in a thousand lies above
    text: str = ""


def statistics(values: Array, masked: Array) -> Statistics:
    finite = values[np.isfinite(values) & ~masked].astype(np.float64)
    count = finite.size
    if not count:
        why = "empty" if not values.size else "every pixel is masked" if masked.all() else "none is finite"
        return Statistics(0, text=f"no value: {why}")
    cut = (count - 1) // 1000
    ordered = np.partition(finite, sorted({0, cut, count - 1 - cut, count - 1}))
    deviation = finite.std(ddof=1) if count > 1 else 0.0
    text = f"min {ordered[0]:.4g}  mean {finite.mean():.4g}  std {deviation:.4g}  max {ordered[-1]:.4g}"
    return Statistics(count, ordered[cut], ordered[-1 - cut], text)


def around(low: float, high: float) -> Tuple[float, float]:
    """Limits that hold both and are never empty; a constant gets some room on both sides."""
    if not (np.isfinite(low) and np.isfinite(high)):
        return 0.0, 1.0
    smallest = max(abs(low), abs(high)) * 1e-6  # of less the ticks could not be told apart
    room = 0.0 if high - low > smallest else smallest * 1e5 or 1.0
    return low - room, high + room


def ticks(low: float, high: float, most: float, whole: bool = False) -> Tuple[Array, List[str], str]:
    """Round places between the limits, short labels, and what all labels leave out."""
    places = MaxNLocator(max(int(most), 2), steps=[1, 2, 5, 10], integer=whole).tick_values(low, high)
    room = 1e-6 * (high - low)
    places = places[(places >= low - room) & (places <= high + room) & ((places % 1 == 0) | (not whole))]
    base, left_out = 0.0, ""
    if not whole and high - low < 1e-4 * max(abs(low), abs(high)):
        unit = 10.0 ** np.ceil(np.log10(high - low))
        base = np.floor(low / unit) * unit
        left_out = f" {'-' if base > 0 else '+'} {abs(base):.9g}"
    shown = places - base
    power = int(np.floor(np.log10(np.abs(shown).max(initial=0.0) or 1.0) + 1e-9))
    if whole or -4 < power < 5:
        power = 0
    else:
        left_out += " ×10" + str(power).translate(str.maketrans("-0123456789", "⁻⁰¹²³⁴⁵⁶⁷⁸⁹"))
    shown = shown / 10.0**power
    step = shown[1] - shown[0] if len(shown) > 1 else 1.0
    decimals = max(0, -int(np.floor(np.log10(step) + 1e-9)))
    return places, [f"{round(value, decimals) + 0.0:.{decimals}f}" for value in shown], left_out


def shrunk(values: Array, most: Tuple[int, int], join: Any) -> Array:
    """At most so many rows and columns, each joined from neighbours by a ufunc."""
    for axis in (0, 1):
        size, parts = values.shape[axis], max(most[axis], 1)
        if size > parts:
            values = join.reduceat(values, np.arange(parts) * size // parts, axis=axis)
    return values


def text_width(text: str, size: float = 11.5, bold: bool = False) -> float:
    font = get_font(findfont("DejaVu Sans:bold" if bold else "DejaVu Sans"))
    font.set_size(size * POINTS, DPI)
    font.set_text(text, 0.0)
    return float(font.get_width_height()[0]) / 64


def widest(labels: Sequence[str]) -> float:
    return max(map(text_width, labels), default=0.0)


class Cell:
    """A place on the figure."""

    def __init__(self, figure: Figure, x: float, y: float, width: float = WIDTH, height: float = HEIGHT) -> None:
        self.figure, self.x, self.y, self.width, self.height = figure, x, y, width, height

    def _at(self, x: float, y: float) -> Tuple[float, float]:
        width, height = self.figure.get_size_inches() * DPI
        return (self.x + x) / width, 1 - (self.y + y) / height

    def axes(self, box: Box) -> Any:
        left, bottom = self._at(box.x, box.y + box.height)
        right, top = self._at(box.x + box.width, box.y)
        return self.figure.add_axes((left, bottom, right - left, top - bottom), axes_class=Plain)

    def text(self, x: float, y: float, text: str, size: float = 11.5, bold: bool = False, colour: str = INK,
             most: Optional[float] = None, **more: Any) -> None:
        """y is the baseline's. Of a text wider than most (default: the cell) the end is left out."""
        most = self.width - 12 - x if most is None else most
        if text_width(text, size, bold) > most:
            while text and text_width(text + "…", size, bold) > most:
                text = text[:-1]
            text += "…"
        if text:
            weight = "bold" if bold else "normal"
            self.figure.text(*self._at(x, y), text, size=size * POINTS, weight=weight, color=colour, **more)

    def head(self, title: str, note: str = "", legend: Sequence[str] = ()) -> None:
        self.text(12, 26, title, 15, True)
        self.text(12, 45, note, colour=QUIET)
        self.text(12, 62 if note else 45, "   ".join(legend), colour=QUIET)

    def upright(self, x: float, box: Box, text: str) -> None:
        """Beside the middle of a box, reading from bottom to top."""
        self.text(x, box.y + box.height / 2, text, most=box.height + 40, rotation=90, ha="center", va="center")

    def scale(self, axes: Any, box: Box, side: str, low: float, high: float, spacing: float, label: str = "",
              whole: bool = False, room: float = 0.0) -> str:
        """Ticks and limits of a side of axes. Returns what the ticks leave out, which ends the label, too."""
        along = box.width if side == "x" else box.height
        places, labels, left_out = ticks(low, high, along / spacing, whole)
        (axes.xaxis if side == "x" else axes.yaxis).set_ticks(places, labels=labels)
        axes.set(**{f"{side}lim": (low - room * (high - low), high + room * (high - low))})
        if label and side == "x":
            self.text(box.x + along / 2, box.y + box.height + 35, label + left_out, most=330, ha="center")
        elif label:
            self.upright(box.x - widest(labels) - 16, box, label + left_out)
        return left_out

    def image(self, values: Array, colours: Colormap, limits: Tuple[float, float], room: Box,
              masked: Array, origin: Tuple[int, int] = (0, 0), sides: Tuple[str, str] = PIXELS) -> Tuple[Any, Box]:
        """An image of square elements, unless it is too long for that, with numbers at its sides.

        Masked elements are white, others that are not finite black; neither is averaged away.
        """
        rows, columns = values.shape
        unit = min(room.width / columns, room.height / rows)
        width, height = room.width, room.height
        if max(rows, columns) <= LONGEST * min(rows, columns):
            width, height = unit * columns, unit * rows
        box = Box(room.x + (room.width - width) / 2, room.y + (room.height - height) / 2, width, height)
        axes = self.axes(box)
        finite = np.isfinite(values)
        dots = int(height), int(width)
        size = shrunk(np.ones(values.shape, np.float32), dots, np.add)
        mean = shrunk(np.where(finite & ~masked, values, 0).astype(np.float64), dots, np.add) / size
        top, left = origin[0] - 0.5, origin[1] - 0.5
        place = {"extent": (left, left + columns, top + rows, top), "aspect": "auto", "interpolation": "nearest"}
        hidden = shrunk(masked, dots, np.logical_or)
        axes.imshow(np.ma.array(mean, mask=hidden), cmap=colours, vmin=limits[0], vmax=limits[1], **place)
        if not (finite | masked).all():
            black = np.zeros((*mean.shape, 4))
            black[..., 3] = shrunk(~finite & ~masked, dots, np.logical_or)
            axes.imshow(black, **place)
        self.scale(axes, box, "y", top, top + rows, 30, sides[0], True)
        self.scale(axes, box, "x", left, left + columns, 45, sides[1], True)
        axes.invert_yaxis()
        return axes, box

    def bar(self, beside: Box, colours: Colormap, limits: Tuple[float, float], label: str, below: bool,
            above: bool) -> None:
        """A colour bar; arrows at its ends tell that values lie outside."""
        height = max(beside.height, 150.0)
        box = Box(beside.x + beside.width + 14, beside.y + (beside.height - height) / 2, 14, height)
        axes = self.axes(box)
        shades = np.linspace(1, 0, 256)[:, None]
        axes.imshow(shades, cmap=colours, vmin=0, vmax=1, aspect="auto", extent=(0, 1, *limits))
        for outside, end, tip in ((below, 0.0, -10 / height), (above, 1.0, 10 / height)):
            if outside:
                axes.fill([0, 1, 0.5], [end, end, end + tip], transform=axes.transAxes, clip_on=False,
                          facecolor=colours(end), edgecolor=LINE, linewidth=0.7)
        places, labels, left_out = ticks(*limits, height / 30)
        axes.set_xticks([])
        axes.yaxis.tick_right()
        axes.set_yticks(places, labels)
        axes.set_ylim(limits)
        self.upright(box.x + box.width + 8 + widest(labels) + 13, box, label + left_out)
