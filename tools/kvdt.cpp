// kvdt: the library's conversions, formatting and leap-second table from the
// command line, for people checking a model's times by hand and for scripts
// (--json). The library itself reads no files; this tool is where a
// leap-second list on disk meets LeapSecondListParser.
//
// Every failure ends with "<identifier>: <message>" on stderr (under --json
// one object {"error": {...}} per line instead) and status 2, a failed write
// to stdout included. The library's own failures keep their
// "Korvane:DateTime:..." identifiers; the tool's (arguments the library never
// sees) are "Korvane:kvdt:...".
//
// `convert` streams: a file of a million readings is read through one fixed
// buffer and written 64 KiB at a time, with the leap-second tables and the
// output pattern prepared once for the run, so memory does not grow with
// the file.
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
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "date_time/Clock.hpp"
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeConverter.hpp"
#include "date_time/DateTimeParser.hpp"
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

// Whether errors are written as JSON: known before the arguments are parsed,
// so that a bad argument under --json is reported as JSON too.
bool gJson = false;

// `text` with every byte outside printable ASCII written as \xNN: input
// repeated in a message (or in JSON, which needs UTF-8) is then clean text,
// whatever the bytes were.
std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    const auto b = static_cast<unsigned char>(c);
    if (b >= 0x20 && b < 0x7F) {
      shown += c;
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", b);
      shown += hex;
    }
  }
  return shown;
}

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
  return Clock::parseReading(text, ts);
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

