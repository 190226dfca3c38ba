#include "storage/FileOperator.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "common/ErrorCode.h"
#include "common/FileIo.h"
#include "common/LogStatement.h"

namespace Velmar {
namespace {

using ErrorCode::CommonStatus::ACTION_SUCCESS;
using ErrorCode::FileOperStatus::INVALID_FILE_PATH;
using ErrorCode::FileOperStatus::WRITE_FILE_FAILED;

constexpr const char* kModule = "UTILS";
// Until the caller's permission bits are set, a new file is nobody else's.
constexpr mode_t kCreateMode = 0600;

std::optional<int> GetWriteFlags(const std::string& mode) {
  constexpr int kWrite = O_WRONLY | O_CREAT | FileIo::kSafeOpenFlags;
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
  return UniqueFd(open(path.c_str(), O_RDONLY | FileIo::kSafeOpenFlags));
}

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using UniqueStream = std::unique_ptr<std::FILE, StreamCloser>;

UniqueStream OpenStream(UniqueFd fd) {
  UniqueStream stream(fd.IsOpen() ? fdopen(fd.Get(), "r") : nullptr);
  if (stream) {
    static_cast<void>(fd.Release());  // the stream closes it from now on
  }
  return stream;
}

// A line in memory that getline(3) allocates.
struct Line {
  Line() = default;
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() { std::free(text); }

  char* text = nullptr;
  std::size_t capacity = 0;
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
    FileIo::WriteAll(fd.Get(), content);
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
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "buffer is nullptr, read failed.");
    return -1;
  }
  const UniqueFd fd = OpenForReading(path);
  if (!fd.IsOpen()) {
    return -1;
  }
  if (lseek(fd.Get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
    return 0;
  }
  const std::size_t wanted = std::min<std::size_t>(length, INT_MAX);
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t got = FileIo::ReadSome(fd.Get(), buffer + done, wanted - done);
    if (got <= 0) {
      break;
    }
    done += static_cast<std::size_t>(got);
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
  const UniqueStream stream = OpenStream(OpenForReading(path));
  if (!stream) {
    return -1;
  }
  if (fseeko(stream.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
    return 0;
  }
  Line line;
  ssize_t consumed = 0;
  while (count != 0) {
    consumed = getline(&line.text, &line.capacity, stream.get());
    if (consumed <= 0) {
      return 0;
    }
    std::string_view text(line.text, static_cast<std::size_t>(consumed));
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    if (!text.empty()) {
      lines.emplace_back(text);
    }
    count -= count > 0 ? 1 : 0;
  }
  return static_cast<int>(std::min<ssize_t>(consumed, INT_MAX));
}

}  // namespace Velmar
