#!/usr/bin/env python3
"""Adjusts copies of the examples and draws their networks and residuals to docs/images/.

usage: plot_networks.py [--vorn PATH]

close-range.svg and pushbroom.svg show cameras, points and differences at control and check points,
residuals.svg the residuals of all image points of the three examples. The plan of the aerial block
is drawn by plot_example.py.
"""

import argparse
import math
import pathlib
import tempfile

import example_results as results
from svg_drawing import Drawing

REPOSITORY = results.REPOSITORY
IMAGES = REPOSITORY / "docs" / "images"
CHECK, CONTROL, CAMERA, TIE = "#1f5fbf", "#c0392b", "#5d6b7a", "#b3b9c0"


def scale_bar(drawing, x, y, length, label):
    drawing.lines([((x, y), (length, 0)), ((x, y - 3), (0, 6)), ((x + length, y - 3), (0, 6))],
                  'stroke="#222"')
    drawing.text(x + length + 6, y + 4, label, 'fill="#222"')


# ---- close range --------------------------------------------------------------------------------

class Oblique:
    """A parallel view from the front, above and to the right."""

    def __init__(self, origin, pixels_per_unit):
        self.origin, self.scale = origin, pixels_per_unit

    def at(self, p):
        x, y, z = p
        return (self.origin[0] + self.scale * (x * 0.86 - y * 0.5),
                self.origin[1] - self.scale * (x * 0.22 + y * 0.38 + z * 0.9))


def draw_close_range(folder):
    """Test field and cameras; a camera's pyramid has the shape of its image."""
    drawing = Drawing(900, 640)
    view = Oblique((440, 520), 0.122)
    c, half_x, half_y, size = 28.0, 18.0, 12.0, 12.0
    for name, centre, r in results.orientations(results.result(folder, "ext")):
        corners = [[centre[i] + size * (r[i][0] * x + r[i][1] * y - r[i][2] * c) for i in range(3)]
                   for x, y in ((-half_x, -half_y), (half_x, -half_y), (half_x, half_y),
                                (-half_x, half_y))]
        flat = [view.at(p) for p in corners]
        apex = view.at(centre)
        drawing.lines([(apex, (x - apex[0], y - apex[1])) for x, y in flat],
                      f'stroke="{CAMERA}" stroke-width=".6"')
        drawing.polygon(flat, f'fill="{CAMERA}" fill-opacity=".08" stroke="{CAMERA}" stroke-width=".8"')
        # The upper edge of the image tells how the camera is rolled.
        (x1, y1), (x2, y2) = flat[3], flat[2]
        drawing.lines([((x1, y1), (x2 - x1, y2 - y1))], f'stroke="{CAMERA}" stroke-width="2.4"')
        drawing.text(apex[0] + 4, apex[1] - 4, name, f'fill="{CAMERA}" font-size="10"')
    control, checks = results.adjusted_minus_given(folder)
    names = {name for name, _, _ in control + checks}
    points = results.object_points(results.result(folder, "ocs"))
    drawing.dots([view.at(xyz) for name, xyz in points if name not in names], 3.2, "#7f8c8d")
    for rows, colour in ((control, CONTROL), (checks, CHECK)):
        for name, xyz, differences in rows:
            x, y = view.at(xyz)
            moved = view.at([u + 10000 * (d or 0.0) for u, d in zip(xyz, differences)])
            drawing.lines([((x, y), (moved[0] - x, moved[1] - y))],
                          f'stroke="{colour}" stroke-width="1.8"')
            drawing.dots([(x, y)], 7, colour)
    for axis, name in (((800, 0, 0), "X"), ((0, 800, 0), "Y"), ((0, 0, 800), "Z")):
        (x1, y1), (x2, y2) = view.at((-3000, -400, 0)), view.at([u + v for u, v in
                                                               zip((-3000, -400, 0), axis)])
        drawing.lines([((x1, y1), (x2 - x1, y2 - y1))], 'stroke="#222" stroke-width="1.2"')
        drawing.text(x2 + 4, y2, name, 'fill="#222" font-size="12"')
    sigma0 = results.last_sigma0(results.result(folder, "out"))
    drawing.text(16, 24, f"close-range-calibration: 20 images, {len(points)} points, sigma 0 {sigma0} µm",
                 'fill="#222" font-size="15"')
    drawing.text(16, 44, "Pyramids: cameras, with the upper edge of the image drawn thick.",
                 'fill="#555" font-size="12"')
    drawing.text(16, 62, "red: control points (fixed)", f'fill="{CONTROL}" font-size="12"')
    drawing.text(196, 62, "blue: check points with adjusted - given", f'fill="{CHECK}" font-size="12"')
    scale_bar(drawing, 460, 58, 0.122 * 10000 * 0.05, "0.05 mm")
    return drawing


