#include "utils/Split.h"

#include <cstddef>

namespace Velmar::Utils {

std::vector<std::string> Split(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  std::size_t end = delimiter.empty() ? std::string::npos : text.find(delimiter);
  while (end != std::string::npos) {
    pieces.push_back(text.substr(start, end - start));
    start = end + delimiter.size();
    end = text.find(delimiter, start);
  }
  if (start < text.size()) {
    pieces.push_back(text.substr(start));
  }
  return pieces;
}

}  // namespace Velmar::Utils
