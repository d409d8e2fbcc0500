#!/usr/bin/env python3
"""Draws axes and rotations to docs/images/axes.svg and rotations.svg, and the coordinates that the
cameras measure to docs/images/measured.svg.

usage: plot_conventions.py
"""

import math
import pathlib

from svg_drawing import Drawing, number

IMAGES = pathlib.Path(__file__).resolve().parent.parent / "docs" / "images"
OBJECT, IMAGE, RAY, PALE = "#2c3e50", "#1f5fbf", "#c0392b", "#8a94a0"


class View:
    """A parallel view of space: X to the right and towards the viewer, Y into the drawing, Z up."""

    def __init__(self, drawing, origin, scale):
        self.drawing, self.origin, self.scale = drawing, origin, scale

    def at(self, p):
        x, y, z = p
        return (self.origin[0] + self.scale * (0.9 * x + 0.42 * y),
                self.origin[1] + self.scale * (0.2 * x - 0.36 * y - 0.95 * z))

    def line(self, a, b, style):
        (x1, y1), (x2, y2) = self.at(a), self.at(b)
        self.drawing.lines([((x1, y1), (x2 - x1, y2 - y1))], style)

    def arrow(self, a, b, colour, width=1.6):
        arrow(self.drawing, self.at(a), self.at(b), colour, width)

    def label(self, p, text, colour, dx=5, dy=4):
        x, y = self.at(p)
        self.drawing.text(x + dx, y + dy, text, f'fill="{colour}" font-size="14"')

    def polygon(self, points, style):
        self.drawing.polygon([self.at(p) for p in points], style)

    def curve(self, points, style):
        d = "L".join(f"{number(x)} {number(y)}" for x, y in map(self.at, points))
        self.drawing.path(f"M{d}", style)


def arrow(drawing, start, end, colour, width=1.6):
    drawing.lines([(start, (end[0] - start[0], end[1] - start[1]))],
                  f'stroke="{colour}" stroke-width="{width}"')
    angle = math.atan2(end[1] - start[1], end[0] - start[0])
    corners = [end] + [(end[0] - 9 * math.cos(angle + turn), end[1] - 9 * math.sin(angle + turn))
                       for turn in (0.36, -0.36)]
    drawing.polygon(corners, f'fill="{colour}"')


def note(drawing, *lines):
    """Lines of small print below the title."""
    for k, line in enumerate(lines):
        drawing.text(14, 44 + 16 * k, line, 'fill="#555" font-size="12"')


def add(a, b, factor=1.0):
    return [u + factor * v for u, v in zip(a, b)]


def draw_axes():
    """Object space, an image in it, and the ray of a point; a vertical image: R is the identity."""
    drawing = Drawing(760, 520)
    view = View(drawing, (90, 400), 100.0)
    view.polygon([(-0.4, -0.1, 0), (4.6, -0.1, 0), (4.6, 2.4, 0), (-0.4, 2.4, 0)],
                 'fill="#f4f5f6" stroke="#d8dce0"')
    for axis, name in (((1, 0, 0), "X"), ((0, 1.6, 0), "Y"), ((0, 0, 1), "Z")):
        view.arrow((0, 0, 0), axis, OBJECT)
        view.label(axis, name, OBJECT)
    view.label((0, 0, 0), "object space", OBJECT, -60, 24)

    centre, c, scale = (2.9, 1.1, 2.8), 1.0, 0.62
    point = (4.1, 1.7, 0.0)
    half = 0.72
    plane = add(centre, (0, 0, -c))
    corners = [add(plane, (dx * half, dy * half, 0)) for dx, dy in
               ((-1, -1), (1, -1), (1, 1), (-1, 1))]
    view.polygon(corners, f'fill="{IMAGE}" fill-opacity=".08" stroke="{IMAGE}"')
    for corner in corners:
        view.line(centre, corner, f'stroke="{IMAGE}" stroke-width=".5" stroke-dasharray="4 3"')
    for axis, name in (((1, 0, 0), "x"), ((0, 1.3, 0), "y"), ((0, 0, 0.9), "z")):
        tip = add(centre, axis, scale)
        view.arrow(centre, tip, IMAGE)
        view.label(tip, name, IMAGE)
    view.line(centre, plane, f'stroke="{IMAGE}" stroke-dasharray="2 3"')
    view.label(add(centre, (0, 0, -c / 2)), "c", IMAGE, -14, 2)
    for axis, name in (((0.5, 0, 0), "x"), ((0, 0.6, 0), "y")):
        tip = add(plane, axis)
        view.arrow(plane, tip, IMAGE, 1.1)
        view.label(tip, name, IMAGE, -4, 16 if name == "x" else -5)
    ray = add(point, centre, -1.0)
    image_point = add(centre, ray, -c / ray[2])
    view.line(centre, point, f'stroke="{RAY}" stroke-width="1.3"')
    drawing.dots([view.at(p) for p in (image_point, point, centre)], 6, RAY)
    view.label(point, "object point X", RAY, 9, 5)
    view.label(centre, "projection centre Xo", RAY, -150, -4)
    view.label(image_point, "(x, y, -c)", RAY, 9, 3)
    drawing.text(14, 24, "Axes of object space and of an image with R = I", 'fill="#222" font-size="16"')
    note(drawing, "A vertical image, flown to the east (X); z points away from the scene.",
         "The image is drawn before the centre, where it stands upright:",
         "x = -c Ux/Uz, y = -c Uy/Uz with U = R'(X - Xo), and Uz < 0 in front.")
    return drawing


