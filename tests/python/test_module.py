import gc
import json
import os
import pickle
import shutil
import subprocess
import sys
import threading
import zlib
from pathlib import Path

import calcut
import numpy as np
import pytest
from conftest import calcut_command, make

KINDS = {
    "v7": ["--layout", "v7"],
    "signed": ["--layout", "korveline", "--signature", "64", "--size", "20x7"],
    "packed": ["--bare", "--frequencies", "8", "--custom", "5"],
    "plain": ["--layout", "korveline", "--no-straylight", "--custom", "0", "--frequencies", "1", "--size", "3x90"],
}


@pytest.fixture(params=KINDS)
def dump(request, tmp_path):
    return make(tmp_path / request.param, *KINDS[request.param])


def arrays(module):
    """Every array by a name."""
    found = {name: getattr(module, name) for name in ("mask", "pixel_values", "directions", "psf")}
    if module.straylight is not None:
        found.update(radius=module.straylight.radius, value=module.straylight.value)
    for frequency in module.frequencies:
        for name in ("pixel_table", "values_a", "values_b"):
            found[f"{name}{frequency.index}"] = getattr(frequency, name)
        for name in ("wiggling_a", "wiggling_b"):
            table = getattr(frequency, name)
            for part in ("first", "second", "third"):
                found[f"{name}.{part}{frequency.index}"] = getattr(table, part, None)
    return {name: array for name, array in found.items() if array is not None}


def test_values_are_those_of_inspect(dump):
    module = calcut.read(dump)
    tree = json.loads(calcut_command("inspect", "--json", dump).stdout)
    assert calcut.inspect(str(dump)) == tree
    record = tree["record"]
    shape = (record["rows"], record["columns"])
    assert (module.rows, module.columns) == shape == module.mask.shape
    assert module.directions.shape == (*shape, 3)
    assert np.abs(np.linalg.norm(module.directions, axis=2) - 1).max() < 1e-6
    # The tree has the fewest digits that read back to the same float.
    assert {name: np.float32(value) for name, value in record["lens"].items()} == module.lens._asdict()
    texts = [module.text0, module.text1, module.text2, (module.id_bytes or b"").hex(), module.aux_flag]
    assert texts == [record[name] for name in ("text0", "text1", "text2", "idBytes", "auxFlag")]
    assert list(module.id_codes) == record["idCodes"]
    assert {f["id"]: f["hex"] for f in record["custom"]} == {k: v.hex() for k, v in module.custom.items()}
    assert int((module.mask == 0).sum()) == record["maskedPixels"]
    assert [f.id for f in module.frequencies] == [f["id"] for f in record["frequencies"]]
    for mine, theirs in zip(module.frequencies, record["frequencies"]):
        assert (mine.scalar is None) == (theirs["scalar"] is None)
        for key, values in (("valuesA", mine.values_a), ("valuesB", mine.values_b)):
            assert values.tolist() == [np.float32(v) for v in theirs[key]]
        for key, table in (("wigglingA", mine.wiggling_a), ("wigglingB", mine.wiggling_b)):
            assert [table.header, table.second.tolist()] == [theirs[key]["header"], theirs[key]["second"]]
            assert table.first.tolist() == [np.float32(v) for v in theirs[key]["first"]]
            assert table.third.tolist() == [np.float32(v) for v in theirs[key]["third"]]
    ranges = {block["id"]: block["range"] for block in tree["calibration"]["blocks"]}
    tables = {3: module.pixel_values, **{17 + 7 * f.index: f.pixel_table for f in module.frequencies}}
    for block, table in tables.items():
        assert table.shape == shape and table.dtype == np.float32
        assert [table.min(), table.max()] == [np.float32(ranges[block][end]) for end in ("min", "max")]
    if record["straylight"] is None:
        assert module.psf is None and module.straylight is None
    else:
        light = record["straylight"]
        assert module.psf.shape == (light["psfHeight"], light["psfWidth"])
        assert module.psf[0, 0] == np.float32(light["centre"]) == module.straylight.centre
        assert module.straylight.radius.tolist() == [np.float32(v) for v in light["radius"]]


def test_arrays_are_read_only_views_that_outlive_their_module(dump):
    module = calcut.read(dump)
    views, again = arrays(module), arrays(module)
    kept = {name: view.copy() for name, view in views.items()}
    for name, view in views.items():
        assert np.shares_memory(view, again[name]), name
        with pytest.raises(ValueError):
            view[...] = 0
        with pytest.raises(ValueError):
            view.flags.writeable = True
    frequency = module.frequencies[0]
    del module, again
    gc.collect()
    noise = [np.full(1 << 16, 255, np.uint8) for _ in range(64)]  # over whatever was freed
    for name, view in views.items():
        assert np.array_equal(view, kept[name], equal_nan=True), name
    assert np.array_equal(frequency.pixel_table, kept["pixel_table0"]) and noise


