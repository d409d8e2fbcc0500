#!/usr/bin/env python3
"""Draws the residuals of an adjustment: residuals.py PROJECT.ctl [PICTURE.png]

The cells between the lines "# %%" can be run one by one, as in a notebook.
"""

# %% Adjust a project
import sys

import matplotlib.pyplot as plt
import numpy as np

import vorn

project = sys.argv[1] if len(sys.argv) > 1 else "close-range-calibration.ctl"
result = vorn.adjust(project, rigorous=True)
print(result)

# %% What each camera's residuals look like over its format
table = result.image_points
camera_of = dict(zip(result.images["id"], result.images["camera"]))
cameras = np.array([camera_of[image] for image in table["image"]])
figure, axes = plt.subplots(1, 3, figsize=(15, 4.5), layout="constrained")
millimetres = 1e3 * result.image_coordinates
micrometres = 1e6 * result.residuals
for camera in result.cameras:
    mine = cameras == camera.id
    axes[0].quiver(*millimetres[mine].T, *micrometres[mine].T, angles="xy", width=0.002,
                   label=camera.id)
axes[0].set(title="Residuals over the format", xlabel="x [mm]", ylabel="y [mm]", aspect="equal")

# %% Standardised residuals against the normal distribution
w = table.array("wx", "wy").ravel()
w = w[np.isfinite(w)]
grid = np.linspace(-4, 4, 200)
axes[1].hist(w, bins=60, density=True, range=(-4, 4), color="0.8")
axes[1].plot(grid, np.exp(-(grid**2) / 2) / np.sqrt(2 * np.pi), color="tab:red")
axes[1].set(title=f"{w.size} standardised residuals", xlabel="w")

# %% The points in plan, with error ellipses that can be seen
extent = np.ptp(result.point_coordinates[:, :2], axis=0).max()
median = np.median(result.points["axis_a"][result.points["axis_a"] > 0])
factor = float(f"{0.02 * extent / median:.0e}")
frame = result.points.to_pandas()
roles = {"control": "tab:red", "check": "tab:blue", "intersection": "0.5"}
for role, group in frame.groupby("role"):
    axes[2].scatter(group.x, group.y, s=10, color=roles.get(role, "k"), label=role)
t = np.linspace(0, 2 * np.pi, 37)
for row in frame.itertuples():
    covariance = np.array([[row.sd_x**2, row.cov_xy], [row.cov_xy, row.sd_y**2]])
    values, vectors = np.linalg.eigh(covariance)
    ellipse = factor * vectors @ (np.sqrt(np.maximum(values, 0))[:, None] * [np.cos(t), np.sin(t)])
    axes[2].plot(row.x + ellipse[0], row.y + ellipse[1], color="0.5", linewidth=0.5)
axes[2].set(title=f"Points, error ellipses {factor:g} times as large", xlabel="X", ylabel="Y",
            aspect="equal")
axes[2].legend(loc="upper left", bbox_to_anchor=(1, 1))

# %% Keep the picture
if len(sys.argv) > 2:
    figure.savefig(sys.argv[2], dpi=120)
else:
    plt.show()
