// Arbitrary storage types, compact bytes, flags, epochs, standards, shifts
// and math modes through DateTime and the epoch converters. Holds for every
// input:
// - fromCompact accepts exactly the canonical bytes, writes them back
//   unchanged, and leaves the time point as it was when it refuses;
// - a time point reads back as a calendar record or throws a named
//   diagnostic; a record read back builds the same value again (exactly for
//   second epochs outside TT, within one step of the type otherwise);
// - add (plain or by a prepared step), subtract and addWithOverflowCheck
//   give the exact sum rounded once into the storage type, report overflow
//   exactly when the range is left, and change neither flag, epoch nor
//   standard;
// - an epoch conversion without overflow lands within a step of the exact
//   offset sum, and an epoch outside the enumeration throws out_of_range.

#include <cstring>
#include <sstream>
#include <stdexcept>

#include "date_time/DateTime.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "fuzz/FuzzSupport.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace KvDateTime;
using namespace fxptest;
using foundation::core::except::IException;
using FXP::DataType;
using FXP::DataValue;
using FXP::MathControl;
using FXP::MathMode;

std::string describe(const DataValue& v) {
  std::ostringstream s;
  const DataType& t = v.getDataType();
  const Rational x = exactOf(v);
  s << t.kind() << ',' << t.isSigned() << ',' << t.wordLength() << ','
    << t.fractionLength() << ':' << x.num << '/' << x.den;
  return s.str();
}

DataType anyType(FuzzedDataProvider& in) {
  if (in.ConsumeIntegralInRange<int>(0, 3) == 0) return DataType::doubleT();
  const int w = in.ConsumeIntegralInRange<int>(1, 128);
  const int f = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-4, 64)
                                 : in.ConsumeIntegralInRange<int>(-128, 256);
  return DataType::fixedT(in.ConsumeBool(), w, f);
}

bool sameBits(const DateTime& a, const DateTime& b) {
  unsigned char x[16] = {}, y[16] = {};
  a.value.toCompact(x, sizeof x);
  b.value.toCompact(y, sizeof y);
  return std::memcmp(x, y, sizeof x) == 0 &&
         a.value.getDataType() == b.value.getDataType() &&
         a.isLeapSecond == b.isLeapSecond && a.epoch == b.epoch &&
         a.timeStandard == b.timeStandard;
}

// The step of a type (0 for double, whose values are compared relatively).
Rational stepOf(const DataType& t) {
  return t.isDouble() ? Rational{0} : times2({1}, -t.fractionLength());
}

bool within(const Rational& a, const Rational& b, const Rational& tolerance) {
  const Rational d{abs(cpp_int(a.num * b.den - b.num * a.den)), a.den * b.den};
  return compare(d, tolerance) <= 0;
}

