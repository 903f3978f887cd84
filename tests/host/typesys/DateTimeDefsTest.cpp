#include <gtest/gtest.h>

#include <string>

#include "host/typesys/DateTimeDefs.hpp"

namespace {

using KvDateTime::TimeStandard;

TEST(TimeStandardName, NamesEachStandardAndToleratesStrayValues) {
  const std::pair<TimeStandard, const char*> cases[] = {
      {TimeStandard::TAI, "TAI"},
      {TimeStandard::UTC, "UTC"},
      {TimeStandard::TT, "TT"},
      {TimeStandard::TDB, "TDB"},
      // Names end up in messages and rendered text: a value outside the
      // enumeration must not read outside the table.
      {static_cast<TimeStandard>(4), "unknown time standard"},
      {static_cast<TimeStandard>(-1), "unknown time standard"},
  };
  for (const auto& [ts, name] : cases) {
    SCOPED_TRACE(static_cast<int>(ts));
    EXPECT_EQ(std::string(DateTimeDefs::timeStandardName(ts)), name);
  }
}

}  // namespace
