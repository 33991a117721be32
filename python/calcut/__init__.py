"""Calibrations of depth camera modules: dumps as NumPy arrays.

>>> module = calcut.read("module.eeprom")
>>> module.frequencies[0].pixel_table[module.mask != 0].mean()

calcut.fleet makes a table of many dumps, calcut.check verdicts on them, calcut.plot pictures.
"""

from __future__ import annotations

import json as _json
import os as _os
from importlib import import_module as _import_module
from typing import Any, Dict, Union

import numpy as _np

from . import _calcut
from ._calcut import Calibration, Frequency, __version__
from ._types import CalcutError, Cut, Diagnosis, Finding, Lens, Straylight, Wiggling

__all__ = [
    "CalcutError",
    "Calibration",
    "Cut",
    "Diagnosis",
    "Finding",
    "Frequency",
    "Lens",
    "Straylight",
    "Wiggling",
    "__version__",
    "cut",
    "diagnose",
    "inspect",
    "read",
]

# Pickles and messages name them where people find them.
for _public in list(globals().values()):
    if isinstance(_public, type):
        _public.__module__ = __name__


Path = Union[str, "_os.PathLike[str]"]
Source = Union[Path, bytes, bytearray, memoryview, "_np.ndarray[Any, _np.dtype[_np.uint8]]"]


# Functions of Python and not of the extension, because only those go to other processes.


def read(source: Source, layout: str = "auto", *, strict: bool = True) -> Calibration:
    """Reads a dump or a bare packed calibration, from a path or from bytes.

    layout is "auto" (by the first bytes), "v7", "korveline" or "packed". Raises CalcutError for a
    dump that does not read, OSError for a file that does not. Other threads run meanwhile.

    With strict=False a damaged dump is no error: the calibration has faults, and what did not read
    is None. A checksum that does not match means that any value may be wrong.
    """
    return _calcut.read(source, layout, strict)


def cut(dump: Path, directory: Path, layout: str = "auto", *, force: bool = False) -> Cut:
    """Cuts a dump into the files of the camera stack, in a directory that exists.

    Either all files replace an earlier cut's or everything stays as it was; files that look like a
    dump are not replaced unless forced. Raises CalcutError when the dump is to blame and OSError
    when the file or the directory is.
    """
    return _calcut.cut(dump, directory, layout, force)


def __getattr__(name: str) -> Any:
    """calcut.check, calcut.fleet and calcut.plot, when they are asked for: they need more packages."""
    if name in ("check", "fleet", "plot"):
        return _import_module(f"{__name__}.{name}")
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")


def inspect(source: Source, layout: str = "auto") -> Dict[str, Any]:
    """What a dump holds, good or damaged: the tree of `calcut inspect --json`.

    docs/inspect-json.md describes every key. source is a path or bytes. Raises OSError for a file
    that does not read, and for nothing in it.
    """
    tree: Dict[str, Any] = _json.loads(_calcut.inspect_json(source, layout))
    return tree


def diagnose(source: Source, layout: str = "auto") -> Diagnosis:
    """What is wrong with a dump, and what is odd. Raises for nothing but a wrong argument."""
    try:
        tree = inspect(source, layout)
    except OSError as error:
        what = error.strerror or str(error).split(": ")[-1]
        fault = Finding("file", what, None, None, "check the path", 0, None, None, f"{what}: check the path")
        return Diagnosis("unknown", False, False, [fault], [])
    faults, warnings = ([Finding(**each) for each in tree[kind]] for kind in ("faults", "warnings"))
    return Diagnosis(tree["layout"], tree["intact"], tree["cuttable"], faults, warnings)


def _unpickle(data: bytes, layout: str) -> Calibration:
    """A pickle holds bytes and nothing else that could be opened."""
    if not isinstance(data, bytes):
        raise TypeError("a pickled calibration holds bytes")
    return _calcut.read(data, "auto" if layout == "unknown" else layout, False)
