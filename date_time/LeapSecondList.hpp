// Reads a leap-second list in the format the IERS and the IETF publish
// ("leap-seconds.list") into the year map LeapSecondTableDataCreator::build
// takes. The caller reads the file; the library only parses text.
//
// Each data line is "NTP-seconds TAI-UTC [# comment]", NTP seconds counting
// from 1900-01-01 00:00 UTC. The first line must be 1972-01-01 with TAI-UTC
// 10 (the start of UTC with leap seconds, no leap second of its own); every
// later line falls on 1 January or 1 July at 00:00, after the one before,
// and changes TAI-UTC by exactly +1 or -1. Lines starting "#" are comments,
// except "#$" (last update, NTP seconds), "#@" (expiry, NTP seconds) and
// "#h" (SHA-1 of the data as five hex words), which are read.
//
// Malformed input throws the host's IException with one of
// "Korvane:DateTime:BadLeapSecondList..." and the 1-based line number as
// its first argument (the line after the last for a list without data).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"

namespace KvDateTime {

// Threads: a plain value.
struct LeapSecondList {
  // Only the years with a leap second appear.
  LeapSecondYears years;
  std::optional<std::int64_t> updatedNtp;  // "#$", seconds since 1900
  std::optional<std::int64_t> expiresNtp;  // "#@", seconds since 1900
  bool hashChecked = false;  // a "#h" line was present and matched
};

// Threads: parsing shares nothing between calls; any thread may parse at any
// time.
class KVDT_EXPORT LeapSecondListParser {
 public:
  LeapSecondListParser() = delete;

  // Seconds from 1900-01-01 (NTP) to 1970-01-01, both UTC.
  static constexpr std::int64_t kNtpTo1970 = 2208988800;

  // Parses the whole text. A "#h" line that does not match the data throws
  // "BadLeapSecondListHash"; a list without one is accepted unchecked.
  static LeapSecondList parse(std::string_view text);

  // True when the list carries an expiry at or before `nowNtp`.
  static bool isExpired(const LeapSecondList& list,
                        std::int64_t nowNtp) noexcept {
    return list.expiresNtp && *list.expiresNtp <= nowNtp;
  }
};

}  // namespace KvDateTime