void checkReadBack(const DateTime& dt, const std::string& where) {
  DateTimeStruct cal;
  try {
    cal = dt.toDateTimeStruct();
  } catch (const IException& e) {
    const std::string id = kvfuzz::idOf(e.identifier());
    KVFUZZ_CHECK(kvfuzz::oneOf(id, kvfuzz::kCalendarIds) ||
                     kvfuzz::oneOf(id, {"BadLeapSecondBoolTimeStandard",
                                        "BadLeapSecondBoolTimestamp"}),
                 where + id);
    return;
  }
  // Second 59 plus a fraction just below 1 may read as 60.0, as the
  // calendar header allows; such a reading does not come back.
  if (cal.second >= (dt.isLeapSecond ? 61.0 : 60.0)) return;
  const DataType& type = dt.value.getDataType();
  DvLs again;
  try {
    again = DateTime::convertDateTimeStructToDV(cal, dt.epoch, dt.timeStandard,
                                                type);
  } catch (const IException& e) {
    KVFUZZ_CHECK(false, where + " rebuilt: " + e.identifier());
  }
  KVFUZZ_CHECK(again.isLeapSecond == dt.isLeapSecond, where);
  const bool days = DateTimeUtilities::isJulianCompatibleEpoch(dt.epoch);
  // The second field holds 53 bits for up to 60 s: 46 fraction bits.
  const bool exact = !days && dt.timeStandard != TimeStandard::TT &&
                     !type.isDouble() && type.fractionLength() <= 46;
  const Rational a = exactOf(again.value);
  Rational b = exactOf(dt.value);
  // The split wraps the whole part to a signed 64 bits, and the rebuild
  // wraps that into the type's integer bits: compare with the count both
  // wraps give (the value itself, unless it lies beyond 64 bits or is an
  // unsigned 64-bit count above 2^63).
  if (!days) {
    const auto wrap = [](cpp_int x, const cpp_int& base, int bits) {
      const cpp_int m = cpp_int(1) << bits;
      x = (x - base) % m;
      if (x < 0) x += m;
      return x + base;
    };
    cpp_int whole = b.num / b.den;
    if (whole * b.den > b.num) --whole;
    cpp_int wrapped = wrap(whole, -(cpp_int(1) << 63), 64);
    const int n = type.wordLength() - type.fractionLength();
    if (!type.isDouble() && n > 0)
      wrapped =
          wrap(wrapped, type.isSigned() ? -(cpp_int(1) << (n - 1)) : 0, n);
    b = {b.num - (whole - wrapped) * b.den, b.den};
  }
  // Whole seconds and the fraction are brought into the type apart, so the
  // type must hold the whole seconds next to the value too (TT's 0.184 s
  // comes back an ulp short: 0 s reads as 42.184 and rebuilds as -1 s plus
  // 0.999999999999998). Types narrower than that are not judged here.
  if (!type.isDouble()) {
    cpp_int whole = b.num / b.den;
    if (whole * b.den > b.num) --whole;
    const Rational lo = times2({minStored(type)}, -type.fractionLength());
    const Rational hi = times2({maxStored(type)}, -type.fractionLength());
    if (compare({whole - 1}, lo) < 0 || compare({whole + 1}, hi) > 0) return;
  }
  if (exact) {
    KVFUZZ_CHECK(!compare(a, b), where + " rebuilt " + describe(again.value));
    return;
  }
  // A day count travels as a double Julian date: ~1e-10 of a day, plus the
  // type's step; TT's shift costs an ulp of the fraction, then a step.
  const Rational slack = days ? times2({1}, -26) : times2({1}, -40);
  const Rational magnitude =
      type.isDouble() ? times2({abs(b.num) * 1, b.den}, -50) : Rational{0};
  // A double's fraction is read on a 2^-64 grid.
  Rational tol = type.isDouble() ? times2({1}, -64) : stepOf(type);
  tol = {tol.num * slack.den * magnitude.den +
             slack.num * tol.den * magnitude.den +
             magnitude.num * tol.den * slack.den,
         tol.den * slack.den * magnitude.den};
  // An MJD or J2000 count just before midnight reads as the next day, as
  // the calendar header documents; rebuilt, it comes out one or (seen in
  // TDB, MJD -7.2e-15) two days late.
  const bool dayLate =
      (dt.epoch == Epoch::EpochMJD || dt.epoch == Epoch::EpochJ2000) &&
      (within(a, {b.num + b.den, b.den}, tol) ||
       within(a, {b.num + 2 * b.den, b.den}, tol));
  KVFUZZ_CHECK(within(a, b, tol) || dayLate,
               where + " rebuilt " + describe(again.value));
}

void checkAdd(const DateTime& start, double seconds, MathMode mode, int how,
              const std::string& where) {
  DateTime dt = start;
  const DataType type = dt.value.getDataType();
  const double shift = DateTimeUtilities::secondsToTimeShift(
      how == 2 ? -seconds : seconds, dt.epoch);
  // The documented route: the magnitude is brought into the type, then
  // added or (for a negative or NaN shift) taken away.
  const bool up = shift >= 0;
  const double m = up ? shift : -shift;
  // A magnitude the type cannot hold saturates or wraps there unheard (a
  // NaN one is 0): only the sum reports.
  const DataValue magnitude = DataValue::fromDouble(type, m, mode);
  const Rounded want = roundInto(
      apply(up ? Op::kAdd : Op::kMinus, exactOf(dt.value), exactOf(magnitude)),
      type, mode);
  MathControl control(mode);
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  bool overflow = logger.overflowOccurred();
  if (how == 0) dt.add(seconds, control);
  if (how == 1) overflow = dt.addWithOverflowCheck(seconds, control);
  if (how == 2) dt.subtract(seconds, control);
  // The prepared step of a model's clock, held to the same exact sum.
  if (how == 3) dt.add(DateTime::Step(type, dt.epoch, seconds, mode), control);
  if (how != 1) overflow = logger.overflowOccurred();
  KVFUZZ_CHECK(
      !compare(exactOf(dt.value), want.value) && overflow == want.overflow,
      where + " gave " + describe(dt.value));
  KVFUZZ_CHECK(dt.isLeapSecond == start.isLeapSecond &&
                   dt.epoch == start.epoch &&
                   dt.timeStandard == start.timeStandard &&
                   dt.value.getDataType() == type,
               where);

  MathControl plain(mode);
  const Rounded difference = roundInto(
      apply(Op::kMinus, exactOf(dt.value), exactOf(start.value)), type, mode);
  const double d = DateTime::subtract(dt, start, plain);
  KVFUZZ_CHECK(
      !compare(exactOfDouble(d), roundInto(difference.value, {}, mode).value),
      where);
}

