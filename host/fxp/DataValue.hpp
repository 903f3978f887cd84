#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "host/fxp/DataType.hpp"
#include "host/fxp/MathControl.hpp"

namespace FXP {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

// A number of a DataType: a fixed-point stored integer of up to 128 bits, or
// a finite double. 24 bytes, trivially copyable, never touches the heap.
//
// Arithmetic contract (add, minus, multiplyBy, divideBy, convert, fromDouble):
// - The exact mathematical result of the operands is formed (a double operand
//   counts as its exact binary value) and rounded once into the result type.
// - Fixed-point result: rounded by the mode's rounding code, then the mode's
//   overflow code decides what happens to a value outside the type: saturate
//   to its minimum or maximum, or wrap (keep the low wordLength bits of the
//   rounded stored integer, two's complement).
// - Double result: the nearest double, ties to even, whatever the rounding
//   code. A result beyond the largest finite double saturates to +-DBL_MAX
//   under either overflow code: values never hold an infinity or NaN.
// - Every result outside its type's range (saturated, or wrapped to another
//   value) is reported to the control's logger when one is installed.
//   Precision lost to rounding is not an overflow.
// - An exact zero result is +0.0 in the double type.
//
// fromDouble has no control and so no logger: NaN gives 0, +-infinity the
// type's maximum / minimum (+-DBL_MAX for the double type), other values are
// rounded and overflowed as above. A finite double into the double type is
// kept bit for bit, -0.0 included.
//
// The inline fast paths (same-type add/minus, double conversions) rely on the
// default floating-point environment (round to nearest); the rest of the
// arithmetic is integer-only and sits out of line.
namespace detail {
struct Exact;  // an exact intermediate result, defined with the arithmetic
}  // namespace detail

// Threads: a value with no shared state; const operations on one value may
// run on many threads at once. Arithmetic writes only to the caller's
// MathControl, which is per thread.
class DataValue {
 public:
  // +0.0 in the double type.
  constexpr DataValue() noexcept = default;

  static DataValue fromDouble(const DataType& type, double value,
                              MathMode mode);
  // Signed 64-bit type, fraction length 0.
  static DataValue fromInt64(std::int64_t value) noexcept;
  // value into `type`, rounded and overflowed by the mode as fromDouble
  // would, but exact for every int64_t (a double is not beyond 2^53). No
  // logger hears of an overflow.
  static DataValue fromInt64(const DataType& type, std::int64_t value,
                             MathMode mode);
  // Reads type.sizeofCompact() bytes. Throws std::invalid_argument when bytes
  // is null or not the canonical encoding for the type: upper bits that are
  // not the sign (or zero) extension of the word, or a NaN or infinite double.
  static DataValue fromCompact(const DataType& type, const void* bytes);

  // Nearest double, ties to even.
  double toDouble() const noexcept;
  // Writes exactly sizeofCompact() bytes: the stored integer in little-endian
  // two's complement, sign- or zero-extended; a double as its IEEE bytes.
  // Throws std::invalid_argument and writes nothing when buffer is null or
  // size is smaller than sizeofCompact().
  void toCompact(void* buffer, std::size_t size) const;

  DataValue add(const DataType& resultType, const DataValue& other,
                MathControl& control) const;
  DataValue minus(const DataType& resultType, const DataValue& other,
                  MathControl& control) const;
  DataValue multiplyBy(const DataType& resultType, const DataValue& other,
                       MathControl& control) const;
  // Throws std::domain_error when other is zero.
  DataValue divideBy(const DataType& resultType, const DataValue& other,
                     MathControl& control) const;
  DataValue convert(const DataType& resultType, MathControl& control) const;

  // The inline fast path of stepping a value in its own type T: *this
  // becomes  add(T, fromDouble(T, operand, mode), control)  or, with
  // subtract,  minus(T, fromDouble(T, operand, mode), control),  for any
  // control, when both calls would stay on their inline fast paths (the
  // conversion in range, the exact result representable in T). Only the
  // stored bits are written, never the type, so a running value can be
  // stepped without reloading a type just stored. Returns false and leaves
  // *this unchanged otherwise; the caller then makes the two calls, which
  // round, saturate or wrap, and log.
  bool tryAddFromDouble(bool subtract, double operand, MathMode mode) noexcept;

