// Replaces the global operator new of the test binary whose one file
// includes this header, and counts allocations while counting is on, so a
// test can prove that a path allocates nothing (or only what it must).
// Kept out of line so that the compiler does not pair new with free().
// Other files of the same binary read the count after defining
// KVTEST_COUNT_ONLY.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

namespace kvtest {

inline std::atomic<bool> countingAllocations{true};
inline std::atomic<long> allocations{0};

}  // namespace kvtest

#ifndef KVTEST_COUNT_ONLY
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (kvtest::countingAllocations.load(std::memory_order_relaxed)) {
    kvtest::allocations.fetch_add(1, std::memory_order_relaxed);
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
#endif
