// Ownership of one file descriptor. Installed for Logger.h; not part of the interface.
#pragma once

#include <unistd.h>

#include <utility>

namespace Velmar {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : mFd(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : mFd(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int Get() const { return mFd; }
  bool IsOpen() const { return mFd >= 0; }
  [[nodiscard]] int Release() { return std::exchange(mFd, -1); }
  // Closes the descriptor held and takes another one.
  void Reset(int fd = -1) {
    const int old = std::exchange(mFd, fd);
    if (old >= 0) {
      close(old);
    }
  }

 private:
  int mFd = -1;
};

}  // namespace Velmar
