#include "date_time/TimeStandardConverter.hpp"

#include <algorithm>
#include <limits>

#include "date_time/DateTimeUtilities.hpp"
#include "date_time/Sine.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/typesys/DataTypeUtils.hpp"
#include "host/typesys/DateTimeDefs.hpp"

namespace KvDateTime {

namespace {

// 32.184 s in days, the double the day epochs shift by between TAI and TT.
constexpr double kTtMinusTaiDays = 0.00037249999999999995;
// The constant share of TAI - UTC that day-epoch counts carry and second
// epochs do not (their offsets hold it).
constexpr double kDayEpochTaiMinusUtc = 10.0;
constexpr double kTtMinusTai = 32.184;

// Operands of the shifts are rounded to nearest and saturate: codes (1, 1).
constexpr FXP::MathMode kNearestSaturate{};

FXP::DataValue operand(const FXP::DataType& type, double magnitude) {
  return FXP::DataValue::fromDouble(type, magnitude, kNearestSaturate);
}

// v + d in v's storage type, d in the epoch's unit. A negative shift is
// subtracted as a magnitude so that unsigned storage can move backwards.
// Inlined into the per-step conversions: out of line, the call and the
// copies of the value around it cost about as much as the step itself.
[[gnu::always_inline]] inline FXP::DataValue shifted(
    const FXP::DataValue& v, double d, FXP::MathControl& control) {
  // The in-place step gives the same bits as the two calls below wherever
  // it applies, and keeps a per-step conversion off the out-of-line paths.
  FXP::DataValue r = v;
  if (r.tryAddFromDouble(d < 0, d < 0 ? -d : d, kNearestSaturate)) return r;
  const FXP::DataType& type = v.getDataType();
  return d < 0 ? v.minus(type, operand(type, -d), control)
               : v.add(type, operand(type, d), control);
}

constexpr bool isTaiOrTt(TimeStandard ts) noexcept {
  return (static_cast<std::int32_t>(ts) & ~2) == 0;
}

[[gnu::noinline]] void rejectRemovedSecondIn(const FXP::DataValue& v,
                                             const LeapSecondTableData& table,
                                             bool julian,
                                             FXP::MathControl& control) {
  const FXP::DataValue one = operand(
      v.getDataType(), DateTimeUtilities::secondsToTimeShift(1.0, julian));
  for (const FXP::DataValue& e : table.negativeLeapSecondInstants) {
    if (e <= v && v < e.add(e.getDataType(), one, control))
      kvsvThrowIException(Korvane::DateTime::makeMsgId(
          Korvane::DateTime::MsgId::TimestampIsNegativeLeapSecond));
  }
}

inline void rejectRemovedSecond(const FXP::DataValue& v,
                                const LeapSecondTableData& table, bool julian,
                                FXP::MathControl& control) {
  if (!table.negativeLeapSecondInstants.empty())
    rejectRemovedSecondIn(v, table, julian, control);
}

// findLeapSecondCount on the UTC side, no flag requested, with its common
// case inline: the value has not reached the instant at the cursor (local
// cursor 0 without one), so nothing is scanned and the count is the one
// the cursor already stands on.
inline std::int32_t utcLeapSecondCount(const FXP::DataValue& v,
                                       const LeapSecondTableData& table,
                                       bool julian, FXP::MathControl& control,
                                       std::uint32_t* cursor, bool holdCursor) {
  const std::vector<FXP::DataValue>& instants = table.utcInstants;
  const std::vector<std::int32_t>& counts = table.cumulativeCounts;
  const std::size_t size = std::min(instants.size(), counts.size());
  const std::size_t i = cursor ? std::min<std::size_t>(*cursor, size) : 0;
  if (holdCursor || i == size || v < instants[i])
    return i > 0 ? counts[i - 1] : table.baseLeapSecondCount;
  return TimeStandardConverter::findLeapSecondCount(
      v, table.baseLeapSecondCount, instants, counts, nullptr, julian, control,
      cursor, holdCursor);
}

// TAI or TT less UTC for `count` leap seconds (one more inside an inserted
// second), in the epoch's unit.
double utcToTaiTtShift(std::int32_t count, bool leapSecond, TimeStandard to,
                       bool julian) {
  double shift = count;
  if (leapSecond) shift += 1.0;
  if (julian) {
    if (to == TimeStandard::TAI) shift += kDayEpochTaiMinusUtc;
    if (to == TimeStandard::TT) shift += kDayEpochTaiMinusUtc + kTtMinusTai;
  }
  return DateTimeUtilities::secondsToTimeShift(shift, julian);
}

void rejectLeapFlag(const DvLs& value) {
  if (value.isLeapSecond)
    kvsvThrowIException(Korvane::DateTime::BadLeapSecondBoolTimeStandard());
}

}  // namespace

TimeStandardConverter::~TimeStandardConverter() = default;

DateTime TimeStandardConverter::convertTimeStandard(
    const DateTime& dt, const LeapSecondTableData& table,
    FXP::MathControl& mathControl) const {
  return DateTime(
      convertDTValue(dt, table, dt.timeStandard, target, dt.epoch, mathControl),
      dt.epoch, target);
}

DateTime TimeStandardConverter::convertTimeStandard(
    const DateTime& dt, TimeStandard to, const LeapSecondTableData& table,
    FXP::MathControl& mathControl, std::uint32_t* cursor, bool holdCursor) {
  const StaticConverterImpl impl = getStaticConverterImpl(dt.timeStandard, to);
  return DateTime(impl(dt, table, dt.timeStandard, to, dt.epoch, mathControl,
                       cursor, holdCursor),
                  dt.epoch, to);
}

TimeStandardConverter::StaticConverterImpl
TimeStandardConverter::getStaticConverterImpl(TimeStandard from,
                                              TimeStandard to) noexcept {
  if (isTaiOrTt(from)) {
    if (to == TimeStandard::UTC) return &convertTAITTtoUTCImpl;
    if (isTaiOrTt(to)) return &convertTAITTtoTAITTImpl;
    return &convertTAITTtoTDBImpl;
  }
  if (to == TimeStandard::UTC) return &convertUTCtoUTCImpl;
  if (isTaiOrTt(to)) return &convertUTCtoTAITTImpl;
  return &convertUTCtoTDBImpl;
}

std::int32_t TimeStandardConverter::findLeapSecondCount(
    const FXP::DataValue& value, std::int32_t baseCount,
    const std::vector<FXP::DataValue>& instants,
    const std::vector<std::int32_t>& counts, bool* leapSecond, bool julian,
    FXP::MathControl& mathControl, std::uint32_t* cursor, bool holdCursor) {
  const bool flagRequested = leapSecond != nullptr && *leapSecond;
  const std::size_t size = std::min(instants.size(), counts.size());
  std::size_t i = cursor ? std::min<std::size_t>(*cursor, size) : 0;
  // value reaches e + k seconds: (e + k) <= value.
  const auto reaches = [&](const FXP::DataValue& e, double k) {
    const FXP::DataType& type = e.getDataType();
    return e.add(
               type,
               operand(type, DateTimeUtilities::secondsToTimeShift(k, julian)),
               mathControl) <= value;
  };

  std::int32_t count = baseCount;
  bool inInserted = false;
  if (i > 0) {
    count = counts[i - 1];
    const std::int32_t before = i > 1 ? counts[i - 2] : baseCount;
    // Only the flag depends on it, so it is worked out only when asked for.
    if (flagRequested && before < count)
      inInserted = !reaches(instants[i - 1], 2.0);
  }
  if (!holdCursor) {
    for (; i < size; ++i) {
      // Between entries, the common case, one comparison decides: an
      // instant after value is not reached one second later either. (Only
      // a wrapping control could make e + 1 s fall below e, within a second
      // of the type's top, where no leap-second instant has a use.)
      if (value < instants[i] || !reaches(instants[i], 1.0)) break;
      const std::int32_t c = counts[i];
      inInserted = c > count && !reaches(instants[i], 2.0);
      count = c;
      if (cursor) *cursor = static_cast<std::uint32_t>(i + 1);
    }
  }
  if (flagRequested) *leapSecond = inInserted;
  return count;
}

DvLs TimeStandardConverter::convertUTCtoTAITTImpl(
    const DvLs& value, const LeapSecondTableData& table, TimeStandard,
    TimeStandard to, Epoch epoch, FXP::MathControl& mathControl,
    std::uint32_t* cursor, bool holdCursor) {
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  rejectRemovedSecond(value.value, table, julian, mathControl);
  const std::int32_t count = utcLeapSecondCount(
      value.value, table, julian, mathControl, cursor, holdCursor);
  return {shifted(value.value,
                  utcToTaiTtShift(count, value.isLeapSecond, to, julian),
                  mathControl),
          false};
}

DateTime TimeStandardConverter::PreparedConversion::convertLongWay(
    DateTime dt, FXP::MathControl& mathControl, std::uint32_t& cursor) const {
  return convertTimeStandard(dt, to_, *table_, mathControl, &cursor);
}

TimeStandardConverter::PreparedConversion::PreparedConversion(
    const LeapSecondTableData& table, TimeStandard from, TimeStandard to,
    Epoch epoch, const FXP::DataType& type)
    : table_(&table), epoch_(epoch), from_(from), to_(to) {
  if (getStaticConverterImpl(from, to) != &convertUTCtoTAITTImpl ||
      !table.negativeLeapSecondInstants.empty())
    return;
  const std::vector<FXP::DataValue>& instants = table.utcInstants;
  const std::vector<std::int32_t>& counts = table.cumulativeCounts;
  const std::size_t size = std::min(instants.size(), counts.size());
  if (size >= UINT32_MAX) return;  // beyond what a cursor can name
  for (std::size_t i = 0; i < size; ++i) {
    if (!(instants[i].getDataType() == type) ||
        (i > 0 && !(instants[i - 1] < instants[i])))
      return;
  }
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  shifts_.reserve(size + 1);
  const FXP::DataValue top = FXP::DataValue::fromDouble(
      type, std::numeric_limits<double>::infinity(), kNearestSaturate);
  for (std::size_t i = 0; i <= size; ++i) {
    // convertUTCtoTAITTImpl's shift and shifted()'s reading of it.
    const double d = utcToTaiTtShift(
        i > 0 ? counts[i - 1] : table.baseLeapSecondCount, false, to, julian);
    const bool back = d < 0;
    const double magnitude = back ? -d : d;
    // Bounded throughout, so that every entry is of the kinds the inline
    // step tries first.
    shifts_.emplace_back(type, back, magnitude, kNearestSaturate,
                         i < size ? instants[i] : top);
  }
  entries_ = static_cast<std::uint32_t>(size + 1);
}

DvLs TimeStandardConverter::convertTAITTtoUTCImpl(
    const DvLs& value, const LeapSecondTableData& table, TimeStandard from,
    TimeStandard, Epoch epoch, FXP::MathControl& mathControl,
    std::uint32_t* cursor, bool holdCursor) {
  rejectLeapFlag(value);
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  FXP::DataValue v = value.value;
  if (from == TimeStandard::TT && julian)
    v = shifted(v, -kTtMinusTaiDays, mathControl);
  bool leapSecond = true;
  double shift = -findLeapSecondCount(
      v, table.baseLeapSecondCount, table.taiInstants, table.cumulativeCounts,
      &leapSecond, julian, mathControl, cursor, holdCursor);
  if (julian) shift -= kDayEpochTaiMinusUtc;
  return {shifted(v, DateTimeUtilities::secondsToTimeShift(shift, julian),
                  mathControl),
          leapSecond};
}

DvLs TimeStandardConverter::convertTAITTtoTAITTImpl(
    const DvLs& value, const LeapSecondTableData&, TimeStandard from,
    TimeStandard to, Epoch epoch, FXP::MathControl& mathControl, std::uint32_t*,
    bool) {
  rejectLeapFlag(value);
  double days = 0.0;
  if (DateTimeUtilities::isJulianCompatibleEpoch(epoch)) {
    if (from == TimeStandard::TAI && to == TimeStandard::TT)
      days = kTtMinusTaiDays;
    else if (from == TimeStandard::TT && to == TimeStandard::TAI)
      days = -kTtMinusTaiDays;
  }
  return {shifted(value.value, days, mathControl), false};
}

DvLs TimeStandardConverter::convertUTCtoUTCImpl(
    const DvLs& value, const LeapSecondTableData& table, TimeStandard,
    TimeStandard, Epoch epoch, FXP::MathControl& mathControl, std::uint32_t*,
    bool) {
  rejectRemovedSecond(value.value, table,
                      DateTimeUtilities::isJulianCompatibleEpoch(epoch),
                      mathControl);
  return value;
}

DvLs TimeStandardConverter::convertTAITTtoTDBImpl(
    const DvLs& value, const LeapSecondTableData& table, TimeStandard from,
    TimeStandard, Epoch epoch, FXP::MathControl& mathControl, std::uint32_t*,
    bool) {
  rejectLeapFlag(value);
  if (!DateTimeUtilities::isJulianCompatibleEpoch(epoch)) {
    // The epoch's number is the mode's number by design.
    kvsvThrowIException(Korvane::DateTime::TDBTSOnlySupportJulianDayTU(
        DateTimeDefs::timePointModeName(static_cast<TimePointMode>(epoch))));
  }
  if (!value.value.getDataType().isDouble()) {
    kvsvThrowIException(Korvane::DateTime::TDBTSOnlySupportDoubleSDT(
        DateTimeDefs::storageDataTypeName(
            KvTypeSys::KvDateTimeDataTypeUtils::storageFxpDtProp2DTEnum(
                value.value.getDataTypeProp()))));
  }
  const DvLs tt = convertTAITTtoTAITTImpl(value, table, from, TimeStandard::TT,
                                          epoch, mathControl, nullptr, false);
  // The series counts from J2000.0 TT.
  const double offset = epoch == Epoch::EpochJ2000
                            ? 0.0
                            : DateTimeUtilities::getEpochOffset(
                                  epoch, Epoch::EpochJ2000, TimeStandard::TT) +
                                  0.0;
  const double centuries = (tt.value.toDouble() + offset) / 36525.0;
  const double days = detail::tdbMinusTtSeconds(centuries) / 86400.0;
  return {shifted(tt.value, days, mathControl), false};
}

DvLs TimeStandardConverter::convertUTCtoTDBImpl(
    const DvLs& value, const LeapSecondTableData& table, TimeStandard from,
    TimeStandard to, Epoch epoch, FXP::MathControl& mathControl,
    std::uint32_t* cursor, bool holdCursor) {
  // The UTC step runs first, so that its diagnostics come before the TDB
  // checks, but on a copy of the cursor: a value the TDB step then refuses
  // must not have moved the caller's position.
  std::uint32_t position = cursor ? *cursor : 0;
  const DvLs tt = convertUTCtoTAITTImpl(
      value, table, from, TimeStandard::TT, epoch, mathControl,
      cursor ? &position : nullptr, holdCursor);
  const DvLs tdb = convertTAITTtoTDBImpl(tt, table, TimeStandard::TT, to, epoch,
                                         mathControl, nullptr, false);
  if (cursor) *cursor = position;
  return tdb;
}

}  // namespace KvDateTime
