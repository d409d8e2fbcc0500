"""A line camera flown there and back, its navigation solution drifting.

Metres and radians, unless a name says otherwise (_px, _deg).
"""

import math

from example_scenes.files import (
    CONTROL_NOTE, FREE, ROLE_NOTE, control_file, image_coords_file, image_file, lspar_file,
    record_list, orientation_rows, params_file, point_file)
from example_scenes.simulation import (
    DEG, Noise, add, cross, dot, matrix_times, project, rotation_from_opk, scale, sub, unit)

C = 62.5e-3
YP = 0.021e-3
PIXEL = 6.5e-6
COLUMNS = 12000
X0 = 29.14e-3  # the line looks 25 degrees ahead
SIGMA_PX = 0.1
RATE = 400.0  # lines per second
START = 41200.0  # start of the recording [s]
SPEED, FLIGHT_HEIGHT = 70.0, 2300.0
STEP = 0.8  # time between the lines that are used [s]
CENTRE_SIGMA, ANGLE_SIGMA_DEG = 0.01, 0.0005

# Truth of the corrections, from the first line on: (order 0, order 1) of X Y Z [m, m/s] and of
# omega phi kappa [rad, rad/s].
POS_DRIFT = ([0.45, -0.30, 0.60], [0.004, 0.003, -0.005])
ATT_DRIFT = ([1.8e-4, -2.6e-4, 5.0e-4], [1.2e-6, 3.0e-6, -4.0e-6])


def height_at(x, y):
    return (700.0 + 280.0 * math.sin(x / 600.0 + 0.4) * math.cos(y / 420.0) +
            100.0 * math.sin((x + 1.7 * y) / 260.0 + 1.0))


def drift(coefficients, tau):
    return [a + b * tau for a, b in zip(*coefficients)]


class LineImage:
    """One recorded line: true orientation and the plane that it sees."""

    def __init__(self, name, time, centre, angles):
        self.name, self.time, self.centre, self.angles = name, time, centre, angles
        self.rotation = rotation_from_opk(*angles)
        ahead = matrix_times(self.rotation, [X0, 0.0, -C])
        self.normal = unit(cross(ahead, matrix_times(self.rotation, [0.0, 1.0, 0.0])))
        self.rows = []

    def row(self):
        return round((self.time - START) * RATE) + 1000

    def column(self, point):
        _, y = project(self.rotation, self.centre, C, point)
        return (y + YP) / PIXEL + 0.5 * (COLUMNS - 1)

    def row_offset(self, point):
        x, _ = project(self.rotation, self.centre, C, point)
        return (x - X0) / PIXEL


def fly(noise):
    """True lines of the strip, flown east (E..) and, after the turn, back west (W..)."""
    phases = [noise.uniform(0.0, 6.28) for _ in range(8)]
    lines = []
    for letter, start, x_start, direction in (("E", 0.0, -800.0, 1.0), ("W", 180.0, 3200.0, -1.0)):
        for i in range(45):
            t = start + STEP * i
            centre = [x_start + direction * SPEED * (t - start),
                      12.0 * math.sin(t / 9.0 + phases[0]),
                      FLIGHT_HEIGHT + 5.0 * math.sin(t / 11.0 + phases[1])]
            angles = [0.7 * math.sin(t / 2.3 + phases[2]) + 0.3 * math.sin(t / 0.9 + phases[3]),
                      0.8 * math.sin(t / 3.1 + phases[4]) + 0.2 * math.sin(t / 0.8 + phases[5]),
                      1.0 * math.sin(t / 4.7 + phases[6]) + (0.0 if direction > 0.0 else 180.0)]
            lines.append(LineImage("{}{:02d}".format(letter, i + 1), START + t, centre,
                                   scale(angles, DEG)))
    return lines