def test_bytes_and_pickles_give_the_same(dump):
    data = dump.read_bytes()
    module = calcut.read(dump)
    expected = arrays(module)
    sources = [data, bytearray(data), memoryview(data), np.frombuffer(data, np.uint8), str(dump)]
    for other in [*map(calcut.read, sources), pickle.loads(pickle.dumps(module))]:
        assert (repr(other), other.lens, other.custom) == (repr(module), module.lens, module.custom)
        found = arrays(other)
        assert found.keys() == expected.keys()
        assert all(np.array_equal(found[name], expected[name], equal_nan=True) for name in expected)


def damages(data):
    """Every truncation, and a bit of every byte."""
    yield from (data[:size] for size in range(len(data)))
    for place in range(len(data)):
        damaged = bytearray(data)
        damaged[place] ^= 1 << place % 8
        yield bytes(damaged)


def test_errors_carry_what_inspect_says(small):
    raised = 0
    for damaged in damages(small.read_bytes()):
        fault = next(iter(calcut.inspect(damaged)["faults"]), None)
        assert [finding._asdict() for finding in calcut.diagnose(damaged).faults[:1]] == ([fault] if fault else [])
        try:
            calcut.read(damaged)
            assert fault is None
        except calcut.CalcutError as error:
            raised += 1
            names = ["name", "expected", "found", "advice", "offset", "status", "block_id"]
            assert [getattr(error, name) for name in names] == [fault[name.replace("_id", "")] for name in names]
            assert str(error) == f"<bytes>: {fault['text']}" == str(pickle.loads(pickle.dumps(error)))
    assert raised > 2 * len(small.read_bytes()) - 64  # nothing looks at some bytes of the header


def test_what_is_no_dump(small, tmp_path, monkeypatch):
    (tmp_path / "empty").touch()
    cases = [
        ((tmp_path / "missing",), FileNotFoundError),
        ((tmp_path,), OSError),
        ((tmp_path / "empty",), OSError),
        ((7,), TypeError),
        ((["small"],), TypeError),
        (("a\0b",), ValueError),
        ((small, "v8"), ValueError),
        ((small, "korveline"), calcut.CalcutError),
        ((b"",), calcut.CalcutError),
    ]
    for function in (calcut.read, calcut.inspect):
        for words, error in cases:
            if function is calcut.inspect and error is calcut.CalcutError:
                assert not function(*words)["intact"]
                continue
            with pytest.raises(error):
                function(*words)
    # A file of that name, not standard input.
    monkeypatch.chdir(tmp_path)
    shutil.copy(small, "-")
    assert calcut.read("-").columns == 16


def test_instances_come_out_of_read_alone(small):
    for kind in (calcut.Calibration, calcut.Frequency):
        for make_one in (kind, lambda: kind.__new__(kind), lambda: object.__new__(kind), type("Sub", (kind,), {})):
            with pytest.raises(TypeError):
                make_one()
    # A pickle holds bytes; a path in one stays unopened.
    function, (data, layout) = calcut.read(small).__reduce__()
    assert data == small.read_bytes()
    for other in (str(small), small, bytearray(data)):
        with pytest.raises(TypeError):
            function(other, layout)
    for function in (calcut.read, calcut.cut, calcut.inspect, calcut.diagnose):
        assert pickle.loads(pickle.dumps(function)) is function


