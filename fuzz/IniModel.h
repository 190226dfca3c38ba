// The INI dialect once more, read and written in the plainest way: an oracle for the parser.
#pragma once

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "storage/IniParser.h"

namespace BrimletTest {

// The content of a file, by the same names as in Velmar::IniFileData.
struct IniModel {
  using Texts = std::map<std::string, std::string>;
  std::map<std::string, Texts> sections;
  Texts line, leading;

  bool operator==(const IniModel&) const = default;

  static IniModel Of(const Velmar::IniFileData& data) {
    IniModel model;
    for (const auto& [section, keys] : data.mSections)
      model.sections[section] = {keys.begin(), keys.end()};
    model.line = {data.mLineComments.begin(), data.mLineComments.end()};
    model.leading = {data.mLeadingComments.begin(), data.mLeadingComments.end()};
    return model;
  }

  // Adds what a text holds. False: the text is refused.
  bool Read(const std::string& text) {
    std::istringstream lines(text);
    std::string section = "default", name, all;
    std::vector<std::string> pending;
    while (std::getline(lines, all)) {
      const std::size_t comment = all.find(';'), equals = all.find('=');
      if (comment == 0) {
        pending.push_back(all + "\n");
        continue;
      }
      if (all.starts_with('[')) {
        name = section = all.substr(1, all.find(']') - 1);
      } else {
        const std::string key = all.substr(0, equals);
        const std::size_t start = equals + 1;  // 0 without a "="
        if (section.empty() || key.empty()) return false;
        sections[section][key] =
            all.substr(start, comment < start ? std::string::npos : comment - start);
        name = section + "/" + key;
      }
      if (comment != std::string::npos) line[name] = all.substr(comment);
      for (std::size_t i = 0; i < pending.size(); ++i)
        leading[name + std::to_string(i)] = pending[i];
      pending.clear();
    }
    return true;
  }

  // Whether this is what a text holds that was written for it, in whatever order. A name with a
  // digit or a slash may share the place of another one, and the order decides: not for these.
  bool IsWrittenAs(const std::string& text) const {
    std::string own;
    const auto add = [&](const std::string& name, const std::string& all) {
      for (int i = 0; leading.contains(name + std::to_string(i)); ++i)
        own += leading.at(name + std::to_string(i));
      own += all + (line.contains(name) ? line.at(name) : "") + "\n";
    };
    for (const auto& [section, keys] : sections) {
      add(section, "[" + section + "]");
      for (const auto& [key, value] : keys) add(section + "/" + key, key + "=" + value);
    }
    IniModel read, expected;
    return read.Read(text) && expected.Read(own) && read == expected && text.size() == own.size();
  }
};

// Whether a parser reads a file as the model reads the text of it, and saves what the model holds.
inline bool AgreesWithModel(Velmar::IniParser& parser, const std::string& path,
                            const std::string& text) {
  std::ofstream(path) << text;
  const auto data = parser.GetFileData(path);
  IniModel model;
  if (!model.Read(text)) return data == nullptr;
  if (data == nullptr || IniModel::Of(*data) != model) return false;
  if (model.sections.empty()) return parser.Save(path) == -1;
  if (parser.Save(path) != 0) return false;
  std::ifstream saved(path);
  return model.IsWrittenAs({std::istreambuf_iterator<char>(saved), {}});
}

}  // namespace BrimletTest
