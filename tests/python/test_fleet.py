import os
import select
import shutil
import signal
import subprocess
import sys
from pathlib import Path

import calcut
import damage
import numpy as np
import pandas as pd
import pytest
from calcut import _measures, fleet
from conftest import make
from pandas.testing import assert_frame_equal


@pytest.fixture
def fleet_of_dumps(tmp_path):
    """100 paths: dumps of three kinds, damaged ones, and what is no dump."""
    kinds = [["--layout", "v7"], ["--layout", "korveline", "--signature", "8"], ["--bare", "--frequencies", "5"]]
    folder = tmp_path / "dumps"
    folder.mkdir()
    made = [make(folder / f"d{i:02}", "--size", "16x12", "--seed", i, *kinds[i % 3]) for i in range(15)]
    damaged = bytearray(made[0].read_bytes())
    damaged[-20] ^= 1
    (folder / "flipped").write_bytes(damaged)
    (folder / "short").write_bytes(made[1].read_bytes()[:90])
    (folder / "empty").touch()
    names = [*made, folder / "flipped", folder / "short", folder / "empty", folder / "missing", folder / "gone"]
    return [names[i % len(names)] for i in range(100)]


@pytest.fixture(scope="session")
def line(tmp_path_factory):
    """200 modules of plain floats, 20 of them damaged by hand, and what has to show it."""
    folder = tmp_path_factory.mktemp("line")
    paths = [
        make(folder / f"m{i:03}", "--size", "112x86", "--table-bits", "0", "--seed", i) for i in range(200)
    ]
    return folder, damage.damage_twenty(paths)


@pytest.fixture(scope="session")
def line_table(line):
    return fleet.summarise(line[0])


def test_the_table_is_the_same_however_it_is_made(fleet_of_dumps):
    done = []
    table = fleet.summarise(fleet_of_dumps, jobs=2, progress=lambda *rows: done.append(rows))
    assert done[-1] == (100, 100) and len(done) > 2
    assert list(table["path"]) == [str(path) for path in fleet_of_dumps]
    assert table.dtypes.astype(str).to_dict() == fleet.COLUMNS
    assert table["result"].value_counts().to_dict() == {"ok": 75, "refused": 10, "unreadable": 15}
    assert table["fault"][15] == "checksum" and table["offset"][15] == 8
    assert_frame_equal(table, fleet.summarise(fleet_of_dumps, jobs=1))
    assert_frame_equal(table[:0], fleet.summarise([]))
    # A folder stands for its files, and one path for itself.
    folder = fleet_of_dumps[0].parent
    assert list(fleet.summarise(folder)["path"]) == [str(path) for path in sorted(folder.iterdir())]
    assert_frame_equal(fleet.summarise(str(fleet_of_dumps[0])), table[:1])


def test_statistics():
    random = np.random.default_rng(1)
    for count in (1, 2, 3, 4, 10, 101, 1000):
        values = random.normal(size=count).astype(np.float32).round(1)
        median = np.median(values.astype(float))
        expected = dict(mean=values.mean(dtype=float), std=values.std(dtype=float), min=values.min(), max=values.max(),
                        median=median, mad=np.median(np.abs(values.astype(float) - median)), not_finite=2)
        assert _measures.statistics(np.append(values, [np.nan, np.inf]).astype(np.float32)) == pytest.approx(expected)
    nothing = _measures.statistics(np.full(2, np.nan, np.float32))
    assert nothing.pop("not_finite") == 2 and np.isnan(list(nothing.values())).all()


