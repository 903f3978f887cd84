// Arbitrary fixed-point types, modes and operands through every
// FXP::DataValue operation, each result checked against exact rational
// arithmetic (tests/host/fxp/FxpOracle.hpp) for every word length up to 128:
// - a type record is accepted exactly when its fields are valid, and then
//   round-trips through getProp; a mode exactly when its codes are;
// - compact bytes are accepted exactly when canonical, and write back as
//   they were read; a short buffer throws and writes nothing;
// - add, minus, multiplyBy, divideBy, convert and fromDouble round the
//   exact result once into the result type, and the logger hears of an
//   overflow exactly once when the range is left; a zero divisor throws
//   std::domain_error; toDouble is the nearest double; <=> and == follow
//   the exact values across types.

#include <cstring>
#include <sstream>
#include <stdexcept>

#include "fuzz/FuzzSupport.hpp"
#include "tests/host/fxp/FxpOracle.hpp"

namespace {

using namespace FXP;
using namespace fxptest;

std::string describe(const DataType& t, const Rational& x) {
  std::ostringstream s;
  s << t.kind() << ',' << t.isSigned() << ',' << t.wordLength() << ','
    << t.fractionLength() << ':' << x.num << '/' << x.den;
  return s.str();
}
std::string describe(const DataValue& v) {
  return describe(v.getDataType(), exactOf(v));
}

bool validProp(const fxpDataTypeProp& p) {
  const bool neutral = p.slope == 1.0 && p.bias == 0.0;
  if (p.kind == 2)
    return neutral && p.isSigned == 1 && p.wordLength == 64 &&
           p.fixedExponent == 0;
  return neutral && p.kind == 0 && (p.isSigned == 0 || p.isSigned == 1) &&
         p.wordLength >= 1 && p.wordLength <= 128 && p.fixedExponent >= -256 &&
         p.fixedExponent <= 128;
}

// A type from a raw property record one time in eight (checked against the
// rules), else from a word length and a fraction length near it.
DataType anyType(FuzzedDataProvider& in) {
  const int kind = in.ConsumeIntegralInRange<int>(0, 7);
  if (kind == 0) {
    fxpDataTypeProp p{in.ConsumeIntegralInRange<int>(-1, 3),
                      in.ConsumeIntegralInRange<int>(-1, 2),
                      in.ConsumeIntegralInRange<int>(-1, 130),
                      in.ConsumeIntegralInRange<int>(-260, 130),
                      in.ConsumeBool() ? 1.0 : kvfuzz::anyDouble(in),
                      in.ConsumeBool() ? 0.0 : kvfuzz::anyDouble(in)};
    bool accepted = true;
    DataType t;
    try {
      t = DataType(p);
    } catch (const std::invalid_argument&) {
      accepted = false;
    }
    KVFUZZ_CHECK(accepted == validProp(p), "");
    if (accepted) {
      const fxpDataTypeProp q = t.getProp();
      KVFUZZ_CHECK(q.kind == p.kind && q.isSigned == p.isSigned &&
                       q.wordLength == p.wordLength &&
                       q.fixedExponent == p.fixedExponent,
                   "");
    }
    return t;
  }
  if (kind == 1) return DataType::doubleT();
  const int w = in.ConsumeIntegralInRange<int>(1, 128);
  const int f = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-8, w + 8)
                                 : in.ConsumeIntegralInRange<int>(-128, 256);
  return DataType::fixedT(in.ConsumeBool(), w, f);
}

