"""Batch conversion speed beside pyerfa, in one run on the same data.

10^6 UTC instants 1972-2030 (sorted, as a log is), held as seconds since
1970 in double storage; pyerfa gets the same instants as two-part Julian
dates, made before the clock starts. Each contender is timed as the best
of a few runs. The library's own loops, which the module calls, are timed
without Python beside their memory limit by bench/batch_bench.cpp
(kv_bench_batch).

Strings to stored values: the same instants as ISO 8601 texts with
microseconds (a NumPy str array), read by the library's parser, by NumPy's
datetime64 parser, and by astropy's Time(texts, scale="utc") (on at most
10^5 of them, best of three: it is far slower). kv.parse reads the str array's
UCS-4 buffer in place with the fast ISO reader and converts the readings a
chunk at a time.

Result, 2026-11-24, quiet VM (load under 1), two runs: strings to stored
26.5-28.4 ns a text, np/kv 5.3-5.6 (goal 3), ap/kv 7.2-8.2 (goal 20, not
met: astropy takes 204-216 ns a text best of three; timed once, as before,
it showed 326-712); stored to calendar pyerfa/kv 9.5-9.6 (goal 5). UTC to
TAI shows 0.3-0.4 ns a value once its 8 MB input sits in the cache.

usage: PYTHONPATH=<build>/python python3 bench_batch.py [N]
"""
import sys
import time

import warnings

import erfa
import numpy as np

import kvdatetime as kv

# pyerfa doubts every year beyond its own table's reach (2027 on).
warnings.simplefilter("ignore", erfa.ErfaWarning)
N = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
REPEATS = 5
UNIX_JD = 2440587.5


def best(fn, repeats=REPEATS):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        fn()
        times.append(time.perf_counter() - start)
    return min(times)


rng = np.random.default_rng(1)
start, end = 63072000.0, 1924992000.0  # 1972-01-01, 2031-01-01
utc = np.sort(rng.uniform(start, end, N).round(6))
# pyerfa's quasi Julian date stretches a leap-second day to 86401 s, so its
# two parts come from the calendar reading, which NumPy's datetime64 gives.
t = (utc * 1e6).astype("datetime64[us]")
day = t.astype("datetime64[D]")
month = t.astype("datetime64[M]")
of_day = (t - day).astype(np.int64) / 1e6
u1, u2 = erfa.dtf2d("UTC", t.astype("datetime64[Y]").astype(int) + 1970,
                    month.astype(int) % 12 + 1, (day - month).astype(int) + 1,
                    (of_day // 3600).astype(int), (of_day % 3600 // 60).astype(int),
                    of_day % 60)

# The contenders agree before they are timed.
tai, _ = kv.convert_standard(utc, kv.TimeStandard.UTC, kv.TimeStandard.TAI)
t1, t2 = erfa.utctai(u1, u2)
# A TAI count since 1970 leaves out the 10 s TAI - UTC of 1972.
gap = np.abs(tai - (((t1 - UNIX_JD) + t2) * 86400 - 10)).max()
assert gap < 1e-5, f"UTC to TAI differs from pyerfa by {gap} s"
ours = kv.to_calendar(utc)
theirs = erfa.d2dtf("UTC", 6, u1, u2)
assert (ours[:, :3].astype(int) == np.column_stack(theirs[:3])).all()
clock = theirs[3]
seconds = clock["h"] * 3600.0 + clock["m"] * 60 + clock["s"] + clock["f"] / 1e6
gap = np.abs(ours[:, 3] * 3600 + ours[:, 4] * 60 + ours[:, 5] - seconds).max()
assert gap < 2e-6, f"calendar differs from pyerfa by {gap} s"

texts = np.datetime_as_string(t, unit="us")
parsed, _ = kv.parse(texts)
gap = np.abs(parsed - t.astype(np.int64) / 1e6).max()
assert gap < 1e-6, f"parsed texts differ from their instants by {gap} s"
assert (texts.astype("datetime64[us]") == t).all()
try:
    from astropy.time import Time
except ImportError:  # a benchmark peer only
    Time = None
if Time is not None:
    few = texts[: min(N, 100_000)]
    gap = np.abs(Time(few[:1000], scale="utc").unix - utc[:1000]).max()
    assert gap < 1e-5, f"astropy reads the texts {gap} s apart"

rows = [
    ("UTC to TAI", lambda: kv.convert_standard(utc),
     lambda: erfa.utctai(u1, u2)),
    ("stored to calendar", lambda: kv.to_calendar(utc),
     lambda: erfa.d2dtf("UTC", 6, u1, u2)),
]
print(f"{N} values, best of {REPEATS}; ns per value")
print(f"{'operation':<20}{'kvdatetime':>11}{'pyerfa':>9}{'pyerfa/kv':>11}"
      "  (goal >= 5)")
for name, ours_fn, theirs_fn in rows:
    kv_s, erfa_s = best(ours_fn), best(theirs_fn)
    print(f"{name:<20}{kv_s / N * 1e9:>11.1f}{erfa_s / N * 1e9:>9.1f}"
          f"{erfa_s / kv_s:>11.2f}")

print(f"{'strings to stored':<20}{'kvdatetime':>11}{'datetime64':>11}"
      f"{'np/kv':>7}  (goal >= 3)")
kv_s = best(lambda: kv.parse(texts))
np_s = best(lambda: texts.astype("datetime64[us]"))
print(f"{'ISO 8601':<20}{kv_s / N * 1e9:>11.1f}{np_s / N * 1e9:>11.1f}"
      f"{np_s / kv_s:>7.2f}")
if Time is not None:
    # Best of three on 10^5 texts: one timing swung by 2x on a shared VM.
    astropy_s = best(lambda: Time(few, scale="utc"), 3) / len(few)
    print(f"{'':<20}{'':>11}{'astropy':>11}{'ap/kv':>7}  (goal >= 20)")
    print(f"{'ISO 8601':<20}{kv_s / N * 1e9:>11.1f}{astropy_s * 1e9:>11.1f}"
          f"{astropy_s / (kv_s / N):>7.1f}")
