import tomllib
from xml.etree import ElementTree

import calcut
import damage
import pytest
from calcut import check, fleet
from conftest import make

GOOD = """
[module]
layouts = ["v7"]
sizes = ["32x24"]
serials = "unique"
warnings = ["*"]

[texts]
text1 = "depth module .*"

[measures]
fx = {lower = 22, upper = 24, unit = "pixels"}
frequency0_single = {score = 4.5}
"""


@pytest.fixture
def dumps(tmp_path):
    folder = tmp_path / "line"
    folder.mkdir()
    return [make(folder / f"m{i:02}", "--size", "32x24", "--table-bits", "0", "--seed", i) for i in range(24)]


def limits_of(tmp_path, text):
    path = tmp_path / "limits.toml"
    path.write_text(text)
    return path


def test_verdicts_with_every_reason(dumps, tmp_path, capsys):
    damage.damage_lens(dumps[3])
    damage.damage_table(dumps[4], "frequency0", "hot_pixel")
    dumps[5].write_bytes(dumps[5].read_bytes()[:-1])
    dumps[7].write_bytes(dumps[6].read_bytes())
    make(dumps[0].parent / "n0", "--size", "16x12", "--bare", "--seed", "99")
    limits, report, output = limits_of(tmp_path, GOOD), tmp_path / "r.xml", tmp_path / "v.csv"
    words = [str(dumps[0].parent), "--limits", str(limits), "--junit", str(report), "-o", str(output), "--jobs", "2"]
    assert check.main(words) == 1
    verdicts = calcut.check(dumps[0].parent, limits)
    reasons = dict(zip(verdicts["path"].str[-3:], verdicts["reasons"]))
    expected = {
        "m03": "fx 28.* pixels is above 24",
        "m04": "frequency0_single .* has a score of .*, allowed are 4.5",
        "m05": "refused: .*",
        "m06": "serial SN.* is also that of .*m07",
        "m07": "serial SN.* is also that of .*m06",
        "n00": None,
        "/n0": "layout packed is not among v7\nsize 16x12 is not among 32x24\nfx .* pixels is below 22",
    }
    import re

    for name, pattern in expected.items():
        assert pattern is None or re.match(pattern, reasons[name]), (name, reasons[name])
    assert {name for name, why in reasons.items() if why} == {name for name, pattern in expected.items() if pattern}
    suite = ElementTree.parse(report).getroot().find("testsuite")
    assert suite.get("tests") == "25" and suite.get("failures") == "6"
    failed = {case.get("name")[-3:]: case.find("failure").text for case in suite if case.find("failure") is not None}
    assert failed == {name: why for name, why in reasons.items() if why}
    assert "25 modules: 19 pass, 6 fail" in capsys.readouterr().out and fleet.pd.read_csv(output)["verdict"].eq("fail").sum() == 6
    # Warnings and texts fail, too, each by name.
    table = fleet.summarise(dumps[:2])
    table.loc[0, ["warnings", "text1"]] = ["centre;trailing-bytes", "else"]
    assert calcut.check(table, limits)["reasons"][0].split("\n") == [
        "warning centre", "warning trailing-bytes", "text1 'else' does not match 'depth module .*'"]  # fmt: skip
    assert check.main([str(dumps[0]), "--limits", str(limits)]) == 0
    together = calcut.check(fleet.pd.concat([table, fleet.summarise(dumps[:1])]), limits)
    assert together["reasons"].str.contains("given twice|also that of").tolist() == [True, False, True]


def test_a_golden_unit(dumps, tmp_path):
    limits = limits_of(tmp_path, '[golden]\nfrequency0_golden_rms = {upper = 0.001}\nlens_golden_max = {upper = 0.1, unit = "degrees"}\n')
    with pytest.raises(check.LimitsError, match="golden"):
        check.check(dumps, limits)
    reasons = check.check([dumps[0], dumps[1]], limits, golden=dumps[0])["reasons"]
    assert not reasons[0] and reasons[1].startswith("frequency0_golden_rms") and "lens_golden_max" in reasons[1]


