import datetime
import enum
from typing import Any, Sequence

import numpy as np
import numpy.typing as npt

__version__: str

class Epoch(enum.IntEnum):
    E1970 = 0
    E1900 = 1
    E1958 = 2
    JD = 3
    MJD = 4
    J2000 = 5

class TimeStandard(enum.IntEnum):
    TAI = 0
    UTC = 1
    TT = 2
    TDB = 3

_EpochLike = Epoch | str | int
_StandardLike = TimeStandard | str | int
_Reading = datetime.datetime | Sequence[float]

class KvDateTimeError(ValueError):
    identifier: str
    message: str
    index: int | None

class LeapSecondListExpiredWarning(UserWarning): ...

class LeapSecondTable:
    def __init__(self) -> None: ...
    @staticmethod
    def from_text(text: str) -> LeapSecondTable: ...
    @property
    def expires(self) -> int | None: ...
    @property
    def hash_checked(self) -> bool: ...

class DateTime:
    def __init__(
        self,
        reading: _Reading,
        epoch: _EpochLike = ...,
        standard: _StandardLike = ...,
        storage: str | None = None,
        *,
        signed: bool | None = None,
        word_length: int | None = None,
        fraction_length: int | None = None,
    ) -> None: ...
    @staticmethod
    def from_stored(
        value: float | int,
        epoch: _EpochLike = ...,
        standard: _StandardLike = ...,
        storage: str | None = None,
        leap_second: bool = False,
    ) -> DateTime: ...
    @staticmethod
    def from_compact(
        data: bytes,
        epoch: _EpochLike = ...,
        standard: _StandardLike = ...,
        storage: str | None = None,
        leap_second: bool = False,
    ) -> DateTime: ...
    def to_compact(self) -> bytes: ...
    @property
    def stored(self) -> float | int: ...
    @property
    def stored_raw(self) -> float | int: ...
    @property
    def stored_seconds(self) -> float: ...
    @property
    def stored_days(self) -> float: ...
    @property
    def epoch(self) -> Epoch: ...
    @property
    def standard(self) -> TimeStandard: ...
    @property
    def storage(self) -> str: ...
    @property
    def leap_second(self) -> bool: ...
    def to_calendar(self) -> tuple[float, float, float, float, float, float]: ...
    def add(self, seconds: float) -> DateTime: ...
    def convert(
        self,
        epoch: _EpochLike | None = None,
        standard: _StandardLike | None = None,
        storage: str | None = None,
        table: LeapSecondTable | None = None,
    ) -> DateTime: ...
    def format(self, pattern: str) -> str: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
    def __lt__(self, other: DateTime) -> bool: ...
    def __le__(self, other: DateTime) -> bool: ...
    def __gt__(self, other: DateTime) -> bool: ...
    def __ge__(self, other: DateTime) -> bool: ...
    def __sub__(self, other: DateTime) -> float: ...
    def __hash__(self) -> int: ...
    def __copy__(self) -> DateTime: ...
    def __deepcopy__(self, memo: dict[int, Any]) -> DateTime: ...

def to_calendar(
    values: npt.ArrayLike,
    epoch: _EpochLike = ...,
    standard: _StandardLike = ...,
    storage: str = "double",
    leap_second: npt.ArrayLike | None = None,
) -> npt.NDArray[np.float64]: ...
def from_calendar(
    fields: npt.ArrayLike,
    epoch: _EpochLike = ...,
    standard: _StandardLike = ...,
    storage: str = "double",
) -> tuple[npt.NDArray[Any], npt.NDArray[np.bool_]]: ...
def convert_standard(
    values: npt.ArrayLike,
    from_standard: _StandardLike = ...,
    to_standard: _StandardLike = ...,
    epoch: _EpochLike = ...,
    storage: str = "double",
    leap_second: npt.ArrayLike | None = None,
    table: LeapSecondTable | None = None,
) -> tuple[npt.NDArray[Any], npt.NDArray[np.bool_]]: ...
def format(
    values: npt.ArrayLike,
    pattern: str,
    epoch: _EpochLike = ...,
    standard: _StandardLike = ...,
    storage: str = "double",
    leap_second: npt.ArrayLike | None = None,
) -> list[str] | npt.NDArray[np.str_]: ...
def parse(
    texts: npt.ArrayLike,
    pattern: str | None = None,
    epoch: _EpochLike = ...,
    standard: _StandardLike = ...,
    storage: str = "double",
) -> tuple[npt.NDArray[Any], npt.NDArray[np.bool_]]: ...
def to_datetime64(
    values: npt.ArrayLike,
    epoch: _EpochLike = ...,
    standard: _StandardLike = ...,
    storage: str = "double",
    leap_second: npt.ArrayLike | None = None,
    unit: str = "ns",
) -> npt.NDArray[np.datetime64]: ...
