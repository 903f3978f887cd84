// The calendar paths run once per simulation step: their success paths and
// the validators' "valid" answers must not touch the heap. A replaced global
// operator new counts every allocation made in this test binary.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "date_time/DateTimeUtilities.hpp"

namespace {
std::atomic<long> gAllocations{0};
}

void* operator new(std::size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace KvDateTime;

TEST(NoHeap, CalendarSuccessPathsAllocateNothing) {
  const DateTimeStruct cal({2016, 12, 31, 23, 59, 60.25});
  const DateTimeUtilities::CalendarValues values = cal.toArray();
  double sink = 0;
  const long before = gAllocations.load();
  for (int e = 0; e < 6; ++e) {
    for (TimeStandard ts :
         {TimeStandard::UTC, TimeStandard::TAI, TimeStandard::TT}) {
      if (ts == TimeStandard::UTC) {
        sink += DateTimeUtilities::validateDateTime(values, ts) == nullptr;
        sink += DateTimeUtilities::validateModelDateTime(
                    {2024, 3, 5, 7, 8, 9.25}) == nullptr;
      }
      const DateTimeStruct plain({2024, 3, 5, 7, 8, 9.25});
      const EpochTimeStruct t =
          DateTimeUtilities::calendarToEpochTime(plain, Epoch(e), ts);
      sink += DateTimeUtilities::epochTimeToCalendar(t, Epoch(e), ts).second;
      const double jd =
          DateTimeUtilities::calendarToJulianDate(plain, Epoch(e), ts);
      sink += DateTimeUtilities::julianDateToCalendar(jd, Epoch(e), ts).day;
      sink +=
          DateTimeUtilities::getEpochOffset(Epoch(e), Epoch((e + 1) % 6), ts);
      sink += DateTimeUtilities::secondsSinceSundayMidnight(Epoch(e), ts);
    }
  }
  sink += DateTimeUtilities::calendarTimeToDayOfWeek(cal) +
          DateTimeUtilities::calendarTimeToDayOfYear(cal);
  const long after = gAllocations.load();
  EXPECT_EQ(after - before, 0);
  EXPECT_GT(sink, 0);
}

TEST(NoHeap, TheCounterSeesAFailingValidator) {
  // Guards the test above against a counter that never counts.
  const long before = gAllocations.load();
  kvsvDiagnostic d = DateTimeUtilities::validateDate({2023, 2, 29, 0, 0, 0});
  EXPECT_NE(d, nullptr);
  EXPECT_GT(gAllocations.load() - before, 0);
}

}  // namespace
