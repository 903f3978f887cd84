#include <gtest/gtest.h>

#include <string>

#include "host/typesys/DateTimeDefs.hpp"

namespace {

using KvDateTime::TimeStandard;

// Names end up in messages and rendered text: a value outside the
// enumeration must not read outside the table.
TEST(TimeStandardName, NamesEachStandardAndToleratesStrayValues) {
  const char* const kUnknown = "unknown time standard";
  // clang-format off
  const std::pair<int, const char*> cases[] = {
      {0, "TAI"}, {1, "UTC"}, {2, "TT"}, {3, "TDB"}, {4, kUnknown}, {-1, kUnknown}};
  // clang-format on
  for (const auto& [ts, name] : cases)
    EXPECT_EQ(std::string(DateTimeDefs::timeStandardName(TimeStandard(ts))),
              name)
        << ts;
}

}  // namespace
