// Foreign text made fit to be shown. Internal: not installed.
#pragma once

#include <string>
#include <string_view>

namespace Velmar::Utils {

// Returns a text without the characters that a terminal or the reader of a log acts on. Line feed,
// carriage return and tab become \n, \r and \t. Each byte of the others becomes \x and two digits:
// below 0x20, 0x7f, and in UTF-8 U+0080 to U+009F, U+2028 and U+2029.
std::string EscapeControls(std::string_view text);

}  // namespace Velmar::Utils
