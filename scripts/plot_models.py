#!/usr/bin/env python3
"""Draws the effects of the additional parameters to docs/images/ap-*.svg.

usage: plot_models.py [--vorn PATH]

One set with fixed values for every panel is added to a copy of examples/aerial-block, each on a
camera of its own that no image uses; `vorn grid` prints their effects. The grid is printed for
z = +c. Effects that depend on z are drawn with the opposite sign, as measured points feel them.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import tempfile

from svg_drawing import Drawing, number

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
GRID = 7
DIGITAL = ("28.0", "36.0 24.0")  # principal distance and format [mm]
AERIAL = ("153.0", "230.0 230.0")
WIDTH_P12, WIDTH_P44 = "110.0", "110.0"  # grid width b [mm]


class Panel:
    """Effect of a set of one model with a few parameters that differ from zero."""

    def __init__(self, title, model, count, values, camera=DIGITAL, mirrored=False):
        self.title = title
        self.model = model
        self.values = [values.get(k, 0.0) for k in range(1, count + 1)]
        self.camera = camera
        self.mirrored = mirrored
        self.vectors = []


def orthogonal(model, count, values):
    """One panel for each parameter of a grid model; `values` by the model's order of magnitude."""
    return [Panel(f"a{k}", model, count, {k: values(k)}, AERIAL) for k in range(1, count + 1)]


def degree_p44(k):
    """Total degree of the polynomial of parameter k of p44."""
    for last, degree in ((2, 1), (6, 2), (14, 3), (24, 4), (32, 5), (38, 6), (42, 7), (44, 8)):
        if k <= last:
            return degree
    raise ValueError(k)


def degree_p12(k):
    for last, degree in ((2, 1), (6, 2), (10, 3), (12, 4)):
        if k <= last:
            return degree
    raise ValueError(k)


FIGURES = {
    "ap-lens": (4, [
        Panel("inner-or, dc = 0.1 mm", "inner-or", 3, {3: 1e-4}, mirrored=True),
        Panel("radial-dist, K1 = -20 /m²", "radial-dist", 3, {1: -20.0}),
        Panel("radial-dist, K1 = -60, K2 = 2e5", "radial-dist", 3, {1: -60.0, 2: 2e5}),
        Panel("decentering, P1 = 0.05 /m", "decentering-dist", 2, {1: 0.05}),
        Panel("decentering, P2 = 0.05 /m", "decentering-dist", 2, {2: 0.05}),
        Panel("australis, b1 = 2e-3", "australis", 10, {9: 2e-3}),
        Panel("australis, b2 = 2e-3", "australis", 10, {10: 2e-3}),
        Panel("gap, a1 = 2e-3", "gap", 10, {5: 2e-3}),
    ]),
    "ap-plane": (4, [
        *(Panel(f"in-plane-dist, a{k}", "in-plane-dist", 12, {k: v}, AERIAL) for k, v in
          ((3, 1e-2), (4, 1e-2), (5, 1e-1), (7, 1.0), (9, 1e-2))),
        *(Panel(f"out-of-plane-dist, a{12 + k}", "out-of-plane-dist", 3, {k: v}, AERIAL, True)
          for k, v in ((1, 1e-2), (2, 1.0), (3, 1.0))),
    ]),
    "ap-p12": (6, orthogonal("p12", 12, lambda k: 1e-4 / 0.115**degree_p12(k))),
    "ap-p44": (8, orthogonal("p44", 44, lambda k: 1e-3 / 0.115**degree_p44(k))),
}


