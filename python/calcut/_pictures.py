"""What the command runs for `calcut plot` and `calcut compare -o`: dumps in, files with pictures out."""

from __future__ import annotations

import argparse
import ctypes
import io
import multiprocessing
import os
import signal
import sys
import tempfile
import warnings
from concurrent.futures import ProcessPoolExecutor
from concurrent.futures.process import BrokenProcessPool
from functools import partial
from itertools import groupby
from typing import Any, Iterator, List, Optional, Tuple, Union

import matplotlib

import calcut
from calcut import plot
from calcut._calcut import load

Data = Union[bytes, OSError]
Job = Tuple[str, str, Optional[Data]]  # picture, dump, its bytes where they were read already
Drawn = Tuple[Optional[bytes], str]  # picture, and what is wrong with the dump or why there is none


def encoded(figure: Any, kind: str) -> bytes:
    """The same bytes for the same figure: no date, no random names."""
    file = io.BytesIO()
    without = {"png": ["Software"], "svg": ["Date"], "pdf": ["CreationDate"]}[kind]
    with matplotlib.rc_context({"svg.hashsalt": "calcut", "pdf.compression": 6}):
        figure.savefig(file, format=kind, dpi=100 if kind == "png" else 200, metadata=dict.fromkeys(without))
    return file.getvalue()


def _load(path: str, options: argparse.Namespace) -> Data:
    try:
        return load(path, options.max_size, options.skip, options.swap)
    except OSError as error:
        return error


def _escaped(path: str) -> str:
    """Nothing of a file name steers a terminal."""
    text = os.fsencode(path).decode("utf-8", "surrogateescape")
    return "".join(each if each.isprintable() else "".join(f"\\x{byte:02x}" for byte in os.fsencode(each)) for each in text)


def _kind(output: str) -> str:
    return "png" if output == "-" else os.path.splitext(output)[1][1:]


def _draw(job: Job, options: argparse.Namespace) -> Drawn:
    output, path, data = job
    name = "standard input" if path == "-" else _escaped(os.path.basename(path))
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


def _in_order(jobs: List[Job], options: argparse.Namespace) -> Iterator[Drawn]:
    processors = len(os.sched_getaffinity(0))
    if len(jobs) == 1 or processors == 1:
        yield from (_draw(job, options) for job in jobs)
        return
    # Nobody would end them when this process is killed.
    ends_with_parent = partial(ctypes.CDLL(None).prctl, 1, signal.SIGKILL)
    with ProcessPoolExecutor(min(len(jobs), processors), multiprocessing.get_context("fork"), ends_with_parent) as pool:
        yield from pool.map(partial(_draw, options=options), jobs)


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
    descriptor, aside = tempfile.mkstemp(".partial", ".calcut-", os.path.dirname(target))
    try:
        with open(descriptor, "wb") as file:
            mask = os.umask(0)
            os.umask(mask)
            os.fchmod(descriptor, 0o666 & ~mask)
            file.write(data)
        os.replace(aside, target)
    except BaseException:
        os.unlink(aside)
        raise


def _sheets(words: List[str], options: argparse.Namespace) -> int:
    """Words: a picture and a dump in turn; dumps that share a picture are its pages."""
    jobs = [(output, path, _load(path, options) if path == "-" else None)
            for output, path in zip(words[::2], words[1::2])]
    if len(jobs) > 1 and any(_kind(output) == "pdf" for output in words[::2]):
        import pypdf  # noqa: F401  before anything is drawn
    told = len(jobs) > 1 and not options.quiet and sys.stderr.isatty()
    drawn, failed = _in_order(jobs, options), options.failed

    def page(number: int, path: str) -> List[bytes]:
        nonlocal failed
        picture, why = next(drawn)
        if told:
            print(f"\r\x1b[K{number + 1} of {len(jobs)} drawn", end="", file=sys.stderr, flush=True)
        failed += picture is None
        if why:
            print(("\r\x1b[K" if told else "") + f"{options.error} {_escaped(path)}: {why}", file=sys.stderr)
        return [] if picture is None else [picture]

    for output, several in groupby(enumerate(jobs), lambda each: each[1][0]):
        pages: List[Any] = sum((page(number, path) for number, (_, path, _) in several), [])
        try:
            if pages:
                write(output, _joined(pages))
        except OSError as error:
            failed += 1
            print(f"{options.error} {_escaped(output)}: {error.strerror}", file=sys.stderr)
    if told:
        print("\r\x1b[K", end="", file=sys.stderr)
    return 1 if failed else 0


def _differences(words: List[str], options: argparse.Namespace) -> int:
    """Words: png, svg or pdf, name and file of A, name and file of B. The picture goes to standard output."""
    a, b = (calcut.read(path, options.layout, strict=False) for path in (words[2], words[4]))
    names = ["standard input" if name == "-" else _escaped(os.path.basename(name)) for name in (words[1], words[3])]
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
    except BrokenProcessPool:
        print(f"{options.error} a process that drew was ended (not enough memory?)", file=sys.stderr)
    return 1
