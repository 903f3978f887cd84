#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "host/voarray/voArray.hpp"

namespace {

TEST(VoArray, CreatesZeroFilledArraysOfTheRequestedShape) {
  // dimensions, class, complex, elements, bytes
  // clang-format off
  const std::tuple<std::vector<std::uint64_t>, voClassID, bool, std::uint64_t, std::size_t> cases[] = {
      {{1}, voClassID::Double, false, 1, 8}, {{2, 1}, voClassID::Int64, false, 2, 16},
      {{3, 5}, voClassID::UInt16, true, 15, 60}, {{7}, voClassID::Int8, false, 7, 7},
      {{0, 4}, voClassID::Single, false, 0, 0}};
  // clang-format on
  for (const auto& [dims, cls, complex, elements, bytes] : cases) {
    const voArrayHandle a(voCreateNumericArray(dims, cls, complex));
    EXPECT_EQ(a->classID(), cls);
    EXPECT_EQ(a->dimensions(), dims);
    EXPECT_EQ(a->isComplex(), complex);
    EXPECT_EQ(a->numberOfElements(), elements);
    // An empty array has no data area; any other starts zero-filled.
    const std::vector<std::uint8_t> zeros(bytes);
    EXPECT_TRUE(bytes == 0 ? a->data() == nullptr
                           : std::memcmp(a->data(), zeros.data(), bytes) == 0);
  }
}

TEST(VoArray, RefusesImpossibleRequests) {
  const std::uint64_t huge = std::numeric_limits<std::uint64_t>::max() / 2;
  EXPECT_THROW(voCreateNumericArray({}, voClassID::Double, false),
               std::invalid_argument);
  EXPECT_THROW(voCreateNumericArray({1}, voClassID(42), false),
               std::invalid_argument);
  EXPECT_THROW(voCreateNumericArray({huge, 3}, voClassID::UInt8, false),
               std::length_error);
  EXPECT_THROW(voCreateNumericArray({huge}, voClassID::Double, false),
               std::length_error);
  destroyArray(nullptr);
}

}  // namespace
