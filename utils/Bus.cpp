#include "utils/Bus.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Velmar {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kUsualAddress = "unix:path=/run/dbus/system_bus_socket";
constexpr const char* kTheBus = "org.freedesktop.DBus";
constexpr const char* kTheBusPath = "/org/freedesktop/DBus";
constexpr std::uint32_t kDoNotQueue = 4;  // as the bus's RequestName takes and gives them
constexpr std::uint32_t kPrimaryOwner = 1;

// Handles one message, or waits for one. Fails at the deadline even while messages keep arriving.
int Advance(sd_bus* bus, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
  if (left.count() <= 0) {
    return -ETIMEDOUT;
  }
  const int r = sd_bus_process(bus, nullptr);
  return r == 0 ? sd_bus_wait(bus, static_cast<std::uint64_t>(left.count())) : r;
}

int KeepReply(sd_bus_message* reply, void* kept, sd_bus_error* /*error*/) {
  static_cast<UniqueMessage*>(kept)->reset(sd_bus_message_ref(reply));
  return 1;
}

// Sees all messages but awaited replies. 1: handled, so the library neither keeps nor answers it.
int DropMessage(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* /*error*/) {
  return 1;
}

// Anybody may answer who guesses the serial number of a question.
bool IsFromTheBus(sd_bus_message* message) {
  const char* const sender = sd_bus_message_get_sender(message);
  return sender != nullptr && std::strcmp(sender, kTheBus) == 0;
}

UniqueMessage NewCallToTheBus(sd_bus* bus, const char* member) {
  sd_bus_message* call = nullptr;
  sd_bus_message_new_method_call(bus, &call, kTheBus, kTheBusPath, kTheBus, member);
  return UniqueMessage(call);
}

// Sends a call to the bus itself, which replies with a number.
int AskTheBus(sd_bus* bus, sd_bus_message* call, std::chrono::milliseconds patience,
              std::uint32_t& number) {
  UniqueMessage reply;
  const int r = Exchange(bus, call, patience, reply);
  if (r < 0) {
    return r;
  }
  if (!IsFromTheBus(reply.get())) {
    return -EBADMSG;
  }
  if (sd_bus_message_is_method_error(reply.get(), nullptr) > 0) {
    return -sd_bus_message_get_errno(reply.get());
  }
  return sd_bus_message_read(reply.get(), "u", &number);
}

}  // namespace

int StartSystemBus(UniqueBus& bus) {
  sd_bus* made = nullptr;
  int r = sd_bus_new(&made);
  UniqueBus started(made);
  const char* const address = secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  if (r < 0 || (r = sd_bus_set_address(made, address != nullptr ? address : kUsualAddress)) < 0 ||
      (r = sd_bus_set_bus_client(made, 1)) < 0 ||
      // A stranger's descriptors could pile up, or wait in close().
      (r = sd_bus_negotiate_fds(made, 0)) < 0 || (r = sd_bus_start(made)) < 0) {
    return r;
  }
  bus = std::move(started);
  return 0;
}

int AwaitConnection(sd_bus* bus, std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  int r = 0;
  while (r >= 0 && sd_bus_is_ready(bus) == 0) {
    r = Advance(bus, deadline);
  }
  return std::min(r, 0);
}

int Exchange(sd_bus* bus, sd_bus_message* call, std::chrono::milliseconds patience,
             UniqueMessage& reply) {
  const Clock::time_point deadline = Clock::now() + patience;
  sd_bus_slot* filtered = nullptr;
  int r = sd_bus_add_filter(bus, &filtered, DropMessage, nullptr);
  const UniqueSlot filter(filtered);
  sd_bus_slot* sent = nullptr;
  if (r >= 0) {
    r = sd_bus_call_async(bus, &sent, call, KeepReply, &reply, UINT64_MAX);
  }
  const UniqueSlot slot(sent);
  while (r >= 0 && !reply) {
    r = Advance(bus, deadline);
  }
  if (r < 0) {
    return r;
  }
  // When the connection is lost, the library makes up a reply.
  return sd_bus_is_open(bus) > 0 ? 0 : -ECONNRESET;
}

int DropPending(sd_bus* bus, std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  sd_bus_slot* filtered = nullptr;
  int r = sd_bus_add_filter(bus, &filtered, DropMessage, nullptr);
  const UniqueSlot filter(filtered);
  while (r >= 0 && (r = sd_bus_process(bus, nullptr)) > 0 && Clock::now() < deadline) {
  }
  return r;
}

int RequestName(sd_bus* bus, const char* name, std::chrono::milliseconds patience) {
  const UniqueMessage call = NewCallToTheBus(bus, "RequestName");
  std::uint32_t result = 0;
  int r = sd_bus_message_append(call.get(), "su", name, kDoNotQueue);
  if (r < 0 || (r = AskTheBus(bus, call.get(), patience, result)) < 0) {
    return r;
  }
  return result == kPrimaryOwner ? 0 : -EEXIST;
}

int QueryPid(sd_bus* bus, const char* name, std::chrono::milliseconds patience) {
  const UniqueMessage call = NewCallToTheBus(bus, "GetConnectionUnixProcessID");
  std::uint32_t number = 0;
  int r = sd_bus_message_append(call.get(), "s", name);
  if (r < 0 || (r = AskTheBus(bus, call.get(), patience, number)) < 0) {
    return r;
  }
  const auto pid = static_cast<pid_t>(number);
  return pid > 0 ? pid : -ENODATA;
}

const char* GetFailedStep(int error) {
  return error == -ENODATA ? "sd_bus_creds_get_pid" : "sd_bus_query_sender_creds";
}

}  // namespace Velmar
