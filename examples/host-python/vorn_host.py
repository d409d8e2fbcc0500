#!/usr/bin/env python3
"""A host that loads the library with ctypes and adjusts projects.

usage: vorn_host.py LIBRARY [--cameras] PROJECT...

Every project is adjusted by the same process, one after another. A line "PROJECT: completed" or
"PROJECT: failed" follows what the library printed. Exit status: 0 when all were completed, 1 when
one failed, 2 for wrong usage or a library that cannot be loaded.
"""

import contextlib
import ctypes
import os
import sys


@contextlib.contextmanager
def directory_kept():
    """A run leaves the process in the directory of its project; this returns to the present one."""
    directory = os.getcwd()
    try:
        yield
    finally:
        os.chdir(directory)


class Vorn:
    """The library's functions. One object serves a process; its runs must not overlap: ctypes lets
    other Python threads go on during a call, so only one thread may use it."""

    def __init__(self, path):
        # CDLL: C's own calling convention, on 32-bit Windows too.
        self._bundle = ctypes.CDLL(path).VornBundle
        self._bundle.argtypes = (ctypes.c_char_p, ctypes.c_int32)
        self._bundle.restype = ctypes.c_int32

    def adjust(self, project, cameras=False):
        """Adjusts the project of a control file. True when the adjustment was completed."""
        # The library takes the bytes that the system's file functions take: on Windows those of the
        # ANSI code page, elsewhere those of the file name.
        name = project.encode("mbcs") if os.name == "nt" else os.fsencode(project)
        sys.stdout.flush()
        with directory_kept():
            return self._bundle(name, cameras) == 1


def main(arguments):
    cameras = arguments[1:2] == ["--cameras"]
    projects = arguments[2:] if cameras else arguments[1:]
    if not projects:
        print("usage: vorn_host.py LIBRARY [--cameras] PROJECT...", file=sys.stderr)
        return 2
    try:
        vorn = Vorn(os.path.abspath(arguments[0]))
    except (OSError, AttributeError) as error:
        print(f"vorn_host.py: {error}", file=sys.stderr)
        return 2
    failed = 0
    for project in projects:
        completed = vorn.adjust(project, cameras)
        failed += not completed
        print(f"{project}: {'completed' if completed else 'failed'}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
