#pragma once

#include <cstdint>

namespace FixptRangeMath {

// Records that an arithmetic result fell outside its type's range. Installed
// on a MathControl by its owner; the control never owns or deletes it.
//
// Threads: the count is not synchronised; a logger is written by one thread
// at a time, normally the one owning its control.
class FixptRangeMathLogger {
 public:
  // Called by the arithmetic once per overflowing result (saturated, or
  // wrapped to a different value).
  void logOverflow() noexcept;
  bool overflowOccurred() const noexcept { return overflowCount_ != 0; }
  std::uint64_t overflowCount() const noexcept { return overflowCount_; }
  void reset() noexcept { overflowCount_ = 0; }

 private:
  std::uint64_t overflowCount_ = 0;
};

}  // namespace FixptRangeMath

namespace FXP {

// How a fixed-point result is brought into its type: a rounding code, then an
// overflow code. A double result is always the nearest double, ties to even.
//
// Threads: a plain value.
class MathMode {
 public:
  enum Rounding : std::uint8_t {
    kTowardZero = 0,
    kNearestTiesUp = 1,  // ties toward plus infinity
    kCeiling = 2,
    kFloor = 3,
    kNearestTiesEven = 4,
    kNearestTiesAway = 5,  // ties away from zero
  };
  enum Overflow : std::uint8_t { kWrap = 0, kSaturate = 1 };

  // Nearest (ties up), saturate.
  constexpr MathMode() noexcept = default;
  // Throws std::invalid_argument naming the code when rounding is not 0..5 or
  // overflow not 0..1.
  constexpr MathMode(int roundingCode, int overflowCode);

  constexpr std::uint8_t roundingCode() const noexcept {
    return static_cast<std::uint8_t>(codes_);
  }
  constexpr std::uint8_t overflowCode() const noexcept {
    return static_cast<std::uint8_t>(codes_ >> 8);
  }
  constexpr bool saturates() const noexcept {
    return overflowCode() == kSaturate;
  }

  friend constexpr bool operator==(MathMode, MathMode) noexcept = default;

 private:
  // Both codes in one word, rounding in the low byte: a mode is copied and
  // compared as one 16-bit load on the per-step paths.
  std::uint16_t codes_ = kNearestTiesUp | kSaturate << 8;
};

// A mode plus an optional, non-owned overflow logger. Operations take the
// control by reference because they write to its logger; the control itself
// is not shared between threads.
class MathControl {
 public:
  constexpr explicit MathControl(MathMode mode) noexcept : mode_(mode) {}

  // Nearest with ties up, saturate: codes (1, 1).
  static constexpr MathControl createFullPrecisionMathControl() noexcept {
    return MathControl(MathMode());
  }
  static constexpr MathControl
  createFullPrecisionNearSatMathControl() noexcept {
    return MathControl(MathMode());
  }
  // Floor, wrap: codes (3, 0). Splitting a value into whole and fraction
  // relies on this flooring.
  static constexpr MathControl createFullPrecisionFloorWrapMathControl() {
    return MathControl(MathMode(MathMode::kFloor, MathMode::kWrap));
  }

  constexpr MathMode getMathMode() const noexcept { return mode_; }
  constexpr void setMathLogger(
      FixptRangeMath::FixptRangeMathLogger* logger) noexcept {
    logger_ = logger;
  }
  constexpr FixptRangeMath::FixptRangeMathLogger* getMathLogger()
      const noexcept {
    return logger_;
  }

 private:
  MathMode mode_;
  FixptRangeMath::FixptRangeMathLogger* logger_ = nullptr;
};

namespace detail {
[[noreturn]] void throwBadModeCode(const char* field, int value);
}

constexpr MathMode::MathMode(int roundingCode, int overflowCode)
    : codes_(static_cast<std::uint16_t>((roundingCode & 0xff) |
                                        (overflowCode & 0xff) << 8)) {
  if (roundingCode < kTowardZero || roundingCode > kNearestTiesAway)
    detail::throwBadModeCode("roundingCode", roundingCode);
  if (overflowCode < kWrap || overflowCode > kSaturate)
    detail::throwBadModeCode("overflowCode", overflowCode);
}

}  // namespace FXP
