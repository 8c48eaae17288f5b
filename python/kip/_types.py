"""The package's records and its exception."""

from typing import NamedTuple, Optional, Tuple, Type

import numpy as np
import numpy.typing as npt


class Error(ValueError):
    """A status with which the library refused or ended an operation.

    Attributes:
        status: the status of the C interface, a negative int.
        name: its name there, for example 'kip_statusTransformWouldClip'.
    """

    status: int
    name: str

    def __init__(self, message: str, status: int = 0, name: str = "") -> None:
        super().__init__(message)
        self.status = status
        self.name = name

    def __reduce__(self) -> Tuple[Type["Error"], Tuple[str, int, str]]:
        return type(self), (str(self), self.status, self.name)


class MeanProfile(NamedTuple):
    """The profile of a rectangle that may reach outside its picture, as project_mean gives it.

    Attributes:
        means: array of shape (width,), float64: the mean, in grey levels, of those samples of each column that lie
            inside the picture; NaN for a column without any.
        coverage: array of shape (width,), float64: the share of each column that lies inside, from 0 to 1.
    """

    means: npt.NDArray[np.float64]
    coverage: npt.NDArray[np.float64]


class Edge(NamedTuple):
    """A place in a profile where the grey level changes, as find_edges gives it.

    Attributes:
        position: along the profile, in columns: column i covers i to i + 1, so its middle is i + 0.5.
        contrast: the change in grey levels; above 0 where the profile becomes brighter.
        point: its place (x, y) in the picture, on the rectangle's centre line; None without a rectangle.
    """

    position: float
    contrast: float
    point: Optional[Tuple[float, float]]


for _shown in (Error, MeanProfile, Edge):
    _shown.__module__ = "kip"
del _shown
