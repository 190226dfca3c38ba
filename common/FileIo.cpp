#include "common/FileIo.h"

#include <unistd.h>

#include <cerrno>

namespace Velmar::FileIo {

UniqueFd OpenRegular(const std::string& path, int flags, mode_t createMode) {
  UniqueFd fd(open(path.c_str(), flags | kSafeOpenFlags, createMode));
  struct stat status {};
  if (!fd.IsOpen() || fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  return fd;
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

ssize_t ReadSome(int fd, char* buffer, std::size_t size) {
  ssize_t got = 0;
  do {
    got = read(fd, buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

std::size_t WriteAll(int fd, std::string_view bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      break;
    }
    done += static_cast<std::size_t>(written);
  }
  return done;
}

}  // namespace Velmar::FileIo
