"""Damages of a module that its checksum does not show: dumps of plain floats, changed and signed again."""

import struct
import zlib

import calcut
import numpy as np

HEADER = 67  # bytes of a v7 dump before its payload
FIRST_FREQUENCY, BLOCKS = 16, 7
LENS, PIXEL_VALUES = 1, 3


def block_of(table):
    return PIXEL_VALUES if table == "pixel_values" else FIRST_FREQUENCY + BLOCKS * int(table[-1]) + 1


def encoded(values):
    """Words of normal numbers and zeros: the exponent is one above the IEEE one, and a sign negates the word."""
    bits = np.ascontiguousarray(values, np.float32).view(np.uint32).astype(np.int64)
    magnitude = np.where(bits & 0x7F800000, (bits & 0x7FFFFFFF) + (1 << 23), 0)
    return (np.where(bits >> 31, -magnitude, magnitude) & 0xFFFFFFFF).astype(">u4").tobytes()


def rewrite(path, block, values):
    data = bytearray(path.read_bytes())
    blocks = calcut.inspect(bytes(data))["calibration"]["blocks"]
    start = next(each["payloadOffset"] for each in blocks if each["id"] == block)
    new = encoded(values)
    data[start : start + len(new)] = new
    struct.pack_into("<I", data, 8, zlib.crc32(data[HEADER:]))
    path.write_bytes(data)


def change(name):
    """A function of a table in place, by the name of the damage."""

    def zero_block(t):
        t[10:22, 8:20] = 0

    def stuck_block(t):
        t[-16:-8, 6:14] = t[-16, 6]

    def constant(t):
        t[:] = t.mean()

    def hot_pixel(t):
        t[t.shape[0] // 2, t.shape[1] // 3] *= 3

    def stripe(t):
        t[:, ::2] *= 1.005

    def weak_column(t):
        t[:, t.shape[1] // 4] *= 0.97

    return locals()[name]


#: What a damage shows in.
SHOWN = {
    "zero_block": {"min", "single", "region", "residual"},
    "stuck_block": {"region"},
    "constant": {"std", "region", "residual"},
    "hot_pixel": {"single", "max"},
    "stripe": {"column_stripe"},
    "weak_column": {"column_max"},
}


def damage_table(path, table, name):
    module = calcut.read(path)
    place = {"pixel_values": module.pixel_values}
    place.update({f"frequency{frequency.index}": frequency.pixel_table for frequency in module.frequencies})
    values = place[table].copy()
    change(name)(values)
    rewrite(path, block_of(table), values)


def damage_lens(path, factor=1.25):
    lens = np.array(calcut.read(path).lens, np.float32)
    lens[:2] *= factor
    rewrite(path, LENS, lens)


def damage_twenty(paths):
    """20 of the modules, in seven ways; path to the columns of which one has to be named."""
    kinds = [(name, table) for name in SHOWN for table in ("pixel_values", "frequency0", "frequency2")]
    expected = {}
    step = len(paths) // 20
    for (name, table), path in zip(kinds, paths[::step]):
        damage_table(path, table, name)
        expected[str(path)] = {f"{table}_{measure}" for measure in SHOWN[name]}
    for path in paths[18 * step : 20 * step : step]:
        damage_lens(path)
        expected[str(path)] = {"fx", "fy"}
    return expected
