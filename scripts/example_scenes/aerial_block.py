"""Frame images of an aerial block, three strips over hilly country.

Metres and radians, unless a name says otherwise (_mm, _gon).
"""

import math

from example_scenes.files import (
    CONTROL_NOTE, FREE, ROLE_NOTE, control_file, image_coords_file, image_file, lspar_file,
    record_list, orientation_rows, params_file, point_file)
from example_scenes.simulation import DEG, GON, Noise, add, project, rotation_from_opk

C = 0.152818
XP, YP = 0.004e-3, -0.007e-3
HALF = 0.106  # measurable half format
SIGMA = 4e-6
BASE, SPACING = 736.0, 1288.0  # 60 % and 30 % overlap of 230 mm at 1 : 8000
ORIGIN = [24000.0, 51000.0]


def height_at(x, y):
    u, v = x - ORIGIN[0], y - ORIGIN[1]
    return (340.0 + 42.0 * math.sin(u / 900.0) * math.cos(v / 760.0) +
            18.0 * math.sin((u + 2.0 * v) / 410.0))


def fly(noise):
    """True orientations, three strips of ten images flown there and back: (id, time, Xo, opk)."""
    stations = []
    time = 0.0
    for strip in range(3):
        back = strip == 1
        for i in range(10):
            along = (9 - i if back else i) * BASE
            centre = [ORIGIN[0] + along + noise.normal(12.0),
                      ORIGIN[1] + strip * SPACING + noise.normal(12.0),
                      1562.0 + noise.normal(7.0)]
            angles = noise.normals(0.8 * GON, 0.8 * GON, 1.3 * GON)
            angles[2] += 180.0 * DEG if back else 0.0
            stations.append(("{}{:02d}".format(strip + 1, i + 1), time, centre, angles))
            time += 10.5
        time += 240.0
    return stations


def ground_point(u, v):
    x, y = ORIGIN[0] + u, ORIGIN[1] + v
    return [x, y, height_at(x, y)]


# Signalised points: kind, position along and across the block, control-support entry.
SIGNALS = [
    ("N1", 30, -520, "co xyz"), ("N2", 6590, -490, "co xyz"),
    ("N3", 6560, 3090, "co xyz"), ("N4", 60, 3060, "co xyz"),
    ("G1", 1510, -540, None), ("G2", 3290, -500, None), ("G3", 5170, -560, None),
    ("G4", 6570, 1240, None), ("G5", 5100, 3110, None), ("G6", 3330, 3150, None),
    ("G7", 1480, 3100, None), ("G8", 40, 1310, None), ("G9", 3370, 1270, None),
    ("H1", 1490, 640, "co z"), ("H2", 3350, 1950, "co z"), ("H3", 5150, 650, "co z"),
    ("L1", 2240, 1930, "co xy"), ("G10", 4430, 640, "in"),
    ("C1", 420, 300, "ch xyz"), ("C2", 2230, -330, "ch xyz"), ("C3", 2960, 620, "ch xyz"),
    ("C4", 4050, 1330, "ch xyz"), ("C5", 6020, 480, "ch xyz"), ("C6", 5890, 2120, "ch xyz"),
    ("C7", 4460, 2640, "ch xyz"), ("C8", 2560, 2820, "ch xyz"), ("C9", 760, 2080, "ch xyz"),
    ("C10", 1870, 1290, "ch z"), ("C11", 4800, 1960, "ch xy"),
]


def survey_of(noise, name, kind, truth):
    """Coordinates and standard deviations of a signalised point as they stand in the file."""
    free, gnss = [FREE] * 3, [0.03, 0.03, 0.05]
    if kind is None:
        return add(truth, noise.normals(*gnss)), gnss
    if kind == "in":  # a wrong point: the target was displaced between survey and flight
        return add(truth, [1.40, -0.85, 0.02]), gnss
    if kind == "co xyz":
        return truth, free
    if kind == "co z":  # benchmark: position scaled from a map
        return [round(truth[0] / 10) * 10.0, round(truth[1] / 10) * 10.0, truth[2]], free
    if kind == "co xy":  # church tower: height estimated
        return [truth[0], truth[1], float(round(truth[2] / 20) * 20)], free
    return add(truth, noise.normals(0.02, 0.02, 0.02)), free


