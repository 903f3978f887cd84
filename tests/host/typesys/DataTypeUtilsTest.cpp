#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

#include "host/typesys/DataTypeUtils.hpp"

namespace {

using KvDateTime::StorageDataType;
using KvTypeSys::KvDateTimeDataTypeUtils;

// The class of the smallest host integer holding the compact bytes; 16
// bytes travel as 64-bit elements.
TEST(DataTypeUtils, MapsStorageTypesToClasses) {
  // clang-format off
  const std::tuple<fxpDataTypeProp, StorageDataType, voClassID> cases[] = {
      {{2, 1, 64, 0, 1.0, 0.0}, StorageDataType::Double, voClassID::Double},
      {{0, 0, 1, 0, 1.0, 0.0}, StorageDataType::UnsignedFixedPoint, voClassID::UInt8},
      {{0, 1, 9, -3, 1.0, 0.0}, StorageDataType::SignedFixedPoint, voClassID::Int16},
      {{0, 0, 32, 0, 1.0, 0.0}, StorageDataType::UnsignedFixedPoint, voClassID::UInt32},
      {{0, 1, 33, 0, 1.0, 0.0}, StorageDataType::SignedFixedPoint, voClassID::Int64},
      {{0, 0, 128, -64, 1.0, 0.0}, StorageDataType::UnsignedFixedPoint, voClassID::UInt64}};
  // clang-format on
  for (const auto& [prop, storage, cls] : cases) {
    EXPECT_EQ(KvDateTimeDataTypeUtils::storageFxpDtProp2DTEnum(prop), storage);
    EXPECT_EQ(KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(prop), cls);
  }
  EXPECT_THROW(KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(
                   {0, 1, 129, 0, 1.0, 0.0}),
               std::invalid_argument);
}

// Identifiers count from 0, entries from 1: the entry after an identifier
// holds its type.
TEST(DataTypeTable, EntryAfterTheIdentifierHoldsTheType) {
  KvTypeSys::DataTypeTable table;
  const std::uint32_t ia = table.add({0, 1, 64, -32, 1.0, 0.0}),
                      ib = table.add({2, 1, 64, 0, 1.0, 0.0});
  EXPECT_EQ(table.at(ia + 1).fixedExponent, -32);
  EXPECT_EQ(table.at(ib + 1).kind, 2);
  EXPECT_THROW(table.at(0), std::out_of_range);
  EXPECT_THROW(table.at(ib + 2), std::out_of_range);
  EXPECT_THROW(table.add({0, 1, 8, 0, 2.0, 0.0}), std::invalid_argument);
  EXPECT_EQ(table.size(), 2u);
}

}  // namespace
