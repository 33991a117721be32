"""What is left of a pixel table when its smooth part is taken away: stripes, dead and stuck regions."""
from functools import lru_cache

import numpy as np

ORDER = 4  # of the polynomial along each side: vignetting falls about as cos^4
FAR = 8  # standard deviations beyond which a pixel has no say in the fit
ROUNDS = 3  # fits at most


@lru_cache(maxsize=32)
def _basis(count):
    """Orthonormal polynomials over count places, (count, order + 1); a short side gets a lower order."""
    order = min(ORDER, max(count - 1, 0) // 2)
    places = np.linspace(-1, 1, count) if count > 1 else np.zeros(count)
    basis = np.linalg.qr(np.polynomial.legendre.legvander(places, order))[0]
    basis.flags.writeable = False
    return basis


def _fit(values, valid, across, down):
    """Least squares over the valid pixels; the others must be 0 in values."""
    # The basis is orthonormal over all pixels, so only the smaller part has to be summed.
    few_valid = 2 * np.count_nonzero(valid) < valid.size
    row, column = np.nonzero(valid if few_valid else ~valid)
    right = (down.T @ values @ across).ravel()
    if few_valid or len(row):
        part = (down[row][:, :, None] * across[column][:, None, :]).reshape(len(row), len(right))
        sums = part.T @ part if few_valid else np.eye(len(right)) - part.T @ part
        right = np.linalg.lstsq(sums, right, rcond=1e-10)[0]
    return down @ right.reshape(down.shape[1], across.shape[1]) @ across.T


def residual(table, mask):
    """The table less a polynomial of order 4 in x and y, as float32.

    The polynomial is fitted over the valid pixels: finite, and not 0 in the mask (None: no pixel is
    masked). Others are NaN in the result. Few wild pixels do not bend the fit.
    """
    table = np.asarray(table)
    valid = np.isfinite(table)
    if mask is not None:
        valid &= np.asarray(mask) != 0
    if not valid.any():
        return np.full(table.shape, np.nan, np.float32)
    values = np.where(valid, table, 0).astype(np.float64)
    down, across = _basis(table.shape[0]), _basis(table.shape[1])
    rounding = 1e-12 * max(values.max(), -values.min())
    fitted, count = valid, np.count_nonzero(valid)
    seen = values  # 0 where a pixel has no say
    for _ in range(ROUNDS):
        rest = values - _fit(seen, fitted, across, down)
        inside = rest if count == rest.size else np.where(fitted, rest, 0)
        spread = np.sqrt(np.vdot(inside, inside) / count)
        if spread <= rounding:
            rest -= inside
            break
        if max(inside.max(), -inside.min()) <= FAR * spread:
            break
        fitted = fitted & (np.abs(rest) <= FAR * spread)
        count = np.count_nonzero(fitted)
        seen = np.where(fitted, values, 0)
    with np.errstate(over="ignore"):
        return np.where(valid, rest, np.nan).astype(np.float32)
