"""DateTime as a Python value: pickling, hashing, ordering, subtraction,
names as strings, signatures and warnings."""
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
    DateTime((1958, 1, 1, 0, 0, 0.5), storage="s64:20"),
    DateTime((2016, 12, 31, 23, 59, 60.25), storage="u64:0"),
]


@pytest.mark.parametrize("dt", VALUES, ids=repr)
def test_pickle_copy_and_compact_give_an_equal_value_with_its_flag(dt):
    for back in [pickle.loads(pickle.dumps(dt, protocol=p))
                 for p in range(2, pickle.HIGHEST_PROTOCOL + 1)] + [
            DateTime.from_compact(dt.to_compact(), dt.epoch, dt.standard,
                                  dt.storage, dt.leap_second)]:
        assert back == dt and hash(back) == hash(dt) and repr(back) == repr(dt)
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
        (*map(int, r[:5]), r[5] / 4.0) for r in zip(*(rng.integers(
            lo, hi, 20) for lo, hi in [(1972, 2020), (1, 13), (1, 29),
                                       (0, 24), (0, 60), (0, 240)]))]
    for r1 in readings:
        for r2 in readings[:4]:
            got = DateTime(r1, storage=storage) - DateTime(r2, storage=storage)
            want = erfa_tai_seconds(r1) - erfa_tai_seconds(r2)
            assert abs(got - want) < 1e-4, (r1, r2)


@pytest.mark.parametrize("a, b, seconds", [
    (((2000, 3, 1, 6), "jd", "tt"), ((2000, 2, 28), "jd", "tt"),
     2 * 86400 + 6 * 3600),
    (((2000, 3, 1, 0, 0, 1.5), "1958", "tai", "s128:64"),
     ((2000, 3, 1), "1958", "tai", "s128:64"), 1.5)])
def test_day_epochs_and_tai_subtract_to_seconds_exactly(a, b, seconds):
    a, b = DateTime(*a), DateTime(*b)
    assert (a - b, b - a) == (seconds, -seconds) and type(a - b) is float


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
        assert kv.LeapSecondTable.from_text(leap_list(2 ** 40)).expires == \
            2 ** 40
        with pytest.raises(kv.LeapSecondListExpiredWarning):
            kv.LeapSecondTable.from_text(leap_list(3676924800))