def test_measures_of_the_residual():
    rows, columns = np.mgrid[0:48, 0:64] / 64
    smooth = (1 + columns - 2 * rows**2 + columns * rows**3).astype(np.float32)
    mask = np.ones(smooth.shape, np.uint8)
    mask[:5, :9] = 0
    cases = {"column_stripe": 0.005, "column_max": 0.02, "row_max": 0.03, "single": 0.5, "region": 30}
    table = smooth.copy()
    table[:, ::2] += 0.01  # an amplitude of 0.005
    assert _measures.residuals(table, mask)["column_stripe"] == pytest.approx(cases["column_stripe"], rel=0.05)
    table = smooth.copy()
    table[:, 30] += cases["column_max"]
    table[20, :] -= cases["row_max"]
    found = _measures.residuals(table, mask)
    assert [found[name] for name in ("column_max", "row_max")] == pytest.approx([0.02, 0.03], rel=0.15)
    table = smooth.copy()
    table[25, 40] += cases["single"]
    table[30:35, 50:56] = 7.5
    table[:5, :9] = np.nan  # masked
    found = _measures.residuals(table, mask)
    assert found["region"] == 30 and found["single"] == pytest.approx(7.5 - smooth[30, 50:56].min(), rel=0.1)
    assert np.isnan(list(_measures.residuals(smooth, 0 * mask).values())).all()


def test_modules_that_were_damaged_by_hand_are_found(line, line_table):
    far = fleet.outliers(line_table)
    for path, columns in line[1].items():
        assert columns & set(far["column"][far["path"] == path]), path
    assert len(set(far["path"]) - set(line[1])) <= 2


def test_modules_that_are_odd_only_in_all_measures_together():
    pytest.importorskip("sklearn")
    random = np.random.default_rng(3)
    table = fleet.summarise([]).reindex(range(300))
    table["path"], table["result"] = [f"m{i}" for i in range(300)], "ok"
    table["fx"] = 160 + random.normal(size=300)
    table["fy"] = table["fx"] + 0.01 * random.normal(size=300)
    table["cx"] = 112 + random.normal(size=300)
    table.loc[7, ["fx", "fy"]] = [161, 160]
    assert not len(fleet.outliers(table))
    table.index %= 150  # as pd.concat leaves it
    found = fleet.outliers(table, multivariate=True)
    assert found[["row", "column"]].values.tolist()[0] == [7, "distance"] and len(found) < 6
    assert found["score"][0] > 40 and (found["score"][1:] < 6).all()


@pytest.mark.parametrize("dying", [["d03"], ["d00", "d01", "d14", "short"]])
def test_a_process_that_dies_loses_no_other_row(fleet_of_dumps, monkeypatch, dying):
    whole = fleet.summarise(fleet_of_dumps)
    healthy = _measures.row

    def row(path, golden=None):
        return os._exit(9) if os.path.basename(path) in dying else healthy(path, golden)

    monkeypatch.setattr(_measures, "row", row)
    table = fleet.summarise(fleet_of_dumps[:40], jobs=2)
    lost = table["path"].map(os.path.basename).isin(dying)
    assert lost.sum() == 2 * len(dying) and (table["result"][lost] == "lost").all()
    assert_frame_equal(table[~lost], whole[:40][~lost])


def test_outliers():
    rows = 101
    values = np.linspace(-1, 1, rows)
    table = fleet.summarise([]).reindex(range(rows))
    table["path"], table["result"] = [f"m{i}" for i in range(rows)], "ok"
    table["fx"] = 160 + values
    table["k1"] = np.where(np.arange(rows) == 7, 5.0, 4.0)  # MAD 0
    table["cx"] = 112.0  # all equal
    table["psf_max"] = 1 + np.where(values > 0, 3 * values, values)  # a longer tail upwards
    table["pixel_values_region"] = 2.0
    table.loc[:1, "pixel_values_region"] = [10, 40]
    table.loc[3, "fx"] = 170
    table.loc[5, ["result", "fx"]] = ["refused", 900]
    table.loc[8, ["k1", "psf_max"]] = [-np.inf, np.inf]
    good = table.drop(5)
    distance = good["fx"] - good["fx"].median()
    mad = max(distance.abs().median(), distance[distance >= 0].median())
    score = fleet.scores(table)
    above = distance[distance > 0].index
    assert np.allclose(score["fx"][above], 0.6745 * distance[above] / mad)
    assert (score["cx"].drop(5) == 0).all() and score.loc[5].isna().all() and score["cy"].isna().all()
    assert score["psf_max"][100] == pytest.approx(0.6745 * 3 / (3 * 0.5) / 2, rel=0.05)  # an extreme
    assert score["pixel_values_region"][:3].tolist() == [4, 19, 0]
    found = fleet.outliers(table)
    assert found[["row", "path", "column", "value"]].values.tolist() == [
        [8, "m8", "k1", -np.inf], [8, "m8", "psf_max", np.inf],
        [7, "m7", "k1", 5.0], [1, "m1", "pixel_values_region", 40.0], [3, "m3", "fx", 170.0]]  # fmt: skip
    assert found["score"][2] == pytest.approx(1 / (np.sqrt(np.pi / 2) / 99))
    assert len(fleet.outliers(table, threshold=1000)) == 2


