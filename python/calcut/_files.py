"""Files of the command lines: which dumps are meant, and what may be written where."""

from __future__ import annotations

import argparse
import os
import sys
import time
from contextlib import contextmanager
from typing import Any, Iterable, Iterator, List, Optional, Sequence, Union

Path = Union[str, "os.PathLike[str]"]

#: What an earlier output of these programs begins with, or what stands near its beginning or end.
_HEADINGS = (b"path,result,fault,", b"row,path,column,", b"path,verdict,reasons")
_MARKS = {".xml": b'<testsuites name="calcut.check"', ".pdf": b"/Creator (calcut.fleet)",
          ".png": b"Software\0calcut.fleet", ".svg": b"<dc:title>calcut.fleet</dc:title>"}  # fmt: skip
_LOOK = 1 << 16


def dumps(paths: Union[Path, Iterable[Path]]) -> List[str]:
    """The paths, with every file below a folder in its place; one path stands for itself.

    Raises OSError for a folder that cannot be listed.
    """
    words = [paths] if isinstance(paths, (str, bytes, os.PathLike)) else paths
    found: List[str] = []
    for word in map(os.fsdecode, words):
        if not os.path.isdir(word):
            found.append(word)
            continue
        for folder, folders, names in os.walk(word, onerror=_raise):
            folders.sort()
            found += (os.path.join(folder, name) for name in sorted(names))
    return found


def _raise(error: OSError) -> None:
    raise error


def listed(words: Sequence[str], list_file: Optional[str], outputs: Iterable[Optional[str]]) -> List[str]:
    """The dumps of a command line, without its own outputs where they lie among them."""
    lines: List[str] = []
    if list_file is not None:
        with open(list_file, encoding="utf-8-sig", errors="surrogateescape") as file:
            lines = [line.rstrip("\n") for line in file if line.strip()]
    own = {os.path.realpath(output) for output in outputs if output is not None}
    return [path for path in dumps([*words, *lines]) if os.path.realpath(path) not in own]


def _is_ours(path: str) -> bool:
    with open(path, "rb") as file:
        start = file.read(_LOOK)
        file.seek(max(0, os.path.getsize(path) - _LOOK))
        mark = _MARKS.get(os.path.splitext(path)[1])
        return start.startswith(_HEADINGS) if mark is None else mark in start or mark in file.read()


def why_not_written(path: str, endings: Sequence[str], force: bool) -> Optional[str]:
    """What keeps a file from being written, before any work is done for it."""
    folder = os.path.dirname(path) or "."
    if os.path.splitext(path)[1] not in endings:
        return f"must end in {' or '.join(endings)}"
    if not os.path.isdir(folder):
        return f"there is no folder {folder}"
    if not os.access(folder, os.W_OK | os.X_OK):
        return f"the folder {folder} cannot be written to"
    if os.path.lexists(path) and not os.path.isfile(path):
        return "is no regular file"
    if os.path.exists(path) and not force and os.path.getsize(path) and not _is_ours(path):
        return "exists and is not an earlier output of this program; --force replaces it"
    return None


@contextmanager
def whole(path: Path) -> Iterator[str]:
    """A name beside path to write to; the file gets its own name when it is whole."""
    path = os.fsdecode(path)
    root, ending = os.path.splitext(path)
    unfinished = f"{root}.{os.getpid()}.part{ending}"
    try:
        yield unfinished
        os.replace(unfinished, path)
    finally:
        if os.path.exists(unfinished):
            os.remove(unfinished)


def write_csv(table: Any, path: Path) -> None:
    """Bytes of names that are not UTF-8, and what a spreadsheet would take for a formula, become \\xNN."""
    texts = table.select_dtypes(["object", "string"]).columns
    safe = {name: table[name].str.replace(r"^[=+\-@\t\r]|[\udc80-\udcff]", _escaped, regex=True) for name in texts}
    with whole(path) as unfinished:
        table.assign(**safe).to_csv(unfinished, index=False)


def _escaped(found: Any) -> str:
    return f"\\x{ord(found.group()) & 255:02x}"


class Progress:
    """Dumps done and the time that is left, on a terminal; nothing elsewhere."""

    def __init__(self, what: str = "read", wanted: bool = True) -> None:
        self.what, self.told = what, wanted and sys.stderr.isatty()
        self.start = time.monotonic()
        self.shown = 0.0

    def __call__(self, done: int, total: int) -> None:
        now = time.monotonic()
        if not self.told or (now - self.shown < 0.2 and done < total):
            return
        self.shown = now
        left = (now - self.start) * (total - done) / max(done, 1)
        print(f"\r{done} of {total} {self.what}, {left:.0f} s left \x1b[K", end="", file=sys.stderr, flush=True)
        if done == total:
            self.clear()

    def clear(self) -> None:
        """Before anything else is printed."""
        if self.told:
            print("\r\x1b[K", end="", file=sys.stderr, flush=True)


def add_arguments(parser: argparse.ArgumentParser) -> None:
    """What the command lines have in common."""
    parser.add_argument("dumps", nargs="*", metavar="DUMP", help="dumps, and folders of nothing else")
    parser.add_argument("--files-from", metavar="FILE", help="a path on each line")
    parser.add_argument("--golden", metavar="DUMP", help="adds the differences from this one")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a Dask cluster; else processes here")
    parser.add_argument("--jobs", type=int, metavar="N", help="processes here, one for each processor")
    parser.add_argument("--force", action="store_true", help="replace files that exist")
