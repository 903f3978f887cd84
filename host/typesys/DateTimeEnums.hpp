// The enumerations that name a time point's epoch, time standard, mode and
// storage class. The host's type system owns them (it shows their names and
// maps storage types to them), so they live here and the library includes
// them. The integer values are fixed: they key the library's tables and are
// compared by value.
#pragma once

#include <cstdint>

namespace KvDateTime {

enum class Epoch : std::int32_t {
  Epoch1970 = 0,   // 1970-01-01 00:00:00, seconds
  Epoch1900 = 1,   // 1900-01-01 00:00:00, seconds
  Epoch1958 = 2,   // 1958-01-01 00:00:00, seconds
  EpochJD = 3,     // Julian date 0, days
  EpochMJD = 4,    // 1858-11-17 00:00:00, days
  EpochJ2000 = 5,  // 2000-01-01 12:00:00, days
};

// TAI and TT form one group for the time-standard converters: the group test
// is (value & ~2) == 0.
enum class TimeStandard : std::int32_t {
  TAI = 0,
  UTC = 1,
  TT = 2,
  TDB = 3,
};

// One mode per epoch, with the same integer values as Epoch.
enum class TimePointMode : std::int32_t {
  SecondsSince1970 = 0,
  SecondsSince1900 = 1,
  SecondsSince1958 = 2,
  JulianDate = 3,
  ModifiedJulianDate = 4,
  DaysSinceJ2000 = 5,
};

// The storage class of a time point's value.
enum class StorageDataType : std::int32_t {
  Double = 0,
  SignedFixedPoint = 1,
  UnsignedFixedPoint = 2,
};

}  // namespace KvDateTime
