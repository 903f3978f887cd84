#include <gtest/gtest.h>

#include <stdexcept>

#include "host/typesys/DataTypeUtils.hpp"

namespace {

using KvDateTime::StorageDataType;
using KvTypeSys::KvDateTimeDataTypeUtils;

TEST(DataTypeUtils, MapsStorageTypesToClasses) {
  struct Case {
    fxpDataTypeProp prop;
    StorageDataType storage;
    voClassID cls;
  };
  const Case cases[] = {
      {{2, 1, 64, 0, 1.0, 0.0}, StorageDataType::Double, voClassID::Double},
      {{0, 0, 1, 0, 1.0, 0.0},
       StorageDataType::UnsignedFixedPoint,
       voClassID::UInt8},
      {{0, 1, 9, -3, 1.0, 0.0},
       StorageDataType::SignedFixedPoint,
       voClassID::Int16},
      {{0, 0, 32, 0, 1.0, 0.0},
       StorageDataType::UnsignedFixedPoint,
       voClassID::UInt32},
      {{0, 1, 33, 0, 1.0, 0.0},
       StorageDataType::SignedFixedPoint,
       voClassID::Int64},
      {{0, 0, 128, -64, 1.0, 0.0},
       StorageDataType::UnsignedFixedPoint,
       voClassID::UInt64},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(KvDateTimeDataTypeUtils::storageFxpDtProp2DTEnum(c.prop),
              c.storage);
    EXPECT_EQ(KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(c.prop),
              c.cls);
  }
  const fxpDataTypeProp bad{0, 1, 129, 0, 1.0, 0.0};
  EXPECT_THROW(KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(bad),
               std::invalid_argument);
}

TEST(DataTypeTable, EntryAfterTheIdentifierHoldsTheType) {
  KvTypeSys::DataTypeTable table;
  const fxpDataTypeProp a{0, 1, 64, -32, 1.0, 0.0}, b{2, 1, 64, 0, 1.0, 0.0};
  const std::uint32_t ia = table.add(a), ib = table.add(b);
  EXPECT_NE(ia, ib);
  EXPECT_EQ(table.at(ia + 1).fixedExponent, -32);
  EXPECT_EQ(table.at(ib + 1).kind, 2);
  EXPECT_THROW(table.at(0), std::out_of_range);
  EXPECT_THROW(table.at(ib + 2), std::out_of_range);
  EXPECT_THROW(table.add({0, 1, 8, 0, 2.0, 0.0}), std::invalid_argument);
  EXPECT_EQ(table.size(), 2u);
}

}  // namespace
