// Calling the daemon, for the application's programs.
//
//   Velmar::Utils::SetBrimletdPid(pid);  // the daemon that this application has started
//   std::string result;
//   std::string error;
//   if (Velmar::Utils::ExecuteByBrimletd("ip --setIP orvix0 192.168.1.1", result, error) < 0) {
//     // The call failed: `error` tells why, where the bus does.
//   } else if (result == "auth failed" || result == "ExecutePopen failed!") {
//     // The daemon refused this program or this line.
//   }
//
// Every call opens and closes a connection of its own to the system bus. It takes at most 10
// seconds: 2.5 to connect, 5 for the reply, 2.5 for the bus to tell who sent it. Failures are
// logged as ERROR with the module "UTILS".
#pragma once

#include <cstdint>
#include <string>

struct sd_bus;
struct sd_bus_message;

namespace Velmar {

// The process id of the daemon that this application has started; 0 until SetBrimletdPid() is
// called. Replies of every other process are thrown away.
extern std::int32_t g_brimletdPid;

namespace Utils {

// The install directory of the casting component.
inline const std::string mBrimletFilePath =  // NOLINT(cert-err58-cpp): a short text
    "/opt/apps/com.tolvane.brimlet/files/orvix/";

// Stores the daemon's process id. Has to be called once the daemon is started and before the first
// call, while no other thread calls.
void SetBrimletdPid(int pid);

// Has the daemon run a command line (or stop: "brimletd --exit") and waits for its reply, at most 5
// seconds. A zero byte ends the line. May be called from several threads once the process's logger
// exists.
//
// Returns a non-negative value when there was a reply. `result` is the reply then, whatever it says
// ("auth failed" and "ExecutePopen failed!" are the daemon's refusals), and `errorMessage` is
// empty. `result` is empty too when the reply came from another process than the one set by
// SetBrimletdPid(); the line was run then all the same.
//
// Returns a negative error number otherwise, and `result` is empty. `errorMessage` is the bus's
// text: the daemon is not there, has ended instead of replying (always so for the stop line), or
// answered with an error. When time is up it is "Connection timed out" in every language setting,
// and a WARNING is logged; the daemon goes on with the command. `errorMessage` is empty when the
// bus cannot be reached, the line is not valid UTF-8 (which no wait precedes), or the reply holds
// no string.
int ExecuteByBrimletd(const std::string& command, std::string& result, std::string& errorMessage);

// The same without the fixed text and the WARNING for a time-out: `errorMessage` is what the bus
// library says in the process's language.
int CallBrimletd(const std::string& command, std::string& result, std::string& errorMessage);

// Opens a connection to the system bus and makes the call to the daemon's method, without sending
// it or waiting for the connection. Neither `bus` nor `call` may be null; both `*bus` and `*call`
// have to be null before, and the caller releases them with sd_bus_close_unref() and
// sd_bus_message_unref(), also after a failure. Returns a non-negative value, or the bus library's
// negative error, which is logged.
int CreateBrimletdCall(sd_bus** bus, sd_bus_message** call, const std::string& command);

// Returns the process id of the reply's sender. Returns -1 when `reply` is null, and the bus
// library's negative error, which is logged, when the bus does not tell within 2.5 seconds (the
// sender may be gone). Drops whatever else arrives on the reply's connection meanwhile.
int GetReplySenderPid(sd_bus_message* reply);

}  // namespace Utils
}  // namespace Velmar
