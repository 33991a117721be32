"""Calibrations of depth camera modules: dumps as NumPy arrays.

>>> module = calcut.read("module.eeprom")
>>> module.frequencies[0].pixel_table[module.mask != 0].mean()

calcut.fleet makes a table of many dumps.
"""

from __future__ import annotations

import json as _json
from typing import Any, Dict

from ._calcut import Calibration, Frequency, __version__, cut, inspect_json, read
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


def inspect(source: Any, layout: str = "auto") -> Dict[str, Any]:
    """What a dump holds, good or damaged: the tree of `calcut inspect --json`.

    docs/inspect-json.md describes every key. source is a path or bytes. Raises OSError for a file
    that does not read, and for nothing in it.
    """
    tree: Dict[str, Any] = _json.loads(inspect_json(source, layout))
    return tree


def diagnose(source: Any, layout: str = "auto") -> Diagnosis:
    """What is wrong with a dump, and what is odd, without raising CalcutError for it."""
    tree = inspect(source, layout)
    faults, warnings = ([Finding(**each) for each in tree[kind]] for kind in ("faults", "warnings"))
    return Diagnosis(tree["layout"], tree["intact"], tree["cuttable"], faults, warnings)
