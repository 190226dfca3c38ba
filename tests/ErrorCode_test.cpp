#include "common/ErrorCode.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

TEST(ErrorCode, HasAConstantForEachCodeWithAMessageAndNoOther) {
  std::uint64_t digest = 0xcbf29ce484222325;  // FNV-1a over the list of codes and messages
  std::set<int> told, named = {-1};
  for (int code = -1; code <= 2000; ++code) {
    const std::string message = Velmar::ErrorCode::GetLogText(code);
    if (message != "Unknown error") told.insert(code);
    for (const char c : std::to_string(code) + message)
      digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  }
  EXPECT_EQ(digest, 11348460396725068580U);
  std::ifstream header(SOURCE_DIR "/common/ErrorCode.h");
  for (std::string line; std::getline(header, line);)
    if (line.starts_with("inline")) named.insert(std::stoi(line.substr(line.find('=') + 1)));
  EXPECT_EQ(named, told);
}
