// Shared by the leap-second and time-standard tests: the storage types and
// epochs every table is checked in, UTC readings on a grid, and ERFA as the
// independent oracle of TAI - UTC.
#pragma once

#include <erfa.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <vector>

#include "date_time/DateTime.hpp"
#include "date_time/DateTimeStruct.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/fxp/DataType.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace kvtest {

using KvDateTime::Epoch;
using KvDateTime::TimeStandard;

inline constexpr std::array<Epoch, 6> kAllEpochs = {
    Epoch::Epoch1970, Epoch::Epoch1900, Epoch::Epoch1958,
    Epoch::EpochJD,   Epoch::EpochMJD,  Epoch::EpochJ2000};

inline bool dayEpoch(Epoch e) {
  return e == Epoch::EpochJD || e == Epoch::EpochMJD || e == Epoch::EpochJ2000;
}

// A storage type, whether it holds fractions of a second, and how closely a
// difference of two of its values reproduces whole seconds. A 64-bit word
// of whole days would lose every leap second, and the table's range test
// counts seconds for every epoch (2e11 s since JD 0 need 39 bits), so day
// epochs get 64 bits with 25 fraction bits (2.6 ms) as their 64-bit storage.
struct Storage {
  const char* name;
  FXP::DataType type;
  bool wholeSecondsOnly;
  double toleranceSeconds;
};

inline std::vector<Storage> storagesFor(Epoch e) {
  // A day count as a double resolves 40 us near JD 2.4e6.
  std::vector<Storage> s = {
      {"double", FXP::DataType::doubleT(), false, dayEpoch(e) ? 1e-4 : 1e-9},
      {"s128.64", FXP::DataType::fixedT(true, 128, 64), false, 1e-9}};
  if (dayEpoch(e))
    s.push_back({"s64.25", FXP::DataType::fixedT(true, 64, 25), false, 6e-3});
  else
    s.push_back({"int64", FXP::DataType::fixedT(true, 64, 0), true, 0});
  return s;
}

// A UTC reading: the date and the seconds into the day (86399.5 is
// 23:59:59.5; 86400.5 is 23:59:60.5).
struct UtcReading {
  int year, month, day;
  double secondOfDay;

  KvDateTime::DateTimeStruct calendar() const {
    const double h = std::floor(secondOfDay / 3600);
    const double m = std::floor((secondOfDay - h * 3600) / 60);
    const double hh = h > 23 ? 23 : h, mm = h > 23 ? 59 : m;
    return handFilled(year, month, day, hh, mm,
                      secondOfDay - hh * 3600 - mm * 60);
  }
  bool wholeSecond() const { return secondOfDay == std::floor(secondOfDay); }
  // TAI - UTC by ERFA, in seconds.
  double eraTaiMinusUtc() const {
    double dat = 0;
    EXPECT_GE(eraDat(year, month, day, std::min(secondOfDay, 86399.999) / 86400,
                     &dat),
              0);
    return dat;
  }
};

// The 27 leap-second days as announced (the last day before each step).
struct LeapDay {
  int year, month, day;
};
inline std::vector<LeapDay> announcedLeapDays() {
  std::vector<LeapDay> days;
  for (int y = 1972; y <= 2016; ++y) {
    for (const auto& [m, d] : {std::pair{6, 30}, std::pair{12, 31}}) {
      double before = 0, after = 0;
      eraDat(y, m, d, 0.5, &before);
      int ny = y, nm = m + 1;
      if (nm > 12) nm = 1, ++ny;
      eraDat(ny, nm, 1, 0.5, &after);
      if (after > before) days.push_back({y, m, d});
    }
  }
  return days;
}

inline int daysInMonth(int y, int m) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30,
                                  31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return kDays[m - 1] + (m == 2 && leap);
}

// Non-decreasing UTC readings from 1972 to 2030: every `hours` hours, and
// around each leap second 23:59:58.5 .. 23:59:59.5 and the first second of
// the next day, with 0, 10 and 49 microseconds past midnight.
inline std::vector<UtcReading> utcGrid(int hours) {
  std::vector<UtcReading> out;
  const std::vector<LeapDay> leaps = announcedLeapDays();
  std::size_t nextLeap = 0;
  double sod = 0;
  for (int y = 1972; y < 2030; ++y) {
    for (int m = 1; m <= 12; ++m) {
      for (int d = 1; d <= daysInMonth(y, m); ++d) {
        for (; sod < 86400; sod += hours * 3600.0)
          out.push_back({y, m, d, sod});
        sod -= 86400;
        const bool leapDay =
            nextLeap < leaps.size() && leaps[nextLeap].year == y &&
            leaps[nextLeap].month == m && leaps[nextLeap].day == d;
        if (!leapDay) continue;
        ++nextLeap;
        for (double s : {86398.5, 86399.0, 86399.5})
          out.push_back({y, m, d, s});
        const int ny = m == 12 ? y + 1 : y, nm = m == 12 ? 1 : m + 1;
        for (double s : {0.0, 1e-5, 4.9e-5, 0.5, 1.0})
          out.push_back({ny, nm, 1, s});
      }
    }
  }
  std::sort(out.begin(), out.end(),
            [](const UtcReading& a, const UtcReading& b) {
              return std::tie(a.year, a.month, a.day, a.secondOfDay) <
                     std::tie(b.year, b.month, b.day, b.secondOfDay);
            });
  return out;
}

// Whether `r` lies in the first 50 us after an announced step. Day counts are
// doubles or rounded from them, so 23:59:59 + 1 s of the previous day may land
// just past midnight; the lookup then still keeps the old count, as its
// arithmetic says.
inline bool justAfterLeapMidnight(const UtcReading& r) {
  if (r.day != 1 || (r.month != 1 && r.month != 7) || r.secondOfDay >= 5e-5)
    return false;
  for (const LeapDay& d : announcedLeapDays())
    if ((d.month == 12 ? d.year + 1 : d.year) == r.year &&
        (d.month == 12 ? 1 : 7) == r.month)
      return true;
  return false;
}

}  // namespace kvtest
