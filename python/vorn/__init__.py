"""Photogrammetric bundle adjustment.

>>> import vorn
>>> result = vorn.adjust("examples/close-range-calibration/close-range-calibration.ctl", rigorous=True)
>>> result.converged
True
>>> result.point_coordinates.shape == result.point_std_devs.shape == (result.points.num_rows, 3)
True

docs/python.md describes all functions, arrays and columns.
"""

from __future__ import annotations

import json
import os
from numbers import Integral
from pathlib import Path
from typing import Any, Callable, Iterable, Union

from . import _core
from ._results import (
    AdditionalParameters,
    Adjustment,
    Camera,
    Error,
    Finding,
    Iteration,
    Orientations,
    Progress,
    Table,
)

__all__ = [
    "AdditionalParameters",
    "Adjustment",
    "Camera",
    "Error",
    "Finding",
    "Iteration",
    "Orientations",
    "Progress",
    "Table",
    "adjust",
    "check",
    "export_project",
    "import_project",
]
__version__: str = _core.version
for _class in (AdditionalParameters, Adjustment, Camera, Error, Finding, Iteration, Orientations,
               Progress, Table):
    _class.__module__ = __name__

# The threads of a process do not survive its fork, and nobody tells those who wait for them.
_is_forked = False


def _note_fork() -> None:
    global _is_forked
    _is_forked = True


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_note_fork)

PathLike = Union[str, "os.PathLike[str]"]
ProgressCallback = Callable[[Progress], Any]


def adjust(
    project: PathLike,
    *,
    rigorous: bool = False,
    damped: bool = False,
    solve: bool = False,
    robust: str | None = None,
    robust_scale: float = 3.0,
    keep_robust: bool = False,
    quality: bool = True,
    prior: bool = False,
    datum: str = "given",
    datum_points: str | Iterable[str] | None = None,
    exclude: PathLike | None = None,
    cameras: bool = False,
    lenient: bool = False,
    allow_outside: bool = False,
    threads: int | None = None,
    progress: ProgressCallback | None = None,
) -> Adjustment:
    """Adjusts the project of a control file, writes its files, and returns everything.

    The files are those of ``vorn adjust``; a run that fails leaves earlier ones as they were.

    rigorous
        Exact derivatives: with free additional parameters the solution is the least-squares minimum.
    damped
        Damped steps (Levenberg-Marquardt), for poor approximate values.
    solve
        Both of them.
    robust
        ``"huber"``, ``"cauchy"`` or ``"geman-mcclure"``: damped steps that begin with large
        residuals weighted down. ``robust_scale`` is where the loss begins to bend, in units of the
        a-priori sigma; ``keep_robust`` finishes with the weights of the robust start.
    quality
        Standard deviations, reliability and diagnosis. False saves their time and memory.
    prior
        Standard deviations from sigma 0 a priori.
    datum
        Of the standard deviations: ``"given"``, or ``"inner"`` (of the free network), formed over
        all points or those of ``datum_points``.
    exclude
        File with a list of observations to leave out.
    cameras
        Writes the camera result file, too.
    lenient
        Adjusts also when words of the data files cannot be what they should.
    allow_outside
        Files of the normal equations may stand outside the project's folder.
    threads
        Number of threads that work at it; None: one per core. The results are the same.
    progress
        Is called with a `Progress` at each stage, during reading and writing, and after each
        iteration. When it returns False, the running iteration is the last one. What it raises ends
        the run and is raised here. It must not start another run.

    Raises `Error` when there are no results. Ctrl-C ends the run after the running iteration.
    Other Python threads go on meanwhile; calls of several threads wait for one another.

    >>> sigmas = []
    >>> def watch(progress):
    ...     if progress.iteration is not None:
    ...         sigmas.append(progress.iteration.sigma0)
    >>> result = vorn.adjust("examples/aerial-block/aerial-block.ctl", progress=watch)
    >>> len(sigmas) == len(result.iterations)
    True
    >>> vorn.adjust("missing.ctl")
    Traceback (most recent call last):
        ...
    vorn.Error: no such control file: missing.ctl
    """
    options = {
        **_estimation(rigorous, damped, solve, robust, robust_scale, keep_robust),
        **_running(lenient, allow_outside, threads),
        **_datum(datum, datum_points),
        "quality": quality,
        "prior": prior,
        "exclude": b"" if exclude is None else _path(exclude),
        "cameras": cameras,
    }
    path = _path(project)
    raw = _call(lambda: _core.adjust(path, options, _teller(progress)))
    _refuse_failure(raw)
    return Adjustment(raw, Path(project))


