#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "date_time/StorageTypeName.hpp"

using KvDateTime::StorageTypeName;

TEST(StorageTypeName, NameReadsBackToTheSameTypeForEveryWordLength) {
  for (int word = 1; word <= 128; ++word) {
    for (int fraction : {-128, -1, 0, 20, 64, 256}) {
      for (bool isSigned : {true, false}) {
        const FXP::DataType t = FXP::DataType::fixedT(isSigned, word, fraction);
        const std::string name = StorageTypeName::name(t);
        SCOPED_TRACE(name);
        EXPECT_TRUE(StorageTypeName::parse(name) == t);
      }
    }
  }
  EXPECT_TRUE(StorageTypeName::parse("Double") == FXP::DataType::doubleT());
}

TEST(StorageTypeName, AcceptsIntegerNamesAndTheDotSeparator) {
  struct Case {
    const char* text;
    bool isSigned;
    int word, fraction;
  };
  constexpr Case kCases[] = {
      {"int8", true, 8, 0},     {"uint16", false, 16, 0},
      {"INT64", true, 64, 0},   {"uint64", false, 64, 0},
      {"s64.20", true, 64, 20}, {"u128:-3", false, 128, -3}};
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_TRUE(StorageTypeName::parse(c.text) ==
                FXP::DataType::fixedT(c.isSigned, c.word, c.fraction));
  }
}

TEST(StorageTypeName, RejectsEverythingElse) {
  for (const char* text :
       {"", "s", "s64", "s64:", "s:20", "s0:0", "s129:0", "s64:257", "int12",
        "int", "x64:0", "s64:20x", "s 64:20", "float", "s64::20"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(StorageTypeName::parse(text), std::invalid_argument);
  }
}
