// Re-expresses a time point in another time standard, keeping its epoch and
// storage type: leap seconds between UTC and TAI/TT from a
// LeapSecondTableData, 32.184 s between TAI and TT, and the periodic
// TDB - TT term toward TDB. There is no conversion out of TDB: a TDB source
// is taken as UTC.
//
// Failures raise, and leave the cursor at its last stored value:
// - "Korvane:DateTime:TimestampIsNegativeLeapSecond": a UTC input inside a
//   second the table removes (a day without 23:59:59);
// - "Korvane:DateTime:BadLeapSecondBoolTimeStandard": the leap-second flag
//   set on a TAI or TT input;
// - toward TDB, "Korvane:DateTime:TDBTSOnlySupportJulianDayTU" for a value
//   not counted in days and "Korvane:DateTime:TDBTSOnlySupportDoubleSDT" for
//   one not stored as double, each naming the host's mode or type.
#pragma once

#include <cstdint>
#include <vector>

#include "date_time/DateTime.hpp"
#include "date_time/Export.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

// Threads: converters are const and hold only their target, and tables are
// only read, so one converter and one table may serve every thread. The
// lookup cursor and the MathControl are written: one of each per thread.
class KVDT_EXPORT TimeStandardConverter {
 public:
  // The common signature of the static conversions. `cursor` (may be null)
  // is the caller's position in the table: it only moves forward, so a
  // model stepping through non-decreasing times pays one comparison per
  // step, and a later call for an earlier time keeps the later count.
  // holdCursor freezes the count at the cursor's entry. The table is only
  // read; give each thread its own cursor.
  using StaticConverterImpl = DvLs (*)(const DvLs& value,
                                       const LeapSecondTableData& table,
                                       TimeStandard from, TimeStandard to,
                                       Epoch epoch,
                                       FXP::MathControl& mathControl,
                                       std::uint32_t* cursor, bool holdCursor);

  explicit TimeStandardConverter(TimeStandard target) noexcept
      : target(target) {}
  virtual ~TimeStandardConverter();

  virtual DvLs convertDTValue(const DvLs& value,
                              const LeapSecondTableData& table,
                              TimeStandard from, TimeStandard to, Epoch epoch,
                              FXP::MathControl& mathControl) const = 0;

  // dt in this converter's target standard, same epoch and storage type.
  DateTime convertTimeStandard(const DateTime& dt,
                               const LeapSecondTableData& table,
                               FXP::MathControl& mathControl) const;
  // dt in `to`, through the function getStaticConverterImpl picks.
  static DateTime convertTimeStandard(const DateTime& dt, TimeStandard to,
                                      const LeapSecondTableData& table,
                                      FXP::MathControl& mathControl,
                                      std::uint32_t* cursor = nullptr,
                                      bool holdCursor = false);
  // A conversion a model makes on every step of its clock (UTC read in TAI
  // or TT through a cursor), prepared once for a table, a pair of
  // standards, an epoch and a storage type. Each entry of the table gets
  // its shift already in the storage type, bounded by the entry's instant,
  // so that the common step (the value short of the cursor's next instant,
  // or past the table's last) is one bounded in-place add, inline, with no
  // call, no dispatch on the standards and no scan of the table.
  // Everything else takes convertTimeStandard itself: a value at or past
  // the instant at the cursor (the long way moves the cursor), a cursor
  // beyond the table, a value at the type's top, a set flag, a time point
  // whose epoch, standard or storage type is not the prepared one, a sum
  // the in-place add refuses, and every error. So do, on every
  // step, other pairs of standards (only UTC, or TDB taken as UTC, to TAI
  // or TT is prepared), tables that remove a second, tables whose instants
  // tie (an unsigned type saturates those before its epoch to 0) and
  // tables whose instants are not in the prepared type.
  //
  // Threads: once built, only read; one may serve every thread, each with
  // its own cursor and MathControl, as convertTimeStandard does.
  // Hazard: it keeps the address of `table` and the shifts worked out from
  // it. The table must outlive it and must not change while it is used: a
  // table changed after construction is read by the long way only, and the
  // common step would still add the old shifts.
  class KVDT_EXPORT PreparedConversion {
   public:
    PreparedConversion(const LeapSecondTableData& table, TimeStandard from,
                       TimeStandard to, Epoch epoch, const FXP::DataType& type);

    // convertTimeStandard(dt, to, table, mathControl, &cursor): the same
    // bits, flag, cursor and errors, for any dt.
    DateTime convert(const DateTime& dt, FXP::MathControl& mathControl,
                     std::uint32_t& cursor) const {
      // One object returned either way, built in the caller's place.
      DateTime r(DvLs{dt.value, false}, dt.epoch, to_);
      // The conversion's own mode for its shift, whatever the control's.
      if (cursor < entries_ && dt.epoch == epoch_ && dt.timeStandard == from_ &&
          !dt.isLeapSecond &&
          r.value.tryAddBounded(shifts_[cursor], FXP::MathMode())) [[likely]]
        return r;
      r = convertLongWay(dt, mathControl, cursor);
      return r;
    }

   private:
    // convertTimeStandard, out of line and on a copy of dt: a clock whose
    // address is never taken can stay in registers across a model's steps.
    DateTime convertLongWay(DateTime dt, FXP::MathControl& mathControl,
                            std::uint32_t& cursor) const;

    const LeapSecondTableData* table_;
    Epoch epoch_;
    TimeStandard from_;
    TimeStandard to_;
    // Cursor positions below this take the inline step (0: none does).
    std::uint32_t entries_ = 0;
    // At cursor position i: the shift of the count before entry i, bounded
    // by entry i's instant; past the last entry, by the type's top (only a
    // value there goes the long way, which gives the same).
    std::vector<FXP::DataValue::PreparedShift> shifts_;
  };

