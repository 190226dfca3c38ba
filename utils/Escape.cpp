#include "utils/Escape.h"

#include <cstddef>

namespace Velmar::Utils {
namespace {

constexpr unsigned char ToByte(char c) { return static_cast<unsigned char>(c); }

// How many bytes the control character has with which a text begins; 0 where there is none.
std::size_t GetControlLength(std::string_view text) {
  const unsigned char first = ToByte(text[0]);
  if (first < 0x20 || first == 0x7f) {
    return 1;
  }
  if (first == 0xc2 && text.size() > 1 && ToByte(text[1]) >= 0x80 && ToByte(text[1]) <= 0x9f) {
    return 2;
  }
  return text.starts_with("\u2028") || text.starts_with("\u2029") ? 3 : 0;
}

void AppendEscaped(std::string& to, char c) {
  constexpr std::string_view kNamed = "\n\r\t";
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  const std::size_t name = kNamed.find(c);
  if (name != std::string_view::npos) {
    to.append(1, '\\').append(1, "nrt"[name]);
  } else {
    to.append("\\x").append(1, kHexDigits[ToByte(c) / 16]).append(1, kHexDigits[ToByte(c) % 16]);
  }
}

}  // namespace

std::string EscapeControls(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    const std::size_t length = GetControlLength(text);
    if (length == 0) {
      escaped.append(1, text[0]);
    }
    for (const char c : text.substr(0, length)) {
      AppendEscaped(escaped, c);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return escaped;
}

}  // namespace Velmar::Utils
