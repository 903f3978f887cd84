// Built against an installed copy of the library, through the umbrella
// header alone: every public header must have been installed, none may need
// a private one, and every library the inline code calls must be linked.
// Each public class is used once and its result compared with a published
// or otherwise independently known value.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "date_time/KvDateTime.hpp"

using namespace KvDateTime;

namespace {

int failures = 0;

void check(bool ok, const char* what) {
  if (!ok) {
    std::printf("FAILED: %s\n", what);
    ++failures;
  }
}

// The identifier a throwing call raises, or "" when it does not throw.
template <typename F>
std::string thrownId(F f) {
  try {
    f();
  } catch (const foundation::core::except::IException& e) {
    return e.identifier();
  }
  return "";
}

}  // namespace

int main() {
  const FXP::DataType dbl = FXP::DataType::doubleT();
  FXP::MathControl control = FXP::MathControl::createFullPrecisionMathControl();

  // DateTimeStruct and DateTimeUtilities: J2000.0 is JD 2451545.0 (TT), and
  // 2000-01-01 00:00 UTC is Unix time 946684800.
  const DateTimeStruct j2000({2000, 1, 1, 12, 0, 0});
  check(DateTimeUtilities::calendarToJulianDate(j2000, Epoch::EpochJD,
                                                TimeStandard::TT) == 2451545.0,
        "J2000.0 as a Julian date");
  check(DateTimeUtilities::calendarToEpochTime(
            DateTimeStruct({2000, 1, 1, 0, 0, 0}), Epoch::Epoch1970,
            TimeStandard::UTC) == EpochTimeStruct{946684800, 0.0},
        "2000-01-01 in seconds since 1970");
  check(
      DateTimeStruct::unchecked(2024, 3, 5, 7, 8, 12.75).getSubSecond() == 0.75,
      "sub-second of 12.75");
  std::string rejected;
  if (kvsvDiagnostic d = DateTimeUtilities::validateDateTime(
          {2023, 2, 29, 0, 0, 0}, TimeStandard::UTC)) {
    rejected = d->identifier();
  }
  check(rejected == "Korvane:DateTime:BadDayOfMonth", "29 February 2023");

  // DateTime: 2016-12-31 23:59:60.5 UTC is stored as Unix time
  // 1483228799.5 with the leap-second flag; the compact form and the host
  // array carry the double's bytes.
  const DateTime leap(DateTimeStruct({2016, 12, 31, 23, 59, 60.5}),
                      Epoch::Epoch1970, TimeStandard::UTC, dbl);
  check(leap.isLeapSecond && leap.value.toDouble() == 1483228799.5,
        "leap second stored as 23:59:59.5 with the flag");
  check(leap.toDateTimeStruct().second == 60.5, "leap second read back");
  unsigned char compact[8] = {};
  check(leap.toCompact(compact), "toCompact returns the flag");
  DateTime back(Epoch::Epoch1970, TimeStandard::UTC, dbl);
  back.fromCompact(compact, true);
  check(back.value.toDouble() == 1483228799.5 && back.isLeapSecond,
        "compact form round trip");
  const voArrayHandle array = leap.toVoArray();
  double exported = 0;
  std::memcpy(&exported, array->data(), sizeof exported);
  check(array->classID() == voClassID::Double &&
            array->numberOfElements() == 1 && exported == 1483228799.5,
        "toVoArray");

  // DateTimeConverter: the NTP era starts 2208988800 s before Unix time.
  const DateTime unixZero(Epoch::Epoch1970, TimeStandard::UTC, dbl);
  check(DateTimeConverter::forEpochs(Epoch::Epoch1970, Epoch::Epoch1900)
                .convertEpochImpl(unixZero.value, Epoch::Epoch1970,
                                  Epoch::Epoch1900, TimeStandard::UTC, dbl,
                                  control)
                .toDouble() == 2208988800.0,
        "1970 to 1900 converter");

  // Leap seconds: 27 were inserted from 1972 to the end of 2016.
  const LeapSecondTableData table =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, dbl);
  check(table.utcInstants.size() == 27 && table.cumulativeCounts.back() == 27,
        "27 leap seconds in the schedule");
  check(LeapSecondTableDataCreator::juneLeapSecondDate(2015) ==
            DateTimeStruct({2015, 6, 30, 23, 59, 59}),
        "June leap-second date");
  const DateTime start(DateTimeStruct({2017, 1, 1, 0, 0, 0}), Epoch::Epoch1970,
                       TimeStandard::UTC, dbl);
  const LeapSecondTableData pruned =
      LeapSecondUtilities::pruneLeapSecondTableData(table, start);
  check(pruned.baseLeapSecondCount == 27 && pruned.utcInstants.empty(),
        "table pruned to 2017");

  // TimeStandardConverter: TAI - UTC was 36 s in the inserted second; the
  // 1970 count carries 10 s of it in its epoch.
  const DateTime tai = TimeStandardConverter::convertTimeStandard(
      leap, TimeStandard::TAI, table, control);
  check(tai.value.toDouble() == 1483228826.5 && !tai.isLeapSecond,
        "leap second in TAI");
  const TimeStandardConverter::PreparedConversion utcToTai(
      table, TimeStandard::UTC, TimeStandard::TAI, Epoch::Epoch1970,
      leap.value.getDataType());
  std::uint32_t cursor = 0;
  check(utcToTai.convert(leap, control, cursor).value.toDouble() ==
            1483228826.5,
        "prepared conversion");

  // TDB - TT at J2000.0 is about -72 microseconds (the annual term's sine
  // is just below zero then); a JD double resolves about 40 of them.
  const DateTime ttJ2000(j2000, Epoch::EpochJD, TimeStandard::TT, dbl);
  const double tdbMinusTt = (TimeStandardConverter::convertTimeStandard(
                                 ttJ2000, TimeStandard::TDB, table, control)
                                 .value.toDouble() -
                             2451545.0) *
                            86400.0;
  check(tdbMinusTt < 0.0 && tdbMinusTt > -2e-4, "TDB - TT at J2000.0");
  // TT - TAI is 32.184 s, in a day epoch to the 40 microseconds a JD double
  // resolves.
  const TimeStandardConverterTAITTtoTAITT toTai(TimeStandard::TAI);
  const double ttMinusTai =
      (2451545.0 -
       toTai.convertTimeStandard(ttJ2000, table, control).value.toDouble()) *
      86400.0;
  check(std::abs(ttMinusTai - 32.184) < 1e-4, "TT - TAI");

  // DateTimeStructFormatter.
  const std::string text =
      resource_core::toUtf8(DateTimeStructFormatter(j2000, TimeStandard::TT)
                                .getFormattedStr(u"yyyy-MM-dd HH:mm t"));
  check(text == "2000-01-01 12:00 TT", "formatted J2000.0");
  check(resource_core::toUtf8(PreparedFormat(u"yyyy-MM-dd HH:mm t")
                                  .format(j2000, TimeStandard::TT)) == text,
        "prepared pattern");

  // DateTimeParser reads back what the formatter wrote.
  check(DateTimeParser::parse(text, "yyyy-MM-dd HH:mm t", TimeStandard::TT) ==
            j2000,
        "parsed J2000.0");
  check(
      DateTimeParser::parseIso8601("2016-12-31T23:59:60.5Z", TimeStandard::UTC)
              .second == 60.5,
      "ISO 8601 leap second");

  // Batch: the array form of the read-back, and the clock, which steps
  // uniformly through the inserted second (TAI - UTC is 37 s after it).
  const double stored[2] = {0.0, 1483228799.5};
  double rows[12] = {};
  Batch::toCalendar(stored, Epoch::Epoch1970, TimeStandard::UTC, rows);
  check(rows[0] == 1970 && rows[6] == 2016 && rows[11] == 59.5,
        "batch to calendar");
  Clock clock("2016-12-31 23:59:59.5", TimeStandard::UTC, Epoch::Epoch1970,
              "s64:20");
  clock.step(1.0);
  check(clock.isLeapSecond() &&
            clock.format(TimeStandard::UTC) == "2016-12-31 23:59:60.500 UTC",
        "clock in the leap second");
  clock.step(1.0);
  check(clock.format(TimeStandard::TAI) == "2017-01-01 00:00:37.500 TAI",
        "clock after the leap second");

  // LeapSecondListParser: the first two lines of the published list.
  const LeapSecondList list =
      LeapSecondListParser::parse("2272060800 10\n2287785600 11\n");
  check(list.years.size() == 1 && list.years.count(1972) == 1,
        "leap-second list");

  // StorageTypeName and the type system.
  const FXP::DataType s64 = StorageTypeName::parse("S64.20");
  check(StorageTypeName::name(s64) == "s64:20", "storage type name");
  check(KvTypeSys::KvDateTimeDataTypeUtils::storageFxpDtProp2voClassID(
            s64.getProp()) == voClassID::Int64,
        "array class of s64:20");
  check(std::string(DateTimeDefs::storageDataTypeName(
            KvTypeSys::KvDateTimeDataTypeUtils::storageFxpDtProp2DTEnum(
                s64.getProp()))) == "signed fixed point",
        "storage data type name");
  KvTypeSys::DataTypeTable types;
  const std::uint32_t id = types.add(s64.getProp());
  const DateTime ntpZero =
      DateTimeConverter::forEpochs(Epoch::Epoch1970, Epoch::Epoch1900)
          .convertAttributes(unixZero,
                             DateTimeTypeAttribs(Epoch::Epoch1900, id), &types,
                             control);
  check(ntpZero.value.getDataType() == s64 &&
            ntpZero.value.toDouble() == 2208988800.0,
        "converter through the data type table");

  // Diagnostics: thrown identifiers, the catalog's text, the Id list.
  check(thrownId([] {
          DateTimeStruct({2023, 13, 1, 0, 0, 0});
        }) == "Korvane:DateTime:BadMonth",
        "month 13 throws");
  const DateTime fixedJd(j2000, Epoch::EpochJD, TimeStandard::TT, s64);
  check(thrownId([&] {
          TimeStandardConverter::convertTimeStandard(fixedJd, TimeStandard::TDB,
                                                     table, control);
        }) == "Korvane:DateTime:TDBTSOnlySupportDoubleSDT",
        "TDB refuses fixed point");
  check(std::string(Korvane::DateTime::idName(
            Korvane::DateTime::MsgId::BadLeapSecond)) == "BadLeapSecond",
        "message Id list");
  check(resource_core::renderMessage("Korvane:DateTime:BadHour", {}) ==
            "The hour must be a whole number from 0 to 23.",
        "catalog text");

#ifdef EXPECT_CPLUSPLUS_ABOVE
  // A later standard asked for must not be overridden by the package's flags.
  check(__cplusplus > EXPECT_CPLUSPLUS_ABOVE, "consumer's C++ standard kept");
#endif
  std::printf("%s, C++ %ld: %s\n", FOUND_BY, static_cast<long>(__cplusplus),
              failures ? "FAILED" : "ok");
  return failures ? 1 : 0;
}