# ---- line camera --------------------------------------------------------------------------------

C, LINE_X, HALF_LINE = 62.5, 29.14, 12000 * 6.5e-3 / 2  # [mm]
GROUND = 700.0  # mean height of the terrain [m]


def line_on_ground(centre, r):
    ends = []
    for y in (-HALF_LINE, HALF_LINE):
        ray = [row[0] * LINE_X + row[1] * y - row[2] * C for row in r]
        scale = (GROUND - centre[2]) / ray[2]
        ends.append((centre[0] + scale * ray[0], centre[1] + scale * ray[1]))
    return ends


def draw_pushbroom(corrected, uncorrected):
    """Plan of the two runs; differences at the check points with and without the corrections."""
    drawing = Drawing(920, 430)
    stations = results.orientations(results.result(corrected, "ext"))
    for panel, (folder, pixels_per_metre, bar, title) in enumerate((
            (corrected, 500.0, 0.1, "with position and attitude correction"),
            (uncorrected, 25.0, 2.0, "without them (mind the scale of the vectors)"))):
        left, scale = 16 + 460 * panel, 0.112

        def plan(x, y, left=left, scale=scale):
            return left + 78 + scale * x, 280 - scale * y

        for name, centre, r in stations:
            colour = "#7d6b9e" if name.startswith("E") else "#4f8a6b"
            (x1, y1), (x2, y2) = (plan(*end) for end in line_on_ground(centre, r))
            drawing.lines([((x1, y1), (x2 - x1, y2 - y1))], f'stroke="{colour}" stroke-opacity=".35"')
            x, y = plan(*centre[:2])
            drawing.dots([(x, y)], 3, colour)
        control, checks = results.adjusted_minus_given(folder)
        names = {name for name, _, _ in control + checks}
        drawing.dots([plan(*xyz[:2]) for name, xyz in
                      results.object_points(results.result(folder, "ocs")) if name not in names],
                     2, TIE)
        for rows, colour in ((control, CONTROL), (checks, CHECK)):
            for name, xyz, differences in rows:
                x, y = plan(*xyz[:2])
                dx, dy, dz = (pixels_per_metre * (d or 0.0) for d in differences)
                drawing.lines([((x, y), (0, -dz))], f'stroke="{colour}" stroke-width="3" stroke-opacity=".3"')
                drawing.lines([((x, y), (dx, -dy))], f'stroke="{colour}" stroke-width="1.8"')
                drawing.dots([(x, y)], 5, colour)
        sigma0 = results.last_sigma0(results.result(folder, "out"))
        drawing.text(left, 96, f"{title}: sigma 0 {sigma0} µm", 'fill="#222" font-size="13"')
        scale_bar(drawing, left, 112, pixels_per_metre * bar,
                  f"{bar:g} m (plan: thin line, height: broad bar)")
    drawing.text(16, 22, f"pushbroom-strip: {len(stations)} lines of two runs, all recorded 25° ahead",
                 'fill="#222" font-size="15"')
    for x, y, text, colour in ((16, 44, "Lines on the ground and projection centres (dots):", "#555"),
                               (330, 44, "violet: flown to the east", "#7d6b9e"),
                               (500, 44, "green: to the west", "#4f8a6b"),
                               (16, 62, "red: control points, observed", CONTROL),
                               (230, 62, "blue: check points; both with adjusted - given", CHECK)):
        drawing.text(x, y, text, f'fill="{colour}" font-size="12"')
    return drawing


