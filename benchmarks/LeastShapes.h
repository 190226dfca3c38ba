// The floors of the shapes of words, which are in those of the policy as well.
#pragma once

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
  for (const char c : word) {
    if (!Accepts(c)) {
      return false;
    }
  }
  return !word.empty();
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

// One pass over the bytes without a look back.
inline bool LeastIpv4Address(std::string_view word) {
  const char* at = word.data();
  const char* const end = at + word.size();
  for (int field = 0; field < 4; ++field) {
    if (field > 0 && (at == end || *at++ != '.')) {
      return false;
    }
    if (at == end || !IsDigit(*at) || (field == 0 && *at == '0')) {
      return false;
    }
    auto value = static_cast<unsigned>(*at++ - '0');
    for (int more = 0; more < 2 && value > 0 && at != end && IsDigit(*at); ++more) {
      value = value * 10 + static_cast<unsigned>(*at++ - '0');
    }
    if (value > 255) {
      return false;
    }
  }
  return at == end;
}

}  // namespace BrimletBench