def draw_rotations():
    drawing = Drawing(760, 300)
    names = (("ω", "X", 0), ("φ", "Y", 1), ("κ", "Z", 2))
    for k, (name, axis, index) in enumerate(names):
        view = View(drawing, (110 + 245 * k, 205), 92.0)
        tips = ((1.05, 0, 0), (0, 1.5, 0), (0, 0, 1.1))
        for i, (tip, label) in enumerate(zip(tips, "XYZ")):
            colour = RAY if i == index else OBJECT
            view.arrow((0, 0, 0), tip, colour, 2.2 if i == index else 1.4)
            view.label(tip, label, colour)
        # The two other axes, turned by 35 degrees; an arc leads the first to its new place.
        first, second = ((1, 2), (2, 0), (0, 1))[index]
        lengths = (1.0, 1.4, 1.0)

        def turned(angle, radius):
            p = [0.0, 0.0, 0.0]
            p[first] = radius * math.cos(angle) * lengths[first]
            p[second] = radius * math.sin(angle) * lengths[second]
            return p

        angle = math.radians(35)
        for start in (0.0, math.pi / 2):
            view.line((0, 0, 0), turned(start + angle, 0.95),
                      f'stroke="{IMAGE}" stroke-width="1.4" stroke-dasharray="5 3"')
            steps = [turned(start + angle * t / 12, 0.7) for t in range(13)]
            view.curve(steps[:-1], f'stroke="{RAY}" stroke-width="1.3"')
            arrow(drawing, view.at(steps[-3]), view.at(steps[-1]), RAY, 1.0)
        view.label(turned(angle / 2, 0.78), name, RAY, 2, 4)
        drawing.text(60 + 245 * k, 272, f"R{axis.lower()}({name}): about {axis}",
                     'fill="#222" font-size="14"')
    drawing.text(14, 24, "Positive rotations", 'fill="#222" font-size="16"')
    note(drawing, "Counter-clockwise when the axis points to the viewer: ω from Y to Z, φ from Z to X, "
         "κ from X to Y.", "Dashed: the axes after the turn.")
    return drawing


# Title, size of the format, and where the measured axes start and point to: (start, direction,
# name), in units of half the format, x to the right and y upwards.
CAMERAS = (
    ("camera-frame", (110, 90), ()),
    ("camera-ccd", (120, 80), (((-1, 1), (1, 0), "col"), ((-1, 1), (0, -1), "row"))),
    ("camera-ccd-tr", (80, 120), (((1, 1), (0, -1), "col"), ((1, 1), (-1, 0), "row"))),
    ("camera-pushbroom", (60, 130), (((0, -1), (0, 1), "col"),)),
)


def draw_measured():
    drawing = Drawing(760, 290)
    for k, (title, (width, height), measured) in enumerate(CAMERAS):
        x, y = 100 + 190 * k, 165
        is_line = title == "camera-pushbroom"
        line = 40 if is_line else 0
        if is_line:
            drawing.lines([((x + line, y + height / 2), (0, -height))],
                          f'stroke="{IMAGE}" stroke-width="7" stroke-opacity=".25"')
        else:
            drawing.polygon([(x + sx * width / 2, y - sy * height / 2) for sx, sy in
                             ((-1, -1), (1, -1), (1, 1), (-1, 1))],
                            f'fill="{IMAGE}" fill-opacity=".08" stroke="{IMAGE}"')
        for (dx, dy), name in (((30, 0), "x"), ((0, -30), "y")):
            arrow(drawing, (x, y), (x + dx, y + dy), IMAGE)
            drawing.text(x + dx + (-4 if dx else 6), y + dy + (16 if dx else 4), name,
                         f'fill="{IMAGE}" font-size="14"')
        for (sx, sy), (dx, dy), name in measured:
            start = (x + line + sx * width / 2 + 9 * (sx if sx else 1) * (dx == 0),
                     y - sy * height / 2 - 9 * (sy if sy else 1) * (dy == 0))
            end = (start[0] + 56 * dx, start[1] - 56 * dy)
            arrow(drawing, start, end, RAY)
            side = 5 if dx > 0 else -30 if dx < 0 else 6 if sx >= 0 else -30
            drawing.text(end[0] + side, end[1] + (18 if is_line else 4), name,
                         f'fill="{RAY}" font-size="13"')
        if is_line:
            drawing.lines([((x, y + 18), (line, 0))], f'stroke="{PALE}"')
            drawing.text(x + 4, y + 32, "x0", f'fill="{PALE}" font-size="13"')
            arrow(drawing, (x - 60, y - 50), (x - 12, y - 50), PALE, 1.2)
            drawing.text(x - 60, y - 56, "flight", f'fill="{PALE}" font-size="12"')
        drawing.text(x - 62, 262, title, 'fill="#222" font-size="14"')
    drawing.text(14, 24, "What the cameras measure", 'fill="#222" font-size="16"')
    note(drawing, "Blue: image axes, with the origin in the centre of the format. Red: measured columns "
         "and rows,", "counted from 0 at the centre of the first pixel. The row of a line camera is its "
         "number in time.")
    return drawing


def main():
    draw_axes().save(IMAGES / "axes.svg")
    draw_rotations().save(IMAGES / "rotations.svg")
    draw_measured().save(IMAGES / "measured.svg")


if __name__ == "__main__":
    main()
