// kvdt: the library's conversions, formatting and leap-second table from the
// command line, for people checking a model's times by hand and for scripts
// (--json). The library itself reads no files; this tool is where a
// leap-second list on disk meets LeapSecondListParser.
//
// Every failure ends with "<identifier>: <message>" on stderr and status 2,
// a failed write to stdout included. The library's own failures keep their
// "Korvane:DateTime:..." identifiers; the tool's (arguments the library never
// sees) are "Korvane:kvdt:...".
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "date_time/Clock.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/LeapSecondList.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/StorageTypeName.hpp"
#include "date_time/TimeStandardConverter.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DateTimeDefs.hpp"

using namespace KvDateTime;
using Json = nlohmann::ordered_json;

namespace {

struct ToolError {
  std::string identifier;
  std::string message;
};

[[noreturn]] void fail(const std::string& id, const std::string& message) {
  throw ToolError{"Korvane:kvdt:" + id, message};
}

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return s;
}

constexpr const char* kEpochNames[] = {"1970", "1900", "1958",
                                       "jd",   "mjd",  "j2000"};

Epoch parseEpoch(const std::string& text) {
  for (int e = 0; e < 6; ++e) {
    if (lower(text) == kEpochNames[e]) return Epoch(e);
  }
  fail("UnknownEpoch", "Unknown epoch \"" + text +
                           "\": use 1970, 1900, 1958, jd, mjd or j2000.");
}

TimeStandard parseStandard(const std::string& text) {
  const std::string s = lower(text);
  if (s == "tai") return TimeStandard::TAI;
  if (s == "utc") return TimeStandard::UTC;
  if (s == "tt") return TimeStandard::TT;
  if (s == "tdb") return TimeStandard::TDB;
  fail("UnknownStandard",
       "Unknown time standard \"" + text + "\": use tai, utc, tt or tdb.");
}

std::vector<TimeStandard> parseStandards(const std::string& text) {
  std::vector<TimeStandard> out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');) {
    out.push_back(parseStandard(item));
  }
  if (out.empty()) fail("UnknownStandard", "No time standard given.");
  return out;
}

template <typename T>
bool wholeNumber(std::string_view s, T& out) {
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && end == s.data() + s.size();
}

FXP::DataType parseType(const std::string& text) {
  try {
    return StorageTypeName::parse(text);
  } catch (const std::invalid_argument& e) {
    fail("UnknownType", e.what());
  }
}

std::string typeName(const FXP::DataType& t) {
  return StorageTypeName::name(t);
}

void throwIfSet(kvsvDiagnostic d) {
  if (d) kvsvThrowIExceptionFromDiagnostic(d, nullptr);
}

// Validated for its standard, so that an impossible reading is reported as
// such and never silently normalised.
DateTimeStruct validReading(const std::string& text, TimeStandard ts) {
  const DateTimeUtilities::CalendarValues v = Clock::parseReading(text);
  throwIfSet(DateTimeUtilities::validateDateTime(v, ts));
  return DateTimeStruct::unchecked(v);
}

// Arguments are checked to be UTF-8 before parsing (see checkArguments), so
// the decoder cannot fail here.
std::u16string widen(const std::string& utf8) {
  return resource_core::toUtf16(utf8).value_or(u"");
}

std::u16string validPattern(const std::string& pattern) {
  std::u16string p = widen(pattern);
  throwIfSet(DateTimeStructFormatter::validateFormat(p));
  return p;
}

std::string render(const DateTimeStruct& cal, TimeStandard ts,
                   const std::u16string& pattern) {
  return resource_core::toUtf8(
      DateTimeStructFormatter(cal, ts).getFormattedStr(pattern));
}

const std::u16string kReadingPattern = u"yyyy-MM-dd HH:mm:ss.SSSSSS";

// The stored value exactly: a double with the digits that read back to it,
// fixed point as the exact decimal of integer / 2^fraction.
std::string storedText(const FXP::DataValue& v) { return v.toDecimalString(); }

