#include "storage/IniParser.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/FileIo.h"
#include "common/LogStatement.h"
#include "utils/Numbers.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "UTILS";
constexpr std::size_t kMaxFileSize = 1048576;
// Enough for a file full of empty comment lines (";") before one key line whose section and key
// have 60 bytes together.
constexpr std::size_t kMaxNameBytes = 32 * kMaxFileSize;
constexpr mode_t kCreateMode = 0666;

using CommentMap = std::unordered_map<std::string, std::string>;

// The name under which comments are held: of a header when `key` is empty, else of a key line.
std::string NameOf(std::string_view section, std::string_view key) {
  std::string name(section);
  if (!key.empty()) {
    name.append("/").append(key);
  }
  return name;
}

// Fills an IniFileData from a text. The text has to outlive the parser.
class TextParser {
 public:
  explicit TextParser(IniFileData& data) : mData(data) {}

  // False: the text is refused.
  bool Parse(std::string_view text) {
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      if (!ParseLine(text.substr(0, end))) {
        return false;
      }
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    return true;
  }

 private:
  bool ParseLine(std::string_view line) {
    if (line.starts_with(';')) {
      mPending.push_back(line);
      return true;
    }
    return line.starts_with('[') ? ParseHeader(line) : ParseKeyLine(line);
  }

  bool ParseHeader(std::string_view line) {
    mSection = line.substr(1, line.find(']') - 1);
    mKeys = nullptr;
    return StoreComments({}, line, line.find(';'));
  }

  bool ParseKeyLine(std::string_view line) {
    const std::size_t equals = line.find('=');
    const std::size_t comment = line.find(';');
    const std::string_view key = line.substr(0, equals);
    if (mSection.empty() || key.empty()) {
      return false;
    }
    const std::size_t start = equals == std::string_view::npos ? 0 : equals + 1;
    // A comment that begins within the key does not end the value.
    const std::size_t end = comment < start ? line.size() : std::min(comment, line.size());
    SectionKeys().insert_or_assign(std::string(key), line.substr(start, end - start));
    return StoreComments(key, line, comment);
  }

  // The section comes into being with its first key. It is looked up once: it may have a long name.
  std::unordered_map<std::string, std::string>& SectionKeys() {
    if (mKeys == nullptr) {
      mKeys = &mData.mSections[std::string(mSection)];
    }
    return *mKeys;
  }

  // Stores what belongs to a line: its own comment, which begins at `comment`, and the comment
  // lines before it. An empty key stands for the section's header. False: the names would take too
  // much memory.
  bool StoreComments(std::string_view key, std::string_view line, std::size_t comment) {
    const std::size_t count = mPending.size() + (comment == std::string_view::npos ? 0 : 1);
    mNameBytes += (count + 1) * (mSection.size() + key.size());
    if (mNameBytes > kMaxNameBytes) {
      return false;
    }
    if (count == 0) {
      return true;
    }
    const std::string name = NameOf(mSection, key);
    if (comment != std::string_view::npos) {
      mData.mLineComments.insert_or_assign(name, line.substr(comment));
    }
    for (std::size_t i = 0; i < mPending.size(); ++i) {
      mData.mLeadingComments[name + std::to_string(i)].assign(mPending[i]).append("\n");
    }
    mPending.clear();
    return true;
  }

  IniFileData& mData;
  std::string_view mSection = "default";
  std::unordered_map<std::string, std::string>* mKeys = nullptr;  // of mSection, once it has one
  std::vector<std::string_view> mPending;
  std::size_t mNameBytes = 0;
};

// Makes the text of a file.
class TextComposer {
 public:
  explicit TextComposer(const IniFileData& data) : mData(data) {}

  std::string Compose() && {
    for (const auto& [section, keys] : mData.mSections) {
      AddLine(section, {"[", section, "]"});
      for (const auto& [key, value] : keys) {
        AddLine(NameOf(section, key), {key, "=", value});
      }
    }
    return std::move(mText);
  }

 private:
  void AddLine(const std::string& name, std::initializer_list<std::string_view> pieces) {
    AddLeadingComments(name);
    for (const std::string_view piece : pieces) {
      mText.append(piece);
    }
    if (const std::string* const comment = Find(mData.mLineComments, name)) {
      mText.append(*comment);
    }
    mText.append("\n");
  }

  void AddLeadingComments(const std::string& name) {
    for (std::size_t i = 0;; ++i) {
      const std::string* const comment = Find(mData.mLeadingComments, name + std::to_string(i));
      if (comment == nullptr) {
        return;
      }
      mText.append(*comment);
    }
  }

  static const std::string* Find(const CommentMap& comments, const std::string& name) {
    const auto found = comments.find(name);
    return found == comments.end() ? nullptr : &found->second;
  }

