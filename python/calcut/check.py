"""Verdicts: which modules pass the limits of a file, and why the others do not.

    python -m calcut.check --limits limits.toml DUMPS... [--junit report.xml] [-o verdicts.csv]
    python -m calcut.check --suggest fleet.csv -o limits.toml
"""

from __future__ import annotations

import argparse
import re
import sys
import tomllib
from types import ModuleType
from typing import Any, Callable, Dict, Iterable, List, Optional, Tuple, Union
from xml.etree import ElementTree

import numpy as np
import pandas as pd  # type: ignore[import]

from calcut import _calcut, _files, fleet

#: The sections of a limits file and what each of their entries may say.
NUMBERS = {"lower", "upper", "score", "unit"}
MODULE = {"layouts", "sizes", "frequencies", "warnings", "serials"}
#: What its lists may name.
NAMES = {"layouts": _calcut.layout_names, "warnings": ("*", *_calcut.warning_names)}
TEXTS = ["text0", "text1", "text2", "id_bytes"]
SECTIONS = {"module", "texts", "measures", "golden"}
#: What measures are in; a limit that names another unit is a mistake.
UNITS = {**dict.fromkeys(["fx", "fy", "cx", "cy", "masked_pixels"], "pixels"), "lens_golden": "degrees"}


class LimitsError(ValueError):
    """A limits file that does not say what it must, with the line."""


def _unit(name: str) -> str:
    return "pixels" if name.endswith("_region") else UNITS.get(name, UNITS.get(name.rsplit("_", 1)[0], ""))


def _line_of(text: str, section: str, key: str = "", inner: str = "") -> int:
    """Line of a key below its section's heading, or that of the heading."""
    inside, place = "", 0
    for number, line in enumerate(text.splitlines(), 1):
        heading = re.match(r"\s*\[\s*([^\]]*?)\s*\]", line)
        if heading:
            inside = heading[1].replace('"', "").replace("'", "")
            place = number if inside in (section, f"{section}.{key}") else place
        word = re.match(r"""\s*["']?([\w-]+)["']?(\s*\.\s*[\w-]+)*\s*=""", line)
        if word and ((inside, word[1]) in ((section, key), (f"{section}.{key}", inner)) or word[1] == section == inside + section):
            return number
    return place or 1


def _read(path: Any) -> Tuple[Dict[str, Any], Callable[..., LimitsError]]:
    with open(path, "rb") as file:
        data = file.read()
    try:
        text = data.decode()
        limits = tomllib.loads(text)
    except (UnicodeDecodeError, tomllib.TOMLDecodeError) as error:
        raise LimitsError(f"{path}: {error}") from None

    def wrong(what: str, *place: str) -> LimitsError:
        return LimitsError(f"{path}:{_line_of(text, *place)}: {what}")

    return limits, wrong


def load_limits(path: Any) -> Dict[str, Any]:
    """A limits file whose every key, unit and value is one that is checked; LimitsError has the line."""
    limits, wrong = _read(path)
    number = (int, float)
    for section, entries in limits.items():
        if section not in SECTIONS or not isinstance(entries, dict):
            raise wrong(f"unknown section {section}; there are {', '.join(sorted(SECTIONS))}", section)
        for key, entry in entries.items():
            if section == "module":
                if key not in MODULE:
                    raise wrong(f"unknown key {key}; there are {', '.join(sorted(MODULE))}", section, key)
                if key == "serials" and entry != "unique" or key != "serials" and not isinstance(entry, list):
                    raise wrong(f"{key} takes {'the word unique' if key == 'serials' else 'a list'}", section, key)
                for each in entry if key in NAMES else []:
                    if each not in NAMES[key]:
                        raise wrong(f"{key}: there is no {each}; there are {', '.join(NAMES[key])}", section, key)
            elif section == "texts":
                if key not in TEXTS:
                    raise wrong(f"unknown text {key}; there are {', '.join(TEXTS)}", section, key)
                try:
                    re.compile(entry)
                except (re.error, TypeError) as error:
                    raise wrong(f"{key} is no regular expression: {error}", section, key) from None
            else:
                known = fleet.MEASURES if section == "measures" else fleet.GOLDEN
                if key not in known:
                    raise wrong(f"unknown measure {key}", section, key)
                if not isinstance(entry, dict):
                    raise wrong(f"{key} takes a table such as {{lower = 1, upper = 2}}", section, key)
                for inner, value in entry.items():
                    if inner not in NUMBERS or (inner == "score" and section == "golden"):
                        raise wrong(f"unknown key {inner} of {key}", section, key, inner)
                    if inner == "unit" and value != _unit(key):
                        raise wrong(f"{key} is in {_unit(key) or 'the unit of its table'}, not {value}", section, key, inner)
                    if inner != "unit" and (isinstance(value, bool) or not isinstance(value, number) or value != value):
                        raise wrong(f"{inner} of {key} is no number", section, key, inner)
    return limits