def common_profile(first, second):
    """Ground points on the straight line that two recorded lines have in common.

    The viewing planes of two lines meet in a straight line. Where it pierces the ground lies a
    point that both lines have recorded.
    """
    direction = unit(cross(first.normal, second.normal))
    rows = [first.normal, second.normal, direction]
    middle = [0.5 * (first.centre[0] + second.centre[0]), 0.0, 700.0]
    rhs = [dot(first.normal, first.centre), dot(second.normal, second.centre),
           dot(direction, middle)]
    det = dot(rows[0], cross(rows[1], rows[2]))
    base = scale(add(add(scale(cross(rows[1], rows[2]), rhs[0]),
                         scale(cross(rows[2], rows[0]), rhs[1])),
                     scale(cross(rows[0], rows[1]), rhs[2])), 1.0 / det)

    def above(s):
        p = add(base, scale(direction, s))
        return p[2] - height_at(p[0], p[1])

    points = []
    for step in range(-55, 55):
        low, high = 19.0 * step, 19.0 * (step + 1)
        if above(low) * above(high) >= 0.0:
            continue
        for _ in range(60):
            mid = 0.5 * (low + high)
            low, high = (mid, high) if above(low) * above(mid) > 0.0 else (low, mid)
        points.append(add(base, scale(direction, low)))
    return points


def measure_points(noise, lines):
    """Measures points common to an eastward and a westward line; returns their truth."""
    points = {}
    for east in (line for line in lines if line.name[0] == "E"):
        for west in (line for line in lines if line.name[0] == "W"):
            for xyz in common_profile(east, west):
                picked = noise.uniform(0.0, 1.0) < 0.45
                if picked and all(60.0 < line.column(xyz) < COLUMNS - 60.0
                                  for line in (east, west)):
                    name = str(2001 + len(points))
                    points[name] = xyz
                    for line in (east, west):
                        # Beyond half a pixel the row would name the neighbouring line.
                        offset = max(-0.49, min(0.49, noise.normal(SIGMA_PX)))
                        line.rows.append((name, line.column(xyz) + noise.normal(SIGMA_PX),
                                          line.row() + line.row_offset(xyz) + offset))
    return points


def drop_weak_lines(lines, points):
    """Leaves lines of three points and more, and points with both their rays."""
    while True:
        weak = [line for line in lines if len(line.rows) < 3]
        if not weak:
            return
        lost = {row[0] for line in weak for row in line.rows}
        lines[:] = [line for line in lines if line not in weak]
        for line in lines:
            line.rows = [row for row in line.rows if row[0] not in lost]
        for name in lost:
            points.pop(name, None)


def nearest_points(points, nodes):
    """For each node (X, Y) the ID of the nearest point, none twice."""
    chosen = []
    for x, y in nodes:
        left = [name for name in points if name not in chosen]
        chosen.append(min(left, key=lambda n: math.hypot(points[n][0] - x, points[n][1] - y)))
    return chosen


def orientation_file(noise, lines):
    """What the navigation system delivers: truth less the drift, and its own noise."""
    rows = []
    for line in lines:
        tau = line.time - lines[0].time
        centre = sub(add(line.centre, noise.normals(*[CENTRE_SIGMA] * 3)),
                     drift(POS_DRIFT, tau))
        angles = sub(line.angles, drift(ATT_DRIFT, tau))
        angles = [a / DEG + noise.normal(ANGLE_SIGMA_DEG) for a in angles]
        rows += orientation_rows(line.name, "deg", line.time, centre, CENTRE_SIGMA, angles,
                                 ANGLE_SIGMA_DEG, (3, 5))
    return record_list(rows, ["indiv-type"]) + "\n" + """\
Per line: type, ID, angle unit, exposure time [s]; Xo Yo Zo; their std. devs.; omega phi
kappa; their std. devs. The navigation solution enters as observations: 1 cm, 0.0005 degrees.
"""


