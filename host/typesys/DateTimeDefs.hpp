// Display names the host's type system gives to the date-time enumerations.
#pragma once

#include "host/typesys/DateTimeEnums.hpp"

// Threads: the names are constant strings; any thread may ask for them.
namespace DateTimeDefs {

// "TAI", "UTC", "TT", "TDB". A value outside the enumeration gives
// "unknown time standard" rather than failing: names are for messages.
const char* timeStandardName(KvDateTime::TimeStandard ts) noexcept;

// For example "seconds since 1970-01-01" or "Modified Julian date".
const char* timePointModeName(KvDateTime::TimePointMode mode) noexcept;

// For example "double" or "signed fixed point".
const char* storageDataTypeName(KvDateTime::StorageDataType type) noexcept;

}  // namespace DateTimeDefs
