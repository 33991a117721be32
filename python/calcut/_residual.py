"""What is left of a pixel table when its smooth part is taken away: stripes, dead and stuck regions."""
from functools import lru_cache

import numpy as np

ORDER = 6  # of the polynomial along each side: vignetting takes as much
FAR = 8  # standard deviations beyond which a pixel has no say in the fit
ROUNDS = 3  # fits at most


@lru_cache(maxsize=32)
def _basis(count):
    """Orthonormal polynomials over count places, (order + 1, count); a short side gets a lower order."""
    order = min(ORDER, max(count - 1, 0) // 2)
    places = np.linspace(-1, 1, count) if count > 1 else np.zeros(count)
    basis = np.ascontiguousarray(np.linalg.qr(np.polynomial.legendre.legvander(places, order))[0].T)
    basis.flags.writeable = False
    return basis


@lru_cache(maxsize=8)
def _solver(packed, rows, columns):
    """From sums over the valid pixels to coefficients; None where the basis is orthonormal over them."""
    valid = np.unpackbits(np.frombuffer(packed, np.uint8), count=rows * columns).astype(bool)
    # Only the smaller part has to be summed.
    few_valid = 2 * np.count_nonzero(valid) < valid.size
    chosen = np.flatnonzero(valid if few_valid else ~valid)
    if not few_valid and not len(chosen):
        return None
    down, across = _basis(rows), _basis(columns)
    part = (down[:, None, chosen // columns] * across[None, :, chosen % columns]).reshape(-1, len(chosen))
    sums = part @ part.T
    return np.linalg.pinv(sums if few_valid else np.eye(len(sums)) - sums, rcond=1e-10, hermitian=True)


def _fit(values, valid):
    """Least squares over the valid pixels; the others must be 0 in values."""
    down, across = _basis(values.shape[0]), _basis(values.shape[1])
    # einsum, because Debian's own BLAS multiplies such narrow matrices several times slower.
    sums = np.einsum("ki,ij->kj", down, values) @ across.T
    solver = _solver(np.packbits(valid).tobytes(), *values.shape)
    if solver is not None:
        sums = (solver @ sums.ravel()).reshape(sums.shape)
    return np.einsum("ki,kj->ij", down, sums @ across)


def rest_and_valid(table, mask):
    """residual() as float64 with 0 where a pixel is not valid, and which ones are."""
    table = np.asarray(table)
    valid = np.isfinite(table)
    finite = valid.all()
    if mask is not None:
        valid &= np.asarray(mask) != 0
    count = np.count_nonzero(valid)
    if not count:
        return np.zeros(table.shape), valid
    values = np.multiply(table if finite else np.where(valid, table, 0), valid, dtype=np.float64)
    rounding = 1e-12 * max(values.max(), -values.min())
    fitted, seen = valid, values  # seen is 0 where a pixel has no say
    for _ in range(ROUNDS):
        rest = values - _fit(seen, fitted)
        inside = rest * fitted
        spread = np.sqrt(np.vdot(inside, inside) / count)
        if spread <= rounding:
            rest -= inside
            break
        if max(inside.max(), -inside.min()) <= FAR * spread:
            break
        fitted = fitted & (np.abs(rest) <= FAR * spread)
        count = np.count_nonzero(fitted)
        seen = values * fitted
    return rest * valid, valid


def residual(table, mask):
    """The table less a polynomial of order 6 in x and y, as float32.

    The polynomial is fitted over the valid pixels: finite, and not 0 in the mask (None: no pixel is
    masked). Others are NaN in the result. Few wild pixels do not bend the fit.
    """
    rest, valid = rest_and_valid(table, mask)
    with np.errstate(over="ignore"):
        return np.where(valid, rest, np.nan).astype(np.float32)
