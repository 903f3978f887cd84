// The library's time point: one storage value counted from an epoch, in a
// time standard, held in the storage type the host chose (double or a fixed
// point type of up to 128 bits), with the flag that marks a UTC leap second.
#pragma once

#include <cstddef>

#include "date_time/DateTimeStruct.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/Export.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DateTimeEnums.hpp"
#include "host/voarray/voArray.hpp"

namespace KvDateTime {

// A storage value and its leap-second flag. A UTC count does not advance
// during an inserted second, so 23:59:60.x and the next 00:00:00.x share a
// value; the flag tells them apart. With the flag set, `value` holds the
// instant one second earlier (23:59:59.x).
//
// Threads: a value; see DateTime.
struct KVDT_EXPORT DvLs {
  FXP::DataValue value;
  bool isLeapSecond = false;
};

// Seconds for the epochs 1970, 1900 and 1958; days for JD, MJD and J2000.
// The flag may be set only in UTC, and only on the last second of 30 June
// or 31 December; every other standard keeps it false.
//
// Threads: a value with no shared state. The const members may run on one
// DateTime from many threads at once; add, subtract and fromCompact change
// it and need the caller's exclusion. The MathControl an operation takes is
// written (its logger hears of overflow), so each thread uses its own.
class KVDT_EXPORT DateTime : public DvLs {
 public:
  Epoch epoch;
  TimeStandard timeStandard;

  DateTime(const DvLs& valueAndFlag, Epoch epoch, TimeStandard ts) noexcept
      : DvLs(valueAndFlag), epoch(epoch), timeStandard(ts) {}
  // Value 0 in `type`, flag clear.
  DateTime(Epoch epoch, TimeStandard ts, const FXP::DataType& type);
  // See convertDateTimeStructToDV.
  DateTime(const DateTimeStruct& cal, Epoch epoch, TimeStandard ts,
           const FXP::DataType& type);

  // A UTC second of 60 or more is stored as that second less one, flag set.
  // Second epochs go through calendarToEpochTime and add the whole seconds
  // and the fraction in the storage type, so whole seconds stay exact; day
  // epochs go through calendarToJulianDate and are rounded to nearest.
  // Throws what those throw (the reading's validation diagnostic).
  static DvLs convertDateTimeStructToDV(const DateTimeStruct& cal, Epoch epoch,
                                        TimeStandard ts,
                                        const FXP::DataType& type);
  // The inverse. A set flag outside UTC throws
  // "Korvane:DateTime:BadLeapSecondBoolTimeStandard"; a set flag on a UTC
  // reading that is not 23:59:59.x of 30 June or 31 December throws
  // "Korvane:DateTime:BadLeapSecondBoolTimestamp".
  // Hazard, kept on purpose: a second-epoch count is read through
  // splitStorageValue, whose whole part wraps to 64 bits. An unsigned
  // 64-bit count above 2^63 reads as the date before the epoch that the
  // constructor wrapped into it (1957 since 1970 in uint64 comes back as
  // 1957), and a 128-bit count beyond 2^63 s reads as a date near the
  // epoch rather than failing. The convenience clock (Clock.hpp) refuses
  // such a count.
  static DateTimeStruct convertDVToDateTimeStruct(const DvLs& valueAndFlag,
                                                  Epoch epoch, TimeStandard ts);
  DateTimeStruct toDateTimeStruct() const;

  // A storage value as floor(value) and the non-negative rest, through a
  // signed 128-bit type with 64 fraction bits and floor rounding: -2.25
  // gives {-3, 0.75}. The whole part wraps to 64 bits when it does not fit;
  // the rest is below 1 even when its 64 bits round up as a double.
  static EpochTimeStruct splitStorageValue(const FXP::DataValue& value);

  // The compact form is the storage value's compact bytes, exactly
  // value.getDataType().sizeofCompact() of them; epoch, standard, type and
  // flag are not in it. fromCompact keeps epoch, standard and type, and on
  // bytes that are not canonical for the type throws std::invalid_argument
  // and leaves the object unchanged.
  void fromCompact(const void* bytes, const bool& isLeapSecond);
  // Returns the leap-second flag.
  bool toCompact(void* buffer) const;

