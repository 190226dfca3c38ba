// The one log writer of a process: levelled, time-stamped lines in a single file, with one older
// generation beside it.
//
//   Velmar::Singleton<Velmar::Logger>::Instance()->Init("/home/u/Brimlet/log/brimletd.log");
//   Velmar::LogWarning("UTILS", "Player", "no frame for %d ms", 40);
//
// appends
//
//   [26-11-16 20:47:56.123456] [WARNING] [Player:0] UTILS: no frame for 40 ms
//
// The first field is local time with microseconds.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>

#include "Singleton.h"
#include "UniqueFd.h"

namespace Velmar {

// How serious a line is. The logger writes one blank as the name of any other level above DEBUG.
using LogLevel = std::int32_t;
inline constexpr LogLevel LOG_LEVEL_DEBUG = 1;  // never written
inline constexpr LogLevel LOG_LEVEL_INFO = 2;
inline constexpr LogLevel LOG_LEVEL_WARNING = 3;
inline constexpr LogLevel LOG_LEVEL_ERROR = 4;
inline constexpr LogLevel LOG_LEVEL_CRITICAL = 5;

// The object of a process is Singleton<Logger>::Instance(). Several threads may call Write();
// Init() belongs into the time in which one thread uses the logger. In a program with several
// threads, a child of fork() must not call Write(), which can wait for ever there: another thread
// may have held the lock at the fork.
//
// The file may lie in a folder that belongs to somebody else. Whatever that somebody puts at its
// path, and whenever, the logger touches no other file, does not wait, and copies no foreign data.
// Only a hard link that is made and unlinked again at the very moment of opening goes unnoticed.
// The kernel decides whose files he may link (fs.protected_hardlinks, which systemd switches on:
// his own and those that he may read and write).
class BRIMLET_EXPORT Logger {
 public:
  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Opens the log file at `path`, made with mode 0600 if missing; an existing file is appended to
  // and gets mode 0600. Its folder must exist. Init() first clears the path:
  //   - it unlinks a symbolic link of any kind, and a file that has a second hard link. Where the
  //     link leads, and under the other name, content and mode stay as they are;
  //   - it removes a directory with everything below it, unless that is deeper than the process's
  //     limit on descriptors.
  // It leaves anything else that is not a regular file (a FIFO, a socket, a device) alone.
  //
  // Nothing is reported. When no file could be opened, the log is mute: every line is silently lost
  // until a later Init() opens a file, or Write() finds one at the path that is due for rotation.
  // Lines written before Init() are lost.
  void Init(const std::string& path);

  // Writes one line, in one piece, to the end of the file:
  //   "[time] [level] [file:line] module: message\n"
  // `file` is the base name of the calling source without its ending, `line` its line. `format` and
  // what follows make the message, as for std::printf.
  //
  // Writes nothing when `level` is LOG_LEVEL_DEBUG or lower, when the message has more than 4095
  // characters or cannot be formatted, when a pointer is null, and when no file is open. A line
  // that the file system refuses (a full disk) is dropped whole, and the next one is tried again;
  // but a process that has a limit on the size of files and lets its signal take effect ends there.
  //
  // When the file has passed 33554432 bytes (32 MiB) before a line, Write() rotates first: it moves
  // the content to the path followed by ".old", mode 0600, in place of what was there, and the file
  // starts empty. Where ".old" cannot be made (a directory stands there), the content is dropped.
  // The size is that of the open file, whatever stands at the path by now. Only a mute log looks
  // there again: a regular file without a second hard link that has passed the bound is opened as
  // by Init(), and rotated. A file that cannot be emptied leaves the log mute until Init().
  [[gnu::format(printf, 6, 7)]] void Write(int level, const char* file, int line,
                                           const char* module, const char* format, ...);

  // Carries a text from either kind of string through a call that takes variable arguments, where
  // a reference must not stand last.
  class Text {
   public:
    // Implicit: both kinds are passed as they are.
    Text(const char* text) : mText(text) {}
    Text(const std::string& text) : mText(text.c_str()) {}
    const char* Get() const { return mText; }

   private:
    const char* mText;
  };

  // The same for texts held in std::string objects; the compiler cannot check the format here.
  void Write(int level, Text file, int line, Text module, Text format, ...);

 private:
  void WriteV(int level, const char* file, int line, const char* module, const char* format,
              std::va_list arguments);
  bool ReopenFullLog();
  void Rotate(std::int64_t size);
  void ComposeLine(int level, const char* file, int line, const char* module, const char* message);
  void AppendTime();
  void AppendLine(std::int64_t size);

  const std::int32_t mMaxFileSize = 0x2000000;
  std::string mFilePath;
  UniqueFd mFd;
  std::time_t mSecond = -1;
  std::array<char, 32> mSecondText{};  // tells mSecond
  std::string mLine;                   // kept from line to line for its memory
  std::mutex mMutex;
};

// Write one line of the level in their name with line number 0 through the process's logger, which
// is made if there is none. `format` and what follows make the message, as for std::printf. They
// write nothing when `module`, `file` or `format` is null and in all cases in which Logger::Write
// writes nothing; LogDebug never writes. Several threads may call them once the logger exists.
[[gnu::format(printf, 3, 4)]] void LogDebug(const char* module, const char* file,
                                            const char* format, ...);
[[gnu::format(printf, 3, 4)]] void LogInfo(const char* module, const char* file, const char* format,
                                           ...);
[[gnu::format(printf, 3, 4)]] void LogWarning(const char* module, const char* file,
                                              const char* format, ...);
[[gnu::format(printf, 3, 4)]] void LogError(const char* module, const char* file,
                                            const char* format, ...);

}  // namespace Velmar
