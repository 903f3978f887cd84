// Input decoding and checks shared by the fuzz targets.
//
// A target states what must hold for every input; a broken expectation
// prints the claim and aborts, which libFuzzer records as a crash with the
// input that caused it.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>

#include "host/diag/Diagnostic.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace kvfuzz {

[[noreturn]] inline void fail(const char* claim, const char* file, int line,
                              const std::string& detail) {
  std::fprintf(stderr, "%s:%d: expected %s %s\n", file, line, claim,
               detail.c_str());
  std::abort();
}

#define KVFUZZ_CHECK(cond, detail) \
  ((cond) ? (void)0 : ::kvfuzz::fail(#cond, __FILE__, __LINE__, (detail)))

// The Id of a "Korvane:DateTime:<Id>" identifier; the whole identifier,
// marked, when it belongs to another catalog.
inline std::string idOf(const std::string& identifier) {
  constexpr std::string_view kPrefix = "Korvane:DateTime:";
  if (identifier.rfind(kPrefix, 0) != 0) return "foreign:" + identifier;
  return identifier.substr(kPrefix.size());
}
inline std::string idOf(const kvsvDiagnostic& d) {
  return d ? idOf(d->identifier()) : "";
}

inline bool oneOf(const std::string& id,
                  std::initializer_list<std::string_view> ids) {
  for (std::string_view candidate : ids)
    if (id == candidate) return true;
  return false;
}

// The calendar Ids the validators and converters may name.
inline const std::initializer_list<std::string_view> kCalendarIds = {
    "BadYear",          "BadMonth",      "BadDayOfMonth",
    "BadHour",          "BadMinute",     "BadSecond",
    "BadSecondUTC",     "BadLeapSecond", "BadYearModelConfig",
    "BadTAIModelConfig"};

// A double that is often near the places where decisions flip: a small
// whole number, a whole number plus a fraction, one of the special values,
// or any bit pattern at all.
inline double anyDouble(FuzzedDataProvider& in) {
  static constexpr double kEdges[] = {0.0,
                                      -0.0,
                                      0.5,
                                      59.999999999999993,
                                      60.0,
                                      60.5,
                                      61.0,
                                      1400.0,
                                      1399.0,
                                      9999.0,
                                      10000.0,
                                      1972.0,
                                      65536.0,
                                      65537.0,
                                      0x1p31,
                                      0x1p63,
                                      -0x1p63,
                                      DBL_MAX,
                                      -DBL_MAX,
                                      DBL_MIN,
                                      DBL_TRUE_MIN,
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN()};
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      return in.ConsumeIntegralInRange<int>(-3, 70);
    case 1:
      return in.ConsumeIntegralInRange<int>(-3, 70) +
             in.ConsumeProbability<double>();
    case 2:
      return kEdges[in.ConsumeIntegralInRange<std::size_t>(
          0, std::size(kEdges) - 1)];
    default:
      return std::bit_cast<double>(in.ConsumeIntegral<std::uint64_t>());
  }
}

// A year, month and day that are mostly real, so that the deeper paths run.
inline void plausibleDate(FuzzedDataProvider& in, double* ymd) {
  ymd[0] = in.ConsumeIntegralInRange<int>(1395, 10005);
  ymd[1] = in.ConsumeIntegralInRange<int>(0, 13);
  ymd[2] = in.ConsumeIntegralInRange<int>(0, 32);
}

// An enumerator, usually a valid one, sometimes any 32-bit value.
template <typename Enum>
Enum anyEnum(FuzzedDataProvider& in, int count) {
  if (in.ConsumeIntegralInRange<int>(0, 7) == 0)
    return static_cast<Enum>(in.ConsumeIntegral<std::int32_t>());
  return static_cast<Enum>(in.ConsumeIntegralInRange<int>(0, count - 1));
}
inline KvDateTime::Epoch anyEpoch(FuzzedDataProvider& in) {
  return anyEnum<KvDateTime::Epoch>(in, 6);
}
inline KvDateTime::TimeStandard anyStandard(FuzzedDataProvider& in) {
  return anyEnum<KvDateTime::TimeStandard>(in, 4);
}

inline std::string describe(const double* v, int n) {
  std::string s;
  char buf[32];
  for (int i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%a ", v[i]);
    s += buf;
  }
  return s;
}

}  // namespace kvfuzz
