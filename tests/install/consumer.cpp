// Built against an installed copy of the library: every header it needs
// must have been installed, and the library must link and load.
#include <cstdio>
#include <string>

#include "date_time/KvDateTime.hpp"

using namespace KvDateTime;

int main() {
  const DateTimeStruct j2000({2000, 1, 1, 12, 0, 0});
  const double days = DateTimeUtilities::calendarToJulianDate(
      j2000, Epoch::EpochJD, TimeStandard::TT);
  const std::string text =
      resource_core::toUtf8(DateTimeStructFormatter(j2000, TimeStandard::TT)
                                .getFormattedStr(u"yyyy-MM-dd HH:mm t"));
  const LeapSecondList list =
      LeapSecondListParser::parse("2272060800 10\n2287785600 11\n");
  const DateTimeStruct read =
      DateTimeParser::parse(text, "yyyy-MM-dd HH:mm t", TimeStandard::TT);
  std::string rejected;
  if (kvsvDiagnostic d = DateTimeUtilities::validateDateTime(
          {2023, 2, 29, 0, 0, 0}, TimeStandard::UTC)) {
    rejected = d->identifier();
  }
  std::printf("%s: JD %.1f, %s, %zu leap year(s), %s\n", FOUND_BY, days,
              text.c_str(), list.years.size(), rejected.c_str());
  const bool ok = days == 2451545.0 && text == "2000-01-01 12:00 TT" &&
                  read == j2000 && list.years.size() == 1 &&
                  rejected == "Korvane:DateTime:BadDayOfMonth";
  return ok ? 0 : 1;
}
