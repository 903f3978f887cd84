// The digit, text and fraction writers behind DateTimeStructFormatter. Each
// writes at `out`, which the caller has sized, and returns the new end.
// Private to the library: not installed.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KvDateTime::detail {

inline constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536"
    "37383940414243444546474849505152535455565758596061626364656667686970717273"
    "7475767778798081828384858687888990919293949596979899";

inline int decimalLength(std::uint64_t v) noexcept {
  int n = 1;
  while (v >= 10000) {
    v /= 10000;
    n += 4;
  }
  return n + (v >= 10) + (v >= 100) + (v >= 1000);
}

inline void putPair(char16_t* out, std::uint64_t v) noexcept {  // v < 100
  out[0] = static_cast<char16_t>(kDigitPairs[v * 2]);
  out[1] = static_cast<char16_t>(kDigitPairs[v * 2 + 1]);
}

// `v` in decimal, zero padded to `width` (no padding when width <= length).
inline char16_t* putUnsigned(char16_t* out, std::uint64_t v,
                             int width) noexcept {
  if (v < 100 && width <= 2) {  // most fields: day, hour, minute, second
    if (v < 10 && width < 2) {
      *out = static_cast<char16_t>(u'0' + v);
      return out + 1;
    }
    putPair(out, v);
    return out + 2;
  }
  const int length = decimalLength(v);
  for (int i = length; i < width; ++i) *out++ = u'0';
  char16_t* p = out + length;
  while (v >= 100) {
    p -= 2;
    putPair(p, v % 100);
    v /= 100;
  }
  if (v >= 10) {
    putPair(p - 2, v);
  } else {
    p[-1] = static_cast<char16_t>(u'0' + v);
  }
  return out + length;
}

// A literal run is one character repeated, and most runs are a single
// one: a plain store beats the vectorised fill the compiler makes of a loop.
inline char16_t* putRepeated(char16_t* out, char16_t c,
                             std::size_t n) noexcept {
  if (n == 1) {
    *out = c;
    return out + 1;
  }
  for (std::size_t k = 0; k < n; ++k) *out++ = c;
  return out;
}

// Narrow text widened one byte to one unit.
inline char16_t* putNarrow(char16_t* out, std::string_view text) noexcept {
  for (const char c : text) {
    *out++ = static_cast<char16_t>(static_cast<unsigned char>(c));
  }
  return out;
}

__extension__ typedef unsigned __int128 u128;  // GCC and Clang both have it

// The first nine of the fifteen decimals that printf("%.15f", a) writes for
// 0 <= a < 1 under the default rounding mode: the decimal value rounded half
// to even at 15 places, all zeros when that rounds up to one. The double is
// an exact binary fraction m / 2^k, so m * 10^15 / 2^k with its remainder
// decides the rounding without any floating-point error. Checked against
// the C library by PatternRendering.FractionDigitsMatchPrintf.
inline std::uint64_t fractionDigits9(double a) noexcept {
  constexpr std::uint64_t kScale = 1'000'000'000'000'000;  // 10^15
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(a);
  const auto biased = static_cast<int>(bits >> 52);
  std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
  int shift = 1074;  // zero and subnormals
  if (biased != 0) {
    mantissa |= std::uint64_t{1} << 52;
    shift = 1075 - biased;  // >= 53 because a < 1
  }
  // mantissa * 10^15 < 2^103: from a shift of 104 on it is below one half.
  if (shift >= 104) return 0;
  const u128 product = static_cast<u128>(mantissa) * kScale;
  std::uint64_t q = static_cast<std::uint64_t>(product >> shift);
  const u128 rest = product & ((u128{1} << shift) - 1);
  const u128 half = u128{1} << (shift - 1);
  if (rest > half || (rest == half && (q & 1) != 0)) ++q;
  return q == kScale ? 0 : q / 1'000'000;  // "1.000000000000000": zeros
}

}  // namespace KvDateTime::detail
