"""Convergent images of a test field with a distorted camera.

Object space in millimetres, image space in metres, unless a name says otherwise (_mm, _px).
"""

import math

from example_scenes.files import (
    CONTROL_NOTE, FIXED, FREE, ROLE_NOTE, control_file, image_coords_file, image_file,
    lspar_file, record_list, params_file, point_file, sd)
from example_scenes.simulation import (
    DEG, Noise, add, in_front, opk_from_rotation, project, rotation_towards, scale, unit)

C = 28.0  # mm, nominal: the camera file gives it, the AP set corrects it
PIXEL_MM = 0.006
COLUMNS, ROWS = 6000, 4000
SIGMA_PX = 0.1

# Truth of the AP set, SI units, in the order of the file.
AP = [("dxp", 0.120e-3), ("dyp", -0.085e-3), ("dc", 0.340e-3), ("K1", -22.0), ("K2", 1.4e4),
      ("K3", 0.0), ("P1", 6.0e-3), ("P2", -4.0e-3), ("b1", 1.8e-4), ("b2", -0.9e-4)]


def australis_correction(x, y, c):
    """Correction (dx, dy) of the true AP set at the ideal reduced point (x, y) [m]."""
    a = dict(AP)
    r2 = x * x + y * y
    radial = a["K1"] * r2 + a["K2"] * r2 * r2 + a["K3"] * r2 * r2 * r2
    dx = (a["dxp"] + x / c * a["dc"] + x * radial + (r2 + 2 * x * x) * a["P1"] +
          2 * x * y * a["P2"] + x * a["b1"] + y * a["b2"])
    dy = (a["dyp"] + y / c * a["dc"] + y * radial + 2 * x * y * a["P1"] +
          (r2 + 2 * y * y) * a["P2"])
    return dx, dy


def make_field():
    """Targets on rods of different height over a plate of 2.4 m x 2.4 m, in mm."""
    return {"{}{}".format(i + 1, j + 1):
            [300.0 * i - 1200.0 + 23.0 * ((2 * i + 3 * j) % 5 - 2),
             300.0 * j - 1200.0 + 19.0 * ((3 * i + 4 * j) % 5 - 2),
             130.0 * ((3 * i + 5 * j + i * j) % 6)] for i in range(9) for j in range(9)}


def place_stations(noise):
    """True orientations in mm: a ring of 12, a steep ring of 4, four from above; all rolled."""
    views = [(30.0 * i, 47.0, [0.0, 90.0, 0.0, -90.0][i % 4]) for i in range(12)]
    views += [(45.0 + 90.0 * i, 66.0, [180.0, 90.0, 0.0, -90.0][i]) for i in range(4)]
    views += [(0.0, 90.0, 90.0 * i) for i in range(4)]
    stations = []
    for i, (azimuth, elevation, roll) in enumerate(views):
        a, e = azimuth * DEG, elevation * DEG
        away = [math.cos(e) * math.cos(a), math.cos(e) * math.sin(a), math.sin(e)]
        centre = add(scale(away, 3050.0), [noise.uniform(-140.0, 140.0) for _ in range(3)])
        target = [noise.uniform(-120.0, 120.0) for _ in range(2)] + [280.0]
        rotation = rotation_towards(centre, target, (roll + noise.uniform(-4.0, 4.0)) * DEG)
        stations.append(("P{:02d}".format(i + 1), centre, rotation))
    return stations


def measure(noise, stations, field):
    images = []
    for name, centre, rotation in stations:
        rows = []
        for point, xyz in field.items():
            if not in_front(rotation, centre, xyz):
                continue
            c = C * 1e-3
            x, y = project(rotation, centre, c, xyz)
            dx, dy = australis_correction(x, y, c)
            column = 1e3 * (x + dx) / PIXEL_MM + 0.5 * (COLUMNS - 1)
            row = 0.5 * (ROWS - 1) - 1e3 * (y + dy) / PIXEL_MM
            missed = noise.uniform(0.0, 1.0) < 0.04  # hidden or blurred
            if missed or not (20 < column < COLUMNS - 20 and 20 < row < ROWS - 20):
                continue
            rows.append((point, column + noise.normal(SIGMA_PX),
                         row + noise.normal(SIGMA_PX)))
        images.append((name, rows))
    return images