std::int64_t nowNtp() {
  using namespace std::chrono;
  return duration_cast<seconds>(system_clock::now().time_since_epoch())
             .count() +
         LeapSecondListParser::kNtpTo1970;
}

std::string ntpDate(std::int64_t ntp) {
  const DateTimeStruct cal = DateTimeUtilities::epochTimeToCalendar(
      {ntp - LeapSecondListParser::kNtpTo1970, 0.0}, Epoch::Epoch1970,
      TimeStandard::UTC);
  return render(cal, TimeStandard::UTC, u"yyyy-MM-dd");
}

// A published leap-second list is a few kilobytes; anything near this is
// not one, and reading on would only exhaust memory (a device such as
// /dev/zero never ends).
constexpr std::size_t kMaxListBytes = std::size_t{1} << 20;

// The text of the list at `path` ("-" for standard input): a regular file
// or a pipe, at most kMaxListBytes. The type is taken from the opened
// descriptor, so the checked file is the one read.
std::string readList(const std::string& path) {
  const bool stdinList = path == "-";
  const int fd = stdinList ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    fail("CannotReadList", "Cannot read the leap-second list \"" + path +
                               "\": " + std::strerror(errno) + ".");
  }
  struct Closer {
    int fd;
    bool owned;
    ~Closer() {
      if (owned) ::close(fd);
    }
  } closer{fd, !stdinList};
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !(S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode))) {
    fail("CannotReadList",
         "The leap-second list \"" + path + "\" is " +
             (S_ISDIR(st.st_mode) ? "a directory" : "a device or a socket") +
             ", not a regular file or a pipe.");
  }
  std::string text;
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      fail("CannotReadList", "Cannot read the leap-second list \"" + path +
                                 "\": " + std::strerror(errno) + ".");
    }
    if (n == 0) return text;
    if (text.size() + static_cast<std::size_t>(n) > kMaxListBytes) {
      fail("ListTooLarge", "The leap-second list \"" + path +
                               "\" is larger than 1 MiB; a published list "
                               "is a few kilobytes.");
    }
    text.append(buf, static_cast<std::size_t>(n));
  }
}

// The list in `path`, or none for the built-in schedule. An expired list
// is still used (it is the best the user has) but said so on stderr.
std::optional<LeapSecondList> loadList(const std::string& path) {
  if (path.empty()) return std::nullopt;
  LeapSecondList list = LeapSecondListParser::parse(readList(path));
  if (LeapSecondListParser::isExpired(list, nowNtp())) {
    std::cerr << "kvdt: warning: the leap-second list \"" << path
              << "\" expired on " << ntpDate(*list.expiresNtp)
              << "; leap seconds announced since then may be missing.\n";
  }
  return list;
}

LeapSecondTableData tableFor(const std::optional<LeapSecondList>& list,
                             Epoch epoch, const FXP::DataType& type) {
  return list ? LeapSecondTableDataCreator::build(list->years, epoch, type)
              : LeapSecondTableDataCreator::build(epoch, type);
}

const LeapSecondYears* yearsOf(const std::optional<LeapSecondList>& list) {
  return list ? &list->years : nullptr;
}

// A reading or, when the text is a plain number, a stored count of seconds
// or days; both checked by the library as a reading from people is (see
// Clock::timePointFrom): in range of the type, a leap second only where
// the schedule inserts one and the type keeps it.
DateTime startValue(const std::string& text, Epoch epoch, TimeStandard ts,
                    const FXP::DataType& type, const LeapSecondYears* years) {
  double number = 0;
  if (wholeNumber(std::string_view(text), number))
    return Clock::timePointFromCount(number, ts, epoch, type);
  return Clock::timePointFrom(text, ts, epoch, type, years);
}

Json describe(const DateTime& dt, const std::u16string& pattern) {
  const DateTimeStruct cal = Clock::readingOf(dt);
  Json j;
  j["epoch"] = kEpochNames[static_cast<int>(dt.epoch)];
  j["standard"] = DateTimeDefs::timeStandardName(dt.timeStandard);
  j["type"] = typeName(dt.value.getDataType());
  j["stored"] = storedText(dt.value);
  j["leapSecond"] = dt.isLeapSecond;
  j["reading"] = render(cal, dt.timeStandard, kReadingPattern);
  if (!pattern.empty()) j["formatted"] = render(cal, dt.timeStandard, pattern);
  return j;
}