def test_a_damaged_dump_on_request(small):
    """Its faults are those of a diagnosis; what reads is there, nothing else is, and it is the same twice."""
    data = small.read_bytes()
    cut_off, no_dump, flipped = data[: len(data) // 3], b"hello", data[:-9] + bytes([data[-9] ^ 1]) + data[-8:]
    seen = [calcut.read(each, strict=False) for each in (cut_off, no_dump, flipped)]
    assert seen[0].lens == calcut.read(data).lens and seen[0].psf is None
    assert len(seen[0].frequencies) < len(calcut.read(data).frequencies)
    assert seen[1].columns is None and not arrays(seen[1]) and seen[1].custom == {}
    assert arrays(seen[2]).keys() == arrays(calcut.read(data)).keys() and seen[2].faults[0].name == "checksum"
    seen_names = set()
    for damaged in damages(data):
        if len(damaged) == len(data):  # the checksum does not keep the damage from the reader
            damaged = damaged[:8] + zlib.crc32(damaged[67:]).to_bytes(4, "little") + damaged[12:]
        module, again = (calcut.read(damaged, strict=False) for _ in range(2))
        assert module.faults == calcut.diagnose(damaged).faults
        seen_names.update(warning.name for warning in module.warnings)
        mine, theirs = arrays(module), arrays(again)
        assert mine.keys() == theirs.keys() and repr(module) == repr(pickle.loads(pickle.dumps(module)))
        assert all(np.array_equal(mine[name], theirs[name], equal_nan=True) for name in mine)
    assert {"centre", "constant-table", "half-masked"} <= seen_names <= set(calcut._calcut.warning_names)


def test_what_is_wrong_with_a_file_is_a_finding_of_a_diagnosis(tmp_path):
    (tmp_path / "empty").touch()
    for path in (tmp_path / "missing", tmp_path, tmp_path / "empty", ""):
        found = calcut.diagnose(path)
        assert [fault.name for fault in found.faults] == ["file"] and not found.intact and not found.cuttable


def resident():
    return int(Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def test_many_modules_take_what_their_arrays_take_and_give_it_back(tmp_path):
    data = make(tmp_path / "full").read_bytes()
    module = calcut.read(data)
    owned = sum(array.nbytes for array in arrays(module).values()) + len(data)
    before = resident()
    modules = [calcut.read(data) for _ in range(200)]
    assert resident() - before < 1.1 * 200 * owned
    del modules
    gc.collect()
    assert resident() - before < 0.4 * 200 * owned


def files(folder):
    return {path.name: path.read_bytes() for path in folder.iterdir()}


def test_cut_is_that_of_the_command(dump, tmp_path):
    mine, theirs = tmp_path / "mine", tmp_path / "theirs"
    mine.mkdir(), theirs.mkdir()
    command = calcut_command("cut", dump, theirs)
    if dump.name == "packed":
        with pytest.raises(calcut.CalcutError):
            calcut.cut(dump, mine)
        assert command.returncode == 1 and not files(mine)
        return
    cut = calcut.cut(dump, mine)
    assert files(mine) == files(theirs) and cut.files == {name: len(data) for name, data in files(mine).items()}
    assert f"masked pixels: {cut.masked_pixels}\n" in command.stdout
    # What fails leaves the earlier cut alone.
    bad = tmp_path / "bad"
    bad.write_bytes(dump.read_bytes()[:-1])
    for words, error in [((bad, mine), calcut.CalcutError), ((dump, tmp_path / "none"), FileNotFoundError)]:
        with pytest.raises(error):
            calcut.cut(*words)
    shutil.copy(dump, theirs / "qov.spc")
    with pytest.raises(OSError, match="qov.spc"):
        calcut.cut(dump, theirs)
    assert files(theirs)["qov.spc"] == dump.read_bytes()
    calcut.cut(dump, theirs, force=True)
    assert files(mine) == files(theirs)


def test_threads(tmp_path):
    dumps = [make(tmp_path / str(seed), "--seed", seed, "--size", "64x48") for seed in range(4)]
    expected = [calcut.read(dump).pixel_values.copy() for dump in dumps]
    wrong = []

    def work(first):
        for i in range(200):
            k = (first + i) % len(dumps)
            if not np.array_equal(calcut.read(dumps[k]).pixel_values, expected[k]):
                wrong.append(k)

    threads = [threading.Thread(target=work, args=(k,)) for k in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong


@pytest.mark.skipif(shutil.which("mypy") is None, reason="needs mypy")
def test_types(tmp_path):
    user = tmp_path / "user.py"
    user.write_text("import calcut, calcut._pictures, calcut.check, calcut.dataset, calcut.fleet, calcut.pages, calcut.plot\n"
                    "x: float = calcut.read('a').mask.mean()\nreveal_type(calcut.read(b'').lens.fx)\n")
    # Packages that have no types, or whose own sources would take longer than all of ours.
    others = "xarray dask distributed matplotlib pandas sklearn zarr numcodecs pypdf"
    (tmp_path / "mypy.ini").write_text("[mypy]\nstrict = True\nignore_missing_imports = True\nwarn_unused_ignores = False\n"
                                       f"[mypy-{','.join(f'{name}.*' for name in others.split())}]\nfollow_imports = skip\n")
    (tmp_path / "stubtest.ini").write_text("[mypy]\n[mypy-numpy.*]\nfollow_imports = skip\n")
    folder = Path(calcut.__file__).parents[1]
    environment = {"MYPYPATH": str(folder), "PYTHONPATH": str(folder), "PATH": "/usr/bin:/bin"}

    def checked(*words):
        done = subprocess.run(words, capture_output=True, text=True, cwd=tmp_path, env=environment)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    assert 'is "builtins.float"' in checked("mypy", user)  # and whatever it imports of ours
    checked("stubtest", "--mypy-config-file", "stubtest.ini", "calcut._calcut")


def test_opencv_example(tmp_path):
    pytest.importorskip("cv2")
    script = Path(__file__).parents[2] / "examples" / "python" / "undistort.py"
    dump = make(tmp_path / "module")
    done = subprocess.run([sys.executable, script, dump, tmp_path / "out.png"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "out.png").stat().st_size > 1000
