// Asks the bus which process has sent a message, over a connection of its own: on the one that
// serves calls, all calls that arrive during the wait would pile up in memory.
//
// The connection owns no name, so no policy keeps strangers from sending to it. It drops what they
// send. When they have filled its queue at the bus, the bus drops the answer; asked again on a new
// connection, it answers. For use by the daemon's one thread.
#pragma once

namespace Velmar {

// Opens the connection ahead of the first question, before strangers can get in the way. Waits at
// most 3 seconds. Where that fails, it is tried again later.
void PrepareSenderQuery();

// Returns the process id of the connection `sender`, or a negative error as QueryPid() does. After
// anything but an answer it asks once more: on a new connection or, as long as strangers keep that
// waiting, on the old one. Takes at most 6 seconds in all.
int QuerySenderPid(const char* sender);

// Drops what strangers have sent to the connection, or opens a new one where it fails. Takes a
// fraction of a second; there may be more to drop then.
void TendSenderQuery();

// The connection's descriptor, or -1 where there is none.
int GetSenderQueryFd();

// Whether the last question took longer than with a bus that nobody disturbs.
bool WasLastQuerySlow();

}  // namespace Velmar