# ---- residuals ----------------------------------------------------------------------------------

def draw_residuals(panels):
    """Panels (title, width and height of the axes [px], vectors, pixels per um, bar [um], note)."""
    drawing = Drawing(900, 700)
    for k, (title, (width, height), vectors, pixels_per_um, bar, note) in enumerate(panels):
        left, top = 20 + 450 * (k % 2), 90 + 320 * (k // 2)
        x0, y0 = left + 205, top + 130
        drawing.polygon([(x0 + sx * width / 2, y0 + sy * height / 2) for sx, sy in
                         ((-1, -1), (1, -1), (1, 1), (-1, 1))], 'stroke="#c8ced4"')
        drawing.lines([((x0 + x, y0 - y), (pixels_per_um * vx, -pixels_per_um * vy))
                       for (x, y), (vx, vy) in vectors], f'stroke="{CHECK}" stroke-width=".8"')
        count = len(vectors)
        rms = [math.sqrt(sum(v[i] ** 2 for _, v in vectors) / count) for i in (0, 1)]
        drawing.text(left, top - 22, title, 'fill="#222" font-size="14"')
        drawing.text(left, top - 6, f"{count} points, RMS {rms[0]:.2f} µm in x, {rms[1]:.2f} µm in y{note}",
                     'fill="#555" font-size="12"')
        scale_bar(drawing, left + 300, top - 26, pixels_per_um * bar, f"{bar:g} µm")
    drawing.text(20, 24, "Residuals of the image coordinates (computed - measured), all images on one "
                 "format", 'fill="#222" font-size="15"')
    return drawing


def vectors_of(folder, to_panel):
    measured = results.measurements(folder)
    found = results.residuals(results.result(folder, "res"))
    return [(to_panel(image, *measured[image, point]), v) for (image, point), v in found.items()]


def draw_all_residuals(aerial, close, plain, strip):
    def in_pixels(_, column, row):
        return (column - 2999.5) * 0.065, -(row - 1999.5) * 0.065

    order = {name: k for k, (name, _, _) in enumerate(results.orientations(results.result(strip, "ext")))}

    def along_strip(image, column, _):
        return (order[image] + 0.5 - len(order) / 2) * 4.6, (column - 5999.5) * 0.02

    return draw_residuals((
        ("aerial-block", (250, 250),
         vectors_of(aerial, lambda _, x, y: (x * 1e3 * 250 / 230, y * 1e3 * 250 / 230)), 2.0, 10, ""),
        ("pushbroom-strip", (len(order) * 4.6, 240), vectors_of(strip, along_strip), 10.0, 2,
         "; line by line"),
        ("close-range-calibration", (390, 260), vectors_of(close, in_pixels), 8.0, 2, ""),
        ("the same without self-calibration", (390, 260), vectors_of(plain, in_pixels), 0.4, 50,
         ": a pattern"),
    ))


def main():
    parser = argparse.ArgumentParser(description="Draws networks and residuals of the examples.")
    parser.add_argument("--vorn", default=REPOSITORY / "build/release/bin/vorn",
                        help="the command (default: build/release/bin/vorn)")
    vorn = pathlib.Path(parser.parse_args().vorn).resolve()
    with tempfile.TemporaryDirectory() as scratch:
        aerial = results.run(vorn, scratch, "aerial-block")
        close = results.run(vorn, scratch, "close-range-calibration")
        plain = results.run(vorn, scratch, "close-range-calibration", without=("ap-set",))
        strip = results.run(vorn, scratch, "pushbroom-strip")
        uncorrected = results.run(vorn, scratch, "pushbroom-strip", control_file="uncorrected")
        draw_close_range(close).save(IMAGES / "close-range.svg")
        draw_pushbroom(strip, uncorrected).save(IMAGES / "pushbroom.svg")
        draw_all_residuals(aerial, close, plain, strip).save(IMAGES / "residuals.svg")


if __name__ == "__main__":
    main()
