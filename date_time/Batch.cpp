#include "date_time/Batch.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "date_time/BatchPaths.hpp"
#include "date_time/CalendarCore.hpp"
#include "date_time/Clock.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/MathControl.hpp"

// How the loops are built. The double-storage conversions run in chunks:
// one loop over the chunk computes every element as if it were ordinary,
// with no branch and no call, in plain double arithmetic that the compiler
// turns into vector code; it marks the elements it cannot vouch for (out of
// the fast path's range, a leap-second flag, a value the table's cursor
// does not cover). A second, scalar pass gives those elements to the scalar
// library call, so that every odd case, every failure and its diagnostic
// are the scalar call's own, in element order. Where the scalar code rounds
// (the split of a value, its fraction, TT's 0.184 s, the final sums) the
// fast loop does the same IEEE operation in the same order, and the file is
// built without contraction into fused multiply-adds; everything else is
// whole-number arithmetic, exact in doubles below 2^53. So both give the
// same bits.
//
// Everything else (fixed-point storage, day epochs, the rarer standard
// pairs) loops over the scalar calls, its type and standard chosen once per
// call.

namespace KvDateTime::Batch {

using detail::Path;

namespace {

// Elements per chunk: the chunk's columns (six of doubles, one of marks)
// stay in the first-level cache.
constexpr std::size_t kChunk = 256;

void requireSize(bool ok, const char* what) {
  if (!ok) throw std::invalid_argument(what);
}

void checkFlagsIn(std::span<const bool> flags, std::size_t n) {
  requireSize(flags.empty() || flags.size() == n,
              "KvDateTime::Batch: the leap-second flags must be one a value "
              "or none");
}
void checkFlagsOut(std::span<bool> flags, std::size_t n) {
  requireSize(flags.empty() || flags.size() == n,
              "KvDateTime::Batch: the leap-second flags out must be one a "
              "value or none");
}

std::size_t valuesIn(std::span<const std::byte> bytes,
                     const FXP::DataType& type) {
  requireSize(bytes.size() % type.sizeofCompact() == 0,
              "KvDateTime::Batch: the stored bytes are not a whole number of "
              "compact values");
  return bytes.size() / type.sizeofCompact();
}

// --- Reading and writing stored values ---------------------------------

// A double read as the compact form of a double: NaN and the infinities
// are refused exactly as the host refuses their bytes.
inline FXP::DataValue storedDouble(double v) {
  return FXP::DataValue::fromCompact(FXP::DataType::doubleT(), &v);
}

struct DoubleIn {
  const double* data;
  FXP::DataValue operator()(std::size_t i) const {
    return storedDouble(data[i]);
  }
};
struct DoubleOut {
  double* data;
  void operator()(std::size_t i, const FXP::DataValue& v) const {
    data[i] = v.toDouble();
  }
};
// The compact size as a template argument: the loop's stride is a constant.
template <std::size_t Size>
struct CompactIn {
  const std::byte* data;
  FXP::DataType type;
  FXP::DataValue operator()(std::size_t i) const {
    return FXP::DataValue::fromCompact(type, data + Size * i);
  }
};
template <std::size_t Size>
struct CompactOut {
  std::byte* data;
  void operator()(std::size_t i, const FXP::DataValue& v) const {
    v.toCompact(data + Size * i, Size);
  }
};

// Calls f with the reader and writer of `type`'s compact size.
template <typename F>
void forCompactSize(const FXP::DataType& type, const std::byte* in,
                    std::byte* out, F&& f) {
  switch (type.sizeofCompact()) {
    case 1:
      return f(CompactIn<1>{in, type}, CompactOut<1>{out});
    case 2:
      return f(CompactIn<2>{in, type}, CompactOut<2>{out});
    case 4:
      return f(CompactIn<4>{in, type}, CompactOut<4>{out});
    case 8:
      return f(CompactIn<8>{in, type}, CompactOut<8>{out});
    default:
      return f(CompactIn<16>{in, type}, CompactOut<16>{out});
  }
}

inline bool flagAt(std::span<const bool> flags, std::size_t i) {
  return !flags.empty() && flags[i];
}

inline DateTimeStruct rowAt(const double* row) {
  // Unchecked: the record's own constructor would validate.
  return DateTimeStruct::unchecked(row[0], row[1], row[2], row[3], row[4],
                                   row[5]);
}

// --- The scalar calls, one element each ----------------------------------

template <typename In>
void readingOne(const In& in, std::size_t i, std::span<const bool> flags,
                Epoch epoch, TimeStandard ts, double* out) {
  try {
    KvDateTime::detail::putRow(
        out + 6 * i,
        Clock::readingOf(DateTime(DvLs{in(i), flagAt(flags, i)}, epoch, ts)));
  } catch (...) {
    Korvane::DateTime::throwBatchElementFailed(i);
  }
}

template <typename In>
void toCalendarOne(const In& in, std::size_t i, std::span<const bool> flags,
                   Epoch epoch, TimeStandard ts, double* out) {
  try {
    KvDateTime::detail::putRow(out + 6 * i,
                               DateTime::convertDVToDateTimeStruct(
                                   DvLs{in(i), flagAt(flags, i)}, epoch, ts));
  } catch (...) {
    Korvane::DateTime::throwBatchElementFailed(i);
  }
}

template <typename Out>
void fromCalendarOne(const double* calendar, std::size_t i, bool checked,
                     Epoch epoch, TimeStandard ts, const FXP::DataType& type,
                     const Out& out, std::span<bool> flags) {
  try {
    const double* row = calendar + 6 * i;
    const DateTimeStruct cal = rowAt(row);
    if (checked) {
      for (int f = 0; f < 6; ++f)
        if (!std::isfinite(row[f]))
          throw std::invalid_argument(
              "a calendar field is not a finite number");
      Korvane::DateTime::throwIfSet(
          DateTimeUtilities::validateDateTime(cal.toArray(), ts));
      if (!DateTime::isValueInRangeOfType(cal, epoch, ts, type))
        throw std::overflow_error(
            "the reading counted from the epoch does not fit the storage "
            "type");
    }
    // A checked leap second must also be one the schedule inserts and the
    // type keeps inside itself, as the clock's checked time point says.
    const DvLs v =
        checked && ts == TimeStandard::UTC && cal.second >= 60.0
            ? Clock::timePointFrom(cal, ts, epoch, type)
            : DateTime::convertDateTimeStructToDV(cal, epoch, ts, type);
    out(i, v.value);
    if (!flags.empty()) flags[i] = v.isLeapSecond;
  } catch (...) {
    Korvane::DateTime::throwBatchElementFailed(i);
  }
}

// --- Standard conversion with the call's own cursor ----------------------

// The scalar conversion of one value after another, with one cursor. The
// library's cursor only moves forward, which suits a clock; values may come
// in any order, so when a value lies below the one before, the cursor goes
// back to the last entry whose instant lies below it. Every entry before
// that one is half a year or more below the value and so passed for
// certain; the last one is judged again.
class Stepper {
 public:
  Stepper(const LeapSecondTableData& table, TimeStandard from, TimeStandard to,
          Epoch epoch)
      : table_(table),
        from_(from),
        to_(to),
        epoch_(epoch),
        convert_(TimeStandardConverter::getStaticConverterImpl(from, to)),
        instants_((from == TimeStandard::TAI || from == TimeStandard::TT)
                      ? table.taiInstants
                      : table.utcInstants),
        control_(FXP::MathControl::createFullPrecisionNearSatMathControl()),
        // A table whose instants do not strictly increase (instants before
        // the epoch saturated to 0 in an unsigned type) has no position a
        // cursor could keep: every value is looked up from the start, as
        // the call without a cursor does.
        useCursor_(std::adjacent_find(
                       instants_.begin(), instants_.end(),
                       [](const FXP::DataValue& a, const FXP::DataValue& b) {
                         return !(a < b);
                       }) == instants_.end()) {
    control_.setMathLogger(&overflow_);
  }
  // Not copyable: the control points at this object's logger.
  Stepper(const Stepper&) = delete;
  Stepper& operator=(const Stepper&) = delete;

