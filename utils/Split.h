// Cutting a text into pieces at a delimiter.
#pragma once

#include <string>
#include <vector>

namespace Velmar::Utils {

// Returns the pieces of `text` between the occurrences of `delimiter`, found from left to right.
// The delimiter is one whole text, not a set of characters. Empty pieces are kept, but for one
// behind a delimiter that ends the text:
//
//   Split("a,,b", ",")    {"a", "", "b"}
//   Split(",a", ",")      {"", "a"}
//   Split("a,", ",")      {"a"}
//   Split("a,,", ",")     {"a", ""}
//   Split("a::b", "::")   {"a", "b"}
//   Split("", ",")        {}
//
// An empty delimiter occurs nowhere. May be called from several threads.
std::vector<std::string> Split(const std::string& text, const std::string& delimiter);

}  // namespace Velmar::Utils
