// What a shell command prints.
#pragma once

#include <string>

namespace Velmar::Utils {

// Runs `cmd` with the system's shell, waits for it and returns what it wrote to its standard
// output, of any length, less its last line feed (wherever that stands) and less the blanks (0x20
// alone) at both ends of what is left. A zero byte hides the rest of its line. The command inherits
// the process's environment, standard input and standard error.
//
// Returns the empty string, and runs nothing, when `cmd` is empty or contains "./" anywhere.
// Returns the empty string when the shell cannot be started or waited for, and when the command
// exits with another status than 0, whatever it wrote; one that a signal ended counts as status 0.
// Logs nothing. May be called from several threads.
std::string GetCmdOutput(const std::string& cmd);

// Returns a fresh random UUID from the kernel, as "1b4e28ba-2fa1-41d2-883f-0016d3cca427", or the
// empty string when it cannot be read. May be called from several threads.
std::string GetUuid();

}  // namespace Velmar::Utils
