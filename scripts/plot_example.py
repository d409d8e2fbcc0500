#!/usr/bin/env python3
"""Adjusts a copy of examples/aerial-block and draws the result to docs/images/aerial-block.svg.

usage: plot_example.py [--vorn PATH]

The plan shows the images, the points, the differences at the check points and the residuals of the
observed control points, all read from the result files of the run.
"""

import argparse
import math
import pathlib
import shutil
import subprocess
import tempfile

from svg_drawing import Drawing, number

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
NAME = "aerial-block"
GROUND = 340.0  # mean height of the terrain [m]
PIXELS_PER_METRE = 0.105
PIXELS_PER_DIFFERENCE = 500.0  # vectors: 10 cm are 50 pixels
CHECK, CONTROL, CAMERA, TIE = "#1f5fbf", "#c0392b", "#8a94a0", "#b3b9c0"


def run(vorn, scratch):
    project = pathlib.Path(scratch) / NAME
    shutil.copytree(REPOSITORY / "examples" / NAME, project)
    control_file = project / f"{NAME}.ctl"
    subprocess.run([vorn, "adjust", control_file, "--cameras"], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return {e: control_file.with_suffix("." + e).read_text() for e in
            ("out", "ext", "ocs", "cam", "gcpres", "chp")}


def rotation(omega, phi, kappa):
    """Rx(omega) Ry(phi) Rz(kappa), image to object space."""
    so, co, sp, cp, sk, ck = (f(a) for a in (omega, phi, kappa) for f in (math.sin, math.cos))
    return [[cp * ck, -cp * sk, sp],
            [co * sk + so * sp * ck, co * ck - so * sp * sk, -so * cp],
            [so * sk - co * sp * ck, so * ck + co * sp * sk, co * cp]]


def footprints(ext, cam):
    """Projection centres and the corners of the images on the ground."""
    words = cam.split()
    c, half = float(words[3]), float(words[6]) / 2
    words = ext.split()[1:]
    images = []
    while words[0] != "stop-dep":
        centre = [float(w) for w in words[4:7]]
        r = rotation(*(float(w) * math.pi / 200 for w in words[10:13]))
        corners = []
        for x, y in ((half, half), (-half, half), (-half, -half), (half, -half)):
            ray = [row[0] * x + row[1] * y - row[2] * c for row in r]
            scale = (GROUND - centre[2]) / ray[2]
            corners.append((centre[0] + scale * ray[0], centre[1] + scale * ray[1]))
        images.append((centre, corners))
        words = words[16:]
    return images


def table(text):
    """Rows ID X Y Z dX dY dZ of a comparison; None where nothing was compared."""
    rows = []
    for line in text.splitlines()[5:]:
        words = line.split()
        if len(words) != 7:  # the summary begins
            break
        rows.append((words[0], [float(w) for w in words[1:4]],
                     [None if w == "---" else float(w) for w in words[4:7]]))
    return rows


def draw(results):
    images = footprints(results["ext"], results["cam"])
    xs = [x for _, corners in images for x, _ in corners]
    ys = [y for _, corners in images for _, y in corners]
    left, top, margin = min(xs), max(ys), 14
    width = round((max(xs) - left) * PIXELS_PER_METRE) + 2 * margin
    height = round((top - min(ys)) * PIXELS_PER_METRE) + 2 * margin
    drawing = Drawing(width, height + 64)

    def plan(x, y):
        return margin + (x - left) * PIXELS_PER_METRE, margin + (top - y) * PIXELS_PER_METRE

    for _, corners in images:
        drawing.polygon([plan(*corner) for corner in corners],
                        f'fill="{CAMERA}" fill-opacity=".05" stroke="{CAMERA}" stroke-width=".4"')
    centres = [plan(*centre[:2]) for centre, _ in images]
    crosses = [((x - 3, y), (6, 0)) for x, y in centres] + [((x, y - 3), (0, 6)) for x, y in centres]
    drawing.lines(crosses, f'stroke="{CAMERA}"')

    check, control = table(results["chp"]), table(results["gcpres"])
    signalised = {name for name, _, _ in check + control}
    points = [line.split() for line in results["ocs"].splitlines()[:-1]]
    drawing.dots([plan(float(p[1]), float(p[2])) for p in points if p[0] not in signalised], 2.2, TIE)

    for rows, colour in ((control, CONTROL), (check, CHECK)):
        plane, heights = [], []
        for name, xyz, differences in rows:
            x, y = plan(*xyz[:2])
            dx, dy, dz = (PIXELS_PER_DIFFERENCE * (d or 0.0) for d in differences)
            plane.append(((x, y), (dx, -dy)))
            heights.append(((x, y), (0, -dz)))
            if rows is control:
                drawing.polygon([(x, y - 4), (x - 3.6, y + 2.6), (x + 3.6, y + 2.6)],
                                f'stroke="{colour}" stroke-width="1.2" fill="#fff"')
            else:
                drawing.path(f"M{number(x - 3)} {number(y)}a3 3 0 1 0 6 0a3 3 0 1 0-6 0",
                             f'stroke="{colour}" stroke-width="1.2" fill="#fff"')
            drawing.text(x + 6, y - 5, name, f'fill="{colour}" font-size="9"')
        drawing.lines(heights, f'stroke="{colour}" stroke-width="3" stroke-opacity=".3"')
        drawing.lines(plane, f'stroke="{colour}" stroke-width="1.8"')

    sigma0 = [line for line in results["out"].splitlines() if line.startswith("Sigma 0 a post")][-1]
    rms = results["chp"].splitlines()[-2].split()[-3:]
    y = height + 8
    drawing.text(margin, y, f"{len(images)} images, {len(points)} points.  "
                 f"Sigma 0 {sigma0.split()[-2]} µm.  RMS at the check points: "
                 + ", ".join(f"{100 * float(r):.1f}" for r in rms) + " cm in X, Y, Z.",
                 'fill="#222" font-size="13"')
    drawing.text(margin, y + 18, "grey: images on the ground, projection centres (+), tie points",
                 'fill="#555"')
    drawing.text(margin, y + 34, "red triangles: control points with their residuals", f'fill="{CONTROL}"')
    drawing.text(margin + 300, y + 34, "blue circles: check points with their differences",
                 f'fill="{CHECK}"')
    drawing.lines([((margin + 620, y + 30), (50, 0)), ((margin + 620, y + 27), (0, 6)),
                   ((margin + 670, y + 27), (0, 6))], 'stroke="#222"')
    drawing.text(margin + 676, y + 34, "10 cm (plan: thin line, height: broad bar)", 'fill="#222"')
    return drawing


def main():
    parser = argparse.ArgumentParser(description="Draws the result of the aerial example.")
    parser.add_argument("--vorn", default=REPOSITORY / "build/release/bin/vorn",
                        help="the command (default: build/release/bin/vorn)")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as scratch:
        results = run(pathlib.Path(arguments.vorn).resolve(), scratch)
    draw(results).save(REPOSITORY / "docs" / "images" / f"{NAME}.svg")


if __name__ == "__main__":
    main()
