// Numbers at the beginning of a text, as the standard library reads them. Internal: not installed.
#pragma once

#include <string_view>
#include <system_error>

namespace Velmar::Utils {

// Reads a decimal number as std::stoi and input streams do in the classic locale: after white
// space, with one sign and any number of leading zeros, up to the first byte that is not a digit.
//
// Returns no error (std::errc()); std::errc::invalid_argument and a `number` of 0 when the text
// does not begin with one; std::errc::result_out_of_range and the nearest limit beyond 32 bits.
std::errc ReadNumber(std::string_view text, int& number);

// Whether ReadNumber() finds a number from `min` to `max`.
bool HasNumberInRange(std::string_view text, int min, int max);

}  // namespace Velmar::Utils
