"""What the command runs for `calcut plot` and `calcut compare -o`: dumps in, files with pictures out."""

from __future__ import annotations

import argparse
import io
import os
import signal
import sys
import warnings
from collections import Counter
from functools import partial
from itertools import groupby
from typing import Any, Dict, Iterator, List, Optional, Tuple, Union

import matplotlib

import calcut
from calcut import _calcut, _files, _workers, plot
from calcut._panel import uncollected

Data = Union[bytes, OSError]
Job = Tuple[str, str, Optional[Data]]  # picture, dump, its bytes where they were read already
Drawn = Tuple[Optional[bytes], str]  # picture, and what is wrong with the dump or why there is none


def encoded(figure: Any, kind: str) -> bytes:
    """The same bytes for the same figure: no date, no random names."""
    file = io.BytesIO()
    without = {"png": ["Software"], "svg": ["Date"], "pdf": ["CreationDate"]}[kind]
    with matplotlib.rc_context({"svg.hashsalt": "calcut", "pdf.compression": 6}), uncollected():
        figure.savefig(file, format=kind, dpi=100 if kind == "png" else 200, metadata=dict.fromkeys(without),
                       **{"pil_kwargs": {"compress_level": 3}} if kind == "png" else {})
    return file.getvalue()


def _load(path: str, options: argparse.Namespace) -> Data:
    try:
        return _calcut.load(path, options.max_size, options.skip, options.swap)
    except OSError as error:
        return error


def _kind(output: str) -> str:
    return "png" if output == "-" else os.path.splitext(output)[1][1:]


def _name(path: str) -> str:
    return "standard input" if path == "-" else _calcut.escape_path(os.path.basename(path))


def _draw(job: Job, options: argparse.Namespace) -> Drawn:
    output, path, data = job
    name = _name(path)
    try:
        data = _load(path, options) if data is None else data
        if isinstance(data, OSError):
            raise data
        module = calcut.read(data, options.layout, strict=not options.damaged)
        told = module.faults[0].text if module.faults else ""
        return encoded(plot.sheet(module, name, shared_scale=options.shared_scale), _kind(output)), told
    except calcut.CalcutError as error:
        return None, error.finding.text
    except OSError as error:
        return None, str(error)
    except MemoryError:
        return None, "not enough memory"


def _drawn(_start: int, jobs: List[Job], options: argparse.Namespace) -> List[Drawn]:
    return [_draw(job, options) for job in jobs]


def _in_order(jobs: List[Job], options: argparse.Namespace) -> Iterator[Drawn]:
    processors = min(len(jobs), len(os.sched_getaffinity(0)))
    if processors <= 1:
        yield from (_draw(job, options) for job in jobs)
        return
    early: Dict[int, Drawn] = {}
    following = 0
    items = [(place, [job]) for place, job in enumerate(jobs)]
    for place, _, drawn in _workers.run(partial(_drawn, options=options), items, jobs=processors):
        early[place] = drawn[0] if drawn else (None, "the process that drew it was ended (not enough memory?)")
        while following in early:
            yield early.pop(following)
            following += 1


def _joined(pages: List[bytes]) -> bytes:
    if len(pages) == 1:
        return pages[0]
    from pypdf import PdfWriter

    file, writer = io.BytesIO(), PdfWriter()
    for page in pages:
        writer.append(io.BytesIO(page))
    writer.write(file)
    return file.getvalue()


def write(path: str, data: bytes) -> None:
    """A file gets its name when it is whole; what is no file (a device) is written where it is."""
    target = os.path.realpath(path)
    if path == "-" or (os.path.exists(target) and not os.path.isfile(target)):
        with open(1 if path == "-" else target, "wb", closefd=path != "-") as file:
            file.write(data)
        return
    with _files.whole(target) as unfinished, open(unfinished, "wb") as file:
        file.write(data)


def _sheets(words: List[str], options: argparse.Namespace) -> int:
    """Words: a picture and a dump in turn; dumps that share a picture are its pages."""
    jobs = [(output, path, _load(path, options) if path == "-" else None)
            for output, path in zip(words[::2], words[1::2])]
    if any(_kind(output) == "pdf" and pages > 1 for output, pages in Counter(words[::2]).items()):
        import pypdf  # noqa: F401  before anything is drawn
    progress = _files.Progress("drawn", len(jobs) > 1 and not options.quiet)
    drawn, failed = _in_order(jobs, options), options.failed

    def page(number: int, path: str) -> List[bytes]:
        nonlocal failed
        picture, why = next(drawn)
        failed += picture is None
        if why:
            progress.clear()
            print(f"{options.error} {_calcut.escape_path(path)}: {why}", file=sys.stderr)
        progress(number + 1, len(jobs))
        return [] if picture is None else [picture]

    for output, several in groupby(enumerate(jobs), lambda each: each[1][0]):
        pages: List[Any] = sum((page(number, path) for number, (_, path, _) in several), [])
        try:
            if pages:
                write(output, _joined(pages))
        except OSError as error:
            failed += 1
            progress.clear()
            print(f"{options.error} {_calcut.escape_path(output)}: {error.strerror}", file=sys.stderr)
    return 1 if failed else 0


def _differences(words: List[str], options: argparse.Namespace) -> int:
    """Words: png, svg or pdf, name and file of A, name and file of B. The picture goes to standard output."""
    a, b = (calcut.read(path, options.layout, strict=False) for path in (words[2], words[4]))
    names = [_name(words[1]), _name(words[3])]
    write("-", encoded(plot.comparison(a, b, names, tolerance=options.tolerance), words[0]))
    return 0


def main(arguments: Optional[List[str]] = None) -> int:
    """Returns the exit status: 0 when every picture was made, else 1."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    warnings.simplefilter("ignore")  # of fonts that lack a letter
    parser = argparse.ArgumentParser("calcut-plot", description="Draws for calcut plot and calcut compare.")
    parser.add_argument("--differences", action="store_true")
    parser.add_argument("--layout", default="auto")
    parser.add_argument("--max-size", type=int, default=1 << 28)
    parser.add_argument("--skip", type=int, default=0)
    parser.add_argument("--swap", type=int, default=1)
    parser.add_argument("--failed", type=int, default=0, help="how many dumps were refused already")
    parser.add_argument("--tolerance", type=float)
    for flag in ("--shared-scale", "--damaged", "--quiet"):
        parser.add_argument(flag, action="store_true")
    parser.add_argument("--error", default="calcut:", help="what an error begins with")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args(arguments)
    try:
        return (_differences if options.differences else _sheets)(options.words, options)
    except (OSError, MemoryError, calcut.CalcutError) as error:
        print(f"{options.error} {error or 'not enough memory'}", file=sys.stderr)
    return 1