// A value from 16 raw bytes, or the reason they were refused.
bool anyValue(FuzzedDataProvider& in, const DataType& t, DataValue& v) {
  std::array<unsigned char, 16> bytes{};
  const std::string raw = in.ConsumeBytesAsString(16);
  std::memcpy(bytes.data(), raw.data(), raw.size());
  // Small stored values are where rounding decisions cluster: often keep
  // only the low byte and extend its sign.
  if (in.ConsumeBool())
    std::memset(bytes.data() + 1, bytes[0] & 0x80 ? 0xFF : 0, 15);
  const std::size_t n = t.sizeofCompact();
  cpp_int u = 0;
  for (std::size_t i = n; i-- > 0;) u = u << 8 | bytes[i];
  bool canonical;
  if (t.isDouble()) {
    canonical =
        std::isfinite(std::bit_cast<double>(static_cast<std::uint64_t>(u)));
  } else {
    if (t.isSigned() && bit_test(u, static_cast<unsigned>(8 * n - 1)))
      u -= cpp_int(1) << (8 * n);
    canonical = u >= minStored(t) && u <= maxStored(t);
  }
  bool accepted = true;
  try {
    v = DataValue::fromCompact(t, bytes.data());
  } catch (const std::invalid_argument&) {
    accepted = false;
  }
  KVFUZZ_CHECK(accepted == canonical, describe(t, {u}));
  if (!accepted) return false;

  std::array<unsigned char, 16> out;
  out.fill(0xA5);
  bool refused = false;
  try {
    v.toCompact(out.data(), n - 1);
  } catch (const std::invalid_argument&) {
    refused = true;
  }
  KVFUZZ_CHECK(refused && out[0] == 0xA5, describe(v));
  v.toCompact(out.data(), n);
  KVFUZZ_CHECK(std::memcmp(out.data(), bytes.data(), n) == 0, describe(v));
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  const int roundingCode = in.ConsumeIntegralInRange<int>(-1, 6);
  const int overflowCode = in.ConsumeIntegralInRange<int>(-1, 2);
  MathMode mode;
  try {
    mode = MathMode(roundingCode, overflowCode);
    KVFUZZ_CHECK(roundingCode >= 0 && roundingCode <= 5 && overflowCode >= 0 &&
                     overflowCode <= 1,
                 "");
  } catch (const std::invalid_argument&) {
    KVFUZZ_CHECK(roundingCode < 0 || roundingCode > 5 || overflowCode < 0 ||
                     overflowCode > 1,
                 "");
    mode = MathMode(roundingCode & 3, overflowCode & 1);
  }
  const DataType ta = anyType(in);
  const bool same = in.ConsumeIntegralInRange<int>(0, 2) == 0;
  const DataType tb = same ? ta : anyType(in);
  const DataType tr = same ? ta : anyType(in);
  const int op = in.ConsumeIntegralInRange<int>(0, 4);
  const bool logged = in.ConsumeBool();
  const double d = kvfuzz::anyDouble(in);
  DataValue a, b;
  if (!anyValue(in, ta, a) || !anyValue(in, tb, b)) return 0;

  const Rational ea = exactOf(a), eb = exactOf(b);
  const int order = compare(ea, eb);
  KVFUZZ_CHECK((a <=> b) == (order <=> 0) && (a == b) == (order == 0),
               describe(a) + " " + describe(b));
  const double ad = a.toDouble();
  KVFUZZ_CHECK(!compare(exactOfDouble(ad), roundInto(ea, {}, mode).value),
               describe(a));
  bool fat = true;
  try {
    a.getFatVal();
  } catch (const std::domain_error&) {
    fat = false;
  }
  KVFUZZ_CHECK(fat == ta.isFixed(), describe(a));

  const DataValue fd = DataValue::fromDouble(tr, d, mode);
  if (tr.isDouble() && std::isfinite(d)) {
    KVFUZZ_CHECK(std::bit_cast<std::uint64_t>(fd.toDouble()) ==
                     std::bit_cast<std::uint64_t>(d),
                 describe(fd));
  } else {
    // NaN counts as 0, an infinity as a value beyond every type.
    const Rational x = std::isnan(d)   ? Rational{0}
                       : std::isinf(d) ? times2({d > 0 ? 1 : -1}, 2000)
                                       : exactOfDouble(d);
    const MathMode kept = std::isinf(d) ? MathMode() : mode;
    KVFUZZ_CHECK(!compare(exactOf(fd), roundInto(x, tr, kept).value),
                 describe(fd));
  }

  MathControl control(mode);
  FixptRangeMath::FixptRangeMathLogger logger;
  if (logged) control.setMathLogger(&logger);
  const Op kOps[] = {Op::kAdd, Op::kMinus, Op::kMultiply, Op::kDivide,
                     Op::kConvert};
  const std::string where =
      std::to_string(op) + " " + describe(a) + " " + describe(b) + " mode " +
      std::to_string(mode.roundingCode()) + std::to_string(mode.overflowCode());
  DataValue r;
  switch (op) {
    case 0:
      r = a.add(tr, b, control);
      break;
    case 1:
      r = a.minus(tr, b, control);
      break;
    case 2:
      r = a.multiplyBy(tr, b, control);
      break;
    case 3:
      if (eb.num == 0) {
        bool threw = false;
        try {
          a.divideBy(tr, b, control);
        } catch (const std::domain_error&) {
          threw = true;
        }
        KVFUZZ_CHECK(threw && logger.overflowCount() == 0, where);
        return 0;
      }
      r = a.divideBy(tr, b, control);
      break;
    default:
      r = a.convert(tr, control);
      break;
  }
  const Rounded want = roundInto(apply(kOps[op], ea, eb), tr, mode);
  KVFUZZ_CHECK(
      r.getDataType() == tr && !compare(exactOf(r), want.value),
      where + " gave " + describe(r) + " want " + describe(tr, want.value));
  KVFUZZ_CHECK(logger.overflowCount() == (logged && want.overflow ? 1u : 0u),
               where);
  // Values never hold an infinity, and an exact zero is +0.0 (a nonzero
  // result that rounds to zero keeps its sign).
  if (tr.isDouble())
    KVFUZZ_CHECK(
        std::isfinite(r.toDouble()) &&
            !(apply(kOps[op], ea, eb).num == 0 && std::signbit(r.toDouble())),
        where);
  return 0;
}
