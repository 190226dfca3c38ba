// The installed bus policy: root and the members of one group get as far as the one method and the
// daemon's description of itself, nobody else gets anywhere.
#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

constexpr const char* kName = "com.tolvane.brimlet";
constexpr const char* kObject = "/com/tolvane/brimlet";
constexpr uid_t kOtherUser = 65534;

const struct {
  const char* name;
  const char* path;
  const char* interface;
  const char* member;
  const char* signature;
  bool isForTheGroup;
} kCalls[] = {
    {"the method", kObject, kName, "brimletd", "s", true},
    {"introspection", kObject, "org.freedesktop.DBus.Introspectable", "Introspect", "", true},
    {"introspection from the root", "/", "org.freedesktop.DBus.Introspectable", "Introspect", "",
     true},
    {"no interface", kObject, nullptr, "brimletd", "s", false},
    {"another object", "/com/tolvane", kName, "brimletd", "s", false},
    {"another member", kObject, kName, "Brimletd", "s", false},
    {"another interface", kObject, "com.tolvane.brimlets", "brimletd", "s", false},
    {"a ping", kObject, "org.freedesktop.DBus.Peer", "Ping", "", false},
    {"properties", kObject, "org.freedesktop.DBus.Properties", "GetAll", "s", false},
};

const struct {
  const char* name;
  bool isRoot;
  bool isMember;
} kUsers[] = {{"root", true, false}, {"member", false, true}, {"stranger", false, false}};

bool Become(const std::string& user) {
  for (const auto& known : kUsers) {
    if (user == known.name && !known.isRoot) {
      return setgroups(known.isMember ? 1 : 0, &kMemberGroup) == 0 &&
             setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
             setresuid(kOtherUser, kOtherUser, kOtherUser) == 0;
    }
  }
  return true;
}

std::string Send(sd_bus* bus, const char* path, const char* interface, const char* member,
                 const char* signature) {
  sd_bus_message* call = nullptr;
  sd_bus_error error{};
  sd_bus_message_new_method_call(bus, &call, kName, path, interface, member);
  if (*signature != '\0') {
    sd_bus_message_append(call, signature, "echo --add");
  }
  const int r = sd_bus_call(bus, call, 0, &error, nullptr);
  std::string result = r < 0 ? error.name : "answered";
  sd_bus_error_free(&error);
  sd_bus_message_unref(call);
  return result;
}

// A signal to the daemon alone, which the bus has passed on or dropped when this returns.
void SendSignal(sd_bus* bus) {
  sd_bus_message* signal = nullptr;
  sd_bus_message_new_signal(bus, &signal, "/a/path", "a.b", "Signal");
  sd_bus_message_set_destination(signal, kName);
  sd_bus_send(bus, signal, nullptr);
  sd_bus_message_unref(signal);
  sd_bus_call_method(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", nullptr,
                     nullptr, nullptr);
}

int CountSignal(sd_bus_message* message, void* count, sd_bus_error* /*error*/) {
  *static_cast<int*>(count) += sd_bus_message_is_signal(message, "a.b", "Signal") > 0 ? 1 : 0;
  return 0;
}

class BusPolicyTest : public BusTest {
 protected:
  // What a probe prints, or nothing where the machine has no user but this one.
  static Lines Probe(const std::string& mode, const std::string& user) {
    Lines seen = LinesOf(RunAndRead({kCorePath, mode, user}));
    EXPECT_FALSE(seen.empty()) << mode << user;
    if (seen == Lines{"no such user"}) {
      std::cout << "not tried: there is no other user to be the " << user << std::endl;
      return {};
    }
    return seen;
  }

  // How many signals reach the owner of the daemon's name, of how many that were sent.
  std::pair<int, int> CountSignals(BusPolicy policy) {
    StartBus(policy);
    const Caller owner;
    int received = 0;
    int sent = 0;
    EXPECT_GE(sd_bus_request_name(owner.Get(), kName, 0), 0);
    sd_bus_add_filter(owner.Get(), nullptr, CountSignal, &received);
    for (const auto& user : kUsers) {
      sent += Probe("--send-signal", user.name).empty() ? 0 : 1;
    }
    SendSignal(owner.Get());
    while (sd_bus_process(owner.Get(), nullptr) > 0) {
    }
    return {received, sent + 1};
  }
};

TEST_F(BusPolicyTest, LetsRootAndTheGroupCallOneMethodAndIntrospect) {
  const Daemon daemon;
  const std::string denied = "org.freedesktop.DBus.Error.AccessDenied";
  for (const auto& user : kUsers) {
    const Lines seen = Probe("--send-calls", user.name);
    if (seen.empty()) {
      continue;
    }
    // The name is taken, which only its possible owners are told.
    Lines expected = {std::string("ownership: ") + std::strerror(user.isRoot ? EEXIST : EACCES)};
    for (const auto& call : kCalls) {
      const bool isAllowed = call.isForTheGroup && (user.isRoot || user.isMember);
      expected.push_back(std::string(call.name) + ": " + (isAllowed ? "answered" : denied));
    }
    EXPECT_EQ(seen, expected) << user.name;
  }
}

TEST_F(BusPolicyTest, LetsNoSignalThrough) {
  const auto [seen, sent] = CountSignals(BusPolicy::kOpenToAll);
  EXPECT_EQ(seen, sent);
  EXPECT_EQ(CountSignals(BusPolicy::kAsInstalled).first, 0);
}

}  // namespace

int SendProbes(const std::string& mode, const std::string& user) {
  if (!Become(user)) {
    std::cout << "no such user" << std::endl;
    return 1;
  }
  prctl(PR_SET_DUMPABLE, 1);
  const Caller caller;
  if (mode == "--send-signal") {
    SendSignal(caller.Get());
    std::cout << "sent" << std::endl;
    return 0;
  }
  const int r = sd_bus_request_name(caller.Get(), kName, 0);
  std::cout << "ownership: " << std::strerror(-r) << '\n';
  for (const auto& call : kCalls) {
    std::cout << call.name << ": "
              << Send(caller.Get(), call.path, call.interface, call.member, call.signature)
              << std::endl;
  }
  return 0;
}

}  // namespace BrimletTest