  DvLs operator()(const DvLs& v) {
    if (started_ && v.value < previous_) {
      const auto below =
          std::lower_bound(instants_.begin(), instants_.end(), v.value) -
          instants_.begin();
      cursor_ = static_cast<std::uint32_t>(below > 0 ? below - 1 : 0);
    }
    started_ = true;
    previous_ = v.value;
    const DvLs r = convert_(v, table_, from_, to_, epoch_, control_,
                            useCursor_ ? &cursor_ : nullptr, false);
    if (overflow_.overflowOccurred())
      throw std::overflow_error("the result does not fit the storage type");
    return r;
  }

 private:
  const LeapSecondTableData& table_;
  TimeStandard from_, to_;
  Epoch epoch_;
  TimeStandardConverter::StaticConverterImpl convert_;
  const std::vector<FXP::DataValue>& instants_;
  FixptRangeMath::FixptRangeMathLogger overflow_;
  FXP::MathControl control_;
  const bool useCursor_;
  std::uint32_t cursor_ = 0;
  bool started_ = false;
  FXP::DataValue previous_;
};

template <typename In, typename Out>
void convertOne(const In& in, const Out& out, std::size_t i,
                std::span<const bool> flags, std::span<bool> flagsOut,
                Stepper& step) {
  try {
    const DvLs r = step(DvLs{in(i), flagAt(flags, i)});
    out(i, r.value);
    if (!flagsOut.empty()) flagsOut[i] = r.isLeapSecond;
  } catch (...) {
    Korvane::DateTime::throwBatchElementFailed(i);
  }
}

// --- The fast loops ------------------------------------------------------

#define KVDT_INLINE [[gnu::always_inline]] inline

// floor(a / b) and the rest, for whole a in [0, 2^52) and whole b in
// [1, 2^24) whose quotient is below 2^24 (every use here). (a + 0.5) / b
// lies at least 0.5 / b from any whole number, much farther than the
// product with the rounded reciprocal can stray (a relative 2^-52), so its
// floor is the quotient and the rest is exact. No division and no fix-up:
// a vector division costs as much as the rest of a chunk's arithmetic.
struct QuotRem {
  double q, r;
};
KVDT_INLINE QuotRem floorDiv(double a, double b) {
  const double q = std::floor((a + 0.5) * (1.0 / b));
  return {q, a - q * b};
}

// The calendar's first and last day, counted from 1970-01-01.
constexpr std::int64_t kFirstDay =
    KvDateTime::detail::daysFromCivil(1400, 1, 1);
constexpr std::int64_t kLastDay =
    KvDateTime::detail::daysFromCivil(9999, 12, 31);
// The day count shifted to 0000-03-01, where the civil algorithm starts.
constexpr double kMarchZero = 719468.0;

// Four doubles as one value of the compiler's vector extension: a shuffle of
// two of them is one or two instructions on every path.
typedef double Quad __attribute__((vector_size(32)));
// (By reference: a vector passed by value would change the calling
// convention between the paths.)
KVDT_INLINE void loadQuad(Quad& q, const double* p) {
  std::memcpy(&q, p, sizeof q);
}
KVDT_INLINE void storeQuad(double* p, const Quad& q) {
  std::memcpy(p, &q, sizeof q);
}

// Stored seconds to the calendar, as detail::calendarOf computes it, for
// values whose whole seconds it takes without a diagnostic.
struct ToCalendarArgs {
  const double* in;
  std::size_t n;
  double offset;  // seconds from the calendar's 1400-01-01 to floor(value)'s 0
  bool tt;
  double* cols;  // six columns of kChunk
  std::int64_t* unusual;
  std::int64_t* any;  // set to the OR of the marks
  double* out;        // n rows of six
};

template <bool TT>
KVDT_INLINE void chunk(const ToCalendarArgs& a) {
  constexpr double kBelowOne = 0x1.fffffffffffffp-1;
  constexpr double kSpan = double((kLastDay - kFirstDay + 1) * 86400);
  // Locals the compiler can see are not written by the loop's stores.
  const std::size_t n = a.n;
  const double offset = a.offset;
  const double* __restrict in = a.in;
  std::int64_t* __restrict unusual = a.unusual;
  std::int64_t any = 0;
  double* __restrict year = a.cols;
  double* __restrict month = a.cols + kChunk;
  double* __restrict day = a.cols + 2 * kChunk;
  double* __restrict hour = a.cols + 3 * kChunk;
  double* __restrict minute = a.cols + 4 * kChunk;
  double* __restrict second = a.cols + 5 * kChunk;
  double* __restrict out = a.out;
  for (std::size_t i = 0; i < n; ++i) {
    const double v = in[i];
    const double mag = std::fabs(v);
    // The split's own fast path (DateTime::splitStorageValue) holds from
    // 2^-11 up; beyond 2^40 s no value reads as a year of the calendar.
    const bool plain = (v == 0.0) | ((mag >= 0x1p-11) & (mag < 0x1p40));
    const double x = plain ? v : 0.0;
    const double whole = std::floor(x);
    double frac = x - whole;
    frac = frac < kBelowOne ? frac : kBelowOne;
    double t = whole + offset;
    if constexpr (TT) {
      const double f = frac + 0.184;
      const bool carry = f >= 1.0;
      frac = carry ? f - 1.0 : f;
      t += carry ? 33.0 : 32.0;
    }
    const bool inRange = (t >= 0.0) & (t < kSpan);
    const std::int64_t mark = !(plain & inRange);
    unusual[i] = mark;
    any |= mark;
    t = inRange ? t : 0.0;
    const QuotRem days = floorDiv(t, 86400.0);  // [0, 3.2e6), [0, 86400)
    // detail::civilFromDays in doubles: every product stays below 2^53.
    const double z = days.q + double(kFirstDay) + kMarchZero;
    const QuotRem century = floorDiv(4.0 * z + 3.0, 146097.0);
    const double n2 = 4.0 * std::floor(century.r * 0.25) + 3.0;
    const double p2 = 2939745.0 * n2;
    const double yearOfCentury = std::floor(p2 * 0x1p-32);
    const double dayOfYear =
        floorDiv(p2 - yearOfCentury * 0x1p32, 4.0 * 2939745.0).q;
    const double n3 = 2141.0 * dayOfYear + 197913.0;
    const double m3 = std::floor(n3 * 0x1p-16);
    const bool janFeb = dayOfYear >= 306.0;
    year[i] = 100.0 * century.q + yearOfCentury + (janFeb ? 1.0 : 0.0);
    month[i] = janFeb ? m3 - 12.0 : m3;
    day[i] = floorDiv(n3 - m3 * 0x1p16, 2141.0).q + 1.0;
    const QuotRem h = floorDiv(days.r, 3600.0);
    const QuotRem m = floorDiv(h.r, 60.0);
    hour[i] = h.q;
    minute[i] = m.q;
    second[i] = m.r + frac;
  }
  *a.any = any;
  // Columns to rows four at a time, by shuffles of whole vectors: one
  // store a row field by field would be six.
  std::size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    Quad y, mo, d, h, mi, s;
    loadQuad(y, year + i);
    loadQuad(mo, month + i);
    loadQuad(d, day + i);
    loadQuad(h, hour + i);
    loadQuad(mi, minute + i);
    loadQuad(s, second + i);
    const Quad ym01 = __builtin_shufflevector(y, mo, 0, 4, 1, 5);
    const Quad ym23 = __builtin_shufflevector(y, mo, 2, 6, 3, 7);
    const Quad dh01 = __builtin_shufflevector(d, h, 0, 4, 1, 5);
    const Quad dh23 = __builtin_shufflevector(d, h, 2, 6, 3, 7);
    const Quad ms01 = __builtin_shufflevector(mi, s, 0, 4, 1, 5);
    const Quad ms23 = __builtin_shufflevector(mi, s, 2, 6, 3, 7);
    double* row = out + 6 * i;
    storeQuad(row, Quad(__builtin_shufflevector(ym01, dh01, 0, 1, 4, 5)));
    storeQuad(row + 4, Quad(__builtin_shufflevector(ms01, ym01, 0, 1, 6, 7)));
    storeQuad(row + 8, Quad(__builtin_shufflevector(dh01, ms01, 2, 3, 6, 7)));
    storeQuad(row + 12, Quad(__builtin_shufflevector(ym23, dh23, 0, 1, 4, 5)));
    storeQuad(row + 16, Quad(__builtin_shufflevector(ms23, ym23, 0, 1, 6, 7)));
    storeQuad(row + 20, Quad(__builtin_shufflevector(dh23, ms23, 2, 3, 6, 7)));
  }
  for (; i < n; ++i) {
    double* row = out + 6 * i;
    row[0] = year[i];
    row[1] = month[i];
    row[2] = day[i];
    row[3] = hour[i];
    row[4] = minute[i];
    row[5] = second[i];
  }
}

// Calendar rows to stored seconds, as detail::ordinaryReading and
// detail::epochTimeOf and the double sum of DateTime's constructor compute
// them, for the readings the ordinary test passes.
struct FromCalendarArgs {
  const double* in;  // n rows of six
  std::size_t n;
  double epochDay;     // the epoch's day from 1970-01-01
  double epochSecond;  // less the standard's whole-second shift
  bool tt;
  double* cols;  // six columns of kChunk
  std::int64_t* unusual;
  std::int64_t* any;  // set to the OR of the marks
  double* out;
};

template <bool TT>
KVDT_INLINE void chunk(const FromCalendarArgs& a) {
  constexpr double kBelowSixty = 0x1.dffffffffffffp5;
  const std::size_t n = a.n;
  const double epochDay = a.epochDay, epochSecond = a.epochSecond;
  const double* __restrict in = a.in;
  std::int64_t* __restrict unusual = a.unusual;
  std::int64_t any = 0;
  double* __restrict out = a.out;
  double* __restrict cols = a.cols;
  // Rows into columns first: the vector loop below then reads each field
  // with unit stride.
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t f = 0; f < 6; ++f) cols[f * kChunk + i] = in[6 * i + f];
  for (std::size_t i = 0; i < n; ++i) {
    const double y = cols[i], mo = cols[kChunk + i], d = cols[2 * kChunk + i],
                 h = cols[3 * kChunk + i], mi = cols[4 * kChunk + i],
                 s = cols[5 * kChunk + i];
    const bool inRange = (y >= double(KvDateTime::detail::kFirstYear)) &
                         (y <= double(KvDateTime::detail::kLastYear)) &
                         (mo >= 1.0) & (mo <= 12.0) & (d >= 1.0) & (d <= 31.0) &
                         (h >= 0.0) & (h <= 23.0) & (mi >= 0.0) & (mi <= 59.0) &
                         (s >= 0.0) & (s <= kBelowSixty);
    // Out-of-range fields are replaced before any arithmetic sees them.
    const double yy = inRange ? y : 2000.0, mm = inRange ? mo : 1.0,
                 dd = inRange ? d : 1.0, hh = inRange ? h : 0.0,
                 mn = inRange ? mi : 0.0, ss = inRange ? s : 0.0;
    const double sWhole = std::floor(ss);
    const bool whole = (std::floor(yy) == yy) & (std::floor(mm) == mm) &
                       (std::floor(dd) == dd) & (std::floor(hh) == hh) &
                       (std::floor(mn) == mn);
    // detail::isLeapYear and detail::monthLength, as selects of doubles.
    const double r4 = yy - 4.0 * std::floor(yy * 0.25);
    const double r100 = floorDiv(yy, 100.0).r, r400 = floorDiv(yy, 400.0).r;
    const double february = r400 == 0.0   ? 29.0
                            : r100 == 0.0 ? 28.0
                            : r4 == 0.0   ? 29.0
                                          : 28.0;
    const double odd = mm - 2.0 * std::floor(mm * 0.5);
    const double length = mm == 2.0  ? february
                          : mm < 8.0 ? 30.0 + odd
                                     : 31.0 - odd;
    // A bit per reason, each a select: written as one negated conjunction
    // the mark came out as branches, and the loop was not vectorised.
    const std::int64_t mark =
        (inRange ? 0 : 1) | (whole ? 0 : 2) | (dd <= length ? 0 : 4);
    unusual[i] = mark;
    any |= mark;
    // KvDateTime::detail::daysFromCivil.
    const bool janFeb = mm <= 2.0;
    const double ym = janFeb ? yy - 1.0 : yy;
    const double mMarch = janFeb ? mm + 12.0 : mm;
    const double century = floorDiv(ym, 100.0).q;
    const double yearDays =
        std::floor(1461.0 * ym * 0.25) - century + std::floor(century * 0.25);
    const double monthDays = std::floor((979.0 * mMarch - 2919.0) * 0x1p-5);
    const double days = yearDays + monthDays - kMarchZero + dd - 1.0;
    double wholeSeconds = (days - epochDay) * 86400.0 + hh * 3600.0 +
                          mn * 60.0 + sWhole - epochSecond;
    double frac = ss - sWhole;
    if constexpr (TT) {
      frac -= 0.184;
      const bool borrow = frac < 0.0;
      frac = borrow ? frac + 1.0 : frac;
      wholeSeconds -= borrow ? 33.0 : 32.0;
    }
    out[i] = (wholeSeconds + frac) + 0.0;
  }
  *a.any = any;
}

