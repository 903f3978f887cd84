"""Runs the built kvdt as a user would.

Every "$ kvdt ..." example in the README's console blocks must print exactly
what the README shows; bad input must end with "<identifier>: <message>" on
stderr and status 2; --json output must parse; leap-second lists on disk
must be used, warned about when expired and refused when malformed.

usage: kvdt_cli_test.py KVDT README
"""
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile

KVDT, README = sys.argv[1], sys.argv[2]
failures = []


def run(args):
    p = subprocess.run([KVDT] + args, capture_output=True, text=True,
                       timeout=60)
    return p.returncode, p.stdout, p.stderr


def check(cond, what):
    if not cond:
        failures.append(what)


def readme_examples():
    text = open(README, encoding="utf-8").read()
    for block in re.findall(r"```console\n(.*?)```", text, re.S):
        command, expected = None, []
        for line in block.splitlines() + ["$ "]:
            if line.startswith("$ "):
                if command:
                    yield command, "\n".join(expected)
                command, expected = line[2:].strip(), []
            else:
                expected.append(line)


examples = 0
for command, expected in readme_examples():
    args = shlex.split(command)
    if not args or args[0] != "kvdt":
        continue
    examples += 1
    rc, out, err = run(args[1:])
    shown = (out + err).rstrip("\n")
    want_rc = 2 if re.match(r"Korvane:[\w:]+: ", expected) else 0
    check(rc == want_rc and shown == expected.rstrip("\n"),
          f"README example `{command}`: status {rc}, printed\n{shown}\n"
          f"instead of\n{expected}")
check(examples >= 5, f"only {examples} kvdt examples found in the README")

BAD = [
    (["bogus"], "Korvane:kvdt:UnknownSubcommand"),
    (["convert"], "Korvane:kvdt:BadArguments"),
    (["convert", "2016-12-31 23:59:60", "--bogus"], "Korvane:kvdt:BadArguments"),
    (["convert", "yesterday"], "Korvane:kvdt:BadReading"),
    (["convert", "2016-12-31 23:59"], "Korvane:kvdt:BadReading"),
    (["convert", "2016-13-01 00:00:00"], "Korvane:DateTime:BadMonth"),
    (["convert", "2016-12-30 23:59:60"], "Korvane:DateTime:BadLeapSecond"),
    (["convert", "2016-12-31 23:59:60", "--standard", "tai"],
     "Korvane:DateTime:BadSecond"),
    (["convert", "2016-01-01 00:00:00", "--epoch", "1971"],
     "Korvane:kvdt:UnknownEpoch"),
    (["convert", "2016-01-01 00:00:00", "--to-standard", "gps"],
     "Korvane:kvdt:UnknownStandard"),
    (["convert", "2016-01-01 00:00:00", "--type", "s200.0"],
     "Korvane:kvdt:UnknownType"),
    (["convert", "2016-01-01 00:00:00", "--type", "u8.0"],
     "Korvane:kvdt:OutOfRange"),
    (["convert", "nan"], "Korvane:kvdt:BadValue"),
    (["convert", "2016-12-31 23:59:60.5", "--to-type", "s16.0"],
     "Korvane:kvdt:OutOfRange"),
    (["leap-seconds", "--leap-seconds-list", "/"],
     "Korvane:kvdt:CannotReadList"),
    (["convert", "2016-01-01 00:00:00", "--to-standard", "tdb"],
     "Korvane:DateTime:TDBTSOnlySupportJulianDayTU"),
    (["format", "yyyy-MM-dd x", "2016-01-01 00:00:00"],
     "Korvane:DateTime:InvalidFormatChar"),
    (["check-format", "eeeeee"], "Korvane:DateTime:InvalidDayOfWeekToken"),
    (["check-format", "s.SSS s.SS"],
     "Korvane:DateTime:MultipleFractionalSecondTokens"),
    (["step", "2016-12-31 23:59:59", "--count", "0"], "Korvane:kvdt:BadCount"),
    (["step", "2016-12-31 23:59:59", "--step", "nan"], "Korvane:kvdt:BadStep"),
    (["step", "2016-12-31 23:59:59", "--step", "1e9", "--count", "3",
      "--type", "s32.0"], "Korvane:kvdt:Overflow"),
    (["leap-seconds", "--leap-seconds-list", "/nonexistent/list"],
     "Korvane:kvdt:CannotReadList"),
]
for args, ident in BAD:
    rc, out, err = run(args)
    # A clock that overflows has printed the steps before.
    check(rc == 2 and err.startswith(ident + ": ") and
          (out == "" or args[0] == "step")
          and len(err.splitlines()) == 1,
          f"{args}: status {rc}, stderr {err!r}, expected {ident}")

