// Writing a whole text to a descriptor. Internal: not installed.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace Velmar {

// Returns how many bytes were written: all of them unless the system refused some.
inline std::size_t WriteAll(int fd, std::string_view text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
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

}  // namespace Velmar