// A chunk loop with TT's 0.184 s shift compiled in or out, picked once.
template <typename A>
struct TtKernel {
  using Args = A;
  KVDT_INLINE static void run(const Args& a) {
    if (a.tt)
      chunk<true>(a);
    else
      chunk<false>(a);
  }
};
using ToCalendarKernel = TtKernel<ToCalendarArgs>;
using FromCalendarKernel = TtKernel<FromCalendarArgs>;

// UTC to TAI or TT within one stretch of the table: every value between two
// consecutive thresholds (an entry's instant + 1 s) has the same shift.
struct ShiftArgs {
  const double* in;
  const bool* flags;  // or null
  std::size_t n;
  double low, high;  // the stretch: low <= value < high
  double shift, shiftFlagged;
  std::int64_t* unusual;
  std::int64_t* any;  // set to the OR of the marks
  double* out;
};

struct ShiftKernel {
  using Args = ShiftArgs;
  KVDT_INLINE static void run(const Args& a) {
    const std::size_t n = a.n;
    const double low = a.low, high = a.high, shift = a.shift,
                 shiftFlagged = a.shiftFlagged;
    const double* __restrict in = a.in;
    std::int64_t* __restrict unusual = a.unusual;
    std::int64_t any = 0;
    double* __restrict out = a.out;
    if (a.flags == nullptr) {
      for (std::size_t i = 0; i < n; ++i) {
        const double v = in[i];
        const double r = v + shift;
        const std::int64_t mark = !((v >= low) & (v < high) & (r - r == 0.0));
        unusual[i] = mark;
        any |= mark;
        out[i] = r + 0.0;
      }
      *a.any = any;
      return;
    }
    const bool* __restrict flags = a.flags;
    for (std::size_t i = 0; i < n; ++i) {
      const double v = in[i];
      const double r = v + (flags[i] ? shiftFlagged : shift);
      const std::int64_t mark = !((v >= low) & (v < high) & (r - r == 0.0));
      unusual[i] = mark;
      any |= mark;
      out[i] = r + 0.0;
    }
    *a.any = any;
  }
};

