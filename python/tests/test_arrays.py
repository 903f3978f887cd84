"""Arrays as NumPy users hold them: any shape, datetime64 of any unit, and
text in and out through the library's parser and formatter."""
import numpy as np
import pytest

import kvdatetime as kv

rng = np.random.default_rng(17)
# Random instants from 1900 to 2100, with nanoseconds.
NS = (rng.integers(-2208988800, 4102444800, 24) * 10 ** 9 +
      rng.integers(0, 10 ** 9, 24)).astype("M8[ns]")


@pytest.mark.parametrize("shape", [(24,), (4, 6), (2, 3, 4), (1, 24, 1)])
@pytest.mark.parametrize("storage", ["double", "int64", "s64:20", "s128:64"])
def test_any_shape_in_the_same_shape_out(shape, storage):
    fields = kv.to_calendar(NS.astype("M8[s]").astype(np.int64).astype(float))
    values, flags = kv.from_calendar(fields.reshape(shape + (6,)),
                                     storage=storage)
    wide = storage == "s128:64"
    assert values.shape == shape + ((2,) if wide else ())
    assert flags.shape == shape
    flat, _ = kv.from_calendar(fields, storage=storage)
    np.testing.assert_array_equal(values.reshape(flat.shape), flat)
    back = kv.to_calendar(values, storage=storage, leap_second=flags)
    assert back.shape == shape + (6,)
    np.testing.assert_array_equal(back.reshape(-1, 6), fields)
    tai, tai_flags = kv.convert_standard(values, storage=storage,
                                         leap_second=flags)
    assert tai.shape == values.shape and tai_flags.shape == shape
    texts = kv.format(values, "yyyy-MM-dd HH:mm:ss", storage=storage)
    if len(shape) > 1:
        assert texts.shape == shape
    assert list(np.ravel(texts)) == kv.format(flat, "yyyy-MM-dd HH:mm:ss",
                                              storage=storage)


@pytest.mark.parametrize("unit", ["D", "h", "m", "s", "ms", "us", "ns"])
def test_datetime64_of_any_unit_reads_as_numpy_counts_it(unit):
    a = NS.astype("M8[%s]" % unit).reshape(4, 6)
    # Whole seconds exactly, against NumPy's own count.
    seconds = a.astype("M8[s]").astype(np.int64)
    values, flags = kv.from_calendar(a.astype("M8[s]"), storage="int64")
    np.testing.assert_array_equal(values, seconds)
    assert not flags.any()
    # And the round trip at the unit, through 64 fraction bits.
    wide, _ = kv.from_calendar(a, storage="s128:64")
    back = kv.to_datetime64(wide, storage="s128:64", unit=unit)
    assert back.dtype == a.dtype and back.shape == a.shape
    np.testing.assert_array_equal(back, a)


def test_datetime64_in_double_storage_is_off_by_at_most_the_doubles_step():
    values, _ = kv.from_calendar(NS)
    want = NS.astype(np.int64) / 1e9
    assert np.abs(values - want).max() < 5e-7
    back = kv.to_datetime64(values, unit="us")
    assert np.abs((back - NS.astype("M8[us]")).astype(np.int64)).max() <= 1


def test_a_leap_second_reaches_datetime64_as_its_second_repeated():
    values, flags = kv.parse(["2016-12-31T23:59:59.25Z",
                              "2016-12-31T23:59:60.25Z",
                              "2017-01-01T00:00:00.25Z"], storage="s64:32")
    assert flags.tolist() == [False, True, False]
    out = kv.to_datetime64(values, storage="s64:32", leap_second=flags,
                           unit="ms")
    assert out.tolist() == np.array(["2016-12-31T23:59:59.250",
                                     "2016-12-31T23:59:59.250",
                                     "2017-01-01T00:00:00.250"],
                                    "M8[ms]").tolist()


def test_iso_strings_parse_as_numpy_reads_them():
    texts = np.datetime_as_string(NS, unit="us").reshape(6, 4)
    values, flags = kv.parse(texts, storage="s128:64")
    np.testing.assert_array_equal(
        kv.to_datetime64(values, storage="s128:64", unit="us"),
        NS.astype("M8[us]").reshape(6, 4))
    assert flags.shape == (6, 4) and not flags.any()


