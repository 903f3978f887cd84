"""Runs the built kvdt as a user would. usage: kvdt_cli_test.py KVDT README"""
import calendar
import json
import os
import pty
import random
import re
import select
import shlex
import subprocess
import sys
import tempfile
import time

KVDT, README = sys.argv[1], sys.argv[2]
failures = []


def run(args, **kw):
    p = subprocess.run([KVDT] + args, capture_output=True, text=True,
                       errors="surrogateescape", timeout=60, **kw)
    return p.returncode, p.stdout, p.stderr


def argv_of(command):
    """A shell-quoted command; bytes for arguments that are not UTF-8."""
    if isinstance(command, str):
        return shlex.split(command)
    return [a.encode("latin-1") for a in shlex.split(command.decode("latin-1"))]


def check(cond, what):
    if not cond:
        failures.append(what)


# Every "$ kvdt ..." line of a console block prints exactly the lines below
# it: errors ("Korvane:..." or {"error": ...}) on stderr, the rest on stdout,
# and an error means status 2. "<<END" feeds the lines up to "END" to
# standard input, as a shell here-document would.
ERROR_LINE = re.compile(r'Korvane:[\w:]+: |\{"error":')
examples = 0
text = open(README, encoding="utf-8").read()
for block in re.findall(r"```console\n(.*?)```", text, re.S):
    for command, feed, expected in re.findall(
            r"^\$ (kvdt .*?)(?: <<END\n((?:(?!END\n).*\n)*)END)?\n"
            r"((?:(?!\$ ).*\n)*)", block, re.M):
        examples += 1
        rc, out, err = run(shlex.split(command)[1:], input=feed)
        lines = expected.splitlines()
        errors = [l for l in lines if ERROR_LINE.match(l)]
        results = [l for l in lines if not ERROR_LINE.match(l)]
        check(rc == (2 if errors else 0) and out.splitlines() == results and
              err.splitlines() == errors,
              f"README `{command}`: status {rc}, printed\n{out}{err}instead "
              f"of\n{expected}")
check(examples >= 5, f"only {examples} kvdt examples found in the README")

