// Result, 2026-11-22, shared 2-vCPU VM, g++ 12 -O3 (CMake Release), one run of
// kv_bench_fxp --benchmark_min_time=0.2 (CPU ns/op):
//   Add64   DataValue 1.19  raw int64 0.50        ratio 2.38 (goal <= 4)
//   Add128  DataValue 1.73  raw __int128 0.84     ratio 2.07 (goal <= 4)
//           Boost int256 10.5                     ratio 0.16
//   fromDouble DataValue 2.09 (bare scale+round 0.86)
//   toDouble   DataValue 1.28 (bare convert+scale 0.43)
//
// FXP::DataValue beside raw integer and Boost.Multiprecision arithmetic on
// the same fixed-seed operands; one run prints its own ratios.
//
// Stepping a time point is a same-type add under a full-precision control,
// so that is the path measured against the raw adds. fromDouble / toDouble
// stand beside a bare scale-and-convert that ignores rounding modes and
// range checks (a floor, not a peer that does the same job).

#include <benchmark/benchmark.h>

#include <boost/multiprecision/cpp_int.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "bench/RatioReport.hpp"
#include "host/fxp/FXP.hpp"

namespace {

using boost::multiprecision::int256_t;
using FXP::DataType;
using FXP::DataValue;
using FXP::Int128;
using FXP::UInt128;

constexpr std::size_t kSize = 4096;  // power of two: index with i & kMask
constexpr std::size_t kMask = kSize - 1;
constexpr int kFraction = 20;  // a seconds count with ~1 us resolution

const DataType kS64 = DataType::fixedT(true, 64, kFraction);
const DataType kS128 = DataType::fixedT(true, 128, 64);

struct Data {
  std::vector<std::int64_t> a64, b64;
  std::vector<Int128> a128, b128;
  std::vector<int256_t> a256, b256;
  std::vector<DataValue> va64, vb64, va128, vb128, v64;
  std::vector<double> d;
};

Int128 random125(std::mt19937_64& rng) {
  // About 126 bits with sign: sums stay inside 128 bits.
  const auto hi = static_cast<std::int64_t>(rng()) >> 3;
  return static_cast<Int128>((static_cast<UInt128>(hi) << 64) | rng());
}

int256_t toBoost(Int128 v) {
  const bool neg = v < 0;
  const UInt128 m = neg ? -static_cast<UInt128>(v) : static_cast<UInt128>(v);
  int256_t r = static_cast<std::uint64_t>(m >> 64);
  r = (r << 64) | static_cast<std::uint64_t>(m);
  return neg ? -r : r;
}

DataValue fromWords(const DataType& t, UInt128 v) {
  unsigned char b[16];
  for (int i = 0; i < 16; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
  return DataValue::fromCompact(t, b);
}

const Data& data() {
  static const Data d = [] {
    Data x;
    std::mt19937_64 rng(20240611);
    for (std::size_t i = 0; i < kSize; ++i) {
      const std::int64_t a = static_cast<std::int64_t>(rng()) >> 2;
      const std::int64_t b = static_cast<std::int64_t>(rng()) >> 2;
      x.a64.push_back(a);
      x.b64.push_back(b);
      x.va64.push_back(fromWords(kS64, static_cast<UInt128>(Int128{a})));
      x.vb64.push_back(fromWords(kS64, static_cast<UInt128>(Int128{b})));
      const Int128 p = random125(rng), q = random125(rng);
      x.a128.push_back(p);
      x.b128.push_back(q);
      x.a256.push_back(toBoost(p));
      x.b256.push_back(toBoost(q));
      x.va128.push_back(fromWords(kS128, static_cast<UInt128>(p)));
      x.vb128.push_back(fromWords(kS128, static_cast<UInt128>(q)));
      // Times of day to a few years in seconds, both signs.
      const double t = std::ldexp(static_cast<double>(rng() >> 11), -53) *
                       std::ldexp(1.0, static_cast<int>(rng() % 28)) *
                       ((rng() & 1) ? 1 : -1);
      x.d.push_back(t);
      x.v64.push_back(DataValue::fromDouble(kS64, t, FXP::MathMode()));
    }
    return x;
  }();
  return d;
}

Int128 storedOf(const DataValue& v) {
  const auto w = v.getFatVal();
  const UInt128 u = (static_cast<UInt128>(w[3]) << 96) |
                    (static_cast<UInt128>(w[2]) << 64) |
                    (static_cast<UInt128>(w[1]) << 32) | w[0];
  return static_cast<Int128>(u);
}

// Before timing: every contender must compute the same sums and conversions.
bool contendersAgree() {
  const Data& x = data();
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  for (std::size_t i = 0; i < kSize; ++i) {
    if (storedOf(x.va64[i].add(kS64, x.vb64[i], mc)) != x.a64[i] + x.b64[i])
      return false;
    const Int128 s128 = x.a128[i] + x.b128[i];
    if (storedOf(x.va128[i].add(kS128, x.vb128[i], mc)) != s128) return false;
    if (x.a256[i] + x.b256[i] != toBoost(s128)) return false;
    const double scaled = x.d[i] * 0x1p20;
    if (storedOf(x.v64[i]) !=
        static_cast<std::int64_t>(std::floor(scaled + 0.5)))
      return false;
    if (x.v64[i].toDouble() !=
        static_cast<double>(static_cast<std::int64_t>(storedOf(x.v64[i]))) *
            0x1p-20)
      return false;
  }
  return true;
}

void BM_Add64_RawInt64(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    std::int64_t r = x.a64[i & kMask] + x.b64[i & kMask];
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_Add64_DataValue(benchmark::State& state) {
  const Data& x = data();
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  std::size_t i = 0;
  for (auto _ : state) {
    DataValue r = x.va64[i & kMask].add(kS64, x.vb64[i & kMask], mc);
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_Add128_RawUInt128(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    UInt128 r = static_cast<UInt128>(x.a128[i & kMask]) +
                static_cast<UInt128>(x.b128[i & kMask]);
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_Add128_BoostInt256(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    int256_t r = x.a256[i & kMask] + x.b256[i & kMask];
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_Add128_DataValue(benchmark::State& state) {
  const Data& x = data();
  FXP::MathControl mc = FXP::MathControl::createFullPrecisionMathControl();
  std::size_t i = 0;
  for (auto _ : state) {
    DataValue r = x.va128[i & kMask].add(kS128, x.vb128[i & kMask], mc);
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_FromDouble_RawScaleRound(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    std::int64_t r =
        static_cast<std::int64_t>(std::floor(x.d[i & kMask] * 0x1p20 + 0.5));
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_FromDouble_DataValue(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    DataValue r = DataValue::fromDouble(kS64, x.d[i & kMask], FXP::MathMode());
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_ToDouble_RawConvertScale(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    double r = static_cast<double>(x.a64[i & kMask]) * 0x1p-20;
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

void BM_ToDouble_DataValue(benchmark::State& state) {
  const Data& x = data();
  std::size_t i = 0;
  for (auto _ : state) {
    double r = x.va64[i & kMask].toDouble();
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

BENCHMARK(BM_Add64_RawInt64);
BENCHMARK(BM_Add64_DataValue);
BENCHMARK(BM_Add128_RawUInt128);
BENCHMARK(BM_Add128_BoostInt256);
BENCHMARK(BM_Add128_DataValue);
BENCHMARK(BM_FromDouble_RawScaleRound);
BENCHMARK(BM_FromDouble_DataValue);
BENCHMARK(BM_ToDouble_RawConvertScale);
BENCHMARK(BM_ToDouble_DataValue);

}  // namespace

int main(int argc, char** argv) {
  if (!contendersAgree()) {
    std::fprintf(stderr, "kv_bench_fxp: contenders disagree; not timing\n");
    return 1;
  }
  return kvbench::runWithRatios(
      argc, argv,
      {{"BM_Add64_DataValue", "BM_Add64_RawInt64", "goal <= 4"},
       {"BM_Add128_DataValue", "BM_Add128_RawUInt128", "goal <= 4"},
       {"BM_Add128_DataValue", "BM_Add128_BoostInt256", ""},
       {"BM_FromDouble_DataValue", "BM_FromDouble_RawScaleRound",
        "goal: under 10 ns"},
       {"BM_ToDouble_DataValue", "BM_ToDouble_RawConvertScale",
        "goal: under 10 ns"}});
}
