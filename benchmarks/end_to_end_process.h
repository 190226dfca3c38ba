// What the kernel tells about a process, and where processes may run.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace BrimletBench {

// The processors that this process may use.
cpu_set_t UsableProcessors();
// One of them.
cpu_set_t OneOf(const cpu_set_t& processors);
// 0 is the calling thread; threads and processes that are started later inherit the choice.
void Pin(const std::vector<pid_t>& processes, const cpu_set_t& processors);

// The time that the main thread has run, in us. Its children's does not count.
double ProcessorTime(pid_t process);

// The proportional set size in KiB.
double Pss(pid_t process);

// How often the main thread has gone to sleep.
double Sleeps(pid_t process);

// The system calls of one `request`, by their names, of the process alone and not of its children.
// Throws when processes cannot be traced here.
std::map<std::string, double> CountSystemCalls(pid_t process, int requests,
                                               const std::function<void()>& request);

}  // namespace BrimletBench
