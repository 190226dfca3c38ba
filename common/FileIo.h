// How this tree opens, reads and writes files. Internal: not installed.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "common/UniqueFd.h"

namespace Velmar::FileIo {

// For every file that somebody else may have put in place: its open() never waits (for the other
// end of a FIFO, for a lease to be given back), takes over no terminal, and leaves no descriptor to
// a child process.
inline constexpr int kSafeOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Opens a regular file; a file of any other kind counts as a failure.
UniqueFd OpenRegular(const std::string& path, int flags, mode_t createMode = 0);

bool IsSameFile(const struct stat& one, const struct stat& other);

// As read(2), but goes on after a signal.
ssize_t ReadSome(int fd, char* buffer, std::size_t size);

// Returns how many bytes were written: all of them unless the system refused some.
std::size_t WriteAll(int fd, std::string_view bytes);

}  // namespace Velmar::FileIo