void printText(const Json& j) {
  std::cout << j["reading"].get<std::string>() << ' '
            << j["standard"].get<std::string>() << "  (stored "
            << j["stored"].get<std::string>() << " in "
            << j["type"].get<std::string>() << " since "
            << j["epoch"].get<std::string>()
            << (j["leapSecond"].get<bool>() ? ", leap second" : "") << ")\n";
  if (j.contains("formatted")) {
    std::cout << j["formatted"].get<std::string>() << '\n';
  }
}

struct Options {
  bool json = false;
  std::string list;
  std::string epoch = "1970", standard = "utc", type = "double";
  std::string toEpoch, toStandard, toType;
  std::string input, pattern, from, show = "utc,tai,tt";
  double step = 1.0;
  int count = 10;
};

int runConvert(const Options& o) {
  const Epoch epoch = parseEpoch(o.epoch);
  const TimeStandard ts = parseStandard(o.standard);
  const FXP::DataType type = parseType(o.type);
  const Epoch toEpoch = o.toEpoch.empty() ? epoch : parseEpoch(o.toEpoch);
  const TimeStandard toTs =
      o.toStandard.empty() ? ts : parseStandard(o.toStandard);
  const FXP::DataType toType = o.toType.empty() ? type : parseType(o.toType);
  const std::u16string pattern =
      o.pattern.empty() ? u"" : validPattern(o.pattern);

  // A value that does not fit the target type is an error, not a
  // saturated number passed off as the answer.
  FixptRangeMath::FixptRangeMathLogger overflow;
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  control.setMathLogger(&overflow);
  const std::optional<LeapSecondList> list = loadList(o.list);
  DateTime dt = startValue(o.input, epoch, ts, type, yearsOf(list));
  const Json in = describe(dt, u"");
  // Epoch and type first: TDB exists only for a double counting days, so
  // the standard is changed where the value is going, with a table built
  // for that epoch and type.
  if (toEpoch != epoch || !(toType == type)) {
    // The reading must keep in the target storage what the start kept: a
    // leap second rounded out of itself there would read as the next
    // second with the flag still set.
    double number = 0;
    if (dt.isLeapSecond && !wholeNumber(std::string_view(o.input), number))
      (void)Clock::timePointFrom(o.input, ts, toEpoch, toType, yearsOf(list));
    const FXP::DataValue v =
        DateTimeConverter::forEpochs(epoch, toEpoch)
            .convertEpochImpl(dt.value, epoch, toEpoch, ts, toType, control);
    dt = DateTime(DvLs{v, dt.isLeapSecond}, toEpoch, ts);
  }
  if (toTs != ts) {
    dt = TimeStandardConverter::convertTimeStandard(
        dt, toTs, tableFor(list, toEpoch, toType), control);
  }
  if (overflow.overflowOccurred()) {
    fail("OutOfRange",
         "The value does not fit the storage type " + typeName(toType) + ".");
  }
  const Json out = describe(dt, pattern);
  if (o.json) {
    std::cout << Json{{"input", in}, {"output", out}}.dump(2) << '\n';
  } else {
    printText(out);
  }
  return 0;
}

int runFormat(const Options& o) {
  const TimeStandard ts = parseStandard(o.standard);
  const std::u16string pattern = validPattern(o.pattern);
  const std::string text = render(validReading(o.input, ts), ts, pattern);
  if (o.json) {
    std::cout << Json{{"pattern", o.pattern}, {"formatted", text}}.dump(2)
              << '\n';
  } else {
    std::cout << text << '\n';
  }
  return 0;
}

int runCheckFormat(const Options& o) {
  const std::u16string pattern = validPattern(o.pattern);
  const bool needs = DateTimeStructFormatter::needsTimeStandard(pattern);
  if (o.json) {
    std::cout << Json{{"pattern", o.pattern},
                      {"valid", true},
                      {"readsTimeStandard", needs}}
                     .dump(2)
              << '\n';
  } else {
    std::cout << "valid" << (needs ? " (reads the time standard)" : "") << '\n';
  }
  return 0;
}

