#include "daemon/CallerAuth.h"

#include <sys/types.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
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

void LogQueryFailure(const char* step, int error) {
  const void* const noCreds = nullptr;
  BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s failed: %d, creds = %p", step, error, noCreds);
}

constexpr const char* kTheBus = "org.freedesktop.DBus";

bool IsFromTheBus(sd_bus_message* message) {
  const char* const sender = sd_bus_message_get_sender(message);
  return sender != nullptr && std::strcmp(sender, kTheBus) == 0;
}

// What the bus tells about a sender.
class Answer {
 public:
  // As the handler of the reply; `userdata` is the answer.
  static int Take(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const answer = static_cast<Answer*>(userdata);
    answer->mIsThere = true;
    answer->mError = IsFromTheBus(reply) ? -sd_bus_message_get_errno(reply) : -EBADMSG;
    if (answer->mError == 0) {
      answer->mError = std::min(sd_bus_message_read(reply, "u", &answer->mPid), 0);
    }
    return 1;
  }

  [[nodiscard]] bool IsThere() const { return mIsThere; }
  // 0, or negative: the bus does not know the sender.
  [[nodiscard]] int Error() const { return mError; }
  // Positive, or -ENODATA: the sender has no process id here.
  [[nodiscard]] int Pid() const {
    const auto pid = static_cast<pid_t>(mPid);
    return pid > 0 ? pid : -ENODATA;
  }

 private:
  bool mIsThere = false;
  int mError = 0;
  std::uint32_t mPid = 0;
};

// The connection over which the bus is asked who a sender is. The bus library's own question reads
// and keeps whatever arrives before the answer: anybody could fill the memory with calls sent
// faster than they are refused. Here each message is gone before the next one is read.
//
// It owns no name, so no policy keeps others from sending to it. What they have sent may have
// filled its queue at the bus, which then drops the answer: at the first such message the question
// is asked again on a new connection.
class QueryBus {
 public:
  // Returns 0 when there is an answer, otherwise a negative error.
  int Ask(const char* sender, Answer& answer) {
    const int r = IsUsable() ? AskOnce(sender, answer, Unasked::kGiveUp) : kNoAnswer;
    if (r == kAnswered || IsUsable()) {
      return std::min(r, 0);
    }
    // Lost, perhaps a while ago, or full.
    const int opened = Open();
    if (opened < 0) {
      return r < 0 ? r : opened;
    }
    answer = {};
    return std::min(AskOnce(sender, answer, Unasked::kIgnore), 0);
  }

 private:
  enum class Unasked { kGiveUp, kIgnore };

  static constexpr int kNoAnswer = 0;
  static constexpr int kAnswered = 1;

  [[nodiscard]] bool IsUsable() const {
    return mBus && sd_bus_is_open(mBus.get()) > 0 && !mHasUnasked;
  }

  int Open() {
    sd_bus* bus = nullptr;
    const int r = sd_bus_open_system(&bus);
    mBus.reset(bus);
    mHasUnasked = false;
    return r < 0 ? r : sd_bus_add_filter(bus, nullptr, DropUnasked, this);
  }

  // kAnswered, kNoAnswer or a negative error.
  int AskOnce(const char* sender, Answer& answer, Unasked unasked) {
    sd_bus_slot* sent = nullptr;
    int r =
        sd_bus_call_method_async(mBus.get(), &sent, kTheBus, "/org/freedesktop/DBus", kTheBus,
                                 "GetConnectionUnixProcessID", Answer::Take, &answer, "s", sender);
    const UniqueSlot slot(sent);
    while (r >= 0 && !answer.IsThere()) {
      if (mHasUnasked && unasked == Unasked::kGiveUp) {
        return kNoAnswer;
      }
      r = sd_bus_process(mBus.get(), nullptr);
      if (r == 0) {
        r = sd_bus_wait(mBus.get(), UINT64_MAX);
      }
    }
    if (r < 0) {
      return r;
    }
    // The library itself answers what is open when the connection is lost.
    return sd_bus_is_open(mBus.get()) > 0 ? kAnswered : -ECONNRESET;
  }

  // Not answered either. What the bus itself says unasked is no more than the connection's own
  // name.
  static int DropUnasked(sd_bus_message* message, void* queryBus, sd_bus_error* /*error*/) {
    static_cast<QueryBus*>(queryBus)->mHasUnasked |= !IsFromTheBus(message);
    return 1;
  }

  UniqueBus mBus;
  bool mHasUnasked = false;
};

}  // namespace

int GetSenderPid(sd_bus_message* message) {
  static QueryBus queryBus;
  Answer answer;
  int r = queryBus.Ask(sd_bus_message_get_sender(message), answer);
  if (r >= 0) {
    r = answer.Error();
  }
  if (r < 0) {
    LogQueryFailure("sd_bus_query_sender_creds", r);
    return r;
  }
  if (answer.Pid() < 0) {
    LogQueryFailure("sd_bus_creds_get_pid", answer.Pid());
  }
  return answer.Pid();
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
