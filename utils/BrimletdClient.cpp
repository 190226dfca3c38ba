#include "utils/BrimletdClient.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "common/LogStatement.h"
#include "utils/Bus.h"

namespace Velmar {

std::int32_t g_brimletdPid = 0;

namespace Utils {
namespace {

constexpr const char* kModule = "UTILS";
// Ten seconds in all.
constexpr std::chrono::milliseconds kConnectPatience{2500};
constexpr std::chrono::milliseconds kReplyPatience{5000};
constexpr std::chrono::milliseconds kSenderPatience{2500};
constexpr const char* kTimeoutText = "Connection timed out";
constexpr const char* kChineseTimeoutText = "连接超时";

// The system tells a time-out in the language of the process.
bool IsTimeoutText(const std::string& text) {
  return text == kTimeoutText || text == kChineseTimeoutText || text == std::strerror(ETIMEDOUT);
}

// Returns 0, or a negative error with its text in `errorMessage`: no reply came, or an error did.
int ReceiveReply(sd_bus* bus, sd_bus_message* call, UniqueMessage& reply,
                 std::string& errorMessage) {
  int r = AwaitConnection(bus, kConnectPatience);
  if (r >= 0) {
    r = Exchange(bus, call, kReplyPatience, reply);
  }
  if (r < 0) {
    errorMessage = std::strerror(-r);
    return r;
  }
  const sd_bus_error* const error = sd_bus_message_get_error(reply.get());
  if (error != nullptr && error->message != nullptr) {
    errorMessage = error->message;
  }
  return -sd_bus_message_get_errno(reply.get());  // 0 for a reply
}

int ReadReply(sd_bus_message* reply, std::string& result) {
  const char* text = nullptr;
  const int r = sd_bus_message_read(reply, "s", &text);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "sd_bus_message_read failed.");
    return r;
  }
  if (text != nullptr) {
    result = text;
  }
  return r;
}

}  // namespace

void SetBrimletdPid(int pid) { g_brimletdPid = pid; }

int CreateBrimletdCall(sd_bus** bus, sd_bus_message** call, const std::string& command) {
  UniqueBus started;
  int r = StartSystemBus(started);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to connect to system bus: %s", std::strerror(-r));
    return r;
  }
  *bus = started.release();
  r = sd_bus_message_new_method_call(*bus, call, kBusName, kObjectPath, kBusName, kMethodName);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to sd_bus_message_new_method_call r:%d", r);
    return r;
  }
  r = sd_bus_message_append(*call, "s", command.c_str());
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to sd_bus_message_append");
  }
  return r;
}

int GetReplySenderPid(sd_bus_message* reply) {
  if (reply == nullptr) {
    return -1;
  }
  const int r =
      QueryPid(sd_bus_message_get_bus(reply), sd_bus_message_get_sender(reply), kSenderPatience);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s failed: %d, creds = (nil)", GetFailedStep(r), -r);
  }
  return r;
}

int CallBrimletd(const std::string& command, std::string& result, std::string& errorMessage) {
  sd_bus* openedBus = nullptr;
  sd_bus_message* madeCall = nullptr;
  int r = CreateBrimletdCall(&openedBus, &madeCall, command);
  const UniqueBus bus(openedBus);
  const UniqueMessage call(madeCall);
  // Only now: the caller may have passed one of them as the command, too.
  result.clear();
  errorMessage.clear();
  if (r < 0) {
    return r;
  }
  UniqueMessage reply;
  r = ReceiveReply(bus.get(), call.get(), reply, errorMessage);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to call method, reason: %s",
                errorMessage.c_str());
    return r;
  }
  const int sender = GetReplySenderPid(reply.get());
  if (sender != g_brimletdPid) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to msg reply id: %d != brimletd pid %d", sender,
                g_brimletdPid);
    return r;
  }
  return ReadReply(reply.get(), result);
}

int ExecuteByBrimletd(const std::string& command, std::string& result, std::string& errorMessage) {
  const int r = CallBrimletd(command, result, errorMessage);
  if (r < 0 && IsTimeoutText(errorMessage)) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule,
                "popoen error, please retry orvix, result:%s, errormessage:%s", result.c_str(),
                errorMessage.c_str());
    errorMessage = kTimeoutText;
  }
  return r;
}

}  // namespace Utils
}  // namespace Velmar
