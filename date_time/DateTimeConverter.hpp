// Epoch converters: re-express a storage value counted from one epoch as a
// value counted from another, in a requested storage type. One stateless
// class per kind of move between the seconds epochs (1970, 1900, 1958) and
// the day epochs (JD, MJD, J2000); forEpochs picks the right one.
#pragma once

#include <cstdint>

#include "date_time/DateTime.hpp"
#include "date_time/Export.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DataTypeUtils.hpp"
#include "host/typesys/DateTimeEnums.hpp"

namespace KvDateTime {

// The target of a conversion as the host's type system describes it: an
// epoch and the identifier of a data type in its DataTypeTable.
//
// Threads: a plain value.
struct KVDT_EXPORT DateTimeTypeAttribs {
  Epoch targetEpoch;
  std::uint32_t dataTypeId;

  constexpr DateTimeTypeAttribs(Epoch targetEpoch,
                                std::uint32_t dataTypeId) noexcept
      : targetEpoch(targetEpoch), dataTypeId(dataTypeId) {}
};

// Threads: converters have no state, and forEpochs hands out shared const
// instances, so one converter serves every thread; only the MathControl is
// per thread, and a DataTypeTable must not be added to while a conversion
// reads it.
class KVDT_EXPORT DateTimeConverter {
 public:
  virtual ~DateTimeConverter() = default;

  // `value` counted from `from`, counted from `to` in `targetType`, rounded
  // and overflowed as `control` says. A move between the families adds the
  // offset on the day side. Throws std::out_of_range("map::at") for an epoch
  // outside the enumeration, and what the arithmetic throws.
  // Hazard, kept on purpose: the offset and the day length are brought into
  // their types by the control's mode alone, outside the control. One that
  // the type cannot hold (a negative offset in unsigned storage, 86400 in a
  // type with few integer bits) saturates or wraps unheard; the control's
  // logger hears only the add, multiply, divide and convert steps, so a
  // silent logger does not prove the offset arrived whole.
  virtual FXP::DataValue convertEpochImpl(const FXP::DataValue& value,
                                          Epoch from, Epoch to, TimeStandard ts,
                                          const FXP::DataType& targetType,
                                          FXP::MathControl& control) const = 0;

  // `dt` moved to the attributes' epoch and data type; flag and standard are
  // kept. Throws std::out_of_range for an identifier the table lacks and
  // std::invalid_argument for a table entry FXP::DataType refuses.
  DateTime convertAttributes(const DateTime& dt,
                             const DateTimeTypeAttribs& attribs,
                             const KvTypeSys::DataTypeTable* table,
                             FXP::MathControl& control) const;

  // The shared converter for the pair. Never throws for epochs of the
  // enumeration; a value outside it gets the converter of its family by the
  // epoch number, and convertEpochImpl then throws std::out_of_range.
  static const DateTimeConverter& forEpochs(Epoch from, Epoch to) noexcept;
};

#define KVDT_DECLARE_CONVERTER(Name)                                           \
  class KVDT_EXPORT Name final : public DateTimeConverter {                    \
   public:                                                                     \
    FXP::DataValue convertEpochImpl(const FXP::DataValue& value, Epoch from,   \
                                    Epoch to, TimeStandard ts,                 \
                                    const FXP::DataType& targetType,           \
                                    FXP::MathControl& control) const override; \
  };

KVDT_DECLARE_CONVERTER(DateTimeConverterSameEpoch)
KVDT_DECLARE_CONVERTER(DateTimeConverterJD2JD)
KVDT_DECLARE_CONVERTER(DateTimeConverterSec2Sec)
KVDT_DECLARE_CONVERTER(DateTimeConverterJD2Sec)
KVDT_DECLARE_CONVERTER(DateTimeConverterSec2JD)

#undef KVDT_DECLARE_CONVERTER

}  // namespace KvDateTime