def orientation_file(noise, stations):
    heading = ["common-type", "ext-ori-opk-rot  deg  0  0", "1e31 1e31 1e31   1e31 1e31 1e31"]
    rows = []
    for name, centre, rotation in stations:
        rough = [round((v + noise.normal(25.0)) / 10.0) * 10.0 for v in centre]
        angles = [round(a / DEG + noise.normal(0.5), 1) for a in opk_from_rotation(rotation)]
        rows.append("{:<4} ".format(name) + " ".join("{:8.0f}".format(v) for v in rough) + "   " +
                    " ".join("{:7.1f}".format(a) for a in angles))
    return record_list(rows, heading) + "\n" + """\
Head: type of all records, angle unit, no exposure times (0), no rotation matrices (0);
std. devs. of centre and angles of all records: free. Records: ID, Xo Yo Zo [mm], omega phi
kappa: approximations, good to some centimetres and half a degree.
"""


CONTROL = ["11", "19", "91", "99", "55", "37"]
CHECK = ["14", "26", "33", "48", "62", "67", "74", "85", "96"]


def approximation_file(noise, field):
    rows = []
    for name, xyz in field.items():
        if name in CONTROL:
            known = xyz
        elif name in CHECK:
            known = add(xyz, noise.normals(0.01, 0.01, 0.01))
        else:
            known = [round((v + noise.normal(4.0)) / 10.0) * 10.0 for v in xyz]
        rows.append((name, known, None))
    return point_file(rows, 3, [FREE] * 3, """\
Std. devs. of all points (free; control.txt fixes some), then ID, X Y Z [mm]. Control and
check points are calibrated, the others are read from the drawing to the centimetre.
""")


def ap_set_file():
    sdevs = {"K3": FIXED, "b1": 1e-3, "b2": 1e-3}
    rows = ["australis  selfcal  slr"]
    rows += ["  {:>4}  {}".format("0.0", sd(sdevs.get(name, FREE), "{:.0e}"))
             for name, _ in AP]
    return record_list(rows, []) + "\n" + """\
Model, ID, ID of the camera; then value and std. dev. of dxp dyp dc K1 K2 K3 P1 P2 b1 b2 (m,
and powers of 1/m). Start at zero, all free (1e31) but K3, which is held at zero (1e-31), and
b1 b2, which are observed as zero with a generous 1e-3.
"""


def image_point_table(images):
    rows = ["image,point,column,row"]
    rows += ["{},{},{:.3f},{:.3f}".format(name, *row) for name, points in images for row in points]
    return "\n".join(rows) + "\n"


def control_table(object_coords):
    """Control and check points as a surveyor would hand them over."""
    rows = ["point,X,Y,Z,use"]
    for words in map(str.split, object_coords.splitlines()):
        if words and words[0] in CONTROL + CHECK and len(words) == 4:
            rows.append(",".join(words) + (",check" if words[0] in CHECK else ","))
    return "\n".join(rows) + "\n"


def make():
    noise = Noise(2)
    field = make_field()
    stations = place_stations(noise)
    images = measure(noise, stations, field)
    files = {
        "orientations.txt": orientation_file(noise, stations),
        "object-coords.txt": approximation_file(noise, field),
        "ap-set.txt": ap_set_file(),
        "params.txt": params_file([0, 0, 1, 0, 0]),
        "lspar.txt": lspar_file("6e-7", "0.001 0.001 1e-6 1e-8", "1.8", "deg",
                                ": 0.1 pixel of 6 um"),
    }
    roles = ["{:<3} co xyz".format(p) for p in CONTROL] + ["# checked"] + \
        ["{:<3} ch xyz".format(p) for p in CHECK]
    files["control.txt"] = record_list(roles, ["# datum: fixed"]) + "\n" + ROLE_NOTE
    files["image-coords.txt"] = image_coords_file(images, "1", "{:9.3f}", "0.1", """\
Per image: ID and a factor (1: the file is in pixels, as the camera wants), then point ID,
column row, their std. devs.; -1 ends the image, stop-dep the file.
""")
    files["images.txt"] = image_file([s[0] for s in stations], "slr", """\
Type, image ID, ID of its orientation, ID of its camera.
""")
    files["camera.txt"] = record_list([
        "camera-ccd  slr  wide-angle", "  28.0", "   0.0  0.0", "  6000  4000", "  6.0  6.0"
    ], []) + "\n" + """\
Type, ID, comment (one word); principal distance [mm]; principal point xp yp [mm]; columns and rows;
pixel size along a row and along a column [um]. Nominal values: ap-set.txt corrects them.
"""
    files["close-range-calibration.ctl"] = control_file([
        ("params", "params.txt"), ("ls-params", "lspar.txt"), ("camera", "camera.txt"),
        ("image", "images.txt"), ("image-geometry", "orientations.txt"),
        ("image-crds", "image-coords.txt"), ("obj-crds", "object-coords.txt"),
        ("ctrl-supp", "control.txt"), ("ap-set", "ap-set.txt")
    ], CONTROL_NOTE)
    files["image-points.csv"] = image_point_table(images)
    files["control-points.csv"] = control_table(files["object-coords.txt"])
    return files
