// Arbitrary texts and patterns through DateTimeParser. The text is either
// free, or a record formatted by the same pattern and then damaged a
// little, so that most inputs get deep into the reading. Holds for every
// input:
// - tryParse never throws and fails only with its own Ids or the
//   formatter's pattern Ids; parse throws exactly the same Id;
// - the UTF-8 and 16-bit overloads agree on ASCII inputs;
// - a success is a record validateDateTime accepts for the standard, and
//   formatting it by the same pattern gives back an equivalent text: equal
//   once ASCII letters are folded to lower case and zeros are dropped from
//   runs of digits (names are read case-blind, numbers with any padding; a
//   lone "0" stays, so a run cannot vanish); parsing that text again gives
//   the same record, which pins the values the digits stand for;
// - an ISO 8601 success has the text's own year, month, day, hour and
//   minute digits in its record, and the fast ISO entry point gives the
//   same record or the same Id and position for code points and bytes,
//   and its row reader reads the text padded as an array holds it.

#include <cstring>
#include <stdexcept>
#include <string>

#include "date_time/DateTimeParser.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "fuzz/FuzzSupport.hpp"

namespace {

using namespace KvDateTime;
using foundation::core::except::IException;
using kvfuzz::idOf;

std::u16string anyPattern(FuzzedDataProvider& in) {
  static constexpr char16_t kAlphabet[] =
      u"tGyuMdDeahHmsSyMdHms'' -:.,/T0Z\u00e9";
  const bool free = in.ConsumeIntegralInRange<int>(0, 7) == 0;
  const std::size_t length = in.ConsumeIntegralInRange<std::size_t>(0, 24);
  std::u16string p;
  for (std::size_t i = 0; i < length && in.remaining_bytes() > 0; ++i) {
    if (free) {
      p += static_cast<char16_t>(in.ConsumeIntegralInRange<int>(32, 127));
    } else {
      const char16_t c = kAlphabet[in.ConsumeIntegralInRange<std::size_t>(
          0, std::size(kAlphabet) - 2)];
      p.append(in.ConsumeIntegralInRange<std::size_t>(1, 5), c);
    }
  }
  return p;
}

DateTimeStruct anyRecord(FuzzedDataProvider& in) {
  DateTimeStruct r;
  r.year = in.ConsumeIntegralInRange<int>(1395, 10005);
  r.month = in.ConsumeIntegralInRange<int>(1, 12);
  r.day = in.ConsumeIntegralInRange<int>(1, 31);
  r.hour = in.ConsumeIntegralInRange<int>(0, 23);
  r.minute = in.ConsumeIntegralInRange<int>(0, 59);
  r.second = in.ConsumeIntegralInRange<int>(0, 60) +
             (in.ConsumeBool() ? in.ConsumeProbability<double>() : 0.0);
  return r;
}

// Formats, or "" when the record has no rendering for the pattern.
std::u16string render(const DateTimeStruct& r, TimeStandard ts,
                      const std::u16string& p) {
  try {
    return DateTimeStructFormatter(r, ts).getFormattedStr(p);
  } catch (const IException&) {
  } catch (const std::out_of_range&) {
  }
  return u"";
}

void damage(FuzzedDataProvider& in, std::u16string& text) {
  const int edits = in.ConsumeIntegralInRange<int>(0, 2);
  for (int k = 0; k < edits && !text.empty(); ++k) {
    const std::size_t at =
        in.ConsumeIntegralInRange<std::size_t>(0, text.size() - 1);
    const char16_t c =
        static_cast<char16_t>(in.ConsumeIntegralInRange<int>(32, 127));
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
      case 0:
        text[at] = c;
        break;
      case 1:
        text.insert(at, 1, c);
        break;
      case 2:
        text.erase(at, 1);
        break;
      default:
        text[at] = static_cast<char16_t>(text[at] ^ 0x20);  // case flip
    }
  }
}

// Lower-case ASCII letters, zeros dropped from digit runs: padding may
// differ, also inside a run of adjacent numbers where only the field that
// takes the surplus digits can carry it ("SSSSuuu" reads "020005778" as
// 0200 and year 5778, written back "02005778").
std::u16string canonical(const std::u16string& s) {
  const auto digitAt = [&](std::size_t i) {
    return i < s.size() && s[i] >= u'0' && s[i] <= u'9';
  };
  std::u16string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char16_t c = s[i];
    if (c == u'0' && (digitAt(i + 1) || (i > 0 && digitAt(i - 1)))) continue;
    out += c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
  }
  return out;
}

std::string narrow(const std::u16string& s) {
  std::string n;
  for (char16_t c : s) n += c < 128 ? static_cast<char>(c) : '?';
  return n;
}

bool ascii(const std::u16string& s) {
  for (char16_t c : s)
    if (c >= 128) return false;
  return true;
}

