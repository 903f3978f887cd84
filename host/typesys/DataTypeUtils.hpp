// The host type system's view of a time point's storage type: its storage
// class, the array class it is exported in, and the table of registered data
// types that date-time type attributes refer to by identifier.
#pragma once

#include <cstdint>
#include <vector>

#include "host/fxp/DataType.hpp"
#include "host/typesys/DateTimeEnums.hpp"
#include "host/voarray/voArray.hpp"

namespace KvTypeSys {

// Threads: pure functions, callable from any thread.
struct KvDateTimeDataTypeUtils {
  // Double, or signed / unsigned fixed point. Throws std::invalid_argument
  // for a record FXP::DataType refuses.
  static KvDateTime::StorageDataType storageFxpDtProp2DTEnum(
      const fxpDataTypeProp& prop);
  // The integer class of the type's compact size and signedness (Double for
  // double). A 16-byte compact form has no class of its own: it maps to the
  // 64-bit class of its signedness and is exported as two elements. Throws
  // std::invalid_argument for a record FXP::DataType refuses.
  static voClassID storageFxpDtProp2voClassID(const fxpDataTypeProp& prop);
};

// Data types registered by the host. The entry at identifier + 1 holds the
// type; index 0 is the table's own and never a type.
//
// Threads: add changes the table and needs the owner's exclusion; a table no
// longer being added to may be read (at, size) from any thread.
class DataTypeTable {
 public:
  DataTypeTable() = default;
  // Registers `prop` (validated as FXP::DataType does, throwing
  // std::invalid_argument) and returns its identifier.
  std::uint32_t add(const fxpDataTypeProp& prop);
  // Throws std::out_of_range for an index that holds no type.
  const fxpDataTypeProp& at(std::uint32_t index) const;
  std::uint32_t size() const noexcept {
    return static_cast<std::uint32_t>(types_.size());
  }

 private:
  std::vector<fxpDataTypeProp> types_;  // identifier k at types_[k]
};

}  // namespace KvTypeSys
