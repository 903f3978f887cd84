// Shared by the leap-second tests: the storage types every epoch is checked
// in, UTC readings on a grid, and ERFA as the oracle of TAI - UTC.
#pragma once

#include <erfa.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "date_time/DateTime.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "host/fxp/DataType.hpp"
#include "tests/TestScale.hpp"
#include "tests/date_time/TestHelpers.hpp"

namespace kvtest {

using KvDateTime::Epoch;

inline constexpr Epoch kAllEpochs[] = {Epoch::Epoch1970, Epoch::Epoch1900,
                                       Epoch::Epoch1958, Epoch::EpochJD,
                                       Epoch::EpochMJD,  Epoch::EpochJ2000};
inline bool dayEpoch(Epoch e) { return static_cast<int>(e) >= 3; }

// A whole-day 64-bit count would lose every leap second, and the table's
// range test counts seconds for every epoch (2e11 s since JD 0), so day
// epochs get 64 bits with 25 fraction bits (2.6 ms) as their 64-bit type.
// A double day count resolves 40 us near JD 2.4e6.
struct Storage {
  const char* name;
  FXP::DataType type;
  bool wholeSecondsOnly;
  double toleranceSeconds;
};
inline std::vector<Storage> storagesFor(Epoch e) {
  const bool d = dayEpoch(e);
  return {
      {"double", FXP::DataType::doubleT(), false, d ? 1e-4 : 1e-9},
      {"s128.64", FXP::DataType::fixedT(true, 128, 64), false, 1e-9},
      d ? Storage{"s64.25", FXP::DataType::fixedT(true, 64, 25), false, 6e-3}
        : Storage{"int64", FXP::DataType::fixedT(true, 64, 0), true, 0}};
}

using KvDateTime::DateTime, KvDateTime::TimeStandard;
inline FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();

inline DateTime convert(const DateTime& dt, TimeStandard to,
                        const KvDateTime::LeapSecondTableData& t,
                        std::uint32_t* cursor = nullptr, bool hold = false) {
  return KvDateTime::TimeStandardConverter::convertTimeStandard(dt, to, t, mc,
                                                                cursor, hold);
}
// a - b in seconds, from storage values in the unit of epoch `e`.
inline double secondsBetween(const FXP::DataValue& a, const FXP::DataValue& b,
                             Epoch e) {
  return a.minus(a.getDataType(), b, mc).toDouble() * (dayEpoch(e) ? 86400 : 1);
}
inline double secondsBetween(const DateTime& a, const DateTime& b) {
  return secondsBetween(a.value, b.value, a.epoch);
}

// A UTC date and the seconds into it (86400.5 is 23:59:60.5).
struct UtcReading {
  int year, month, day;
  double secondOfDay;
  KvDateTime::DateTimeStruct calendar() const {
    const double h = std::min(std::floor(secondOfDay / 3600), 23.0);
    const double m = std::min(std::floor((secondOfDay - h * 3600) / 60), 59.0);
    return KvDateTime::DateTimeStruct::unchecked(
        year, month, day, h, m, secondOfDay - h * 3600 - m * 60);
  }
  bool wholeSecond() const { return secondOfDay == std::floor(secondOfDay); }
  // The library's count: ERFA's TAI - UTC less the 10 s of 1972, which day
  // counts carry in their shifts and second counts in their epochs.
  double eraLeapCount() const {
    double dat = 0;
    eraDat(year, month, day, std::min(secondOfDay, 86399.0) / 86400, &dat);
    return dat - 10;
  }
};

// The 27 days that ended with an inserted second, by ERFA.
inline std::vector<UtcReading> leapDays() {
  std::vector<UtcReading> days;
  for (int y = 1972; y <= 2016; ++y)
    for (int m : {6, 12}) {
      const UtcReading last{y, m, m == 6 ? 30 : 31, 0};
      if (UtcReading{y + m / 12, m % 12 + 1, 1, 0}.eraLeapCount() >
          last.eraLeapCount())
        days.push_back(last);
    }
  return days;
}

// In the first 50 us after a step a day count's 23:59:59 + 1 s may round
// just past midnight, and the lookup then keeps the old count, by design.
inline bool justAfterLeapMidnight(const UtcReading& r) {
  const UtcReading before{r.month == 1 ? r.year - 1 : r.year,
                          r.month == 1 ? 12 : r.month - 1, 28, 0};
  return r.day == 1 && r.secondOfDay < 5e-5 &&
         r.eraLeapCount() > before.eraLeapCount();
}

// Ascending readings 1972-2030 every `hours` hours, plus 23:59:58.5 to
// 23:59:59.5 of each leap-second day and 0, 10 us, 49 us, 0.5 s, 1 s after.
inline std::vector<UtcReading> utcGrid(int hours) {
  std::vector<UtcReading> out;
  UtcReading prev{1972, 1, 1, 0};
  double sod = 0;
  for (double mjd = 41317; mjd < 62502; ++mjd, sod -= 86400) {
    UtcReading r{};
    eraJd2cal(2400000.5, mjd, &r.year, &r.month, &r.day, &r.secondOfDay);
    const bool stepped = r.eraLeapCount() > prev.eraLeapCount();
    if (stepped) {
      for (double s : {86398.5, 86399.0, 86399.5})
        out.push_back({prev.year, prev.month, prev.day, s});
      for (double s : {0.0, 1e-5, 4.9e-5, 0.5, 1.0})
        out.push_back({r.year, r.month, r.day, s});
    }
    for (; sod < 86400; sod += hours * 3600.0 * reduction())
      if (!stepped || sod > 1) out.push_back({r.year, r.month, r.day, sod});
    prev = r;
  }
  return out;
}

}  // namespace kvtest
