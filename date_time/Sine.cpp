#include "date_time/Sine.hpp"

#include <bit>
#include <cmath>
#include <cstdint>

// A port of fdlibm's sine: the same reduction by pi/2, the same kernel
// polynomials and, above all, the same operations in the same order, since
// the point is to reproduce its last bit. The word tests below read the high
// 32 bits of a double as fdlibm does; bit_cast keeps that defined.
// This file is built without floating-point contraction: a fused
// multiply-add anywhere here changes results.

namespace KvDateTime::detail {
namespace {

constexpr double fromBits(std::uint64_t b) noexcept {
  return std::bit_cast<double>(b);
}

// High word with the sign bit cleared, and the signed high word.
inline std::uint32_t absHighWord(double x) noexcept {
  return static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(x) >> 32) &
         0x7fffffffu;
}
inline bool signBit(double x) noexcept {
  return (std::bit_cast<std::uint64_t>(x) >> 63) != 0;
}

// Kernel polynomials on [-pi/4, pi/4]; x + y is the reduced argument, y its
// tail below x's last bit.
constexpr double kS1 =
    fromBits(0xBFC5555555555549);  // -1.66666666666666324348e-01
constexpr double kS2 =
    fromBits(0x3F8111111110F8A6);  // 8.33333333332248946124e-03
constexpr double kS3 =
    fromBits(0xBF2A01A019C161D5);  // -1.98412698298579493134e-04
constexpr double kS4 =
    fromBits(0x3EC71DE357B1FE7D);  // 2.75573137070700676789e-06
constexpr double kS5 =
    fromBits(0xBE5AE5E68A2B9CEB);  // -2.50507602534068634195e-08
constexpr double kS6 =
    fromBits(0x3DE5D93A5ACFD57C);  // 1.58969099521155010221e-10

constexpr double kC1 =
    fromBits(0x3FA555555555554C);  // 4.16666666666666019037e-02
constexpr double kC2 =
    fromBits(0xBF56C16C16C15177);  // -1.38888888888741095749e-03
constexpr double kC3 =
    fromBits(0x3EFA01A019CB1590);  // 2.48015872894767294178e-05
constexpr double kC4 =
    fromBits(0xBE927E4F809C52AD);  // -2.75573143513906633035e-07
constexpr double kC5 =
    fromBits(0x3E21EE9EBDB4B1C4);  // 2.08757232129817482790e-09
constexpr double kC6 =
    fromBits(0xBDA8FAE9BE8838D4);  // -1.13596475577881948265e-11

// |x| < 2^-27 returns x itself: the polynomial would too, but fdlibm
// short-cuts it (raising inexact), and so do we to stay step for step.
inline double kernelSin(double x, double y, bool hasTail) noexcept {
  if (absHighWord(x) < 0x3e400000u) return x;
  const double z = x * x;
  const double v = z * x;
  const double r = kS2 + z * (kS3 + z * (kS4 + z * (kS5 + z * kS6)));
  if (!hasTail) return x + v * (kS1 + z * r);
  return x - ((z * (0.5 * y - v * r) - y) - v * kS1);
}

inline double kernelCos(double x, double y) noexcept {
  const std::uint32_t ix = absHighWord(x);
  if (ix < 0x3e400000u) return 1.0;  // |x| < 2^-27
  const double z = x * x;
  const double r =
      z * (kC1 + z * (kC2 + z * (kC3 + z * (kC4 + z * (kC5 + z * kC6)))));
  if (ix < 0x3FD33333u) return 1.0 - (0.5 * z - (z * r - x * y));  // < 0.3
  // Above 0.3, 1 - z/2 loses bits; fdlibm splits off qx, an exact value near
  // z/4 (x/2 squared, roughly), so that 1 - qx is exact.
  const double qx =
      ix > 0x3fe90000u
          ? 0.28125
          : fromBits(static_cast<std::uint64_t>(ix - 0x00200000u) << 32);
  const double hz = 0.5 * z - qx;
  const double a = 1.0 - qx;
  return a - (hz - (z * r - x * y));
}

// 2/pi in 24-bit chunks, enough for the largest double exponent.
constexpr std::int32_t kTwoOverPi[] = {
    0xA2F983, 0x6E4E44, 0x1529FC, 0x2757D1, 0xF534DD, 0xC0DB62, 0x95993C,
    0x439041, 0xFE5163, 0xABDEBB, 0xC561B7, 0x246E3A, 0x424DD2, 0xE00649,
    0x2EEA09, 0xD1921C, 0xFE1DEB, 0x1CB129, 0xA73EE8, 0x8235F5, 0x2EBB44,
    0x84E99C, 0x7026B4, 0x5F7E41, 0x3991D6, 0x398353, 0x39F49C, 0x845F8B,
    0xBDF928, 0x3B1FF8, 0x97FFDE, 0x05980F, 0xEF2F11, 0x8B5A0A, 0x6D1F6D,
    0x367ECF, 0x27CB09, 0xB74F46, 0x3F669E, 0x5FEA2D, 0x7527BA, 0xC7EBE5,
    0xF17B3D, 0x0739F7, 0x8A5292, 0xEA6BFB, 0x5FB11F, 0x8D5D08, 0x560330,
    0x46FC7B, 0x6BABF0, 0xCFBC20, 0x9AF436, 0x1DA9E3, 0x91615E, 0xE61B08,
    0x659985, 0x5F14A0, 0x68408D, 0xFFD880, 0x4D7327, 0x310606, 0x1556CA,
    0x73A8C9, 0x60E27B, 0xC08C6B};

// pi/2 in pieces of 24 significant bits.
constexpr double kPiOver2Chunks[] = {
    fromBits(0x3FF921FB40000000), fromBits(0x3E74442D00000000),
    fromBits(0x3CF8469880000000), fromBits(0x3B78CC5160000000),
    fromBits(0x39F01B8380000000), fromBits(0x387A252040000000),
    fromBits(0x36E3822280000000), fromBits(0x3569F31D00000000)};

constexpr double kTwo24 = 0x1p24;
constexpr double kTwoM24 = 0x1p-24;

// Payne-Hanek reduction for |x| >= 2^19 pi/2, fdlibm's __kernel_rem_pio2
// at its double-precision setting (a result in two parts, y[0] + y[1]).
// x[0..nx-1] are the 24-bit chunks of the argument scaled by 2^-e0. Returns
// the quotient modulo 8. Kept out of line: the TDB arguments never get here.
[[gnu::noinline, gnu::cold]] int remPio2Large(const double* x, double* y,
                                              int e0, int nx) noexcept {
  constexpr int jk = 4;  // terms of 2/pi beyond the argument's, to start
  constexpr int jp = jk;
  std::int32_t iq[20];
  double f[20], fq[20], q[20];

  const int jx = nx - 1;
  int jv = (e0 - 3) / 24;
  if (jv < 0) jv = 0;
  int q0 = e0 - 24 * (jv + 1);

  for (int i = 0, j = jv - jx; i <= jx + jk; ++i, ++j)
    f[i] = j < 0 ? 0.0 : static_cast<double>(kTwoOverPi[j]);
  for (int i = 0; i <= jk; ++i) {
    double fw = 0.0;
    for (int j = 0; j <= jx; ++j) fw += x[j] * f[jx + i - j];
    q[i] = fw;
  }

  int jz = jk;
  int n = 0, ih = 0;
  double z = 0.0;
  for (;;) {
    // Distil q[] into 24-bit integers, most significant last.
    int i = 0;
    z = q[jz];
    for (int j = jz; j > 0; ++i, --j) {
      const double fw = static_cast<double>(static_cast<int>(kTwoM24 * z));
      iq[i] = static_cast<std::int32_t>(z - kTwo24 * fw);
      z = q[j - 1] + fw;
    }

    z = std::scalbn(z, q0);
    z -= 8.0 * std::floor(z * 0.125);  // only n mod 8 matters
    n = static_cast<int>(z);
    z -= static_cast<double>(n);
    ih = 0;
    if (q0 > 0) {  // the integer part reaches into iq[jz - 1]
      const std::int32_t top = iq[jz - 1] >> (24 - q0);
      n += top;
      iq[jz - 1] -= top << (24 - q0);
      ih = iq[jz - 1] >> (23 - q0);
    } else if (q0 == 0) {
      ih = iq[jz - 1] >> 23;
    } else if (z >= 0.5) {
      ih = 2;
    }

    if (ih > 0) {  // fraction above one half: take 1 - fraction
      n += 1;
      int carry = 0;
      for (int k = 0; k < jz; ++k) {
        const std::int32_t j = iq[k];
        if (carry == 0) {
          if (j != 0) {
            carry = 1;
            iq[k] = 0x1000000 - j;
          }
        } else {
          iq[k] = 0xffffff - j;
        }
      }
      if (q0 == 1) iq[jz - 1] &= 0x7fffff;
      if (q0 == 2) iq[jz - 1] &= 0x3fffff;
      if (ih == 2) {
        z = 1.0 - z;
        if (carry != 0) z -= std::scalbn(1.0, q0);
      }
    }

    // A fraction that came out exactly zero so far means the argument is
    // very close to a multiple of pi/2: take more chunks of 2/pi.
    if (z != 0.0) break;
    std::int32_t any = 0;
    for (int k = jz - 1; k >= jk; --k) any |= iq[k];
    if (any != 0) break;
    int more = 1;
    while (iq[jk - more] == 0) ++more;
    for (int k = jz + 1; k <= jz + more; ++k) {
      f[jx + k] = static_cast<double>(kTwoOverPi[jv + k]);
      double fw = 0.0;
      for (int j = 0; j <= jx; ++j) fw += x[j] * f[jx + k - j];
      q[k] = fw;
    }
    jz += more;
  }

  // Drop zero chunks, or split the leading fraction into 24-bit ones.
  if (z == 0.0) {
    jz -= 1;
    q0 -= 24;
    while (iq[jz] == 0) {
      --jz;
      q0 -= 24;
    }
  } else {
    z = std::scalbn(z, -q0);
    if (z >= kTwo24) {
      const double fw = static_cast<double>(static_cast<int>(kTwoM24 * z));
      iq[jz] = static_cast<std::int32_t>(z - kTwo24 * fw);
      jz += 1;
      q0 += 24;
      iq[jz] = static_cast<std::int32_t>(fw);
    } else {
      iq[jz] = static_cast<std::int32_t>(z);
    }
  }

  double fw = std::scalbn(1.0, q0);
  for (int i = jz; i >= 0; --i) {
    q[i] = fw * static_cast<double>(iq[i]);
    fw *= kTwoM24;
  }
  for (int i = jz; i >= 0; --i) {
    fw = 0.0;
    for (int k = 0; k <= jp && k <= jz - i; ++k)
      fw += kPiOver2Chunks[k] * q[i + k];
    fq[jz - i] = fw;
  }

  fw = 0.0;
  for (int i = jz; i >= 0; --i) fw += fq[i];
  y[0] = ih == 0 ? fw : -fw;
  fw = fq[0] - fw;
  for (int i = 1; i <= jz; ++i) fw += fq[i];
  y[1] = ih == 0 ? fw : -fw;
  return n & 7;
}

// pi/2 in three pieces of 33 bits and their tails (the first piece times a
// quotient below 2^20 is exact).
constexpr double kInvPio2 = fromBits(0x3FE45F306DC9C883);
constexpr double kPio2_1 = fromBits(0x3FF921FB54400000);
constexpr double kPio2_1t = fromBits(0x3DD0B4611A626331);
constexpr double kPio2_2 = fromBits(0x3DD0B4611A600000);
constexpr double kPio2_2t = fromBits(0x3BA3198A2E037073);
constexpr double kPio2_3 = fromBits(0x3BA3198A2E000000);
constexpr double kPio2_3t = fromBits(0x397B839A252049C1);

// High words of n pi/2 for n = 1..32: an argument sharing one with its
// nearest multiple may cancel badly and gets the longer check.
constexpr std::uint32_t kNPio2HighWords[] = {
    0x3FF921FB, 0x400921FB, 0x4012D97C, 0x401921FB, 0x401F6A7A, 0x4022D97C,
    0x4025FDBB, 0x402921FB, 0x402C463A, 0x402F6A7A, 0x4031475C, 0x4032D97C,
    0x40346B9C, 0x4035FDBB, 0x40378FDB, 0x403921FB, 0x403AB41B, 0x403C463A,
    0x403DD85A, 0x403F6A7A, 0x40407E4C, 0x4041475C, 0x4042106C, 0x4042D97C,
    0x4043A28C, 0x40446B9C, 0x404534AC, 0x4045FDBB, 0x4046C6CB, 0x40478FDB,
    0x404858EB, 0x404921FB};

// x - n pi/2 = y[0] + y[1], |y| <= pi/4 (about); returns n. For finite x
// above pi/4 in magnitude.
inline int remPio2(double x, double* y) noexcept {
  const std::uint32_t ix = absHighWord(x);
  const bool negative = signBit(x);

  if (ix < 0x4002d97cu) {  // |x| < 3pi/4: n is 1 or -1
    // Right next to pi/2 the 33 + 53-bit pi/2 is not enough.
    const bool nearPio2 = ix == 0x3ff921fbu;
    if (!negative) {
      double z = x - kPio2_1;
      if (!nearPio2) {
        y[0] = z - kPio2_1t;
        y[1] = (z - y[0]) - kPio2_1t;
      } else {
        z -= kPio2_2;
        y[0] = z - kPio2_2t;
        y[1] = (z - y[0]) - kPio2_2t;
      }
      return 1;
    }
    double z = x + kPio2_1;
    if (!nearPio2) {
      y[0] = z + kPio2_1t;
      y[1] = (z - y[0]) + kPio2_1t;
    } else {
      z += kPio2_2;
      y[0] = z + kPio2_2t;
      y[1] = (z - y[0]) + kPio2_2t;
    }
    return -1;
  }

  if (ix <= 0x413921fbu) {  // |x| up to about 2^19 pi/2
    const double t = std::abs(x);
    const int n = static_cast<int>(t * kInvPio2 + 0.5);
    const double fn = static_cast<double>(n);
    double r = t - fn * kPio2_1;
    double w = fn * kPio2_1t;  // good to 85 bits
    y[0] = r - w;
    if (!(n < 32 && ix != kNPio2HighWords[n - 1])) {
      // Count the bits cancelled; refine with the next pieces of pi/2.
      const int j = static_cast<int>(ix >> 20);
      int i = j - static_cast<int>((absHighWord(y[0]) >> 20) & 0x7ffu);
      if (i > 16) {  // good to 118 bits
        double t2 = r;
        w = fn * kPio2_2;
        r = t2 - w;
        w = fn * kPio2_2t - ((t2 - r) - w);
        y[0] = r - w;
        i = j - static_cast<int>((absHighWord(y[0]) >> 20) & 0x7ffu);
        if (i > 49) {  // good to 151 bits
          t2 = r;
          w = fn * kPio2_3;
          r = t2 - w;
          w = fn * kPio2_3t - ((t2 - r) - w);
          y[0] = r - w;
        }
      }
    }
    y[1] = (r - y[0]) - w;
    if (negative) {
      y[0] = -y[0];
      y[1] = -y[1];
      return -n;
    }
    return n;
  }

  // Large: |x| scaled to [2^23, 2^24) and cut into three 24-bit chunks.
  const int e0 = static_cast<int>(ix >> 20) - 1046;
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(x);
  double z = fromBits(
      (static_cast<std::uint64_t>(ix - (static_cast<std::uint32_t>(e0) << 20))
       << 32) |
      (bits & 0xffffffffu));
  double tx[3];
  for (int i = 0; i < 2; ++i) {
    tx[i] = static_cast<double>(static_cast<int>(z));
    z = (z - tx[i]) * kTwo24;
  }
  tx[2] = z;
  int nx = 3;
  while (tx[nx - 1] == 0.0) --nx;
  const int n = remPio2Large(tx, y, e0, nx);
  if (negative) {
    y[0] = -y[0];
    y[1] = -y[1];
    return -n;
  }
  return n;
}

}  // namespace

