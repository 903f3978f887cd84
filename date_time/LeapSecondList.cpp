#include "date_time/LeapSecondList.hpp"

#include <array>
#include <charconv>
#include <string>
#include <vector>

#include "date_time/CalendarCore.hpp"
#include "date_time/diagnostics/Raise.hpp"

namespace KvDateTime {
namespace {

using Korvane::DateTime::MsgId;

[[noreturn]] void raise(MsgId id, std::int64_t line) {
  kvsvThrowIException(
      Korvane::DateTime::makeMsgId(id, {resource_core::MsgArgument(line)}));
}

// SHA-1 of a short message. The list's hash guards against a damaged or
// hand-edited file, not against an attacker, so SHA-1 is what the list's
// publishers chose and all we need.
class Sha1 {
 public:
  void update(std::string_view bytes) {
    for (char c : bytes) {
      block_[fill_++] = static_cast<std::uint8_t>(c);
      if (fill_ == 64) compress();
    }
    length_ += bytes.size();
  }

  std::array<std::uint32_t, 5> finish() {
    const std::uint64_t bits = length_ * 8;
    block_[fill_++] = 0x80;
    if (fill_ > 56) {
      while (fill_ < 64) block_[fill_++] = 0;
      compress();
    }
    while (fill_ < 56) block_[fill_++] = 0;
    for (int i = 7; i >= 0; --i) {
      block_[fill_++] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    compress();
    return h_;
  }

 private:
  static std::uint32_t rotl(std::uint32_t x, int n) {
    return (x << n) | (x >> (32 - n));
  }

  void compress() {
    std::array<std::uint32_t, 80> w{};
    for (int i = 0; i < 16; ++i) {
      w[i] = std::uint32_t{block_[4 * i]} << 24 |
             std::uint32_t{block_[4 * i + 1]} << 16 |
             std::uint32_t{block_[4 * i + 2]} << 8 | block_[4 * i + 3];
    }
    for (int i = 16; i < 80; ++i) {
      w[i] = rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    }
    std::uint32_t a = h_[0], b = h_[1], c = h_[2], d = h_[3], e = h_[4];
    for (int i = 0; i < 80; ++i) {
      std::uint32_t f, k;
      if (i < 20) {
        f = (b & c) | (~b & d), k = 0x5A827999;
      } else if (i < 40) {
        f = b ^ c ^ d, k = 0x6ED9EBA1;
      } else if (i < 60) {
        f = (b & c) | (b & d) | (c & d), k = 0x8F1BBCDC;
      } else {
        f = b ^ c ^ d, k = 0xCA62C1D6;
      }
      const std::uint32_t t = rotl(a, 5) + f + e + k + w[i];
      e = d, d = c, c = rotl(b, 30), b = a, a = t;
    }
    h_[0] += a, h_[1] += b, h_[2] += c, h_[3] += d, h_[4] += e;
    fill_ = 0;
  }

  std::array<std::uint32_t, 5> h_ = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                     0x10325476, 0xC3D2E1F0};
  std::array<std::uint8_t, 64> block_{};
  std::size_t fill_ = 0;
  std::uint64_t length_ = 0;
};

std::vector<std::string_view> splitFields(std::string_view s) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
    std::size_t j = i;
    while (j < s.size() && s[j] != ' ' && s[j] != '\t') ++j;
    if (j > i) out.push_back(s.substr(i, j - i));
    i = j;
  }
  return out;
}

// The whole field as a base-`base` number, or nothing.
template <typename Int>
std::optional<Int> toNumber(std::string_view field, int base = 10) {
  Int value{};
  const auto [end, ec] =
      std::from_chars(field.data(), field.data() + field.size(), value, base);
  if (ec != std::errc() || end != field.data() + field.size()) {
    return std::nullopt;
  }
  return value;
}

constexpr std::int64_t kFirstNtp = 2272060800;  // 1972-01-01 00:00 UTC
constexpr std::int64_t kFirstTaiMinusUtc = 10;

}  // namespace

