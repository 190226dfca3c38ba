// What the tests of the running daemon have in common, on a machine of their own
// (PrivateMachine.h).
#pragma once

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/PrivateMachine.h"
#include "tests/Support.h"

namespace BrimletTest {

// Runs a program with `command[0]` standing at `path`, an installed file, for the time being.
std::string RunAndReadAt(const std::string& path, Command command);

// One connection to the bus.
class Caller {
 public:
  Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;
  ~Caller();

  // The reply, or "error: " and the error's name.
  std::string Call(const std::string& line);
  // Sends without waiting.
  void Send(const std::string& line);
  // The replies to everything that was sent, in the order of their arrival, each behind the number
  // of its request ("0: text").
  Lines Receive();
  // Sends without wanting a reply.
  void SendNoReply(const std::string& line);
  [[nodiscard]] sd_bus* Get() const { return mBus; }

 private:
  struct Request {
    Caller* caller;
    std::size_t number;
  };
  static int OnReply(sd_bus_message* reply, void* request, sd_bus_error* error);
  sd_bus_message* NewCall(const std::string& line);

  sd_bus* mBus = nullptr;
  std::vector<std::unique_ptr<Request>> mRequests;
  Lines mReplies;
};

// What the test program does as "--attack NAME" from any other path than the casting engine's.
// Returns its exit status.
int Attack(const std::string& name);

// What the test program does as "--send-calls USER" and "--send-signals USER": sends messages to
// the daemon as that user and prints what came of each.
int SendProbes(const std::string& mode, const std::string& user);

enum class BusPolicy {
  kAsInstalled,
  kOpenToAll,  // every message of everybody gets as far as the daemon
};

// A fresh home directory and a fresh bus, which is the system bus for this process and its
// children.
class BusTest : public testing::Test {
 protected:
  BusTest();

  void StartBus(BusPolicy policy);
  // The daemon logs a failure after its reply. It describes itself, which asks for no admission,
  // when it is done with that.
  static void WaitUntilIdle();
  // The lines that the daemon logged since the last call, without times and line numbers.
  Lines TakeLog();
  static std::string Error(const std::string& unit, const std::string& message) {
    return "[ERROR] [" + unit + "] ORVIX_BRIMLETD: " + message;
  }
  // A shell script with the given body; returns its path.
  std::string Script(const std::string& name, const std::string& body) const;

  TempFolder mHome;
  std::unique_ptr<Process> mBus;

 private:
  std::size_t mTaken = 0;
};

}  // namespace BrimletTest
