import os
import pty
import struct
import subprocess

import calcut
import numpy as np
import pytest
from conftest import COMMAND, calcut_command, make

pytest.importorskip("matplotlib")
from matplotlib.backends.backend_agg import FigureCanvasAgg  # noqa: E402

plot = pytest.importorskip("calcut.plot")
from calcut import _panel as panel  # noqa: E402

# ------------------------------------------------------------------------------------- modules --


def word(value):
    """A float as a packed calibration stores it."""
    mantissa, exponent = np.frexp(abs(float(value)))
    coded = 0 if value == 0 else int(mantissa * 2**24 - 2**23) + (int(exponent) + 127 << 23)
    return struct.pack(">i", -coded if value < 0 else coded)


def patched(path, changes):
    """Plain floats of blocks replaced: {(block, element): value}; NaN stands for minus infinity."""
    data = bytearray(path.read_bytes())
    blocks = {each["id"]: each for each in calcut.inspect(bytes(data))["calibration"]["blocks"]}
    for (block, element), value in changes.items():
        start = blocks[block]["payloadOffset"] + 4 * element
        data[start : start + 4] = b"\x80\0\0\0" if np.isnan(value) else word(value)
    path.write_bytes(data)
    return path


LENS, PIXEL_VALUES, STRAYLIGHT, FREQUENCY = 1, 3, 9, 16
SIGNS = np.resize([1.0, -1.0], 24 * 16)
ODD = {  # a made calibration of 24 x 16 pixels, and floats of it that are replaced
    "empty psf, wide": {(STRAYLIGHT, 30): 2**30, (STRAYLIGHT, 31): 0},
    "empty psf, tall": {(STRAYLIGHT, 30): 0, (STRAYLIGHT, 31): 100_000},
    "empty psf, small": {(STRAYLIGHT, 30): 60, (STRAYLIGHT, 31): 0},
    "long psf": {(STRAYLIGHT, 30): 5000, (STRAYLIGHT, 31): 2},
    "constant": {(PIXEL_VALUES, i): -1 / 3 for i in range(24 * 16)},
    "nowhere finite": {(PIXEL_VALUES, i): np.nan for i in range(24 * 16)},
    "huge": {(PIXEL_VALUES, i): 3e38 * sign for i, sign in enumerate(SIGNS)},
    "nearly constant": {(PIXEL_VALUES, i): -1000 - 1e-4 * sign for i, sign in enumerate(SIGNS)},
    "long numbers": {(FREQUENCY + 1, i): -1.2345e-9 * (1 + 0.1 * sign) for i, sign in enumerate(SIGNS)},
    "no lens": {(LENS, i): 0 for i in range(9)},
    "principal point outside": {(LENS, 2): -1e9},
    "small tables": {(FREQUENCY + 2, 0): np.nan, (FREQUENCY + 2, 1): 0, (FREQUENCY + 5, 2): np.nan},
}
MADE = {
    "usual": [],
    "five frequencies": ["--frequencies", "5", "--size", "64x48"],
    "tiny": ["--size", "16x12", "--table-bits", "3"],
    "no straylight": ["--no-straylight", "--frequencies", "1", "--layout", "korveline", "--size", "20x90"],
    "strip": ["--layout", "korveline", "--size", "3x90"],
    "four": ["--size", "4x1"],
}


@pytest.fixture
def odd(tmp_path):
    return make(tmp_path / "odd.bin", "--layout", "packed", "--size", "24x16", "--table-bits", "0", "--frequencies", "1")


@pytest.fixture
def plain(tmp_path):
    """A dump whose sheet is soon drawn."""
    return make(tmp_path / "plain.bin", "--size", "16x12", "--frequencies", "1", "--no-straylight")


def texts(figure):
    """All that is written, after the boxes of it were looked at."""
    from matplotlib.text import Text

    with panel.uncollected():
        figure.draw_without_rendering()
    found = [each for each in figure.findobj(Text) if each.get_visible() and each.get_text().strip()]
    boxes = np.array([each.get_window_extent().extents for each in found])
    assert (boxes[:, :2] >= 0).all() and (boxes[:, 2:] <= figure.bbox.max).all()
    # Two overlap where neither ends before the other begins, a pixel granted.
    apart = (boxes[:, None, :2] > boxes[None, :, 2:] - 1).any(2)
    apart |= apart.T | np.eye(len(found), dtype=bool)
    assert not [(found[i].get_text(), found[k].get_text()) for i, k in np.argwhere(~apart)]
    words = [each.get_text() for each in found]
    assert not [word for word in words if word.endswith("…")]
    return words


