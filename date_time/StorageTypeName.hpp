// Storage types by name, for the places where people type them: the kvdt
// command line and the Python module.
//
//   "double"                       the IEEE double
//   "int8" ... "int64"             signed integers, no fraction bits
//   "uint8" ... "uint64"           unsigned integers, no fraction bits
//   "s<bits>:<fraction bits>"      fixed point, signed ("s128:64")
//   "u<bits>:<fraction bits>"      fixed point, unsigned
//
// Case is ignored, and "." may stand for ":" ("s64.20").
#pragma once

#include <string>
#include <string_view>

#include "date_time/Export.hpp"
#include "host/fxp/DataType.hpp"

namespace KvDateTime {

// Threads: pure functions, callable from any thread.
class KVDT_EXPORT StorageTypeName {
 public:
  StorageTypeName() = delete;

  // Throws std::invalid_argument naming the text for anything else,
  // including word and fraction lengths FXP::DataType refuses.
  static FXP::DataType parse(std::string_view text);
  // "double" or the "s<bits>:<fraction bits>" / "u..." form; parse reads it
  // back to the same type.
  static std::string name(const FXP::DataType& type);
};

}  // namespace KvDateTime
