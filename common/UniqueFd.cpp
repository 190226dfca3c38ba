#include "common/UniqueFd.h"

#include <unistd.h>

namespace Velmar {

void UniqueFd::Reset(int fd) {
  const int old = std::exchange(mFd, fd);
  if (old >= 0) {
    close(old);
  }
}

}  // namespace Velmar
