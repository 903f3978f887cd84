// Arbitrary patterns and records through validateFormat, needsTimeStandard
// and getFormattedStr. Holds for every input:
// - validateFormat never throws, and names one of its three Ids with the
//   pattern (and for a bad letter, that letter, which occurs unquoted-able
//   in the pattern) as arguments;
// - getFormattedStr throws exactly that diagnostic for an invalid pattern;
//   for a valid one it renders, or fails only as its header allows (a
//   nameless month for 'M', a date diagnostic for 'D' or 'e');
// - the time standard changes the text exactly when needsTimeStandard says
//   it is read;
// - the short (stack) and long (sized) rendering paths agree: a pattern and
//   the same pattern followed by 64 spaces render alike but for the spaces;
// - a pattern without letters or apostrophes renders as itself;
// - a prepared pattern refuses, renders and fails exactly as getFormattedStr.

#include <array>
#include <stdexcept>
#include <string>

#include "date_time/DateTimeStructFormatter.hpp"
#include "fuzz/FuzzSupport.hpp"

namespace {

using namespace KvDateTime;
using foundation::core::except::IException;
using kvfuzz::idOf;

constexpr std::u16string_view kLetters = u"tGyuMdDeahHmsS";

std::u16string anyPattern(FuzzedDataProvider& in) {
  // Mostly pattern letters, quotes and separators, so that runs form.
  static constexpr char16_t kAlphabet[] = u"tGyuMdDeahHmsS'' -:.,/xZqé\u00ff";
  const int mode = in.ConsumeIntegralInRange<int>(0, 3);
  const std::size_t length = in.ConsumeIntegralInRange<std::size_t>(0, 80);
  std::u16string p;
  for (std::size_t i = 0; i < length && in.remaining_bytes() > 0; ++i) {
    if (mode == 0) {
      p += static_cast<char16_t>(in.ConsumeIntegral<std::uint16_t>());
    } else {
      const char16_t c = kAlphabet[in.ConsumeIntegralInRange<std::size_t>(
          0, std::size(kAlphabet) - 2)];
      p.append(in.ConsumeIntegralInRange<std::size_t>(1, mode == 3 ? 12 : 3),
               c);
    }
  }
  return p;
}

std::string narrow(const std::u16string& s) {
  std::string n;
  for (char16_t c : s) n += c < 128 ? static_cast<char>(c) : '?';
  return n;
}

// The outcome of one rendering: the text, or what was thrown.
struct Outcome {
  std::u16string text;
  std::string failure;  // "" | "id:<Id>" | "out_of_range"
};

Outcome render(const DateTimeStructFormatter& f, const std::u16string& p,
               bool prepared = false) {
  try {
    return {prepared
                ? PreparedFormat(p).format(f.dateTimeStruct, f.timeStandard)
                : f.getFormattedStr(p),
            ""};
  } catch (const IException& e) {
    return {u"", "id:" + idOf(e.identifier())};
  } catch (const std::out_of_range&) {
    return {u"", "out_of_range"};
  }
}

void checkDiagnostic(const std::u16string& p, const kvsvDiagnostic& d) {
  const std::string where = narrow(p);
  const std::string id = idOf(d);
  KVFUZZ_CHECK(kvfuzz::oneOf(id, {"InvalidFormatChar", "InvalidDayOfWeekToken",
                                  "MultipleFractionalSecondTokens"}),
               where + " " + id);
  const auto& args = d->arguments();
  KVFUZZ_CHECK(!args.empty() && std::get_if<std::u16string>(&args[0]) &&
                   std::get<std::u16string>(args[0]) == p,
               where);
  if (id == "InvalidFormatChar") {
    KVFUZZ_CHECK(args.size() == 2 && std::get_if<std::u16string>(&args[1]),
                 where);
    const std::u16string& letter = std::get<std::u16string>(args[1]);
    KVFUZZ_CHECK(letter.size() == 1 && letter[0] < 128 &&
                     std::isalpha(letter[0]) &&
                     kLetters.find(letter[0]) == kLetters.npos &&
                     p.find(letter[0]) != p.npos,
                 where);
  } else {
    KVFUZZ_CHECK(args.size() == 1, where);
  }
  if (id == "InvalidDayOfWeekToken")
    KVFUZZ_CHECK(p.find(u"eeeeee") != p.npos, where);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  FuzzedDataProvider in(data, size);
  const bool plausible = in.ConsumeBool();
  std::array<double, 6> v;
  for (double& x : v) x = kvfuzz::anyDouble(in);
  if (plausible) kvfuzz::plausibleDate(in, v.data());
  const DateTimeStruct r = DateTimeStruct::unchecked(v);
  const TimeStandard ts = kvfuzz::anyStandard(in);
  const std::u16string p = anyPattern(in);
  const std::string where = narrow(p);

  const kvsvDiagnostic problem = DateTimeStructFormatter::validateFormat(p);
  if (problem) checkDiagnostic(p, problem);
  const bool needs = DateTimeStructFormatter::needsTimeStandard(p);
  if (p.find(u't') == p.npos) KVFUZZ_CHECK(!needs, where);

  const DateTimeStructFormatter f(r, ts);
  const Outcome out = render(f, p);
  const Outcome prepared = render(f, p, true);
  KVFUZZ_CHECK(prepared.failure == out.failure && prepared.text == out.text,
               where + prepared.failure);
  if (problem) {
    KVFUZZ_CHECK(out.failure == "id:" + idOf(problem), where + out.failure);
    return 0;
  }
  if (out.failure == "out_of_range") {
    KVFUZZ_CHECK(p.find(u'M') != p.npos || p.find(u'e') != p.npos, where);
  } else if (!out.failure.empty()) {
    KVFUZZ_CHECK(kvfuzz::oneOf(out.failure, {"id:BadYear", "id:BadMonth",
                                             "id:BadDayOfMonth"}) &&
                     (p.find(u'D') != p.npos || p.find(u'e') != p.npos),
                 where + out.failure);
  }

  // Another standard, with a name of another length where possible.
  const TimeStandard otherTs =
      ts == TimeStandard::TT ? TimeStandard::TDB : TimeStandard::TT;
  const Outcome other = render(DateTimeStructFormatter(r, otherTs), p);
  KVFUZZ_CHECK(other.failure == out.failure, where);
  if (out.failure.empty())
    KVFUZZ_CHECK((other.text != out.text) == needs, where);

  const std::u16string tail(64, u' ');
  const Outcome longer = render(f, p + tail);
  KVFUZZ_CHECK(longer.failure == out.failure, where + longer.failure);
  KVFUZZ_CHECK(longer.text == (out.failure.empty() ? out.text + tail : u""),
               where);

  bool plain = p.find(u'\'') == p.npos;
  for (char16_t c : p) plain = plain && !(c < 128 && std::isalpha(c));
  if (plain) KVFUZZ_CHECK(out.failure.empty() && out.text == p, where);
  return 0;
}
