// A file is read and saved as the model of the dialect does it; what was saved loads again, with
// the same sections and keys; and what it holds then stays the same from save to save.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Require.h"
#include "storage/IniParser.h"
#include "tests/IniModel.h"
#include "tests/Support.h"

namespace {

using BrimletFuzz::Require;
using BrimletTest::IniModel;

// In a name with a ";", comment and value overlap, and grow with every save.
bool IsKept(const std::string& name) { return name.find(';') == std::string::npos; }

bool AreNamesKept(const IniModel& model) {
  return std::all_of(model.sections.begin(), model.sections.end(), [](const auto& section) {
    const auto& keys = section.second;
    return IsKept(section.first) &&
           std::all_of(keys.begin(), keys.end(), [](const auto& key) { return IsKept(key.first); });
  });
}

void RequireSameKeys(const IniModel& before, const IniModel& after) {
  Require(before.sections.size() == after.sections.size(), "a save keeps the sections");
  for (const auto& [section, keys] : before.sections) {
    const auto found = after.sections.find(section);
    Require(found != after.sections.end() && found->second.size() == keys.size(),
            "a save keeps a section");
    for (const auto& [key, value] : keys) {
      const auto same = found->second.find(key);
      Require(same != found->second.end(), "a save keeps a key");
      Require(!IsKept(key) || same->second == value, "a save keeps a value");
    }
  }
}

// What a file that holds `held` holds once it was saved.
IniModel Resave(Velmar::IniParser& parser, const std::string& path, const IniModel& held) {
  Require(parser.Save(path) == 0, "a file with a key is saved");
  Require(BrimletTest::Sorted(BrimletTest::ReadWhole(path)) == BrimletTest::Sorted(held.Write()),
          "a file is written as by the model");
  const auto data = parser.GetFileData(path);
  Require(data != nullptr, "what was saved loads");
  return IniModel::Of(*data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const BrimletTest::TempFolder folder;
  static const std::string path = folder / "fuzz.ini";
  const std::string text(data, data + size);
  BrimletTest::WriteWhole(path, text);
  Velmar::IniParser parser;
  const auto read = parser.GetFileData(path);
  IniModel model;
  Require(model.Read(text) == (read != nullptr), "a file is refused as by the model");
  if (read == nullptr || read->mSections.empty()) {
    Require(parser.Save(path) == -1, "nothing held, nothing saved");
    Require(BrimletTest::ReadWhole(path) == text, "a file that is not saved keeps its bytes");
    return 0;
  }
  Require(IniModel::Of(*read) == model, "a file is read as by the model");
  const IniModel saved = Resave(parser, path, model);
  RequireSameKeys(model, saved);
  const IniModel again = Resave(parser, path, saved);
  Require(!AreNamesKept(model) || saved == again, "a second save changes nothing");
  return 0;
}