def write_project(project, panels):
    sets, cameras = [], []
    for i, panel in enumerate(panels):
        c, size = panel.camera
        cameras.append(f"camera-frame  cam{i}  panel\n{c}\n0.0 0.0\n{size}\n")
        width = {"p12": WIDTH_P12, "p44": WIDTH_P44}.get(panel.model, "")
        rows = "".join(f"{value:.6e} 1e-31\n" for value in panel.values)
        sets.append(f"{panel.model}  set{i}  cam{i}\n{width}\n{rows}")
    camera_file = project / "camera.txt"
    camera_file.write_text("".join(cameras) + camera_file.read_text())
    (project / "ap-set.txt").write_text("".join(sets) + "stop-dep\n")
    params = project / "params.txt"
    params.write_text(re.sub(r"(?m)^5 5$", f"{GRID} {GRID}", params.read_text()))
    control_file = project / "aerial-block.ctl"
    control_file.write_text("ap-set ap-set.txt\n" + control_file.read_text())
    return control_file


def read_effects(text, panels):
    """Vectors [um] of the last grid of each set: all its parameters but the principal point's."""
    blocks = text.split("AP set ID            :  ")[1:]
    for panel, block in zip(panels, blocks, strict=True):
        pairs = re.findall(r"\( *([-+][0-9.]+), *([-+][0-9.]+)\)", block)
        sign = -1.0 if panel.mirrored else 1.0
        panel.vectors = [(sign * float(x), sign * float(y)) for x, y in pairs[-GRID * GRID:]]


def grid_lines(points, straight=False):
    """Path along the rows and the columns of the grid; straight lines need their ends only."""
    rows = [points[k * GRID:(k + 1) * GRID] for k in range(GRID)]
    step = GRID - 1 if straight else 1
    return "".join("M" + "L".join(f"{number(x)} {number(y)}" for x, y in line[::step])
                   for line in rows + list(zip(*rows)))


def draw(columns, panels):
    cell = 640 // columns
    plot = cell - 24
    rows = -(-len(panels) // columns)
    heights = [max(plot * float(p.camera[1].split()[1]) / float(p.camera[1].split()[0])
                   for p in panels) for _ in range(rows)]
    drawing = Drawing(columns * cell, round(sum(h + 40 for h in heights)))
    for i, panel in enumerate(panels):
        height = heights[i // columns]
        left = (i % columns) * cell + 12
        top = sum(h + 40 for h in heights[:i // columns]) + 20
        largest = max((dx * dx + dy * dy)**0.5 for dx, dy in panel.vectors)
        scale = 0.09 * plot / largest
        step_x, step_y = plot / (GRID + 1), height / (GRID + 1)
        points = [(left + step_x * (1 + k % GRID), top + step_y * (1 + k // GRID))
                  for k in range(GRID * GRID)]
        moved = [(x + scale * dx, y - scale * dy)
                 for (x, y), (dx, dy) in zip(points, panel.vectors)]
        drawing.path(grid_lines(points, straight=True), 'stroke="#ccc" stroke-width=".6"')
        drawing.path(grid_lines(moved), 'stroke="#1f5fbf"')
        size = 'font-size="9" ' if columns > 4 else 'font-size="10" '
        drawing.text(left, top - 5, panel.title, size + 'fill="#222"')
        if columns <= 4:
            drawing.text(left, top + height + 11, f"largest {largest:.0f} µm", size + 'fill="#777"')
    return drawing


def main():
    parser = argparse.ArgumentParser(description="Draws the effects of the additional parameters.")
    parser.add_argument("--vorn", default=REPOSITORY / "build/release/bin/vorn",
                        help="the command (default: build/release/bin/vorn)")
    vorn = pathlib.Path(parser.parse_args().vorn).resolve()
    for name, (columns, panels) in FIGURES.items():
        with tempfile.TemporaryDirectory() as scratch:
            project = pathlib.Path(scratch) / "project"
            shutil.copytree(REPOSITORY / "examples" / "aerial-block", project)
            control_file = write_project(project, panels)
            text = subprocess.run([vorn, "grid", control_file], check=True, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        read_effects(text, panels)
        draw(columns, panels).save(REPOSITORY / "docs" / "images" / f"{name}.svg")


if __name__ == "__main__":
    main()