// GCC would otherwise keep to 256-bit vectors; clang takes no such option.
#if defined(__clang__)
#define KVDT_AVX512_TARGET "avx512f,avx512dq,avx512vl,avx512bw"
#else
#define KVDT_AVX512_TARGET \
  "avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512"
#endif

template <typename K>
[[gnu::noinline]] void runPortable(const typename K::Args& a) {
  K::run(a);
}
template <typename K>
[[gnu::noinline, gnu::target("avx2")]] void runAvx2(const typename K::Args& a) {
  K::run(a);
}
template <typename K>
[[gnu::noinline, gnu::target(KVDT_AVX512_TARGET)]] void runAvx512(
    const typename K::Args& a) {
  K::run(a);
}

template <typename K>
void runOn(Path path, const typename K::Args& a) {
  switch (path) {
    case Path::Avx512:
      return runAvx512<K>(a);
    case Path::Avx2:
      return runAvx2<K>(a);
    case Path::Portable:
      break;
  }
  runPortable<K>(a);
}

constexpr bool isTaiOrTt(TimeStandard ts) noexcept {
  return (static_cast<std::int32_t>(ts) & ~2) == 0;
}

// The standards the calendar functions know; any other reads like TAI
// there, and goes to the scalar calls here.
constexpr bool knownStandard(TimeStandard ts) noexcept {
  return static_cast<std::uint32_t>(ts) <= 3u;
}

}  // namespace

