"""Seeded random text of arbitrary code points (lone surrogates included)
and arbitrary Python values as arguments: each call succeeds or raises a
documented exception; a pattern formats an array as it formats one value."""
import random

import numpy as np
import pytest

import kvdatetime as kv
from kvdatetime import DateTime

EXPECTED = (kv.KvDateTimeError, ValueError, TypeError, OverflowError)
VALUES = np.array([1483228799.0, 0.0, -1e9, 4102444800.5])
D = DateTime((2016, 12, 31, 23, 59, 59.5))


def text(rng, n):
    out = []
    for _ in range(n):
        r = rng.random()
        if r < 0.5:
            out.append(rng.choice("tGyuMdDeahHmsS'' :.-"))
        elif r < 0.7:
            out.append(chr(rng.randrange(0, 0x80)))
        elif r < 0.8:
            out.append(rng.choice("\ufeff\ufffe\ud800\udfff\u0000\uffff"))
        else:
            out.append(chr(rng.randrange(0x80, 0x110000)))
    return "".join(out)


def outcome(call):
    try:
        return call()
    except EXPECTED as e:
        return e


@pytest.mark.parametrize("seed", range(4))
def test_random_patterns_format_alike_or_raise_documented_errors(seed):
    rng = random.Random(seed)
    for _ in range(400):
        pattern = text(rng, rng.randrange(0, 24))
        one = outcome(lambda: [DateTime.from_stored(v).format(pattern)
                               for v in VALUES])
        many = outcome(lambda: kv.format(VALUES, pattern))
        if isinstance(one, list):
            assert many == one, pattern
        else:
            assert type(many) is type(one), (pattern, one, many)


@pytest.mark.parametrize("seed", range(4))
def test_random_arguments_raise_only_documented_errors(seed):
    rng = random.Random(100 + seed)
    junk = [None, "", "x", b"\xff", 1.5, -1, 2 ** 130, float("nan"),
            float("inf"), [], (1,), {}, object(), np.zeros(2), True, 10 ** 400,
            "2016-12-31 23:59:59", np.array(["a"]), np.int64(7)]

    def anything():
        r = rng.random()
        return text(rng, rng.randrange(0, 12)) if r < 0.3 else \
            rng.choice(junk)

    calls = [
        lambda: DateTime(tuple(anything() for _ in range(rng.randrange(2, 8)))),
        lambda: DateTime((2016, 1, 1), storage=anything()),
        lambda: DateTime((2016, 1, 1), epoch=anything(), standard=anything()),
        lambda: DateTime((2016, 1, 1), word_length=anything(),
                         fraction_length=anything(), signed=anything()),
        lambda: DateTime.from_stored(anything(), storage=rng.choice(
            ["double", "int8", "s128:64", "u128:0"])),
        lambda: DateTime.from_compact(anything()),
        lambda: D.add(anything()),
        lambda: D.convert(epoch=anything(), table=anything()),
        lambda: D.format(anything()),
        lambda: kv.to_calendar(anything(), storage=rng.choice(
            ["double", "int64", "s128:0"]), leap_second=anything()),
        lambda: kv.from_calendar(anything()),
        lambda: kv.convert_standard(anything(), anything(), anything()),
        lambda: kv.format(anything(), anything()),
        lambda: kv.LeapSecondTable.from_text(anything()),
    ]
    for _ in range(600):
        # A result, a time point past the calendar included, has a repr.
        repr(outcome(rng.choice(calls)))