def _number_reasons(row: Any, name: str, limit: Dict[str, Any], score: float) -> List[str]:
    value, unit = row[name], f" {_unit(name)}" if _unit(name) else ""
    if pd.isna(value):
        return [f"{name} is not there"]
    reasons = []
    if value < limit.get("lower", -np.inf):
        reasons.append(f"{name} {value:.6g}{unit} is below {limit['lower']:g}")
    if value > limit.get("upper", np.inf):
        reasons.append(f"{name} {value:.6g}{unit} is above {limit['upper']:g}")
    if abs(score) > limit.get("score", np.inf):
        reasons.append(f"{name} {value:.6g}{unit} has a score of {score:.1f}, allowed are {limit['score']:g}")
    return reasons


def _reasons(row: Any, limits: Dict[str, Any], score: Any, again: Dict[str, List[str]]) -> List[str]:
    if row["result"] != "ok":
        return [f"{row['result']}: {row['fault_text']}"]
    module, reasons = limits.get("module", {}), []
    facts = {"layouts": row["layout"], "sizes": f"{row['columns']}x{row['rows']}", "frequencies": row["frequencies"]}
    for key, found in facts.items():
        if key in module and found not in module[key]:
            reasons.append(f"{key[:-1] if key != 'frequencies' else 'number of frequencies'} {found} is not among "
                           f"{', '.join(map(str, module[key]))}")  # fmt: skip
    warnings = str(row["warnings"]).split(";") if isinstance(row["warnings"], str) else []
    reasons += [f"warning {name}" for name in warnings if name and {name, "*"} & set(module.get("warnings", []))]
    if module.get("serials") == "unique" and row["text2"] in again:
        others = [path for path in again[row["text2"]] if path != row["path"]]
        reasons.append(f"serial {row['text2']} is also that of {', '.join(others) or 'the same file, given twice'}")
    for name, pattern in limits.get("texts", {}).items():
        text = row[name] if isinstance(row[name], str) else ""
        if not re.fullmatch(pattern, text):
            reasons.append(f"{name} {text!r} does not match {pattern!r}")
    for section in ("measures", "golden"):
        for name, limit in limits.get(section, {}).items():
            reasons += _number_reasons(row, name, limit, score[name] if section == "measures" else 0.0)
    return reasons


def check(
    table_or_paths: Union[pd.DataFrame, _files.Path, Iterable[_files.Path]], limits: Any, client: Any = None,
    *, golden: Optional[_files.Path] = None, jobs: Optional[int] = None,
) -> pd.DataFrame:  # fmt: skip
    """The verdict on each module: path, verdict ("pass" or "fail") and reasons, a line each.

    table_or_paths is a table of fleet.summarise(), or dumps for it; limits a file (or what
    load_limits() returned). Scores are those within the table. LimitsError for limits that cannot
    be checked.
    """
    limits = limits if isinstance(limits, dict) else load_limits(limits)
    table = table_or_paths
    if limits.get("golden") and not (isinstance(table, pd.DataFrame) and set(fleet.GOLDEN) <= set(table)) and golden is None:
        raise LimitsError("limits from a golden unit need the dump of one (--golden)")
    if not isinstance(table, pd.DataFrame):
        table = fleet.summarise(table, client, golden=golden, jobs=jobs)
    table = table.reset_index(drop=True)
    score = fleet.scores(table).to_dict("index")
    again = {serial: list(group["path"]) for serial, group in fleet.duplicates(table).groupby("text2")}
    reasons = ["\n".join(_reasons(row, limits, score[place], again)) for place, row in table.iterrows()]
    verdict = ["fail" if why else "pass" for why in reasons]
    return pd.DataFrame({"path": table["path"], "verdict": verdict, "reasons": reasons}, dtype="string")


def junit(verdicts: pd.DataFrame, target: _files.Path) -> None:
    """JUnit XML as CI servers read it: a test case for each module."""

    def plain(text: str) -> str:  # characters that XML has no way to write
        return re.sub(r"[^\t\n\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]", lambda c: f"\\x{ord(c[0]) & 255:02x}", text)

    counts: Dict[str, Any] = {"tests": str(len(verdicts)), "failures": str(int((verdicts["verdict"] == "fail").sum())), "errors": "0"}
    suites = ElementTree.Element("testsuites", attrib={"name": "calcut.check", **counts})
    suite = ElementTree.SubElement(suites, "testsuite", attrib={"name": "calcut.check", **counts})
    for row in verdicts.itertuples():
        case = ElementTree.SubElement(suite, "testcase", name=plain(row.path), classname="module", time="0")
        if row.verdict == "fail":
            failure = ElementTree.SubElement(case, "failure", message=plain(row.reasons.split("\n")[0]), type="limits")
            failure.text = plain(row.reasons)
    with _files.whole(target) as unfinished:
        ElementTree.ElementTree(suites).write(unfinished, encoding="utf-8", xml_declaration=True)


