#include "utils/Validators.h"

#include <algorithm>
#include <cstddef>

namespace Velmar::Utils {
namespace {

constexpr std::size_t kMacLength = 17;
constexpr std::size_t kMaxNameLength = 64;
constexpr int kIpv4Fields = 4;
constexpr unsigned kMaxByte = 255;

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

// Takes a number from 0 to 255 without leading zeros off the front of `text`, leaving it in
// `value`. False when there is none, or a larger one.
bool TakeByte(std::string_view& text, unsigned& value) {
  value = 0;
  std::size_t digits = 0;
  while (digits < text.size() && IsDigit(text[digits])) {
    value = value * 10 + static_cast<unsigned>(text[digits] - '0');
    ++digits;
    if (value > kMaxByte) {
      return false;
    }
    if (value == 0) {
      break;
    }
  }
  text.remove_prefix(digits);
  return digits > 0;
}

}  // namespace

bool IsWord(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), IsWordChar);
}

bool IsNumber(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), IsDigit);
}

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
  for (int field = 0; field < kIpv4Fields; ++field) {
    if (field > 0) {
      if (!word.starts_with('.')) {
        return false;
      }
      word.remove_prefix(1);
    }
    unsigned value = 0;
    if (!TakeByte(word, value) || (field == 0 && value == 0)) {
      return false;
    }
  }
  return word.empty();
}

bool IsValidName(std::string_view word) {
  return word.size() <= kMaxNameLength &&
         std::all_of(word.begin(), word.end(), [](char c) { return IsWordChar(c) || c == '-'; });
}

}  // namespace Velmar::Utils
