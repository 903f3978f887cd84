// A model's clock from start to leap second: the way a host uses the
// library. The start time arrives as a UTC calendar reading; it is checked,
// stored as an exact fixed-point count, given a leap-second table, stepped
// across the leap second at the end of 2016 and shown in TAI, UTC, TT and
// TDB, first through the convenience clock, then on the host classes
// underneath as a host does it; at the end it is written out as the host
// stores it.
#include <cstdio>
#include <string>

#include "date_time/DateTime.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/KvDateTime.hpp"
#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"

using namespace KvDateTime;

namespace {

std::string render(const DateTime& t) {
  return resource_core::toUtf8(
      DateTimeStructFormatter(t.toDateTimeStruct(), t.timeStandard)
          .getFormattedStr(u"yyyy-MM-dd HH:mm:ss.SSS t"));
}

void showValidation(const DateTimeUtilities::CalendarValues& cal) {
  std::printf("  %04.0f-%02.0f-%02.0f %02.0f:%02.0f:%06.3f UTC  ", cal[0],
              cal[1], cal[2], cal[3], cal[4], cal[5]);
  if (kvsvDiagnostic d = DateTimeUtilities::validateDateTimeRestrictive(
          cal, TimeStandard::UTC)) {
    std::printf("rejected: %s\n      %s\n", d->identifier().c_str(),
                d->message().c_str());
  } else {
    std::printf("valid\n");
  }
}

}  // namespace

