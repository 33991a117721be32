import os

import numpy as np
import pandas as pd
import pytest
from calcut import fleet
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
    names = [*made, folder / "flipped", folder / "short", folder / "empty", folder / "missing", folder]
    return [names[i % len(names)] for i in range(100)]


def test_the_table_is_the_same_however_it_is_made(fleet_of_dumps):
    done = []
    table = fleet.summarise(fleet_of_dumps, jobs=2, progress=lambda *rows: done.append(rows))
    assert done[-1] == (100, 100) and len(done) > 2
    assert list(table["path"]) == [str(path) for path in fleet_of_dumps]
    assert table.dtypes.astype(str).to_dict() == fleet.COLUMNS
    assert table["result"].value_counts().to_dict() == {"ok": 75, "refused": 10, "unreadable": 15}
    assert table["fault"][15] == "checksum" and table["offset"][15] == 8
    assert_frame_equal(table, fleet.summarise(fleet_of_dumps, jobs=1))
    assert_frame_equal(table, pd.concat([fleet.summarise([path]) for path in fleet_of_dumps[:20]] * 5, ignore_index=True))
    assert_frame_equal(table[:0], fleet.summarise([]))


def test_statistics():
    values = np.array([1, 2, 3, 4, 10, np.nan, np.inf], np.float32)
    expected = dict(mean=4, std=np.sqrt(10), min=1, max=10, median=3, mad=1, not_finite=2)
    assert fleet.statistics(values) == pytest.approx(expected)
    nothing = fleet.statistics(values[5:])
    assert nothing.pop("not_finite") == 2 and np.isnan(list(nothing.values())).all()


@pytest.mark.parametrize("dying", [["d03"], ["d00", "d01", "d14", "short"]])
def test_a_process_that_dies_loses_no_other_row(fleet_of_dumps, monkeypatch, dying):
    whole = fleet.summarise(fleet_of_dumps)
    healthy = fleet.row
    monkeypatch.setattr(fleet, "row", lambda path: os._exit(9) if os.path.basename(path) in dying else healthy(path))
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
    table.loc[3, "fx"] = 170
    table.loc[5, ["result", "fx"]] = ["refused", 900]
    median = np.median(table["fx"].drop(5))
    mad = np.median(np.abs(table["fx"].drop(5) - median))
    score = fleet.scores(table)
    assert np.allclose(score["fx"].drop(5), 0.6745 * (table["fx"].drop(5) - median) / mad)
    assert (score["cx"].drop(5) == 0).all() and score.loc[5].isna().all() and score["cy"].isna().all()
    found = fleet.outliers(table)
    assert found[["row", "path", "column", "value"]].values.tolist() == [[7, "m7", "k1", 5.0], [3, "m3", "fx", 170.0]]
    assert found["score"][0] == pytest.approx(1 / (np.sqrt(np.pi / 2) / 100))
    assert len(fleet.outliers(table, threshold=1000)) == 0


def test_command_line(fleet_of_dumps, tmp_path, capsys):
    folder, output = str(fleet_of_dumps[0].parent), tmp_path / "fleet.csv"
    listed = tmp_path / "list"
    listed.write_text(f"{fleet_of_dumps[0]}\n{folder}/missing\n")
    extras = ["--outliers", str(tmp_path / "far.csv"), "--jobs", "2"]
    assert fleet.main([folder, "--files-from", str(listed), "-o", str(output), *extras]) == 1
    expected = fleet.summarise(
        [*sorted(path for path in fleet_of_dumps[0].parent.iterdir()), fleet_of_dumps[0], f"{folder}/missing"]
    )
    assert_frame_equal(pd.read_csv(output, dtype=fleet.COLUMNS, float_precision="round_trip"),
                       expected.assign(**{"warnings": expected["warnings"].replace("", pd.NA)}), check_like=True)
    assert (tmp_path / "far.csv").exists() and "20 dumps" in capsys.readouterr().out
    assert fleet.main([str(fleet_of_dumps[0]), "-o", str(output)]) == 0
    before = fleet_of_dumps[1].read_bytes()
    for words in (["-o", str(fleet_of_dumps[1])], [], ["-o", str(output), "--plot", str(fleet_of_dumps[1])]):
        with pytest.raises(SystemExit):
            fleet.main([str(fleet_of_dumps[0]), *words])
    assert fleet_of_dumps[1].read_bytes() == before


def test_plot(fleet_of_dumps, tmp_path):
    pytest.importorskip("matplotlib")
    fleet.plot(fleet.summarise(fleet_of_dumps), tmp_path / "fleet.png")
    assert (tmp_path / "fleet.png").stat().st_size > 10000
