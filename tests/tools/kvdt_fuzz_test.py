"""Random argument vectors for kvdt, from a grammar of its real options plus
garbage (arbitrary code points, invalid UTF-8). Seeded and bounded.
usage: kvdt_fuzz_test.py KVDT [RUNS] [SEED]

Whatever the arguments, kvdt ends with status 0 or 2 and no signal; on 2
every line on stderr is an error, "<identifier>: <message>" or under --json
{"error": {...}}, and only `convert` (one line per value) may have written
results before it; otherwise exactly one error line and nothing on stdout.
On 0 nothing to stderr, UTF-8 on stdout, one JSON object per line under
--json. An argument that is not UTF-8 is refused as such, whatever else is
wrong."""
import json
import random
import re
import subprocess
import sys

KVDT = sys.argv[1]
RUNS = int(sys.argv[2]) if len(sys.argv) > 2 else 150
rng = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 20161231)


def code_points(n):
    """Text of n code points: mostly pattern letters and quotes, some from
    anywhere in Unicode (surrogates excepted: argv is bytes)."""
    out = []
    for _ in range(n):
        r = rng.random()
        if r < 0.6:
            out.append(rng.choice("tGyuMdDeahHmsS'- :."))
        elif r < 0.8:
            out.append(chr(rng.randrange(0x01, 0x80)))
        else:
            c = rng.randrange(0x80, 0x110000)
            out.append(chr(c if not 0xd800 <= c <= 0xdfff else 0xfffe))
    return "".join(out)


def garbage():
    r = rng.random()
    if r < 0.4:
        return code_points(rng.randrange(0, 12))
    if r < 0.7:  # bytes that are mostly not UTF-8
        return bytes(rng.randrange(1, 256) for _ in range(rng.randrange(1, 8)))
    return rng.choice(["-", "--", "-x", "--json", "--help", "", " ", "0",
                       "--to-epoch", "=", "--count=3"])


READINGS = ["2016-12-31 23:59:59", "2016-12-31 23:59:60.5", "1972-01-01T00:00:00",
            "9999-12-31 23:59:59.999", "1400-01-01 00:00:00", "2015-06-30 23:59:60",
            "2016-02-30 00:00:00", "0", "1e9", "-1e30", "nan", "inf", "300",
            "1483228799.5", "2016-12-31 23:59", "2016-12-31", "@1483228800",
            "@-1e30", "@x", "2016-12-31T23:59:60.5Z", "2016-12-31T23:59:60z",
            "31/12/2016 23:59", "-"]
VALUES = {
    "--epoch": ["1970", "1900", "1958", "jd", "mjd", "j2000", "JD", "1971"],
    "--to-epoch": ["1970", "jd", "mjd", "j2000", "x"],
    "--standard": ["utc", "tai", "tt", "tdb", "gps"],
    "--to-standard": ["utc", "tai", "tt", "tdb", ""],
    "--type": ["double", "int64", "int8", "u8:0", "s32:0", "s64:20", "s128:64",
               "u128:0", "s200:0", "s16:-3", "u64:64"],
    "--to-type": ["double", "int8", "s64:32", "s128:100", "u16:0"],
    "--step": ["1", "0.25", "-86400", "1e9", "1e300", "nan", "inf", "x"],
    "--count": ["1", "3", "17", "0", "-1", "1000001", "1e3", "x"],
    "--show": ["utc", "utc,tai,tt", "tdb", "utc,,tai", "x"],
    "--from": READINGS[:4],
    "--leap-seconds-list": ["/", "/dev/null", "/nonexistent", "-"],
    "--input": ["/", "/dev/null", "/nonexistent", "-", "/dev/zero"],
    "--input-format": ["dd/MM/yyyy HH:mm", "yyyy", "HH:mm", "x"],
}
SUBCOMMANDS = {
    "convert": (["value", "value", "value"],
                ["--epoch", "--standard", "--type", "--to-epoch",
                 "--to-standard", "--to-type", "--format",
                 "--leap-seconds-list", "--input", "--input-format",
                 "--keep-going", "--json"]),
    "patterns": ([], ["--json"]),
    "format": (["pattern", "reading"], ["--standard"]),
    "check-format": (["pattern"], []),
    "leap-seconds": ([], ["--epoch", "--type", "--from", "--standard",
                          "--leap-seconds-list"]),
    "step": (["reading"], ["--epoch", "--standard", "--type", "--step",
                           "--count", "--show", "--format",
                           "--leap-seconds-list"]),
}


def pattern():
    return rng.choice(["yyyy-MM-dd HH:mm:ss.SSS t", "EEEE", "e" * 6, "SSS SS",
                       code_points(rng.randrange(0, 16))])


def argv():
    sub = rng.choice(list(SUBCOMMANDS) + ["bogus"])
    args = ["--json"] if rng.random() < 0.4 else []
    args.append(sub)
    positional, options = SUBCOMMANDS.get(sub, ([], []))
    for k, name in enumerate(positional):
        if rng.random() < (0.9 if k == 0 else 0.3):
            args.append(pattern() if name == "pattern" else
                        rng.choice(READINGS))
    for name in rng.sample(options, rng.randrange(0, len(options) + 1)):
        args.append(name)
        if name in ("--keep-going", "--json"):
            continue
        if rng.random() < 0.95:
            args.append(pattern() if name == "--format" else
                        rng.choice(VALUES[name]))
    for _ in range(rng.randrange(0, 3) if rng.random() < 0.3 else 0):
        args.insert(rng.randrange(len(args) + 1), garbage())
    return args


def utf8(b):
    try:
        b.decode("utf-8")
        return True
    except UnicodeDecodeError:
        return False


failures = []
LINE = re.compile(r"Korvane:\w+:\w+: [^\n]+")


def error_line(line, json_wanted):
    if not json_wanted:
        return LINE.fullmatch(line) is not None
    try:
        e = json.loads(line)["error"]
        return re.fullmatch(r"Korvane:\w+:\w+", e["identifier"]) is not None
    except (ValueError, KeyError, TypeError):
        return False



for run in range(RUNS):
    args = argv()
    p = subprocess.run([KVDT] + args, capture_output=True, timeout=60,
                       stdin=subprocess.DEVNULL)
    out, err = p.stdout, p.stderr.decode("utf-8", "replace")
    why = None
    not_utf8 = any(isinstance(a, bytes) and not utf8(a) for a in args)
    if p.returncode not in (0, 2):
        why = f"status {p.returncode}"
    elif p.returncode == 2 and not (
            err.endswith("\n") and
            all(error_line(l, "--json" in args) for l in err.splitlines()) and
            (("convert" in args and "--help" not in args) or
             (out == b"" and len(err.splitlines()) == 1))):
        why = f"bad failure report {err!r} / {out[:80]!r}"
    elif not_utf8 and "Korvane:kvdt:BadText" not in err:
        why = f"an argument that is not UTF-8 gave {p.returncode} {err!r}"
    elif p.returncode == 0:
        try:
            text = out.decode("utf-8")
        except UnicodeDecodeError:
            text, why = "", "stdout is not UTF-8"
        if err:
            why = f"stderr on success: {err!r}"
        elif "--json" in args and "--help" not in args and not why:
            try:
                for line in text.splitlines():
                    json.loads(line)
            except ValueError:
                why = f"--json printed {text[:80]!r}"
    if why:
        failures.append(f"{args!r}: {why}")

print("".join(f"FAILED: {f}\n" for f in failures[:20]), end="")
print(f"{RUNS} random argument vectors, {len(failures)} failed")
sys.exit(1 if failures else 0)
