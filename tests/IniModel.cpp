#include "tests/IniModel.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace BrimletTest {
namespace {

std::string Join(const std::string& left, const char* between, const std::string& right) {
  return left + between + right;
}

// A header or key line with its comments.
std::string Line(const IniModel& model, const std::string& name, const std::string& text) {
  std::string all;
  for (int i = 0; model.leading.contains(name + std::to_string(i)); ++i) {
    all += model.leading.at(name + std::to_string(i));
  }
  return all + text + (model.line.contains(name) ? model.line.at(name) : "") + "\n";
}

}  // namespace

IniModel IniModel::Of(const Velmar::IniFileData& data) {
  IniModel model;
  for (const auto& [section, keys] : data.mSections) {
    model.sections[section] = {keys.begin(), keys.end()};
  }
  model.line = {data.mLineComments.begin(), data.mLineComments.end()};
  model.leading = {data.mLeadingComments.begin(), data.mLeadingComments.end()};
  return model;
}

bool IniModel::Read(const std::string& text) {
  std::istringstream input(text);
  std::string section = "default";
  Lines pending;
  for (std::string lineText; std::getline(input, lineText);) {
    if (lineText[0] == ';') {
      pending.push_back(lineText);
      continue;
    }
    std::string name;
    if (lineText[0] == '[') {
      std::getline(std::istringstream(lineText.substr(1)), section, ']');
      section = lineText.size() == 1 ? "" : section;
      name = section;
    } else {
      const bool hasEquals = lineText.find('=') != std::string::npos;
      const std::string key = lineText.substr(0, lineText.find('='));
      std::string value = hasEquals ? lineText.substr(key.size() + 1) : lineText;
      if (!hasEquals || key.find(';') == std::string::npos) {
        value.resize(std::min(value.size(), value.find(';')));
      }
      if (section.empty() || key.empty()) {
        return false;
      }
      sections[section][key] = value;
      name = Join(section, "/", key);
    }
    if (lineText.find(';') != std::string::npos) {
      line[name] = lineText.substr(lineText.find(';'));
    }
    for (std::size_t i = 0; i < pending.size(); ++i) {
      leading[name + std::to_string(i)] = pending[i] + "\n";
    }
    pending.clear();
  }
  return true;
}

std::string IniModel::Write() const {
  std::string text;
  for (const auto& [section, keys] : sections) {
    text += Line(*this, section, "[" + section + "]");
    for (const auto& [key, value] : keys) {
      text += Line(*this, Join(section, "/", key), Join(key, "=", value));
    }
  }
  return text;
}

Lines Sorted(const std::string& text) {
  Lines blocks;
  std::string header;
  std::string block;
  for (const std::string& line : LinesOf(text)) {
    block += line + "\n";
    if (line.starts_with(';')) {
      continue;
    }
    header = line.starts_with('[') ? block : header;
    blocks.push_back(line.starts_with('[') ? block : header + block);
    block.clear();
  }
  blocks.push_back(block);
  std::sort(blocks.begin(), blocks.end());
  return blocks;
}

}  // namespace BrimletTest
