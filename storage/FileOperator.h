// File primitives: tests of a path, writing and reading with a mode word, sizes, lines.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Velmar {

// Paths go to the system as they are; relative ones count from the working directory. Except where
// stated, symbolic links are followed. The operations keep no state and may be called from several
// threads; two writers on one file interleave as the system lets them. No child process inherits a
// descriptor that they open.
//
// No operation waits for another process. What has no positions (a FIFO, a terminal) is neither
// read nor written: where it can be opened, reading gives 0 bytes, writing sets the permission bits
// only ("ate": fails), and its size is -1 without a log line. A FIFO that nobody reads cannot be
// opened for writing, and a file whose lease another process still holds cannot be opened at all.
//
// A mode word chooses how a file is opened. It is compared exactly; every other word is refused
// before anything is opened.
//
//   word      writing                                           reading
//   "out"     created or emptied                                refused
//   "app"     created if missing; writes go to its end          refused
//   "ate"     created or emptied                                refused
//   "binary"  created or emptied                                from its beginning
//   "in"      refused                                           from its beginning
class FileOperator {
 public:
  // The one object of the process, made on first use.
  static FileOperator& GetInstance();

  // True when the path leads to a regular file. Logs nothing.
  bool IsFileExist(const std::string& path);

  // True when the path is a symbolic link that leads to a regular file. Every call logs one WARNING
  // that tells what was found.
  bool IsLinkFile(const std::string& path);

  // Writes `content`, zero bytes included, at `offset` bytes from the beginning of the file ("app":
  // at its end, whatever the offset), and sets the file's permission bits to `permission`. Bytes
  // before the offset that the file does not have become zero. A file made by the call is readable
  // by its owner alone until its permission bits are set.
  //
  // Returns 0, or WRITE_FILE_FAILED (105): empty content or a refused mode word, and the file is
  // untouched; a file that cannot be opened; permission bits that cannot be set, and the content is
  // written. An error while writing is not reported. Logs nothing.
  int WriteFile(const std::string& path, const std::string& content, uint32_t offset,
                const std::string& mode, uint32_t permission);

  // The same for a path that leads to a regular file; INVALID_FILE_PATH (102) for every other, and
  // nothing is created.
  int WriteToFile(const std::string& path, const std::string& content, uint32_t offset,
                  const std::string& mode, uint32_t permission);

  // Reads up to `length` bytes (at most 2147483647) from `offset` into `buffer`, adding no
  // terminator. Returns the number of bytes read, 0 at or beyond the end of the file. Returns -1
  // for a refused mode word, a file that cannot be opened, and a null buffer (whatever the path;
  // logged as ERROR).
  int ReadFile(const std::string& path, char* buffer, uint32_t length, uint32_t offset,
               const std::string& mode);

  // The size in bytes in 32 bits: a file of 2 GiB or more gives the size's lower 32 bits. Returns
  // -1 and logs an ERROR when the file cannot be opened for reading.
  int GetFileSize(const std::string& path);

  // Reads lines, which end in a line feed or with the file, from `offset` on, until `count` lines
  // are read (a negative count: all) or the file ends. Appends those that are not empty to `lines`,
  // without their line feeds; empty ones count, but are left out.
  //
  // Returns the number of bytes of the last line read, its line feed included, or 0 when `count` is
  // 0 or the file ended first. Returns -1, and leaves `lines` untouched, for a refused mode word or
  // a file that cannot be opened. Logs nothing.
  int ReadLines(const std::string& path, int32_t count, uint32_t offset,
                std::vector<std::string>& lines, const std::string& mode);
};

}  // namespace Velmar
