"""DateTime as a Python value: pickling, copying, hashing, ordering,
subtraction, names as strings, reprs, signatures and warnings."""
import copy
import datetime
import pickle
import warnings

import erfa
import numpy as np
import pytest

import kvdatetime as kv
from kvdatetime import DateTime, Epoch, TimeStandard as TS

VALUES = [
    DateTime((2016, 12, 31, 23, 59, 60.25)),
    DateTime((2016, 12, 31, 23, 59, 60.25), "1900", "utc", "s128:64"),
    DateTime((1999, 2, 28, 12, 30, 1.125), Epoch.J2000, TS.TT),
    DateTime((2030, 7, 1), "mjd", "tdb"),
    DateTime((1958, 1, 1), "1958", "tai", "uint32"),
]


@pytest.mark.parametrize("dt", VALUES, ids=repr)
def test_pickle_and_copy_give_an_equal_value_with_its_flag(dt):
    for back in (pickle.loads(pickle.dumps(dt, protocol=p))
                 for p in range(2, pickle.HIGHEST_PROTOCOL + 1)):
        assert back == dt and hash(back) == hash(dt)
        assert back.leap_second == dt.leap_second
        assert back.to_compact() == dt.to_compact()
    assert copy.copy(dt) == dt and copy.deepcopy(dt) == dt


def test_equal_values_hash_alike_and_differences_make_them_unequal():
    a = DateTime((2020, 1, 1), storage="int64")
    same = DateTime.from_stored(a.stored_raw, storage="int64")
    assert a == same and len({a, same}) == 1
    for other in (DateTime((2020, 1, 1)),  # storage
                  DateTime((2020, 1, 1), standard="tai", storage="int64"),
                  DateTime((2020, 1, 1), "1900", storage="int64"),
                  DateTime((2020, 1, 1, 0, 0, 1), storage="int64")):
        assert a != other and not a == other
    assert a != "2020" and not a == 1


def test_order_follows_the_leap_second_whatever_the_fraction():
    # 23:59:59.75 < 23:59:60.25 (stored as .25 with the flag) < next day.
    seq = [DateTime((2016, 12, 31, 23, 59, 59.25)),
           DateTime((2016, 12, 31, 23, 59, 59.75)),
           DateTime((2016, 12, 31, 23, 59, 60.25)),
           DateTime((2016, 12, 31, 23, 59, 60.5)),
           DateTime((2017, 1, 1, 0, 0, 0.1))]
    for i, a in enumerate(seq):
        for j, b in enumerate(seq):
            assert (a < b, a <= b, a > b, a >= b, a == b) == (
                i < j, i <= j, i > j, i >= j, i == j), (i, j)


@pytest.mark.parametrize("a, b", [
    (DateTime((2020, 1, 1)), DateTime((2020, 1, 1), standard="tai")),
    (DateTime((2020, 1, 1)), DateTime((2020, 1, 1), "1900")),
    (DateTime((2020, 1, 1)), DateTime((2020, 1, 1), storage="int64"))])
def test_mixed_epochs_standards_or_storage_refuse_to_order_or_subtract(a, b):
    for op in (lambda: a < b, lambda: a >= b, lambda: a - b):
        with pytest.raises(ValueError, match="convert"):
            op()
    with pytest.raises(TypeError):
        a < 3  # noqa: B015
    with pytest.raises(TypeError):
        a - 3.0


def erfa_tai_seconds(fields):
    """TAI seconds since 2000-01-01 TAI by ERFA, the oracle of a UTC
    difference."""
    u1, u2 = erfa.dtf2d("UTC", *np.array(fields[:5], dtype=np.int32),
                        fields[5])
    t1, t2 = erfa.utctai(u1, u2)
    return ((t1 - 2451544.5) + t2) * 86400.0


@pytest.mark.parametrize("storage", ["double", "s128:64", "s64:16"])
def test_utc_difference_counts_leap_seconds_as_erfa_does(storage):
    rng = np.random.default_rng(5)
    readings = [(2016, 12, 31, 23, 59, 60.5), (2015, 6, 30, 23, 59, 59.5),
                (1972, 1, 1, 0, 0, 0.0)] + [
        (int(y), int(m), int(d), int(h), int(mi), float(s))
        for y, m, d, h, mi, s in zip(
            rng.integers(1972, 2020, 20), rng.integers(1, 13, 20),
            rng.integers(1, 29, 20), rng.integers(0, 24, 20),
            rng.integers(0, 60, 20), rng.integers(0, 240, 20) / 4.0)]
    for r1 in readings:
        for r2 in readings[:4]:
            got = DateTime(r1, storage=storage) - DateTime(r2, storage=storage)
            want = erfa_tai_seconds(r1) - erfa_tai_seconds(r2)
            assert abs(got - want) < 1e-4, (r1, r2)


