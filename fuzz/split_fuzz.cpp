// Split() cuts as a reader does who tries the delimiter at one byte after the other. The input is
// the delimiter, a line feed and the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "utils/Split.h"

namespace {

std::vector<std::string> SplitPlainly(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> pieces;
  std::string piece;
  for (std::size_t i = 0; i < text.size();) {
    if (delimiter.empty() || text.compare(i, delimiter.size(), delimiter) != 0) {
      piece += text[i++];
      continue;
    }
    pieces.push_back(piece);
    piece.clear();
    i += delimiter.size();
  }
  if (!piece.empty()) {
    pieces.push_back(piece);
  }
  return pieces;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  const std::size_t feed = std::min(input.find('\n'), size);
  const std::string delimiter = input.substr(0, feed);
  const std::string text = input.substr(std::min(feed + 1, size));
  BrimletFuzz::Require(Velmar::Utils::Split(text, delimiter) == SplitPlainly(text, delimiter),
                       "a text is cut at its delimiters");
  return 0;
}
