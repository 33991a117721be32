"""What calcut hands out besides calibrations."""

from __future__ import annotations

from typing import Any, Dict, List, NamedTuple, Optional

import numpy as np


class Finding(NamedTuple):
    """A fault or a warning about a dump."""

    name: str  #: stable, for programs: "checksum", "unknown-block", ...
    what: str  #: short, for people
    expected: Optional[str]
    found: Optional[str]
    advice: str  #: what to do next
    offset: int  #: byte in the file
    status: Optional[str]  #: of the library, by name, when that refused
    block: Optional[int]  #: id of the block concerned
    text: str  #: all of it on one line


class CalcutError(Exception):
    """A dump that cannot be read or cut; it has the fields of its Finding."""

    def __init__(self, finding: Finding, path: str) -> None:
        super().__init__(finding, path)
        self.finding = finding
        self.path = path  #: as given, or "<bytes>"
        self.name = finding.name
        self.what = finding.what
        self.expected = finding.expected
        self.found = finding.found
        self.advice = finding.advice
        self.offset = finding.offset
        self.status = finding.status
        self.block_id = finding.block

    def __str__(self) -> str:
        return f"{self.path}: {self.finding.text}"


class Diagnosis(NamedTuple):
    """What is wrong with a dump, and what is odd."""

    layout: str  #: "v7", "korveline", "packed" or "unknown"
    intact: bool  #: everything in it reads
    cuttable: bool
    faults: List[Finding]  #: the first is what a read or a cut is refused for
    warnings: List[Finding]


class Cut(NamedTuple):
    """What a cut wrote."""

    layout: str
    files: Dict[str, int]  #: name and bytes of each file
    masked_pixels: int
    warnings: List[Finding]


class Lens(NamedTuple):
    """Pinhole and distortion (Brown's model); focal lengths and principal point in pixels."""

    fx: float
    fy: float
    cx: float
    cy: float
    k1: float
    k2: float
    p1: float
    p2: float
    k3: float

    @property
    def matrix(self) -> np.ndarray[Any, Any]:
        """float64 (3, 3): the camera matrix."""
        return np.array([[self.fx, 0, self.cx], [0, self.fy, self.cy], [0, 0, 1]], dtype=np.float64)

    @property
    def distortion(self) -> np.ndarray[Any, Any]:
        """float64 (5,): k1, k2, p1, p2, k3, the order that OpenCV takes."""
        return np.array([self.k1, self.k2, self.p1, self.p2, self.k3], dtype=np.float64)


class Wiggling(NamedTuple):
    """A table of the periodic distance error: arrays of up to 5 entries."""

    header: int  #: bits of the block's first float
    first: np.ndarray[Any, Any]  #: float32
    second: np.ndarray[Any, Any]  #: uint32
    third: np.ndarray[Any, Any]  #: float32


class Straylight(NamedTuple):
    """The model of the PSF: scale * exp(-g(r)) + offset, g through the profile's points."""

    scale: float
    exponent: float  #: of the distance norm
    offset: float
    centre: float  #: value of PSF element (0, 0)
    radius: np.ndarray[Any, Any]  #: float32 (points,), PSF elements
    value: np.ndarray[Any, Any]  #: float32 (points,)
