"""Time points of the KvDateTime library for Python.

Exact stored values in double or fixed point (up to 128 bits), counted from
an epoch (seconds since 1970, 1900 or 1958; days since JD, MJD or J2000) and
read in TAI, UTC, TT or TDB; leap seconds, calendar readings and formatting,
one value (``DateTime``) or a NumPy array at a time.

Epochs, standards and storage types may be given by name, as ``kvdt`` takes
them: ``"1970"``, ``"jd"``, ``"j2000"``; ``"utc"``, ``"tai"``; ``"double"``,
``"int64"``, ``"s128:64"``.

The work is done by the extension ``kvdatetime._kvdatetime`` with the GIL
released; this package gives its array functions a home that pickles by
reference, so they can be shipped to worker processes (``multiprocessing``,
``dask.distributed``).
"""
from . import _kvdatetime as _ext
from ._kvdatetime import (
    DateTime,
    Epoch,
    KvDateTimeError,
    LeapSecondListExpiredWarning,
    LeapSecondTable,
    TimeStandard,
    __version__,
)

__all__ = [
    "DateTime", "Epoch", "KvDateTimeError", "LeapSecondListExpiredWarning",
    "LeapSecondTable", "TimeStandard", "__version__", "convert_standard",
    "format", "from_calendar", "to_calendar",
]

# Named by the package, where pickle and help() look for them.
for _type in (DateTime, LeapSecondTable):
    _type.__module__ = __name__
del _type


def to_calendar(values, epoch=Epoch.E1970, standard=TimeStandard.UTC,
                storage="double", leap_second=None):
    """Stored values to an (n, 6) float64 array of calendar fields (year,
    month, day, hour, minute, second); second 60.x inside a UTC leap second.

    ``values`` are float64 for double storage, the raw stored integers for
    fixed point of up to 64 bits, and an (n, 2) array of 64-bit words (low
    first) for wider fixed point. ``leap_second`` gives the flags of the
    values, if any. KvDateTimeError names the first bad element by index.
    """
    return _ext.to_calendar(values, epoch, standard, storage, leap_second)


def from_calendar(fields, epoch=Epoch.E1970, standard=TimeStandard.UTC,
                  storage="double"):
    """An (n, 6) array of readings to (stored values, leap-second flags),
    the stored values laid out as ``to_calendar`` takes them."""
    return _ext.from_calendar(fields, epoch, standard, storage)


def convert_standard(values, from_standard=TimeStandard.UTC,
                     to_standard=TimeStandard.TAI, epoch=Epoch.E1970,
                     storage="double", leap_second=None, table=None):
    """Stored values in one standard to (stored values, leap-second flags)
    in another, same epoch and storage type; leap seconds from ``table``
    (a LeapSecondTable; the built-in schedule when None)."""
    return _ext.convert_standard(values, from_standard, to_standard, epoch,
                                 storage, leap_second, table)


def format(values, pattern, epoch=Epoch.E1970, standard=TimeStandard.UTC,
           storage="double", leap_second=None):  # noqa: A001 (kv.format)
    """Stored values rendered by a pattern such as
    ``"yyyy-MM-dd HH:mm:ss.SSS t"``, as a list of str."""
    return _ext.format(values, pattern, epoch, standard, storage,
                       leap_second)