def check(project: PathLike) -> list[Finding]:
    """Looks a project through without adjusting it. Empty when there is nothing to say.

    Raises `Error` when the control file cannot be read.

    >>> findings = vorn.check("examples/aerial-block/aerial-block.ctl")
    >>> [str(finding) for finding in findings if finding.severity == "error"]
    []
    """
    is_read, findings = _call(lambda: _core.check(_path(project)))
    if not is_read:
        raise Error(f"the control file cannot be read: {os.fspath(project)}")
    return [Finding(**finding) for finding in findings]


def import_project(
    format: str,
    source: PathLike,
    directory: PathLike,
    *,
    name: str = "project",
    pixel_size: float = 5.0,
    sigma: float = 1.0,
    free: str | Iterable[str] = "none",
    datum: str | None = None,
    scale: float = 1.0,
    max_error: float = 0.0,
    gcp: PathLike | None = None,
    gcp_sigma: float = 0.01,
    check: Iterable[str] = (),
) -> Path:
    """Makes a project of a reconstruction, as ``vorn import``. Returns the control file's path.

    format
        ``colmap``, ``bal``, ``bundler``, ``openmvg``, ``opensfm`` or ``metashape``.
    directory
        Folder of the new project.
    pixel_size
        [um]; ``sigma`` [px] is the standard deviation of image coordinates.
    free
        ``"none"``, ``"model"``, or parameters: ``"f,pp,k1"`` or ``["f", "pp", "k1"]``.
    datum
        ``"image"``, ``"points"`` or ``"none"``; None: ``"none"`` with a control list, else
        ``"image"``.
    max_error
        Leaves out rays with larger residuals [px]; 0 for no limit.
    gcp
        Control list to lay over; ``gcp_sigma`` is the standard deviation of its coordinates, and
        the points ``check`` take no part and are checked.

    Raises `Error`, and leaves no project, when the source is damaged or has no exact counterpart.
    """
    options: dict[str, Any] = {
        "format": format,
        "source": _path(source),
        "directory": _path(directory),
        "name": name,
        "pixel_size": float(pixel_size),
        "sigma": float(sigma),
        "free": free if isinstance(free, str) else ",".join(free),
        "scale": float(scale),
        "max_error": float(max_error),
        "gcp_sigma": float(gcp_sigma),
    }
    if datum is not None:
        options["datum"] = datum
    if gcp is not None:
        options["gcp"] = _path(gcp)
    options["check"] = check if isinstance(check, str) else ",".join(check)
    _call(lambda: _core.import_project(options))
    return Path(directory) / f"{name}.ctl"


def export_project(
    project: PathLike,
    format: str,
    output: PathLike,
    *,
    given: bool = False,
    crs: str = "",
    exaggerate: float = 1.0,
    ellipses: bool = True,
    pixel_size: float = 0.0,
    rigorous: bool = False,
    damped: bool = False,
    solve: bool = False,
    robust: str | None = None,
    robust_scale: float = 3.0,
    keep_robust: bool = False,
    lenient: bool = False,
    allow_outside: bool = False,
    threads: int | None = None,
    progress: ProgressCallback | None = None,
) -> str:
    """Adjusts a project and writes it in another format, as ``vorn export``. Returns the summary.

    format
        ``colmap``, ``colmap-binary``, ``bal``, ``bundler``, ``ply``, ``csv``, ``geojson``, ``gpkg``.
    given
        The project as its files give it, not adjusted; the options of the adjustment have no effect.
    crs
        Coordinate system of layers, such as ``"EPSG:25832"``.
    exaggerate
        Factor of vectors and ellipses in layers.
    ellipses
        False leaves error ellipses out, which take time.
    pixel_size
        [um] of cameras that measure in lengths; 0: as the import noted it, or 5.

    The other options and `Error` are those of `adjust`.
    """
    path = _path(project)
    options = {
        "format": format,
        "output": _path(output),
        "crs": crs,
        "exaggerate": float(exaggerate),
        "ellipses": ellipses,
        "pixel_size": float(pixel_size),
    }
    if given:
        return _call(lambda: _core.export_given(path, options))
    run_options = {
        **_estimation(rigorous, damped, solve, robust, robust_scale, keep_robust),
        **_running(lenient, allow_outside, threads),
    }
    raw = _call(lambda: _core.export_adjusted(path, options, run_options, _teller(progress)))
    _refuse_failure(raw)
    return raw["messages"]


