// Lets the long oracle loops run reduced under Valgrind, where they would
// take an hour: make memcheck sets KVDT_TEST_REDUCED=1 and those loops then
// take every fiftieth sample. Every other run keeps them all.
#pragma once

#include <cstdlib>

namespace kvtest {

// 50 in a reduced run, else 1.
inline int reduction() {
  static const int r = [] {
    const char* v = std::getenv("KVDT_TEST_REDUCED");
    return v != nullptr && *v != '\0' && *v != '0' ? 50 : 1;
  }();
  return r;
}

// n samples, or a fiftieth of them (at least one) in a reduced run.
inline int scaled(int n) { return (n + reduction() - 1) / reduction(); }

}  // namespace kvtest
