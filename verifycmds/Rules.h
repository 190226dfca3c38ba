// The command policy as data: one row for each option word. Internal: not installed.
//
// The rows in Rules.cpp decide which lines may run. They fix the form of a line and no more: word 0
// is free in all rows but one, and the line goes through the shell.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Velmar {

// A kind of argument, or a fixed word.
struct Shape {
  std::string_view name;     // as the grammar writes it: a fixed word as itself
  std::string_view accepts;  // told to people; empty for a fixed word
  bool (*matches)(const std::string& word);
};

// The most words that any line may have, words 0 and 1 included.
inline constexpr std::size_t kMaxWords = 7;

// The form of the lines with one option word.
struct Rule {
  std::string_view option;  // word 1, compared exactly
  std::size_t minWords;     // words 0 and 1 included
  std::size_t maxWords;
  std::array<const Shape*, kMaxWords - 2> arguments;  // of word 2 and on
  std::string_view program = {};                      // word 0; any where this is empty
};

// All rules, each with another option word.
std::span<const Rule> GetRules();

// Why a line is refused: the first of these reasons that applies.
enum class Fault {
  kNone,           // it is allowed
  kNoOption,       // it has fewer than two words
  kUnknownOption,  // no rule has its word 1
  kWordCount,      // it has too few or too many words for its rule
  kProgram,        // its word 0 is not the one of its rule
  kArgument,       // a word does not have the shape that the rule wants there
};

struct Verdict {
  Fault fault = Fault::kNone;
  const Rule* rule = nullptr;  // null for kNoOption and kUnknownOption
  std::size_t word = 0;        // kArgument: which one
};

// Judges a command line. Takes time in proportion to its length and, besides a copy of one word at
// a time, a fixed amount of memory. Keeps and logs nothing.
Verdict Judge(std::string_view line);

}  // namespace Velmar
