// The floors of the shapes of words, which are in those of the policy as well.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace BrimletBench {

using std::string_view_literals::operator""sv;

// The floors leave out the call: the compiler puts them into the loop that measures.

constexpr bool IsIn(char c, char first, char last) {
  return static_cast<unsigned char>(c - first) <= static_cast<unsigned char>(last - first);
}
constexpr bool IsDigit(char c) { return IsIn(c, '0', '9'); }
constexpr bool IsWordChar(char c) {
  return IsDigit(c) || IsIn(static_cast<char>(c | 0x20), 'a', 'z') || c == '_';
}

// For short words.
template <bool Accepts(char)>
constexpr bool ScanEach(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), Accepts);
}

// For long words: looks at all bytes, which the compiler does for many at a time.
template <bool Accepts(char)>
constexpr bool ScanAll(std::string_view word) {
  unsigned char others = 0;
  for (const char c : word) {
    others |= static_cast<unsigned char>(!Accepts(c));
  }
  return others == 0 && !word.empty();
}

// The value of a hexadecimal digit plus one, 0 for any other byte.
inline constexpr auto kHexDigits = [] {
  std::array<unsigned char, 256> table{};
  for (unsigned char i = 0; i < 16; ++i) {
    table[static_cast<unsigned char>("0123456789abcdef"[i])] = static_cast<unsigned char>(i + 1);
    table[static_cast<unsigned char>("0123456789ABCDEF"[i])] = static_cast<unsigned char>(i + 1);
  }
  return table;
}();

inline bool LeastMacAddress(std::string_view word) {
  if (word.size() != 17) {
    return false;
  }
  bool isAccepted = true;
  for (std::size_t i = 0; i < 17; i += 3) {
    isAccepted &= kHexDigits[static_cast<unsigned char>(word[i])] != 0;
    isAccepted &= kHexDigits[static_cast<unsigned char>(word[i + 1])] != 0;
    isAccepted &= i == 15 || word[i + 2] == ':';
  }
  return isAccepted && word != "00:00:00:00:00:00"sv && word != "FF:FF:FF:FF:FF:FF"sv &&
         word != "ff:ff:ff:ff:ff:ff"sv;
}

// Steps over a number from 0 to 255; null when there is none.
inline const char* SkipByte(const char* at, const char* end) {
  if (at == end || !IsDigit(*at)) {
    return nullptr;
  }
  if (*at == '0' || at + 1 == end || !IsDigit(at[1])) {
    return at + 1;
  }
  if (at + 2 == end || !IsDigit(at[2])) {
    return at + 2;
  }
  return (at[0] - '0') * 100 + (at[1] - '0') * 10 + at[2] - '0' <= 255 ? at + 3 : nullptr;
}

inline bool LeastIpv4Address(std::string_view word) {
  const char* at = word.data();
  const char* const end = at + word.size();
  if (word.starts_with('0')) {
    return false;
  }
  for (int dots = 0; dots < 3; ++dots) {
    at = SkipByte(at, end);
    if (at == nullptr || at == end || *at++ != '.') {
      return false;
    }
  }
  return SkipByte(at, end) == end;
}

}  // namespace BrimletBench