def _path(path: PathLike) -> bytes:
    """A path as the bytes of its file name."""
    return os.fsencode(path)


def _estimation(
    rigorous: bool,
    damped: bool,
    solve: bool,
    robust: str | None,
    robust_scale: float,
    keep_robust: bool,
) -> dict[str, Any]:
    return {
        "rigorous": rigorous or solve,
        "damped": damped or solve,
        "robust": robust or "",
        "robust_scale": float(robust_scale),
        "keep_robust": keep_robust,
    }


def _running(lenient: bool, allow_outside: bool, threads: int | None) -> dict[str, Any]:
    most = _core.most_threads
    if threads is not None and not (isinstance(threads, Integral) and 1 <= threads <= most):
        raise Error(f"threads must be a number from 1 to {most}")
    return {
        "lenient": lenient,
        "allow_outside": allow_outside,
        "threads": 1 if _is_forked else threads or 0,
    }


def _datum(datum: str, points: str | Iterable[str] | None) -> dict[str, Any]:
    if datum not in ("given", "inner"):
        raise Error(f"no datum '{datum}'; there are given, inner")
    if points is not None and datum != "inner":
        raise Error('datum_points need datum="inner"')
    ids: list[str] = []
    if points is not None:
        ids = [points] if isinstance(points, str) else [str(point) for point in points]
        if not ids:
            raise Error("datum_points names no point")
    return {"inner_datum": datum == "inner", "datum_points": ids}


def _call(call: Callable[[], Any]) -> Any:
    try:
        return call()
    except _core.CallError as wrong:
        raise Error(str(wrong)) from None
    except MemoryError:
        raise Error("there is not enough memory for this project") from None


def _teller(progress: ProgressCallback | None) -> Callable[[dict[str, Any]], Any] | None:
    """What the extension module calls to show a `Progress`."""
    if progress is None:
        return None

    def tell(event: dict[str, Any]) -> Any:
        iteration = event["iteration"]
        return progress(
            Progress(
                event["stage"],
                event["fraction"],
                None if iteration is None else Iteration(**iteration),
            )
        )

    return tell


def _refuse_failure(raw: dict[str, Any]) -> None:
    """Raises what a run that has no results came to."""
    if raw["completed"]:
        return
    document = raw["failure_document"]
    diagnosis = None if document is None else json.loads(document)["diagnosis"]
    findings = [Finding(**finding) for finding in raw["findings"]]
    messages = raw["messages"].splitlines()
    report = Path(raw["failed_report"])
    raise Error(
        _reason(raw, findings, diagnosis, messages),
        messages=messages,
        findings=findings,
        diagnosis=diagnosis,
        report=report if report.is_file() else None,
    )


def _reason(
    raw: dict[str, Any],
    findings: list[Finding],
    diagnosis: dict[str, Any] | None,
    messages: list[str],
) -> str:
    """Why a run has no results, in a sentence."""
    if raw["obstacles"]:
        return "; ".join(raw["obstacles"]).replace("--allow-outside", "allow_outside=True")
    if raw["failures"]:
        return "not complete: " + "; ".join(raw["failures"])
    errors = [finding for finding in findings if finding.severity == "error"]
    if errors:
        others = f" (and {len(errors) - 1} others)" if len(errors) > 1 else ""
        return f"the data files have errors: {errors[0]}{others}"
    for finding in (diagnosis or {}).get("findings", []):
        if finding["severity"] == "error":
            return f"{finding['message']} {finding['remedy']}"
    if raw["lost"]:
        return "too few measurements are left for " + ", ".join(raw["lost"][:10])
    said = [line.strip("* ") for line in messages if "ERROR" in line]
    return said[-1] if said else "the adjustment failed; its report says why"
