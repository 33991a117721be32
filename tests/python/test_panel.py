import numpy as np
import pytest
from calcut._residual import residual

panel = pytest.importorskip("calcut._panel")

# ------------------------------------------------------------------------------------- colours --

GREY = [[0.2126, 0.7152, 0.0722]] * 3  # ITU-R BT.709, what grey print keeps
# Dichromats: G. M. Machado, M. M. Oliveira, L. A. F. Fernandes, "A physiologically-based model for
# simulation of color vision deficiency", IEEE TVCG 15(6), 2009, severity 1. Linear RGB as it is seen.
EYES = {
    "normal": np.eye(3),
    "protanopia": [[0.1523, 1.0526, -0.2049], [0.1145, 0.7863, 0.0992], [-0.0039, -0.0481, 1.052]],
    "deuteranopia": [[0.3673, 0.8606, -0.228], [0.2801, 0.6725, 0.0474], [-0.0118, 0.0429, 0.9689]],
    "tritanopia": [[1.2555, -0.0767, -0.1788], [-0.0784, 0.9308, 0.1476], [0.0047, 0.6914, 0.3039]],
    "grey print": GREY,
}


def lab(colours, eye):
    """CIELAB, D65, of sRGB colours as an eye sees them; a unit is about as plain to see anywhere."""
    rgb = np.asarray(colours)[..., :3]
    linear = np.where(rgb <= 0.04045, rgb / 12.92, ((rgb + 0.055) / 1.055) ** 2.4)
    linear = (linear @ np.transpose(EYES[eye])).clip(0, 1)
    to_xyz = np.array([[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]])
    t = (linear @ to_xyz.T) / to_xyz.sum(1)
    f = np.where(t > 216 / 24389, np.cbrt(t), (24389 / 27 * t + 16) / 116)
    return np.stack([116 * f[..., 1] - 16, 500 * (f[..., 0] - f[..., 1]), 200 * (f[..., 1] - f[..., 2])], -1)


def distance(one, two):
    return np.linalg.norm(one - two, axis=-1)


@pytest.mark.parametrize("eye", EYES)
def test_colours_are_told_apart_by_everyone(eye):
    masked, broken = lab([1, 1, 1], eye), lab([0, 0, 0], eye)
    places = np.linspace(0, 1, 256)
    plain = 15  # a good six times what is just noticed
    for colours in (panel.SEQUENTIAL, panel.DIVERGING):
        seen = lab(colours(places), eye)
        assert distance(seen, masked).min() >= plain and distance(seen, broken).min() >= plain
        assert tuple(colours(np.ma.masked_array(0.5, True))) == (1, 1, 1, 1)
    rising = lab(panel.SEQUENTIAL(places), eye)[:, 0]
    assert (rising[16:] > rising[:-16]).all()
    signs = lab(panel.DIVERGING(places), eye)
    assert (signs[16:128, 0] > signs[:112, 0]).all()  # size: lighter towards the middle
    if eye != "grey print":
        assert distance(signs[:96], signs[:159:-1]).min() >= 20
    if eye == "normal":
        for seen in (lab(panel.SEQUENTIAL(places), eye), signs):
            steps = distance(seen[16::16], seen[:-16:16])
            assert steps.max() < 2.5 * steps.min()


# ------------------------------------------------------------------------------------- numbers --


def test_statistics_leave_out_what_is_masked_or_not_finite():
    values = np.array([2, 4, np.nan, 4, 4, np.inf, 5, 5, 7, 9, 1e30], np.float32)
    masked = np.arange(11) == 10
    assert panel.statistics(values, masked).text == "min 2  mean 5  std 2.138  max 9"
    assert panel.statistics(values[:1], masked[:1]).text == "min 2  mean 2  std 0  max 2"
    texts = [panel.statistics(values[2:3], masked[2:3]).text, panel.statistics(values, masked | True).text]
    assert texts == ["no value: none is finite", "no value: every pixel is masked"]


@pytest.mark.parametrize("count", [100, 999, 10_000, 38_528])
def test_few_wild_values_do_not_move_the_colours(count):
    values = np.random.default_rng(1).permutation(np.arange(count) / count)
    wild = (count - 1) // 1001
    values[: 2 * wild] = np.resize([1e6, -1e6], 2 * wild)
    found = panel.statistics(values, np.zeros(count, bool))
    assert 0 <= found.low <= 0.003 and 0.987 <= found.high <= 1


def test_ticks_are_round_apart_and_say_what_they_leave_out():
    for low in (-1e9, -3.0, 0.0, 1e-7, 0.1234, 5e5, 1e30):
        for width in (1e-6, 0.003, 1.0, 17.0, 4e4, 9e8, 1e30):
            limits = panel.around(low, low + width)
            places, labels, left_out = panel.ticks(*limits, 5)
            assert 2 <= len(set(labels)) == len(places) <= 7 and max(map(len, labels)) <= 7, (limits, labels)
            room = 1e-5 * (limits[1] - limits[0])
            assert limits[0] - room <= min(places) and max(places) <= limits[1] + room
    assert panel.ticks(0, 2e-5, 5)[1:] == (["0.0", "0.5", "1.0", "1.5", "2.0"], " ×10⁻⁵")
    assert panel.ticks(1000, 1000.01, 2)[1:] == (["0.000", "0.005", "0.010"], " - 1000")
    assert panel.ticks(-0.5, 3.5, 9, True)[1] == ["0", "1", "2", "3"]
    assert panel.ticks(-0.5, 0.5, 2, True)[1] == ["0"]


@pytest.mark.parametrize("shape", [(0, 5), (1, 1), (2, 3), (12, 16), (1, 2000), (90, 3), (172, 224)])
def test_residual_keeps_what_is_not_smooth(shape):
    y, x = np.mgrid[: shape[0], : shape[1]].astype(float) / max(shape)
    smooth = (3 + x - 2 * x * y + 0.5 * y * y) if min(shape) > 4 else np.full(shape, 3.0)
    mask = np.ones(shape, np.uint8)
    mask[: shape[0] // 7, : shape[1] // 9] = 0
    table = smooth.astype(np.float32)
    table[mask == 0] = 1e30
    rest = residual(table, mask)
    assert rest.dtype == np.float32 and (np.isnan(rest) == (mask == 0)).all()
    assert np.nanmax(np.abs(rest), initial=0) < 1e-5
    assert np.isnan(residual(table, mask * 0)).all()
    assert not residual(np.full(shape, -1 / 3, np.float32), mask)[mask != 0].any()
    if min(shape) > 100:
        table[80] += 0.01
        table[90, 100] = 1e6
        table[91, 100] = np.inf
        rest = residual(table, mask)
        assert np.isnan(rest[91, 100]) and rest[90, 100] == pytest.approx(1e6, abs=10)
        assert np.nanmean(rest[80]) == pytest.approx(0.01, rel=0.05)
        assert np.nanmax(np.abs(np.delete(rest, [80, 90], 0))) < 5e-4
