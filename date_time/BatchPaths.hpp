// Private: the instruction-set paths of the array conversions. The public
// functions take the widest path the processor has; the tests run every
// path it has on the same input and hold each to the scalar bits, so the
// portable path is checked even on a machine that would never take it.
#pragma once

#include <span>

#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime::Batch::detail {

// Portable: baseline x86-64 (or whatever the build targets). The others are
// compiled for their extension whatever the build's own target.
enum class Path { Portable, Avx2, Avx512 };

KVDT_EXPORT bool pathSupported(Path path) noexcept;
KVDT_EXPORT Path widestPath() noexcept;

// The double-storage functions of Batch.hpp on a given path; the path must
// be supported.
KVDT_EXPORT void toCalendarOn(Path path, std::span<const double> stored,
                              Epoch epoch, TimeStandard ts,
                              std::span<double> out,
                              std::span<const bool> leapSecond);
KVDT_EXPORT void fromCalendarOn(Path path, bool checked,
                                std::span<const double> calendar, Epoch epoch,
                                TimeStandard ts, std::span<double> stored,
                                std::span<bool> leapSecond);
KVDT_EXPORT void convertStandardOn(
    Path path, std::span<const double> stored, Epoch epoch, TimeStandard from,
    TimeStandard to, const LeapSecondTableData& table, std::span<double> out,
    std::span<const bool> leapSecond, std::span<bool> leapSecondOut);

}  // namespace KvDateTime::Batch::detail