def test_day_epochs_subtract_to_seconds_exactly():
    a = DateTime((2000, 3, 1, 6), "jd", "tt")
    b = DateTime((2000, 2, 28), "jd", "tt")
    assert a - b == 2 * 86400 + 6 * 3600
    assert isinstance(a - b, float)
    x = DateTime((2000, 3, 1, 0, 0, 1.5), "1958", "tai", "s128:64")
    y = DateTime((2000, 3, 1), "1958", "tai", "s128:64")
    assert x - y == 1.5 and y - x == -1.5


@pytest.mark.parametrize("epoch, names", [
    (Epoch.E1970, ["1970", "e1970", "E1970", 0]),
    (Epoch.E1900, ["1900"]), (Epoch.E1958, ["1958"]),
    (Epoch.JD, ["jd", "JD", "Jd"]), (Epoch.MJD, ["mjd", "MJD"]),
    (Epoch.J2000, ["j2000", "J2000", 5])])
def test_epochs_by_the_names_kvdt_takes(epoch, names):
    for name in names:
        dt = DateTime((2001, 2, 3), name)
        assert dt.epoch is epoch and dt == DateTime((2001, 2, 3), epoch)
        assert repr(dt).count("Epoch." + epoch.name) == 1
        assert tuple(kv.to_calendar(np.array([dt.stored_raw]), name)[0]) == \
            dt.to_calendar()


@pytest.mark.parametrize("ts", list(TS))
def test_standards_by_name_in_any_case(ts):
    for name in (ts.name, ts.name.lower(), ts.name.title()):
        assert DateTime((2001, 2, 3), "mjd", name).standard is ts
        assert DateTime((2001, 2, 3), "mjd").convert(standard=name).standard \
            is ts


@pytest.mark.parametrize("bad, error", [
    ("1971", ValueError), ("gps", ValueError), ("", ValueError),
    (6, ValueError), (-1, ValueError), (1.0, TypeError), (True, TypeError),
    (None, TypeError), (b"jd", TypeError)])
def test_unknown_names_and_wrong_types_are_refused_with_a_message(bad, error):
    with pytest.raises(error, match=r"\w"):
        DateTime((2001, 2, 3), bad)
    with pytest.raises(error, match=r"\w"):
        DateTime((2001, 2, 3), "jd", bad)


def test_stored_as_raw_count_and_in_the_epochs_unit():
    dt = DateTime((2020, 1, 1, 0, 0, 0.5), storage="s64:20")
    assert dt.stored_raw == dt.stored == (1577836800 * 2 + 1) * 2 ** 19
    assert dt.stored_seconds == 1577836800.5
    # kvdt's "stored" is this one: seconds since 1970 as a number.
    assert dt.stored_seconds == (datetime.datetime(2020, 1, 1, 0, 0, 0, 500000)
                                 - datetime.datetime(1970, 1, 1)
                                 ).total_seconds()
    with pytest.raises(ValueError, match="stored_seconds"):
        dt.stored_days  # noqa: B018
    jd = DateTime((2000, 1, 1, 12), "jd", "tt")
    assert jd.stored_days == 2451545.0 == jd.stored_raw
    with pytest.raises(ValueError, match="stored_days"):
        jd.stored_seconds  # noqa: B018


def test_signatures_show_names_and_types_not_handles():
    for f in (DateTime.__init__, DateTime.convert, DateTime.from_stored,
              DateTime.format, kv.to_calendar, kv.convert_standard):
        doc = f.__doc__ or ""
        assert "handle" not in doc and "object" not in doc.split("\n")[0], doc
    assert "epoch: Epoch | str | int" in DateTime.from_stored.__doc__


def leap_list(expires_ntp):
    return ("#$\t3676924800\n#@\t%d\n2272060800\t10\n2287785600\t11\n"
            % expires_ntp)


def test_an_expired_list_warns_and_is_still_used():
    with pytest.warns(kv.LeapSecondListExpiredWarning, match="expired"):
        old = kv.LeapSecondTable.from_text(leap_list(3676924800))
    assert issubclass(kv.LeapSecondListExpiredWarning, UserWarning)
    assert old.expires == 3676924800
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        fresh = kv.LeapSecondTable.from_text(leap_list(2 ** 40))
    assert fresh.expires == 2 ** 40
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(kv.LeapSecondListExpiredWarning):
            kv.LeapSecondTable.from_text(leap_list(3676924800))


def test_library_errors_are_value_errors_with_their_fields():
    with pytest.raises(ValueError) as info:
        DateTime((2021, 2, 30))
    err = info.value
    assert isinstance(err, kv.KvDateTimeError)
    assert err.identifier.startswith("Korvane:DateTime:")
    assert err.message and err.index is None
    with pytest.raises(ValueError) as info:
        kv.from_calendar(np.array([[2021, 1, 1, 0, 0, 0],
                                   [2021, 13, 1, 0, 0, 0]], dtype=float))
    assert info.value.index == 1