// --- Entry points ----------------------------------------------------------

namespace detail {

bool pathSupported(Path path) noexcept {
  switch (path) {
    case Path::Avx512:
      return __builtin_cpu_supports("avx512f") &&
             __builtin_cpu_supports("avx512dq") &&
             __builtin_cpu_supports("avx512vl") &&
             __builtin_cpu_supports("avx512bw");
    case Path::Avx2:
      return __builtin_cpu_supports("avx2");
    case Path::Portable:
      break;
  }
  return true;
}

Path widestPath() noexcept {
  static const Path widest = pathSupported(Path::Avx512) ? Path::Avx512
                             : pathSupported(Path::Avx2) ? Path::Avx2
                                                         : Path::Portable;
  return widest;
}

void toCalendarOn(Path path, std::span<const double> stored, Epoch epoch,
                  TimeStandard ts, std::span<double> out,
                  std::span<const bool> leapSecond) {
  const std::size_t n = stored.size();
  requireSize(out.size() == 6 * n,
              "KvDateTime::Batch::toCalendar: out must hold six doubles a "
              "value");
  checkFlagsIn(leapSecond, n);
  const DoubleIn in{stored.data()};
  if (DateTimeUtilities::isJulianCompatibleEpoch(epoch) || !knownStandard(ts)) {
    for (std::size_t i = 0; i < n; ++i)
      toCalendarOne(in, i, leapSecond, epoch, ts, out.data());
    return;
  }
  const KvDateTime::detail::EpochInstant& ref =
      KvDateTime::detail::epochReference(epoch);
  double columns[6 * kChunk];
  std::int64_t unusual[kChunk];
  std::int64_t any = 0;
  ToCalendarArgs a{};
  a.offset = double((ref.day - kFirstDay) * 86400 + ref.secondOfDay -
                    (ts == TimeStandard::UTC ? 10 : 0));
  a.tt = ts == TimeStandard::TT;
  a.cols = columns;
  a.unusual = unusual;
  a.any = &any;
  for (std::size_t start = 0; start < n; start += kChunk) {
    a.in = stored.data() + start;
    a.n = std::min(kChunk, n - start);
    a.out = out.data() + 6 * start;
    runOn<ToCalendarKernel>(path, a);
    if (any == 0 && leapSecond.empty()) continue;
    for (std::size_t j = 0; j < a.n; ++j)
      if (unusual[j] || flagAt(leapSecond, start + j))
        toCalendarOne(in, start + j, leapSecond, epoch, ts, out.data());
  }
}

void fromCalendarOn(Path path, bool checked, std::span<const double> calendar,
                    Epoch epoch, TimeStandard ts, std::span<double> stored,
                    std::span<bool> leapSecond) {
  const std::size_t n = stored.size();
  requireSize(calendar.size() == 6 * n,
              "KvDateTime::Batch::fromCalendar: the calendar must hold six "
              "doubles a value");
  checkFlagsOut(leapSecond, n);
  const DoubleOut out{stored.data()};
  const FXP::DataType type = FXP::DataType::doubleT();
  if (DateTimeUtilities::isJulianCompatibleEpoch(epoch) || !knownStandard(ts)) {
    for (std::size_t i = 0; i < n; ++i)
      fromCalendarOne(calendar.data(), i, checked, epoch, ts, type, out,
                      leapSecond);
    return;
  }
  const KvDateTime::detail::EpochInstant& ref =
      KvDateTime::detail::epochReference(epoch);
  double columns[6 * kChunk];
  std::int64_t unusual[kChunk];
  std::int64_t any = 0;
  FromCalendarArgs a{};
  a.cols = columns;
  a.epochDay = double(ref.day);
  a.epochSecond =
      double(ref.secondOfDay) - (ts == TimeStandard::UTC ? 10.0 : 0.0);
  a.tt = ts == TimeStandard::TT;
  a.unusual = unusual;
  a.any = &any;
  for (std::size_t start = 0; start < n; start += kChunk) {
    a.in = calendar.data() + 6 * start;
    a.n = std::min(kChunk, n - start);
    a.out = stored.data() + start;
    runOn<FromCalendarKernel>(path, a);
    if (!leapSecond.empty())
      std::fill_n(leapSecond.begin() + start, a.n, false);
    if (any == 0) continue;
    for (std::size_t j = 0; j < a.n; ++j)
      if (unusual[j])
        fromCalendarOne(calendar.data(), start + j, checked, epoch, ts, type,
                        out, leapSecond);
  }
}

namespace {

// The thresholds and shifts of the UTC-to-TAI/TT fast loop, or false where
// the table or the pair needs the scalar calls: a removed second (which
// needs its own test), instants out of order, a negative shift, or more
// entries than the call's own room on the stack (a real schedule has 28).
constexpr std::size_t kMaxStretchEntries = 256;

struct ShiftTable {
  std::size_t size = 0;
  double thresholds[kMaxStretchEntries];  // entry i is passed from here on
  // Per number of passed entries, without and with the input's flag.
  double shift[kMaxStretchEntries + 1], shiftFlagged[kMaxStretchEntries + 1];
};

bool buildShiftTable(const LeapSecondTableData& table, Epoch epoch,
                     TimeStandard from, TimeStandard to, ShiftTable& s) {
  if (isTaiOrTt(from) || !isTaiOrTt(to) ||
      !table.negativeLeapSecondInstants.empty())
    return false;
  const std::size_t size =
      std::min(table.utcInstants.size(), table.cumulativeCounts.size());
  if (size > kMaxStretchEntries) return false;
  const bool julian = DateTimeUtilities::isJulianCompatibleEpoch(epoch);
  const double one = DateTimeUtilities::secondsToTimeShift(1.0, julian);
  s.size = size;
  for (std::size_t i = 0; i < size; ++i) {
    const FXP::DataValue& e = table.utcInstants[i];
    if (!e.getDataType().isDouble()) return false;
    // As the scalar lookup forms it: e + 1 s in the double type.
    s.thresholds[i] = (e.toDouble() + one) + 0.0;
    if (i > 0 && !(s.thresholds[i - 1] <= s.thresholds[i])) return false;
  }
  for (std::size_t k = 0; k <= size; ++k) {
    const std::int32_t count =
        k == 0 ? table.baseLeapSecondCount : table.cumulativeCounts[k - 1];
    for (const bool flagged : {false, true}) {
      // convertUTCtoTAITTImpl's sum, in its order.
      double shift = count;
      if (flagged) shift += 1.0;
      if (julian) {
        if (to == TimeStandard::TAI) shift += 10.0;
        if (to == TimeStandard::TT) shift += 10.0 + 32.184;
      }
      const double d = DateTimeUtilities::secondsToTimeShift(shift, julian);
      if (!(d >= 0.0)) return false;
      (flagged ? s.shiftFlagged : s.shift)[k] = d;
    }
  }
  return true;
}

}  // namespace

void convertStandardOn(Path path, std::span<const double> stored, Epoch epoch,
                       TimeStandard from, TimeStandard to,
                       const LeapSecondTableData& table, std::span<double> out,
                       std::span<const bool> leapSecond,
                       std::span<bool> leapSecondOut) {
  const std::size_t n = stored.size();
  requireSize(out.size() == n,
              "KvDateTime::Batch::convertStandard: out must hold one double "
              "a value");
  checkFlagsIn(leapSecond, n);
  checkFlagsOut(leapSecondOut, n);
  const DoubleIn in{stored.data()};
  const DoubleOut put{out.data()};
  Stepper step(table, from, to, epoch);
  ShiftTable s;
  if (!buildShiftTable(table, epoch, from, to, s)) {
    for (std::size_t i = 0; i < n; ++i)
      convertOne(in, put, i, leapSecond, leapSecondOut, step);
    return;
  }
  const double* th = s.thresholds;
  const double* const thEnd = s.thresholds + s.size;
  std::int64_t unusual[kChunk];
  std::int64_t any = 0;
  ShiftArgs a{};
  a.flags = leapSecond.empty() ? nullptr : leapSecond.data();
  a.unusual = unusual;
  a.any = &any;
  std::size_t stretch = 0;  // the number of passed entries
  const auto setStretch = [&](std::size_t k) {
    stretch = k;
    a.low = k == 0 ? -HUGE_VAL : th[k - 1];
    a.high = k == s.size ? HUGE_VAL : th[k];
    a.shift = s.shift[k];
    a.shiftFlagged = s.shiftFlagged[k];
  };
  setStretch(0);
  for (std::size_t start = 0; start < n; start += kChunk) {
    a.in = stored.data() + start;
    a.n = std::min(kChunk, n - start);
    a.out = out.data() + start;
    if (a.flags) a.flags = leapSecond.data() + start;
    runOn<ShiftKernel>(path, a);
    if (!leapSecondOut.empty())
      std::fill_n(leapSecondOut.begin() + start, a.n, false);
    if (any == 0) continue;
    for (std::size_t j = 0; j < a.n; ++j) {
      const std::size_t i = start + j;
      if (unusual[j]) {
        const double v = stored[i];
        const std::size_t k =
            static_cast<std::size_t>(std::upper_bound(th, thEnd, v) - th);
        const double r =
            v + (flagAt(leapSecond, i) ? s.shiftFlagged[k] : s.shift[k]);
        if (!(r - r == 0.0)) {
          // NaN or infinite input, or a sum beyond the largest double: the
          // scalar call refuses or saturates.
          convertOne(in, put, i, leapSecond, leapSecondOut, step);
          continue;
        }
        out[i] = r + 0.0;
        // The next values most likely lie in the same stretch.
        if (k != stretch) setStretch(k);
      }
    }
  }
}

}  // namespace detail