@pytest.mark.parametrize("case", MADE)
def test_sheets_are_readable(tmp_path, case):
    dump = make(tmp_path / "dump", *MADE[case])
    module = calcut.read(dump)
    words = texts(plot.sheet(dump))
    assert "dump" in words and f"{module.columns} x {module.rows} pixels" in words
    assert any(module.text2 in word for word in words)
    assert f"fx  {np.float32(module.lens.fx)!s} pixels" in words
    for frequency in module.frequencies:
        assert f"Frequency {frequency.index} (id {frequency.id}), residual" in words
        for value in [*frequency.values_a, *frequency.values_b]:
            assert f"{value:.4g}" in words
    assert ("Straylight profile" in words) == ("no straylight model" not in words) == (module.psf is not None)
    masked = np.count_nonzero(module.mask == 0)
    assert words.count(f"□ masked ({masked})") == (1 + len(module.frequencies) if masked else 0)
    assert ("stored in 3 bits" in " ".join(words)) == (case == "tiny")


@pytest.mark.parametrize("case", ODD)
def test_odd_modules_are_drawn(odd, case):
    words = texts(plot.sheet(patched(odd, ODD[case]), shared_scale=True))
    assert ("empty" in words) == case.startswith("empty psf")
    assert words.count("no value: none is finite") == {"nowhere finite": 2, "no lens": 1}.get(case, 0)
    assert any(word.startswith("no ray is finite") for word in words) == (case == "no lens")
    assert any("not on the image" in word for word in words) == (case == "principal point outside")


