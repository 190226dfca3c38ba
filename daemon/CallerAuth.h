// Who may call the daemon, and who may be its parent: decided by the executable that the kernel
// reports for a process, an absolute path that has to be equal to an admitted one in full.
//
// It tells which file a process runs at that moment, not who wrote the code in it. Every decision
// reads the executable anew. The owner of a refused path has chosen its name, so the log shows it
// with its control characters escaped. For use by the daemon's one thread.
#pragma once

struct sd_bus_message;

namespace Velmar {

// Returns 1 when the sender of the message runs the main program or the casting engine. Returns a
// negative error otherwise, that of SenderQuery.h or -1, and logs the reason as ERROR.
int CheckAuth(sd_bus_message* message);

// Returns 1 when process `pid` runs the main program. Returns -1 otherwise and logs the reason as
// ERROR.
int CheckParent(int pid);

}  // namespace Velmar
