#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>

#include "host/voarray/voArray.hpp"

namespace {

TEST(VoArray, CreatesZeroFilledArraysOfTheRequestedShape) {
  struct Case {
    std::vector<std::uint64_t> dims;
    voClassID cls;
    bool complex;
    std::uint64_t elements;
    std::size_t elementBytes;
  };
  const Case cases[] = {{{1}, voClassID::Double, false, 1, 8},
                        {{2, 1}, voClassID::Int64, false, 2, 8},
                        {{3, 5}, voClassID::UInt16, true, 15, 4},
                        {{7}, voClassID::Int8, false, 7, 1},
                        {{0, 4}, voClassID::Single, false, 0, 4}};
  for (const Case& c : cases) {
    const voArrayHandle a(voCreateNumericArray(c.dims, c.cls, c.complex));
    EXPECT_EQ(a->classID(), c.cls);
    EXPECT_EQ(a->dimensions(), c.dims);
    EXPECT_EQ(a->isComplex(), c.complex);
    EXPECT_EQ(a->numberOfElements(), c.elements);
    const std::size_t bytes = c.elements * c.elementBytes;
    if (bytes == 0) {
      EXPECT_EQ(a->data(), nullptr);
      continue;
    }
    const std::vector<std::uint8_t> zeros(bytes);
    EXPECT_EQ(std::memcmp(a->data(), zeros.data(), bytes), 0);
  }
}

TEST(VoArray, RefusesImpossibleRequests) {
  EXPECT_THROW(voCreateNumericArray({}, voClassID::Double, false),
               std::invalid_argument);
  EXPECT_THROW(voCreateNumericArray({1}, static_cast<voClassID>(42), false),
               std::invalid_argument);
  const std::uint64_t huge = std::numeric_limits<std::uint64_t>::max() / 2;
  EXPECT_THROW(voCreateNumericArray({huge, 3}, voClassID::UInt8, false),
               std::length_error);
  EXPECT_THROW(voCreateNumericArray({huge}, voClassID::Double, false),
               std::length_error);
  destroyArray(nullptr);
}

}  // namespace
