// Private: the immutable tables the library reads. Built at compile time;
// no installed header includes this one.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime::detail {

inline constexpr int kEpochCount = 6;

constexpr bool isValidEpoch(Epoch e) noexcept {
  return static_cast<std::uint32_t>(e) <
         static_cast<std::uint32_t>(kEpochCount);
}

// The calendar year in which each epoch instant lies.
inline constexpr std::array<std::int16_t, kEpochCount> epochYears = {
    1970, 1900, 1958, -4713, 1858, 2000};

// Seconds from the Sunday 00:00 before each epoch instant to it. 1970 and
// 1900 carry 10 s more: those two epochs are counted 10 s apart from the
// atomic-time epochs (see epochOffsets).
inline constexpr std::array<double, kEpochCount> epochSecondsSinceSunday = {
    345610.0, 86410.0, 259200.0, 129600.0, 259200.0, 561600.0};

// epochOffsets[from][to]: where the instant of `from` lies on the count of
// `to`; days when either epoch counts days, else seconds. Between {1970,
// 1900} and {1958, JD, MJD, J2000} the offset holds 10 s (10/86400 d) more
// than the calendar difference, the fixed gap between the two families.
// The decimal literals are the shortest that read back to the stored
// doubles; (b, a) is the exact negation of (a, b). The diagonal is absent.
inline constexpr double kNoOffset = std::numeric_limits<double>::quiet_NaN();
inline constexpr std::array<std::array<double, kEpochCount>, kEpochCount>
    epochOffsets = {{
        {kNoOffset, 2208988800.0, 378691210.0, 2440587.5001157406,
         40587.00011574074, -10957.49988425926},
        {-2208988800.0, kNoOffset, -1830297590.0, 2415020.5001157406,
         15020.00011574074, -36524.49988425926},
        {-378691210.0, 1830297590.0, kNoOffset, 2436204.5, 36204.0, -15340.5},
        {-2440587.5001157406, -2415020.5001157406, -2436204.5, kNoOffset,
         -2400000.5, -2451545.0},
        {-40587.00011574074, -15020.00011574074, -36204.0, 2400000.5, kNoOffset,
         -51544.5},
        {10957.49988425926, 36524.49988425926, 15340.5, 2451545.0, 51544.5,
         kNoOffset},
    }};

// Bounds-checked lookup with the failure of an ordered map's at().
inline double epochOffsetAt(Epoch from, Epoch to) {
  if (!isValidEpoch(from) || !isValidEpoch(to) || from == to) {
    throw std::out_of_range("map::at");
  }
  return epochOffsets[static_cast<std::size_t>(from)]
                     [static_cast<std::size_t>(to)];
}

inline constexpr std::array<const char*, 12> monthNames = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December"};

inline constexpr std::array<const char*, 7> dayNames = {
    "Sunday",   "Monday", "Tuesday", "Wednesday",
    "Thursday", "Friday", "Saturday"};

// Three columns of 26 rows: the years with a leap second, then whether one
// followed 30 June, then whether one followed 31 December (1.0 or 0.0).
inline constexpr int kLeapSecondYears = 26;
inline constexpr std::array<double, 3 * kLeapSecondYears> leapSecondSchedule = {
    // years
    1972, 1973, 1974, 1975, 1976, 1977, 1978, 1979, 1981, 1982, 1983, 1985,
    1987, 1989, 1990, 1992, 1993, 1994, 1995, 1997, 1998, 2005, 2008, 2012,
    2015, 2016,
    // after 30 June
    1, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 0, 0, 0, 1, 1, 1, 0, 1, 0, 0, 0, 1, 1,
    0,
    // after 31 December
    1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 0, 1, 1, 1, 0, 0,
    1};

}  // namespace KvDateTime::detail