def test_differences_from_a_golden_unit(line, tmp_path):
    golden = make(tmp_path / "golden", "--size", "112x86", "--table-bits", "0", "--seed", "1")
    other = make(tmp_path / "other", "--size", "16x12")
    same, lens = shutil.copy(golden, tmp_path / "same"), shutil.copy(golden, tmp_path / "lens")
    hot = shutil.copy(golden, tmp_path / "hot")
    damage.damage_table(hot, "frequency1", "hot_pixel")
    damage.damage_lens(lens, 1.01)
    table = fleet.summarise([same, hot, lens, other], golden=golden).set_index("path")
    named = [name for name in fleet.GOLDEN if name.startswith(("pixel_values", "frequency0", "psf", "lens"))]
    assert (table.loc[str(same), named] == 0).all() and table.loc[str(other), fleet.GOLDEN].isna().all()
    value = calcut.read(golden).frequencies[1].pixel_table[43, 37]
    pixels = int((calcut.read(golden).mask != 0).sum())
    found = table.loc[str(hot), [f"frequency1_golden_{kind}" for kind in ("mean", "rms", "max")]]
    assert found.tolist() == pytest.approx([2 * value / pixels, 2 * value / np.sqrt(pixels), 2 * value], rel=1e-4)
    # A focal length that is 1 % longer turns a ray of 35 degrees by 0.27, and one in the corner by more.
    assert 0.2 < table.loc[str(lens), "lens_golden_max"] < 0.45 and table.loc[str(lens), "psf_golden_max"] == 0
    with pytest.raises(FileNotFoundError):
        fleet.summarise([same], golden=tmp_path / "none")
    apart = []
    for unit in (golden, hot):  # under one name, as a worker that lives on sees it
        apart.append(_measures.row(str(same), str(shutil.copy(unit, tmp_path / "unit")))["frequency1_golden_max"])
    assert apart[0] == 0 < apart[1]


def test_dates_serials_and_control_charts(fleet_of_dumps):
    dates = {"20260110": "2026-01-10", " (20251231)": "2025-12-31", "20261301": None, "120260110": None, "": None, None: None,
             "99991231": None, "00010101": None, "22611231": "2261-12-31"}
    for text, day in dates.items():
        assert str(_measures.date_of(text))[:10] == str(day if day else "NaT")
    table = fleet.summarise(fleet_of_dumps[:20])
    assert table["date"].notna().sum() == 15 and fleet.duplicates(table).empty
    again = fleet.duplicates(fleet.summarise([*fleet_of_dumps[:4], fleet_of_dumps[2]]))
    assert list(again.index) == [2, 4]
    table = fleet.summarise([]).reindex(range(40))
    table["path"], table["result"] = [f"m{i}" for i in range(40)], "ok"
    table["date"] = pd.Timestamp("2026-01-01") + pd.to_timedelta(np.arange(40)[::-1], "D")
    fx = np.tile([1.0, -1.0], 20)  # moving range 2, sigma 1.77
    fx[[5, 20, 21, 22]] = [9, 5.5, 0.2, 5.5]
    fx[30:39] = 1.6
    table["fx"] = fx[::-1]
    table = pd.concat([table, table[:1].assign(fx=np.inf), table[:0]])
    chart = fleet.control(table, "fx")
    assert chart["row"].tolist() == list(range(39, -1, -1))
    assert chart["date"].is_monotonic_increasing and np.allclose(chart["value"], fx)
    assert chart["sigma"][0] == pytest.approx(np.abs(np.diff(fx)).mean() / 1.128)
    assert dict(chart["rule"][chart["rule"] > 0]) == {5: 1, 22: 2, 37: 4, 38: 4}