int runLeapSeconds(const Options& o) {
  const Epoch epoch = parseEpoch(o.epoch);
  const FXP::DataType type = parseType(o.type);
  const std::optional<LeapSecondList> list = loadList(o.list);
  LeapSecondTableData table = tableFor(list, epoch, type);
  if (!o.from.empty()) {
    table = LeapSecondUtilities::pruneLeapSecondTableData(
        table, startValue(o.from, epoch, parseStandard(o.standard), type,
                          yearsOf(list)));
  }
  Json rows = Json::array();
  for (std::size_t i = 0; i < table.utcInstants.size(); ++i) {
    const DateTime utc(DvLs{table.utcInstants[i], false}, epoch,
                       TimeStandard::UTC);
    const DateTime tai(DvLs{table.taiInstants[i], false}, epoch,
                       TimeStandard::TAI);
    rows.push_back({{"utc", render(utc.toDateTimeStruct(), TimeStandard::UTC,
                                   u"yyyy-MM-dd HH:mm:ss")},
                    {"utcStored", storedText(utc.value)},
                    {"tai", render(tai.toDateTimeStruct(), TimeStandard::TAI,
                                   u"yyyy-MM-dd HH:mm:ss")},
                    {"taiStored", storedText(tai.value)},
                    {"total", table.cumulativeCounts[i]}});
  }
  if (o.json) {
    std::cout << Json{{"epoch", kEpochNames[static_cast<int>(epoch)]},
                      {"type", typeName(type)},
                      {"baseCount", table.baseLeapSecondCount},
                      {"entries", rows}}
                     .dump(2)
              << '\n';
    return 0;
  }
  std::printf("%d leap seconds before the first entry\n",
              table.baseLeapSecondCount);
  std::printf("%-19s  %-19s  %5s   stored UTC / TAI (%s since %s)\n",
              "UTC 23:59:59 before", "TAI instant", "total",
              typeName(type).c_str(), kEpochNames[static_cast<int>(epoch)]);
  for (const Json& r : rows) {
    std::printf("%s  %s  %5d   %s / %s\n", r["utc"].get<std::string>().c_str(),
                r["tai"].get<std::string>().c_str(), r["total"].get<int>(),
                r["utcStored"].get<std::string>().c_str(),
                r["taiStored"].get<std::string>().c_str());
  }
  return 0;
}

// The clock runs in TAI, where every second is as long as the next: a UTC
// count stands still during an inserted second. Each step is shown in the
// requested standards, all converted with one lookup cursor. Step i is the
// start plus i steps in one addition, not i additions: in a double day
// count the rounding of repeated 0.25 s steps piles up enough to put a step
// on the wrong side of a leap second's edge.
//
// The first and the last step are computed before any row is printed: steps
// move one way, so if both fit the storage type and the calendar, every step
// between does, and a failure never follows a screenful of rows.
constexpr long long kMaxStepWork = 1000000;  // steps x standards shown