for args in (["convert", "2016-12-31 23:59:60.5", "--to-standard", "tai"],
             ["format", "yyyy-MM-dd", "2016-12-31 23:59:60.5"],
             ["check-format", "HH:mm t"],
             ["leap-seconds", "--from", "2015-01-01 00:00:00"],
             ["step", "2016-12-31 23:59:59", "--count", "3"]):
    rc, out, err = run(["--json"] + args)
    try:
        json.loads(out)
        parsed = True
    except ValueError:
        parsed = False
    check(rc == 0 and parsed and err == "", f"--json {args}: {rc} {out!r}")
rc, out, _ = run(["leap-seconds", "--json"])
check(rc == 0 and len(json.loads(out)["entries"]) == 27 and
      json.loads(out)["entries"][-1]["total"] == 27, "27 built-in entries")

# A double day count must still land each step on the right side of the
# leap second's edges.
rc, out, _ = run(["step", "2016-12-31 23:59:59", "--step", "0.25", "--count",
                  "9", "--epoch", "j2000", "--show", "utc"])
check(rc == 0 and out.splitlines()[4] == "2016-12-31 23:59:60.000 UTC" and
      out.splitlines()[8] == "2017-01-01 00:00:00.000 UTC",
      f"j2000 double steps: {rc} {out!r}")

DATA = [(2272060800, 10), (2287785600, 11), (2303683200, 12), (2335219200, 13),
        (2366755200, 14), (2398291200, 15), (2429913600, 16), (2461449600, 17),
        (2492985600, 18), (2524521600, 19), (2571782400, 20), (2603318400, 21),
        (2634854400, 22), (2698012800, 23), (2776982400, 24), (2840140800, 25),
        (2871676800, 26), (2918937600, 27), (2950473600, 28), (2982009600, 29),
        (3029443200, 30), (3076704000, 31), (3124137600, 32), (3345062400, 33),
        (3439756800, 34), (3550089600, 35), (3644697600, 36), (3692217600, 37)]


def write_list(directory, name, expires, extra=(), broken=False):
    lines = ["#\tleap seconds", f"#@\t{expires}"]
    lines += [f"{n}\t{o}\t# entry" for n, o in list(DATA) + list(extra)]
    if broken:
        lines.insert(3, "2272060800 ten")
    path = os.path.join(directory, name)
    with open(path, "w") as f:
        f.write("\n".join(lines) + "\n")
    return path


with tempfile.TemporaryDirectory() as d:
    builtin = run(["leap-seconds"])[1]
    # 2025-06-28: long past.
    rc, out, err = run(["leap-seconds", "--leap-seconds-list",
                        write_list(d, "old", 3960057600)])
    check(rc == 0 and out == builtin and "warning" in err and "expired on "
          "2025-06-28" in err, f"expired list: {rc} {err!r}")
    # 2128: current, and with a leap second at the end of 2029.
    rc, out, err = run(["leap-seconds", "--leap-seconds-list",
                        write_list(d, "new", 7000000000,
                                   extra=[(4102444800, 38)])])
    check(rc == 0 and err == "" and
          out.splitlines()[-1].startswith("2029-12-31 23:59:59") and
          "   28   " in out.splitlines()[-1], f"current list: {out!r} {err!r}")
    rc, out, err = run(["step", "2016-12-31 23:59:59", "--count", "2",
                        "--leap-seconds-list",
                        write_list(d, "bad", 7000000000, broken=True)])
    check(rc == 2 and out == "" and err.startswith(
        "Korvane:DateTime:BadLeapSecondListLine: Line 4 "),
          f"malformed list: {rc} {err!r}")

for f in failures:
    print("FAILED:", f)
print(f"{examples} README examples, {len(BAD)} bad inputs checked")
sys.exit(1 if failures else 0)