  // By (from, to): TAI/TT -> UTC, TAI/TT -> TAI/TT, TAI/TT -> TDB, then,
  // for any other source (UTC, or TDB taken as UTC), -> UTC, -> TAI/TT and
  // -> TDB.
  static StaticConverterImpl getStaticConverterImpl(TimeStandard from,
                                                    TimeStandard to) noexcept;

  // UTC (value 23:59:59.x with the flag set inside an inserted second) to
  // TAI or TT. Second epochs give TAI and TT the same result: their counts
  // carry no 32.184 s. A set flag adds one second whatever the table holds
  // for that day: the flag is not checked against the table (nor is it by
  // the read-back, which judges the calendar position only), so on a day
  // without an inserted second it lands on the next day's 00:00:00.x.
  // Deliberately trusted as given: only the table knows the inserted
  // seconds, and the converters do not second-guess their input's flag.
  static DvLs convertUTCtoTAITTImpl(const DvLs& value,
                                    const LeapSecondTableData& table,
                                    TimeStandard from, TimeStandard to,
                                    Epoch epoch, FXP::MathControl& mathControl,
                                    std::uint32_t* cursor, bool holdCursor);
  // 32.184 s between TAI and TT in day epochs; unchanged in second epochs.
  static DvLs convertTAITTtoTAITTImpl(const DvLs& value,
                                      const LeapSecondTableData& table,
                                      TimeStandard from, TimeStandard to,
                                      Epoch epoch,
                                      FXP::MathControl& mathControl,
                                      std::uint32_t* cursor, bool holdCursor);
  // TAI instants inside an inserted second come back as 23:59:59.x with the
  // flag set.
  static DvLs convertTAITTtoUTCImpl(const DvLs& value,
                                    const LeapSecondTableData& table,
                                    TimeStandard from, TimeStandard to,
                                    Epoch epoch, FXP::MathControl& mathControl,
                                    std::uint32_t* cursor, bool holdCursor);
  // Only checks that the value is not inside a removed second.
  static DvLs convertUTCtoUTCImpl(const DvLs& value,
                                  const LeapSecondTableData& table,
                                  TimeStandard from, TimeStandard to,
                                  Epoch epoch, FXP::MathControl& mathControl,
                                  std::uint32_t* cursor, bool holdCursor);
  // TAI or TT to TDB: TT plus the periodic TDB - TT term (within about
  // 10 us of the full model over 1600-2200). Only for day epochs and double
  // storage.
  static DvLs convertTAITTtoTDBImpl(const DvLs& value,
                                    const LeapSecondTableData& table,
                                    TimeStandard from, TimeStandard to,
                                    Epoch epoch, FXP::MathControl& mathControl,
                                    std::uint32_t* cursor, bool holdCursor);
  // UTC to TT with the cursor, then TT to TDB.
  static DvLs convertUTCtoTDBImpl(const DvLs& value,
                                  const LeapSecondTableData& table,
                                  TimeStandard from, TimeStandard to,
                                  Epoch epoch, FXP::MathControl& mathControl,
                                  std::uint32_t* cursor, bool holdCursor);

  // The leap-second total in force at `value` on the side whose instants
  // are given (utcInstants or taiInstants): an entry is passed once value
  // reaches its instant + 1 s. When `leapSecond` is non-null and true on
  // entry it receives whether value lies inside the inserted second of the
  // last passed entry (instant + 1 s <= value < instant + 2 s). A cursor
  // beyond the end of `instants` is taken as its end.
  static std::int32_t findLeapSecondCount(
      const FXP::DataValue& value, std::int32_t baseCount,
      const std::vector<FXP::DataValue>& instants,
      const std::vector<std::int32_t>& counts, bool* leapSecond, bool julian,
      FXP::MathControl& mathControl, std::uint32_t* cursor, bool holdCursor);

  TimeStandard target;
};

namespace detail {

// A concrete converter is one static conversion, without a cursor.
template <TimeStandardConverter::StaticConverterImpl Impl>
class FixedTimeStandardConverter : public TimeStandardConverter {
 public:
  using TimeStandardConverter::TimeStandardConverter;
  DvLs convertDTValue(const DvLs& value, const LeapSecondTableData& table,
                      TimeStandard from, TimeStandard to, Epoch epoch,
                      FXP::MathControl& mathControl) const final {
    return Impl(value, table, from, to, epoch, mathControl, nullptr, false);
  }
};

}  // namespace detail

class TimeStandardConverterUTCtoTAITT final
    : public detail::FixedTimeStandardConverter<
          &TimeStandardConverter::convertUTCtoTAITTImpl> {
  using FixedTimeStandardConverter::FixedTimeStandardConverter;
};
class TimeStandardConverterTAITTtoTAITT final
    : public detail::FixedTimeStandardConverter<
          &TimeStandardConverter::convertTAITTtoTAITTImpl> {
  using FixedTimeStandardConverter::FixedTimeStandardConverter;
};
class TimeStandardConverterTAITTtoUTC final
    : public detail::FixedTimeStandardConverter<
          &TimeStandardConverter::convertTAITTtoUTCImpl> {
  using FixedTimeStandardConverter::FixedTimeStandardConverter;
};
class TimeStandardConverterTAITTtoTDB final
    : public detail::FixedTimeStandardConverter<
          &TimeStandardConverter::convertTAITTtoTDBImpl> {
  using FixedTimeStandardConverter::FixedTimeStandardConverter;
};
class TimeStandardConverterUTCtoTDB final
    : public detail::FixedTimeStandardConverter<
          &TimeStandardConverter::convertUTCtoTDBImpl> {
  using FixedTimeStandardConverter::FixedTimeStandardConverter;
};

}  // namespace KvDateTime
