"""The kvdatetime module against the C++ library (through the kvdt tool),
against pyerfa, and its array functions against its own scalar API."""
import json
import os
import pickle
import re
import subprocess
import warnings
from fractions import Fraction

import erfa
import numpy as np
import pytest

import kvdatetime as kv
from kvdatetime import DateTime, Epoch, TimeStandard as TS

KVDT = os.environ.get("KVDT_TOOL")
READINGS = [(1972, 1, 1, 0, 0, 0.0), (2016, 12, 31, 23, 59, 60.25),
            (2015, 6, 30, 23, 59, 59.75), (1999, 2, 28, 12, 30, 1.125),
            (2030, 7, 1, 0, 0, 0.0), (1958, 1, 1, 0, 0, 0.0)]
TYPES = ["double", "s64:20", "s128:64", "int64"]
EPOCH_NAMES = {Epoch.E1970: "1970", Epoch.E1900: "1900", Epoch.E1958: "1958",
               Epoch.JD: "jd", Epoch.MJD: "mjd", Epoch.J2000: "j2000"}


def exact(dt):
    """The stored value as an exact number."""
    s = dt.storage
    return Fraction(dt.stored) if s == "double" else \
        Fraction(dt.stored, 2 ** int(s.split(":")[1]) if ":" in s else 1)


def stored_text(text, storage):
    """kvdt prints a double by its shortest digits, fixed point exactly."""
    return Fraction(float(text)) if storage == "double" else Fraction(text)


def kvdt(reading, epoch, storage, to_standard):
    text = "%04d-%02d-%02d %02d:%02d:%09.6f" % reading
    out = subprocess.run(
        [KVDT, "--json", "convert", text, "--epoch", EPOCH_NAMES[epoch],
         "--type", storage, "--to-standard", to_standard.name.lower()],
        capture_output=True, text=True, check=True).stdout
    return json.loads(out)


@pytest.mark.skipif(not KVDT, reason="kvdt not built")
@pytest.mark.parametrize("epoch", list(Epoch))
def test_scalar_equals_the_cpp_library(epoch):
    for reading in READINGS:
        for storage in TYPES if epoch < Epoch.JD else ["double"]:
            for to in (TS.TAI, TS.TT):
                want = kvdt(reading, epoch, storage, to)
                dt = DateTime(reading, epoch, TS.UTC, storage)
                got = dt.convert(standard=to)
                assert (exact(dt), dt.leap_second) == (
                    stored_text(want["input"]["stored"], storage),
                    want["input"]["leapSecond"]), (reading, storage)
                assert exact(got) == stored_text(want["output"]["stored"],
                                                 storage)
                assert got.format("yyyy-MM-dd HH:mm:ss.SSSSSS") == \
                    want["output"]["reading"]


def test_stored_seconds_match_python_datetime():
    import datetime as pd
    for reading in READINGS:
        y, mo, d, h, mi, s = reading
        if s >= 60:
            continue
        base = pd.datetime(y, mo, d, h, mi) - pd.datetime(1970, 1, 1)
        want = Fraction(base.days * 86400 + base.seconds) + Fraction(s)
        for storage in ("double", "s64:20", "s128:64"):
            assert exact(DateTime(reading, storage=storage)) == want


