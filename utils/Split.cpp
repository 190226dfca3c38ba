#include "utils/Split.h"

#include <cstddef>

namespace Velmar::Utils {

std::vector<std::string> Split(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  if (!delimiter.empty()) {
    for (std::size_t end = text.find(delimiter); end != std::string::npos;
         end = text.find(delimiter, start)) {
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