def run(*words):
    return [*map(str, words)]


def test_command_line(fleet_of_dumps, tmp_path, capsys):
    folder, output = fleet_of_dumps[0].parent, tmp_path / "fleet.csv"
    again = os.fsdecode(shutil.copy(fleet_of_dumps[0], os.fsencode(folder) + b"/\xff\33"))
    listed = tmp_path / "list"
    listed.write_text(f"{fleet_of_dumps[0]}\n{folder}/missing\n")
    words = run(folder, "--files-from", listed, "-o", output, "--outliers", tmp_path / "far.csv", "--jobs", 2)
    assert fleet.main(words) == 1
    expected = fleet.summarise([*sorted(folder.iterdir()), fleet_of_dumps[0], f"{folder}/missing"])
    expected["path"] = expected["path"].replace(again, f"{folder}/\\xff\33")
    assert_frame_equal(fleet.load(output), expected.replace({"": pd.NA}))
    text = capsys.readouterr().out
    assert "16 dumps and 5 bare calibrations" in text and "SN" in text and "\\xff\\x1b" in text  # one serial three times
    # Again, over its own files, and with them among the dumps.
    assert fleet.main(run(fleet_of_dumps[0], "-o", output)) == 0
    assert fleet.main(run(tmp_path, "-o", output, "--outliers", tmp_path / "far.csv")) == 1
    assert str(output) not in set(fleet.load(output)["path"])


def test_outputs_are_checked_before_the_first_dump_is_read(fleet_of_dumps, tmp_path, monkeypatch, capsys):
    monkeypatch.setattr(fleet, "read_all", lambda *_: pytest.fail("a dump was read"))
    dump, output, foreign = fleet_of_dumps[1], tmp_path / "fleet.csv", tmp_path / "mine.csv"
    foreign.write_text("a,b\n1,calcut.fleet path,result,fault,\n")
    cases = {
        "two outputs": ["-o", output, "--outliers", tmp_path / "." / "fleet.csv"],
        "--threshold": ["-o", output, "--threshold", 0],
        "must end in .csv": ["-o", dump],
        "no dumps": ["-o", output, "--files-from", "/dev/null"],
        "there is no folder": ["-o", tmp_path / "none" / "f.csv"],
        "must end in .pdf or": ["-o", output, "--plot", dump],
        "--force replaces it": ["-o", foreign],
        "golden unit": ["-o", output, "--golden", tmp_path / "none"],
        "--jobs": ["-o", output, "--jobs", 0],
        "No such file": ["-o", output, "--files-from", tmp_path / "none"],
    }
    for text, words in cases.items():
        with pytest.raises(SystemExit) as ended:
            fleet.main(run(*([] if text == "no dumps" else [dump]), *words))
        assert ended.value.code == 2 and text in capsys.readouterr().err, text
    for missing in ("matplotlib", "xarray", "dask"):
        monkeypatch.setattr(fleet, "find_spec", lambda name: None if name == missing else name)
        with pytest.raises(SystemExit):
            fleet.main(run(dump, "-o", output, "--plot", tmp_path / "f.pdf"))
        assert f"python3-{missing}" in capsys.readouterr().err
    assert foreign.read_text().startswith("a,b") and not output.exists()

    def closed(path):
        raise PermissionError(13, "Permission denied", path)

    monkeypatch.setattr(os, "scandir", closed)
    with pytest.raises(SystemExit):
        fleet.main(run(dump.parent, "-o", output))
    assert "Permission denied" in capsys.readouterr().err