def _two_step_parse(texts, standard, storage):
    """kv.parse without a pattern as two calls: every text to a calendar
    row, then the rows to stored values."""
    a = np.asarray(texts)
    rows = kv._ext.parse_calendar(a.reshape(-1), None, standard)
    values, flags = kv._ext.from_calendar(rows, "1970", standard, storage)
    return values.reshape(a.shape + values.shape[1:]), flags.reshape(a.shape)


@pytest.mark.parametrize("seed", range(8))
def test_iso_texts_parse_as_the_two_step_read_does(seed):
    # Usual texts at random precision, leap seconds real and not, damaged
    # at random: the same values and flags, or the same error and index.
    r = np.random.default_rng(seed)
    texts = np.datetime_as_string(NS[r.permutation(24)[:12]], unit=r.choice(
        ["D", "m", "s", "ms", "us", "ns"])).astype("U40")
    texts[r.integers(0, 12, 2)] = ["2016-12-31T23:59:60.25Z", "2015-06-30 "
                                   "23:59:60", "9999-12-31T23:59:59.5"][seed % 3]
    for i in r.integers(0, 12, seed // 4 * 2):
        t = texts[i]
        k = r.integers(0, len(t) + 1)
        texts[i] = t[:k] + r.choice(list("09-:Tt .,Zz\0é\U0001F600")) + \
            t[k + r.integers(0, 2):]
    ascii_only = all(t.isascii() for t in texts)
    unaligned = np.frombuffer(b"\0" + texts.tobytes(), texts.dtype, offset=1)
    for given in (texts, texts.reshape(3, 4), unaligned) + (
            (texts.astype("S"),) if ascii_only else ()):
        for standard in ("utc", "tai"):
            for storage in ("double", "int32", "s64:20", "s128:64", "bad"):
                def outcome(parse):
                    try:
                        return parse(given, standard=standard, storage=storage)
                    except (ValueError, OverflowError) as e:
                        return type(e), str(e), getattr(e, "index", None)
                got, want = outcome(kv.parse), outcome(_two_step_parse)
                if isinstance(want[0], type):
                    assert got == want
                else:
                    for g, w in zip(got, want):
                        assert g.dtype == w.dtype and g.shape == w.shape
                        np.testing.assert_array_equal(g, w)


def test_byte_swapped_str_arrays_read_as_their_texts():
    for texts, pattern in ((["2016-12-31T23:59:60.5Z", "2020-02-29"], None),
                           (["31/12/2016 23:59"], "dd/MM/yyyy HH:mm")):
        native = np.array(texts)
        swapped = native.astype(native.dtype.newbyteorder(">"))
        for got, want in zip(kv.parse(swapped, pattern),
                             kv.parse(native, pattern)):
            np.testing.assert_array_equal(got, want)


@pytest.mark.parametrize("pattern", [
    "yyyy-MM-dd HH:mm:ss.SSS", "dd.MM.yyyy'T'HHmmss", "eeee, d MMMM yyyy",
    "yyyy-MM-dd HH:mm:ss.SSSSSS t"])
def test_format_then_parse_by_the_same_pattern_gives_the_same_text(pattern):
    # 64 fraction bits hold the parser's double second exactly.
    values, _ = kv.from_calendar(NS.astype("M8[ms]"), storage="s128:64")
    texts = kv.format(values.reshape(4, 6, 2), pattern, storage="s128:64")
    back, _ = kv.parse(texts, pattern, storage="s128:64")
    np.testing.assert_array_equal(
        kv.format(back, pattern, storage="s128:64"), texts)


@pytest.mark.parametrize("mark", ["é", "€", "\U0001F600"])
def test_non_ascii_literals_parse_from_str_and_utf8_bytes(mark):
    pattern = "dd'%s'MM'%s'yyyy" % (mark, mark)
    texts = np.array(["31%s12%s2016" % (mark, mark), "01%s02%s1999" % (
        mark, mark)])
    want, _ = kv.from_calendar([[2016, 12, 31, 0, 0, 0], [1999, 2, 1, 0, 0, 0]])
    for given in (texts, np.char.encode(texts, "utf-8")):
        got, _ = kv.parse(given, pattern)
        np.testing.assert_array_equal(got, want)
    assert kv.format(want, pattern) == texts.tolist()
