"""The tables of scripts/count: counts.py MODE DIRECTORY NAME...

Reads NAME.rows (number and name of each row) and NAME.marks (counters at each mark) of every build.
MODE is gate (compare with benchmarks/budgets), budgets (write them), all (spread over the builds) or
only (the table alone). Ends with 1 when something is out of bounds.
"""

import re
import sys
from pathlib import Path

BUDGETS = Path(__file__).with_name("budgets")
ABOVE, BELOW = 1.01, 0.97  # of a budget
SPREAD = 1.10  # most over fewest, over all builds
# Rows that must be vector code, and the least share of their instructions that works on vectors.
VECTORS = re.compile(r"unpackRX|packed block|float block|mask bits|directions")
VECTOR_SHARE = 0.25
SCALING = re.compile(r"a (read|cut) of (\d+) x (\d+)")


def counts_of(directory, name):
    """{row: {"plain" or "fast": (instructions, of these on vectors)}} for one repetition."""
    rows = dict(line.split(" ", 1) for line in (directory / f"{name}.rows").read_text().splitlines())
    counts = {row: {} for row in rows.values()}
    begun = {}
    for line in (directory / f"{name}.marks").read_text().splitlines():
        _, row, way, *numbers = line.split()
        repetitions, executed, on_vectors = map(int, numbers)
        if repetitions == 0:
            begun[row, way] = executed, on_vectors
            continue
        before = begun[row, way]
        counts[rows[row]]["fast" if way == "1" else "plain"] = (
            (executed - before[0]) / repetitions,
            (on_vectors - before[1]) / repetitions,
        )
    return counts


def instructions(count):
    return f"{count / 1e6:.2f} M" if count >= 9.995e5 else f"{count / 1e3:.1f} k"


def table(header, lines):
    print("| " + " | ".join(header) + " |")
    print("|---" * len(header) + "|")
    for line in lines:
        print("| " + " | ".join(line) + " |")
    print()


def print_counts(names, builds):
    header = ["instructions"]
    for name in names:
        header += [f"{name}: plain", "calcut", "ratio", "vectors"]
    lines = []
    for row in builds[0]:
        if SCALING.match(row):
            continue
        line = [row]
        for build in builds:
            fast, on_vectors = build[row]["fast"]
            plain = build[row].get("plain", (0, 0))[0]
            line += [
                instructions(plain) if plain else "",
                instructions(fast),
                f"{plain / fast:.1f}" if plain else "",
                f"{on_vectors / fast:.0%}",
            ]
        lines.append(line)
    table(header, lines)


def print_scaling(names, builds):
    lines = []
    for row in builds[0]:
        if scaled := SCALING.match(row):
            pixels = int(scaled[2]) * int(scaled[3])
            line = [row]
            for build in builds:
                count = build[row]["fast"][0]
                line += [instructions(count), f"{count / pixels:.1f}"]
            lines.append(line)
    if lines:
        table(["scaling"] + [text for name in names for text in (name, "each pixel")], lines)


def scalar_rows(names, builds):
    """A complaint for each row that should be vector code and is not."""
    for name, build in zip(names, builds):
        for row, ways in build.items():
            fast, on_vectors = ways["fast"]
            if VECTORS.match(row) and on_vectors < VECTOR_SHARE * fast:
                yield f"{name}: {row}: only {on_vectors / fast:.0%} of its instructions work on vectors"


def gated(counts):
    return [row for row in counts if not SCALING.match(row)]


def read_budgets():
    header, *lines = [
        line for line in BUDGETS.read_text().splitlines() if not line.startswith("#")
    ]
    names = header.split()[:-1]
    budgets = {}
    for line in lines:
        *numbers, row = line.split(maxsplit=len(names))
        for name, number in zip(names, numbers):
            budgets[name, row] = int(number)
    return budgets


def write_budgets(names, builds):
    lines = [
        "# Instructions of each row of scripts/count, which compares them and writes this file:",
        "# scripts/count --budgets",
        "".join(f"{name:>12}" for name in names) + "  row",
    ]
    for row in gated(builds[0]):
        lines.append("".join(f"{build[row]['fast'][0]:12.0f}" for build in builds) + f"  {row}")
    BUDGETS.write_text("\n".join(lines) + "\n")
    print(f"Written: {BUDGETS}")


def compare(names, builds):
    """Passed, and a complaint for each count out of bounds."""
    budgets = read_budgets()
    passed, complaints = 0, []
    for name, build in zip(names, builds):
        for row in gated(build):
            count, budget = build[row]["fast"][0], budgets.get((name, row))
            if budget is None:
                complaints.append(f"{name}: {row}: no budget; scripts/count --budgets writes it")
            elif count > ABOVE * budget:
                complaints.append(
                    f"{name}: {row}: {count:.0f} instructions, {count / budget - 1:.1%} above its"
                    f" budget of {budget}"
                )
            elif count < BELOW * budget:
                complaints.append(
                    f"{name}: {row}: {count:.0f} instructions, {1 - count / budget:.1%} below its"
                    f" budget of {budget}; scripts/count --budgets writes the new one"
                )
            else:
                passed += 1
    return passed, complaints


def print_spread(names, builds):
    """Passed, and a complaint for each row whose counts depend too much on the build."""
    passed, complaints, lines = 0, [], []
    for row in gated(builds[0]):
        counts = [build[row]["fast"][0] for build in builds]
        spread = max(counts) / min(counts)
        most = names[counts.index(max(counts))]
        lines.append([row, *map(instructions, counts), f"{spread:.2f}"])
        if spread <= SPREAD:
            passed += 1
        else:
            complaints.append(f"{row}: most over fewest instructions {spread:.2f}, most by {most}")
    table(["instructions", *names, "most / fewest"], lines)
    return passed, complaints


def main(mode, directory, *names):
    builds = [counts_of(Path(directory), name) for name in names]
    passed, complaints = 0, []
    if mode == "all":
        passed, complaints = print_spread(names, builds)
    else:
        print_counts(names, builds)
    print_scaling(names, builds)
    if mode == "budgets":
        write_budgets(names, builds)
    elif mode == "gate":
        passed, complaints = compare(names, builds)
    if mode in ("gate", "all"):
        complaints += scalar_rows(names, builds)
        for complaint in complaints:
            print(complaint, file=sys.stderr)
        print(f"{passed} passed, {len(complaints)} failed")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