  const IniFileData& mData;
  std::string mText;
};

// The content of a regular file, of one above the limit only the beginning. Nothing when it cannot
// be read to its end: half a file, written back, would lose the other half.
std::optional<std::string> ReadText(const std::string& path) {
  const UniqueFd fd = FileIo::OpenRegular(path, O_RDONLY);
  if (!fd.IsOpen()) {
    return std::nullopt;
  }
  std::string text;
  std::array<char, 65536> block;
  while (text.size() <= kMaxFileSize) {
    const ssize_t got = FileIo::ReadSome(fd.Get(), block.data(), block.size());
    if (got < 0) {
      return std::nullopt;
    }
    if (got == 0) {
      break;
    }
    text.append(block.data(), static_cast<std::size_t>(got));
  }
  return text;
}

bool WriteText(const std::string& path, std::string_view text) {
  UniqueFd fd = FileIo::OpenRegular(path, O_WRONLY | O_CREAT | O_TRUNC, kCreateMode);
  // A file system may report only now that a byte found no room.
  return fd.IsOpen() && FileIo::WriteAll(fd.Get(), text) == text.size() && close(fd.Release()) == 0;
}

int SaveContent(const std::string& path, const IniFileData& data) {
  if (data.mSections.empty()) {
    return -1;
  }
  BRIMLET_LOG(LOG_LEVEL_INFO, kModule, "ready to save %s.", path.c_str());
  return WriteText(path, TextComposer(data).Compose()) ? 0 : -1;
}

}  // namespace

int IniParser::Load(const std::string& path) {
  const std::optional<std::string> text = ReadText(path);
  IniFileData data;
  if (!text || text->size() > kMaxFileSize || !TextParser(data).Parse(*text)) {
    return -1;
  }
  mFiles[path] = std::move(data);
  return 0;
}

int IniParser::Save(const std::string& path) { return SaveContent(path, mFiles[path]); }

int IniParser::SaveAll() {
  for (const auto& [path, data] : mFiles) {
    SaveContent(path, data);
  }
  return 0;
}

bool IniParser::CheckSectionInvalid(const std::string& path, const std::string& section) const {
  const auto file = mFiles.find(path);
  if (file == mFiles.end()) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "filePath %s is invalid!", path.c_str());
    return true;
  }
  const auto& sections = file->second.mSections;
  if (sections.empty()) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "config file %s is empty!", path.c_str());
    return true;
  }
  // No section is held without a key.
  if (!sections.contains(section)) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "section %s is invalid!", section.c_str());
    return true;
  }
  return false;
}

std::unique_ptr<IniFileData> IniParser::GetFileData(const std::string& path) {
  return Load(path) == 0 ? std::make_unique<IniFileData>(mFiles[path]) : nullptr;
}

// Loads the file and returns the key's value, which is made if missing, or null.
const std::string* IniParser::FindValue(const std::string& path, const std::string& section,
                                        const std::string& key) {
  if (Load(path) != 0 || section.empty() || key.empty() || CheckSectionInvalid(path, section)) {
    return nullptr;
  }
  return &mFiles[path].mSections[section][key];
}

std::string IniParser::GetString(const std::string& path, const std::string& section,
                                 const std::string& key) {
  const std::string* const value = FindValue(path, section, key);
  return value == nullptr ? "" : *value;
}

int IniParser::GetInt(const std::string& path, const std::string& section, const std::string& key) {
  const std::string* const value = FindValue(path, section, key);
  if (value == nullptr || value->empty()) {
    return -1;
  }
  int number = 0;
  Utils::ReadNumber(*value, number);
  return number;
}

bool IniParser::GetBool(const std::string& path, const std::string& section,
                        const std::string& key) {
  const std::string* const value = FindValue(path, section, key);
  return value != nullptr && *value == "true";
}

void IniParser::SetString(const std::string& path, const std::string& section,
                          const std::string& key, const std::string& value) {
  if (Load(path) != 0 || section.empty() || key.empty() || value.empty()) {
    return;
  }
  IniFileData& data = mFiles[path];
  data.mSections[section][key] = value;
  SaveContent(path, data);
}

void IniParser::SetString(const std::string& path, const std::string& section,
                          const std::string& key, const char* value) {
  SetString(path, section, key, std::string(value == nullptr ? "" : value));
}

void IniParser::SetInt(const std::string& path, const std::string& section, const std::string& key,
                       int value) {
  SetString(path, section, key, std::to_string(value));
}

void IniParser::SetBool(const std::string& path, const std::string& section, const std::string& key,
                        bool value) {
  SetString(path, section, key, std::string(value ? "true" : "false"));
}

}  // namespace Velmar
