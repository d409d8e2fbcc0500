"""The layouts of the project files, with a key to their columns behind their end."""

FREE = 1e31  # standard deviation that says: no a-priori information
FIXED = 1e-31  # standard deviation that says: hold this value


def sd(value, form="{:.3f}", width=0):
    """A standard deviation as a surveyor writes it: 1e31 free, 1e-31 fixed, else a number."""
    text = {FREE: "1e31", FIXED: "1e-31"}.get(value) or form.format(value)
    return text.rjust(width)


def record_list(rows, heading):
    """Rows of text under a heading, closed by the end word of a file."""
    return "\n".join(heading + rows + ["stop-dep", ""])


def control_file(pairs, note):
    rows = ["{:<15} {}".format(*pair) for pair in pairs]
    return record_list(rows, []) + "\n" + note


def image_file(ids, camera, note):
    width = max(len(i) for i in ids)
    rows = ["image-frame  {0:<{2}}  {0:<{2}}  {1}".format(i, camera, width) for i in ids]
    return record_list(rows, []) + "\n" + note


def point_file(points, decimals, common, note):
    """Object coordinates; points are (id, XYZ, sXYZ), common is one sXYZ for all or None."""
    heading = ["indiv-sdev"] if common is None else \
        ["common-sdev", "  ".join(sd(s) for s in common)]
    number = "{:" + str(decimals + 8) + "." + str(decimals) + "f}"
    rows = []
    for name, xyz, sdevs in points:
        row = "{:<6}".format(name) + " ".join(number.format(v) for v in xyz)
        if common is None:
            row += "   " + " ".join(sd(s, width=6) for s in sdevs)
        rows.append(row)
    return record_list(rows, heading) + "\n" + note


def image_coords_file(images, factor, number, sigma, note):
    """images: list of (image id, list of (point id, x, y)); sigma: text of one coordinate's."""
    rows = []
    for image, points in images:
        rows.append("{}  {}".format(image, factor))
        for name, x, y in points:
            rows.append("  {:<6} {} {}  {} {}".format(name, number.format(x), number.format(y),
                                                      sigma, sigma))
        rows += ["-1", ""]
    return record_list(rows, []) + "\n" + note


def orientation_rows(name, unit_word, time, centre, centre_sdev, angles, angle_sdev, decimals):
    """One "ext-ori-opk-rot" record; angles and their sdev already in the unit."""
    for_centre, for_angles = ("{:." + str(d) + "f}" for d in decimals)
    angles = [round(a, decimals[1]) + 0.0 for a in angles]  # + 0.0 turns -0.0 into 0.0
    return [
        "ext-ori-opk-rot  {}  {}  {:.3f}".format(name, unit_word, time),
        "  " + " ".join(for_centre.format(v).rjust(11) for v in centre),
        "  " + " ".join([sd(centre_sdev, for_centre, 11)] * 3),
        "  " + " ".join(for_angles.format(v).rjust(11) for v in angles),
        "  " + " ".join([sd(angle_sdev, for_angles, 11)] * 3),
    ]


CONTROL_NOTE = """\
Keyword and file, read in this order: cameras before images, images before their
coordinates, object points before their roles.
"""

ROLE_NOTE = """\
ID, role, components. co: control (fixed in the components named, free in the others),
ch: check (free, compared afterwards), in: intersection (free).
"""

PARAMS_NOTE = """\
Reading stops after the 18th value, so this key does no harm. Line by line:
  single-ray option
  print: check of approximations, check of rays, intersections, image coordinates
  print in each iteration: points, orientations, AP sets, position cor., attitude cor.
  debug: table of unknowns, intersections
  grid of the AP effects: points in x and in y
  file names for the normal equations ("none": no file):
    structure of the matrix / matrix / right-hand side / solution
"""


def params_file(iteration_flags):
    return ("0\n0 1 1 0\n" + " ".join(str(f) for f in iteration_flags) +
            "\n0 0\n5 5\nnone\nnone\nnone\nnone\n\n" + PARAMS_NOTE)


LSPAR_NOTE = """\
Reading stops after the solver's name, so this key does no harm. Line by line:
  standard deviation of unit weight a priori [m]{sigma_note}
  largest number of iterations
  convergence test on (1) or off (0): points, centres, rotations, other geometries
  its limits: points, centres [object units], rotations [rad or 1], other geometries
  a std. dev. below the 1st means fixed, above the 2nd free; written to files: fixed, free
  weight that holds a fixed unknown, weight of a condition equation
  limit for correlations
  increments for numerical derivatives: points, angles [rad]
  limit of the significance test
  limit of the A'Pv check
  image residuals are listed from this size on [um]
  unit of object coordinates
  unit of angles in the results
  solver
"""


def lspar_file(sigma0, limits, residual_limit_um, angle_unit, sigma_note):
    return "\n".join([
        sigma0, "10", "1 1 1 1", limits, "1e-30 1e30  1e-31 1e31", "1e10 1e10", "0.8", "1.0 0.001",
        "1.96", "1e-4", residual_limit_um, "m", angle_unit, "native", "", ""
    ]) + LSPAR_NOTE.format(sigma_note=sigma_note)
