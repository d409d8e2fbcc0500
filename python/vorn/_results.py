"""What calls return: plain objects with numpy arrays."""

from __future__ import annotations

import json
from dataclasses import dataclass
from pathlib import Path
from typing import TYPE_CHECKING, Any, Iterator, Mapping

import numpy as np

if TYPE_CHECKING:
    import pandas


@dataclass(frozen=True)
class Finding:
    """Something wrong, doubtful or worth knowing about the files of a project."""

    severity: str
    """``error``, ``warning`` or ``note``."""
    code: str
    """Such as ``number-expected``; docs/checking.md lists them."""
    file: str
    """The data file, as the control file names it."""
    line: int
    """Of the word meant, from 1; 0 where no word is meant."""
    column: int
    object_type: str
    """What it is about; this and the next three are empty where they do not apply."""
    object_id: str
    image: str
    parameter: str
    message: str
    help: str
    """What usually helps; may be empty."""

    def __str__(self) -> str:
        place = f"{self.file}:{self.line}:{self.column}" if self.line else self.file
        return f"{place}{': ' if place else ''}{self.severity}: {self.message}"


class Error(RuntimeError):
    """A call that has no result. ``str(error)`` says why."""

    def __init__(
        self,
        message: str,
        *,
        messages: list[str] | None = None,
        findings: list[Finding] | None = None,
        diagnosis: dict[str, Any] | None = None,
        report: Path | None = None,
    ) -> None:
        super().__init__(message)
        self.messages = messages or []
        """The lines that the library printed."""
        self.findings = findings or []
        """What is wrong with the data files."""
        self.diagnosis = diagnosis
        """What is wrong with a network that cannot be adjusted, or None."""
        self.report = report
        """Path of the report of a run that failed, or None."""


@dataclass(frozen=True)
class Iteration:
    """What an iteration came to. Changes are the largest corrections; NaN where there is none."""

    number: int
    """From 1."""
    sigma0: float
    """A posteriori [m], as the linearised equations predict it; 0 without redundancy."""
    vtpv: float
    """Weighted sum of squares [m2], predicted likewise."""
    redundancy: int
    max_change_point: float
    """[unit of object space], likewise the next one."""
    max_change_centre: float
    max_change_rotation: float
    """[rad], of quaternions [1]."""
    max_change_geometry: float
    moving: tuple[str, str, str] | None
    """Kind, identifier and parameter of the first one beyond its limit; None when converged."""


@dataclass(frozen=True)
class Progress:
    """How far a run is."""

    stage: str
    """``reading``, ``initialisation``, ``iterations`` or ``writing``."""
    fraction: float
    """The part of reading or writing that is done, from 0 to 1; 0 in the other stages."""
    iteration: Iteration | None
    """The iteration that has ended, or None."""


class Table(Mapping[str, np.ndarray]):
    """Columns of equal length, by name: a mapping of numpy arrays."""

    def __init__(self, name: str, columns: dict[str, np.ndarray], units: dict[str, str]) -> None:
        self.name = name
        self.units = units
        """Per column its unit (``m``, ``rad``, ``1``) or kind (``id``, ``text``, ...)."""
        self._columns = columns

    def __getitem__(self, column: str) -> np.ndarray:
        return self._columns[column]

    def __iter__(self) -> Iterator[str]:
        return iter(self._columns)

    def __len__(self) -> int:
        return len(self._columns)

    @property
    def num_rows(self) -> int:
        """Number of rows; ``len(table)`` is that of columns."""
        return len(next(iter(self._columns.values()), ()))

    def array(self, *columns: str) -> np.ndarray:
        """Columns of numbers side by side, (rows, columns)."""
        return np.column_stack([self._columns[column] for column in columns])

    def to_pandas(self) -> pandas.DataFrame:
        """The table as a DataFrame. Raises `Error` where pandas is missing."""
        try:
            import pandas
        except ImportError:
            raise Error("to_pandas() needs pandas (Debian: python3-pandas)") from None
        return pandas.DataFrame(self._columns)

    def __repr__(self) -> str:
        return f"<Table {self.name}: {self.num_rows} rows, {', '.join(self._columns)}>"


@dataclass(frozen=True)
class Orientations:
    """The images' orientations, row by row. NaN where a geometry is no exterior orientation."""

    image: np.ndarray
    """Identifiers of the images."""
    orientation: np.ndarray
    """Identifiers of their orientations."""
    type: np.ndarray
    """Keywords such as ``ext-ori-opk-rot``."""
    centre: np.ndarray
    """Projection centres, (n, 3), corrections included."""
    rotation: np.ndarray
    """Rotation matrices from image to object space, (n, 3, 3), corrections included."""


@dataclass(frozen=True)
class AdditionalParameters:
    """A set of additional parameters after the adjustment."""

    id: str
    model: str
    """Keyword such as ``australis``."""
    values: dict[str, float]
    """By name; lengths in metres."""