void checkConverter(const DateTime& dt, Epoch to, const DataType& target,
                    MathMode mode, const std::string& where) {
  const Epoch from = dt.epoch;
  const DateTimeConverter& c = DateTimeConverter::forEpochs(from, to);
  const auto valid = [](Epoch e) { return static_cast<std::uint32_t>(e) <= 5; };
  MathControl control(mode);
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  DataValue r;
  try {
    r = c.convertEpochImpl(dt.value, from, to, dt.timeStandard, target,
                           control);
  } catch (const std::out_of_range&) {
    KVFUZZ_CHECK(from != to && (!valid(from) || !valid(to)), where);
    return;
  }
  KVFUZZ_CHECK(from == to || (valid(from) && valid(to)), where);
  if (logger.overflowOccurred()) return;
  // The exact instant on the target's count, from the offset as the
  // calendar functions give it.
  const bool daysFrom = DateTimeUtilities::isJulianCompatibleEpoch(from);
  const bool daysTo = DateTimeUtilities::isJulianCompatibleEpoch(to);
  Rational want = exactOf(dt.value);
  if (from != to) {
    const Rational offset = exactOfDouble(
        DateTimeUtilities::getEpochOffset(from, to, dt.timeStandard));
    if (daysFrom || daysTo) {
      if (!daysFrom) want = {want.num, want.den * 86400};
      want = {want.num * offset.den + offset.num * want.den,
              want.den * offset.den};
      if (!daysTo) want = {want.num * 86400, want.den};
    } else {
      want = {want.num * offset.den + offset.num * want.den,
              want.den * offset.den};
    }
  }
  // The offset and the day length enter their types by the mode alone, and
  // one that does not fit saturates or wraps there unheard: the result is
  // then far from the exact sum, with a silent logger. Such inputs are not
  // judged here. One that the type's step rounds (a step above 2^7) moves
  // the result by more than the tolerance below.
  if (from != to) {
    const DataType d = DataType::doubleT();
    const double offset =
        DateTimeUtilities::getEpochOffset(from, to, dt.timeStandard);
    const bool offsetFits =
        !roundInto(exactOfDouble(offset), daysTo ? target : d, mode).overflow;
    const bool dayFits =
        !(daysFrom && !daysTo) ||
        !roundInto(exactOfDouble(86400.0), target, mode).overflow;
    if (!offsetFits || !dayFits) return;
  }
  if (target.isFixed() && from != to && daysFrom && !daysTo &&
      target.fractionLength() < -7)
    return;
  // Offsets and the day length pass through the target type or a double:
  // a few steps of the target, and a relative 2^-40 for doubles.
  const Rational step = stepOf(target);
  const Rational tol{step.num * 4 * (cpp_int(1) << 40) * want.den +
                         abs(want.num) * step.den + step.den * want.den,
                     step.den * (cpp_int(1) << 40) * want.den};
  KVFUZZ_CHECK(within(exactOf(r), want, tol),
               where + " to " + std::to_string(static_cast<int>(to)) +
                   " gave " + describe(r));
}

// The storage types that get a leap-second table (built once per epoch).
const DataType kTableTypes[] = {
    DataType::doubleT(), DataType::fixedT(true, 64, 0),
    DataType::fixedT(true, 96, 32), DataType::fixedT(false, 64, 20)};

const LeapSecondTableData& tableFor(Epoch epoch, int typeIndex) {
  static const auto tables = [] {
    std::vector<LeapSecondTableData> t;
    for (int e = 0; e < 6; ++e)
      for (const DataType& type : kTableTypes)
        t.push_back(
            LeapSecondTableDataCreator::build(static_cast<Epoch>(e), type));
    return t;
  }();
  return tables[static_cast<std::size_t>(epoch) * 4 + typeIndex];
}

