#include "host/fxp/DataType.hpp"

#include <stdexcept>
#include <string>

namespace FXP {

namespace detail {
void throwBadTypeField(const char* field, long long value) {
  throw std::invalid_argument(std::string("FXP::DataType: ") + field +
                              " out of range: " + std::to_string(value));
}
}  // namespace detail

namespace {
[[noreturn]] void throwBadScale(const char* field, double value) {
  throw std::invalid_argument(std::string("FXP::DataType: ") + field +
                              " must be neutral, got " + std::to_string(value));
}
}  // namespace

DataType::DataType(const fxpDataTypeProp& prop) {
  // Negated comparisons so that a NaN slope or bias is rejected too.
  if (!(prop.slope == 1.0)) throwBadScale("slope", prop.slope);
  if (!(prop.bias == 0.0)) throwBadScale("bias", prop.bias);
  if (prop.isSigned != 0 && prop.isSigned != 1)
    detail::throwBadTypeField("isSigned", prop.isSigned);
  if (prop.kind == kDoubleKind) {
    if (prop.isSigned != 1)
      detail::throwBadTypeField("isSigned", prop.isSigned);
    if (prop.wordLength != 64)
      detail::throwBadTypeField("wordLength", prop.wordLength);
    if (prop.fixedExponent != 0)
      detail::throwBadTypeField("fixedExponent", prop.fixedExponent);
    *this = doubleT();
    return;
  }
  if (prop.kind != kFixedKind) detail::throwBadTypeField("kind", prop.kind);
  if (prop.fixedExponent < -kMaxFractionLength ||
      prop.fixedExponent > -kMinFractionLength)
    detail::throwBadTypeField("fixedExponent", prop.fixedExponent);
  *this = fixedT(prop.isSigned == 1, prop.wordLength, -prop.fixedExponent);
}

fxpDataTypeProp DataType::getProp() const noexcept {
  return fxpDataTypeProp{
      kind(), isSigned() ? 1 : 0, wordLength(), -fractionLength(), 1.0, 0.0};
}

}  // namespace FXP
