#include "common/Logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <ctime>
#include <string_view>

#include "common/BoundsChecked.h"
#include "common/FileIo.h"
#include "storage/DirOperator.h"

namespace Velmar {
namespace {

constexpr std::size_t kMessageSize = 4096;  // terminator included
constexpr mode_t kLogMode = 0600;
constexpr const char* kOldSuffix = ".old";

std::string_view GetLevelName(int level) {
  switch (level) {
    case LOG_LEVEL_DEBUG:
      return "DEBUG";
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

// Local time as "26-11-16 20:47:56.123456", or the empty text when it cannot be formed. By hand:
// with the C library's functions it would take half of all the instructions of a line.
class TimeStamp {
 public:
  TimeStamp() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    if (localtime_r(&now.tv_sec, &local) == nullptr) {
      return;
    }
    mSize = mText.size() - 1;
    SetPair(0, local.tm_year % 100);
    SetPair(3, local.tm_mon + 1);
    SetPair(6, local.tm_mday);
    SetPair(9, local.tm_hour);
    SetPair(12, local.tm_min);
    SetPair(15, local.tm_sec);
    const auto micros = static_cast<int>(now.tv_usec);
    SetPair(18, micros / 10000);
    SetPair(20, micros / 100 % 100);
    SetPair(22, micros % 100);
  }

  [[nodiscard]] std::string_view Get() const { return {mText.data(), mSize}; }

 private:
  void SetPair(std::size_t at, int number) {
    mText[at] = static_cast<char>('0' + number / 10);
    mText[at + 1] = static_cast<char>('0' + number % 10);
  }

  std::array<char, 25> mText = std::to_array("00-00-00 00:00:00.000000");
  std::size_t mSize = 0;
};

// Makes room for the log file. False: something stands there that is not to be opened.
bool ClearPath(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return true;
  }
  if (S_ISLNK(status.st_mode)) {
    unlink(path.c_str());
    return true;
  }
  if (S_ISDIR(status.st_mode)) {
    SingletonNew<DirOperator>::GetInstance().RemoveDir(path);
    return true;
  }
  return S_ISREG(status.st_mode);
}

// A second name of the file would be a way to have a foreign file written and its mode changed.
bool IsOwnRegularFile(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
}

UniqueFd OpenLog(const std::string& path) {
  // Readable too, for the copy that a rotation makes.
  UniqueFd fd(open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | FileIo::kSafeOpenFlags,
                   kLogMode));
  if (!fd.IsOpen() || !IsOwnRegularFile(fd.Get())) {
    return {};
  }
  fchmod(fd.Get(), kLogMode);
  return fd;
}

UniqueFd CreateOldGeneration(const std::string& path) {
  unlink(path.c_str());
  UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | FileIo::kSafeOpenFlags,
                   kLogMode));
  if (fd.IsOpen()) {
    fchmod(fd.Get(), kLogMode);
  }
  return fd;
}

// Copies the bytes from `done` to `end` to the same place, or as much as can be copied.
void CopyRange(int from, int to, off_t done, off_t end) {
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
      return;
    }
    const std::string_view read(block.data(), static_cast<std::size_t>(got));
    if (FileIo::WriteAll(to, read) != read.size()) {
      return;
    }
    done += got;
  }
}

// Copies a file of `size` bytes. Holes stay holes: a file of some terabytes that takes no room, put
// in the log's place before it was opened, must not be given any.
void CopyContent(int from, int to, off_t size) {
  off_t hole = 0;
  for (off_t data = lseek(from, 0, SEEK_DATA); data >= 0 && data < size;
       data = lseek(from, hole, SEEK_DATA)) {
    hole = std::min(lseek(from, data, SEEK_HOLE), size);
    CopyRange(from, to, data, hole);
  }
  [[maybe_unused]] const int ignored = ftruncate(to, size);
}

using Message = std::array<char, kMessageSize>;

bool FormatMessage(Message& message, const char* format, std::va_list arguments) {
  return vsnprintf_s(message.data(), message.size(), message.size() - 1, format, arguments) >= 0;
}

