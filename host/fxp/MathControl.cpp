#include "host/fxp/MathControl.hpp"

#include <stdexcept>
#include <string>

namespace FixptRangeMath {

void FixptRangeMathLogger::logOverflow() noexcept { ++overflowCount_; }

}  // namespace FixptRangeMath

namespace FXP::detail {

void throwBadModeCode(const char* field, int value) {
  throw std::invalid_argument(std::string("FXP::MathMode: ") + field +
                              " out of range: " + std::to_string(value));
}

}  // namespace FXP::detail