  // The operand of tryAddFromDouble brought into a type once, for a value
  // stepped by the same amount many times (a model's clock): the conversion,
  // its rounding and the choice of sum for the type's word are made here,
  // so that each step is one integer or double sum and a range test.
  class PreparedShift {
   public:
    PreparedShift(const DataType& type, bool subtract, double operand,
                  MathMode mode) noexcept;
    // The same shift for values below `bound` only: tryAddPrepared also
    // returns false, leaving the value unchanged, for a value at or above
    // it (a lookup whose result holds up to the next entry of a table).
    // In a word of up to 127 bits the bound joins the range test the sum
    // makes anyway, so the test costs nothing per step. A bound of another
    // type is compared across types on every call.
    PreparedShift(const DataType& type, bool subtract, double operand,
                  MathMode mode, const DataValue& bound) noexcept;
    const DataType& type() const noexcept { return type_; }
    MathMode mode() const noexcept { return mode_; }
    bool subtracts() const noexcept { return subtract_; }
    double operand() const noexcept { return operand_; }

   private:
    friend class DataValue;
    // The constructors' work: the kind and operand of the shift, then the
    // bound folded into them.
    void prepare() noexcept;
    void bind(const DataValue& bound) noexcept;
    // kNone: the operand leaves tryAddFromDouble's fast path whatever the
    // value (it saturates, wraps or is not finite). kWord64: kNarrow's sum
    // in int64_t, for words of up to 64 bits signed or 63 unsigned whose
    // signed operand fits int64_t; int64_t's own overflow lies outside every
    // such word, so it only adds a way to fail. kNarrow: a word of at
    // most 127 bits signed or 126 unsigned, where value and signed operand
    // sum in Int128 without overflow and one range test decides. kSigned128:
    // the full signed word, where Int128's own overflow is the range test.
    // kFull: a 127- or 128-bit unsigned word, stepped the long way.
    // The bounded kinds follow: kDoubleBelow and kSigned128Below test the
    // bound beside the sum; kWord64 and kNarrow fold it into max_; any other
    // bounded shift is kFull with the bound compared the long way.
    // kInt64 is kWord64 for the full signed 64-bit word, unbounded, where
    // int64_t's own overflow is the whole range test.
    // One bit each: a step tests its kind with one bit test per kind tried,
    // which the compiler keeps as a chain in the order written rather than
    // turning equality tests into a jump table.
    enum class Kind : std::uint16_t {
      kNone = 1,
      kDouble = 2,
      kWord64 = 4,
      kNarrow = 8,
      kSigned128 = 16,
      kFull = 32,
      kDoubleBelow = 64,
      kSigned128Below = 128,
      kInt64 = 256
    };
    static constexpr bool is(Kind a, Kind b) noexcept {
      return (static_cast<unsigned>(a) & static_cast<unsigned>(b)) != 0;
    }
    // The mode as one 16-bit word, so that one comparison tests it.
    static std::uint16_t modeKey(MathMode m) noexcept {
      static_assert(sizeof(MathMode) == 2);
      return std::bit_cast<std::uint16_t>(m);
    }
    // Laid out in 96 bytes, so that a table of shifts is indexed with one
    // scaled add.
    DataType type_;
    MathMode mode_;
    Kind kind_ = Kind::kNone;
    bool subtract_;
    // A bounded shift's bound: whether there is one, its type and (below)
    // its stored bits (a double's bit pattern), kept whole for the calls
    // that compare it the long way.
    bool bounded_ = false;
    double operand_;
    DataType boundType_;
    // kDouble: the operand, negated for a subtraction (x - y and x + (-y)
    // round alike). kNarrow: the stored operand, likewise negated, and the
    // word's range.
    Int128 signedOperand_ = 0;
    Int128 min_ = 0;
    Int128 max_ = 0;
    std::uint64_t boundLo_ = 0;
    std::uint64_t boundHi_ = 0;
  };
  // tryAddFromDouble(p.subtracts(), p.operand(), mode), bit for bit and
  // with the same return. When the value's type or the mode is not the one
  // `p` was prepared for, it is exactly that call. A bounded `p` first
  // refuses a value that is not below its bound (*this < bound, the
  // comparison below).
  bool tryAddPrepared(const PreparedShift& p, MathMode mode) noexcept;
  // tryAddPrepared, bit for bit and with the same return, trying the
  // bounded kinds first: for the bounded shifts of a table's lookup, where
  // the unbounded kinds a clock's own step takes would be tried in vain.
  bool tryAddBounded(const PreparedShift& p, MathMode mode) noexcept;

