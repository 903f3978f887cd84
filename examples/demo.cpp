// A tour of the calendar arithmetic: validate a few readings, place them on
// every epoch's count in every time standard, and as Julian dates.
#include <cstdio>

#include "date_time/KvDateTime.hpp"

using namespace KvDateTime;

namespace {

constexpr const char* kEpochNames[] = {"1970", "1900", "1958",
                                       "JD",   "MJD",  "J2000"};

void show(const DateTimeUtilities::CalendarValues& cal, TimeStandard ts) {
  std::printf("%04.0f-%02.0f-%02.0f %02.0f:%02.0f:%06.3f %-3s  ", cal[0],
              cal[1], cal[2], cal[3], cal[4], cal[5],
              DateTimeDefs::timeStandardName(ts));
  if (kvsvDiagnostic d = DateTimeUtilities::validateDateTime(cal, ts)) {
    std::printf("rejected: %s\n    %s\n", d->identifier().c_str(),
                d->message().c_str());
    return;
  }
  const DateTimeStruct rec(cal);
  // The formatter's `e` and `D` are the day of week and day of year.
  const std::u16string text = DateTimeStructFormatter(rec, ts).getFormattedStr(
      u"eeee, 'day' D 'of the year' ('weekday' e)");
  std::printf("%s\n", resource_core::toUtf8(text).c_str());
  for (int e = 0; e < 3; ++e) {
    const EpochTimeStruct t =
        DateTimeUtilities::calendarToEpochTime(rec, Epoch(e), ts);
    std::printf("    seconds since %-5s %14lld + %.6f\n", kEpochNames[e],
                static_cast<long long>(t.wholePart), t.fractionalPart);
  }
  for (int e = 3; e < 6; ++e) {
    std::printf("    %-19s %21.9f days\n", kEpochNames[e],
                DateTimeUtilities::calendarToJulianDate(rec, Epoch(e), ts));
  }
}

}  // namespace

int main() {
  const DateTimeUtilities::CalendarValues readings[] = {
      {2000, 1, 1, 12, 0, 0}, {2016, 12, 31, 23, 59, 60.5},
      {1972, 1, 1, 0, 0, 10}, {2024, 2, 29, 7, 8, 9.25},
      {2023, 2, 29, 0, 0, 0}, {2016, 12, 30, 23, 59, 60},
  };
  for (TimeStandard ts :
       {TimeStandard::UTC, TimeStandard::TAI, TimeStandard::TT}) {
    std::printf("== %s\n", DateTimeDefs::timeStandardName(ts));
    for (const auto& cal : readings) show(cal, ts);
  }

  // Back from the counts: seconds since 1970 in UTC, and a Julian date.
  const DateTimeStruct back = DateTimeUtilities::epochTimeToCalendar(
      {1'700'000'000, 0.25}, Epoch::Epoch1970, TimeStandard::UTC);
  std::printf(
      "\n1700000000.25 s since 1970 (UTC) is %04.0f-%02.0f-%02.0f "
      "%02.0f:%02.0f:%06.3f\n",
      back.year, back.month, back.day, back.hour, back.minute, back.second);
  const DateTimeStruct jd = DateTimeUtilities::julianDateToCalendar(
      2451545.0, Epoch::EpochJD, TimeStandard::TT);
  std::printf(
      "JD 2451545.0 (TT) is %04.0f-%02.0f-%02.0f %02.0f:%02.0f:%06.3f\n",
      jd.year, jd.month, jd.day, jd.hour, jd.minute, jd.second);
  return 0;
}
