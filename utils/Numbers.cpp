#include "utils/Numbers.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Velmar::Utils {

std::errc ReadNumber(std::string_view text, int& number) {
  number = 0;
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  // std::from_chars() knows no plus sign, and a second sign is none.
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) {
      return std::errc::invalid_argument;
    }
  }
  const std::errc error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
  if (error == std::errc::result_out_of_range) {
    number =
        text.starts_with('-') ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
  }
  return error;
}

bool HasNumberInRange(std::string_view text, int min, int max) {
  int number = 0;
  return ReadNumber(text, number) == std::errc() && number >= min && number <= max;
}

}  // namespace Velmar::Utils
