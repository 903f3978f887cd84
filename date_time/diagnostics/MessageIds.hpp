// Message identifiers of the library: "Korvane:DateTime:<Id>".
//
// KVDT_MESSAGE_IDS is the one list of every Id the library raises or
// returns. Raise sites name an Id as MsgId::<Id>, never as text, so an Id
// missing here does not compile; adding an Id is adding its line below and
// its text to the host's catalog (MessageIdCatalog.EveryIdHasText and
// EveryCatalogIdIsListed hold the two against each other). The Ids are part
// of the interface: hosts match them, so their spelling never changes.
//
// Identifiers raised from more than one place also have a class of their
// own; the others are made where they are raised with makeMsgId.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "host/diag/Diagnostic.hpp"

// clang-format off
#define KVDT_MESSAGE_IDS(X)              \
  X(BadYear)                            \
  X(BadMonth)                           \
  X(BadDayOfMonth)                      \
  X(BadHour)                            \
  X(BadMinute)                          \
  X(BadSecond)                          \
  X(BadSecondUTC)                       \
  X(BadLeapSecond)                      \
  X(BadYearModelConfig)                 \
  X(BadTAIModelConfig)                  \
  X(BadLeapSecondBoolTimeStandard)      \
  X(BadLeapSecondBoolTimestamp)         \
  X(TimestampIsNegativeLeapSecond)      \
  X(TDBTSOnlySupportJulianDayTU)        \
  X(TDBTSOnlySupportDoubleSDT)          \
  X(InvalidFormatChar)                  \
  X(InvalidDayOfWeekToken)              \
  X(MultipleFractionalSecondTokens)     \
  X(BadLeapSecondListLine)              \
  X(BadLeapSecondListStart)             \
  X(BadLeapSecondListDate)              \
  X(BadLeapSecondListStep)              \
  X(BadLeapSecondListEmpty)             \
  X(BadLeapSecondListHash)              \
  X(BatchElementFailed)                 \
  X(ReadingOutOfStorageRange)           \
  X(LeapSecondLostInStorage)            \
  X(NoLeapSecondInserted)               \
  X(StoredCountOutOfRange)              \
  X(ClockStartInTDB)                    \
  X(BadClockStep)                       \
  X(ClockStepOverflow)                  \
  X(ClockReadingOutOfRange)             \
  X(ParseMismatch)                      \
  X(ParseTrailingText)                  \
  X(ParseFieldRange)                    \
  X(ParseFieldConflict)                 \
  X(ParseTimeStandardMismatch)          \
  X(ParseInvalidDateTime)               \
  X(ParsePatternIncomplete)
// clang-format on

// Threads: the list is constant; identifier objects are values made for one
// raise on the raising thread.
namespace Korvane::DateTime {

inline constexpr const char* kCatalog = "Korvane:DateTime";

enum class MsgId {
#define KVDT_MSG_ID_ENUMERATOR(id) id,
  KVDT_MESSAGE_IDS(KVDT_MSG_ID_ENUMERATOR)
#undef KVDT_MSG_ID_ENUMERATOR
};

// The Id text of every MsgId, in the enumeration's order.
inline constexpr std::array kMsgIdNames = {
#define KVDT_MSG_ID_NAME(id) #id,
    KVDT_MESSAGE_IDS(KVDT_MSG_ID_NAME)
#undef KVDT_MSG_ID_NAME
};

// "BadYear" for MsgId::BadYear: the Id without the catalog.
constexpr const char* idName(MsgId id) noexcept {
  return kMsgIdNames[static_cast<std::size_t>(id)];
}

inline resource_core::BaseMsgID makeMsgId(
    MsgId id, std::vector<resource_core::MsgArgument> arguments = {}) {
  return resource_core::BaseMsgID(kCatalog, idName(id), std::move(arguments));
}

class BadYear : public resource_core::BaseMsgID {
 public:
  BadYear() : BaseMsgID(kCatalog, idName(MsgId::BadYear)) {}
};

class BadLeapSecondBoolTimeStandard : public resource_core::BaseMsgID {
 public:
  BadLeapSecondBoolTimeStandard()
      : BaseMsgID(kCatalog, idName(MsgId::BadLeapSecondBoolTimeStandard)) {}
};

// The argument is the host's name of the value's time-point mode.
class TDBTSOnlySupportJulianDayTU : public resource_core::BaseMsgID {
 public:
  template <typename Str>
  explicit TDBTSOnlySupportJulianDayTU(const Str& modeName)
      : BaseMsgID(kCatalog, idName(MsgId::TDBTSOnlySupportJulianDayTU),
                  {resource_core::MsgArgument(std::string(modeName))}) {}
};

// The argument is the host's name of the value's storage data type.
class TDBTSOnlySupportDoubleSDT : public resource_core::BaseMsgID {
 public:
  template <typename Str>
  explicit TDBTSOnlySupportDoubleSDT(const Str& typeName)
      : BaseMsgID(kCatalog, idName(MsgId::TDBTSOnlySupportDoubleSDT),
                  {resource_core::MsgArgument(std::string(typeName))}) {}
};

}  // namespace Korvane::DateTime
