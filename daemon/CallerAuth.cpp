#include "daemon/CallerAuth.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "common/BoundsChecked.h"
#include "common/LogStatement.h"
#include "daemon/SenderQuery.h"
#include "utils/Bus.h"
#include "utils/Escape.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr std::size_t kLinkNameSize = 256;

// Longer than what is ever read into it, so that the path is terminated.
using PathBuffer = std::array<char, kMaxSenderPathLength + 2>;

}  // namespace

int GetSenderPid(sd_bus_message* message) {
  const int r = QuerySenderPid(sd_bus_message_get_sender(message));
  if (r < 0) {
    const void* const noCreds = nullptr;
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s failed: %d, creds = %p", GetFailedStep(r), r,
                noCreds);
  }
  return r;
}

int GetSenderPath(int pid, char* path) {
  if (path == nullptr) {
    return -1;
  }
  std::array<char, kLinkNameSize> link{};
  const int formatted = snprintf_s(link.data(), link.size(), link.size() - 1, "/proc/%d/exe", pid);
  if (formatted < 0) {
    return formatted;
  }
  const ssize_t length = readlink(link.data(), path, kMaxSenderPathLength);
  if (length < 1) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "GetSenderPath readlink failed , path =%s", link.data());
    return -1;
  }
  return static_cast<int>(length);
}

int CheckAuth(sd_bus_message* message) {
  if (message == nullptr) {
    return -1;
  }
  const int pid = GetSenderPid(message);
  if (pid < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "GetSenderPid failed. pid = %d", pid);
    return pid;
  }
  PathBuffer path{};
  const int length = GetSenderPath(pid, path.data());
  if (length < 1) {
    return length;
  }
  if (std::strcmp(path.data(), kOrvixCorePath) == 0 ||
      std::strcmp(path.data(), kBrimletMainPath) == 0) {
    return 1;
  }
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckAuth path:%s failed!",
              Utils::EscapeControls(path.data()).c_str());
  return -1;
}

int CheckParent(int pid) {
  PathBuffer path{};
  const int length = GetSenderPath(pid, path.data());
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "CheckParent path:%s r:%d ", path.data(), length);
  if (length < 1) {
    return length;
  }
  if (std::strcmp(path.data(), kBrimletMainPath) == 0) {
    return 1;
  }
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckParent path:%s failed!",
              Utils::EscapeControls(path.data()).c_str());
  return -1;
}

}  // namespace Velmar
