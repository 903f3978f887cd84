// The proleptic Gregorian calendar's rules, in one place: leap years, month
// lengths, and the day count from a civil date and back. Days count from
// 1970-01-01 (day 0). The day-count algorithms are C. Neri and L.
// Schneider's "Euclidean affine functions" form (2022): the count is moved
// onto an unsigned axis that starts on a 1 March some 2^23 400-year eras
// back, where every division is by a constant and becomes a multiply, with
// no sign fix-up, no table and no branch on the month.
// Also the ordinary path from a calendar reading to seconds since an epoch,
// shared by the calendar conversion and the time point's constructor, and
// the way back, shared likewise.
// Private to the library: no installed header includes it.
#pragma once

#include <cstdint>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime::detail {

// The years the calendar conversions admit, as the date type does.
inline constexpr std::int64_t kFirstYear = 1400;
inline constexpr std::int64_t kLastYear = 9999;

constexpr bool isLeapYear(std::int64_t y) noexcept {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// Month 1..12. Worked out rather than looked up: a local table is built on
// the stack on every call. Outside February the months alternate 31, 30
// from January and again from August: the low bit of month ^ (month >> 3).
constexpr unsigned monthLength(bool leap, unsigned month) noexcept {
  if (month == 2) return leap ? 29u : 28u;
  return 30u + ((month ^ (month >> 3)) & 1u);
}

// The unsigned axis: 2^23 eras of 146097 days before 0000-03-01, so that
// every day from about -1.2e12 (-3.3e9 years) upward counts from zero.
inline constexpr std::uint64_t kAxisEras = std::uint64_t{1} << 23;
inline constexpr std::uint64_t kAxisShift = 719468 + 146097 * kAxisEras;

// Linear in `day`, so a day past the month's end (or 0) counts on into the
// next month (or back into the last), as the 16-bit reduced days need.
// Any 32-bit year.
constexpr std::int64_t daysFromCivil(std::int32_t year, unsigned month,
                                     unsigned day) noexcept {
  const bool janFeb = month <= 2;  // counted with the year before
  const std::uint64_t y =
      static_cast<std::uint64_t>(std::int64_t{year} + 400 * kAxisEras) - janFeb;
  const std::uint64_t century = y / 100;
  const std::uint64_t yearDays = 1461 * y / 4 - century + century / 4;
  const unsigned monthDays = (979 * (janFeb ? month + 12 : month) - 2919) / 32;
  return static_cast<std::int64_t>(yearDays + monthDays - kAxisShift) +
         std::int64_t{day} - 1;
}

struct CivilDate {
  std::int64_t year;
  unsigned month;  // 1..12
  unsigned day;    // 1..31
};

// Any day from -kAxisShift (about -1.2e12) up.
constexpr CivilDate civilFromDays(std::int64_t z) noexcept {
  const std::uint64_t n1 = 4 * (static_cast<std::uint64_t>(z) + kAxisShift) + 3;
  const std::uint64_t century = n1 / 146097;
  // 4 * (day of the century) + 3, scaled so that the high word is the year
  // in the century and the low word the day of that year.
  const auto n2 = static_cast<std::uint32_t>(n1 % 146097) | 3u;
  const std::uint64_t p2 = std::uint64_t{2939745} * n2;
  const auto yearOfCentury = static_cast<std::uint32_t>(p2 >> 32);
  const auto dayOfYear = static_cast<std::uint32_t>(p2) / 2939745 / 4;
  const std::uint32_t n3 = 2141 * dayOfYear + 197913;  // March = month 3
  const bool janFeb = dayOfYear >= 306;
  const std::int64_t year =
      static_cast<std::int64_t>(100 * century + yearOfCentury) -
      static_cast<std::int64_t>(400 * kAxisEras) + janFeb;
  return {year, (n3 >> 16) - (janFeb ? 12u : 0u), (n3 & 0xffff) / 2141 + 1};
}

// A year with the same leap rule and weekdays as `year`: the calendar
// repeats every 400 years (146097 days, a whole number of weeks). Keeps
// the day count small for any year a double can hold.
constexpr std::int32_t sameCycleYear(std::int64_t year) noexcept {
  const auto r = static_cast<std::int32_t>(year % 400);
  return 2000 + (r < 0 ? r + 400 : r);
}

// 1 = Sunday .. 7 = Saturday; day 0 (1970-01-01) was a Thursday.
constexpr int weekdayFromDays(std::int64_t z) noexcept {
  const std::int64_t r = (z + 4) % 7;
  return static_cast<int>(r < 0 ? r + 7 : r) + 1;
}

static_assert(daysFromCivil(1970, 1, 1) == 0);
static_assert(daysFromCivil(2000, 3, 1) == 11017);
static_assert(daysFromCivil(1400, 1, 1) == -208188);
static_assert(daysFromCivil(9999, 12, 31) == 2932896);
static_assert(daysFromCivil(1600, 2, 29) == daysFromCivil(1600, 3, 1) - 1);
static_assert(daysFromCivil(1900, 3, 1) == daysFromCivil(1900, 2, 28) + 1);
static_assert(civilFromDays(-1).year == 1969 && civilFromDays(-1).day == 31);
static_assert(civilFromDays(11016).month == 2 &&
              civilFromDays(11016).day == 29);
static_assert(daysFromCivil(2000, 3, 0) == daysFromCivil(2000, 2, 29));
static_assert(civilFromDays(-208188).year == 1400 &&
              civilFromDays(2932896).day == 31);
static_assert(weekdayFromDays(0) == 5 && weekdayFromDays(-4) == 1);
static_assert(monthLength(true, 2) == 29 && monthLength(false, 2) == 28);
static_assert(monthLength(false, 1) == 31 && monthLength(false, 7) == 31 &&
              monthLength(false, 8) == 31 && monthLength(false, 9) == 30 &&
              monthLength(false, 11) == 30 && monthLength(false, 12) == 31);

// --- Calendar readings to seconds since an epoch -----------------------------
//
// The ordinary path of DateTimeUtilities::calendarToEpochTime, inline here so
// that building a DateTime from a reading runs it without a call.

// Nearly every reading a simulation passes is an ordinary one: every field
// in range and whole where it must be, the second below 60. This tests
// exactly that with few branches and hands back the whole fields; anything
// else (a failure, a leap second, a NaN second) goes to the ordered rules,
// which name the first problem. A reading accepted here is accepted there
// too, so the outcome is the same either way.
struct OrdinaryFields {
  std::int32_t year, month, day, hour, minute, second;  // second: floored
};

// The fields go two to a vector register: six range tests and five
// whole-number tests then take a handful of packed instructions instead of a
// compare, a flag and an AND each. NaN fails every comparison.
typedef double Pair __attribute__((vector_size(16)));
typedef std::int64_t PairMask __attribute__((vector_size(16)));
typedef std::int32_t IntPair __attribute__((vector_size(8)));

// Both lanes set: folded into one lane first, so one lane is read.
inline bool bothLanes(PairMask m) noexcept {
  return (m & __builtin_shufflevector(m, m, 1, 0))[0] != 0;
}

inline bool ordinaryReading(double y, double mo, double d, double h, double mi,
                            double s, OrdinaryFields& out) noexcept {
  const Pair ymo = {y, mo}, dh = {d, h}, mis = {mi, s};
  // s < 60 as s <= the largest double below 60, so all six are "<=".
  constexpr double kBelowSixty = 0x1.dffffffffffffp5;
  const PairMask inRange = (ymo >= Pair{double(kFirstYear), 1.0}) &
                           (ymo <= Pair{double(kLastYear), 12.0}) &
                           (dh >= Pair{1.0, 0.0}) & (dh <= Pair{31.0, 23.0}) &
                           (mis >= Pair{0.0, 0.0}) &
                           (mis <= Pair{59.0, kBelowSixty});
  if (!bothLanes(inRange)) return false;
  // In range, so the conversions are exact truncations (the second floors).
  const IntPair iymo = __builtin_convertvector(ymo, IntPair);
  const IntPair idh = __builtin_convertvector(dh, IntPair);
  const IntPair imis = __builtin_convertvector(mis, IntPair);
  out = {iymo[0], iymo[1], idh[0], idh[1], imis[0], imis[1]};
  const PairMask whole = (__builtin_convertvector(iymo, Pair) == ymo) &
                         (__builtin_convertvector(idh, Pair) == dh);
  if (!bothLanes(whole) || imis[0] != mi) return false;
  if (out.day <= 28) return true;  // every month has 28 days
  return static_cast<unsigned>(out.day) <=
         monthLength(isLeapYear(out.year), static_cast<unsigned>(out.month));
}

// Each epoch's instant on the TAI axis, as a day (counted from 1970-01-01)
// and a second of that day. 1970 and 1900 are UTC epochs: their 00:00:00
// UTC lies at 00:00:10 TAI (TAI-UTC was 10 s at the start of 1972 and is
// taken as fixed here). Every other epoch value counts from 1958-01-01
// 00:00:00.
struct EpochInstant {
  std::int64_t day;
  std::int64_t secondOfDay;  // 10 or 0
};
inline constexpr EpochInstant kEpoch1970{daysFromCivil(1970, 1, 1), 10};
inline constexpr EpochInstant kEpoch1900{daysFromCivil(1900, 1, 1), 10};
inline constexpr EpochInstant kEpoch1958{daysFromCivil(1958, 1, 1), 0};

constexpr const EpochInstant& epochReference(Epoch epoch) noexcept {
  switch (epoch) {
    case Epoch::Epoch1970:
      return kEpoch1970;
    case Epoch::Epoch1900:
      return kEpoch1900;
    default:
      return kEpoch1958;
  }
}

// The seconds since `epoch` of validated fields, `second` the reading's
// unfloored second.
inline EpochTimeStruct epochTimeOf(const OrdinaryFields& f, double second,
                                   Epoch epoch, TimeStandard ts) noexcept {
  const std::int64_t day = daysFromCivil(f.year, static_cast<unsigned>(f.month),
                                         static_cast<unsigned>(f.day));

  // Validation has bounded every field, so the instant fits a 64-bit
  // microsecond count many times over and can be formed in whole seconds
  // directly: the same count as the microsecond time arithmetic divided by
  // 10^6, without its special-value checks on every step.
  const EpochInstant& ref = epochReference(epoch);
  std::int64_t whole = (day - ref.day) * 86400 + std::int64_t{f.hour} * 3600 +
                       std::int64_t{f.minute} * 60 + f.second - ref.secondOfDay;

  // [0, 1): 0.5 for second 60.5; NaN for a NaN second.
  double frac = second - static_cast<double>(f.second);
  switch (ts) {
    case TimeStandard::UTC:
      whole += 10;
      break;
    case TimeStandard::TT:
      // 32.184 s: the whole seconds go to the count, 0.184 s to the fraction,
      // with a borrow when the fraction would turn negative.
      frac -= 0.184;
      if (frac < 0.0) {
        frac += 1.0;
        whole -= 33;
      } else {
        whole -= 32;
      }
      break;
    default:
      break;
  }
  return {whole, frac};
}

// --- Seconds since an epoch to a calendar reading ----------------------------
//
// The whole of DateTimeUtilities::epochTimeToCalendar, inline here so that
// reading a DateTime's calendar runs it without a call.

// Whole counts lie within about 2.6e11 s of any epoch for the calendar's
// years; a count beyond this bound is refused before any arithmetic.
inline constexpr std::int64_t kMaxEpochSeconds = 1'000'000'000'000;

inline DateTimeStruct calendarOf(const EpochTimeStruct& ets, Epoch epoch,
                                 TimeStandard ts) {
  if (ets.wholePart > kMaxEpochSeconds || ets.wholePart < -kMaxEpochSeconds) {
    kvsvThrowIException(Korvane::DateTime::BadYear());
  }
  const EpochInstant& ref = epochReference(epoch);
  std::int64_t t = ref.day * 86400 + ref.secondOfDay + ets.wholePart;
  double frac = ets.fractionalPart;
  switch (ts) {
    case TimeStandard::UTC:
      t -= 10;
      break;
    case TimeStandard::TT:
      frac += 0.184;
      if (frac >= 1.0) {
        frac -= 1.0;
        t += 33;
      } else {
        t += 32;
      }
      break;
    default:
      break;
  }

  // On the unsigned axis the day and its second come from one unsigned
  // division, with no fix-up for negative counts.
  constexpr auto kAxisSeconds = static_cast<std::int64_t>(kAxisShift * 86400);
  const auto u = static_cast<std::uint64_t>(t + kAxisSeconds);
  const auto sec = static_cast<std::int64_t>(u % 86400);
  const CivilDate date = civilFromDays(static_cast<std::int64_t>(u / 86400) -
                                       static_cast<std::int64_t>(kAxisShift));
  // The calendar's year range, as the date type enforces it.
  if (date.year < kFirstYear || date.year > kLastYear) {
    kvsvThrowIException(Korvane::DateTime::BadYear());
  }
  const DateTimeStruct r = DateTimeStruct::unchecked(
      static_cast<double>(date.year), static_cast<double>(date.month),
      static_cast<double>(date.day), static_cast<double>(sec / 3600),
      static_cast<double>(sec % 3600 / 60),
      static_cast<double>(sec % 60) + frac);
  // Only the second, which carries the caller's fraction, can be invalid
  // (the rest are formed in range); the record's own constructor throws its
  // diagnostic then.
  if (r.second < 0.0 || r.second >= 61.0) return DateTimeStruct(r.toArray());
  return r;
}

// A record as the six doubles of a calendar row (year to second), the
// layout the batch loops and the bulk ISO reader share.
inline void putRow(double* row, const DateTimeStruct& c) noexcept {
  row[0] = c.year;
  row[1] = c.month;
  row[2] = c.day;
  row[3] = c.hour;
  row[4] = c.minute;
  row[5] = c.second;
}

}  // namespace KvDateTime::detail
