"""Every argument of every function and method replaced by a wrong type or
an out-of-range value: it succeeds, or raises TypeError or ValueError with a
message; never RuntimeError, SystemError or a crash."""
import datetime

import numpy as np
import pytest

import kvdatetime as kv
from kvdatetime import DateTime

D = DateTime((2016, 12, 31, 23, 59, 59.5))
W = DateTime((2016, 12, 31, 23, 59, 59.5), storage="s128:64")
VALUES = np.array([1483228799.5, 1483228800.25])
FIELDS = np.array([[2016, 12, 31, 23, 59, 59.5]])
LIST = "#@\t%d\n2272060800\t10\n" % 2 ** 40

# (name, callable, valid keyword arguments)
CALLS = [
    ("DateTime", DateTime, dict(reading=(2016, 1, 1), epoch="1970",
                                standard="utc", storage="double")),
    ("DateTime fixed", DateTime,
     dict(reading=datetime.datetime(2016, 1, 1), signed=True, word_length=64,
          fraction_length=20)),
    ("from_stored", DateTime.from_stored,
     dict(value=1.0, epoch="1970", standard="utc", storage=None,
          leap_second=False)),
    ("from_compact", DateTime.from_compact,
     dict(data=D.to_compact(), epoch="1970", standard="utc",
          storage="double", leap_second=False)),
    ("add", D.add, dict(seconds=1.0)),
    ("convert", D.convert,
     dict(epoch="jd", standard="tai", storage="double", table=None)),
    ("format", D.format, dict(pattern="yyyy")),
    ("__sub__", D.__sub__, dict(other=D)),
    ("__lt__", D.__lt__, dict(other=D)),
    ("__eq__", D.__eq__, dict(other=D)),
    ("__deepcopy__", D.__deepcopy__, dict(memo={})),
    ("__setstate__",
     lambda state: DateTime.__new__(DateTime).__setstate__(state),
     dict(state=D.__getstate__())),
    ("from_text", kv.LeapSecondTable.from_text, dict(text=LIST)),
    ("to_calendar", kv.to_calendar,
     dict(values=VALUES, epoch="1970", standard="utc", storage="double",
          leap_second=None)),
    ("to_calendar wide", kv.to_calendar,
     dict(values=np.array([[0, 1]], np.int64), storage="s128:64")),
    ("from_calendar", kv.from_calendar, dict(fields=FIELDS, epoch="1970",
                                             standard="utc", storage="double")),
    ("convert_standard", kv.convert_standard,
     dict(values=VALUES, from_standard="utc", to_standard="tai",
          epoch="1970", storage="double", leap_second=None, table=None)),
    ("format batch", kv.format,
     dict(values=VALUES, pattern="yyyy", epoch="1970", standard="utc",
          storage="double", leap_second=None)),
    ("parse", kv.parse,
     dict(texts=["2016-12-31"], pattern=None, epoch="1970", standard="utc",
          storage="double")),
    ("to_datetime64", kv.to_datetime64,
     dict(values=VALUES, epoch="1970", standard="utc", storage="double",
          leap_second=None, unit="ns")),
]

BAD = [None, object(), "x", "", b"\xff", 1.5, float("nan"), -1, 2 ** 200,
       True, [], (), {}, [[1, 2], [3]], np.array([]), np.array(["a", "b"]),
       np.array([1.0, np.inf]), np.zeros((2, 3, 4)),
       np.array([None, 1], dtype=object), datetime.datetime(2016, 1, 1),
       np.datetime64("NaT"), "\ud800", D, W, kv.LeapSecondTable()]


@pytest.mark.parametrize("name, fn, kwargs", CALLS, ids=[c[0] for c in CALLS])
def test_every_argument_of_a_wrong_type_gets_a_clear_error(name, fn, kwargs):
    fn(**kwargs)  # the valid call works
    for arg in kwargs:
        for bad in BAD:
            try:
                fn(**dict(kwargs, **{arg: bad}))
            except (TypeError, ValueError) as e:
                assert str(e), (name, arg, repr(bad)[:20])
            except Exception as e:  # noqa: BLE001 (the point of the test)
                pytest.fail("%s(%s=%.20r) raised %r" % (name, arg, bad, e))
