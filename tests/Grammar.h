// The policy's grammar once more, as a table of patterns: an oracle that shares nothing with the
// policy itself.
#pragma once

#include <regex>
#include <string>
#include <vector>

#include "tests/Support.h"

namespace BrimletTest {

// A form of argument, and some words to build lines from. The first of them fits.
struct Form {
  std::regex pattern;
  long min = 0, max = -1;  // of the number at its start, where there is a range
  Lines samples;
};

struct Rule {
  const char* option;
  const char* program;  // null: any
  std::vector<Form> arguments;
  bool isLastOptional = false;
};

extern const std::vector<Rule> kGrammar;

enum class Verdict { kAllowed, kRefused, kUnknown };

// What becomes of a line; kUnknown is refused, too. For lines of some hundred bytes: std::regex
// recurses once per byte, and a word of 26 kB overflows the stack.
Verdict Judge(const std::string& line);

}  // namespace BrimletTest
