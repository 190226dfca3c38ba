// Foreign text made fit to be shown. Internal: not installed.
#pragma once

#include <string>
#include <string_view>

namespace Velmar::Utils {

// A text without the characters that a terminal or the reader of a log would act on: \n, \r and \t
// are written as such, and as \x1b, byte by byte, all others below 0x20, 0x7f, and in UTF-8 U+0080
// to U+009F, U+2028 and U+2029.
std::string EscapeControls(std::string_view text);

}  // namespace Velmar::Utils
