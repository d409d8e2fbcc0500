"""Adjusts copies of the examples and reads their result files, for the scripts that draw them."""

import math
import pathlib
import shutil
import subprocess

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
RADIANS = {"rad": 1.0, "deg": math.pi / 180, "gon": math.pi / 200}


def run(vorn, scratch, example, control_file=None, without=()):
    """Adjusts a copy of an example, without the data of some keywords; the folder of the results."""
    name = control_file or example
    folder = pathlib.Path(scratch) / "-".join([name, *without])
    shutil.copytree(REPOSITORY / "examples" / example, folder)
    path = folder / f"{name}.ctl"
    lines = path.read_text().splitlines(keepends=True)
    path.write_text("".join(line for line in lines if line.split()[:1] not in [[w] for w in without]))
    subprocess.run([vorn, "adjust", path, "--cameras"], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return folder


def result(folder, extension):
    return next(folder.glob(f"*.{extension}")).read_text()


def rotation(omega, phi, kappa):
    """Rx(omega) Ry(phi) Rz(kappa), image to object space."""
    so, co, sp, cp, sk, ck = (f(a) for a in (omega, phi, kappa) for f in (math.sin, math.cos))
    return [[cp * ck, -cp * sk, sp],
            [co * sk + so * sp * ck, co * ck - so * sp * sk, -so * cp],
            [so * sk - co * sp * ck, so * ck + co * sp * sk, co * cp]]


def orientations(ext):
    """Identifier, projection centre and rotation matrix of each orientation of a .ext file."""
    words = ext.split()[1:]
    stations = []
    while words[0] != "stop-dep":
        factor = RADIANS[words[2]]
        stations.append((words[1], [float(w) for w in words[4:7]],
                         rotation(*(factor * float(w) for w in words[10:13]))))
        words = words[16:]
    return stations


def object_points(ocs):
    """Identifier and coordinates of each point of a .ocs file."""
    return [(words[0], [float(w) for w in words[1:4]])
            for words in (line.split() for line in ocs.splitlines()[:-1])]


def comparison(text):
    """Rows (ID, X Y Z, dX dY dZ) of a .gcpres or .chp file; None where nothing was compared."""
    rows = []
    for line in text.splitlines()[5:]:
        words = line.split()
        if len(words) != 7:  # the summary begins
            break
        rows.append((words[0], [float(w) for w in words[1:4]],
                     [None if w == "---" else float(w) for w in words[4:7]]))
    return rows


def adjusted_minus_given(folder):
    """Rows of the control points and of the check points, both with adjusted minus given."""
    checks = [(name, xyz, [None if d is None else -d for d in differences])
              for name, xyz, differences in comparison(result(folder, "chp"))]
    return comparison(result(folder, "gcpres")), checks


def measurements(folder):
    """(image, point): measured x, y, times the factor of the image."""
    measured = {}
    lines = iter((folder / "image-coords.txt").read_text().splitlines())
    for line in lines:
        if not line.strip():
            continue
        if line.startswith("stop-dep"):
            break
        image, factor = line.split()[:2]
        for row in lines:
            words = row.split()
            if words[0] in ("-1", "stop-dep"):
                break
            measured[image, words[0]] = [float(w) * float(factor) for w in words[1:3]]
    return measured


def residuals(res):
    """(image, point): vx, vy [um] of a .res file."""
    found = {}
    lines = iter(res.splitlines())
    for line in lines:
        if line == "stop-dep":
            break
        for row in lines:
            words = row.split()
            if words[0] == "stop-dep":
                break
            found[line, words[0]] = [float(w) for w in words[1:3]]
    return found


def last_sigma0(out):
    """Sigma 0 of the last iteration [um], as the report prints it."""
    return [line for line in out.splitlines() if line.startswith("Sigma 0 a post")][-1].split()[-2]
