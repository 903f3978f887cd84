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
import numpy as _np

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
    "format", "from_calendar", "parse", "to_calendar", "to_datetime64",
]

# Named by the package, where pickle and help() look for them.
for _type in (DateTime, LeapSecondTable):
    _type.__module__ = __name__
del _type


# Arrays of any shape: the extension works on flat arrays, and these put
# the shape back. A stored value of a storage type wider than 64 bits is two
# 64-bit words (low first) on a last axis of 2, or one 16-byte record.


def _element_shape(values, storage):
    """The shape of the stored values' elements, and the values flat."""
    is_double, size = _ext.storage_layout(storage)
    a = _np.asarray(values)
    if size == 16 and a.dtype.kind != "V":
        if a.ndim < 1 or a.shape[-1] != 2:
            raise TypeError("stored values of %s are pairs of 64-bit words "
                            "(low, high) on a last axis of 2, or 16-byte "
                            "records" % storage)
        return a.shape[:-1], a.reshape(-1, 2)
    return a.shape, a.reshape(-1)


def _flat_flags(leap_second, shape):
    if leap_second is None:
        return None
    flags = _np.asarray(leap_second)
    if flags.shape != shape:
        raise ValueError("leap_second must have the shape of the values, "
                         "%s, not %s" % (shape, flags.shape))
    return flags.reshape(-1)


def _stored_shaped(values, shape):
    return values.reshape(shape + values.shape[1:])


def to_calendar(values, epoch=Epoch.E1970, standard=TimeStandard.UTC,
                storage="double", leap_second=None):
    """Stored values to calendar fields: a float64 array of the values'
    shape with a last axis of 6 (year, month, day, hour, minute, second);
    second 60.x inside a UTC leap second.

    ``values`` are float64 for double storage, the raw stored integers for
    fixed point of up to 64 bits, and pairs of 64-bit words (low first, on a
    last axis of 2) for wider fixed point. ``leap_second`` gives the flags of
    the values, if any. KvDateTimeError names the first bad element by its
    index in the flattened array.
    """
    shape, flat = _element_shape(values, storage)
    rows = _ext.to_calendar(flat, epoch, standard, storage,
                            _flat_flags(leap_second, shape))
    return rows.reshape(shape + (6,))


def _calendar_rows(fields):
    """Calendar fields (a last axis of 6) or datetime64 readings, flat."""
    a = _np.asarray(fields)
    if a.dtype.kind == "M":
        return a.shape, _datetime64_rows(a.reshape(-1))
    if a.ndim < 1 or a.shape[-1] != 6:
        raise ValueError("calendar fields need a last axis of 6 (year, "
                         "month, day, hour, minute, second), not shape %s"
                         % (a.shape,))
    return a.shape[:-1], a.reshape(-1, 6)