double fdlibmSin(double x) noexcept {
  const std::uint32_t ix = absHighWord(x);
  if (ix <= 0x3fe921fbu) return kernelSin(x, 0.0, false);  // |x| <= pi/4
  if (ix >= 0x7ff00000u) return x - x;                     // NaN, +-inf
  double y[2];
  const int n = remPio2(x, y);
  switch (n & 3) {
    case 0:
      return kernelSin(y[0], y[1], true);
    case 1:
      return kernelCos(y[0], y[1]);
    case 2:
      return -kernelSin(y[0], y[1], true);
    default:
      return -kernelCos(y[0], y[1]);
  }
}

double tdbMinusTtSeconds(double t) noexcept {
  const double s1 = fdlibmSin(628.3076 * t + 6.2401);
  const double s2 = fdlibmSin(575.3385 * t + 4.297);
  const double s3 = fdlibmSin(1256.6152 * t + 6.1969);
  const double s4 = fdlibmSin(606.9777 * t + 4.0212);
  const double s5 = fdlibmSin(52.9691 * t + 0.4444);
  const double s6 = fdlibmSin(21.3299 * t + 5.5431);
  const double s7 = fdlibmSin(628.3076 * t + 4.249);
  // The order of the sums is part of the result: a different grouping moves
  // the last bit, and TDB values are compared bit for bit across platforms.
  const double a = (1.4e-05 * s3 + 0.001657 * s1) + 2.2e-05 * s2;
  return ((((s7 * t) * 1e-05 + 5e-06 * s5) + a) + 5e-06 * s4) + 2e-06 * s6;
}

}  // namespace KvDateTime::detail
