#include "utils/Validators.h"

#include <algorithm>
#include <cstddef>

namespace Velmar::Utils {
namespace {

constexpr std::size_t kMacLength = 17;
constexpr std::size_t kMaxNameLength = 64;
constexpr int kIpv4Dots = 3;
constexpr int kMaxByte = 255;

// <cctype> asks the locale and is undefined for negative characters; these do and are neither. One
// comparison per range: what lies below it wraps around to a large number.
constexpr bool IsInRange(char c, char first, char last) {
  return static_cast<unsigned char>(c - first) <= static_cast<unsigned char>(last - first);
}
constexpr char ToLower(char c) { return static_cast<char>(c | 0x20); }
constexpr bool IsDigit(char c) { return IsInRange(c, '0', '9'); }
constexpr bool IsLetter(char c) { return IsInRange(ToLower(c), 'a', 'z'); }
constexpr bool IsWordChar(char c) { return IsLetter(c) || IsDigit(c) || c == '_'; }
constexpr bool IsHexDigit(char c) { return IsDigit(c) || IsInRange(ToLower(c), 'a', 'f'); }

// Looks at all bytes, which the compiler does for many at a time because nothing leaves the loop.
// Not inlined, so that short words, which are most, do not pay for what it makes ready.
template <bool Accepts(char)>
[[gnu::noinline]] bool AreAllOfLongWord(std::string_view word) {
  unsigned char others = 0;
  for (const char c : word) {
    others |= static_cast<unsigned char>(!Accepts(c));
  }
  return others == 0;
}

// One or more bytes, all of which are accepted.
template <bool Accepts(char)>
bool AreAll(std::string_view word) {
  constexpr std::size_t kLong = 64;
  if (word.size() >= kLong) [[unlikely]] {
    return AreAllOfLongWord<Accepts>(word);
  }
  return !word.empty() && std::all_of(word.begin(), word.end(), Accepts);
}

// How many characters the number from 0 to 255 without leading zeros at the beginning of `text`
// has; 0 when there is none, or a larger one.
std::size_t GetByteLength(std::string_view text) {
  constexpr std::size_t kMaxDigits = 3;
  int value = 0;
  std::size_t length = 0;
  while (length < std::min(text.size(), kMaxDigits) && IsDigit(text[length])) {
    value = value * 10 + (text[length] - '0');
    ++length;
    if (value == 0) {
      break;
    }
  }
  return value <= kMaxByte ? length : 0;
}

}  // namespace

bool IsWord(std::string_view word) { return AreAll<IsWordChar>(word); }

bool IsNumber(std::string_view word) { return AreAll<IsDigit>(word); }

bool IsMacAddress(std::string_view word) {
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

bool IsIpv4Address(std::string_view word) {
  if (word.starts_with('0')) {
    return false;
  }
  for (int dots = 0; dots < kIpv4Dots; ++dots) {
    const std::size_t length = GetByteLength(word);
    if (length == 0 || length == word.size() || word[length] != '.') {
      return false;
    }
    word.remove_prefix(length + 1);
  }
  return !word.empty() && GetByteLength(word) == word.size();
}

bool IsValidName(std::string_view word) {
  return word.size() <= kMaxNameLength &&
         std::all_of(word.begin(), word.end(), [](char c) { return IsWordChar(c) || c == '-'; });
}

}  // namespace Velmar::Utils