// Converts with a fresh cursor and without one; both must agree. Returns
// the Id thrown ("" if none).
std::string convert(const DateTime& dt, TimeStandard to,
                    const LeapSecondTableData& table, MathMode mode,
                    DateTime& out, bool& overflow, const std::string& where) {
  MathControl control(mode);
  FixptRangeMath::FixptRangeMathLogger logger;
  control.setMathLogger(&logger);
  std::uint32_t cursor = 0;
  std::string id, idAgain;
  try {
    out = TimeStandardConverter::convertTimeStandard(dt, to, table, control,
                                                     &cursor);
  } catch (const IException& e) {
    id = kvfuzz::idOf(e.identifier());
  }
  overflow = logger.overflowOccurred();
  DateTime again = dt;
  MathControl plain(mode);
  try {
    again = TimeStandardConverter::convertTimeStandard(dt, to, table, plain);
  } catch (const IException& e) {
    idAgain = kvfuzz::idOf(e.identifier());
  }
  KVFUZZ_CHECK(id == idAgain, where + id + "/" + idAgain);
  if (!id.empty()) {
    KVFUZZ_CHECK(kvfuzz::oneOf(id, {"TimestampIsNegativeLeapSecond",
                                    "BadLeapSecondBoolTimeStandard",
                                    "TDBTSOnlySupportJulianDayTU",
                                    "TDBTSOnlySupportDoubleSDT"}),
                 where + id);
    return id;
  }
  KVFUZZ_CHECK(sameBits(out, again), where);
  KVFUZZ_CHECK(out.epoch == dt.epoch && out.timeStandard == to &&
                   out.value.getDataType() == dt.value.getDataType() &&
                   (!out.isLeapSecond || to == TimeStandard::UTC),
               where);
  return id;
}

