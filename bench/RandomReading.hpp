// Fixed-seed calendar readings shared by the benchmark programs, so that they
// time the same inputs: a day drawn uniformly over the years 1400..9999, a
// random time of day and a random fraction of a second.
#pragma once

#include <date/date.h>

#include <random>

#include "date_time/DateTimeStruct.hpp"

namespace kvbench {

inline KvDateTime::DateTimeStruct randomReading(std::mt19937_64& rng) {
  using namespace date;
  static const sys_days first = year{1400} / 1 / 1, last = year{9999} / 12 / 31;
  std::uniform_int_distribution<int> day(0, (last - first).count());
  std::uniform_int_distribution<int> hour(0, 23), minute(0, 59), sec(0, 59);
  std::uniform_real_distribution<double> frac(0.0, 1.0);
  const year_month_day ymd{first + days{day(rng)}};
  return KvDateTime::DateTimeStruct(
      {double(int(ymd.year())), double(unsigned(ymd.month())),
       double(unsigned(ymd.day())), double(hour(rng)), double(minute(rng)),
       sec(rng) + frac(rng)});
}

}  // namespace kvbench
