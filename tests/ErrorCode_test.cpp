#include "common/ErrorCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace BrimletTest {
namespace {

namespace ErrorCode = Velmar::ErrorCode;

std::string MessageOf(int code) { return ErrorCode::ErrorInfo::Instance().GetErrorInfo(code); }

// FNV-1a over "code message\n" of every code that has a message. It was made from the list of
// messages and not from this program: one changed character, or a constant with a wrong number,
// shows.
TEST(ErrorCode, EveryCodeHasItsMessage) {
  std::uint64_t digest = 0xcbf29ce484222325;
  int known = 0;
  for (int code = -1000; code <= 2000; ++code) {
    const std::string message = MessageOf(code);
    if (message == "Unknown error") {
      continue;
    }
    ++known;
    for (const char c : std::to_string(code) + " " + message + "\n") {
      digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
  }
  EXPECT_EQ(known, 124);
  EXPECT_EQ(digest, 0x91b171eeb54621aa);
}

TEST(ErrorCode, DirectoryCodesShareTheNumbersOfTheFirstFileCodes) {
  EXPECT_EQ(ErrorCode::DirOperStatus::CREATE_DIR_FAILED, 100);
  EXPECT_EQ(ErrorCode::DirOperStatus::DIR_NOT_EXIST, 101);
  EXPECT_EQ(ErrorCode::DirOperStatus::REMOVE_DIR_FAILED, 102);
}

TEST(ErrorCode, LogTextsOfNegativeCodesAreAllTheSame) {
  for (const int code : {-1, -ErrorCode::DirOperStatus::REMOVE_DIR_FAILED, -2147483647 - 1}) {
    EXPECT_EQ(ErrorCode::GetLogText(code), "ACTION_FAILED") << code;
  }
  EXPECT_EQ(ErrorCode::GetLogText(ErrorCode::CommonStatus::POINTER_IS_NULL), "Null pointer");
  EXPECT_EQ(ErrorCode::GetLogText(ErrorCode::DirOperStatus::REMOVE_DIR_FAILED),
            "Invalid file path");
  EXPECT_EQ(ErrorCode::GetLogText(900), "Unknown error");
}

}  // namespace
}  // namespace BrimletTest