void toCalendar(std::span<const double> stored, Epoch epoch, TimeStandard ts,
                std::span<double> out, std::span<const bool> leapSecond) {
  detail::toCalendarOn(detail::widestPath(), stored, epoch, ts, out,
                       leapSecond);
}

namespace {

// The compact rows of toCalendar and toCalendarReadings: `readOne` of each
// element, after the sizes are checked.
template <bool kReadings>
void compactRows(std::span<const std::byte> stored, const FXP::DataType& type,
                 Epoch epoch, TimeStandard ts, std::span<double> out,
                 std::span<const bool> leapSecond) {
  const std::size_t n = valuesIn(stored, type);
  requireSize(out.size() == 6 * n,
              "KvDateTime::Batch::toCalendar: out must hold six doubles a "
              "value");
  checkFlagsIn(leapSecond, n);
  forCompactSize(type, stored.data(), nullptr, [&](auto in, auto) {
    for (std::size_t i = 0; i < n; ++i) {
      if constexpr (kReadings)
        readingOne(in, i, leapSecond, epoch, ts, out.data());
      else
        toCalendarOne(in, i, leapSecond, epoch, ts, out.data());
    }
  });
}

}  // namespace

void toCalendar(std::span<const std::byte> stored, const FXP::DataType& type,
                Epoch epoch, TimeStandard ts, std::span<double> out,
                std::span<const bool> leapSecond) {
  compactRows<false>(stored, type, epoch, ts, out, leapSecond);
}

