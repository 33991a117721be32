"""Undistort a picture of a module with the module's own calibration.

    PYTHONPATH=build/release/python python3 examples/python/undistort.py module.eeprom out.png

Needs OpenCV (Debian: python3-opencv). The cells, marked by "%%", run one by one in editors that
know them.
"""

# %% The dump, as arrays
import sys

import calcut
import cv2
import numpy as np

dump, target = sys.argv[1:]
module = calcut.read(dump)
lens = module.lens
print(f"{module.text1}: {module.columns} x {module.rows} pixels, fx {lens.fx:.2f}, fy {lens.fy:.2f}")

# %% A picture as the module would see it: straight lines, bent by its lens
# Where the ray of each pixel meets the plane at distance 1.
plane = module.directions[..., :2] / module.directions[..., 2:]
lines = np.abs((plane * 8) % 1 - 0.5).min(axis=2) < 0.06
picture = np.where(lines, 255, 60).astype(np.uint8)
picture[module.mask == 0] = 0

# %% Straightened by OpenCV, from the same dump
straight = cv2.undistort(picture, lens.matrix, lens.distortion)

# %% OpenCV's rays and the module's own agree
v, u = np.mgrid[: module.rows, : module.columns]
pixels = np.stack([u, v], axis=-1).reshape(-1, 1, 2).astype(np.float64)
criteria = (cv2.TERM_CRITERIA_COUNT, 15, 0)
points = cv2.undistortPointsIter(pixels, lens.matrix, lens.distortion, None, None, criteria)
apart = np.abs(points.reshape(plane.shape) - plane).max() * lens.fx
print(f"rays of OpenCV and of the module are at most {apart:.5f} pixels apart")
assert apart < 0.01

# %% Side by side
cv2.imwrite(target, np.hstack([picture, straight]))