@pytest.mark.parametrize(
    "line, text, message",
    [
        (2, "[module]\nlayout = ['v7']", "unknown key layout"),
        (2, "[module]\nserials = 'twice'", "unique"),
        (2, "[module]\nsizes = '32x24'", "list"),
        (2, "[module]\nwarnings = ['centre', 'centr']", "no centr; there are .*, centre, "),
        (3, "[module]\n\nlayouts = ['v8']", "no v8; there are v7, korveline, packed"),
        (1, "[modules]\nx = 1", "unknown section modules"),
        (1, "[measures]\n", None),
        (3, "[measures]\n# fx\nfz = {lower = 1}", "unknown measure fz"),
        (2, "[measures]\nfx = {lower = 1, uper = 2}", "unknown key uper"),
        (4, "[measures]\nfy = {lower = 1}\n[measures.fx]\nuper = 2", "unknown key uper"),
        (2, "[measures]\nfx = {lower = 1, unit = 'mm'}", "fx is in pixels, not mm"),
        (2, "[measures]\nfx = {lower = 'one'}", "no number"),
        (2, "[measures]\nfx = {lower = nan}", "no number"),
        (2, "[measures]\nfx = 3", "takes a table"),
        (3, "\n[golden]\nfrequency0_golden_rms = {score = 3}", "unknown key score"),
        (3, "[texts]\ntext0 = '.*'\ntext1 = '('", "no regular expression"),
        (2, "[texts]\nserial = '.*'", "unknown text serial"),
        (2, "[measures]\nfx = {lower = }\n\n", "line 2"),
    ],
)
def test_mistakes_in_the_limits_are_told_with_their_line(tmp_path, line, text, message):
    path = limits_of(tmp_path, text)
    if message is None:
        assert check.load_limits(path) == {"measures": {}}
        return
    with pytest.raises(check.LimitsError, match=message) as error:
        check.load_limits(path)
    assert f"limits.toml:{line}:" in str(error.value) or f"line {line}" in str(error.value)


def test_suggested_limits_let_their_fleet_pass(dumps, tmp_path, capsys):
    output, suggested = tmp_path / "fleet.csv", tmp_path / "limits.toml"
    assert fleet.main([*map(str, dumps), "-o", str(output)]) == 0
    assert check.main(["--suggest", str(output), "-o", str(suggested)]) == 0
    limits = tomllib.loads(suggested.read_text())
    assert limits["module"]["sizes"] == ["32x24"] and limits["measures"]["fx"]["unit"] == "pixels"
    assert check.main([*map(str, dumps), "--limits", str(suggested)]) == 0
    damage.damage_lens(dumps[2])
    assert check.main([*map(str, dumps), "--limits", str(suggested)]) == 1
    assert "m02: fx" in capsys.readouterr().out
    suggested.write_text("# of calcut.check\n" + suggested.read_text())
    with pytest.raises(SystemExit):  # the file may hold somebody's work by now
        check.main(["--suggest", str(output), "-o", str(suggested)])


def test_usage(dumps, tmp_path, capsys):
    limits = limits_of(tmp_path, "[measures]\nfz = {lower = 1}")
    for text, words in {
        "give --limits": [dumps[0]],
        "unknown measure fz": [dumps[0], "--limits", limits],
        "No such file": [dumps[0], "--limits", tmp_path / "none"],
        "no dumps": ["--limits", limits_of(tmp_path, GOOD)],
        "must end in .xml": [dumps[0], "--limits", limits, "--junit", dumps[1]],
    }.items():
        limits_of(tmp_path, GOOD if text == "no dumps" else "[measures]\nfz = {lower = 1}")
        with pytest.raises(SystemExit) as ended:
            check.main([*map(str, words)])
        assert ended.value.code == 2 and text in capsys.readouterr().err
