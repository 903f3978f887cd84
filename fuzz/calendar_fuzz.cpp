// Six arbitrary doubles, an epoch and a time standard through every
// calendar validator and conversion. Holds for every input:
// - validators never throw and name a calendar Id or nothing, and the
//   stricter ones accept only what the looser ones accept;
// - a converter throws exactly the Id its validator returns, and otherwise
//   gives a reading that validates and comes back to the same instant:
//   exactly through epoch time, within a millisecond through Julian dates;
// - day of year and week agree with std::chrono on every real date;
// - any epoch time or Julian date reads back as a valid record or BadYear.

#include <array>
#include <chrono>
#include <stdexcept>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "fuzz/FuzzSupport.hpp"

namespace {

using namespace KvDateTime;
using DTU = DateTimeUtilities;
using foundation::core::except::IException;
using kvfuzz::idOf;

template <typename F>
std::string thrownId(F&& f) {
  try {
    f();
  } catch (const IException& e) {
    return idOf(e.identifier());
  }
  return "";
}

// a - b in seconds, all fields taken as they are (60.x runs into the next
// day), with the days counted by std::chrono's civil calendar: exact for
// whole-second differences.
double civilDifference(const DateTimeStruct& a, const DateTimeStruct& b) {
  using namespace std::chrono;
  const auto days = [](const DateTimeStruct& r) {
    return sys_days(year_month_day{year{static_cast<int>(r.year)},
                                   month{static_cast<unsigned>(r.month)},
                                   day{static_cast<unsigned>(r.day)}})
        .time_since_epoch()
        .count();
  };
  return static_cast<double>(days(a) - days(b)) * 86400.0 +
         ((a.hour - b.hour) * 3600.0 + (a.minute - b.minute) * 60.0) +
         (a.second - b.second);
}

bool isRealDate(const std::array<double, 6>& v) {
  return v[0] >= -30000 && v[0] <= 30000 && v[2] <= 31 && !DTU::validateDate(v);
}

void checkValidators(const std::array<double, 6>& v, TimeStandard ts) {
  const std::string date = idOf(DTU::validateDate(v));
  const std::string time = idOf(DTU::validateTime(v, ts));
  const std::string dateTime = idOf(DTU::validateDateTime(v, ts));
  const std::string restrictive = idOf(DTU::validateDateTimeRestrictive(v, ts));
  const std::string model = idOf(DTU::validateModelDateTime(v));
  const std::string all = date + "/" + time + "/" + dateTime + "/" +
                          restrictive + "/" + model + " " +
                          kvfuzz::describe(v.data(), 6);
  for (const std::string* id : {&date, &time, &dateTime, &restrictive, &model})
    KVFUZZ_CHECK(id->empty() || kvfuzz::oneOf(*id, kvfuzz::kCalendarIds), all);
  // The first rule broken is the date's, then the time's.
  KVFUZZ_CHECK(date.empty() || dateTime == date, all);
  KVFUZZ_CHECK(!date.empty() || time.empty() || dateTime == time, all);
  KVFUZZ_CHECK(dateTime.empty() || restrictive == dateTime, all);
  if (ts == TimeStandard::TAI) KVFUZZ_CHECK(model == restrictive, all);

  // The record's constructor checks date, then time under UTC rules.
  const bool zero = v == std::array<double, 6>{};
  std::string utcTime = idOf(DTU::validateTime(v, TimeStandard::UTC));
  const std::string expected = zero ? "" : !date.empty() ? date : utcTime;
  KVFUZZ_CHECK(thrownId([&] { DateTimeStruct r(v); }) == expected, all);
}

void checkEpochTime(const std::array<double, 6>& v, Epoch epoch,
                    TimeStandard ts) {
  const DateTimeStruct cal = DateTimeStruct::unchecked(v);
  const std::string expected = idOf(DTU::validateDateTime(v, ts));
  const std::string where = expected + " " + kvfuzz::describe(v.data(), 6) +
                            std::to_string(static_cast<int>(epoch)) + "," +
                            std::to_string(static_cast<int>(ts));
  EpochTimeStruct ets;
  std::string id;
  try {
    id = thrownId([&] { ets = DTU::calendarToEpochTime(cal, epoch, ts); });
  } catch (const std::out_of_range&) {
    // The date type's own refusal of a day that 16 bits reduce to 0.
    KVFUZZ_CHECK(static_cast<std::uint16_t>(static_cast<std::int32_t>(
                     v[2] < 0x1p31 ? v[2] : -0x1p31)) == 0,
                 where);
    return;
  }
  KVFUZZ_CHECK(id == expected, where);
  if (!id.empty() || !(v[5] == v[5]) || v[2] > 31) return;

  // Back to the calendar: the same reading, a leap second as the next
  // day's 00:00:0x. TT's 0.184 s shift rounds the fraction by an ulp.
  const DateTimeStruct back = DTU::epochTimeToCalendar(ets, epoch, ts);
  KVFUZZ_CHECK(!DTU::validateDate(back.toArray()), where);
  const double drift = civilDifference(back, cal);
  const bool tt = ts == TimeStandard::TT;
  KVFUZZ_CHECK(tt ? std::fabs(drift) <= 1e-9 : drift == 0.0,
               where + " drift " + std::to_string(drift));
  if (!tt && v[5] < 60.0) KVFUZZ_CHECK(back == cal, where);
}

void checkJulian(const std::array<double, 6>& v, Epoch epoch, TimeStandard ts) {
  const DateTimeStruct cal = DateTimeStruct::unchecked(v);
  const std::string expected = idOf(DTU::validateDateTime(v, ts));
  const std::string where = expected + " " + kvfuzz::describe(v.data(), 6) +
                            std::to_string(static_cast<int>(epoch)) + "," +
                            std::to_string(static_cast<int>(ts));
  double jd = 0;
  KVFUZZ_CHECK(thrownId([&] {
                 jd = DTU::calendarToJulianDate(cal, epoch, ts);
               }) == expected,
               where);
  if (!expected.empty() || !(v[5] == v[5]) || v[2] > 31) return;
  DateTimeStruct back;
  const std::string id =
      thrownId([&] { back = DTU::julianDateToCalendar(jd, epoch, ts); });
  // Only the calendar's first and last instants may round out of range,
  // and the second half of 28 February in a century year that is not a
  // leap year comes back as the 29th (the century correction is taken
  // before the day is floored).
  if (!id.empty()) {
    const bool centuryQuirk = id == "BadDayOfMonth" && v[1] == 2 &&
                              v[2] == 28 && std::fmod(v[0], 100) == 0 &&
                              std::fmod(v[0], 400) != 0;
    KVFUZZ_CHECK(
        centuryQuirk || (id == "BadYear" && (v[0] == 1400 || v[0] == 9999)),
        where);
    return;
  }
  KVFUZZ_CHECK(!DTU::validateDateTime(back.toArray(), ts), where);
  const double drift = civilDifference(back, cal);
  KVFUZZ_CHECK(std::fabs(drift) < 1e-3,
               where + " drift " + std::to_string(drift));
}

void checkDays(const std::array<double, 6>& v) {
  const DateTimeStruct cal = DateTimeStruct::unchecked(v);
  const std::string expected = idOf(DTU::validateDate(v));
  int doy = 0, dow = 0;
  KVFUZZ_CHECK(
      thrownId([&] { doy = DTU::calendarTimeToDayOfYear(cal); }) == expected,
      kvfuzz::describe(v.data(), 6));
  KVFUZZ_CHECK(
      thrownId([&] { dow = DTU::calendarTimeToDayOfWeek(cal); }) == expected,
      kvfuzz::describe(v.data(), 6));
  if (!isRealDate(v)) return;
  using namespace std::chrono;
  const year y{static_cast<int>(v[0])};
  const sys_days d = year_month_day{y, month{static_cast<unsigned>(v[1])},
                                    day{static_cast<unsigned>(v[2])}};
  const sys_days jan1 = year_month_day{y, January, day{1}};
  KVFUZZ_CHECK(doy == (d - jan1).count() + 1, kvfuzz::describe(v.data(), 6));
  KVFUZZ_CHECK(dow == static_cast<int>(weekday(d).c_encoding()) + 1,
               kvfuzz::describe(v.data(), 6));
}

// Any count of seconds reads back as a valid record or BadYear; with a
// fraction in [0, 1) outside TT the record converts back to the same count.
void checkAnyEpochTime(FuzzedDataProvider& in, Epoch epoch, TimeStandard ts) {
  EpochTimeStruct ets{in.ConsumeIntegral<std::int64_t>() >>
                          in.ConsumeIntegralInRange<int>(0, 63),
                      kvfuzz::anyDouble(in)};
  const std::string where = std::to_string(ets.wholePart) + " " +
                            kvfuzz::describe(&ets.fractionalPart, 1);
  DateTimeStruct r;
  const std::string id =
      thrownId([&] { r = DTU::epochTimeToCalendar(ets, epoch, ts); });
  const bool fractionOk = ets.fractionalPart >= 0.0 && ets.fractionalPart < 1.0;
  if (!id.empty()) {
    KVFUZZ_CHECK(id == "BadYear" || (!fractionOk && id == "BadSecondUTC"),
                 where + id);
    return;
  }
  KVFUZZ_CHECK(!DTU::validateDate(r.toArray()), where);
  KVFUZZ_CHECK(!DTU::validateTime(r.toArray(), TimeStandard::UTC), where);
  if (fractionOk && ts != TimeStandard::TT) {
    // The second field holds the fraction beside up to 59 whole seconds:
    // to 2^-47 (a subnormal fraction is lost entirely).
    const EpochTimeStruct again = DTU::calendarToEpochTime(r, epoch, ts);
    KVFUZZ_CHECK(
        again.wholePart == ets.wholePart &&
            std::fabs(again.fractionalPart - ets.fractionalPart) <= 0x1p-47,
        where);
  }
}

void checkAnyJulianDate(double jd, Epoch epoch, TimeStandard ts) {
  DateTimeStruct r;
  const std::string id =
      thrownId([&] { r = DTU::julianDateToCalendar(jd, epoch, ts); });
  const std::string where = kvfuzz::describe(&jd, 1) + id;
  if (!id.empty()) {
    KVFUZZ_CHECK(kvfuzz::oneOf(id, kvfuzz::kCalendarIds), where);
    return;
  }
  KVFUZZ_CHECK(!DTU::validateDateTime(r.toArray(), ts), where);
}

void checkEpochTables(Epoch from, Epoch to, TimeStandard ts) {
  const auto valid = [](Epoch e) {
    return static_cast<std::uint32_t>(e) <= 5u;
  };
  double there = 0, back = 0;
  try {
    there = DTU::getEpochOffset(from, to, ts);
    back = DTU::getEpochOffset(to, from, ts);
    KVFUZZ_CHECK(valid(from) && valid(to) && from != to, "");
    KVFUZZ_CHECK(std::isfinite(there) && there == -back,
                 kvfuzz::describe(&there, 1) + kvfuzz::describe(&back, 1));
  } catch (const std::out_of_range&) {
    KVFUZZ_CHECK(!valid(from) || !valid(to) || from == to, "");
  }
  const double sunday = DTU::secondsSinceSundayMidnight(from, ts);
  KVFUZZ_CHECK(sunday > -86400.0 && sunday < 8 * 86400.0,
               kvfuzz::describe(&sunday, 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  std::array<double, 6> v;
  const bool plausible = in.ConsumeBool();
  for (double& x : v) x = kvfuzz::anyDouble(in);
  if (plausible) kvfuzz::plausibleDate(in, v.data());
  const Epoch epoch = kvfuzz::anyEpoch(in);
  const Epoch other = kvfuzz::anyEpoch(in);
  const TimeStandard ts = kvfuzz::anyStandard(in);

  checkValidators(v, ts);
  checkEpochTime(v, epoch, ts);
  checkJulian(v, epoch, ts);
  checkDays(v);
  checkEpochTables(epoch, other, ts);
  checkAnyJulianDate(
      kvfuzz::anyDouble(in) * in.ConsumeIntegralInRange<int>(1, 3'000'000),
      epoch, ts);
  checkAnyEpochTime(in, epoch, ts);
  return 0;
}