@dataclass(frozen=True)
class Camera:
    """A camera as its file has it, lengths in metres, with its adjusted sets."""

    id: str
    type: str
    comment: str
    c: float
    """Focal length; ``dc`` of a set adds to it."""
    xp: float
    """Principal point; ``dxp`` and ``dyp`` of a set add to it."""
    yp: float
    width: float
    """Of the format."""
    height: float
    columns: int | None
    """Pixels of a digital camera; None for others, likewise the next three."""
    rows: int | None
    pixel_x: float | None
    pixel_y: float | None
    sets: list[AdditionalParameters]


class Adjustment:
    """An adjusted project. Lengths are metres, angles radians, object coordinates in their unit."""

    def __init__(self, raw: dict[str, Any], project: Path) -> None:
        self.project = project
        """Path of the control file."""
        self.converged: bool = raw["converged"]
        """False when the iterations ended before all corrections were within their limits."""
        self.messages: list[str] = raw["messages"].splitlines()
        """The lines that the library printed."""
        self.findings = [Finding(**finding) for finding in raw["findings"]]
        """What is doubtful or worth knowing about the data files."""
        self.files = [Path(file) for file in raw["files"]]
        """The files that were written."""
        self.seconds: dict[str, float] = raw["seconds"]
        """Wall-clock time: ``read``, ``initialise``, ``iterate``, ``write``."""
        self.document: dict[str, Any] = json.loads(raw["document"])
        """Everything but the tables, by the keys of docs/quality.schema.json."""
        self.tables = {
            name: Table(name, table["columns"], table["units"])
            for name, table in raw["tables"].items()
        }
        """All tables by name."""
        self.orientations = Orientations(**raw["orientations"])
        """Projection centres and rotations of the images."""
        self.cameras = [
            Camera(**{**camera, "sets": [AdditionalParameters(**s) for s in camera["sets"]]})
            for camera in raw["cameras"]
        ]
        """The cameras with their adjusted sets."""
        self.image_coordinates: np.ndarray = raw["image_coordinates"]
        """Measured image coordinates [m], (n, 2), in the order of ``image_points``."""

    @property
    def sigma0(self) -> float:
        """Standard deviation of unit weight a posteriori [m]; NaN without redundancy."""
        value = self.statistics["sigma0_posterior"]
        return float("nan") if value is None else value

    @property
    def sigma0_prior(self) -> float:
        """Standard deviation of unit weight a priori [m]."""
        return self.document["settings"]["sigma0_prior"]

    @property
    def redundancy(self) -> int:
        """Number of observations beyond those that are needed."""
        return self.statistics["redundancy"]

    @property
    def statistics(self) -> dict[str, Any]:
        """Counts, sums and the global test."""
        return self.document["statistics"]

    @property
    def iterations(self) -> list[dict[str, Any]]:
        """One dict per iteration."""
        return self.document["iterations"]

    @property
    def groups(self) -> list[dict[str, Any]]:
        """Variance components; empty without quality."""
        return self.document.get("groups", [])

    @property
    def diagnosis(self) -> dict[str, Any] | None:
        """Components, datum, weakest unknowns and findings of the network; None without quality."""
        return self.document["diagnosis"]

    @property
    def quality_message(self) -> str | None:
        """Why there are no figures of quality although they were asked for; None otherwise."""
        return self.document.get("message")

    @property
    def points(self) -> Table:
        """Object points."""
        return self.tables["points"]

    @property
    def image_points(self) -> Table:
        """Image points with their residuals."""
        return self.tables["image_points"]

    @property
    def images(self) -> Table:
        """Images with the rms of their residuals."""
        return self.tables["images"]

    @property
    def parameters(self) -> Table:
        """All unknowns but those of points."""
        return self.tables["parameters"]

    @property
    def check_points(self) -> Table:
        """Differences of check points, given - adjusted."""
        return self.tables["check_points"]

    @property
    def point_coordinates(self) -> np.ndarray:
        """Adjusted coordinates of the object points, (n, 3)."""
        return self.points.array("x", "y", "z")

    @property
    def point_std_devs(self) -> np.ndarray:
        """Their standard deviations, (n, 3). Raises `Error` without quality."""
        if "sd_x" not in self.points:
            reason = self.quality_message or "adjust with quality=True"
            raise Error(f"there are no standard deviations: {reason}")
        return self.points.array("sd_x", "sd_y", "sd_z")

    @property
    def residuals(self) -> np.ndarray:
        """Residuals of the image coordinates [m], computed - measured, (n, 2)."""
        return self.image_points.array("vx", "vy")

    def __repr__(self) -> str:
        state = "converged" if self.converged else "not converged"
        return (
            f"<Adjustment of {self.project.name}: {state}, sigma 0 {self.sigma0 * 1e6:.3f} um, "
            f"{self.images.num_rows} images, {self.points.num_rows} points>"
        )
