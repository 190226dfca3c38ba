// Status codes that the application's programs share: 0 is success, a positive number names a
// failure. Some operations return a code negated, or plain -1; their headers say so.
//
// The constants have one address in the whole process and may be used from any thread.
#pragma once

#include <cstdint>

namespace Velmar::ErrorCode {

namespace CommonStatus {
inline constexpr std::int32_t ACTION_SUCCESS = 0;
inline constexpr std::int32_t POINTER_IS_NULL = 2;
inline constexpr std::int32_t GET_RANDOM_SEEDS_FAILED = 19;
}  // namespace CommonStatus

namespace FileOperStatus {
inline constexpr std::int32_t INVALID_FILE_PATH = 102;
inline constexpr std::int32_t WRITE_FILE_FAILED = 105;
}  // namespace FileOperStatus

// Directory operations share the numbers of the first file operations.
namespace DirOperStatus {
inline constexpr std::int32_t CREATE_DIR_FAILED = 100;
inline constexpr std::int32_t REMOVE_DIR_FAILED = 102;
}  // namespace DirOperStatus

}  // namespace Velmar::ErrorCode