@pytest.mark.parametrize("how", [signal.SIGINT, signal.SIGKILL])
def test_a_run_that_is_ended(fleet_of_dumps, tmp_path, how):
    """An interrupt leaves the rows read so far; neither leaves a process or an output of the run before."""
    os.mkfifo(tmp_path / "progress")
    (tmp_path / "far.csv").write_text("row,path,column,value,median,score\n")
    script = f"""
import os, signal, sys
from calcut import _files, fleet
signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background jobs ignore it
class Told(_files.Progress):
    def __call__(self, done, total):
        open({str(tmp_path / 'progress')!r}, "w").write(str(done))
        open({str(tmp_path / 'progress')!r}).read()
_files.Progress = Told
sys.exit(fleet.main({run(*fleet_of_dumps, '-o', tmp_path / 'fleet.csv', '--outliers', tmp_path / 'far.csv', '--jobs', 1)!r}))
"""
    child = subprocess.Popen([sys.executable, "-c", script], stderr=subprocess.PIPE, text=True)
    done = int((tmp_path / "progress").read_text())
    workers = [os.pidfd_open(int(pid)) for pid in Path(f"/proc/{child.pid}/task/{child.pid}/children").read_text().split()]
    child.send_signal(how)  # while it waits for the progress to be taken note of
    error = child.communicate()[1]
    for worker in workers:
        select.select([worker], [], [])  # until it has ended
    assert workers and not (tmp_path / "far.csv").exists()
    if how == signal.SIGINT:
        assert "interrupted" in error and child.returncode == 130
        assert len(fleet.load(tmp_path / "fleet.csv")) == done == 32


def test_what_leaves_for_a_spreadsheet(tmp_path):
    table = fleet.summarise([]).reindex(range(3))
    table["path"], table["text1"] = ["a", b"\xff\xfeb".decode(errors="surrogateescape"), "c"], ["=1+1", "-x", "NA"]
    fleet._files.write_csv(table, tmp_path / "t.csv")
    assert fleet.load(tmp_path / "t.csv")[["path", "text1"]].values.tolist() == [
        ["a", r"\x3d1+1"], [r"\xff\xfeb", r"\x2dx"], ["c", "NA"]]  # fmt: skip
    table[["path", "fx"]][:1].to_csv(tmp_path / "few.csv", index=False)
    assert fleet.load(tmp_path / "few.csv")["fx"].isna().all()


def test_pages(line, line_table, fleet_of_dumps, tmp_path):
    """Pages are PDF of several pages, pictures one; names with formulas, odd bytes and many outliers draw, too."""
    pytest.importorskip("matplotlib")
    pytest.importorskip("xarray")
    odd = tmp_path / "$\\frac{$.eeprom"
    shutil.copy(next(iter(line[1])), odd)
    # Some of each kind of measure: a page of distributions and a bit.
    kept = [*fleet.LENS, "masked_pixels", "psf_max", "pixel_values_region", "frequency0_single", "frequency2_column_stripe"]
    table = line_table[:60].copy()
    table.loc[3, "path"] = "a\udcff\u202eb$"
    table.loc[4, ["k1", "cx", "psf_max"]] = [np.inf, -np.inf, np.inf]
    table = pd.concat([table, fleet.summarise([odd, *fleet_of_dumps[:20]])])
    table[[name for name in fleet.MEASURES if name not in kept]] = np.nan
    for name, start in (("a.pdf", b"%PDF"), ("b.png", b"\x89PNG"), ("c.svg", b"<?xml")):
        fleet.plot(table, tmp_path / name)
        assert (tmp_path / name).read_bytes().startswith(start)
    # Counts, scores, and of distributions 2, of control charts 3, of populations 2, of the worst modules 2.
    assert (tmp_path / "a.pdf").read_bytes().count(b"/Type /Page ") == 11
    before = (tmp_path / "c.svg").read_bytes()
    fleet.plot(table, tmp_path / "c.svg")
    assert (tmp_path / "c.svg").read_bytes() == before
    fleet.plot(table[table["result"] != "ok"], tmp_path / "none.pdf")
    assert fleet._files.why_not_written(str(tmp_path / "a.pdf"), [".pdf"], False) is None
    assert len(fleet.control_chart(line_table, "fx").axes) == 1
