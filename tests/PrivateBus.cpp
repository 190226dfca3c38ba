#include "tests/PrivateBus.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <utility>

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "com.tolvane.brimlet";
constexpr const char* kObject = "/com/tolvane/brimlet";
constexpr int kSkipped = 77;
constexpr std::uint64_t kCallTimeoutUsec = 120'000'000;

std::string TextOf(sd_bus_message* reply) {
  const sd_bus_error* const error = sd_bus_message_get_error(reply);
  if (error != nullptr) {
    return std::string("error: ") + error->name;
  }
  const char* text = nullptr;
  return sd_bus_message_read(reply, "s", &text) >= 0 ? text : "error: no string";
}

// Its connection outlives the executable, and with it the name that the daemon asks the bus about.
void SendAndBecomeCore(const std::string& line) {
  Caller caller;
  caller.Send(line);
  fcntl(sd_bus_get_fd(caller.Get()), F_SETFD, 0);
  std::cout << "sent" << std::endl;
  execl(kCorePath.c_str(), kCorePath.c_str(), "--call-at-end", "echo --add", nullptr);
}

}  // namespace

std::string RunAndReadAt(const std::string& path, Command command) {
  const std::string program = RunAndRead({"which", command[0]});
  Require(mount(program.substr(0, program.size() - 1).c_str(), path.c_str(), nullptr, MS_BIND,
                nullptr) == 0,
          "put " + program + " at " + path);
  command[0] = path;
  std::string output = RunAndRead(command);
  Require(umount2(path.c_str(), MNT_DETACH) == 0, "umount " + path);
  return output;
}

Caller::Caller() { Require(sd_bus_open_system(&mBus) >= 0, "open the bus"); }

Caller::~Caller() { sd_bus_flush_close_unref(mBus); }

sd_bus_message* Caller::NewCall(const std::string& line) {
  sd_bus_message* call = nullptr;
  Require(sd_bus_message_new_method_call(mBus, &call, kName, kObject, kName, "brimletd") >= 0 &&
              sd_bus_message_append(call, "s", line.c_str()) >= 0,
          "make a call");
  return call;
}

std::string Caller::Call(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  sd_bus_message* reply = nullptr;
  sd_bus_error error{};
  const int r = sd_bus_call(mBus, call, kCallTimeoutUsec, &error, &reply);
  std::string text = r < 0 ? std::string("error: ") + error.name : TextOf(reply);
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
  sd_bus_message_unref(call);
  return text;
}

void Caller::Send(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  mRequests.push_back(std::make_unique<Request>(Request{this, mRequests.size()}));
  Require(sd_bus_call_async(mBus, nullptr, call, OnReply, mRequests.back().get(),
                            kCallTimeoutUsec) >= 0,
          "send");
  sd_bus_message_unref(call);
  sd_bus_flush(mBus);
}

int Caller::OnReply(sd_bus_message* reply, void* request, sd_bus_error* /*error*/) {
  const auto* const done = static_cast<const Request*>(request);
  done->caller->mReplies.push_back(std::to_string(done->number) + ": " + TextOf(reply));
  return 1;
}

Lines Caller::Receive() {
  while (mReplies.size() < mRequests.size()) {
    const int r = sd_bus_process(mBus, nullptr);
    Require(r >= 0, "process");
    if (r == 0) {
      sd_bus_wait(mBus, UINT64_MAX);
    }
  }
  mRequests.clear();
  return std::exchange(mReplies, {});
}

void Caller::SendNoReply(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  sd_bus_message_set_expect_reply(call, 0);
  Require(sd_bus_send(mBus, call, nullptr) >= 0 && sd_bus_flush(mBus) >= 0, "send");
  sd_bus_message_unref(call);
}

BusTest::BusTest() {
  setenv("HOME", mHome.Path().c_str(), 1);
  StartBus(BusPolicy::kAsInstalled);
}

void BusTest::StartBus(BusPolicy policy) {
  mBus.reset();
  mBus = StartPrivateBus(mHome.Path(), policy == BusPolicy::kAsInstalled ? "" : R"(
      <policy context="mandatory"><allow send_destination="com.tolvane.brimlet"/></policy>)");
}

void BusTest::WaitUntilIdle() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) >= 0) {
    sd_bus_call_method(bus, kName, kObject, "org.freedesktop.DBus.Introspectable", "Introspect",
                       nullptr, nullptr, nullptr);
  }
  sd_bus_flush_close_unref(bus);
}

Lines BusTest::TakeLog() {
  WaitUntilIdle();
  Lines lines = LinesOf(ReadWhole(mHome / "Brimlet/log/brimletd.log"));
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(mTaken));
  mTaken += lines.size();
  for (std::string& line : lines) {
    line = StripLogLine(line);
  }
  return lines;
}

std::string BusTest::Script(const std::string& name, const std::string& body) const {
  std::string path = mHome / name;
  WriteWhole(path, "#!/bin/sh\n" + body + "\n");
  fs::permissions(path, fs::perms(0755));
  return path;
}

}  // namespace BrimletTest

// With "--call-at-end LINE": makes one call once its standard input ends, and prints the reply.
// With "--send-and-become-core LINE": sends a call and executes the casting engine, still
// connected.
int main(int argc, char** argv) {
  using namespace BrimletTest;
  const std::string mode = argc == 3 ? argv[1] : "";
  if (mode == "--attack") {
    return Attack(argv[2]);
  }
  if (mode == "--send-calls" || mode == "--send-signals") {
    return SendProbes(mode, argv[2]);
  }
  if (mode == "--send-and-become-core") {
    SendAndBecomeCore(argv[2]);
  }
  if (mode == "--call-at-end") {
    while (std::cin.get() != EOF) {
    }
    std::cout << Caller().Call(argv[2]) << std::endl;
    return 0;
  }
  if (std::filesystem::read_symlink("/proc/self/exe") != kCorePath) {
    BecomeCore(argv);
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  if (!PrepareForBuses()) {
    return kSkipped;
  }
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  const bool isTriedInFull = testing::UnitTest::GetInstance()->skipped_test_count() == 0;
  return result == 0 && !isTriedInFull ? kSkipped : result;
}
