#include "common/ErrorCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace BrimletTest {
namespace {

namespace ErrorCode = Velmar::ErrorCode;

std::string MessageOf(int code) { return ErrorCode::ErrorInfo::Instance().GetErrorInfo(code); }

// FNV-1a over "code message\n" of every code of a range.
std::uint64_t DigestOf(int first, int last) {
  std::uint64_t digest = 0xcbf29ce484222325;
  for (int code = first; code <= last; ++code) {
    for (const char c : std::to_string(code) + " " + MessageOf(code) + "\n") {
      digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
  }
  return digest;
}

// The digests were made from the list of messages, not from this program: one changed character or
// a constant with a wrong number shows.
TEST(ErrorCode, EveryCategoryHasItsMessages) {
  const struct {
    int first;
    int last;
    int lastConstant;
    std::uint64_t digest;
  } cases[] = {
      {0, 19, ErrorCode::CommonStatus::GET_RANDOM_SEEDS_FAILED, 0x6cef43052131f4ac},
      {100, 106, ErrorCode::FileOperStatus::SAVE_FILE_FAILED, 0xb862d61e5866327},
      {200, 203, ErrorCode::DecodeStatus::SCALE_SIZE_ERROR, 0xf8de7929d63d43d6},
      {300, 301, ErrorCode::ServerStatus::SERVER_ALREADY_RUNNING, 0x497ad6129da73990},
      {302, 302, ErrorCode::EventStatus::SEND_EVENT_FAILED, 0x9a434b201b673b18},
      {400, 421, ErrorCode::WifiStatus::WIFI_NOT_RESPONDING, 0x2ebafe7a5660e629},
      {500, 507, ErrorCode::AuthenStatus::AUTHEN_SESSION_KEY_FAILED, 0x89763ba65fe2c99f},
      {602, 620, ErrorCode::TcpStatus::HEARTBEAT_TIMEOUT, 0x8a873a68b36c6997},
      {700, 720, ErrorCode::BluetoothStatus::NOT_RESPONDING, 0x67dbd163d2e2542e},
      {800, 805, ErrorCode::AuthFileStatus::INIT_AUTH_HANDLE_FAILED, 0x6b6f459771f105d0},
      {901, 914, ErrorCode::FileTransStatus::PEER_NEEDS_FILE_PERMISSION, 0xae675bf034c260b8},
  };
  int listed = 0;
  for (const auto& c : cases) {
    EXPECT_EQ(DigestOf(c.first, c.last), c.digest) << "codes from " << c.first;
    EXPECT_EQ(c.lastConstant, c.last);
    listed += c.last - c.first + 1;
  }
  int known = 0;
  for (int code = -1000; code <= 2000; ++code) {
    known += MessageOf(code) != "Unknown error" ? 1 : 0;
  }
  EXPECT_EQ(listed, 124);
  EXPECT_EQ(known, 124);
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