int runStep(const Options& o) {
  const Epoch epoch = parseEpoch(o.epoch);
  const TimeStandard ts = parseStandard(o.standard);
  const FXP::DataType type = parseType(o.type);
  const std::vector<TimeStandard> shown = parseStandards(o.show);
  const std::u16string pattern =
      validPattern(o.pattern.empty() ? "yyyy-MM-dd HH:mm:ss.SSS t" : o.pattern);
  if (!std::isfinite(o.step)) {
    fail("BadStep", "The step must be a finite number of seconds.");
  }
  if (o.count < 1 ||
      static_cast<long long>(o.count) * static_cast<long long>(shown.size()) >
          kMaxStepWork) {
    fail("BadCount",
         "The step count times the number of standards shown must be from 1 "
         "to 1000000.");
  }
  const std::optional<LeapSecondList> list = loadList(o.list);
  const LeapSecondTableData table = tableFor(list, epoch, type);
  FXP::MathControl control =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
  std::uint32_t cursor = 0;
  const DateTime start = TimeStandardConverter::convertTimeStandard(
      startValue(o.input, epoch, ts, type, yearsOf(list)), TimeStandard::TAI,
      table, control);
  // Step i in every shown standard; `cursor` null for a look ahead that
  // must not move the shared cursor past the rows still to come.
  const auto stepRow = [&](int i, std::uint32_t* at, Json& row) {
    DateTime clock = start;
    if (clock.addWithOverflowCheck(o.step * i, control)) {
      fail("Overflow", "Stepping left the range of the storage type " +
                           typeName(type) + ".");
    }
    std::string line;
    for (TimeStandard s : shown) {
      const DateTime v = TimeStandardConverter::convertTimeStandard(
          clock, s, table, control, at);
      const std::string text = render(Clock::readingOf(v), s, pattern);
      row[DateTimeDefs::timeStandardName(s)] = text;
      line += (line.empty() ? "" : "  ") + text;
    }
    return line;
  };
  for (int i : {0, o.count - 1}) {
    Json ignored = Json::object();
    stepRow(i, nullptr, ignored);
  }
  Json steps = Json::array();
  // A failed write stops the loop; main reports it.
  for (int i = 0; i < o.count && !std::ferror(stdout); ++i) {
    Json row = Json::object();
    const std::string line = stepRow(i, &cursor, row);
    if (o.json) {
      steps.push_back(row);
    } else {
      std::cout << line << '\n';
    }
  }
  if (o.json) std::cout << Json{{"steps", steps}}.dump(2) << '\n';
  return 0;
}

void reportError(const std::string& identifier, const std::string& message) {
  std::cerr << identifier << ": " << message << '\n';
}

// Every argument is text the library may see (a pattern, a reading) or the
// tool may echo (in an error, in JSON): it must be UTF-8, checked here once
// rather than repaired later. The argument is repeated with every byte
// outside printable ASCII escaped, so the message itself is clean text.
void checkArguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg(argv[i]);
    std::size_t at = 0;
    if (resource_core::toUtf16(arg, &at)) continue;
    std::string shown;
    for (const char c : arg) {
      const auto b = static_cast<unsigned char>(c);
      if (b >= 0x20 && b < 0x7F) {
        shown += c;
      } else {
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\x%02X", b);
        shown += hex;
      }
    }
    fail("BadText", "Argument " + std::to_string(i) + " \"" + shown +
                        "\" is not UTF-8 text (bad byte at offset " +
                        std::to_string(at) + ").");
  }
}

// A closed stdout or stderr would let the next file opened take its number,
// and output meant for the terminal would then go to that file. Each closed
// one is held by /dev/null opened read-only, so writes to it still fail.
void holdStandardDescriptors() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1 && errno == EBADF) {
      if (::open("/dev/null", O_RDONLY) != fd) return;
    }
  }
}

// Whatever went to stdout must have been written: a full disk or a closed
// stdout is a failure, not a silent exit 0. Both the C++ stream and the C
// stream (printf) are flushed and checked.
bool writeFailed(std::string& why) {
  errno = 0;
  std::cout.flush();
  int error = errno;
  if (std::fflush(stdout) != 0 && error == 0) error = errno;
  if (std::cout && !std::ferror(stdout)) return false;
  why = error != 0 ? std::strerror(error) : "write error";
  return true;
}

