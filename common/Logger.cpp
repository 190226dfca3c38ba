#include "common/Logger.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "common/BoundsChecked.h"
#include "common/FileIo.h"
#include "storage/DirOperator.h"

namespace Velmar {
namespace {

constexpr std::size_t kMessageSize = 4096;  // terminator included
constexpr mode_t kLogMode = 0600;
constexpr int kOpenFlags = O_CREAT | O_NOFOLLOW | FileIo::kSafeOpenFlags;
constexpr const char* kOldSuffix = ".old";

const char* GetLevelName(int level) {
  switch (level) {
    case LOG_LEVEL_INFO:
      return "INFO";
    case LOG_LEVEL_WARNING:
      return "WARNING";
    case LOG_LEVEL_ERROR:
      return "ERROR";
    case LOG_LEVEL_CRITICAL:
      return "CRITICAL";
    default:
      return " ";
  }
}

// Whoever put the file there may have linked a foreign one, which must not be written.
bool IsFileOfOneName(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

// Makes room for the log file. False: something stands there that is not to be opened.
bool ClearPath(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || IsFileOfOneName(status)) {
    return true;
  }
  if (S_ISDIR(status.st_mode)) {
    SingletonNew<DirOperator>::GetInstance().RemoveDir(path);
    return true;
  }
  const bool isLink = S_ISLNK(status.st_mode) || S_ISREG(status.st_mode);
  return isLink && unlink(path.c_str()) == 0;
}

UniqueFd OpenWithMode(const std::string& path, int access) {
  UniqueFd fd(open(path.c_str(), access | O_APPEND | kOpenFlags, kLogMode));
  struct stat status {};
  if (!fd.IsOpen() || fstat(fd.Get(), &status) != 0 || !IsFileOfOneName(status)) {
    return {};
  }
  fchmod(fd.Get(), kLogMode);
  return fd;
}

UniqueFd OpenLog(const std::string& path) {
  // This sets mode 0600 first: below, the user's own file of mode 0200 can be opened to be read.
  UniqueFd writable = OpenWithMode(path, O_WRONLY);
  // A rotation reads the file, too.
  UniqueFd readable = OpenWithMode(path, O_RDWR);
  return readable.IsOpen() ? std::move(readable) : std::move(writable);
}

UniqueFd CreateOldGeneration(const std::string& path) {
  unlink(path.c_str());
  UniqueFd fd(open(path.c_str(), O_WRONLY | O_EXCL | kOpenFlags, kLogMode));
  if (fd.IsOpen()) {
    fchmod(fd.Get(), kLogMode);
  }
  return fd;
}

// Copies the bytes from `done` to `end` to the same place. False: not all could be copied.
bool CopyRange(int from, int to, off_t done, off_t end) {
  off_t written = done;
  while (done < end &&
         copy_file_range(from, &done, to, &written, static_cast<std::size_t>(end - done), 0) > 0) {
  }
  // Not every file system copies by itself.
  std::array<char, 65536> block;
  lseek(to, done, SEEK_SET);
  while (done < end) {
    const auto wanted = std::min(block.size(), static_cast<std::size_t>(end - done));
    const ssize_t got = pread(from, block.data(), wanted, done);
    if (got <= 0) {
      return false;
    }
    const auto size = static_cast<std::size_t>(got);
    if (FileIo::WriteAll(to, {block.data(), size}) != size) {
      return false;
    }
    done += got;
  }
  return true;
}

// Copies a file of `size` bytes, or its beginning. Holes stay holes: a file of some terabytes that
// takes no room, put in the log's place before it was opened, must not be given any.
void CopyContent(int from, int to, off_t size) {
  off_t hole = 0;
  for (off_t data = lseek(from, 0, SEEK_DATA); data >= 0 && data < size;
       data = lseek(from, hole, SEEK_DATA)) {
    hole = std::min(lseek(from, data, SEEK_HOLE), size);
    if (!CopyRange(from, to, data, hole)) {
      return;
    }
  }
  [[maybe_unused]] const int ignored = ftruncate(to, size);
}

using Message = std::array<char, kMessageSize>;

bool FormatMessage(Message& message, const char* format, std::va_list arguments) {
  return vsnprintf_s(message.data(), message.size(), message.size() - 1, format, arguments) >= 0;
}

// What LogInfo() and its like have in common.
void WriteFree(int level, const char* file, const char* module, const char* format,
               std::va_list arguments) {
  Message message;
  if (file == nullptr || module == nullptr || !FormatMessage(message, format, arguments)) {
    return;
  }
  if (auto* const logger = Singleton<Logger>::Instance()) {
    logger->Write(level, file, 0, module, "%s", message.data());
  }
}

}  // namespace

void Logger::Init(const std::string& path) {
  mFilePath = path;
  mFd.Reset();
  // RemoveDir() logs: with the log closed, its lines go nowhere.
  if (ClearPath(path)) {
    mFd = OpenLog(path);
  }
}

void Logger::Write(int level, const char* file, int line, const char* module, const char* format,
                   ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteV(level, file, line, module, format, arguments);
  va_end(arguments);
}

void Logger::Write(int level, Text file, int line, Text module, Text format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteV(level, file.Get(), line, module.Get(), format.Get(), arguments);
  va_end(arguments);
}

void Logger::WriteV(int level, const char* file, int line, const char* module, const char* format,
                    std::va_list arguments) {
  if (level <= LOG_LEVEL_DEBUG || file == nullptr || module == nullptr || format == nullptr) {
    return;
  }
  const std::lock_guard lock(mMutex);
  if (!mFd.IsOpen() && !ReopenFullLog()) {
    return;
  }
  std::int64_t size = lseek(mFd.Get(), 0, SEEK_END);
  if (size > mMaxFileSize) {
    Rotate(size);
    size = 0;
  }
  Message message;
  if (FormatMessage(message, format, arguments)) {
    ComposeLine(level, file, line, module, message.data());
    AppendLine(size);
  }
}

// A mute log opens a file only to rotate it: one at its path that has passed the bound.
bool Logger::ReopenFullLog() {
  struct stat status {};
  if (lstat(mFilePath.c_str(), &status) == 0 && IsFileOfOneName(status) &&
      status.st_size > mMaxFileSize) {
    mFd = OpenLog(mFilePath);
  }
  return mFd.IsOpen();
}

// Copies rather than renames, so that the log keeps its inode.
void Logger::Rotate(std::int64_t size) {
  const UniqueFd old = CreateOldGeneration(mFilePath + kOldSuffix);
  if (old.IsOpen()) {
    CopyContent(mFd.Get(), old.Get(), size);
  }
  if (ftruncate(mFd.Get(), 0) != 0) {
    // Without its path the log stays mute, and does not copy the file again for each line.
    mFd.Reset();
    mFilePath.clear();
  }
}

void Logger::ComposeLine(int level, const char* file, int line, const char* module,
                         const char* message) {
  mLine.assign(1, '[');
  AppendTime();
  mLine.append("] [").append(GetLevelName(level)).append("] ");
  mLine.append("[").append(file).append(":").append(std::to_string(line)).append("] ");
  mLine.append(module).append(": ").append(message).append("\n");
}

// Local time as "26-11-16 20:47:56.123456". The text of a second is made once.
void Logger::AppendTime() {
  timeval now{};
  gettimeofday(&now, nullptr);
  if (now.tv_sec != mSecond) {
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::strftime(mSecondText.data(), mSecondText.size(), "%y-%m-%d %H:%M:%S", &local);
    mSecond = now.tv_sec;
  }
  std::string micros = std::to_string(1000000 + now.tv_usec);
  micros.front() = '.';  // in place of the 1, which has kept the leading zeros
  mLine.append(mSecondText.data()).append(micros);
}

// Writes mLine to the end of a file of `size` bytes. A line of which only a part found room is
// taken back, unless somebody appended after it.
void Logger::AppendLine(std::int64_t size) {
  const auto written = static_cast<std::int64_t>(FileIo::WriteAll(mFd.Get(), mLine));
  const bool isTorn = written > 0 && written < static_cast<std::int64_t>(mLine.size());
  if (isTorn && lseek(mFd.Get(), 0, SEEK_END) == size + written) {
    [[maybe_unused]] const int ignored = ftruncate(mFd.Get(), size);
  }
}

void LogDebug(const char* /*module*/, const char* /*file*/, const char* /*format*/, ...) {}

void LogInfo(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteFree(LOG_LEVEL_INFO, file, module, format, arguments);
  va_end(arguments);
}

void LogWarning(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteFree(LOG_LEVEL_WARNING, file, module, format, arguments);
  va_end(arguments);
}

void LogError(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteFree(LOG_LEVEL_ERROR, file, module, format, arguments);
  va_end(arguments);
}

}  // namespace Velmar