def _datetime64_rows(a):
    """datetime64 readings of any unit as calendar rows, exact to the unit
    in the whole seconds; NaT fails as a calendar field that is no number."""
    unit, _ = _np.datetime_data(a.dtype)
    if unit in ("generic",):
        raise ValueError("a datetime64 array needs a unit")
    nat = _np.isnat(a)
    days = a.astype("M8[D]")
    months = a.astype("M8[M]")
    rows = _np.empty(a.shape + (6,))
    rows[:, 0] = a.astype("M8[Y]").astype(_np.int64) + 1970
    rows[:, 1] = months.astype(_np.int64) % 12 + 1
    rows[:, 2] = (days - months.astype("M8[D]")).astype(_np.int64) + 1
    if unit in ("Y", "M", "W", "D"):
        rows[:, 3:] = 0
    else:
        # The time of day as an integer count of the unit, split exactly.
        tick = _np.timedelta64(1, unit)
        per_second = _np.timedelta64(1, "s") // tick if \
            _np.timedelta64(1, "s") >= tick else None
        of_day = (a - days.astype(a.dtype)).astype(_np.int64)
        if per_second:
            seconds, rest = _np.divmod(of_day, per_second)
        else:  # h or m: whole seconds only
            seconds, rest = of_day * (tick // _np.timedelta64(1, "s")), 0
        rows[:, 3] = seconds // 3600
        rows[:, 4] = seconds // 60 % 60
        rows[:, 5] = seconds % 60 + (_np.asarray(rest) / per_second
                                     if per_second else 0.0)
    rows[nat] = _np.nan
    return rows


def from_calendar(fields, epoch=Epoch.E1970, standard=TimeStandard.UTC,
                  storage="double"):
    """Readings to (stored values, leap-second flags), the stored values
    laid out as ``to_calendar`` takes them.

    ``fields`` is an array with a last axis of 6 (year, month, day, hour,
    minute, second), or a ``numpy.datetime64`` array of any unit, each
    element a reading in ``standard`` (UTC by default). NumPy has no second
    60, so a datetime64 never names a leap second; give fields for one.
    """
    shape, rows = _calendar_rows(fields)
    values, flags = _ext.from_calendar(rows, epoch, standard, storage)
    return _stored_shaped(values, shape), flags.reshape(shape)


def to_datetime64(values, epoch=Epoch.E1970, standard=TimeStandard.UTC,
                  storage="double", leap_second=None, unit="ns"):
    """Stored values to ``numpy.datetime64[unit]`` readings in their
    standard, of the values' shape, rounded to the nearest unit (a unit
    coarser than the second takes the whole seconds as they are).

    NumPy has no second 60: a reading inside a UTC leap second
    (23:59:60.x, a flagged value) comes out as 23:59:59.x, the second
    repeated, as the library stores it; keep the flags to tell them apart.
    """
    rows = to_calendar(values, epoch, standard, storage, leap_second)
    flat = rows.reshape(-1, 6)
    fields = flat.astype(_np.int64)
    months = (fields[:, 0] - 1970) * 12 + fields[:, 1] - 1
    days = months.astype("M8[M]").astype("M8[D]") + (fields[:, 2] - 1)
    # Second 60.x is the leap second: 59.x again, as stored.
    second = _np.where(flat[:, 5] >= 60.0, flat[:, 5] - 1.0, flat[:, 5])
    whole = _np.floor(second)
    tick = _np.timedelta64(1, unit)
    out = days.astype("M8[%s]" % unit) + (
        (fields[:, 3] * 3600 + fields[:, 4] * 60 + whole.astype(_np.int64))
        .astype("m8[s]").astype(tick.dtype))
    if _np.timedelta64(1, "s") > tick:
        per_second = _np.timedelta64(1, "s") // tick
        out = out + _np.rint((second - whole) * per_second).astype(
            _np.int64).astype(tick.dtype)
    return out.reshape(rows.shape[:-1])


def convert_standard(values, from_standard=TimeStandard.UTC,
                     to_standard=TimeStandard.TAI, epoch=Epoch.E1970,
                     storage="double", leap_second=None, table=None):
    """Stored values in one standard to (stored values, leap-second flags)
    in another, same epoch, storage type and shape; leap seconds from
    ``table`` (a LeapSecondTable; the built-in schedule when None)."""
    shape, flat = _element_shape(values, storage)
    out, flags = _ext.convert_standard(flat, from_standard, to_standard,
                                       epoch, storage,
                                       _flat_flags(leap_second, shape), table)
    return _stored_shaped(out, shape), flags.reshape(shape)


def format(values, pattern, epoch=Epoch.E1970, standard=TimeStandard.UTC,
           storage="double", leap_second=None):  # noqa: A001 (kv.format)
    """Stored values rendered by a pattern such as
    ``"yyyy-MM-dd HH:mm:ss.SSS t"``: a list of str for a 1-D array (as
    before), else a NumPy array of str of the values' shape."""
    shape, flat = _element_shape(values, storage)
    texts = _ext.format(flat, pattern, epoch, standard, storage,
                        _flat_flags(leap_second, shape))
    if len(shape) == 1:
        return texts
    return _np.array(texts, dtype=str).reshape(shape)


def parse(texts, pattern=None, epoch=Epoch.E1970, standard=TimeStandard.UTC,
          storage="double"):
    """Texts (str or UTF-8 bytes, any shape) read by a pattern (ISO 8601
    when None: "2016-12-31T23:59:60.5Z") to (stored values, leap-second
    flags) of their shape, as ``from_calendar`` gives them.

    A reading the parser refuses raises KvDateTimeError with the index of
    the text in the flattened array and the position in it.
    """
    a = _np.asarray(texts)
    if a.dtype.kind == "O":
        a = a.astype(str)
    if pattern is None:
        values, flags = _ext.parse_iso8601(a.reshape(-1), epoch, standard,
                                           storage)
    else:
        rows = _ext.parse_calendar(a.reshape(-1), pattern, standard)
        values, flags = _ext.from_calendar(rows, epoch, standard, storage)
    return _stored_shaped(values, a.shape), flags.reshape(a.shape)