// All that a line has around the texts of the caller, at its longest: ComposeLine() counts on it.
constexpr std::size_t kFrameSize =
    std::string_view("[26-11-16 20:47:56.123456] [CRITICAL] [:-2147483648] : \n").size();

// By hand, like the time: append() would take two thirds more instructions, all under the lock.
void ComposeLine(std::string& result, int level, std::string_view file, int line,
                 std::string_view module, std::string_view message) {
  result.resize(kFrameSize + file.size() + module.size() + message.size());
  char* end = result.data();
  const auto add = [&end](std::string_view text) {
    end = std::copy(text.begin(), text.end(), end);
  };
  add("[");
  add(TimeStamp().Get());
  add("] [");
  add(GetLevelName(level));
  add("] [");
  add(file);
  add(":");
  end = std::to_chars(end, result.data() + result.size(), line).ptr;
  add("] ");
  add(module);
  add(": ");
  add(message);
  add("\n");
  result.resize(static_cast<std::size_t>(end - result.data()));
}

}  // namespace

Logger::Logger() = default;

Logger::~Logger() = default;

void Logger::Init(const std::string& path) {
  mFilePath = path;
  mFd.Reset();
  // Looked at before anything can log: a line written now would go to whatever stands there.
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
  if (!mFd.IsOpen()) {
    return;
  }
  const std::int64_t size = MakeRoom();
  Message message;
  if (FormatMessage(message, format, arguments)) {
    AppendLine(level, file, line, module, message.data(), size);
  }
}

// What LogInfo() and its like have in common. The message comes first: without one, there is no
// rotation either.
void Logger::WriteFree(int level, const char* file, const char* module, const char* format,
                       std::va_list arguments) {
  if (file == nullptr || module == nullptr || format == nullptr) {
    return;
  }
  Message message;
  if (!FormatMessage(message, format, arguments)) {
    return;
  }
  if (auto* const logger = Singleton<Logger>::Instance()) {
    const std::lock_guard lock(logger->mMutex);
    if (logger->mFd.IsOpen()) {
      logger->AppendLine(level, file, 0, module, message.data(), logger->MakeRoom());
    }
  }
}

// Returns the size of the log, which is rotated first when it has become too long.
std::int64_t Logger::MakeRoom() {
  const std::int64_t size = lseek(mFd.Get(), 0, SEEK_END);
  if (size <= mMaxFileSize) {
    return size;
  }
  Rotate(size);
  return 0;
}

// A line of which only a part found room is taken back, unless somebody appended after it.
void Logger::AppendLine(int level, std::string_view file, int line, std::string_view module,
                        std::string_view message, std::int64_t size) {
  ComposeLine(mLine, level, file, line, module, message);
  const auto written = static_cast<std::int64_t>(FileIo::WriteAll(mFd.Get(), mLine));
  const bool isTorn = written > 0 && written < static_cast<std::int64_t>(mLine.size());
  if (isTorn && lseek(mFd.Get(), 0, SEEK_END) == size + written) {
    [[maybe_unused]] const int ignored = ftruncate(mFd.Get(), size);
  }
}

// Copies rather than renames, so that the log keeps its inode.
void Logger::Rotate(std::int64_t size) {
  const UniqueFd old = CreateOldGeneration(mFilePath + kOldSuffix);
  if (old.IsOpen()) {
    CopyContent(mFd.Get(), old.Get(), size);
  }
  if (ftruncate(mFd.Get(), 0) != 0) {
    mFd.Reset();
  }
}

void LogDebug(const char* /*module*/, const char* /*file*/, const char* /*format*/, ...) {}

void LogInfo(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Logger::WriteFree(LOG_LEVEL_INFO, file, module, format, arguments);
  va_end(arguments);
}

void LogWarning(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Logger::WriteFree(LOG_LEVEL_WARNING, file, module, format, arguments);
  va_end(arguments);
}

void LogError(const char* module, const char* file, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Logger::WriteFree(LOG_LEVEL_ERROR, file, module, format, arguments);
  va_end(arguments);
}

}  // namespace Velmar