# Bad input ends with one line "<identifier>: <message>" on stderr and status
# 2; a clock that overflows has printed the steps before.
R = "'2016-12-31 23:59:59'"
BAD = [("bogus", "kvdt:UnknownSubcommand"), ("convert", "kvdt:BadArguments"),
       ("convert yesterday", "DateTime:ParseMismatch"),
       ("convert '2016-12-31 23:5'", "DateTime:ParseMismatch"),
       ("convert '2016-12-31 23:59:60' --standard tai",
        "DateTime:ParseInvalidDateTime"),
       ("convert 2016-12-31T23:59:59Z --standard tai",
        "DateTime:ParseTimeStandardMismatch"),
       ("convert 12:00 --input-format HH:mm", "DateTime:ParsePatternIncomplete"),
       ("convert 2016 --input-format 'yyyy x'", "DateTime:InvalidFormatChar"),
       ("convert @x", "kvdt:BadStoredCount"), ("convert @", "kvdt:BadStoredCount"),
       ("convert @nan", "DateTime:StoredCountOutOfRange"),
       ("convert @300 --type int8", "DateTime:StoredCountOutOfRange"),
       ("convert --input /", "kvdt:CannotReadInput"),
       ("convert --input /none/file", "kvdt:CannotReadInput"),
       ("convert --input /dev/zero", "kvdt:LineTooLong"),
       ("convert --epoch mjd", "kvdt:BadArguments"),
       ("leap-seconds --type int8", "kvdt:NoLeapSecondFitsType"),
       ("convert 0 --type int8 --to-standard tai",
        "kvdt:NoLeapSecondFitsType"),
       ("--json convert yesterday", "DateTime:ParseMismatch"),
       ("convert --json --input /", "kvdt:CannotReadInput"),
       ("--json bogus", "kvdt:UnknownSubcommand"),
       (f"convert {R} --epoch 1971", "kvdt:UnknownEpoch"),
       (f"convert {R} --to-standard gps", "kvdt:UnknownStandard"),
       (f"convert {R} --type s200.0", "kvdt:UnknownType"),
       (f"convert {R} --type u8.0", "DateTime:ReadingOutOfStorageRange"),
       ("convert nan", "DateTime:StoredCountOutOfRange"),
       ("convert '2016-12-31 23:59:60.5' --to-type s16.0",
        "DateTime:ReadingOutOfStorageRange"),
       ("leap-seconds --leap-seconds-list /", "kvdt:CannotReadList"),
       ("leap-seconds --leap-seconds-list /none/list", "kvdt:CannotReadList"),
       (f"convert {R} --to-standard tdb",
        "DateTime:TDBTSOnlySupportJulianDayTU"),
       (f"format 'yyyy-MM-dd x' {R}", "DateTime:InvalidFormatChar"),
       ("check-format eeeeee", "DateTime:InvalidDayOfWeekToken"),
       (f"step {R} --count 0", "kvdt:BadCount"),
       (f"step {R} --step nan", "kvdt:BadStep"),
       (f"step {R} --step 1e9 --count 3 --type s32.0", "kvdt:Overflow"),
       # Caught before the first row, not after printing the rows that fit.
       (f"step {R} --step 2e11 --count 3 --type int64", "DateTime:BadYear"),
       (f"step {R} --count 1000 --show " + ",".join(["utc"] * 1001),
        "kvdt:BadCount"),
       ("convert 300 --type int8", "DateTime:StoredCountOutOfRange"),
       ("convert -1e30 --type int8", "DateTime:StoredCountOutOfRange"),
       ("convert 1e300 --type u128:0", "DateTime:StoredCountOutOfRange"),
       ("leap-seconds --leap-seconds-list /dev/zero", "kvdt:CannotReadList"),
       # A leap second that the target storage rounds out of itself, and a
       # second 60 where none was inserted.
       ("convert '2016-12-31 23:59:60.5' --to-type int64 --to-standard tai",
        "DateTime:LeapSecondLostInStorage"),
       ("convert '2016-12-31 23:59:60.5' --type int64",
        "DateTime:LeapSecondLostInStorage"),
       ("convert '2015-12-31 23:59:60'", "DateTime:NoLeapSecondInserted"),
       ("convert 1e15", "DateTime:BadYear"),
       (b"format \"'\xc3' yyyy\" '2016-01-01 00:00:00'", "kvdt:BadText"),
       (b"--json format \"'\xc3' yyyy\" '2016-01-01 00:00:00'",
        "kvdt:BadText"),
       (b"convert '2016-01-01 00:00:00' --format \"yyyy '\xed\xa0\x80'\"",
        "kvdt:BadText"),
       (b"check-format \"'\xf0\x9f\x98'\"", "kvdt:BadText"),
       (b"convert '2016\xff-01-01 00:00:00'", "kvdt:BadText")]


def one_error(err, json_wanted):
    """The identifier of the single error line on stderr, text or JSON."""
    if len(err.splitlines()) != 1:
        return None
    if json_wanted:
        try:
            return json.loads(err)["error"]["identifier"]
        except (ValueError, KeyError, TypeError):
            return None
    m = re.match(r"(Korvane:\w+:\w+): ", err)
    return m and m.group(1)


for command, ident in BAD:
    args = argv_of(command)
    rc, out, err = run(args)
    check(rc == 2 and out == "" and
          one_error(err, "--json" in args or b"--json" in args) ==
          f"Korvane:{ident}", f"{command}: {rc} {err!r}, not {ident}")

# Output that cannot be written is a failure, whatever printed it: a full
# device, or no stdout at all (closed in the child before kvdt starts).
WRITERS = [f"convert {R}", f"format yyyy {R}", "check-format yyyy",
           "leap-seconds", f"step {R} --count 3"]
for command in [w + j for w in WRITERS for j in ("", " --json")] + [
        "--help", "step --help", "--json --help"]:
    for sink, how in (("/dev/full", {"stdout": None}),
                      ("closed", {"preexec_fn": lambda: os.close(1)})):
        with open("/dev/full", "w") as full:
            p = subprocess.run(
                [KVDT] + shlex.split(command), stderr=subprocess.PIPE,
                stdout=full if sink == "/dev/full" else subprocess.DEVNULL,
                text=True, timeout=60,
                **{k: v for k, v in how.items() if k != "stdout"})
        check(p.returncode == 2 and
              one_error(p.stderr, "--json" in command) ==
              "Korvane:kvdt:WriteFailed",
              f"{command} > {sink}: {p.returncode} {p.stderr!r}")

for command in ("convert '2016-12-31 23:59:60.5' --to-standard tai",
                "format yyyy-MM-dd '2016-12-31 23:59:60.5'",
                "check-format 'HH:mm t'", f"leap-seconds --from {R}",
                f"step {R} --count 3"):
    rc, out, err = run(["--json"] + shlex.split(command))
    check(rc == 0 and err == "" and json.loads(out) is not None,
          f"--json {command}: {rc} {out!r}")