int run(int argc, char** argv) {
  try {
    checkArguments(argc, argv);
  } catch (const ToolError& e) {
    reportError(e.identifier, e.message);
    return 2;
  }
  Options o;
  CLI::App app{
      "kvdt: time points in TAI, UTC, TT and TDB from the command line."};
  app.require_subcommand(1);
  app.fallthrough();
  app.add_flag("--json", o.json, "Write the result as JSON");
  app.set_version_flag("--version", "kvdt " KVDT_VERSION);

  const auto addList = [&o](CLI::App* sub) {
    sub->add_option("--leap-seconds-list", o.list,
                    "A leap-seconds.list file (or - for standard input) to "
                    "use instead of the built-in schedule");
  };
  const auto addStorage = [&o](CLI::App* sub) {
    sub->add_option("--epoch", o.epoch, "1970, 1900, 1958, jd, mjd or j2000")
        ->capture_default_str();
    sub->add_option("--standard", o.standard, "tai, utc, tt or tdb")
        ->capture_default_str();
    sub->add_option("--type", o.type, "double, int64, s<bits>:<fraction>, ...")
        ->capture_default_str();
  };

  CLI::App* convert = app.add_subcommand(
      "convert",
      "Re-express a reading or stored value in another epoch, "
      "standard or storage type");
  convert
      ->add_option("value", o.input,
                   "\"YYYY-MM-DD HH:MM:SS[.fff]\" or a stored value")
      ->required();
  addStorage(convert);
  convert->add_option("--to-epoch", o.toEpoch, "Target epoch");
  convert->add_option("--to-standard", o.toStandard, "Target standard");
  convert->add_option("--to-type", o.toType, "Target storage type");
  convert->add_option("--format", o.pattern, "Also render with this pattern");
  addList(convert);

  CLI::App* format =
      app.add_subcommand("format", "Render a reading with a pattern");
  format->add_option("pattern", o.pattern, "Format pattern")->required();
  format->add_option("reading", o.input, "\"YYYY-MM-DD HH:MM:SS[.fff]\"")
      ->required();
  format->add_option("--standard", o.standard, "tai, utc, tt or tdb")
      ->capture_default_str();

  CLI::App* check =
      app.add_subcommand("check-format", "Check a format pattern");
  check->add_option("pattern", o.pattern, "Format pattern")->required();

  CLI::App* leap = app.add_subcommand(
      "leap-seconds", "Show the leap-second table for an epoch and type");
  addStorage(leap);
  leap->add_option("--from", o.from,
                   "Prune the table to this start (reading in --standard)");
  addList(leap);

  CLI::App* step = app.add_subcommand(
      "step", "Step a clock from a start and show each step");
  step->add_option("start", o.input, "\"YYYY-MM-DD HH:MM:SS[.fff]\"")
      ->required();
  addStorage(step);
  step->add_option("--step", o.step, "Seconds per step")->capture_default_str();
  step->add_option("--count", o.count,
                   "Number of steps shown; times the standards shown at most "
                   "1000000")
      ->capture_default_str();
  step->add_option("--show", o.show, "Standards shown, comma-separated")
      ->capture_default_str();
  step->add_option("--format", o.pattern,
                   "Pattern for each step [yyyy-MM-dd HH:mm:ss.SSS t]");
  addList(step);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    // CLI11 reports a mistyped subcommand as a missing one; name it.
    int first = 1;
    while (first < argc && argv[first][0] == '-') ++first;
    if (first < argc && app.get_subcommands().empty()) {
      reportError("Korvane:kvdt:UnknownSubcommand",
                  "Unknown subcommand \"" + std::string(argv[first]) +
                      "\": use convert, format, check-format, leap-seconds "
                      "or step (see kvdt --help).");
    } else {
      reportError("Korvane:kvdt:BadArguments",
                  std::string(e.what()) + " (see kvdt --help)");
    }
    return 2;
  }

  try {
    if (*convert) return runConvert(o);
    if (*format) return runFormat(o);
    if (*check) return runCheckFormat(o);
    if (*leap) return runLeapSeconds(o);
    if (*step) return runStep(o);
  } catch (const foundation::core::except::IException& e) {
    reportError(e.identifier(), e.message());
  } catch (const ToolError& e) {
    reportError(e.identifier, e.message);
  } catch (const std::exception& e) {
    reportError("Korvane:kvdt:Failed", e.what());
  } catch (...) {
    reportError("Korvane:kvdt:Failed", "An unknown error occurred.");
  }
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  holdStandardDescriptors();
  const int status = run(argc, argv);
  std::string why;
  if (writeFailed(why)) {
    reportError("Korvane:kvdt:WriteFailed",
                "Cannot write the output: " + why + ".");
    return 2;
  }
  return status;
}
