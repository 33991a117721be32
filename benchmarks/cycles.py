"""The table of scripts/cycles: cycles.py DIRECTORY NAME...

Finds the hot loops in the objects of each build of scripts/count and asks llvm-mca for their cycles on
five models of processors.
"""

import re
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

PROCESSORS = ["cortex-a55", "cortex-a510", "neoverse-n1", "neoverse-n2", "neoverse-v1"]
ITERATIONS = 200


class Kernel(NamedTuple):
    """A loop, known by the instructions in it and not in it; unit counts what a turn of it does."""

    name: str
    source: str
    holds: set
    lacks: set
    unit: str
    per_unit: int


LOOKUPS = "calibration/packed/DecodingKernels"
KERNELS = [
    Kernel("directions: a ray, a round", "calibration/directions", {"fdiv"}, {"fsqrt", "umaxv"}, "fdiv", 4),
    Kernel("directions: with a look at changes", "calibration/directions", {"fdiv", "umaxv"}, {"fsqrt"}, "fdiv", 4),
    Kernel("unpackRXUint: a value", LOOKUPS, {"tbl", "ushl"}, {"fmul"}, "tbl", 4),
    Kernel("packed floats: a value", LOOKUPS, {"tbl", "ushl", "fmul"}, set(), "tbl", 4),
    Kernel("float block: a value", LOOKUPS, {"uqsub", "rev32"}, set(), "uqsub", 4),
    Kernel("mask bits: 16 bits", LOOKUPS, {"cmtst", "tbl"}, set(), "cmtst", 1),
    Kernel("calc_crc32: 8 bytes", "cutter/CRC32Instructions", {"crc32x", "ldp"}, set(), "crc32x", 1),
]


def instructions_of(item):
    text = subprocess.run(
        ["aarch64-linux-gnu-objdump", "-d", "--no-show-raw-insn", item],
        capture_output=True, text=True, check=True,
    ).stdout
    for line in text.splitlines():
        if found := re.match(r"\s*([0-9a-f]+):\t(\S+)\s*([^/]*)", line):
            yield int(found[1], 16), found[2], found[3].strip()


def loops_of(code):
    """Every stretch from the target of a backward branch to the branch."""
    index = {address: i for i, (address, _, _) in enumerate(code)}
    for i, (address, name, arguments) in enumerate(code):
        if name == "b" or name.startswith(("b.", "cb", "tb")):
            target = re.search(r"\b([0-9a-f]+) <", arguments)
            if target and int(target[1], 16) <= address and int(target[1], 16) in index:
                yield code[index[int(target[1], 16)] : i + 1]


def hot_loop(kernel, directory):
    """The shortest loop that calls nothing and does what the kernel does."""
    code = list(instructions_of(directory / f"{kernel.source}.cpp.o"))
    fitting = []
    for loop in loops_of(code):
        names = {name for _, name, _ in loop}
        if kernel.holds <= names and not names & (kernel.lacks | {"bl", "ret"}):
            fitting.append(loop)
    if not fitting:
        sys.exit(f"{directory}: no loop for {kernel.name}")
    return min(fitting, key=len)


def cycles(loop, processor):
    text = "\n".join(f"{name} {re.sub('[0-9a-f]+ <.*>', '.Lloop', rest)}" for _, name, rest in loop)
    report = subprocess.run(
        ["llvm-mca-19", "-mtriple=aarch64", f"-mcpu={processor}", f"-iterations={ITERATIONS}"],
        input=text, capture_output=True, text=True, check=True,
    ).stdout
    return int(re.search(r"Total Cycles: +(\d+)", report)[1]) / ITERATIONS


def main(directory, *names):
    print("| estimated cycles | build | " + " | ".join(PROCESSORS) + " |")
    print("|---|---" + "|---" * len(PROCESSORS) + "|")
    for kernel in KERNELS:
        for name in names:
            loop = hot_loop(kernel, Path(directory) / name / "CMakeFiles/calcut_objects.dir")
            done = sum(1 for _, each, _ in loop if each == kernel.unit) * kernel.per_unit
            numbers = [f"{cycles(loop, processor) / done:.2f}" for processor in PROCESSORS]
            print(f"| {kernel.name} | {name} | " + " | ".join(numbers) + " |")


if __name__ == "__main__":
    main(*sys.argv[1:])