entries = json.loads(run(["leap-seconds", "--json"])[1])["entries"]
check(len(entries) == 27 and entries[-1]["total"] == 27, "27 built-in entries")

# A count a hair below a whole minute reads as second 59.999..., never as
# second 60 outside a leap second.
for value, storage in (("-1e-17", "double"), ("-1e-20", "double"),
                       ("-0.0000001", "s64:40")):
    rc, out, _ = run(["convert", "--type", storage, "--", value])
    check(rc == 0 and out.startswith("1969-12-31 23:59:59.99999"),
          f"convert {value} --type {storage}: {rc} {out!r}")

# A double day count must still land each step on the right side of the
# leap second's edges.
rc, out, _ = run(shlex.split(f"step {R} --step 0.25 --count 9 --epoch j2000 "
                             "--show utc"))
check(rc == 0 and out.splitlines()[4] == "2016-12-31 23:59:60.000 UTC" and
      out.splitlines()[8] == "2017-01-01 00:00:00.000 UTC",
      f"j2000 double steps: {rc} {out!r}")

# The list as published: NTP seconds of each new TAI - UTC, from 1972 on.
STEPS = """197201 197207 197301 197401 197501 197601 197701 197801 197901
198001 198107 198207 198307 198507 198801 199001 199101 199207 199307
199407 199601 199707 199901 200601 200901 201207 201507 201701 203001"""
NTP = [calendar.timegm((int(s[:4]), int(s[4:]), 1, 0, 0, 0)) + 2208988800
       for s in STEPS.split()]


def write_list(directory, name, expires, entries, broken=False):
    lines = ["#\tleap seconds", f"#@\t{expires}"] + [
        f"{n}\t{10 + k}\t# entry" for k, n in enumerate(NTP[:entries])]
    if broken:
        lines.insert(3, "2272060800 ten")
    with open(os.path.join(directory, name), "w") as f:
        f.write("\n".join(lines) + "\n")
    return os.path.join(directory, name)


with tempfile.TemporaryDirectory() as d:
    builtin = run(["leap-seconds"])[1]
    # 2025-06-28: long past, used with a warning.
    rc, out, err = run(["leap-seconds", "--leap-seconds-list",
                        write_list(d, "old", 3960057600, 28)])
    check(rc == 0 and out == builtin and "warning" in err and
          "expired on 2025-06-28" in err, f"expired list: {rc} {err!r}")
    # Far ahead: current, and with a leap second at the end of 2029.
    rc, out, err = run(["leap-seconds", "--leap-seconds-list",
                        write_list(d, "new", 7000000000, 29)])
    last = out.splitlines()[-1] if out else ""
    check(rc == 0 and err == "" and last.startswith("2029-12-31 23:59:59") and
          "   28   " in last, f"current list: {out!r} {err!r}")
    rc, out, err = run(shlex.split(f"step {R} --count 2 --leap-seconds-list") +
                       [write_list(d, "bad", 7000000000, 28, broken=True)])
    check(rc == 2 and out == "" and err.startswith("Korvane:DateTime:"
          "BadLeapSecondListLine: Line 4 "), f"malformed list: {rc} {err!r}")

    # A list bigger than any published one is refused before it is parsed;
    # standard input is read like a file.
    big = os.path.join(d, "big")
    with open(big, "w") as f:
        f.write("#\n" * (1 << 20))
    rc, out, err = run(["leap-seconds", "--leap-seconds-list", big])
    check(rc == 2 and out == "" and
          err.startswith("Korvane:kvdt:ListTooLarge: "), f"big list: {err!r}")
    with open(write_list(d, "stdin", 7000000000, 29)) as f:
        rc, out, err = run(["leap-seconds", "--leap-seconds-list", "-"],
                           stdin=f)
    check(rc == 0 and out.splitlines()[-1].startswith("2029-12-31"),
          f"list on stdin: {rc} {err!r}")