  // The compact form as a real host array of the class the type system
  // names for the storage type: one element, or 2 by 1 for a 16-byte
  // compact form. The flag is not exported. Throws what the host throws,
  // leaking nothing.
  voArrayHandle toVoArray() const;

  // Whether the whole seconds of the reading fit the integer bits of
  // `type` (always true for double). The fraction is not looked at.
  static bool isValueInRangeOfType(const DateTimeStruct& cal, Epoch epoch,
                                   TimeStandard ts, FXP::DataType type);

  // Moves the value by `seconds` (days/86400 for day epochs) in its own
  // storage type under `control`. A negative shift is converted as a
  // magnitude and subtracted, so unsigned storage can move backwards.
  // Flag, epoch and standard are unchanged.
  // Hazard, kept on purpose: the shift is brought into the storage type by
  // the control's mode alone, which neither logs nor raises. A shift the
  // type cannot hold saturates or wraps there unheard (2^40 s into int32
  // wraps to 0 under a wrapping mode), and only the sum that follows is
  // reported, so addWithOverflowCheck can return false after such a step.
  // An infinite shift saturates like any other; a NaN one is 0.
  // The convenience clock (Clock.hpp) refuses a shift its type cannot hold.
  // Inline: a model steps its clock with this, and the fixed-point fast path
  // is inline too.
  void add(double seconds, FXP::MathControl& control) {
    const double shift = DateTimeUtilities::secondsToTimeShift(seconds, epoch);
    // Not "shift < 0": NaN takes the minus path, and the magnitude is what
    // gets converted, so unsigned storage can move backwards.
    const bool back = !(shift >= 0);
    const double magnitude = back ? -shift : shift;
    if (!value.tryAddFromDouble(back, magnitude, control.getMathMode()))
      value = addedGeneral(value, back, magnitude, control);
  }
  // A step a clock takes again and again (a model's fixed step), prepared
  // once for a storage type, an epoch and a mode, so that add(step, ...)
  // need not convert the shift or pick the type's arithmetic on every call.
  class Step {
   public:
    Step(const FXP::DataType& type, Epoch epoch, double seconds,
         FXP::MathMode mode) noexcept
        : epoch_(epoch),
          seconds_(seconds),
          shift_(prepared(type, epoch, seconds, mode)) {}
    double seconds() const noexcept { return seconds_; }

   private:
    friend class DateTime;
    // add's own reading of the shift: days for day epochs, and a magnitude
    // subtracted for a negative or NaN shift.
    static FXP::DataValue::PreparedShift prepared(const FXP::DataType& type,
                                                  Epoch epoch, double seconds,
                                                  FXP::MathMode mode) noexcept {
      const double shift =
          DateTimeUtilities::secondsToTimeShift(seconds, epoch);
      const bool back = !(shift >= 0);
      return {type, back, back ? -shift : shift, mode};
    }
    Epoch epoch_;
    double seconds_;
    FXP::DataValue::PreparedShift shift_;
  };
  // add(step.seconds(), control), with the same bits, the same overflow
  // reports and the same hazards. A clock whose epoch, storage type or
  // control mode is not the step's simply takes that call.
  void add(const Step& step, FXP::MathControl& control) {
    if (step.epoch_ != epoch) [[unlikely]]
      return add(step.seconds_, control);
    if (!value.tryAddPrepared(step.shift_, control.getMathMode())) [[unlikely]]
      value = addedGeneral(value, step.shift_.subtracts(),
                           step.shift_.operand(), control);
  }
  // add, reporting whether the result overflowed the storage type. Installs
  // a logger local to the call on `control` and leaves it there: do not use
  // the control's logger afterwards.
  bool addWithOverflowCheck(double seconds, FXP::MathControl& control);
  void subtract(double seconds, FXP::MathControl& control) {
    add(-seconds, control);
  }
  // a - b in a's storage type and a's unit (seconds or days), as a double.
  // Epochs, standards and flags are not compared.
  static double subtract(const DateTime& a, const DateTime& b,
                         FXP::MathControl& control);

 private:
  // add's general path: the conversion and the sum as two calls. It takes
  // the value by copy and not the object: a clock whose address is never
  // taken can stay in registers across the steps of a model's loop.
  static FXP::DataValue addedGeneral(FXP::DataValue value, bool back,
                                     double magnitude,
                                     FXP::MathControl& control);
};

}  // namespace KvDateTime
