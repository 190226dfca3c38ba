// The INI dialect once more, read and written in the plainest way: an oracle for the parser.
#pragma once

#include <map>
#include <string>

#include "storage/IniParser.h"
#include "tests/Support.h"

namespace BrimletTest {

// The content of a file, by the same names as in Velmar::IniFileData.
struct IniModel {
  using Texts = std::map<std::string, std::string>;
  std::map<std::string, Texts> sections;
  Texts line;
  Texts leading;

  bool operator==(const IniModel&) const = default;

  static IniModel Of(const Velmar::IniFileData& data);

  // Adds what a text holds. False: the text is refused.
  bool Read(const std::string& text);
  [[nodiscard]] std::string Write() const;
};

// A written file in an order of its own: each header or key line with the comment lines before it,
// and a key line with its header.
Lines Sorted(const std::string& text);

}  // namespace BrimletTest
