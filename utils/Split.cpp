#include "utils/Split.h"

#include <algorithm>
#include <cstddef>

namespace Velmar::Utils {
namespace {

// In general a delimiter is one character, which is found and counted with less.
bool IsCharacter(const std::string& delimiter) { return delimiter.size() == 1; }

std::size_t Find(const std::string& text, const std::string& delimiter, std::size_t start) {
  return IsCharacter(delimiter) ? text.find(delimiter[0], start) : text.find(delimiter, start);
}

}  // namespace

std::vector<std::string> Split(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> pieces;
  if (IsCharacter(delimiter)) {
    pieces.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), delimiter[0])) +
                   1);
  }
  std::size_t start = 0;
  if (!delimiter.empty()) {
    for (std::size_t end = Find(text, delimiter, start); end != std::string::npos;
         end = Find(text, delimiter, start)) {
      pieces.emplace_back(text, start, end - start);
      start = end + delimiter.size();
    }
  }
  if (start < text.size()) {
    pieces.emplace_back(text, start);
  }
  return pieces;
}

}  // namespace Velmar::Utils
