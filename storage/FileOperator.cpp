#include "storage/FileOperator.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string_view>

#include "common/ErrorCode.h"
#include "common/LogStatement.h"
#include "common/UniqueFd.h"
#include "common/WriteAll.h"

namespace Velmar {
namespace {

using ErrorCode::CommonStatus::ACTION_SUCCESS;
using ErrorCode::FileOperStatus::INVALID_FILE_PATH;
using ErrorCode::FileOperStatus::WRITE_FILE_FAILED;

constexpr const char* kModule = "UTILS";
constexpr int kCommonFlags = O_CLOEXEC | O_NOCTTY;
// Until the caller's permission bits are set, a new file is nobody else's.
constexpr mode_t kCreateMode = 0600;

std::optional<int> GetWriteFlags(const std::string& mode) {
  constexpr int kWrite = O_WRONLY | O_CREAT | kCommonFlags;
  if (mode == "out" || mode == "ate" || mode == "binary") {
    return kWrite | O_TRUNC;
  }
  if (mode == "app") {
    return kWrite | O_APPEND;
  }
  return std::nullopt;
}

bool IsReadMode(const std::string& mode) { return mode == "in" || mode == "binary"; }

UniqueFd OpenForReading(const std::string& path) {
  return UniqueFd(open(path.c_str(), O_RDONLY | kCommonFlags));
}

// As read(2), but not ended by a signal. A failure counts as the end of the file.
std::size_t ReadSome(int fd, char* buffer, std::size_t size) {
  ssize_t got = 0;
  do {
    got = read(fd, buffer, size);
  } while (got < 0 && errno == EINTR);
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// Hands out a file's lines one by one, reading it in blocks.
class LineReader {
 public:
  explicit LineReader(int fd) : mFd(fd) {}

  // Puts the next line, without its line feed, into `line`, where it stays until the next call.
  // Returns the number of bytes it takes in the file, or 0 at the end.
  std::size_t Next(std::string_view& line) {
    mBegun.clear();
    while (!mRest.empty() || Fill()) {
      const std::size_t end = mRest.find('\n');
      const std::string_view piece = mRest.substr(0, end);
      if (end != std::string_view::npos) {
        mRest.remove_prefix(end + 1);
        line = mBegun.empty() ? piece : mBegun.append(piece);
        return line.size() + 1;
      }
      mBegun.append(piece);
      mRest = {};
    }
    line = mBegun;
    return line.size();
  }

 private:
  bool Fill() {
    mRest = std::string_view(mBlock.data(), ReadSome(mFd, mBlock.data(), mBlock.size()));
    return !mRest.empty();
  }

  int mFd;
  std::array<char, 65536> mBlock;
  std::string_view mRest;
  std::string mBegun;  // a line that does not end in the block in which it begins
};

}  // namespace

FileOperator& FileOperator::GetInstance() {
  static FileOperator instance;
  return instance;
}

bool FileOperator::IsFileExist(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool FileOperator::IsLinkFile(const std::string& path) {
  if (!IsFileExist(path)) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "filename:%s not exist!", path.c_str());
    return false;
  }
  char target = 0;
  if (readlink(path.c_str(), &target, sizeof target) < 0) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "readlink filename:%s not exist!", path.c_str());
    return false;
  }
  BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "readlink filename:%s exist!", path.c_str());
  return true;
}

int FileOperator::WriteFile(const std::string& path, const std::string& content, uint32_t offset,
                            const std::string& mode, uint32_t permission) {
  const std::optional<int> flags = GetWriteFlags(mode);
  if (content.empty() || !flags) {
    return WRITE_FILE_FAILED;
  }
  const UniqueFd fd(open(path.c_str(), *flags, kCreateMode));
  if (!fd.IsOpen()) {
    return WRITE_FILE_FAILED;
  }
  // What cannot be positioned (a FIFO at the path) is not written at the wrong place.
  if (lseek(fd.Get(), static_cast<off_t>(offset), SEEK_SET) >= 0) {
    WriteAll(fd.Get(), content);
  } else if (mode == "ate") {
    return WRITE_FILE_FAILED;
  }
  return fchmod(fd.Get(), permission) == 0 ? ACTION_SUCCESS : WRITE_FILE_FAILED;
}

int FileOperator::WriteToFile(const std::string& path, const std::string& content, uint32_t offset,
                              const std::string& mode, uint32_t permission) {
  if (!IsFileExist(path)) {
    return INVALID_FILE_PATH;
  }
  return WriteFile(path, content, offset, mode, permission);
}

int FileOperator::ReadFile(const std::string& path, char* buffer, uint32_t length, uint32_t offset,
                           const std::string& mode) {
  if (!IsReadMode(mode)) {
    return -1;
  }
  const UniqueFd fd = OpenForReading(path);
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "buffer is nullptr, read failed.");
    return -1;
  }
  if (!fd.IsOpen()) {
    return -1;
  }
  if (lseek(fd.Get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
    return 0;
  }
  const std::size_t wanted = std::min<std::size_t>(length, INT_MAX);
  std::size_t done = 0;
  while (done < wanted) {
    const std::size_t got = ReadSome(fd.Get(), buffer + done, wanted - done);
    if (got == 0) {
      break;
    }
    done += got;
  }
  return static_cast<int>(done);
}

int FileOperator::GetFileSize(const std::string& path) {
  const UniqueFd fd = OpenForReading(path);
  if (!fd.IsOpen()) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "ifstream open failed!");
    return -1;
  }
  return static_cast<int>(lseek(fd.Get(), 0, SEEK_END));
}

int FileOperator::ReadLines(const std::string& path, int32_t count, uint32_t offset,
                            std::vector<std::string>& lines, const std::string& mode) {
  if (!IsReadMode(mode)) {
    return -1;
  }
  const UniqueFd fd = OpenForReading(path);
  if (!fd.IsOpen()) {
    return -1;
  }
  if (lseek(fd.Get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
    return 0;
  }
  LineReader reader(fd.Get());
  std::string_view line;
  std::size_t consumed = 0;
  while (count != 0) {
    consumed = reader.Next(line);
    if (consumed == 0) {
      break;
    }
    count -= count > 0 ? 1 : 0;
    if (!line.empty()) {
      lines.emplace_back(line);
    }
  }
  return static_cast<int>(std::min<std::size_t>(consumed, INT_MAX));
}

}  // namespace Velmar