def random_readings(rng, n):
    """UTC readings 1972-2030, a quarter of them inside leap seconds."""
    years = rng.integers(1972, 2031, n)
    days = rng.integers(1, 29, n)
    rows = np.column_stack([years, rng.integers(1, 13, n), days,
                            rng.integers(0, 24, n), rng.integers(0, 60, n),
                            rng.integers(0, 60_000_000, n) / 1e6])
    # Leap-second fractions on a 1/256 s grid: coarse fixed point rounds
    # to nearest, and one rounded up into the next minute loses its flag.
    leap = [(2016, 12, 31), (2015, 6, 30), (1972, 6, 30), (2005, 12, 31)]
    for i in range(0, n, 4):
        y, m, d = leap[i // 4 % len(leap)]
        rows[i] = [y, m, d, 23, 59, 60 + rng.integers(0, 256) / 256]
    return rows


def python_value(v, storage):
    """A stored value as from_stored takes it; 128-bit rows are words."""
    if storage == "double":
        return float(v)
    if np.ndim(v) == 0:
        return int(v)
    return int(np.uint64(v[0])) + (int(v[1]) << 64)


@pytest.mark.parametrize("storage", ["double", "s64:20", "s128:64", "u64:8"])
def test_batch_equals_scalar_on_random_unsorted_arrays(storage):
    rng = np.random.default_rng(7)
    fields = random_readings(rng, 400)
    stored, leap = kv.from_calendar(fields, storage=storage)
    scalars = [DateTime(tuple(r), storage=storage) for r in fields]
    assert [DateTime.from_stored(python_value(v, storage), storage=storage,
                                 leap_second=bool(f))
            for v, f in zip(stored, leap)] == scalars
    np.testing.assert_array_equal(
        kv.to_calendar(stored, storage=storage, leap_second=leap),
        [dt.to_calendar() for dt in scalars])
    if stored.ndim == 2:  # the same words as one 16-byte record each
        records = stored.view([("lo", "<u8"), ("hi", "<i8")]).ravel()
        np.testing.assert_array_equal(
            kv.to_calendar(records, storage=storage, leap_second=leap),
            kv.to_calendar(stored, storage=storage, leap_second=leap))
    assert kv.format(stored, "yyyy-MM-dd HH:mm:ss.SSS t", storage=storage,
                     leap_second=leap) == \
        [dt.format("yyyy-MM-dd HH:mm:ss.SSS t") for dt in scalars]
    tai, tai_leap = kv.convert_standard(stored, TS.UTC, TS.TAI,
                                        storage=storage, leap_second=leap)
    utc, utc_leap = kv.convert_standard(tai, TS.TAI, TS.UTC, storage=storage)
    want = [dt.convert(standard=TS.TAI) for dt in scalars]
    np.testing.assert_array_equal(
        kv.to_calendar(tai, standard=TS.TAI, storage=storage),
        [dt.to_calendar() for dt in want])
    assert not tai_leap.any()
    np.testing.assert_array_equal(utc, stored)
    np.testing.assert_array_equal(utc_leap, leap)


def system_list():
    """The system's list, which may have expired since it was packaged."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", kv.LeapSecondListExpiredWarning)
        return kv.LeapSecondTable.from_text(
            open("/usr/share/zoneinfo/leap-seconds.list").read())


@pytest.mark.filterwarnings("ignore::erfa.ErfaWarning")  # years past 2027
@pytest.mark.parametrize("table", [
    None, kv.LeapSecondTable(),
    system_list() if os.path.exists("/usr/share/zoneinfo/leap-seconds.list") else None])
def test_utc_to_tai_agrees_with_erfa(table):
    if table is not None:  # a table pickles by its entries
        back = pickle.loads(pickle.dumps(table))
        assert (repr(back), back.expires, back.hash_checked) == (
            repr(table), table.expires, table.hash_checked)
        table = back
    fields = random_readings(np.random.default_rng(11), 2000)
    stored, leap = kv.from_calendar(fields)
    tai, _ = kv.convert_standard(stored, leap_second=leap, table=table)
    got = kv.to_calendar(tai, standard=TS.TAI)
    u1, u2 = erfa.dtf2d("UTC", *fields[:, :5].T.astype(np.int32),
                        fields[:, 5])
    want = erfa.d2dtf("TAI", 6, *erfa.utctai(u1, u2))
    want_s = want[3]["h"] * 3600.0 + want[3]["m"] * 60 + want[3]["s"] + \
        want[3]["f"] / 1e6
    np.testing.assert_array_equal(got[:, :3].astype(int),
                                  np.column_stack(want[:3]))
    got_s = got[:, 3] * 3600 + got[:, 4] * 60 + got[:, 5]
    assert np.abs(got_s - want_s).max() < 2e-6


def kv_error(ident, index=None):
    def check(e):
        return (e.identifier, e.index) == ("Korvane:DateTime:" + ident,
                                           index) and e.message
    return kv.KvDateTimeError, check


D = DateTime((2016, 12, 31, 23, 59, 59))
BAD = [
    (lambda: DateTime((2016, 13, 1)), *kv_error("BadMonth")),
    (lambda: DateTime((2016, 12, 30, 23, 59, 60)), *kv_error("BadLeapSecond")),
    # Leap seconds that the storage rounds out of themselves, or that the
    # schedule never inserted.
    (lambda: DateTime((2016, 12, 31, 23, 59, 60.5), storage="int64"),
     *kv_error("LeapSecondLostInStorage")),
    (lambda: kv.from_calendar([[2016, 12, 31, 23, 59, 60.99999999]]),
     *kv_error("LeapSecondLostInStorage", 0)),
    (lambda: DateTime((2015, 12, 31, 23, 59, 60)),
     *kv_error("NoLeapSecondInserted")),
    (lambda: DateTime((2016, 1, 1), storage="s200:0"), ValueError, None),
    (lambda: DateTime((2016, 1, 1), storage="int64", word_length=8),
     ValueError, None),
    (lambda: DateTime((2016, 1, 1), storage="u8:0"), OverflowError, None),
    (lambda: DateTime((2016, 1, 1, 0, 0, float("nan"))), ValueError, None),
    (lambda: DateTime.from_compact(b"123"), ValueError, None),
    (lambda: DateTime.from_compact(b"\xff" * 8), ValueError, None),
    (lambda: DateTime.from_stored(2 ** 40, storage="s32:0"), OverflowError,
     None),
    (lambda: DateTime.from_stored(1.5, storage="s64:20"), TypeError, None),
    (lambda: DateTime(("2016", 1, 1)), TypeError, None),
    (lambda: DateTime.from_stored(1.0, standard=TS.TAI, leap_second=True),
     *kv_error("BadLeapSecondBoolTimeStandard")),
    (lambda: D.add(float("inf")), ValueError, None),
    (lambda: DateTime((2016, 1, 1), storage="s32:0").add(1e10),
     OverflowError, None),
    (lambda: D.format("yyyy x"), *kv_error("InvalidFormatChar")),
    (lambda: D.convert(standard=TS.TDB),
     *kv_error("TDBTSOnlySupportJulianDayTU")),
    (lambda: kv.LeapSecondTable.from_text("garbage\n"), kv.KvDateTimeError,
     lambda e: e.identifier.startswith("Korvane:DateTime:BadLeapSecondList")),
    (lambda: kv.to_calendar(np.array([0.0, 1.0, np.nan, 2.0])), ValueError,
     lambda e: str(e).startswith("element 2: ")),
    (lambda: kv.to_calendar(np.array([1e300])), *kv_error("BadYear", 0)),
    (lambda: kv.to_calendar(np.array([[0, 2 ** 6]], np.uint64),
                            storage="u128:0"), *kv_error("BadYear", 0)),
    (lambda: kv.from_calendar([[2016, 1, 1, 0, 0, 0]] * 3 +
                              [[2016, 2, 30, 0, 0, 0]]),
     *kv_error("BadDayOfMonth", 3)),
    (lambda: kv.convert_standard(np.array([0, 2 ** 40], np.int64),
                                 storage="s32:0"), OverflowError,
     lambda e: str(e).startswith("element 1: ")),
    (lambda: kv.to_calendar(np.zeros(3), storage="s128:64"), TypeError, None),
    (lambda: kv.from_calendar(np.array(["2020-01-01", "NaT"], "M8[s]")),
     ValueError, lambda e: "element 1" in str(e)),
    (lambda: kv.parse([["2020-01-01", "2020-01-02"], ["2020-01-03", "2020-1-04"]]),
     *kv_error("ParseMismatch", 3)),
    (lambda: kv.parse(np.array([1.5, 2.5])), TypeError, None),
    (lambda: kv.parse(["2020-01-01"], pattern=3), TypeError, None),
    (lambda: kv.to_calendar(np.zeros(3), leap_second=[True]), ValueError,
     None),
    # Wrong Python types reach no C++ cast unchecked (NumPy's failed casts
    # used to surface as RuntimeError).
    (lambda: kv.to_calendar(["2016-12-31 23:59:59"]), TypeError, None),
    (lambda: kv.format(["x"], "yyyy"), TypeError, None),
    (lambda: kv.from_calendar([["a"] * 6]), TypeError, None),
    (lambda: kv.convert_standard("abc"), TypeError, None),
    (lambda: kv.to_calendar(np.zeros(3), leap_second=["x", "y", "z"]),
     TypeError, None),
    (lambda: D.convert(table=5), TypeError, None),
    (lambda: DateTime((2016, 1, 1), word_length="8"), TypeError, None),
    (lambda: DateTime((2016, 1, 1), signed="no", word_length=8), TypeError,
     None),
    (lambda: DateTime((2016, 1, 1), epoch=2 ** 70), ValueError, None),
    (lambda: DateTime((2016, 1, 1), word_length=2 ** 70), ValueError, None),
    (lambda: DateTime((2016, 1, 1, 0, 0, 10 ** 400)), OverflowError, None),
    (lambda: D.format(b"yyyy"), TypeError, None),
    (lambda: D.format("\ud800"), ValueError, None),
    (lambda: kv.format(np.zeros(1), "\ud800"), ValueError, None),
    (lambda: DateTime.from_stored(300, storage="int8"), OverflowError, None),
    (lambda: DateTime.from_stored(-1, storage="u8:0"), OverflowError,
     lambda e: "u8:0" in str(e)),
    (lambda: DateTime.from_stored(2 ** 128, storage="u128:0"), OverflowError,
     None),
]


@pytest.mark.parametrize("call,error,check", BAD)
def test_bad_input_raises_the_documented_exception(call, error, check):
    before = (D.stored, D.leap_second, D.to_compact())
    with pytest.raises(error) as info:
        call()
    assert check is None or check(info.value), info.value
    assert (D.stored, D.leap_second, D.to_compact()) == before


@pytest.mark.parametrize("mark", ["\ufffe", "\ufeff"])
def test_batch_format_keeps_a_leading_byte_order_mark_as_text(mark):
    values = np.array([1483228799.0, 0.0])
    assert DateTime.from_stored(values[0]).format(mark + "yyyy") == \
        mark + "2016"
    assert kv.format(values, mark + "yyyy-MM-dd") == [mark + "2016-12-31",
                                                      mark + "1970-01-01"]
    assert kv.format(values, "'x'" + mark + "yyyy") == ["x" + mark + "2016",
                                                       "x" + mark + "1970"]


@pytest.mark.parametrize("storage, low, high", [
    ("s128:0", -2 ** 127, 2 ** 127 - 1), ("u128:0", 0, 2 ** 128 - 1),
    ("int8", -128, 127), ("u64:0", 0, 2 ** 64 - 1)])
def test_stored_integers_at_the_edges_of_the_word_round_trip(storage, low,
                                                             high):
    for v in (low, high):
        assert DateTime.from_stored(v, storage=storage).stored == v
    for v in (low - 1, high + 1):
        with pytest.raises(OverflowError):
            DateTime.from_stored(v, storage=storage)


def test_repr_of_a_value_past_the_calendar_shows_the_stored_value():
    far = DateTime((2016, 1, 1)).add(1e300)
    assert repr(far) == ("<DateTime stored %r, reading out of range, "
                         "Epoch.E1970, storage double>" % far.stored)
    # Fixed point exactly: (2^127 - 1) / 2^64 has 64 decimals, read back
    # here as a Fraction.
    top = DateTime.from_stored(2 ** 127 - 1, storage="s128:64")
    text = re.fullmatch(r"<DateTime stored ([0-9.]+), reading out of range, "
                        r"Epoch.E1970, storage s128:64>", repr(top)).group(1)
    assert Fraction(text) == Fraction(2 ** 127 - 1, 2 ** 64)


# A count a hair below a whole minute is read as people read it: second
# 59.999..., never 60 outside a leap second (the stored-value read-back
# rounds it up to 60).
@pytest.mark.parametrize("value,storage,text", [
    (-1e-17, None, "1969-12-31 23:59:59.999"),
    ((1434369600 << 64) - 1, "s128:64", "2015-06-15 11:59:59.999"),
])
def test_a_hair_below_a_minute_never_reads_second_sixty(value, storage, text):
    t = DateTime.from_stored(value, storage=storage)
    assert t.format("yyyy-MM-dd HH:mm:ss.SSS") == text
    assert 59.99 < t.to_calendar()[5] < 60.0
    if storage is None:
        row = kv.to_calendar(np.array([value]))[0]
        assert 59.99 < row[5] < 60.0
        assert kv.format(np.array([value]), "HH:mm:ss.SSS")[0] == text[-12:]
