// The host's numeric array: a class, real or complex, a dimension list and a
// zero-filled data area. Arrays are created and destroyed through the host's
// own calls; a library that hands one over returns an owning handle.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

enum class voClassID : std::int32_t {
  Double,
  Single,
  Int8,
  UInt8,
  Int16,
  UInt16,
  Int32,
  UInt32,
  Int64,
  UInt64,
};

// Bytes of one real element of the class; throws std::invalid_argument for
// a value outside the enumeration.
std::size_t voElementSize(voClassID id);

// Threads: an array belongs to whoever holds its handle; const reads of one
// array may run on several threads, writes through data() need the owner's
// exclusion. Creating and destroying arrays may happen on any thread.
class voArray {
 public:
  voClassID classID() const noexcept { return classID_; }
  const std::vector<std::uint64_t>& dimensions() const noexcept {
    return dims_;
  }
  bool isComplex() const noexcept { return complex_; }
  std::uint64_t numberOfElements() const noexcept { return elements_; }
  // numberOfElements() elements of the class, the imaginary parts after the
  // real ones for a complex array; 8-byte aligned, enough for every class.
  // Null when the array has no elements.
  void* data() noexcept { return data_.empty() ? nullptr : data_.data(); }
  const void* data() const noexcept {
    return data_.empty() ? nullptr : data_.data();
  }

 private:
  friend voArray* voCreateNumericArray(const std::vector<std::uint64_t>&,
                                       voClassID, bool);
  voArray() = default;
  voClassID classID_ = voClassID::Double;
  bool complex_ = false;
  std::uint64_t elements_ = 0;
  std::vector<std::uint64_t> dims_;
  std::vector<std::uint64_t> data_;  // 8-byte aligned, zero-filled
};

// Throws std::invalid_argument for an empty dimension list or a class
// outside the enumeration, std::length_error when the data area's size does
// not fit memory, std::bad_alloc when it cannot be had.
voArray* voCreateNumericArray(const std::vector<std::uint64_t>& dimensions,
                              voClassID classID, bool isComplex);
// Null is allowed and does nothing.
void destroyArray(voArray* array) noexcept;

struct voArrayDeleter {
  void operator()(voArray* array) const noexcept { destroyArray(array); }
};
using voArrayHandle = std::unique_ptr<voArray, voArrayDeleter>;
