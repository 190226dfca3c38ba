#include "utils/Validators.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string_view>

namespace Velmar::Utils {
namespace {

constexpr std::size_t kMacLength = 17;
constexpr std::size_t kMaxNameLength = 64;
constexpr int kIpv4Dots = 3;
constexpr std::size_t kMaxByteLength = 3;
constexpr int kMaxByte = 255;

// <cctype> asks the locale and is undefined for negative characters; these do and are neither.
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool IsWordChar(char c) { return IsLetter(c) || IsDigit(c) || c == '_'; }
constexpr bool IsHexDigit(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// One or more bytes, all of which are accepted.
template <bool Accepts(char)>
bool AreAll(const std::string& word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), Accepts);
}

// Removes a number from 0 to 255 without leading zeros from the beginning of `text`. False when
// there is none.
bool TakeByte(std::string_view& text) {
  const std::size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
  if (length == 0 || length > kMaxByteLength || (length > 1 && text[0] == '0')) {
    return false;
  }
  int value = 0;
  std::from_chars(text.data(), text.data() + length, value);
  text.remove_prefix(length);
  return value <= kMaxByte;
}

}  // namespace

bool IsWord(const std::string& word) { return AreAll<IsWordChar>(word); }

bool IsNumber(const std::string& word) { return AreAll<IsDigit>(word); }

bool IsMacAddress(const std::string& word) {
  if (word.size() != kMacLength || word == "00:00:00:00:00:00" || word == "FF:FF:FF:FF:FF:FF" ||
      word == "ff:ff:ff:ff:ff:ff") {
    return false;
  }
  for (std::size_t i = 0; i < word.size(); ++i) {
    const bool isSeparator = i % 3 == 2;
    if (isSeparator ? word[i] != ':' : !IsHexDigit(word[i])) {
      return false;
    }
  }
  return true;
}

bool IsIpv4Address(const std::string& word) {
  std::string_view rest = word;
  if (rest.starts_with('0')) {
    return false;
  }
  for (int dots = 0; dots < kIpv4Dots; ++dots) {
    if (!TakeByte(rest) || !rest.starts_with('.')) {
      return false;
    }
    rest.remove_prefix(1);
  }
  return TakeByte(rest) && rest.empty();
}

bool IsValidName(const std::string& word) {
  return word.size() <= kMaxNameLength &&
         std::all_of(word.begin(), word.end(), [](char c) { return IsWordChar(c) || c == '-'; });
}

}  // namespace Velmar::Utils