void toCalendarReadings(std::span<const double> stored, Epoch epoch,
                        TimeStandard ts, std::span<double> out,
                        std::span<const bool> leapSecond) {
  const std::size_t n = stored.size();
  requireSize(out.size() == 6 * n,
              "KvDateTime::Batch::toCalendarReadings: out must hold six "
              "doubles a value");
  checkFlagsIn(leapSecond, n);
  if (DateTimeUtilities::isJulianCompatibleEpoch(epoch)) {
    // Read as toCalendar reads a double: NaN and the infinities fail.
    const auto in = [&](std::size_t i) {
      return FXP::DataValue::fromCompact(FXP::DataType::doubleT(), &stored[i]);
    };
    for (std::size_t i = 0; i < n; ++i)
      readingOne(in, i, leapSecond, epoch, ts, out.data());
    return;
  }
  // Where Clock::readingOf differs from the read-back in a seconds epoch:
  // a count beyond 2^63 s is "BadYear" rather than wrapped, and a second
  // rounded up to the end of its minute (or of its leap second) is put back
  // below it. The elements before the first such count are read first, so
  // that an earlier failure is the one named.
  std::size_t k = 0;
  while (k < n && std::fabs(stored[k]) < 0x1p63) ++k;
  toCalendar(stored.first(k), epoch, ts, out.first(6 * k),
             leapSecond.empty() ? leapSecond : leapSecond.first(k));
  if (k < n) {
    try {
      // NaN and the infinities fail as toCalendar fails them.
      if (!std::isfinite(stored[k]))
        (void)FXP::DataValue::fromCompact(FXP::DataType::doubleT(), &stored[k]);
      kvsvThrowIException(Korvane::DateTime::BadYear());
    } catch (...) {
      Korvane::DateTime::throwBatchElementFailed(k);
    }
  }
  for (std::size_t i = 0; i < k; ++i)
    out[6 * i + 5] = Clock::realSecond(out[6 * i + 5], flagAt(leapSecond, i));
}

