// Status codes that the application's programs share, and their messages: 0 is success, a positive
// number names a failure. Some operations return a code negated, or plain -1; their headers say so.
//
//   LogError(kModule, kFile, "cannot start, error code: %s", GetLogText(code).c_str());
//
// The codes are grouped by hundreds. Constants name those that this library is about.
#pragma once

#include <cstdint>
#include <string>

namespace Velmar::ErrorCode {

namespace CommonStatus {
inline constexpr std::int32_t ACTION_SUCCESS = 0;
inline constexpr std::int32_t POINTER_IS_NULL = 2;
inline constexpr std::int32_t GET_RANDOM_SEEDS_FAILED = 19;
}  // namespace CommonStatus

namespace FileOperStatus {
inline constexpr std::int32_t OPEN_FILE_FAILED = 100;
inline constexpr std::int32_t READ_FILE_FAILED = 101;
inline constexpr std::int32_t INVALID_FILE_PATH = 102;
inline constexpr std::int32_t INVALID_FILE_NAME = 103;
inline constexpr std::int32_t FILE_NOT_EXIST = 104;
inline constexpr std::int32_t WRITE_FILE_FAILED = 105;
inline constexpr std::int32_t SAVE_FILE_FAILED = 106;
}  // namespace FileOperStatus

// Directory operations share the numbers, and with them the messages, of the first file operations.
namespace DirOperStatus {
inline constexpr std::int32_t CREATE_DIR_FAILED = 100;
inline constexpr std::int32_t DIR_NOT_EXIST = 101;
inline constexpr std::int32_t REMOVE_DIR_FAILED = 102;
}  // namespace DirOperStatus

// The messages of the codes. Several threads may ask for them: they never change.
class ErrorInfo {
 public:
  // The one object of the process, made on first use.
  static ErrorInfo& Instance();

  // Returns the message of a code, "Unknown error" for every other number. 100 to 102 give the
  // messages of the file operations.
  std::string GetErrorInfo(int code) const;
};

// Returns what a log line tells of a code: "ACTION_FAILED" for a negative one, its message for
// every other. Several threads may call it.
std::string GetLogText(int code);

}  // namespace Velmar::ErrorCode
