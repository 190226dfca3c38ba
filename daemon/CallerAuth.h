// Who may call the daemon, and who may be its parent: decided by the executable that the kernel
// reports for a process, an absolute path that has to be equal to an admitted one in full.
//
// Nothing is kept from one call to the next: every decision reads the executable anew. A refused
// path is logged with its control characters escaped (utils/Escape.h): its owner chose it. For use
// by the daemon's one thread.
#pragma once

#include <cstddef>

struct sd_bus_message;

namespace Velmar {

// The casting engine: may call the daemon.
inline constexpr const char* kOrvixCorePath =
    "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore";
// The main program: may call the daemon, and has to be its parent.
inline constexpr const char* kBrimletMainPath =
    "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet";

// The longest executable path that is read; a longer one is cut off there and so never admitted.
inline constexpr std::size_t kMaxSenderPathLength = 4095;

// Returns the process id of the message's sender, which the bus tells (SenderQuery.h). When it does
// not (the sender may be gone), logs an ERROR and returns a negative error.
int GetSenderPid(sd_bus_message* message);

// Puts the path of the executable that process `pid` runs into `path`, a buffer of at least
// kMaxSenderPathLength + 1 zero bytes, and adds no terminator. Returns its length, 1 to
// kMaxSenderPathLength. Returns -1 when `path` is null, and when the path cannot be read (the
// process may be gone), which is logged as ERROR.
int GetSenderPath(int pid, char* path);

// Returns 1 when the sender of the message runs an admitted executable. Otherwise returns a
// negative value (-1, or what GetSenderPid returned); the reason is logged as ERROR unless
// `message` is null.
int CheckAuth(sd_bus_message* message);

// Returns 1 when process `pid` runs the main program, otherwise -1; the reason is logged as ERROR.
int CheckParent(int pid);

}  // namespace Velmar
