// Threads step, read back, format and convert at once through shared
// formatters, converters and leap-second tables, each with its own time
// point, cursor and math control, and must reach what one thread alone
// reaches. The TSan build of make test runs this; no race may be reported.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "date_time/Clock.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/TimeStandardConverter.hpp"

namespace {

using namespace KvDateTime;
using FXP::DataType;
using TS = TimeStandard;

struct Shared {
  DateTimeStructFormatter formatter{DateTimeStruct({2024, 3, 5, 7, 8, 9.25}),
                                    TS::TT};
  KvTypeSys::DataTypeTable types;
  std::uint32_t mjdDouble = types.add(DataType().getProp());
  DataType fixed = DataType::fixedT(true, 96, 32);
  LeapSecondTableData seconds =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, fixed);
  LeapSecondTableData days =
      LeapSecondTableDataCreator::build(Epoch::EpochMJD, DataType());
  TimeStandardConverterUTCtoTDB toTdb{TS::TDB};
};

std::u16string text(const DateTime& dt, const char16_t* pattern) {
  return DateTimeStructFormatter(dt.toDateTimeStruct(), dt.timeStandard)
      .getFormattedStr(pattern);
}

// A UTC clock stepped across the leap second at the end of 2016, read back
// and formatted, and moved to TAI (with the thread's cursor), MJD and TDB.
std::u16string run(const Shared& s, int thread) {
  DateTime clock(DateTimeStruct({2016, 12, 31, 23, 59, 50.0 + thread}),
                 Epoch::Epoch1970, TS::UTC, s.fixed);
  FXP::MathControl control(
      FXP::MathMode(FXP::MathMode::kFloor, FXP::MathMode::kSaturate));
  const DateTimeConverter& toMjd =
      DateTimeConverter::forEpochs(Epoch::Epoch1970, Epoch::EpochMJD);
  std::u16string digest;
  std::uint32_t cursor = 0;
  for (int i = 0; i < 300; ++i) {
    clock.add(0.125 + 0.5 * (i % 7), control);
    digest += text(clock, u"yyyy-MM-dd HH:mm:ss.SSS e D");
    digest += s.formatter.getFormattedStr(u"eee t");
    const DateTime mjd = toMjd.convertAttributes(
        clock, {Epoch::EpochMJD, s.mjdDouble}, &s.types, control);
    digest += text(TimeStandardConverter::convertTimeStandard(
                       clock, TS::TAI, s.seconds, control, &cursor),
                   u"ss.SSS");
    digest +=
        text(s.toTdb.convertTimeStandard(mjd, s.days, control), u"ss.SSS");
    digest += static_cast<char16_t>(
        u'0' + DateTimeUtilities::timestampToDayOfWeek(clock));
  }
  return digest;
}

// Four threads run f(thread) at once, then each alone again: the same.
// Together first, so that the library's first calls (its function-local
// statics included) meet on several threads.
template <typename F>
void expectThreadsGetWhatEachGetsAlone(F&& f) {
  constexpr int kThreads = 4;
  std::vector<decltype(f(0))> together(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] { together[t] = f(t); });
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_TRUE(together[t] == f(t)) << t;
}

TEST(Concurrency, SharedObjectsGiveEachThreadWhatItGetsAlone) {
  const Shared shared;
  expectThreadsGetWhatEachGetsAlone([&](int t) { return run(shared, t); });
}

// The clock's const members read it through copies of its cursor and
// control: threads may read one clock at once while none steps it.
TEST(Concurrency, OneClockReadByManyThreads) {
  Clock clock("2016-12-31 23:59:59.5", TS::UTC, Epoch::Epoch1970, "s96:32");
  clock.step(0.75);  // inside the leap second, the cursor past its entry
  const auto read = [&clock](int thread) {
    std::string digest;
    for (int i = 0; i < 200; ++i) {
      for (TS ts : {TS::UTC, TS::TAI, TS::TT, TS::TDB})
        digest += clock.format(ts, i % 2 ? u"ss.SSSSSS" : u"HH:mm:ss.S t");
      digest += clock.isLeapSecond() ? 'L' : '-';
      digest += std::to_string(thread);
    }
    return digest;
  };
  expectThreadsGetWhatEachGetsAlone(read);
}

}  // namespace
