#include "daemon/CallerAuth.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "common/BoundsChecked.h"
#include "common/LogStatement.h"
#include "utils/Bus.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr std::size_t kLinkNameSize = 256;

// Longer than what is ever read into it, so that the path is terminated.
using PathBuffer = std::array<char, kMaxSenderPathLength + 2>;

// A path as it stands in a log line. Everybody may run an executable whose name holds line feeds:
// written as it is, it would forge lines of the log.
std::string EscapeControlBytes(std::string_view path) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  std::string escaped;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      escaped.append("\\n");
    } else if (c == '\r') {
      escaped.append("\\r");
    } else if (c == '\t') {
      escaped.append("\\t");
    } else if (byte < 0x20 || byte == 0x7f) {
      escaped.append("\\x").append(1, kHexDigits[byte / 16]).append(1, kHexDigits[byte % 16]);
    } else {
      escaped.append(1, c);
    }
  }
  return escaped;
}

// The connection over which the bus is asked who a sender is. The library reads and keeps whatever
// arrives before an answer: on the connection that serves calls, anybody could fill the memory with
// calls sent faster than they are refused.
class QueryBus {
 public:
  // Opens it unless it is open. Null, and the negative error in `error`, when that fails.
  sd_bus* Get(int& error) {
    if (!mBus || !DropUnasked()) {
      sd_bus* bus = nullptr;
      error = sd_bus_open_system(&bus);
      mBus.reset(bus);
      if (bus == nullptr) {
        return nullptr;
      }
      // What is unasked is not answered either.
      sd_bus_add_filter(bus, nullptr, TakeAsHandled, nullptr);
    }
    return mBus.get();
  }

 private:
  static constexpr int kMaxUnasked = 256;

  static int TakeAsHandled(sd_bus_message* /*message*/, void* /*userdata*/,
                           sd_bus_error* /*error*/) {
    return 1;
  }

  // Throws away what others have sent here. False: there is no end of it, or the connection failed.
  bool DropUnasked() {
    int r = 1;
    for (int i = 0; i < kMaxUnasked && r > 0; ++i) {
      r = sd_bus_process(mBus.get(), nullptr);
    }
    return r == 0;
  }

  UniqueBus mBus;
};

void LogQueryFailure(const char* step, int error, const void* creds) {
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s failed: %d, creds = %p", step, error, creds);
}

}  // namespace

int GetSenderPid(sd_bus_message* message) {
  static QueryBus queryBus;
  int error = 0;
  sd_bus* const bus = queryBus.Get(error);
  if (bus == nullptr) {
    LogQueryFailure("sd_bus_query_sender_creds", error, nullptr);
    return error;
  }
  return QuerySenderPid(bus, message, LogQueryFailure);
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
              EscapeControlBytes(path.data()).c_str());
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
              EscapeControlBytes(path.data()).c_str());
  return -1;
}

}  // namespace Velmar