def spread_points(noise):
    points = {name: ground_point(u + noise.uniform(-15.0, 15.0), v + noise.uniform(-15.0, 15.0))
              for name, u, v, _ in SIGNALS}
    number = 1001
    for i in range(27):
        for j in range(15):
            u = -860.0 + 320.0 * i + noise.uniform(-80.0, 80.0)
            v = -780.0 + 294.0 * j + noise.uniform(-70.0, 70.0)
            points[str(number)] = ground_point(u, v)
            number += 1
    return points


def measure(noise, stations, points):
    """Noisy measurements [mm] of every point that at least two images show."""
    seen = {}
    for name, _, centre, angles in stations:
        rotation = rotation_from_opk(*angles)
        for point, xyz in points.items():
            x, y = project(rotation, centre, C, xyz)
            if abs(x) < HALF and abs(y) < HALF:
                seen.setdefault(point, {})[name] = (x, y)
    images = []
    for name, _, _, _ in stations:
        rows = []
        for point, rays in seen.items():
            if len(rays) < 2 or name not in rays:
                continue
            x, y = rays[name]
            rows.append((point, 1e3 * (x + XP + noise.normal(SIGMA)),
                         1e3 * (y + YP + noise.normal(SIGMA))))
        images.append((name, rows))
    return images


def orientation_file(noise, stations):
    rows = []
    for name, time, centre, angles in stations:
        rough = add(centre, noise.normals(4.0, 4.0, 4.0))
        rough_gon = [(a + noise.normal(0.3 * GON)) / GON for a in angles]
        rows += orientation_rows(name, "gon", time, rough, FREE, rough_gon, FREE, (0, 1))
    return record_list(rows, ["indiv-type"]) + "\n" + """\
Per image: type, ID, angle unit, exposure time [s]; Xo Yo Zo; their std. devs.;
omega phi kappa; their std. devs. All are free (1e31): the numbers are approximations
from the flight log, good to some metres and 0.3 gon.
"""


def make():
    noise = Noise(1)
    stations = fly(noise)
    points = spread_points(noise)
    images = measure(noise, stations, points)
    files = {"orientations.txt": orientation_file(noise, stations)}
    survey, roles = [], []
    for name, _, _, kind in SIGNALS:
        survey.append((name,) + tuple(survey_of(noise, name, kind, points[name])))
        if kind == "in":
            roles.append("# G10 was displaced between survey and flight: not used as control")
        if kind:
            roles.append("{:<4} {}".format(name, kind))
    files["object-coords.txt"] = point_file(survey, 3, None, """\
ID, X Y Z [m], their std. devs. [m]. Points with std. devs. of some centimetres are observed
control; 1e31 says free, unless control.txt gives the point another role. Tie points are not
listed: they are intersected from the approximate orientations.
""")
    files["control.txt"] = record_list(roles, ["# roles of the signalised points"]) + "\n" + \
        ROLE_NOTE
    files["image-coords.txt"] = image_coords_file(images, "0.001", "{:9.4f}", "0.004", """\
Per image: ID and the factor to metres (0.001: the file is in mm), then point ID, x y, their
std. devs.; -1 ends the image, stop-dep the file.
""")
    files["images.txt"] = image_file([s[0] for s in stations], "aerial", """\
Type, image ID, ID of its orientation, ID of its camera.
""")
    files["camera.txt"] = record_list([
        "camera-frame  aerial  survey-camera", "  152.818", "    0.004  -0.007", "  230.0  230.0"
    ], []) + "\n" + """\
Type, ID, comment (one word); principal distance; principal point xp yp; format sx sy: all in mm.
"""
    files["lspar.txt"] = lspar_file("4e-6", "0.001 0.001 1e-6 1e-8", "12", "gon",
                                    ": image noise of 4 um")
    files["params.txt"] = params_file([0, 0, 0, 0, 0])
    files["aerial-block.ctl"] = control_file([
        ("params", "params.txt"), ("ls-params", "lspar.txt"), ("camera", "camera.txt"),
        ("image", "images.txt"), ("image-geometry", "orientations.txt"),
        ("image-crds", "image-coords.txt"), ("obj-crds", "object-coords.txt"),
        ("ctrl-supp", "control.txt")
    ], CONTROL_NOTE)
    return files
