#include "host/typesys/DataTypeUtils.hpp"

#include <stdexcept>
#include <string>

namespace KvTypeSys {

KvDateTime::StorageDataType KvDateTimeDataTypeUtils::storageFxpDtProp2DTEnum(
    const fxpDataTypeProp& prop) {
  const FXP::DataType type(prop);
  if (type.isDouble()) return KvDateTime::StorageDataType::Double;
  return type.isSigned() ? KvDateTime::StorageDataType::SignedFixedPoint
                         : KvDateTime::StorageDataType::UnsignedFixedPoint;
}

voClassID KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(
    const fxpDataTypeProp& prop) {
  const FXP::DataType type(prop);
  if (type.isDouble()) return voClassID::Double;
  const bool s = type.isSigned();
  switch (type.sizeofCompact()) {
    case 1:
      return s ? voClassID::Int8 : voClassID::UInt8;
    case 2:
      return s ? voClassID::Int16 : voClassID::UInt16;
    case 4:
      return s ? voClassID::Int32 : voClassID::UInt32;
    default:  // 8, and 16 as two 64-bit elements
      return s ? voClassID::Int64 : voClassID::UInt64;
  }
}

std::uint32_t DataTypeTable::add(const fxpDataTypeProp& prop) {
  (void)FXP::DataType(prop);
  types_.push_back(prop);
  return static_cast<std::uint32_t>(types_.size() - 1);
}

const fxpDataTypeProp& DataTypeTable::at(std::uint32_t index) const {
  if (index == 0 || index > types_.size())
    throw std::out_of_range("DataTypeTable: no type at index " +
                            std::to_string(index));
  return types_[index - 1];
}

}  // namespace KvTypeSys