  const DataType& getDataType() const noexcept { return type_; }
  fxpDataTypeProp getDataTypeProp() const noexcept { return type_.getProp(); }
  // The stored integer as 32-bit words, low word first, extended to 128 bits
  // (sign extension for signed types). Throws std::domain_error for a double,
  // which has no stored integer.
  std::array<std::uint32_t, 4> getFatVal() const;
  // The value of a fixed-point `type` whose stored integer is `stored`, for
  // callers that hold raw stored integers (arrays of them, user input).
  // Throws std::overflow_error when the integer is outside the type's word,
  // std::domain_error for the double type.
  static DataValue fromStoredSigned(const DataType& type, Int128 stored);
  static DataValue fromStoredUnsigned(const DataType& type, UInt128 stored);
  // The value as decimal text: a fixed-point value exactly (stored * 2^-F
  // has a finite decimal expansion for every fraction length), "-" before a
  // negative one, no trailing fractional zeros; a double by the shortest
  // digits that read back to it. Allocates: for display, not hot paths.
  std::string toDecimalString() const;

  // Compare exact values, across types: 1.0 as a double equals 1 in any
  // fixed-point type that holds it, so the ordering is weak.
  friend bool operator==(const DataValue& a, const DataValue& b) noexcept;
  friend std::weak_ordering operator<=>(const DataValue& a,
                                        const DataValue& b) noexcept;

 private:
  enum class Op : std::uint8_t { kAdd, kMinus, kMultiply, kDivide };

  constexpr DataValue(DataType type, std::uint64_t lo,
                      std::uint64_t hi) noexcept
      : type_(type), lo_(lo), hi_(hi) {}
  static DataValue ofDouble(double d) noexcept {
    return DataValue(DataType::doubleT(), std::bit_cast<std::uint64_t>(d), 0);
  }
  static DataValue ofSigned64(DataType t, std::int64_t v) noexcept {
    return DataValue(t, static_cast<std::uint64_t>(v),
                     static_cast<std::uint64_t>(v >> 63));
  }
  static DataValue ofInt128(DataType t, Int128 v) noexcept {
    return DataValue(t, static_cast<std::uint64_t>(v),
                     static_cast<std::uint64_t>(static_cast<UInt128>(v) >> 64));
  }
  double asDouble() const noexcept { return std::bit_cast<double>(lo_); }
  Int128 asInt128() const noexcept {
    return static_cast<Int128>((static_cast<UInt128>(hi_) << 64) | lo_);
  }

  // The inline fast path of add and minus: both operands and the result of
  // one type, and the exact sum representable in it. False sends the caller
  // to the general path (which then rounds, saturates or wraps, and logs).
  bool sameTypeSum(bool subtract, const DataType& resultType,
                   const DataValue& other, DataValue& out) const noexcept;
  // The fixed-point core of both fast paths: this value's stored integer
  // plus or minus (otherLo, otherHi), in `type`, exact or false.
  bool fixedSum(bool subtract, DataType type, std::uint64_t otherLo,
                std::uint64_t otherHi, std::uint64_t& lo,
                std::uint64_t& hi) const noexcept;

  // Out-of-line general paths: exact wide arithmetic, overflow handling.
  static DataValue roundInto(const detail::Exact& exact,
                             const DataType& resultType, MathControl& control);
  static DataValue fromDoubleSlow(const DataType& type, double value,
                                  MathMode mode);
  static DataValue fromInt64Slow(const DataType& type, std::int64_t value,
                                 MathMode mode);
  double toDoubleWide() const noexcept;
  DataValue arithmetic(Op op, const DataType& resultType,
                       const DataValue& other, MathControl& control) const;
  static std::weak_ordering compareSlow(const DataValue& a,
                                        const DataValue& b) noexcept;
  // tryAddPrepared and tryAddBounded: the same kinds, tried in another
  // order.
  template <bool BoundedFirst>
  bool tryAddPreparedIn(const PreparedShift& p, MathMode mode) noexcept;

