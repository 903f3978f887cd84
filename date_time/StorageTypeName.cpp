#include "date_time/StorageTypeName.hpp"

#include <cctype>
#include <charconv>
#include <stdexcept>

namespace KvDateTime {

namespace {

bool wholeNumber(std::string_view s, int& out) {
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return !s.empty() && ec == std::errc() && end == s.data() + s.size();
}

}  // namespace

FXP::DataType StorageTypeName::parse(std::string_view text) {
  std::string s(text);
  for (char& c : s)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (s == "double") return FXP::DataType::doubleT();
  const std::string_view v(s);
  int word = 0, fraction = 0;
  bool ok = false, isSigned = true;
  if (v.starts_with("int") || v.starts_with("uint")) {
    isSigned = v[0] == 'i';
    ok = wholeNumber(v.substr(isSigned ? 3 : 4), word) &&
         (word == 8 || word == 16 || word == 32 || word == 64);
  } else if (v.size() > 1 && (v[0] == 's' || v[0] == 'u')) {
    isSigned = v[0] == 's';
    const std::size_t sep = v.find_first_of(":.");
    ok = sep != std::string_view::npos &&
         wholeNumber(v.substr(1, sep - 1), word) &&
         wholeNumber(v.substr(sep + 1), fraction);
  }
  if (ok) {
    try {
      return FXP::DataType::fixedT(isSigned, word, fraction);
    } catch (const std::invalid_argument&) {
    }
  }
  throw std::invalid_argument(
      "Unknown storage type \"" + std::string(text) +
      "\": use double, int8 to int64, uint8 to uint64, or s<bits>:<fraction "
      "bits> / u<bits>:<fraction bits> with 1 to 128 bits, such as s128:64.");
}

std::string StorageTypeName::name(const FXP::DataType& type) {
  if (type.isDouble()) return "double";
  // Built with to_chars: GCC 12 warns falsely on chains of string "+".
  char buf[16];
  char* p = buf;
  *p++ = type.isSigned() ? 's' : 'u';
  p = std::to_chars(p, buf + sizeof buf, type.wordLength()).ptr;
  *p++ = ':';
  p = std::to_chars(p, buf + sizeof buf, type.fractionLength()).ptr;
  return std::string(buf, p);
}

}  // namespace KvDateTime
