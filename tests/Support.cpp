#include "tests/Support.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

#include "common/Logger.h"

namespace BrimletTest {

using Velmar::Logger;
using Velmar::Singleton;

TempFolder::TempFolder() : mPath(std::filesystem::temp_directory_path() / "brimlet-test-XXXXXX") {
  if (mkdtemp(mPath.data()) == nullptr) {
    throw std::runtime_error("mkdtemp " + mPath);
  }
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return "<unreadable>";
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteWhole(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) {
    throw std::runtime_error("write " + path);
  }
}

unsigned ModeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

LogCapture::LogCapture() : mPath(mFolder / "test.log") {
  Singleton<Logger>::Instance()->Init(mPath);
}

LogCapture::~LogCapture() { Singleton<Logger>::Destroy(); }

std::vector<std::string> LogCapture::Take() {
  Lines lines = LinesOf(ReadWhole(mPath));
  for (std::string& line : lines) {
    line = StripLogLine(line);
  }
  Singleton<Logger>::Destroy();
  std::filesystem::remove(mPath);
  Singleton<Logger>::Instance()->Init(mPath);
  return lines;
}

std::string StripLogLine(const std::string& line) {
  static const std::regex layout(
      R"(\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\] (\[\w+\] )\[(\w+):-?\d+\] ((?:.|\r)*))");
  std::smatch match;
  if (!std::regex_match(line, match, layout)) {
    return "<malformed> " + line;
  }
  return match.str(1) + "[" + match.str(2) + "] " + match.str(3);
}

std::vector<std::string> LinesOf(const std::string& text) {
  Lines lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

}  // namespace BrimletTest
