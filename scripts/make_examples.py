#!/usr/bin/env python3
"""Write the three example projects of examples/ from simulated measurements.

    scripts/make_examples.py            rewrite the projects in examples/
    scripts/make_examples.py DIR        write them below DIR
    scripts/make_examples.py --check    compare examples/ with a fresh simulation

Every project is simulated in the same three steps: a true scene (points, orientations, camera),
its exact projections, and noise that is added separately to the measurements, to the surveyed
coordinates and to the approximate orientations. All of it follows from one fixed seed per
project, so the same files come out every time. The scenes are in example_scenes/; the READMEs
beside the data are written by hand and quote the figures set there.
"""

import os
import sys

sys.dont_write_bytecode = True  # leave no caches in the source tree

from example_scenes import aerial_block, close_range, pushbroom  # noqa: E402

PROJECTS = [("aerial-block", aerial_block.make), ("close-range-calibration", close_range.make),
            ("pushbroom-strip", pushbroom.make)]


def main(arguments):
    here = os.path.dirname(os.path.abspath(__file__))
    check = arguments == ["--check"]
    if len(arguments) > 1 or (arguments and arguments[0].startswith("-") and not check):
        sys.stderr.write(__doc__)
        return 2
    root = os.path.join(here, "..", "examples") if check or not arguments else arguments[0]
    differing = []
    for project_name, make in PROJECTS:
        directory = os.path.join(root, project_name)
        if not check:
            os.makedirs(directory, exist_ok=True)
        for name, text in sorted(make().items()):
            path = os.path.join(directory, name)
            if check:
                if not os.path.exists(path) or open(path, newline="").read() != text:
                    differing.append(os.path.join(project_name, name))
                continue
            with open(path, "w", newline="\n") as out:
                out.write(text)
    for path in differing:
        print("differs from its simulation: " + path)
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