int main() {
  // --- 1. The start, validated before anything is built from it.
  // A model start must be a valid UTC reading in 1972 or later; the
  // second 60 exists only where a leap second was inserted.
  const DateTimeUtilities::CalendarValues start = {2016, 12, 31, 23, 59, 59};
  std::printf("1. Validating model start times\n");
  for (const auto& cal :
       {start, DateTimeUtilities::CalendarValues{2016, 12, 30, 23, 59, 60},
        DateTimeUtilities::CalendarValues{2023, 2, 29, 0, 0, 0},
        DateTimeUtilities::CalendarValues{1969, 7, 20, 20, 17, 40}}) {
    showValidation(cal);
  }

  // --- 2. Stored: exact seconds since 1970 in a signed 64-bit count with
  // 20 fraction bits (steps of 2^-20 s, about a microsecond), and beside it
  // the double Julian date since J2000 that the TDB series needs.
  const FXP::DataType fixed = FXP::DataType::fixedT(true, 64, 20);
  const DateTime model(DateTimeStruct(start), Epoch::Epoch1970,
                       TimeStandard::UTC, fixed);
  const DateTime j2000(DateTimeStruct(start), Epoch::EpochJ2000,
                       TimeStandard::UTC, FXP::DataType::doubleT());
  std::printf("\n2. Stored\n");
  std::printf("  seconds since 1970, s64 with 20 fraction bits: %.6f\n",
              model.value.toDouble());
  std::printf("  days since J2000, double:                     %.12f\n",
              j2000.value.toDouble());

  // --- 3. The leap-second table, built once for the model's epoch and
  // storage type and pruned to the start: the lookups that follow begin
  // from the 26 leap seconds already in force and scan one entry.
  const LeapSecondTableData full =
      LeapSecondTableDataCreator::build(Epoch::Epoch1970, fixed);
  const LeapSecondTableData table =
      LeapSecondUtilities::pruneLeapSecondTableData(full, model);
  std::printf("\n3. Leap-second table for seconds since 1970 in s64.20\n");
  std::printf(
      "  built: %zu entries; pruned to the start: %zu left, %d "
      "leap seconds in force before them\n",
      full.utcInstants.size(), table.utcInstants.size(),
      table.baseLeapSecondCount);

  // --- 4. Stepping, with the convenience clock: it checks the start,
  // builds its tables, keeps the running value in TAI (a UTC count stands
  // still for an inserted second, so a clock kept in UTC would jump over
  // 23:59:60) with one cursor, reads TDB through a J2000 double with its
  // own table, and rounds the digits it shows. These are the rows of
  // examples/clock_task.cpp, which does the same in ten lines.
  Clock simple("2016-12-31 23:59:59", TimeStandard::UTC, Epoch::Epoch1970,
               "s64:20");
  std::printf("\n4. Stepping by 0.25 s across the leap second\n");
  std::printf("  %-27s  %-27s  %-27s  %s\n", "UTC", "TAI", "TT",
              "TDB (J2000 double)");
  for (int step = 0; step < 10; ++step) {
    for (TimeStandard ts : {TimeStandard::UTC, TimeStandard::TAI,
                            TimeStandard::TT, TimeStandard::TDB})
      std::printf("  %-27s", simple.format(ts).c_str());
    std::puts(simple.isLeapSecond() ? "  <- leap second" : "");
    if (step < 9) simple.step(0.25);
  }

  // --- 5. Underneath, as a host does it: the same steps on the host
  // classes, from the value and the pruned table of sections 2 and 3, with
  // one cursor and one math control. The formatter cuts the digits the
  // clock rounds (TT's 32.184 s shows as .183 here, a hair below).
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  std::uint32_t cursor = 0;
  DateTime clock = TimeStandardConverter::convertTimeStandard(
      model, TimeStandard::TAI, table, control, &cursor);
  for (int step = 0; step < 9; ++step) {
    if (clock.addWithOverflowCheck(0.25, control)) {
      std::printf("  the clock left its storage range\n");
      return 1;
    }
  }
  const DateTime utc = TimeStandardConverter::convertTimeStandard(
      clock, TimeStandard::UTC, table, control, &cursor);
  const DateTime tt = TimeStandardConverter::convertTimeStandard(
      clock, TimeStandard::TT, table, control, &cursor);
  const DateTime days(
      DvLs{DateTimeConverter::forEpochs(Epoch::Epoch1970, Epoch::EpochJ2000)
               .convertEpochImpl(clock.value, Epoch::Epoch1970,
                                 Epoch::EpochJ2000, TimeStandard::TAI,
                                 FXP::DataType::doubleT(), control),
           false},
      Epoch::EpochJ2000, TimeStandard::TAI);
  const DateTime tdb = TimeStandardConverter::convertTimeStandard(
      days, TimeStandard::TDB,
      LeapSecondTableDataCreator::build(Epoch::EpochJ2000,
                                        FXP::DataType::doubleT()),
      control);
  std::printf("\n5. The same nine steps on the host classes\n");
  std::printf("  %-27s  %-27s  %-27s  %s\n", render(utc).c_str(),
              render(clock).c_str(), render(tt).c_str(), render(tdb).c_str());

  // --- 6. Written out: the compact form is the storage value's bytes
  // (little-endian, two's complement; the standard and epoch travel
  // separately), the export a one-element host array of the matching class.
  unsigned char bytes[8];
  clock.toCompact(bytes);
  std::printf("\n6. The final value, %s\n  compact bytes:",
              render(clock).c_str());
  for (unsigned char b : bytes) std::printf(" %02x", b);
  const voArrayHandle array = clock.toVoArray();
  constexpr const char* kClassNames[] = {"double", "single", "int8",  "uint8",
                                         "int16",  "uint16", "int32", "uint32",
                                         "int64",  "uint64"};
  const auto count = *static_cast<const std::int64_t*>(array->data());
  std::printf(
      "\n  exported array: %llu element of class %s, %lld (that is "
      "%.6f s times 2^20)\n",
      static_cast<unsigned long long>(array->numberOfElements()),
      kClassNames[static_cast<int>(array->classID())],
      static_cast<long long>(count), clock.value.toDouble());

  // --- 7. The clock refuses a start that its storage type cannot keep,
  // where the DateTime constructor rounds it: 23:59:60.5 in whole seconds
  // would round out of the leap second.
  try {
    Clock("2016-12-31 23:59:60.5", TimeStandard::UTC, Epoch::Epoch1970,
          "int64");
  } catch (const foundation::core::except::IException& e) {
    std::printf("\n7. 23:59:60.5 in whole seconds: %s\n      %s\n",
                e.identifier().c_str(), e.message().c_str());
  }
  return 0;
}
