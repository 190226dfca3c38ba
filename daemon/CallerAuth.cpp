#include "daemon/CallerAuth.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <string>

#include "common/LogStatement.h"
#include "daemon/SenderQuery.h"
#include "utils/Bus.h"
#include "utils/Escape.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr const char* kOrvixCorePath = "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore";
constexpr const char* kBrimletMainPath = "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet";
// A longer path is cut off there, and so never admitted.
constexpr std::size_t kMaxPathLength = 4095;

int GetSenderPid(sd_bus_message* message) {
  const int r = QuerySenderPid(sd_bus_message_get_sender(message));
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s failed: %d, creds = (nil)", GetFailedStep(r), r);
  }
  return r;
}

// The path of the executable that a process runs; empty when it cannot be read.
std::string GetSenderPath(int pid) {
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  char target[kMaxPathLength];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  if (length < 1) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "GetSenderPath readlink failed , path =%s", link.c_str());
    return "";
  }
  return {target, static_cast<std::size_t>(length)};
}

}  // namespace

int CheckAuth(sd_bus_message* message) {
  const int pid = GetSenderPid(message);
  if (pid < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "GetSenderPid failed. pid = %d", pid);
    return pid;
  }
  const std::string path = GetSenderPath(pid);
  if (path.empty()) {
    return -1;
  }
  if (path == kOrvixCorePath || path == kBrimletMainPath) {
    return 1;
  }
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckAuth path:%s failed!",
              Utils::EscapeControls(path).c_str());
  return -1;
}

int CheckParent(int pid) {
  const std::string path = GetSenderPath(pid);
  if (path.empty()) {
    return -1;
  }
  if (path == kBrimletMainPath) {
    return 1;
  }
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckParent path:%s failed!",
              Utils::EscapeControls(path).c_str());
  return -1;
}

}  // namespace Velmar
