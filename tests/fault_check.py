#!/usr/bin/env python3
"""Plants known faults in the library one at a time and runs the test suite
against each, to show that the tests catch them. Each fault replaces one
source line; the file is restored with `git checkout` afterwards, whatever
happens. Never commit while it runs.

usage: tests/fault_check.py [BUILD_DIR] [FAULT_NAME...]
       tests/fault_check.py --check
  BUILD_DIR defaults to build/release (configured already). Prints one line per
  fault: caught (with the first failing tests), caught by the build, or
  MISSED; exits 1 if any fault was missed. A fault whose text is not found
  exactly once, or lies in a comment, is refused (SETUP) and counts as
  missed: a fault planted in a comment changes nothing and proves nothing.
  --check only validates the list, without building.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# name, file, exact text of the line part to replace (within one code line),
# replacement
FAULTS = [
    ("month length off by one", "date_time/DateTimeUtilities.cpp",
     "detail::monthLength(leap, static_cast<unsigned>(m))) {",
     "detail::monthLength(leap, static_cast<unsigned>(m)) + 1u) {"),
    ("2000 not a leap year", "date_time/CalendarCore.hpp",
     "return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;",
     "return y % 4 == 0 && y % 100 != 0;"),
    ("day count's inverse starts January a day early", "date_time/CalendarCore.hpp",
     "const bool janFeb = dayOfYear >= 306;",
     "const bool janFeb = dayOfYear >= 305;"),
    ("calendar reading's minute off", "date_time/CalendarCore.hpp",
     "static_cast<double>(sec % 3600 / 60),",
     "static_cast<double>(sec % 3599 / 60),"),
    ("fxp sign extension lost below 65 bits", "host/fxp/DataValue.cpp",
     "if (isSigned && ((v >> (bits - 1)) & 1)) v |= ~mask;",
     "if (isSigned && ((v >> (bits - 1)) & 1) && bits > 64) v |= ~mask;"),
    ("leap cursor does not advance", "date_time/TimeStandardConverter.cpp",
     "if (cursor) *cursor = static_cast<std::uint32_t>(i + 1);",
     "if (cursor) *cursor = *cursor;"),
    ("compact form byte order", "host/fxp/DataValue.cpp",
     "bytes[i] = static_cast<unsigned char>(lo_ >> (8 * i));",
     "bytes[i] = static_cast<unsigned char>(lo_ >> (56 - 8 * i));"),
    ("formatter pads one digit short", "date_time/FormatWriters.hpp",
     "for (int i = length; i < width; ++i) *out++ = u'0';",
     "for (int i = length + 1; i < width; ++i) *out++ = u'0';"),
    ("TDB sign", "date_time/TimeStandardConverter.cpp",
     "const double days = detail::tdbMinusTtSeconds(centuries) / 86400.0;",
     "const double days = -detail::tdbMinusTtSeconds(centuries) / 86400.0;"),
    ("ties to even rounds ties away", "host/fxp/DataValue.cpp",
     "return guard && (sticky || odd);",
     "return guard && (sticky || odd || !odd);"),
    ("wrong diagnostic Id", "date_time/DateTimeUtilities.cpp",
     "return ts == TimeStandard::UTC ? MsgId::BadSecondUTC : MsgId::BadSecond;",
     "return ts == TimeStandard::UTC ? MsgId::BadSecond : MsgId::BadSecond;"),
    ("epoch offset UTC shift sign", "date_time/DateTimeUtilities.cpp",
     "const double shift = ts == TimeStandard::UTC ? -kUtcShift : kTtShift;",
     "const double shift = ts == TimeStandard::UTC ? kUtcShift : kTtShift;"),
    ("fraction digits rounded at the cut", "date_time/FormatWriters.hpp",
     "return q == kScale ? 0 : q / 1'000'000;",
     "return q == kScale ? 0 : (q + 500'000) / 1'000'000;"),
    ("leap list step check lets 0 through", "date_time/LeapSecondList.cpp",
     "if (step != 1 && step != -1) raise(",
     "if (step > 1 || step < -1) raise("),
    ("weekday of a day epoch floored", "date_time/DateTime.cpp",
     "? std::trunc(sum)",
     "? std::floor(sum)"),
    ("pruned base count rounded", "date_time/LeapSecondUtilities.cpp",
     ": static_cast<std::int32_t>(d);",
     ": static_cast<std::int32_t>(std::round(d));"),
    ("-0.0 from same-type add", "host/fxp/DataValue.hpp",
     "out = ofDouble(s + 0.0);",
     "out = ofDouble(s);"),
    ("NaN counts as whole: validators accept a NaN year",
     "date_time/FloatingPoint.hpp",
     "  return x == x;",
     "  return true;"),
    ("add's shift made under the control, so its overflow is heard",
     "date_time/DateTime.cpp",
     "FXP::DataValue::fromDouble(type, magnitude, control.getMathMode());",
     "FXP::DataValue::fromDouble(FXP::DataType::doubleT(), magnitude, "
     "control.getMathMode()).convert(type, control);"),
    ("converter offset made under the control",
     "date_time/DateTimeConverter.cpp",
     "  return FXP::DataValue::fromDouble(type, x, control.getMathMode());",
     "  return FXP::DataValue::fromDouble(FXP::DataType::doubleT(), x, "
     "control.getMathMode()).convert(type, const_cast<FXP::MathControl&>(control));"),
    ("refused fromCompact changes the flag", "date_time/DateTime.cpp",
     "  const FXP::DataValue read =",
     "  this->isLeapSecond = isLeapSecond;\n  const FXP::DataValue read ="),
    ("real-world reading keeps second 60 outside a leap second",
     "date_time/Clock.hpp",
     "return second >= limit ? std::nextafter(limit, 0.0) : second;",
     "return second > limit ? std::nextafter(limit, 0.0) : second;"),
    ("real-world reading wraps a count beyond 64 bits", "date_time/Clock.cpp",
     "if (!wholePartFits(exact.value))",
     "if (!wholePartFits(exact.value) && false)"),
    ("a leap second rounded out of itself is accepted", "date_time/Clock.cpp",
     "if (!inside) raise(MsgId::LeapSecondLostInStorage",
     "if (!inside && false) raise(MsgId::LeapSecondLostInStorage"),
    ("array readings keep second 60", "date_time/Batch.cpp",
     "out[6 * i + 5] = Clock::realSecond(out[6 * i + 5], flagAt(leapSecond, i));",
     "(void)flagAt(leapSecond, i);"),
    ("parser accepts trailing text", "date_time/DateTimeParser.cpp",
     "if (!failed() && at_ != text_.size()) failAt(",
     "if (false) failAt("),
    ("refused TDB step moves the cursor", "date_time/TimeStandardConverter.cpp",
     "cursor ? &position : nullptr, holdCursor);",
     "cursor, holdCursor);"),
]


def run(cmd, cwd=ROOT):
    return subprocess.run(cmd, cwd=cwd, capture_output=True, text=True)


def setup_problem(fault):
    """Why the fault cannot be planted as listed, or None."""
    _, rel, old, _ = fault
    text = (ROOT / rel).read_text()
    if "\n" in old:
        return f"{old!r} spans lines"
    if text.count(old) != 1:
        return f"{old!r} occurs {text.count(old)} times in {rel}"
    at = text.index(old)
    line_start = text.rfind("\n", 0, at) + 1
    line_end = text.find("\n", at)
    line = text[line_start:line_end if line_end >= 0 else len(text)]
    before = text[line_start:at]
    code = line.lstrip()
    if code.startswith(("//", "/*", "*")) or "//" in before or "/*" in before:
        return f"{old!r} is in a comment in {rel}: {line.strip()!r}"
    if "//" in old:
        return f"{old!r} reaches into a comment in {rel}"
    return None


def check(build, fault):
    name, rel, old, new = fault
    problem = setup_problem(fault)
    if problem:
        return "SETUP: " + problem
    path = ROOT / rel
    text = path.read_text()
    path.write_text(text.replace(old, new))
    try:
        b = run(["cmake", "--build", build, "-j2"])
        if b.returncode != 0:
            return "caught by the build"
        t = run(["ctest", "-j2", "--timeout", "600"], cwd=ROOT / build)
        failed = re.findall(r"\d+ - (\S+) \(", t.stdout)
        if t.returncode == 0:
            return "MISSED"
        return "caught by " + ", ".join(failed[:4]) + (
            f" (+{len(failed) - 4})" if len(failed) > 4 else "")
    finally:
        run(["git", "checkout", "--", rel])


def main():
    if sys.argv[1:] == ["--check"]:
        problems = [(f[0], setup_problem(f)) for f in FAULTS]
        for name, problem in problems:
            if problem:
                print(f"{name}: SETUP: {problem}")
        sys.exit(1 if any(p for _, p in problems) else 0)
    build = sys.argv[1] if len(sys.argv) > 1 else "build/release"
    only = set(sys.argv[2:])
    if run(["git", "diff", "--quiet", "--", "date_time", "host"]).returncode:
        sys.exit("date_time/ or host/ has uncommitted changes: not planting")
    missed = 0
    for fault in FAULTS:
        if only and fault[0] not in only:
            continue
        verdict = check(build, fault)
        missed += not verdict.startswith("caught")
        print(f"{fault[0]}: {verdict}", flush=True)
    run(["cmake", "--build", build, "-j2"])  # leave the build clean
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
