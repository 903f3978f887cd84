// The task the clock exists for: a UTC start, stored as an exact count of
// seconds since 1970 (signed 64 bits, 20 of them fraction), stepped by
// 0.25 s across the leap second at the end of 2016 and shown in UTC, TAI,
// TT and TDB. The rows are the demo's step table, with digits rounded.
#include "date_time/KvDateTime.hpp"
using namespace KvDateTime;

int main() {
  Clock c("2016-12-31 23:59:59", TimeStandard::UTC, Epoch::Epoch1970, "s64:20");
  std::printf("  %-27s  %-27s  %-27s  %s\n", "UTC", "TAI", "TT",
              "TDB (J2000 double)");
  for (int i = 0; i < 10; ++i, c.step(0.25)) {
    for (TimeStandard ts : {TimeStandard::UTC, TimeStandard::TAI,
                            TimeStandard::TT, TimeStandard::TDB})
      std::printf("  %-27s", c.format(ts).c_str());
    std::puts(c.isLeapSecond() ? "  <- leap second" : "");
  }
}
