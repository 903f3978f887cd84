#include "host/typesys/DateTimeDefs.hpp"

#include <array>
#include <cstddef>

namespace DateTimeDefs {
namespace {

template <std::size_t N, typename Enum>
const char* nameOf(const std::array<const char*, N>& names, Enum value,
                   const char* fallback) noexcept {
  const auto index = static_cast<std::size_t>(value);  // negatives wrap high
  return index < N ? names[index] : fallback;
}

}  // namespace

const char* timeStandardName(KvDateTime::TimeStandard ts) noexcept {
  static constexpr std::array<const char*, 4> kNames = {"TAI", "UTC", "TT",
                                                        "TDB"};
  return nameOf(kNames, ts, "unknown time standard");
}

const char* timePointModeName(KvDateTime::TimePointMode mode) noexcept {
  static constexpr std::array<const char*, 6> kNames = {
      "seconds since 1970-01-01", "seconds since 1900-01-01",
      "seconds since 1958-01-01", "Julian date",
      "Modified Julian date",     "days since J2000"};
  return nameOf(kNames, mode, "unknown time-point mode");
}

const char* storageDataTypeName(KvDateTime::StorageDataType type) noexcept {
  static constexpr std::array<const char*, 3> kNames = {
      "double", "signed fixed point", "unsigned fixed point"};
  return nameOf(kNames, type, "unknown storage data type");
}

}  // namespace DateTimeDefs
