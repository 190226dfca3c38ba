// The bus service: the connection to the system bus, the one object with its one method, the
// well-known name, and the loop that serves calls and watches the parent process.
#pragma once

namespace Velmar {

// Serves calls, one at a time, until the bus or the parent process is gone. Looks at the parent
// after every wait: at least every 2 seconds while no calls come, and while calls are pending only
// after one whose sender took long to find out.
//
// Always returns 1, after an ERROR line that tells what failed: connecting, exporting the object,
// acquiring the name (another process owns it, or the bus refuses it), processing, waiting, or the
// parent check. Waits at most 9 seconds for the bus before it serves. Closes all that it opened.
int RunBusService();

}  // namespace Velmar
