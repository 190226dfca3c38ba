// The installed bus policy: root and the members of one group get as far as the one method and the
// daemon's description of itself, nobody else gets anywhere at the connection that serves calls.
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <utility>

#include "utils/Bus.h"
#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

using Velmar::kBusName;
using Velmar::kObjectPath;

const struct {
  const char* name;
  const char* path;
  const char* interface;
  const char* member;
  const char* signature;
  bool isForTheGroup;
} kCalls[] = {
    {"the method", kObjectPath, kBusName, "brimletd", "s", true},
    {"introspection", kObjectPath, "org.freedesktop.DBus.Introspectable", "Introspect", "", false},
    {"introspection from the root", "/", "org.freedesktop.DBus.Introspectable", "Introspect", "",
     false},
    {"no interface", kObjectPath, nullptr, "brimletd", "s", false},
    {"another object", "/com/tolvane", kBusName, "brimletd", "s", false},
    {"another member", kObjectPath, kBusName, "Brimletd", "s", false},
    {"another interface", kObjectPath, "com.tolvane.brimlets", "brimletd", "s", false},
    {"a ping", kObjectPath, "org.freedesktop.DBus.Peer", "Ping", "", false},
    {"properties", kObjectPath, "org.freedesktop.DBus.Properties", "GetAll", "s", false},
};

// The name, and the connection behind it by its own.
Lines Destinations(sd_bus* bus) {
  sd_bus_creds* owner = nullptr;
  const char* unique = "nobody";
  if (sd_bus_get_name_creds(bus, kBusName, SD_BUS_CREDS_UNIQUE_NAME, &owner) >= 0) {
    sd_bus_creds_get_unique_name(owner, &unique);
  }
  Lines destinations = {kBusName, unique};
  sd_bus_creds_unref(owner);
  return destinations;
}

std::string Send(sd_bus* bus, const std::string& destination, const char* path,
                 const char* interface, const char* member, const char* signature) {
  sd_bus_message* call = nullptr;
  sd_bus_error error{};
  sd_bus_message_new_method_call(bus, &call, destination.c_str(), path, interface, member);
  if (*signature != '\0') {
    sd_bus_message_append(call, signature, "echo --add");
  }
  const int r = sd_bus_call(bus, call, 0, &error, nullptr);
  std::string result = r < 0 ? error.name : "answered";
  sd_bus_error_free(&error);
  sd_bus_message_unref(call);
  return result;
}

void SendCalls(sd_bus* bus) {
  const int r = sd_bus_request_name(bus, kBusName, 0);
  std::cout << "ownership: " << std::strerror(-r) << '\n';
  for (const std::string& destination : Destinations(bus)) {
    for (const auto& call : kCalls) {
      std::cout << call.name << ": "
                << Send(bus, destination, call.path, call.interface, call.member, call.signature)
                << std::endl;
    }
  }
}

// Signals to the daemon alone, which the bus has passed on or dropped when this returns.
void SendSignals(sd_bus* bus) {
  for (const std::string& destination : Destinations(bus)) {
    sd_bus_message* signal = nullptr;
    sd_bus_message_new_signal(bus, &signal, "/a/path", "a.b", "Signal");
    sd_bus_message_set_destination(signal, destination.c_str());
    sd_bus_send(bus, signal, nullptr);
    sd_bus_message_unref(signal);
  }
  sd_bus_call_method(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", nullptr,
                     nullptr, nullptr);
  std::cout << "sent" << std::endl;
}

int CountSignal(sd_bus_message* message, void* count, sd_bus_error* /*error*/) {
  *static_cast<int*>(count) += sd_bus_message_is_signal(message, "a.b", "Signal") > 0 ? 1 : 0;
  return 0;
}

// Seen as each of them.
class BusPolicyTest : public BusTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!mIsRoot && HasOneUser()) {
      GTEST_SKIP() << "there is no user to be the " << GetParam();
    }
  }

  // How many signals reach the owner of the daemon's name.
  int CountSignals(BusPolicy policy) {
    StartBus(policy);
    const Caller owner;
    int count = 0;
    EXPECT_GE(sd_bus_request_name(owner.Get(), kBusName, 0), 0);
    sd_bus_add_filter(owner.Get(), nullptr, CountSignal, &count);
    EXPECT_EQ(RunAndRead({kCorePath, "--send-signals", GetParam()}), "sent\n");
    sd_bus_call_method(owner.Get(), "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId",
                       nullptr, nullptr, nullptr);
    while (sd_bus_process(owner.Get(), nullptr) > 0) {
    }
    return count;
  }

  const bool mIsRoot = GetParam() == std::string("root");
  const bool mIsMember = GetParam() == std::string("member");
};

TEST_P(BusPolicyTest, LetsOneMethodAndIntrospectionThrough) {
  const Daemon daemon;
  // The name is taken, which only its possible owners are told.
  Lines expected = {std::string("ownership: ") + std::strerror(mIsRoot ? EEXIST : EACCES)};
  for (int destination = 0; destination < 2; ++destination) {
    for (const auto& call : kCalls) {
      const bool isIntrospection = call.member == std::string("Introspect");
      const bool isAllowed =
          (call.isForTheGroup && (mIsRoot || mIsMember)) || (mIsRoot && isIntrospection);
      expected.push_back(std::string(call.name) + ": " +
                         (isAllowed ? "answered" : "org.freedesktop.DBus.Error.AccessDenied"));
    }
  }
  EXPECT_EQ(LinesOf(RunAndRead({kCorePath, "--send-calls", GetParam()})), expected);
}

TEST_P(BusPolicyTest, LetsNoSignalThrough) {
  EXPECT_EQ(CountSignals(BusPolicy::kOpenToAll), 2);
  EXPECT_EQ(CountSignals(BusPolicy::kAsInstalled), 0);
}

INSTANTIATE_TEST_SUITE_P(As, BusPolicyTest, testing::Values("root", "member", "stranger"),
                         [](const auto& tested) { return std::string(tested.param); });

}  // namespace

int SendProbes(const std::string& mode, const std::string& user) {
  if (user != "root") {
    BecomeOtherUser(user == "member" ? std::vector{kMemberGroup} : std::vector<gid_t>{});
  }
  const Caller caller;
  (mode == "--send-signals" ? SendSignals : SendCalls)(caller.Get());
  return 0;
}

}  // namespace BrimletTest
