#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

// Storage-type description as the host's type system hands it over. It lives
// in the global namespace because the type system and the date-time library
// both name it unqualified; it is a plain record with no invariants of its
// own, and FXP::DataType is where it gets validated.
//
// A value of the described type is  stored * 2^fixedExponent  (times slope,
// plus bias, which this library supports only at their neutral values).
struct fxpDataTypeProp {
  std::int32_t kind;           // 0 fixed point, 2 double
  std::int32_t isSigned;       // 1 signed (two's complement), 0 unsigned
  std::int32_t wordLength;     // bits of the stored integer; 64 for double
  std::int32_t fixedExponent;  // binary-point exponent = -fractionLength
  double slope;                // must be 1.0
  double bias;                 // must be 0.0
};

namespace FXP {

// A validated storage type: either the IEEE double, or a fixed-point type of
// 1 to 128 bits with a fraction length from -128 to 256. The value of a
// fixed-point number is  stored * 2^-fractionLength.
//
// DataType is one 64-bit word with a canonical layout, so that the arithmetic
// fast paths test "same type" with one integer comparison and a copy is one
// move.
//
// Threads: a plain value.
class DataType {
 public:
  static constexpr int kFixedKind = 0;
  static constexpr int kDoubleKind = 2;
  // The host library's own limits, so that a type accepted here is one the
  // host accepts too.
  static constexpr int kMinWordLength = 1;
  static constexpr int kMaxWordLength = 128;
  static constexpr int kMinFractionLength = -128;
  static constexpr int kMaxFractionLength = 256;

  // The double type.
  constexpr DataType() noexcept = default;

  // Throws std::invalid_argument naming the offending field when kind is not
  // 0 or 2, isSigned not 0 or 1, the word length or fraction length is out of
  // range, slope is not 1.0 or bias is not 0.0 (NaN included). The double kind
  // must come as signed, 64 bits, exponent 0, exactly what getProp() returns.
  explicit DataType(const fxpDataTypeProp& prop);

  static constexpr DataType doubleT() noexcept { return DataType(); }
  // Throws std::invalid_argument as the constructor above.
  static constexpr DataType fixedT(bool isSigned, int wordLength,
                                   int fractionLength);

  constexpr int kind() const noexcept { return field(kKindShift); }
  constexpr bool isDouble() const noexcept { return kind() == kDoubleKind; }
  constexpr bool isFixed() const noexcept { return kind() == kFixedKind; }
  constexpr bool isSigned() const noexcept { return field(kSignedShift) != 0; }
  constexpr int wordLength() const noexcept { return field(kWordShift); }
  constexpr int fractionLength() const noexcept {
    return static_cast<std::int16_t>(bits_ >> kFractionShift);
  }
  // Bytes of the compact form: 1, 2, 4, 8 or 16 for fixed point, 8 for double.
  constexpr std::size_t sizeofCompact() const noexcept {
    return field(kCompactShift);
  }

  fxpDataTypeProp getProp() const noexcept;

  friend constexpr bool operator==(DataType a, DataType b) noexcept {
    return a.key() == b.key();
  }

 private:
  // Held as one word: kept as separate narrow fields, a type copied into a
  // fresh value was stored field by field and then loaded whole for the
  // comparison, a load the processor cannot forward from those stores.
  static constexpr int kKindShift = 0;
  static constexpr int kSignedShift = 8;
  static constexpr int kWordShift = 16;
  static constexpr int kCompactShift = 24;
  static constexpr int kFractionShift = 32;  // int16_t; bits 48..63 stay 0

  constexpr DataType(std::uint8_t kind, bool isSigned, int wordLength,
                     int fractionLength) noexcept;
  constexpr int field(int shift) const noexcept {
    return static_cast<int>((bits_ >> shift) & 0xff);
  }
  constexpr std::uint64_t key() const noexcept { return bits_; }

  // Double: kind 2, signed, 64 bits, 8 compact bytes, fraction length 0.
  std::uint64_t bits_ = 0x08400102;
};

static_assert(sizeof(DataType) == 8);

namespace detail {
[[noreturn]] void throwBadTypeField(const char* field, long long value);
}

constexpr DataType DataType::fixedT(bool isSigned, int wordLength,
                                    int fractionLength) {
  if (wordLength < kMinWordLength || wordLength > kMaxWordLength)
    detail::throwBadTypeField("wordLength", wordLength);
  if (fractionLength < kMinFractionLength ||
      fractionLength > kMaxFractionLength)
    detail::throwBadTypeField("fractionLength", fractionLength);
  return DataType(kFixedKind, isSigned, wordLength, fractionLength);
}

constexpr DataType::DataType(std::uint8_t kind, bool isSigned, int wordLength,
                             int fractionLength) noexcept
    : bits_(std::uint64_t{kind} << kKindShift |
            std::uint64_t{isSigned ? 1u : 0u} << kSignedShift |
            static_cast<std::uint64_t>(wordLength & 0xff) << kWordShift |
            std::uint64_t{wordLength <= 8    ? 1u
                          : wordLength <= 16 ? 2u
                          : wordLength <= 32 ? 4u
                          : wordLength <= 64 ? 8u
                                             : 16u}
                << kCompactShift |
            std::uint64_t{static_cast<std::uint16_t>(fractionLength)}
                << kFractionShift) {}

}  // namespace FXP