  DataType type_;
  // The stored integer, extended to 128 bits by the type's signedness; for a
  // double, its bit pattern in lo_ and zero in hi_.
  std::uint64_t lo_ = 0;
  std::uint64_t hi_ = 0;
};

namespace detail {

// 2^e for e in [-1022, 1023], built directly so no libm call or rounding
// enters the hot paths.
inline double pow2(int e) noexcept {
  return std::bit_cast<double>(static_cast<std::uint64_t>(e + 1023) << 52);
}

inline bool fitsSigned(std::int64_t v, int bits) noexcept {
  // [1, 64]: the bits above the sign bit must all equal it.
  return static_cast<std::uint64_t>((v >> (bits - 1)) + 1) <= 1;
}
inline bool fitsUnsigned(std::uint64_t v, int bits) noexcept {
  return ((v >> (bits - 1)) >> 1) == 0;  // bits in [1, 64]
}
// [1, 128], tested per 64-bit half: a variable shift of a 128-bit integer
// costs a dozen instructions on every fixed-point step of a wide type.
inline bool fitsSigned128(Int128 v, int bits) noexcept {
  const auto lo = static_cast<std::int64_t>(v);
  const auto hi = static_cast<std::int64_t>(v >> 64);
  if (bits > 64) return fitsSigned(hi, bits - 64);
  return hi == (lo >> 63) && fitsSigned(lo, bits);
}
inline bool fitsUnsigned128(UInt128 v, int bits) noexcept {
  const auto lo = static_cast<std::uint64_t>(v);
  const auto hi = static_cast<std::uint64_t>(v >> 64);
  if (bits > 64) return fitsUnsigned(hi, bits - 64);
  return hi == 0 && fitsUnsigned(lo, bits);
}

// Rounds s, |s| < 2^62, to an integer by the rounding code. The truncation
// and the remainder s - t are both exact for such s, so the ties are seen
// exactly; pinned by DataValueRounding.EveryCodeAtAndBesideTies.
inline std::int64_t roundScaled(double s, int rounding) noexcept {
  const std::int64_t t = static_cast<std::int64_t>(s);
  const double f = s - static_cast<double>(t);  // (-1, 1), same sign as s
  switch (rounding) {
    case MathMode::kTowardZero:
      return t;
    case MathMode::kNearestTiesUp:
      return t + (f >= 0.5) - (f < -0.5);
    case MathMode::kCeiling:
      return t + (f > 0);
    case MathMode::kFloor:
      return t - (f < 0);
    case MathMode::kNearestTiesEven: {
      const bool odd = (t & 1) != 0;
      return t + (f > 0.5 || (f == 0.5 && odd)) -
             (f < -0.5 || (f == -0.5 && odd));
    }
    default:  // kNearestTiesAway
      return t + (f >= 0.5) - (f <= -0.5);
  }
}

// The fixed-point fast path of fromDouble: the stored integer of `value` in
// `type` when it is in range without saturating or wrapping, else false.
// Scaling by a power of two is exact while the product stays normal, and
// below 2^62 the rounded integer cannot leave int64_t.
inline bool scaledToStored(const DataType& type, double value, MathMode mode,
                           std::int64_t& stored) noexcept {
  const double s = value * pow2(type.fractionLength());
  const double a = std::fabs(s);  // one mask; -0.0 and NaN fare as before
  // 2^-1000 keeps s well clear of the subnormals (below 2^-1022), where the
  // scaling would no longer be exact.
  if (!(a < 0x1p62 && (a >= 0x1p-1000 || value == 0))) return false;
  const std::int64_t r = roundScaled(s, mode.roundingCode());
  const int w = type.wordLength();
  if (type.isSigned()) {
    if (w < 64 && !fitsSigned(r, w)) return false;
  } else if (r < 0 ||
             (w < 64 && !fitsUnsigned(static_cast<std::uint64_t>(r), w))) {
    return false;
  }
  stored = r;
  return true;
}

// The wide counterpart for a scaled value s = value * 2^F with |s| in
// [2^62, 2^127): a double that large is an integer, so s is the stored
// integer itself and no rounding code applies (one second in a type with 64
// fraction bits lands here). Its bits are shifted into place directly rather
// than through the runtime's conversion call. False when |s| is outside that
// range (NaN included) or the integer does not fit the word.
inline bool largeScaledToStored(const DataType& type, double s,
                                Int128& stored) noexcept {
  const auto bits = std::bit_cast<std::uint64_t>(s);
  // Biased exponents 1085 to 1149 are the magnitudes [2^62, 2^127); an
  // infinity or NaN (2047) falls outside.
  const int exponent = static_cast<int>((bits >> 52) & 0x7ff);
  if (static_cast<unsigned>(exponent - 1085) >= 65u) return false;
  const int shift = exponent - 1075;  // [10, 74]
  const UInt128 mag =
      static_cast<UInt128>((bits & 0xfffffffffffffULL) | (1ULL << 52)) << shift;
  const auto wide = static_cast<Int128>((bits >> 63) ? -mag : mag);
  const int w = type.wordLength();
  if (type.isSigned()
          ? !fitsSigned128(wide, w)
          : !(wide > 0 && fitsUnsigned128(static_cast<UInt128>(wide), w)))
    return false;
  stored = wide;
  return true;
}

}  // namespace detail

static_assert(sizeof(DataValue::PreparedShift) == 96);

inline DataValue DataValue::fromInt64(std::int64_t value) noexcept {
  return ofSigned64(DataType::fixedT(true, 64, 0), value);
}

inline DataValue DataValue::fromInt64(const DataType& type, std::int64_t value,
                                      MathMode mode) {
  // A shift by a non-negative fraction length is exact when shifting back
  // returns the value; the word then either holds it or the general path
  // overflows it. Nothing is rounded, so the mode does not enter here.
  const int f = type.fractionLength();
  const int w = type.wordLength();
  if (type.isFixed() && f >= 0 && f < 64 && w <= 64) {
    const std::uint64_t u = static_cast<std::uint64_t>(value) << f;
    const auto s = static_cast<std::int64_t>(u);
    if ((s >> f) == value) {
      if (type.isSigned()) {
        if (detail::fitsSigned(s, w)) return ofSigned64(type, s);
      } else if (s >= 0 && detail::fitsUnsigned(u, w)) {
        return DataValue(type, u, 0);
      }
    }
  }
  return fromInt64Slow(type, value, mode);
}

inline DataValue DataValue::fromDouble(const DataType& type, double value,
                                       MathMode mode) {
  if (type.isFixed()) {
    std::int64_t r;
    if (detail::scaledToStored(type, value, mode, r))
      return type.isSigned()
                 ? ofSigned64(type, r)
                 : DataValue(type, static_cast<std::uint64_t>(r), 0);
    Int128 wide;
    if (detail::largeScaledToStored(
            type, value * detail::pow2(type.fractionLength()), wide))
      return ofInt128(type, wide);
  } else if (value - value == 0) {  // finite
    return ofDouble(value);
  }
  return fromDoubleSlow(type, value, mode);
}

inline double DataValue::toDouble() const noexcept {
  if (type_.isDouble()) return asDouble();
  // The integer converts correctly rounded; the scaling by 2^-F is exact as
  // every result lies within [2^-256, 2^256].
  const double scale = detail::pow2(-type_.fractionLength());
  if (type_.isSigned()) {
    const auto v = static_cast<std::int64_t>(lo_);
    if (hi_ == static_cast<std::uint64_t>(v >> 63))
      return static_cast<double>(v) * scale;
  } else if (hi_ == 0) {
    return static_cast<double>(lo_) * scale;
  }
  return toDoubleWide();
}

// Same-type sums and differences are exact before the range check, so the
// rounding code never matters here; anything else, or an overflow, takes the
// general path.
inline bool DataValue::sameTypeSum(bool subtract, const DataType& resultType,
                                   const DataValue& other,
                                   DataValue& out) const noexcept {
  if (!(type_ == resultType && other.type_ == resultType)) return false;
  if (resultType.isDouble()) {
    const double s = subtract ? asDouble() - other.asDouble()
                              : asDouble() + other.asDouble();
    if (!(s - s == 0)) return false;  // beyond DBL_MAX: saturate and log
    // (-0.0) + (-0.0) and (-0.0) - (+0.0) are -0.0 in IEEE arithmetic; adding
    // +0.0 turns an exact zero into +0.0 and leaves every other value alone.
    out = ofDouble(s + 0.0);
    return true;
  }
  std::uint64_t lo, hi;
  if (!fixedSum(subtract, resultType, other.lo_, other.hi_, lo, hi))
    return false;
  out = DataValue(resultType, lo, hi);
  return true;
}

inline bool DataValue::fixedSum(bool subtract, DataType type,
                                std::uint64_t otherLo, std::uint64_t otherHi,
                                std::uint64_t& lo,
                                std::uint64_t& hi) const noexcept {
  const int w = type.wordLength();
  // Each builtin reports the overflow of its own width; fits* then checks
  // the word length, which may be narrower.
  const auto sum = [subtract](auto a, auto b, auto& r) {
    return subtract ? __builtin_sub_overflow(a, b, &r)
                    : __builtin_add_overflow(a, b, &r);
  };
  if (w <= 64) {
    if (type.isSigned()) {
      std::int64_t r;
      if (sum(static_cast<std::int64_t>(lo_),
              static_cast<std::int64_t>(otherLo), r) ||
          !detail::fitsSigned(r, w))
        return false;
      lo = static_cast<std::uint64_t>(r);
      hi = static_cast<std::uint64_t>(r >> 63);
    } else {
      std::uint64_t r;
      if (sum(lo_, otherLo, r) || !detail::fitsUnsigned(r, w)) return false;
      lo = r;
      hi = 0;
    }
    return true;
  }
  const UInt128 other = (static_cast<UInt128>(otherHi) << 64) | otherLo;
  UInt128 r;
  if (type.isSigned()) {
    Int128 sr;
    if (sum(asInt128(), static_cast<Int128>(other), sr) ||
        !detail::fitsSigned128(sr, w))
      return false;
    r = static_cast<UInt128>(sr);
  } else if (sum(static_cast<UInt128>(asInt128()), other, r) ||
             !detail::fitsUnsigned128(r, w)) {
    return false;
  }
  lo = static_cast<std::uint64_t>(r);
  hi = static_cast<std::uint64_t>(r >> 64);
  return true;
}

// Always inlined: it is a model's per-step path, and in a caller with a
// constant mode the rounding switch folds away.
[[gnu::always_inline]] inline bool DataValue::tryAddFromDouble(
    bool subtract, double operand, MathMode mode) noexcept {
  const DataType type = type_;
  if (type.isDouble()) {
    if (!(operand - operand == 0)) return false;  // fromDouble saturates
    const double s = subtract ? asDouble() - operand : asDouble() + operand;
    if (!(s - s == 0)) return false;
    lo_ = std::bit_cast<std::uint64_t>(s + 0.0);  // as sameTypeSum
    return true;
  }
  // fromDouble's stored integer, extended as the type's signedness says
  // (it is never negative for an unsigned type).
  std::uint64_t otherLo, otherHi;
  std::int64_t r;
  if (detail::scaledToStored(type, operand, mode, r)) {
    otherLo = static_cast<std::uint64_t>(r);
    otherHi = static_cast<std::uint64_t>(r >> 63);
  } else {
    // A whole-second step in a type with 64 fraction bits scales beyond
    // 2^62; fromDouble takes it inline too, so the step stays inline.
    Int128 wide;
    if (!detail::largeScaledToStored(
            type, operand * detail::pow2(type.fractionLength()), wide))
      return false;
    otherLo = static_cast<std::uint64_t>(wide);
    otherHi = static_cast<std::uint64_t>(static_cast<UInt128>(wide) >> 64);
  }
  std::uint64_t lo, hi;
  if (!fixedSum(subtract, type, otherLo, otherHi, lo, hi)) return false;
  lo_ = lo;
  hi_ = hi;
  return true;
}

inline DataValue::PreparedShift::PreparedShift(const DataType& type,
                                               bool subtract, double operand,
                                               MathMode mode) noexcept
    : type_(type), mode_(mode), subtract_(subtract), operand_(operand) {
  prepare();
}

inline void DataValue::PreparedShift::prepare() noexcept {
  const DataType type = type_;
  const bool subtract = subtract_;
  const double operand = operand_;
  const MathMode mode = mode_;
  if (type.isDouble()) {
    if (operand - operand == 0) {  // as tryAddFromDouble: finite only
      kind_ = Kind::kDouble;
      // A sum is -0.0 only when both terms are: with a -0.0 operand made
      // +0.0, no step's sum is -0.0, and the + 0.0 that tryAddFromDouble
      // adds to its sum (on the clock's chain of dependent steps) has
      // nothing left to change.
      signedOperand_ =
          std::bit_cast<std::uint64_t>((subtract ? -operand : operand) + 0.0);
    }
    return;
  }
  // The same two conversions, in the same order, as tryAddFromDouble.
  Int128 stored;
  std::int64_t r;
  if (detail::scaledToStored(type, operand, mode, r)) {
    stored = r;
  } else if (!detail::largeScaledToStored(
                 type, operand * detail::pow2(type.fractionLength()), stored)) {
    return;
  }
  const int w = type.wordLength();
  if (!type.isSigned() && w > 126) {
    kind_ = Kind::kFull;
    return;
  }
  // The stored operand fits the word, so |stored| < 2^127 and its negation
  // is exact.
  signedOperand_ = subtract ? -stored : stored;
  if (w == 128) {
    kind_ = Kind::kSigned128;
    return;
  }
  // Below 128 bits any sum of two values of the word fits Int128 too.
  const bool word64 =
      (type.isSigned() ? w <= 64 : w <= 63) &&
      signedOperand_ >= std::numeric_limits<std::int64_t>::min() &&
      signedOperand_ <= std::numeric_limits<std::int64_t>::max();
  kind_ = !word64                      ? Kind::kNarrow
          : type.isSigned() && w == 64 ? Kind::kInt64
                                       : Kind::kWord64;
  const Int128 top = (Int128{1} << (type.isSigned() ? w - 1 : w)) - 1;
  max_ = top;
  min_ = type.isSigned() ? -top - 1 : 0;
}

inline DataValue::PreparedShift::PreparedShift(const DataType& type,
                                               bool subtract, double operand,
                                               MathMode mode,
                                               const DataValue& bound) noexcept
    : type_(type), mode_(mode), subtract_(subtract), operand_(operand) {
  prepare();
  bounded_ = true;
  boundType_ = bound.type_;
  boundLo_ = bound.lo_;
  boundHi_ = bound.hi_;
  bind(bound);
}

inline void DataValue::PreparedShift::bind(const DataValue& bound) noexcept {
  const DataType type = type_;
  if (kind_ == Kind::kNone) return;  // refuses every value anyway
  if (!(bound.type_ == type)) {
    kind_ = Kind::kFull;
    return;
  }
  switch (kind_) {
    case Kind::kDouble:
      kind_ = Kind::kDoubleBelow;
      max_ = static_cast<Int128>(bound.lo_);
      return;
    case Kind::kSigned128:
      kind_ = Kind::kSigned128Below;
      max_ = bound.asInt128();
      return;
    case Kind::kInt64:
      kind_ = Kind::kWord64;  // the bound needs the range test
      [[fallthrough]];
    case Kind::kWord64:
    case Kind::kNarrow: {
      // value < bound  <=>  value + operand <= bound - 1 + operand, exact
      // in Int128: both lie within a word of at most 127 bits. Unsigned
      // words hold hi_ = 0, so the signed reading is the bound.
      const Int128 b = bound.asInt128();
      if (b <= min_) {
        kind_ = Kind::kNone;  // no value of the word lies below it
        return;
      }
      const Int128 top = b - 1 + signedOperand_;
      if (top < min_) kind_ = Kind::kNone;
      if (top < max_) max_ = top;
      return;
    }
    default:  // kFull: compared the long way
      return;
  }
}

// Always inlined for the reason tryAddFromDouble is. Per step: one test of
// type, mode and kind together, the sum, and the word's range.
template <bool BoundedFirst>
[[gnu::always_inline]] inline bool DataValue::tryAddPreparedIn(
    const PreparedShift& p, MathMode mode) noexcept {
  using Kind = PreparedShift::Kind;
  if (!__builtin_expect(type_ == p.type_ && PreparedShift::modeKey(mode) ==
                                                PreparedShift::modeKey(p.mode_),
                        1)) {
    if (p.bounded_ &&
        !(*this < DataValue(p.boundType_, p.boundLo_, p.boundHi_)))
      return false;
    return tryAddFromDouble(p.subtract_, p.operand_, mode);
  }
  const Kind kind = p.kind_;
  const double operand =
      std::bit_cast<double>(static_cast<std::uint64_t>(p.signedOperand_));
  const auto int64Sum = [&] {
    std::int64_t r;
    if (__builtin_add_overflow(static_cast<std::int64_t>(lo_),
                               static_cast<std::int64_t>(p.signedOperand_), &r))
      return false;
    lo_ = static_cast<std::uint64_t>(r);
    hi_ = static_cast<std::uint64_t>(r >> 63);
    return true;
  };
  // Below p.max_ when `bounded` (one reading of the value for both).
  const auto int128Sum = [&](bool bounded) {
    const Int128 v = asInt128();
    Int128 r;
    if ((bounded && !(v < p.max_)) ||
        __builtin_add_overflow(v, p.signedOperand_, &r))
      return false;
    lo_ = static_cast<std::uint64_t>(r);
    hi_ = static_cast<std::uint64_t>(static_cast<UInt128>(r) >> 64);
    return true;
  };
  // No + 0.0 after the sum: the prepared operand is never -0.0 (see
  // prepare()).
  const auto doubleSum = [&](bool below) {
    const double s = asDouble() + operand;
    if (!below || !(s - s == 0)) return false;
    lo_ = std::bit_cast<std::uint64_t>(s);
    return true;
  };
  const auto doubleBelow = [&] {
    return asDouble() <
           std::bit_cast<double>(static_cast<std::uint64_t>(p.max_));
  };
  // A clock's own steps (the full signed words and double), or the bounded
  // steps of a table's lookup, first.
  if (!BoundedFirst) {
    if (PreparedShift::is(kind, Kind::kInt64)) return int64Sum();
    if (PreparedShift::is(kind, Kind::kSigned128)) return int128Sum(false);
    if (PreparedShift::is(kind, Kind::kDouble)) return doubleSum(true);
  }
  if (PreparedShift::is(kind, Kind::kDoubleBelow))
    return doubleSum(doubleBelow());
  if (PreparedShift::is(kind, Kind::kSigned128Below)) return int128Sum(true);
  if (PreparedShift::is(kind, Kind::kWord64)) {
    // Unsigned words of up to 63 bits are non-negative int64_t values.
    std::int64_t r;
    if (__builtin_add_overflow(static_cast<std::int64_t>(lo_),
                               static_cast<std::int64_t>(p.signedOperand_),
                               &r) ||
        r < static_cast<std::int64_t>(p.min_) ||
        r > static_cast<std::int64_t>(p.max_))
      return false;
    lo_ = static_cast<std::uint64_t>(r);
    hi_ = static_cast<std::uint64_t>(r >> 63);
    return true;
  }
  if (PreparedShift::is(kind, Kind::kNarrow)) {
    // Unsigned words hold hi_ = 0, so the signed reading is the value.
    const Int128 r = asInt128() + p.signedOperand_;
    if (r < p.min_ || r > p.max_) return false;
    lo_ = static_cast<std::uint64_t>(r);
    hi_ = static_cast<std::uint64_t>(static_cast<UInt128>(r) >> 64);
    return true;
  }
  if (BoundedFirst) {
    if (PreparedShift::is(kind, Kind::kInt64)) return int64Sum();
    if (PreparedShift::is(kind, Kind::kSigned128)) return int128Sum(false);
    if (PreparedShift::is(kind, Kind::kDouble)) return doubleSum(true);
  }
  if (PreparedShift::is(kind, Kind::kNone)) return false;
  // kFull: the long way, its bound compared the long way too.
  if (p.bounded_ && !(*this < DataValue(p.boundType_, p.boundLo_, p.boundHi_)))
    return false;
  return tryAddFromDouble(p.subtract_, p.operand_, mode);
}

[[gnu::always_inline]] inline bool DataValue::tryAddPrepared(
    const PreparedShift& p, MathMode mode) noexcept {
  return tryAddPreparedIn<false>(p, mode);
}

[[gnu::always_inline]] inline bool DataValue::tryAddBounded(
    const PreparedShift& p, MathMode mode) noexcept {
  return tryAddPreparedIn<true>(p, mode);
}

inline DataValue DataValue::add(const DataType& resultType,
                                const DataValue& other,
                                MathControl& control) const {
  DataValue r;
  if (sameTypeSum(false, resultType, other, r)) return r;
  return arithmetic(Op::kAdd, resultType, other, control);
}

inline DataValue DataValue::minus(const DataType& resultType,
                                  const DataValue& other,
                                  MathControl& control) const {
  DataValue r;
  if (sameTypeSum(true, resultType, other, r)) return r;
  return arithmetic(Op::kMinus, resultType, other, control);
}

inline DataValue DataValue::multiplyBy(const DataType& resultType,
                                       const DataValue& other,
                                       MathControl& control) const {
  return arithmetic(Op::kMultiply, resultType, other, control);
}

inline DataValue DataValue::divideBy(const DataType& resultType,
                                     const DataValue& other,
                                     MathControl& control) const {
  return arithmetic(Op::kDivide, resultType, other, control);
}

// Two doubles (always finite) compare as doubles; -0.0 equals +0.0.
inline bool operator==(const DataValue& a, const DataValue& b) noexcept {
  if (a.type_ == b.type_) {
    if (a.type_.isFixed()) return a.lo_ == b.lo_ && a.hi_ == b.hi_;
    return a.asDouble() == b.asDouble();
  }
  return DataValue::compareSlow(a, b) == std::weak_ordering::equivalent;
}

inline std::weak_ordering operator<=>(const DataValue& a,
                                      const DataValue& b) noexcept {
  if (a.type_ == b.type_) {
    if (a.type_.isDouble()) {
      const double x = a.asDouble(), y = b.asDouble();
      return x < y   ? std::weak_ordering::less
             : y < x ? std::weak_ordering::greater
                     : std::weak_ordering::equivalent;
    }
    if (a.type_.isSigned()) return a.asInt128() <=> b.asInt128();
    return static_cast<UInt128>(a.asInt128()) <=>
           static_cast<UInt128>(b.asInt128());
  }
  return DataValue::compareSlow(a, b);
}

}  // namespace FXP
