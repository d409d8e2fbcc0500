#!/usr/bin/env python3
"""Adjusts a copy of examples/aerial-block and draws the result to docs/images/aerial-block.svg.

usage: plot_example.py [--vorn PATH]

The plan shows the images, the points, and the differences adjusted - given of control and check
points, all read from the result files of the run.
"""

import argparse
import pathlib
import tempfile

import example_results as results
from svg_drawing import Drawing, number

REPOSITORY = results.REPOSITORY
NAME = "aerial-block"
GROUND = 340.0  # mean height of the terrain [m]
PIXELS_PER_METRE = 0.105
PIXELS_PER_DIFFERENCE = 500.0  # vectors: 10 cm are 50 pixels
CHECK, CONTROL, CAMERA, TIE = "#1f5fbf", "#c0392b", "#8a94a0", "#b3b9c0"


def footprints(ext, cam):
    """Projection centres and the corners of the images on the ground."""
    words = cam.split()
    c, half = float(words[3]), float(words[6]) / 2
    images = []
    for _, centre, r in results.orientations(ext):
        corners = []
        for x, y in ((half, half), (-half, half), (-half, -half), (half, -half)):
            ray = [row[0] * x + row[1] * y - row[2] * c for row in r]
            scale = (GROUND - centre[2]) / ray[2]
            corners.append((centre[0] + scale * ray[0], centre[1] + scale * ray[1]))
        images.append((centre, corners))
    return images


def draw(folder):
    images = footprints(results.result(folder, "ext"), results.result(folder, "cam"))
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

    control, check = results.adjusted_minus_given(folder)
    signalised = {name for name, _, _ in check + control}
    points = results.object_points(results.result(folder, "ocs"))
    drawing.dots([plan(*xyz[:2]) for name, xyz in points if name not in signalised], 2.2, TIE)

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

    sigma0 = results.last_sigma0(results.result(folder, "out"))
    rms = results.result(folder, "chp").splitlines()[-2].split()[-3:]
    y = height + 8
    drawing.text(margin, y, f"{len(images)} images, {len(points)} points.  "
                 f"Sigma 0 {sigma0} µm.  RMS at the check points: "
                 + ", ".join(f"{100 * float(r):.1f}" for r in rms) + " cm in X, Y, Z.",
                 'fill="#222" font-size="13"')
    drawing.text(margin, y + 18, "grey: images on the ground, projection centres (+), tie points",
                 'fill="#555"')
    drawing.text(margin, y + 34, "red triangles: control points", f'fill="{CONTROL}"')
    drawing.text(margin + 200, y + 34, "blue circles: check points; vectors: adjusted - given",
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
        folder = results.run(pathlib.Path(arguments.vorn).resolve(), scratch, NAME)
        drawing = draw(folder)
    drawing.save(REPOSITORY / "docs" / "images" / f"{NAME}.svg")


if __name__ == "__main__":
    main()