def correction_file(name, lines, kind):
    rows = [name]
    ids = [line.name for line in lines]
    rows += ["  " + " ".join(ids[i:i + 15]) for i in range(0, len(ids), 15)]
    rows += ["stop-dep", "0.0", "2"] + ["  0 1e31   0 1e31   0 1e31"] * 2
    return record_list(rows, []) + "\n" + """\
ID of the correction; IDs of the orientations it acts on, to the first stop-dep; reference
time (the run replaces it by the first exposure time); number of coefficient triples (order +
1); per triple value and std. dev. of {}, order 0 first:
{}. All free.
""".format(*kind)


def make():
    noise = Noise(3)
    lines = fly(noise)
    points = measure_points(noise, lines)
    drop_weak_lines(lines, points)
    west, east = min(p[0] for p in points.values()), max(p[0] for p in points.values())
    nodes = [(west + f * (east - west), y) for f in (0.02, 0.35, 0.65, 0.98)
             for y in (-600, 0, 600)]
    control = nearest_points(points, nodes)
    others = {k: v for k, v in points.items() if k not in control}
    nodes = [(west + f * (east - west), y) for f in (0.15, 0.5, 0.85)
             for y in (-480, -160, 160, 480)]
    check = nearest_points(others, nodes)
    files = {"orientations.txt": orientation_file(noise, lines)}
    survey = [(p, add(points[p], noise.normals(0.02, 0.02, 0.02)), [0.02] * 3) for p in control]
    survey += [(p, add(points[p], noise.normals(0.02, 0.02, 0.02)), [FREE] * 3) for p in check]
    files["object-coords.txt"] = point_file(survey, 3, None, """\
ID, X Y Z [m], their std. devs. [m]: control points observed with 2 cm, check points free.
Tie points are not listed: they are intersected from the navigation solution.
""")
    files["control.txt"] = record_list(["{} ch xyz".format(p) for p in check], [
        "# check points; the control points are observed and need no entry"]) + "\n" + \
        ROLE_NOTE
    files["image-coords.txt"] = image_coords_file(
        [(line.name, line.rows) for line in lines], "1", "{:10.3f}", "0.1", """\
Per line: ID and a factor (1: the file is in pixels, as the camera wants), then point ID,
column row, their std. devs.; -1 ends the line, stop-dep the file. Rows count the recorded
lines; only their offset from the nearest whole line matters.
""")
    files["images.txt"] = image_file([line.name for line in lines], "line", """\
Type, image ID, ID of its orientation, ID of its camera. Every recorded line is an image.
""")
    files["camera.txt"] = record_list([
        "camera-pushbroom  line  forward-looking", "  62.5", "   0.0  0.021", "  12000",
        "  6.5  6.5", "  29.14"
    ], []) + "\n" + """\
Type, ID, comment (one word); principal distance [mm]; principal point xp yp [mm]; pixels of the
line; their size along and across the line [um]; position of the line [mm]: it lies 29.14 mm
ahead of the principal point and looks 25 degrees forward.
"""
    files["lspar.txt"] = lspar_file("6.5e-7", "0.001 0.001 1e-6 1e-8", "2.0", "deg",
                                    ": 0.1 pixel of 6.5 um")
    files["params.txt"] = params_file([0, 0, 0, 1, 1])
    files["position-cor.txt"] = correction_file("gnss-drift", lines, (
        "X, Y and Z", "a constant [m], then a drift [m/s]"))
    files["attitude-cor.txt"] = correction_file("imu-drift", lines, (
        "omega, phi and kappa", "a constant [rad], then a drift [rad/s], whatever the angle unit"))
    pairs = [("params", "params.txt"), ("ls-params", "lspar.txt"), ("camera", "camera.txt"),
             ("image", "images.txt"), ("image-geometry", "orientations.txt"),
             ("image-crds", "image-coords.txt"), ("obj-crds", "object-coords.txt"),
             ("ctrl-supp", "control.txt")]
    files["uncorrected.ctl"] = control_file(pairs, "The same strip without the two corrections.\n")
    pairs += [("pos-cor", "position-cor.txt"), ("att-cor", "attitude-cor.txt")]
    files["pushbroom-strip.ctl"] = control_file(pairs, CONTROL_NOTE)
    return files