void toCalendarReadings(std::span<const std::byte> stored,
                        const FXP::DataType& type, Epoch epoch, TimeStandard ts,
                        std::span<double> out,
                        std::span<const bool> leapSecond) {
  compactRows<true>(stored, type, epoch, ts, out, leapSecond);
}

namespace {

void fromCalendarCompact(bool checked, std::span<const double> calendar,
                         Epoch epoch, TimeStandard ts,
                         const FXP::DataType& type, std::span<std::byte> stored,
                         std::span<bool> leapSecond) {
  const std::size_t n = calendar.size() / 6;
  requireSize(
      calendar.size() % 6 == 0 && stored.size() == n * type.sizeofCompact(),
      "KvDateTime::Batch::fromCalendar: the calendar must hold six "
      "doubles and the stored bytes one compact value a row");
  checkFlagsOut(leapSecond, n);
  forCompactSize(type, nullptr, stored.data(), [&](auto, auto out) {
    for (std::size_t i = 0; i < n; ++i)
      fromCalendarOne(calendar.data(), i, checked, epoch, ts, type, out,
                      leapSecond);
  });
}

}  // namespace

void fromCalendar(std::span<const double> calendar, Epoch epoch,
                  TimeStandard ts, std::span<double> stored,
                  std::span<bool> leapSecond) {
  detail::fromCalendarOn(detail::widestPath(), false, calendar, epoch, ts,
                         stored, leapSecond);
}

void fromCalendar(std::span<const double> calendar, Epoch epoch,
                  TimeStandard ts, const FXP::DataType& type,
                  std::span<std::byte> stored, std::span<bool> leapSecond) {
  fromCalendarCompact(false, calendar, epoch, ts, type, stored, leapSecond);
}

void fromCalendarChecked(std::span<const double> calendar, Epoch epoch,
                         TimeStandard ts, std::span<double> stored,
                         std::span<bool> leapSecond) {
  detail::fromCalendarOn(detail::widestPath(), true, calendar, epoch, ts,
                         stored, leapSecond);
}

void fromCalendarChecked(std::span<const double> calendar, Epoch epoch,
                         TimeStandard ts, const FXP::DataType& type,
                         std::span<std::byte> stored,
                         std::span<bool> leapSecond) {
  fromCalendarCompact(true, calendar, epoch, ts, type, stored, leapSecond);
}

void convertStandard(std::span<const double> stored, Epoch epoch,
                     TimeStandard from, TimeStandard to,
                     const LeapSecondTableData& table, std::span<double> out,
                     std::span<const bool> leapSecond,
                     std::span<bool> leapSecondOut) {
  detail::convertStandardOn(detail::widestPath(), stored, epoch, from, to,
                            table, out, leapSecond, leapSecondOut);
}

void convertStandard(std::span<const std::byte> stored,
                     const FXP::DataType& type, Epoch epoch, TimeStandard from,
                     TimeStandard to, const LeapSecondTableData& table,
                     std::span<std::byte> out, std::span<const bool> leapSecond,
                     std::span<bool> leapSecondOut) {
  const std::size_t n = valuesIn(stored, type);
  requireSize(out.size() == stored.size(),
              "KvDateTime::Batch::convertStandard: out must hold as many "
              "bytes as the values");
  checkFlagsIn(leapSecond, n);
  checkFlagsOut(leapSecondOut, n);
  Stepper step(table, from, to, epoch);
  forCompactSize(type, stored.data(), out.data(), [&](auto in, auto put) {
    for (std::size_t i = 0; i < n; ++i)
      convertOne(in, put, i, leapSecond, leapSecondOut, step);
  });
}

}  // namespace KvDateTime::Batch