def suggest(table: pd.DataFrame, target: _files.Path) -> None:
    """A first limits file: of each measure median -+ six deviations of its own side, to be edited."""
    good = table[table["result"] == "ok"]
    lines = ["# Suggested from a fleet, to be edited. Limits are the median and 6 deviations to either side.",
             f"# {len(good)} modules.", "", "[module]"]  # fmt: skip
    lines.append(f"layouts = {sorted(good['layout'].unique())}".replace("'", '"'))
    sizes = (good["columns"].astype(str) + "x" + good["rows"].astype(str)).unique()
    lines += [f"sizes = {sorted(sizes)}".replace("'", '"'), f"frequencies = {sorted(map(int, good['frequencies'].unique()))}"]
    lines += ['serials = "unique"', 'warnings = ["*"]  # any warning fails', "", "[measures]"]
    score = fleet.scores(good)
    for name in fleet.MEASURES:
        value = good[name].dropna()
        if value.empty or not np.isfinite(value).all():
            continue
        median, ends = value.median(), []
        for sign, side in ((-1, value < median), (1, value > median)):
            # As far from the median as a score of 6 would be; no further below 0 than any module is.
            far = (value - median)[side] / score.loc[value.index, name][side].abs() * 6
            limit = median + (float(far.median()) if len(far) else 0.0)
            limit = max(limit, 0.0) if value.min() >= 0 else limit
            # Rounded outwards.
            ends.append(float(f"{limit + sign * 1e-5 * abs(limit):.6g}"))
        text = f"lower = {ends[0]!r}, upper = {ends[1]!r}"
        unit = f', unit = "{_unit(name)}"' if _unit(name) else ""
        lines.append(f"{name} = {{{text}{unit}}}")
    with _files.whole(target) as unfinished, open(unfinished, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


def main(words: Optional[List[str]] = None) -> int:
    """Returns 0 when every module passes, 1 when one fails, 130 when interrupted."""
    parser = argparse.ArgumentParser("python -m calcut.check", description="Verdicts on modules by a file of limits.")
    _files.add_arguments(parser)
    parser.add_argument("--limits", metavar="FILE.toml", help="what a module has to keep to")
    parser.add_argument("--junit", metavar="FILE.xml", help="the verdicts as JUnit XML")
    parser.add_argument("--suggest", metavar="FLEET.csv", help="write first limits from this table to -o")
    parser.add_argument("-o", "--output", metavar="FILE", help="the verdicts (.csv), or the suggested limits (.toml)")
    options = parser.parse_args(words)
    if (options.limits is None) == (options.suggest is None):
        parser.error("give --limits, or --suggest with -o LIMITS.toml")
    targets = [(options.output, [".csv"] if options.suggest is None else [".toml"]), (options.junit, [".xml"])]
    fleet.check_options(parser, options, targets, [(options.scheduler, "distributed", "python3-distributed")])
    try:
        if options.suggest is not None:
            if options.output is None:
                parser.error("--suggest writes to -o LIMITS.toml")
            suggest(fleet.load(options.suggest), options.output)
            return 0
        limits = load_limits(options.limits)
        if limits.get("golden") and options.golden is None:
            parser.error(f"{options.limits}: limits from a golden unit need --golden")
        paths = _files.listed(options.dumps, options.files_from, [target for target, _ in targets])
    except (OSError, ValueError, KeyError) as error:
        parser.error(str(error))
    if not paths:
        parser.error("no dumps")
    table, interrupted = fleet.read_all(parser, options, paths, targets)
    verdicts = check(table, limits, golden=options.golden)
    if options.output is not None:
        _files.write_csv(verdicts, options.output)
    if options.junit is not None and not interrupted:
        junit(verdicts, options.junit)
    failed = verdicts[verdicts["verdict"] == "fail"]
    for row in failed.itertuples():
        print(_calcut.escape_path(f"{row.path}: {'; '.join(row.reasons.splitlines())}"))
    print(f"{len(verdicts)} modules: {len(verdicts) - len(failed)} pass, {len(failed)} fail")
    if interrupted:
        print(f"interrupted: {len(verdicts)} of {len(paths)} modules were looked at", file=sys.stderr)
        return 130
    return 1 if len(failed) else 0


class _Check(ModuleType):
    """The module is what its function is, too: calcut.check(table_or_paths, limits)."""

    def __call__(self, *words: Any, **named: Any) -> pd.DataFrame:
        return check(*words, **named)


sys.modules[__name__].__class__ = _Check

if __name__ == "__main__":
    # As workers know it, not as __main__.
    from calcut.check import main as _main

    sys.exit(_main())
