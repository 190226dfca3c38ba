#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "utils/Split.h"

namespace BrimletBench {
namespace {

using Pieces = std::vector<std::string>;

Pieces Split(const std::string& text) { return Velmar::Utils::Split(text, " "); }

// Leaves out delimiters of any length but one.
Pieces LeastSplit(const std::string& text) {
  Pieces pieces;
  pieces.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), ' ')) + 1);
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    pieces.emplace_back(text, start, end - start);
    start = end + 1;
  }
  return pieces;
}

void AddWords(int words) {
  std::string text = "word";
  for (int i = 1; i < words; ++i) {
    text.append(" word").append(std::to_string(i));
  }
  Require(Split(text) == LeastSplit(text), "Split");
  Line("Split, " + std::to_string(words) + " words", Repeat(text, Direct<Split>()))
      .Floor(1.2, Repeat(text, Direct<LeastSplit>()));
}

}  // namespace

void AddSplit() {
  AddWords(7);
  AddWords(1000);
}

}  // namespace BrimletBench
