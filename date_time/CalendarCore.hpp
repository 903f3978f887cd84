// The proleptic Gregorian calendar's rules, in one place: leap years, month
// lengths, and the day count from a civil date and back. Days count from
// 1970-01-01 (day 0). The day-count algorithms are H. Hinnant's
// "chrono-Compatible Low-Level Date Algorithms": exact for every year that
// fits, negative ones included, with no table and no branch on the month.
// Private to the library: no installed header includes it.
#pragma once

#include <array>
#include <cstdint>

namespace KvDateTime::detail {

// The years the calendar conversions admit, as the date type does.
inline constexpr std::int64_t kFirstYear = 1400;
inline constexpr std::int64_t kLastYear = 9999;

constexpr bool isLeapYear(std::int64_t y) noexcept {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// Month 1..12.
constexpr unsigned monthLength(bool leap, unsigned month) noexcept {
  constexpr std::array<std::uint8_t, 12> kDays = {31, 28, 31, 30, 31, 30,
                                                  31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (leap && month == 2 ? 1u : 0u);
}

// Linear in `day`, so a day past the month's end (or 0) counts on into the
// next month (or back into the last), as the 16-bit reduced days need.
// The year in 32 bits, as every caller's fits: cheaper division.
constexpr std::int64_t daysFromCivil(std::int32_t year, unsigned month,
                                     unsigned day) noexcept {
  const std::int32_t y = year - (month <= 2 ? 1 : 0);
  const std::int32_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);       // [0, 399]
  const unsigned mp = month > 2 ? month - 3 : month + 9;       // March = 0
  const unsigned doy = (153 * mp + 2) / 5 + day - 1;           // [0, 365]
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;  // [0, 146096]
  return std::int64_t{era} * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

struct CivilDate {
  std::int64_t year;
  unsigned month;  // 1..12
  unsigned day;    // 1..31
};

constexpr CivilDate civilFromDays(std::int64_t z) noexcept {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);  // [0, 146096]
  const unsigned yoe =
      (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // [0, 399]
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;  // March = 0
  const unsigned day = doy - (153 * mp + 2) / 5 + 1;
  const unsigned month = mp < 10 ? mp + 3 : mp - 9;
  const std::int64_t year =
      static_cast<std::int64_t>(yoe) + era * 400 + (month <= 2 ? 1 : 0);
  return {year, month, day};
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
static_assert(weekdayFromDays(0) == 5 && weekdayFromDays(-4) == 1);
static_assert(monthLength(true, 2) == 29 && monthLength(false, 2) == 28);

}  // namespace KvDateTime::detail