const std::initializer_list<std::string_view> kParseIds = {
    "InvalidFormatChar",
    "InvalidDayOfWeekToken",
    "MultipleFractionalSecondTokens",
    "ParsePatternIncomplete",
    "ParseMismatch",
    "ParseTrailingText",
    "ParseFieldRange",
    "ParseFieldConflict",
    "ParseTimeStandardMismatch",
    "ParseInvalidDateTime"};

void checkIso(const std::u16string& text, TimeStandard ts) {
  DateTimeStruct r;
  const kvsvDiagnostic d = DateTimeParser::tryParseIso8601(text, ts, r);
  const std::string where = narrow(text);
  // The fast entry point reads code points and bytes as this reader does.
  const std::u32string points(text.begin(), text.end());
  DateTimeStruct fast = r, bytes = r;
  const kvsvDiagnostic f =
      DateTimeParser::tryParseIso8601Fast(points, ts, fast);
  KVFUZZ_CHECK(idOf(f) == idOf(d) && fast == r, where + " " + idOf(f));
  if (d) {
    KVFUZZ_CHECK(f->arguments().at(2) == d->arguments().at(2), where);
  }
  // The row reader on the text padded with NULs, as an array holds it: it
  // reads the text less its trailing NULs, as NumPy hands it out.
  const std::u32string padded = points + U'\0' + U'\0';
  std::u16string held = text;
  while (!held.empty() && held.back() == u'\0') held.pop_back();
  DateTimeStruct h;
  const kvsvDiagnostic dh = DateTimeParser::tryParseIso8601(held, ts, h);
  double row[6] = {};
  const std::size_t read =
      DateTimeParser::readIso8601Rows(padded.data(), padded.size(), 1, ts, row);
  KVFUZZ_CHECK(read == (dh ? 0u : 1u), where);
  if (!dh)
    KVFUZZ_CHECK(std::memcmp(row, h.toArray().data(), sizeof row) == 0, where);
  if (ascii(text)) {
    const kvsvDiagnostic b =
        DateTimeParser::tryParseIso8601Fast(narrow(text), ts, bytes);
    KVFUZZ_CHECK(idOf(b) == idOf(d) && bytes == r, where + " " + idOf(b));
  }
  if (d) {
    KVFUZZ_CHECK(kvfuzz::oneOf(idOf(d), kParseIds), where + " " + idOf(d));
    return;
  }
  KVFUZZ_CHECK(!DateTimeUtilities::validateDateTime(r.toArray(), ts), where);
  const std::u16string fields =
      DateTimeStructFormatter(r, ts).getFormattedStr(u"yyyy-MM-dd HH:mm");
  KVFUZZ_CHECK(text.size() >= 10 && text.compare(0, 10, fields, 0, 10) == 0,
               where);
  if (text.size() > 10)
    KVFUZZ_CHECK(text.compare(11, 5, fields, 11, 5) == 0, where);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  const TimeStandard ts = kvfuzz::anyStandard(in);
  const std::u16string pattern = anyPattern(in);
  std::u16string text;
  if (in.ConsumeBool()) {
    text = render(anyRecord(in), ts, pattern);
    damage(in, text);
  } else {
    const std::string raw = in.ConsumeRandomLengthString(64);
    text.assign(raw.begin(), raw.end());
  }
  if (in.ConsumeIntegralInRange<int>(0, 3) == 0) {
    text = render(anyRecord(in), ts, u"yyyy-MM-dd'T'HH:mm:ss.SSSSSS'Z'");
    damage(in, text);
    checkIso(text, ts);
    return 0;
  }
  const std::string where = narrow(pattern) + " | " + narrow(text);

  DateTimeStruct r;
  const kvsvDiagnostic d = DateTimeParser::tryParse(text, pattern, ts, r);
  const std::string id = idOf(d);
  if (d) KVFUZZ_CHECK(kvfuzz::oneOf(id, kParseIds), where + " " + id);
  std::string thrown;
  try {
    DateTimeParser::parse(text, pattern, ts);
  } catch (const IException& e) {
    thrown = idOf(e.identifier());
  }
  KVFUZZ_CHECK(thrown == id, where + " " + thrown);
  if (ascii(text) && ascii(pattern)) {
    DateTimeStruct narrowResult;
    const kvsvDiagnostic n = DateTimeParser::tryParse(
        narrow(text), narrow(pattern), ts, narrowResult);
    KVFUZZ_CHECK(idOf(n) == id, where + " " + idOf(n));
    if (!d) KVFUZZ_CHECK(narrowResult == r, where);
  }
  if (d) return 0;

  KVFUZZ_CHECK(!DateTimeUtilities::validateDateTime(r.toArray(), ts), where);
  const std::u16string again = render(r, ts, pattern);
  KVFUZZ_CHECK(canonical(again) == canonical(text),
               where + " -> " + narrow(again));
  DateTimeStruct back;
  KVFUZZ_CHECK(!DateTimeParser::tryParse(again, pattern, ts, back), where);
  KVFUZZ_CHECK(back == r, where);
  return 0;
}
