// Who does the same work: the helper and its floor, called as an application calls them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

namespace BrimletBench {

// The floor's name on the bus, of which there may be several.
inline const std::string kFloorName = "brimlet.Floor";

// A line, and what everybody has to reply to it.
struct Request {
  std::string line;
  std::string reply;
  const char* floorMethod;  // what the floor does with it: "Run" or "Refuse"
};

// Each opens a connection, calls, and closes it. They throw when the reply is another one, and may
// be called from several threads.
void CallHelper(const Request& request);
void CallFloor(const Request& request, const std::string& name = kFloorName);

// Waits until the bus knows `name`. Throws when `owner`, a child that is to take it, does not.
void WaitForName(const std::string& name, pid_t owner);

// How long it takes, in us.
double Measure(const std::function<void()>& work);

// How often `work` gets done in a second by `callers` threads that repeat it for `time`.
double MeasureRate(int callers, std::chrono::milliseconds time, const std::function<void()>& work);

}  // namespace BrimletBench