# Files: every failure names its line; --keep-going converts the rest and
# ends with status 2; a stream longer than the line limit is refused.
with tempfile.TemporaryDirectory() as d:
    log = os.path.join(d, "log")
    with open(log, "w") as f:
        f.write("2016-12-31T23:59:60.5Z\n@1483228800\nbad\r\n2017-01-01\n"
                "@1e300\n2017-01-01 00:00")  # no line end on the last line
    rc, out, err = run(["convert", "--input", log])
    check(rc == 2 and len(out.splitlines()) == 2 and
          err.startswith("Korvane:DateTime:ParseMismatch: ") and
          err.endswith(f'(line 3 of "{log}": "bad")\n'),
          f"first bad line: {rc} {out!r} {err!r}")
    rc, out, err = run(["convert", "--keep-going", "--json", "--input", log])
    errors = [json.loads(l)["error"] for l in err.splitlines()]
    check(rc == 2 and len(out.splitlines()) == 4 and
          [(e["line"], e["input"], e["source"]) for e in errors] ==
          [(3, "bad", log), (5, "@1e300", log)] and
          errors[1]["identifier"] == "Korvane:DateTime:BadYear",
          f"--keep-going: {rc} {out!r} {errors!r}")
    check(all(json.loads(l)["output"]["standard"] == "UTC"
              for l in out.splitlines()), f"JSON lines: {out!r}")
    with open(log, "w") as f:
        f.write("2016-12-31\n" + "9" * 5000 + "\n2017-01-01\n")
    rc, out, err = run(["convert", "--input", log, "--keep-going"])
    check(rc == 2 and len(out.splitlines()) == 1 and
          err.startswith("Korvane:kvdt:LineTooLong: Line 2 "),
          f"overlong line: {rc} {out!r} {err!r}")

    # A file converts as its lines would one by one, in readings of every
    # form the preset reads and in stored counts.
    rng = random.Random(20161231)
    values = []
    for _ in range(200):
        t = rng.randrange(-2208988800, 4102444800)
        g = time.gmtime(t)
        form = rng.randrange(5)
        if form == 0:
            values.append(f"@{t}")
        elif form == 1:
            values.append(time.strftime("%Y-%m-%d", g))
        elif form == 2:
            values.append(time.strftime("%Y-%m-%dT%H:%M", g) + "Z")
        else:
            frac = "".join(rng.choice("0123456789")
                           for _ in range(rng.randrange(1, 10)))
            values.append(time.strftime("%Y-%m-%d %H:%M:%S.", g) + frac)
    with open(log, "w") as f:
        f.write("\n".join(values) + "\n")
    for extra in ([], ["--to-standard", "tai", "--type", "s64:20"],
                  ["--format", "yyyy年MM月dd日 eeee h a ss.SSSS t"]):
        rc, out, err = run(["convert", "--input", log] + extra)
        single = [run(["convert"] + extra + ["--", v])[1] for v in values]
        check(rc == 0 and err == "" and out.splitlines(keepends=True) == single,
              f"file against single values {extra}: {rc} {err!r}")

    # A progress line only when stderr is a terminal.
    with open(log, "w") as f:
        f.write("2016-12-31\n" * 250000)
    rc, out, err = run(["convert", "--input", log])
    check(rc == 0 and err == "" and len(out.splitlines()) == 250000,
          f"long input, stderr piped: {rc} {err[:200]!r}")
    master, slave = pty.openpty()
    p = subprocess.run([KVDT, "convert", "--input", log], stderr=slave,
                       stdout=subprocess.DEVNULL, timeout=60)
    os.close(slave)
    shown = b""
    while select.select([master], [], [], 0)[0]:
        try:
            chunk = os.read(master, 4096)
        except OSError:
            break
        if not chunk:
            break
        shown += chunk
    os.close(master)
    check(p.returncode == 0 and b"200000 lines" in shown,
          f"long input, stderr a terminal: {shown[:200]!r}")

# --json is offered by every subcommand.
for sub in ("convert", "format", "check-format", "patterns", "leap-seconds",
            "step"):
    rc, out, _ = run([sub, "--help"])
    check(rc == 0 and "--json" in out, f"{sub} --help lacks --json")

# The letters' examples are the formatter's renderings.
rows = json.loads(run(["patterns", "--json"])[1])["letters"]
check("".join(r["letter"] for r in rows) == "tGyuMdDeahHmsS", f"{rows!r}")
for r in rows:
    for e in r["examples"]:
        rc, out, _ = run(["format", e["pattern"], "2016-12-31 23:59:60.5"])
        check(rc == 0 and out == e["text"] + "\n", f"pattern {e!r}: {out!r}")

rc, out, err = run(["--version"])
check(rc == 0 and re.fullmatch(r"kvdt \d+\.\d+\.\d+\n", out), f"--version: {out!r}")

print("".join(f"FAILED: {f}\n" for f in failures), end="")
print(f"{examples} README examples, {len(BAD)} bad inputs checked")
sys.exit(1 if failures else 0)