// UTC -> TAI -> UTC and TAI -> TT -> TAI come back where they started when
// nothing overflowed (to a step of the type in day epochs, where TT's
// 32.184 s is not exact); a table pruned to the time point converts it as
// the whole table does.
void checkTimeStandards(const DateTime& dt, int typeIndex, MathMode mode,
                        const std::string& where) {
  const LeapSecondTableData& table = tableFor(dt.epoch, typeIndex);
  const TimeStandard there = dt.timeStandard == TimeStandard::UTC
                                 ? TimeStandard::TAI
                                 : TimeStandard::TT;
  DateTime mid = dt, back = dt;
  bool overflow = false, overflowBack = false;
  if (!convert(dt, there, table, mode, mid, overflow, where).empty()) return;
  for (const TimeStandard to : {TimeStandard::UTC, TimeStandard::TDB}) {
    DateTime other = dt;
    bool o = false;
    convert(dt, to, table, mode, other, o,
            where + " to " + std::to_string(int(to)));
  }
  const TimeStandard home = dt.timeStandard == TimeStandard::UTC
                                ? TimeStandard::UTC
                                : TimeStandard::TAI;
  // A flag set where the table inserts no second is not refused by the
  // converters (only reading back judges its position): not judged here.
  if (dt.timeStandard != home || dt.isLeapSecond) return;
  if (!convert(mid, home, table, mode, back, overflowBack, where).empty())
    return;
  if (overflow || overflowBack) return;
  const DataType& type = dt.value.getDataType();
  const Rational a = exactOf(back.value), b = exactOf(dt.value);
  // Whole seconds are exact in fixed point; a double beyond 2^53 s rounds
  // each of the two shifts to its step of 2 s or more.
  if (!DateTimeUtilities::isJulianCompatibleEpoch(dt.epoch)) {
    const bool same =
        type.isDouble() ? within(a, b, times2({abs(b.num) + b.den, b.den}, -51))
                        : !compare(a, b);
    KVFUZZ_CHECK(same && back.isLeapSecond == dt.isLeapSecond,
                 where + " back " + describe(back.value));
  } else {
    const Rational tol = type.isDouble()
                             ? times2({abs(b.num) + b.den, b.den}, -40)
                             : times2({2}, -type.fractionLength());
    KVFUZZ_CHECK(within(a, b, tol), where + " back " + describe(back.value));
  }

  // Pruned to dt itself, the table still converts dt the same way, except
  // that a seconds epoch truncates TAI - UTC at the start into the base
  // count: where that difference is not whole (a double whose step doubles
  // between the two), the pruned table counts a second less, as documented.
  const Rational gap = apply(Op::kMinus, exactOf(mid.value), exactOf(dt.value));
  if (!DateTimeUtilities::isJulianCompatibleEpoch(dt.epoch) &&
      compare(gap, {roundInt(gap, MathMode::kFloor)}) != 0)
    return;
  LeapSecondTableData pruned;
  try {
    pruned = LeapSecondUtilities::pruneLeapSecondTableData(table, dt);
  } catch (const IException& e) {
    KVFUZZ_CHECK(false, where + " prune " + e.identifier());
  }
  DateTime viaPruned = dt;
  bool o = false;
  KVFUZZ_CHECK(convert(dt, there, pruned, mode, viaPruned, o, where).empty() &&
                   sameBits(viaPruned, mid),
               where + " pruned " + describe(viaPruned.value));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  // One input in two uses a storage type that has a leap-second table.
  const int tableType = in.ConsumeIntegralInRange<int>(-4, 3);
  const DataType type = tableType >= 0 ? kTableTypes[tableType] : anyType(in);
  const Epoch epoch = kvfuzz::anyEpoch(in);
  const TimeStandard ts = kvfuzz::anyStandard(in);
  const MathMode mode(in.ConsumeIntegralInRange<int>(0, 5),
                      in.ConsumeIntegralInRange<int>(0, 1));
  DateTime dt(epoch, ts, type);
  KVFUZZ_CHECK(dt.value.toDouble() == 0 && !dt.isLeapSecond, "");

  // Either a real reading or raw bytes.
  if (in.ConsumeBool()) {
    std::array<double, 6> v{};
    kvfuzz::plausibleDate(in, v.data());
    v[3] = in.ConsumeIntegralInRange<int>(0, 23);
    v[4] = in.ConsumeIntegralInRange<int>(0, 59);
    v[5] =
        in.ConsumeIntegralInRange<int>(0, 60) + in.ConsumeProbability<double>();
    const DateTimeStruct cal = DateTimeStruct::unchecked(v);
    // A UTC second of 60.x is validated as 59.x, wherever it lies: its
    // position is judged only on reading back.
    std::array<double, 6> judged = v;
    if (ts == TimeStandard::UTC && v[5] >= 60.0) judged[5] -= 1.0;
    const std::string expected =
        kvfuzz::idOf(DateTimeUtilities::validateDateTime(judged, ts));
    std::string id;
    try {
      dt = DateTime(cal, epoch, ts, type);
    } catch (const IException& e) {
      id = kvfuzz::idOf(e.identifier());
    }
    KVFUZZ_CHECK(id == expected, kvfuzz::describe(v.data(), 6) + id);
  } else {
    unsigned char bytes[16] = {};
    const std::string raw = in.ConsumeBytesAsString(16);
    std::memcpy(bytes, raw.data(), raw.size());
    const bool flag = in.ConsumeBool();
    const DateTime before = dt;
    bool accepted = true;
    try {
      dt.fromCompact(bytes, flag);
    } catch (const std::invalid_argument&) {
      accepted = false;
    }
    bool canonical = true;
    try {
      DataValue::fromCompact(type, bytes);
    } catch (const std::invalid_argument&) {
      canonical = false;
    }
    KVFUZZ_CHECK(accepted == canonical, "");
    if (!accepted) {
      KVFUZZ_CHECK(sameBits(dt, before), "");
      return 0;
    }
    unsigned char out[16] = {};
    KVFUZZ_CHECK(dt.toCompact(out) == flag &&
                     std::memcmp(out, bytes, type.sizeofCompact()) == 0,
                 describe(dt.value));
  }
  const std::string where = describe(dt.value) + " flag " +
                            std::to_string(dt.isLeapSecond) + " epoch " +
                            std::to_string(static_cast<int>(epoch)) + " ts " +
                            std::to_string(static_cast<int>(ts));
  checkReadBack(dt, where);
  const double seconds = kvfuzz::anyDouble(in);
  checkAdd(dt, seconds, mode, in.ConsumeIntegralInRange<int>(0, 3),
           where + " add " + kvfuzz::describe(&seconds, 1));
  checkConverter(dt, kvfuzz::anyEpoch(in), anyType(in), mode, where);
  if (tableType >= 0 && static_cast<std::uint32_t>(epoch) <= 5)
    checkTimeStandards(dt, tableType, mode, where);
  return 0;
}
