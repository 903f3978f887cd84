#include "host/voarray/voArray.hpp"

#include <limits>
#include <stdexcept>
#include <string>

std::size_t voElementSize(voClassID id) {
  switch (id) {
    case voClassID::Double:
    case voClassID::Int64:
    case voClassID::UInt64:
      return 8;
    case voClassID::Single:
    case voClassID::Int32:
    case voClassID::UInt32:
      return 4;
    case voClassID::Int16:
    case voClassID::UInt16:
      return 2;
    case voClassID::Int8:
    case voClassID::UInt8:
      return 1;
  }
  throw std::invalid_argument("voClassID " +
                              std::to_string(static_cast<int>(id)));
}

voArray* voCreateNumericArray(const std::vector<std::uint64_t>& dimensions,
                              voClassID classID, bool isComplex) {
  if (dimensions.empty())
    throw std::invalid_argument("voCreateNumericArray: no dimensions");
  const std::size_t element = voElementSize(classID) * (isComplex ? 2 : 1);
  std::uint64_t count = 1;
  for (std::uint64_t d : dimensions)
    if (__builtin_mul_overflow(count, d, &count))
      throw std::length_error("voCreateNumericArray: too many elements");
  std::uint64_t bytes;
  if (__builtin_mul_overflow(count, element, &bytes) ||
      bytes > std::numeric_limits<std::size_t>::max() / 2)
    throw std::length_error("voCreateNumericArray: data area too large");
  auto* array = new voArray();
  try {
    array->classID_ = classID;
    array->complex_ = isComplex;
    array->elements_ = count;
    array->dims_ = dimensions;
    array->data_.assign((bytes + 7) / 8, 0);
  } catch (...) {
    delete array;
    throw;
  }
  return array;
}

void destroyArray(voArray* array) noexcept { delete array; }
