// The bus service: the connection to the system bus, the one object with its one method, the
// well-known name, and the loop that serves calls and watches the parent process.
#pragma once

namespace Velmar {

// Both the well-known bus name and the name of the interface.
inline constexpr const char* kBusName = "com.tolvane.brimlet";
inline constexpr const char* kObjectPath = "/com/tolvane/brimlet";
// Input "s", a command line; output "s", its output or an error text (CommandMethod.h).
inline constexpr const char* kMethodName = "brimletd";

// Serves calls, one at a time, until the bus or the parent process is gone. The parent is looked at
// after every wait: at least every 2 seconds while no calls come, and never while some are pending.
//
// Always returns 1, after one ERROR line that tells what failed: connecting, exporting the object,
// acquiring the name (another process owns it, or the bus refuses it), processing, waiting, or the
// parent check. Everything that it opened is closed then.
int RunBusService();

}  // namespace Velmar
