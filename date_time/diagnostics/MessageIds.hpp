// Message identifiers of the library: "Korvane:DateTime:<Id>".
//
// Identifiers raised from more than one place have a class of their own; the
// others are built where they are raised with makeMsgId.
#pragma once

#include <string>

#include "host/diag/Diagnostic.hpp"

namespace Korvane::DateTime {

inline constexpr const char* kCatalog = "Korvane:DateTime";

inline resource_core::BaseMsgID makeMsgId(
    const char* id, std::vector<resource_core::MsgArgument> arguments = {}) {
  return resource_core::BaseMsgID(kCatalog, id, std::move(arguments));
}

class BadYear : public resource_core::BaseMsgID {
 public:
  BadYear() : BaseMsgID(kCatalog, "BadYear") {}
};

class BadLeapSecondBoolTimeStandard : public resource_core::BaseMsgID {
 public:
  BadLeapSecondBoolTimeStandard()
      : BaseMsgID(kCatalog, "BadLeapSecondBoolTimeStandard") {}
};

// The argument is the host's name of the value's time-point mode.
class TDBTSOnlySupportJulianDayTU : public resource_core::BaseMsgID {
 public:
  template <typename Str>
  explicit TDBTSOnlySupportJulianDayTU(const Str& modeName)
      : BaseMsgID(kCatalog, "TDBTSOnlySupportJulianDayTU",
                  {resource_core::MsgArgument(std::string(modeName))}) {}
};

// The argument is the host's name of the value's storage data type.
class TDBTSOnlySupportDoubleSDT : public resource_core::BaseMsgID {
 public:
  template <typename Str>
  explicit TDBTSOnlySupportDoubleSDT(const Str& typeName)
      : BaseMsgID(kCatalog, "TDBTSOnlySupportDoubleSDT",
                  {resource_core::MsgArgument(std::string(typeName))}) {}
};

}  // namespace Korvane::DateTime
