#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "date_time/StorageTypeName.hpp"

using FXP::DataType;
using KvDateTime::StorageTypeName;

// Every name the tool prints reads back as its type; the integer names, the
// dot separator and any case are accepted; anything else is refused.
TEST(StorageTypeName, NamesRoundTripAndEverythingElseIsRefused) {
  for (int word = 1; word <= 128; ++word)
    for (int fraction : {-128, -1, 0, 20, 64, 256})
      for (bool isSigned : {true, false}) {
        const DataType t = DataType::fixedT(isSigned, word, fraction);
        EXPECT_TRUE(StorageTypeName::parse(StorageTypeName::name(t)) == t)
            << StorageTypeName::name(t);
      }
  const std::pair<const char*, DataType> accepted[] = {
      {"Double", DataType::doubleT()},
      {"int8", DataType::fixedT(true, 8, 0)},
      {"uint16", DataType::fixedT(false, 16, 0)},
      {"INT64", DataType::fixedT(true, 64, 0)},
      {"s64.20", DataType::fixedT(true, 64, 20)},
      {"u128:-3", DataType::fixedT(false, 128, -3)}};
  for (const auto& [text, type] : accepted)
    EXPECT_TRUE(StorageTypeName::parse(text) == type) << text;
  for (const char* text :
       {"", "s", "s64", "s64:", "s:20", "s0:0", "s129:0", "s64:257", "int12",
        "int", "x64:0", "s64:20x", "s 64:20", "float", "s64::20"})
    EXPECT_THROW(StorageTypeName::parse(text), std::invalid_argument) << text;
}