def test_faults_are_told_in_red(plain, tmp_path):
    data = bytearray(plain.read_bytes())
    data[-30] ^= 1
    damaged = [bytes(data), *(plain.read_bytes()[:size] for size in (len(data) - 40, len(data) // 2, 150, 7))]
    axes = []
    for each in damaged:
        module = calcut.read(each, strict=False)
        figure = plot.sheet(module, "damaged")
        assert "damaged" in texts(figure)
        red = {text.get_text() for text in figure.texts if text.get_color() == panel.FAULT}
        assert f"{module.faults[0].what} at byte {module.faults[0].offset}" in red
        axes.append(len(figure.axes))
    with pytest.raises(ValueError):
        plot.comparison(module, plain)
    assert figure.bbox.height == panel.HEIGHT and axes[-1] == 0 < axes[0]
    assert "Verdict: different" in texts(plot.comparison(plain, calcut.read(damaged[0], strict=False)))
    (tmp_path / "bad").write_bytes(damaged[0])
    for words, status in (([], 1), (["--damaged"], 0)):
        done = calcut_command("plot", tmp_path / "bad", "-o", tmp_path / "bad.png", *words)
        assert done.returncode == status and "CRC-32 mismatch" in done.stderr
        assert (tmp_path / "bad.png").exists() == (status == 0)


def test_one_masked_or_broken_pixel_shows_among_millions(tmp_path):
    size = 1999, 1501
    dump = make(tmp_path / "large", "--layout", "packed", "--size", "1999x1501", "--table-bits", "0", "--frequencies", 1)
    broken = 701, 903
    figure = plot.sheet(patched(dump, {(FREQUENCY + 1, 701 * 1999 + 903): np.nan}))
    mask = calcut.read(dump).mask
    beside = [np.roll(mask == 0, way, axis) for way in (-1, 1) for axis in (0, 1)]
    alone = np.argwhere((mask == 0) & ~np.any(beside, 0))
    masked = alone[len(alone) // 2]
    assert any("■ not finite (1)" in word for word in texts(figure))
    canvas = FigureCanvasAgg(figure)
    canvas.draw()
    page = np.asarray(canvas.buffer_rgba())
    maps = [axes for axes in figure.axes if axes.images and tuple(axes.get_xlim()) == (-0.5, size[0] - 0.5)]
    black, white = [0, 0, 0, 255], [255, 255, 255, 255]

    def shows(axes, place, colour):
        x, y = axes.transData.transform(place[::-1]).round().astype(int)
        return (page[-y - 2 : -y + 2, x - 2 : x + 2] == colour).all(2).any()

    assert len(maps) == 6
    assert [shows(each, masked, black) for each in maps[:1]] == [True]
    assert [shows(each, masked, white) for each in maps[2:]] == [True] * 4
    assert [shows(each, broken, black) for each in maps[2:]] == [False, True, False, False]


def test_stripes_hidden_by_vignetting_show_in_the_residual(odd):
    module = calcut.read(odd)
    table = module.frequencies[0].pixel_table
    dim = {(FREQUENCY + 1, 24 * row + 7): 0.97 * table[row, 7] for row in range(16)}
    words = texts(plot.sheet(patched(odd, dim)))
    place = words.index("column 7:")
    assert float(words[place + 1]) < -0.02 * table.mean()


# --------------------------------------------------------------------------------- comparisons --


def test_comparisons_are_readable(tmp_path, odd):
    one, other = make(tmp_path / "one", "--seed", 1), make(tmp_path / "other", "--seed", 2)
    words = texts(plot.comparison(one, other))
    serials = [calcut.read(each).text2 for each in (one, other)]
    assert {"A  one", "B  other", "Verdict: different", "angle between the rays (degrees)"} <= set(words)
    assert all(any(serial in word for word in words) for serial in serials)
    lens = calcut.read(other).lens
    assert {str(np.float32(value)) for value in lens} <= set(words)
    assert len(set(words) & {"Mask", "Pixel values", "Rays", "PSF"}) == 4
    words = texts(plot.comparison(one, one))
    assert "Verdict: equal" in words and "lens: equal" in words and "row (pixels)" not in words
    words = texts(plot.comparison(one, odd))
    assert sum("different sizes" in word for word in words) == 1 and "row (pixels)" not in words
    odd = make(odd, *"--force --layout packed --size 24x16 --table-bits 0".split())
    kept = calcut.read(odd)
    changed = calcut.read(patched(odd, {(FREQUENCY + 1, 55): 7, **ODD["nowhere finite"]}))
    words = texts(plot.comparison(kept, changed, ("kept", "changed")))
    assert {"Pixel values", "Frequency 0: pixel table", "lens: equal"} <= set(words)
    assert any(word.startswith("equal: mask, rays, PSF, the pixel tables of frequencies 1 2") for word in words)
    assert any(word.endswith("at column 7, row 2   ○ different") for word in words)
    assert "Verdict: different, beyond 1e+09" in texts(plot.comparison(one, other, tolerance=1e9))


# -------------------------------------------------------------------------------- the command --


def test_pictures_are_the_same_each_time(plain, tmp_path):
    from calcut._pictures import encoded

    figure = plot.sheet(plain)
    for target in (tmp_path / f"x.{kind}" for kind in ("png", "svg", "pdf")):
        assert calcut_command("plot", plain, "-o", target).returncode == 0
        picture = target.read_bytes()
        assert picture == encoded(figure, target.suffix[1:]) and len(picture) > 10_000
        for words in (["plot", plain], ["compare", plain, plain, "-q"]):  # never replaced unasked
            done = calcut_command(*words, "-o", target)
            assert done.returncode in (1, 2) and "exists; --force replaces it" in done.stderr
            assert target.read_bytes() == picture
            assert target.suffix != ".png" or calcut_command(*words, "--force", "-o", target).returncode == 0
            picture = target.read_bytes()


def test_several_dumps(tmp_path):
    pypdf = pytest.importorskip("pypdf")
    sizes = "--size", "16x12", "--frequencies", "1", "--no-straylight"
    dumps = [make(tmp_path / f"{seed}.bin", *sizes, "--seed", seed) for seed in range(2)]
    bad = tmp_path / "bad\33.bin"
    bad.write_bytes(b"noise")
    done = calcut_command("plot", dumps[0], bad, dumps[1], "-o", tmp_path / "pages.pdf")
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "bad\\x1b.bin: unknown magic" in done.stderr
    pages = pypdf.PdfReader(tmp_path / "pages.pdf").pages
    assert [f"{seed}.bin" in page.extract_text() for seed, page in enumerate(pages)] == [True] * 2
    # A file for each takes no more packages. On a terminal it tells how far it is.
    (tmp_path / "pypdf.py").write_text("raise ModuleNotFoundError('gone', name='pypdf')")
    main, side = pty.openpty()
    done = subprocess.run([COMMAND, "plot", *dumps, "-o", tmp_path / "{stem}.pdf"], stderr=side,
                          env={**os.environ, "PYTHONPATH": tmp_path})
    os.close(side)
    assert done.returncode == 0 and b"2 of 2 drawn" in os.read(main, 4096)
    assert sorted(path.name for path in tmp_path.glob("?.pdf")) == ["0.pdf", "1.pdf"]
    (tmp_path / "other").mkdir()
    namesake = make(tmp_path / "other" / "0.bin", *sizes)
    before = sorted(tmp_path.iterdir())
    for words in ([*dumps, "-o", "x.png"], [dumps[0], namesake, "-o", "{stem}.png"], [dumps[0], "-o", tmp_path / "no" / "x.png"],
                  [dumps[0], "-o", dumps[0]], [tmp_path, "-o", "x.png"], [bad, "-o", "x.png"], [dumps[0], "-o", "x.gif"]):
        done = subprocess.run([COMMAND, "plot", *words], cwd=tmp_path, capture_output=True, text=True)
        assert done.returncode in (1, 2) and done.stderr.count("\n") == 1, done
    assert sorted(tmp_path.iterdir()) == before
    # What cannot be read is told as by every other command; pictures beside the dumps are not drawn.
    os.mkfifo(tmp_path / "pipe")
    (tmp_path / "none").mkdir()
    (tmp_path / "empty").touch()
    done = calcut_command("plot", tmp_path / "pipe", tmp_path / "none", tmp_path / "empty", dumps[0], "-o", tmp_path / "{stem}{stem}.svg")
    assert done.returncode == 1 and (tmp_path / "00.svg").exists()
    why = [": holds no files", ": is a pipe that nobody writes to", ": is empty"]
    assert [line.endswith(reason) for line, reason in zip(done.stderr.splitlines(), why)] == [True] * 3, done.stderr
    for _ in range(2):
        assert calcut_command("plot", tmp_path / "other", "--force", "-o", tmp_path / "other" / "{stem}.png").returncode == 0


def test_a_process_that_ends_loses_no_other_picture(tmp_path, monkeypatch, capsys):
    from calcut import _pictures

    monkeypatch.setattr(os, "sched_getaffinity", lambda _: range(2))
    monkeypatch.setattr(_pictures, "_draw", lambda job, _: os._exit(9) if job[1] == "b" else (job[1].encode(), ""))
    words = [word for name in "abcde" for word in (str(tmp_path / f"{name}.png"), name)]
    assert _pictures.main(words) == 1 and "b: the process that drew it was ended" in capsys.readouterr().err
    assert [path.read_text() for path in sorted(tmp_path.iterdir())] == ["a", "c", "d", "e"]


def test_standard_streams_links_and_devices(plain, tmp_path):

    link, target = tmp_path / "link.png", tmp_path / "target.png"
    link.symlink_to(target)
    with open(plain, "rb") as dump, open(tmp_path / "out.png", "wb") as out:
        assert subprocess.run([COMMAND, "plot", "-", "-o", "-"], stdin=dump, stdout=out).returncode == 0
    assert subprocess.run([COMMAND, "plot", plain, "-o", link]).returncode == 0
    assert link.is_symlink() and target.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n" == (tmp_path / "out.png").read_bytes()[:8]
    mask = os.umask(0)
    os.umask(mask)
    assert target.stat().st_mode & 0o777 == 0o666 & ~mask
    with open(plain, "rb") as dump:
        words = [COMMAND, "compare", "-", plain, "-q", "-o", tmp_path / "same.png"]
        assert subprocess.run(words, stdin=dump).returncode == 0
    (tmp_path / "full.png").symlink_to("/dev/full")
    full = calcut_command("plot", plain, "-o", tmp_path / "full.png")
    assert full.returncode == 1 and "No space left" in full.stderr
    assert not [path for path in tmp_path.iterdir() if ".part" in path.name]


@pytest.mark.parametrize("missing", ["numpy", "matplotlib", "python3"])
def test_what_is_missing_is_named(small, tmp_path, missing):
    (tmp_path / f"{missing}.py").write_text(f"raise ModuleNotFoundError('gone', name='{missing}')")
    more = {"CALCUT_PYTHON": str(tmp_path / "none")} if missing == "python3" else {"PYTHONPATH": str(tmp_path)}
    for words, status in ((["plot", small], 1), (["compare", "-q", small, small], 2)):
        done = subprocess.run([COMMAND, *words, "-o", tmp_path / "x.png"], env={**os.environ, **more},
                              capture_output=True, text=True)
        assert done.returncode == status and "Traceback" not in done.stderr, done.stderr
        assert f"apt-get install {'python3' if missing == 'python3' else 'python3-' + missing}" in done.stderr
        assert not (tmp_path / "x.png").exists()