// A descriptor open for reading `path` ("-" for standard input), closed
// when the holder goes. A directory is refused by name; `what` names the
// file in messages ("the leap-second list", "the input"), `failure` the
// identifier. The type is taken from the opened descriptor, so the checked
// file is the one read.
class InputFile {
 public:
  InputFile(const std::string& path, const std::string& what,
            const char* failure)
      : owned_(path != "-"),
        fd_(owned_ ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC) : 0) {
    if (fd_ < 0) {
      fail(failure, "Cannot read " + what + " \"" + printable(path) +
                        "\": " + std::strerror(errno) + ".");
    }
    if (::fstat(fd_, &stat_) != 0 || S_ISDIR(stat_.st_mode)) {
      const std::string why =
          S_ISDIR(stat_.st_mode) ? "it is a directory" : std::strerror(errno);
      close();
      fail(failure, "Cannot read " + what + " \"" + printable(path) +
                        "\": " + why + ".");
    }
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile() { close(); }
  int fd() const { return fd_; }
  const struct stat& status() const { return stat_; }

 private:
  void close() {
    if (owned_ && fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  bool owned_;
  int fd_;
  struct stat stat_ {};
};

// The text of the list at `path` ("-" for standard input): a regular file
// or a pipe, at most kMaxListBytes.
std::string readList(const std::string& path) {
  const InputFile file(path, "the leap-second list", "CannotReadList");
  const int fd = file.fd();
  const auto mode = file.status().st_mode;
  if (!(S_ISREG(mode) || S_ISFIFO(mode))) {
    fail("CannotReadList", "The leap-second list \"" + printable(path) +
                               "\" is a device or a socket, not a regular "
                               "file or a pipe.");
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

// The table of the schedule for `epoch` and `type`. A type too small to
// hold the instant of any entry gives an empty table, which would convert
// as if no second had ever been inserted: that is refused by name.
LeapSecondTableData tableFor(const std::optional<LeapSecondList>& list,
                             Epoch epoch, const FXP::DataType& type) {
  LeapSecondTableData table =
      list ? LeapSecondTableDataCreator::build(list->years, epoch, type)
           : LeapSecondTableDataCreator::build(epoch, type);
  if (table.utcInstants.empty() && !table.leapSecondYears.empty()) {
    fail("NoLeapSecondFitsType",
         "The storage type " + typeName(type) + " counting from " +
             kEpochNames[static_cast<int>(epoch)] +
             " cannot hold the instant of any leap second; use a wider type.");
  }
  return table;
}

const LeapSecondYears* yearsOf(const std::optional<LeapSecondList>& list) {
  return list ? &list->years : nullptr;
}

// Whether the digits `text` starts with run into a '-' or ':': then it is a
// date or a time, never a number (a number has a minus sign only in front
// or after its exponent's 'e'), and reading it as one can be skipped.
bool dateOrTime(std::string_view text) {
  const auto end = std::find_if(text.begin(), text.end(),
                                [](char c) { return c < '0' || c > '9'; });
  return end != text.begin() && end != text.end() &&
         (*end == '-' || *end == ':');
}

// A stored count "@<seconds or days>", checked as Clock::timePointFromCount
// checks it; a whole number is read as an integer, so that counts past 2^53
// stay exact.
DateTime countValue(std::string_view count, Epoch epoch, TimeStandard ts,
                    const FXP::DataType& type) {
  std::int64_t whole = 0;
  if (wholeNumber(count, whole))
    return Clock::timePointFromCount(whole, ts, epoch, type);
  double number = 0;
  if (wholeNumber(count, number))
    return Clock::timePointFromCount(number, ts, epoch, type);
  fail("BadStoredCount", "\"@" + printable(count) +
                             "\" is not a stored count: write @ and a number "
                             "of seconds or days from the epoch.");
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
  if (!text.empty() && text[0] == '@')
    return countValue(std::string_view(text).substr(1), epoch, ts, type);
  return Clock::timePointFrom(text, ts, epoch, type, years);
}

// The one JSON shape of a time point, in every subcommand: its reading (the
// real-world calendar reading, Clock::readingOf), standard, epoch, storage
// type, stored value and leap-second flag; "formatted" when a pattern was
// given.
Json describe(const DateTime& dt, const std::u16string& pattern) {
  const DateTimeStruct cal = Clock::readingOf(dt);
  Json j;
  j["reading"] = render(cal, dt.timeStandard, kReadingPattern);
  j["standard"] = DateTimeDefs::timeStandardName(dt.timeStandard);
  j["epoch"] = kEpochNames[static_cast<int>(dt.epoch)];
  j["type"] = typeName(dt.value.getDataType());
  j["stored"] = storedText(dt.value);
  j["leapSecond"] = dt.isLeapSecond;
  if (!pattern.empty()) j["formatted"] = render(cal, dt.timeStandard, pattern);
  return j;
}

struct Options {
  bool json = false;
  bool keepGoing = false;
  std::string list;
  std::string epoch = "1970", standard = "utc", type = "double";
  std::string toEpoch, toStandard, toType;
  std::string input, pattern, from, show = "utc,tai,tt";
  std::vector<std::string> values;
  std::string inputFile, inputFormat;
  double step = 1.0;
  int count = 10;
};

// One value of `convert` after another: everything that does not depend on
// the value (names, patterns, leap-second tables) is settled once here, so
// that a million lines cost a million conversions and nothing more.
class Converter {
 public:
  Converter(const Options& o, const std::optional<LeapSecondList>& list)
      : epoch_(parseEpoch(o.epoch)),
        ts_(parseStandard(o.standard)),
        type_(parseType(o.type)),
        toEpoch_(o.toEpoch.empty() ? epoch_ : parseEpoch(o.toEpoch)),
        toTs_(o.toStandard.empty() ? ts_ : parseStandard(o.toStandard)),
        toType_(o.toType.empty() ? type_ : parseType(o.toType)),
        pattern_(o.pattern.empty() ? u"" : validPattern(o.pattern)),
        line_(pattern_.empty() ? kReadingPattern : pattern_),
        units_(line_.maxUnits(toTs_), u'\0'),
        inputFormat_(o.inputFormat),
        json_(o.json),
        // The built-in schedule too is read from a table built once: the
        // checked helpers would build one per reading at a half-year's end.
        builtin_(list ? LeapSecondTableData{}
                      : LeapSecondTableDataCreator::build(
                            Epoch::Epoch1958, FXP::DataType::doubleT())),
        years_(list ? &list->years : &builtin_.leapSecondYears),
        suffix_(" " + std::string(DateTimeDefs::timeStandardName(toTs_)) +
                "  (stored "),
        since_(" in " + typeName(toType_) + " since " +
               kEpochNames[static_cast<int>(toEpoch_)]) {
    if (!inputFormat_.empty()) (void)validPattern(inputFormat_);
    if (toTs_ != ts_) table_ = tableFor(list, toEpoch_, toType_);
    control_.setMathLogger(&overflow_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Appends the line for `text` to `out`, or throws its failure.
  void convert(std::string_view text, std::string& out) {
    overflow_.reset();
    DateTimeStruct reading;
    DateTime dt = start(text, reading);
    const DateTime in = dt;
    // Epoch and type first: TDB exists only for a double counting days, so
    // the standard is changed where the value is going, with a table built
    // for that epoch and type.
    if (toEpoch_ != epoch_ || !(toType_ == type_)) {
      // The reading must keep in the target storage what the start kept: a
      // leap second rounded out of itself there would read as the next
      // second with the flag still set.
      if (dt.isLeapSecond)
        (void)Clock::timePointFrom(reading, ts_, toEpoch_, toType_, years_);
      const FXP::DataValue v = DateTimeConverter::forEpochs(epoch_, toEpoch_)
                                   .convertEpochImpl(dt.value, epoch_, toEpoch_,
                                                     ts_, toType_, control_);
      dt = DateTime(DvLs{v, dt.isLeapSecond}, toEpoch_, ts_);
    }
    if (toTs_ != ts_) {
      dt = TimeStandardConverter::convertTimeStandard(dt, toTs_, table_,
                                                      control_);
    }
    // A value that does not fit the target type is an error, not a
    // saturated number passed off as the answer.
    if (overflow_.overflowOccurred()) {
      fail("OutOfRange", "The value does not fit the storage type " +
                             typeName(toType_) + ".");
    }
    if (json_) {
      out +=
          Json{{"input", describe(in, u"")}, {"output", describe(dt, pattern_)}}
              .dump();
    } else {
      putLine(Clock::readingOf(dt), out);
      if (pattern_.empty()) {
        out += suffix_;
        out += storedText(dt.value);
        out += since_;
        out += dt.isLeapSecond ? ", leap second)" : ")";
      }
    }
    out += '\n';
  }

 private:
  // The reading rendered by the line's pattern, in UTF-8. Text in ASCII
  // (the reading pattern's always is) is its units, copied without an
  // encoder or a string of its own.
  void putLine(const DateTimeStruct& reading, std::string& out) {
    const std::size_t n =
        line_.formatTo(reading, toTs_, units_.data(), units_.size());
    const std::u16string_view text(units_.data(), n);
    if (std::any_of(text.begin(), text.end(),
                    [](char16_t c) { return c >= 0x80; })) {
      out += resource_core::toUtf8(text);
      return;
    }
    const std::size_t at = out.size();
    out.resize(at + n);
    std::copy(text.begin(), text.end(), out.begin() + at);
  }

  // A stored count ("@" and a number, or a plain number as before) or a
  // reading: by --input-format, else in ISO 8601 by the parser's preset.
  // `reading` is set for a reading.
  DateTime start(std::string_view text, DateTimeStruct& reading) {
    if (!text.empty() && text[0] == '@')
      return countValue(text.substr(1), epoch_, ts_, type_);
    double number = 0;
    if (!dateOrTime(text) && wholeNumber(text, number))
      return Clock::timePointFromCount(number, ts_, epoch_, type_);
    if (inputFormat_.empty()) {
      reading = Clock::parseReading(text, ts_);
    } else {
      throwIfSet(DateTimeParser::tryParse(text, inputFormat_, ts_, reading));
    }
    return Clock::timePointFrom(reading, ts_, epoch_, type_, years_);
  }

  Epoch epoch_;
  TimeStandard ts_;
  FXP::DataType type_;
  Epoch toEpoch_;
  TimeStandard toTs_;
  FXP::DataType toType_;
  std::u16string pattern_;
  PreparedFormat line_;   // --format, else the reading pattern
  std::u16string units_;  // line_'s rendering, before UTF-8
  std::string inputFormat_;
  bool json_;
  LeapSecondTableData builtin_;
  const LeapSecondYears* years_;
  LeapSecondTableData table_;
  std::string suffix_, since_;
  FixptRangeMath::FixptRangeMathLogger overflow_;
  FXP::MathControl control_ =
      FXP::MathControl::createFullPrecisionNearSatMathControl();
};

// The longest line `convert` reads: far more than any reading with its
// fraction, and small enough that a stream without line ends (a binary
// file, /dev/zero) is refused at once instead of being buffered.
constexpr std::size_t kMaxLineBytes = 4096;

// Lines of a descriptor through one fixed buffer: a line is a view into the
// buffer, valid until the next call.
class LineReader {
 public:
  LineReader(int fd, std::string name)
      : fd_(fd), name_(std::move(name)), buffer_(new char[kBufferBytes]) {}

  // The next line without its "\n" (or "\r\n"); false at the end. A last
  // line without a line end is a line.
  bool next(std::string_view& line) {
    for (;;) {
      char* const begin = buffer_.get() + begin_;
      const std::size_t size = end_ - begin_;
      if (char* nl = static_cast<char*>(std::memchr(begin, '\n', size))) {
        const std::size_t length = static_cast<std::size_t>(nl - begin);
        begin_ += length + 1;
        return take(std::string_view(begin, length), line);
      }
      if (size > kMaxLineBytes) tooLong();
      if (eof_) {
        if (size == 0) return false;
        begin_ = end_;
        return take(std::string_view(begin, size), line);
      }
      std::memmove(buffer_.get(), begin, size);
      begin_ = 0;
      end_ = size;
      fill();
    }
  }
  std::uint64_t lineNumber() const { return line_; }

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 16;

  bool take(std::string_view text, std::string_view& line) {
    if (text.size() > kMaxLineBytes) tooLong();
    ++line_;
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    line = text;
    return true;
  }
  void fill() {
    for (;;) {
      const ssize_t n = ::read(fd_, buffer_.get() + end_, kBufferBytes - end_);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        fail("CannotReadInput",
             "Cannot read " + name_ + ": " + std::strerror(errno) + ".");
      }
      if (n == 0) eof_ = true;
      end_ += static_cast<std::size_t>(n);
      return;
    }
  }
  [[noreturn]] void tooLong() const {
    fail("LineTooLong", "Line " + std::to_string(line_ + 1) + " of " + name_ +
                            " is longer than " + std::to_string(kMaxLineBytes) +
                            " bytes.");
  }

  int fd_;
  std::string name_;
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0, end_ = 0;
  bool eof_ = false;
  std::uint64_t line_ = 0;
};

// A failure of one value: the identifier and message, the value repeated,
// and its line when it came from a stream (0 for an argument).
struct ValueError {
  std::string identifier, message, input;
  std::uint64_t line = 0;
  std::string source;
};

void reportError(const ValueError& e);

// On a terminal only: a line on stderr now and then while a long input is
// read, so a long run shows that it runs. A pipe or a file gets nothing.
class Progress {
 public:
  Progress() : shown_(::isatty(2) == 1) {}
  ~Progress() {
    if (printed_) std::fputs("\r\x1b[K", stderr);
  }
  void line(std::uint64_t total) {
    if (!shown_ || total % kEvery != 0) return;
    std::fprintf(stderr, "\rkvdt: %llu lines converted",
                 static_cast<unsigned long long>(total));
    printed_ = true;
  }

 private:
  static constexpr std::uint64_t kEvery = 100000;
  bool shown_;
  bool printed_ = false;
};

int runConvert(const Options& o) {
  // The values in order, then the --input file: (text, whether it names a
  // stream to read).
  std::vector<std::pair<std::string, bool>> sources;
  for (const std::string& v : o.values) sources.emplace_back(v, v == "-");
  if (!o.inputFile.empty()) sources.emplace_back(o.inputFile, true);
  if (sources.empty()) {
    fail("BadArguments",
         "Nothing to convert: give values, - for standard input, or --input "
         "FILE (see kvdt convert --help).");
  }
  const std::optional<LeapSecondList> list = loadList(o.list);
  Converter converter(o, list);
  static char outBuffer[1 << 16];
  std::setvbuf(stdout, outBuffer, _IOFBF, sizeof outBuffer);

  int status = 0;
  // Lines are gathered here and handed to stdout a buffer at a time: a
  // call into stdio per line costs more than the line's formatting. The
  // bytes and their order are those of writing each line as it comes,
  // since stdout is fully buffered either way.
  constexpr std::size_t kBatchBytes = sizeof outBuffer;
  std::string out;
  out.reserve(kBatchBytes + kMaxLineBytes);
  const auto flush = [&out] {
    std::fwrite(out.data(), 1, out.size(), stdout);
    out.clear();
  };
  // Whatever was gathered goes out however the run ends: at the end, at a
  // failure, or when a later input cannot be opened or read.
  struct FlushAtExit {
    decltype(flush)& f;
    ~FlushAtExit() { f(); }
  } flushAtExit{flush};
  std::uint64_t total = 0;
  Progress progress;
  // One value, gathered or reported; false when it failed.
  const auto one = [&](std::string_view text, std::uint64_t line,
                       const std::string& source) {
    const std::size_t before = out.size();
    try {
      converter.convert(text, out);
      if (out.size() >= kBatchBytes) flush();
      return true;
    } catch (const foundation::core::except::IException& e) {
      reportError({e.identifier(), e.message(), printable(text), line,
                   printable(source)});
    } catch (const ToolError& e) {
      reportError(
          {e.identifier, e.message, printable(text), line, printable(source)});
    } catch (const std::exception& e) {
      reportError({"Korvane:kvdt:Failed", e.what(), printable(text), line,
                   printable(source)});
    }
    out.resize(before);  // nothing of a failed value is written
    status = 2;
    return false;
  };
  // A failed write stops the loops; main reports it.
  for (const auto& [text, stream] : sources) {
    if (std::ferror(stdout)) break;
    if (!stream) {
      if (!one(text, 0, "") && !o.keepGoing) return 2;
      continue;
    }
    const bool stdinInput = text == "-";
    const InputFile file(text, stdinInput ? "standard input" : "the input",
                         "CannotReadInput");
    LineReader reader(file.fd(), stdinInput ? "standard input"
                                            : "\"" + printable(text) + "\"");
    std::string_view line;
    while (!std::ferror(stdout) && reader.next(line)) {
      if (!one(line, reader.lineNumber(), text) && !o.keepGoing) return 2;
      progress.line(++total);
    }
  }
  return status;
}

int runFormat(const Options& o) {
  const TimeStandard ts = parseStandard(o.standard);
  const std::u16string pattern = validPattern(o.pattern);
  const std::string text = render(validReading(o.input, ts), ts, pattern);
  if (o.json) {
    std::cout << Json{{"pattern", o.pattern}, {"formatted", text}}.dump()
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
                     .dump()
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
    rows.push_back({{"utc", describe(utc, u"")},
                    {"tai", describe(tai, u"")},
                    {"total", table.cumulativeCounts[i]}});
  }
  if (o.json) {
    std::cout << Json{{"epoch", kEpochNames[static_cast<int>(epoch)]},
                      {"type", typeName(type)},
                      {"baseCount", table.baseLeapSecondCount},
                      {"entries", rows}}
                     .dump()
              << '\n';
    return 0;
  }
  std::printf("%d leap seconds before the first entry\n",
              table.baseLeapSecondCount);
  std::printf("%-19s  %-19s  %5s   stored UTC / TAI (%s since %s)\n",
              "UTC 23:59:59 before", "TAI instant", "total",
              typeName(type).c_str(), kEpochNames[static_cast<int>(epoch)]);
  // The whole seconds of each instant; the JSON has them with the fraction.
  const auto seconds = [](const Json& t) {
    return t["reading"].get<std::string>().substr(0, 19);
  };
  for (const Json& r : rows) {
    std::printf("%s  %s  %5d   %s / %s\n", seconds(r["utc"]).c_str(),
                seconds(r["tai"]).c_str(), r["total"].get<int>(),
                r["utc"]["stored"].get<std::string>().c_str(),
                r["tai"]["stored"].get<std::string>().c_str());
  }
  return 0;
}

// The pattern letters, each with runs rendered by the library's formatter
// for one sample reading: what is shown is what `format` would print.
struct Letter {
  char letter;
  const char* field;
  std::vector<const char16_t*> runs;
};

int runPatterns(const Options& o) {
  const std::vector<Letter> letters = {
      {'t', "name of the time standard", {u"t"}},
      {'G', "era", {u"G"}},
      {'y', "year of the era", {u"y", u"yy", u"yyyy"}},
      {'u', "signed year", {u"u", u"uuuuu"}},
      {'M', "month", {u"M", u"MM", u"MMM", u"MMMM", u"MMMMM"}},
      {'d', "day of the month", {u"d", u"dd"}},
      {'D', "day of the year", {u"D", u"DDD"}},
      {'e', "day of the week", {u"e", u"eee", u"eeee", u"eeeee"}},
      {'a', "AM or PM", {u"a"}},
      {'h', "hour, 1 to 12", {u"h", u"hh"}},
      {'H', "hour, 0 to 23", {u"H", u"HH"}},
      {'m', "minute", {u"m", u"mm"}},
      {'s', "whole second", {u"s", u"ss"}},
      {'S', "fraction digits, cut", {u"S", u"SSS", u"SSSSSS"}},
  };
  const TimeStandard ts = TimeStandard::UTC;
  const std::string sample = "2016-12-31 23:59:60.5";
  const DateTimeStruct cal = Clock::parseReading(sample, ts);
  Json rows = Json::array();
  for (const Letter& l : letters) {
    Json examples = Json::array();
    for (const char16_t* run : l.runs) {
      examples.push_back({{"pattern", resource_core::toUtf8(run)},
                          {"text", render(cal, ts, run)}});
    }
    rows.push_back({{"letter", std::string(1, l.letter)},
                    {"field", l.field},
                    {"examples", examples}});
  }
  if (o.json) {
    std::cout << Json{{"reading", sample + " UTC"}, {"letters", rows}}.dump()
              << '\n';
    return 0;
  }
  std::cout << "Pattern letters, with what each run prints for " << sample
            << " UTC:\n";
  for (const Json& r : rows) {
    std::string line = "  " + r["letter"].get<std::string>() + "  " +
                       r["field"].get<std::string>();
    line.resize(std::max<std::size_t>(line.size() + 1, 32), ' ');
    for (const Json& e : r["examples"]) {
      line += "  " + e["pattern"].get<std::string>() + " " +
              e["text"].get<std::string>();
    }
    std::cout << line << '\n';
  }
  std::cout << "Other ASCII letters are errors; quote literal text in "
               "apostrophes ('at'), and write '' for one apostrophe.\n";
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
  // Under --json each standard's value is a time point in the shape of every
  // subcommand, its "formatted" the row's text.
  const auto stepRow = [&](int i, std::uint32_t* at, Json* row) {
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
      if (row) (*row)[DateTimeDefs::timeStandardName(s)] = describe(v, pattern);
      line += (line.empty() ? "" : "  ") + text;
    }
    return line;
  };
  for (int i : {0, o.count - 1}) {
    stepRow(i, nullptr, nullptr);
  }
  Json steps = Json::array();
  // A failed write stops the loop; main reports it.
  for (int i = 0; i < o.count && !std::ferror(stdout); ++i) {
    Json row = Json::object();
    const std::string line = stepRow(i, &cursor, o.json ? &row : nullptr);
    if (o.json) {
      steps.push_back(row);
    } else {
      std::cout << line << '\n';
    }
  }
  if (o.json) std::cout << Json{{"steps", steps}}.dump() << '\n';
  return 0;
}

// "<identifier>: <message>" on stderr, the value repeated with its line;
// under --json one line {"error": {...}} with the same parts as members.
void reportError(const ValueError& e) {
  if (gJson) {
    Json error{{"identifier", e.identifier}, {"message", e.message}};
    if (!e.input.empty() || e.line != 0) error["input"] = e.input;
    if (e.line != 0) {
      error["line"] = e.line;
      error["source"] = e.source;
    }
    std::cerr << Json{{"error", error}}.dump() << '\n';
    return;
  }
  // A control character echoed from an argument (CLI11 repeats them) must
  // not break the one line of the report.
  std::string message = e.message;
  for (char& c : message) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  std::cerr << e.identifier << ": " << message;
  if (e.line != 0) {
    std::cerr << " (line " << e.line << " of "
              << (e.source == "-" ? "standard input" : '"' + e.source + '"')
              << ": \"" << e.input << "\")";
  } else if (!e.input.empty()) {
    std::cerr << " (input \"" << e.input << "\")";
  }
  std::cerr << '\n';
}

void reportError(const std::string& identifier, const std::string& message) {
  reportError(ValueError{identifier, message, "", 0, ""});
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
    const std::string shown = printable(arg);
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
  for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) gJson = true;
  }
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
  app.add_flag("--json", o.json,
               "Write results as JSON, one object per line; errors too, on "
               "stderr");
  app.set_version_flag("--version", "kvdt " KVDT_VERSION);
  app.set_help_all_flag("--help-all", "Print the help of every subcommand");

  const auto addJson = [&o](CLI::App* sub) {
    sub->add_flag("--json", o.json,
                  "Write results as JSON, one object per line; errors too, "
                  "on stderr");
  };
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
      "Re-express readings or stored values in another epoch, standard or "
      "storage type, one output line per value or input line");
  convert->add_option("values", o.values,
                      "Readings in ISO 8601 (\"2016-12-31T23:59:60.5Z\", "
                      "\"2016-12-31 23:59\", \"2016-12-31\"), stored counts "
                      "(@1483228800 or a plain number), or - for standard "
                      "input");
  convert->add_option("--input", o.inputFile,
                      "Read one value per line from this file (- for "
                      "standard input)");
  convert->add_option("--input-format", o.inputFormat,
                      "Read readings by this pattern instead of ISO 8601 "
                      "(see kvdt patterns)");
  convert->add_flag("--keep-going", o.keepGoing,
                    "Report a bad value on stderr and go on; the status is "
                    "2 at the end");
  addStorage(convert);
  convert->add_option("--to-epoch", o.toEpoch, "Target epoch");
  convert->add_option("--to-standard", o.toStandard, "Target standard");
  convert->add_option("--to-type", o.toType, "Target storage type");
  convert->add_option("--format", o.pattern,
                      "Print each result rendered by this pattern instead");
  addList(convert);
  addJson(convert);

  CLI::App* format =
      app.add_subcommand("format", "Render a reading with a pattern");
  format->add_option("pattern", o.pattern, "Format pattern")->required();
  format->add_option("reading", o.input, "A reading in ISO 8601")->required();
  format->add_option("--standard", o.standard, "tai, utc, tt or tdb")
      ->capture_default_str();
  addJson(format);

  CLI::App* check =
      app.add_subcommand("check-format", "Check a format pattern");
  check->add_option("pattern", o.pattern, "Format pattern")->required();
  addJson(check);

  CLI::App* patterns =
      app.add_subcommand("patterns", "List the pattern letters with examples");
  addJson(patterns);

  CLI::App* leap = app.add_subcommand(
      "leap-seconds", "Show the leap-second table for an epoch and type");
  addStorage(leap);
  leap->add_option("--from", o.from,
                   "Prune the table to this start (reading in --standard)");
  addList(leap);
  addJson(leap);

  CLI::App* step = app.add_subcommand(
      "step", "Step a clock from a start and show each step");
  step->add_option("start", o.input, "A reading in ISO 8601, or @count")
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
  addJson(step);

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
                      "\": use convert, format, check-format, patterns, "
                      "leap-seconds or step (see kvdt --help).");
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
    if (*patterns) return runPatterns(o);
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