LeapSecondList LeapSecondListParser::parse(std::string_view text) {
  LeapSecondList list;
  Sha1 sha;
  std::string updatedText, expiresText, dataText;
  std::optional<std::array<std::uint32_t, 5>> statedHash;
  std::int64_t hashLine = 0;
  std::int64_t lastNtp = 0, lastOffset = 0;
  bool haveData = false;

  std::int64_t lineNo = 0;
  std::size_t pos = 0;
  while (pos < text.size()) {
    ++lineNo;
    std::size_t eol = text.find('\n', pos);
    if (eol == std::string_view::npos) eol = text.size();
    std::string_view line = text.substr(pos, eol - pos);
    pos = eol + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);

    const std::vector<std::string_view> fields = splitFields(line);
    if (fields.empty()) continue;
    if (fields[0][0] == '#') {
      // "#$ 3913697179" and "#$3913697179" both occur in the wild.
      const std::string_view tag = fields[0].substr(0, 2);
      std::vector<std::string_view> values(fields.begin() + 1, fields.end());
      if (fields[0].size() > 2)
        values.insert(values.begin(), fields[0].substr(2));
      if (tag == "#$" || tag == "#@") {
        std::optional<std::int64_t>& slot =
            tag == "#$" ? list.updatedNtp : list.expiresNtp;
        const auto value = values.size() == 1
                               ? toNumber<std::int64_t>(values[0])
                               : std::nullopt;
        if (!value || *value < 0 || slot)
          raise(MsgId::BadLeapSecondListLine, lineNo);
        slot = value;
        (tag == "#$" ? updatedText : expiresText) = values[0];
      } else if (fields[0] == "#h") {
        std::array<std::uint32_t, 5> words{};
        if (values.size() != 5 || statedHash)
          raise(MsgId::BadLeapSecondListLine, lineNo);
        for (std::size_t i = 0; i < 5; ++i) {
          // Publishers print each word without leading zeros.
          const auto w = values[i].size() <= 8
                             ? toNumber<std::uint32_t>(values[i], 16)
                             : std::nullopt;
          if (!w) raise(MsgId::BadLeapSecondListLine, lineNo);
          words[i] = *w;
        }
        statedHash = words;
        hashLine = lineNo;
      }
      continue;
    }

    // A data line: two whole numbers, then optionally a comment.
    std::size_t count = 0;
    while (count < fields.size() && fields[count][0] != '#') ++count;
    const auto ntp =
        count == 2 ? toNumber<std::int64_t>(fields[0]) : std::nullopt;
    const auto offset =
        count == 2 ? toNumber<std::int64_t>(fields[1]) : std::nullopt;
    if (!ntp || !offset || *ntp < 0)
      raise(MsgId::BadLeapSecondListLine, lineNo);
    dataText.append(fields[0]).append(fields[1]);

    if (!haveData) {
      if (*ntp != kFirstNtp || *offset != kFirstTaiMinusUtc) {
        raise(MsgId::BadLeapSecondListStart, lineNo);
      }
    } else {
      const detail::CivilDate date =
          detail::civilFromDays(*ntp / 86400 - kNtpTo1970 / 86400);
      if (*ntp <= lastNtp || *ntp % 86400 != 0 || date.day != 1 ||
          (date.month != 1 && date.month != 7) ||
          date.year > detail::kLastYear) {
        raise(MsgId::BadLeapSecondListDate, lineNo);
      }
      const std::int64_t step = *offset - lastOffset;
      if (step != 1 && step != -1) raise(MsgId::BadLeapSecondListStep, lineNo);
      // A leap second on 1 July follows 30 June of the same year; one on
      // 1 January follows 31 December of the year before.
      const bool july = date.month == 7;
      auto& counts = list.years[static_cast<std::int32_t>(
          july ? date.year : date.year - 1)];
      (july ? counts.first : counts.second) = static_cast<std::int8_t>(step);
    }
    haveData = true;
    lastNtp = *ntp;
    lastOffset = *offset;
  }
  if (!haveData) raise(MsgId::BadLeapSecondListEmpty, lineNo + 1);

  if (statedHash) {
    // The published hash covers the digits of "#$", "#@" and the data
    // lines, in that order, with all white space and comments removed.
    sha.update(updatedText);
    sha.update(expiresText);
    sha.update(dataText);
    if (sha.finish() != *statedHash)
      raise(MsgId::BadLeapSecondListHash, hashLine);
    list.hashChecked = true;
  }
  return list;
}

}  // namespace KvDateTime
