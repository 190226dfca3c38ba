// What a user would take instead of the helper: programs that run a command with another user's
// rights. Each is configured to let the caller run everything without asking.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/PrivateMachine.h"

namespace BrimletBench {

struct Peer {
  std::string name;
  double bound;  // for the helper's time, times the peer's
  // An ordinary user's process that runs the peer once for each line on its input, and answers the
  // time it took in us; none where the peer cannot be set up.
  std::unique_ptr<BrimletTest::Process> runner;
  std::string whyNot;
};

class Peers {
 public:
  // Gives the private machine its own /etc and starts what the peers need there. `line` is what
  // they are to run through the shell; it has to print `output`.
  Peers(const std::string& line, const std::string& output);

  std::vector<Peer>& All() { return mPeers; }

 private:
  std::unique_ptr<BrimletTest::Process> mPolkit;
  std::vector<Peer> mPeers;
};

// Has the peer run once; the time in us.
double MeasurePeer(Peer& peer);

// The runner: becomes an ordinary user; `command` is the peer with its arguments. Returns its exit
// status.
int RunPeer(const std::string& output, char** command);

}  // namespace BrimletBench
