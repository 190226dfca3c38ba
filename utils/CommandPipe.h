// A shell command and the pipe from its standard output. Internal: not installed.
#pragma once

#include <cstdio>
#include <span>

namespace Velmar::Utils {

class CommandPipe {
 public:
  // Starts the shell. IsOpen() tells whether it runs. Commands started later do not inherit the
  // pipe.
  explicit CommandPipe(const char* command) : mStream(popen(command, "re")) {}
  CommandPipe(const CommandPipe&) = delete;
  CommandPipe& operator=(const CommandPipe&) = delete;
  ~CommandPipe() {
    if (IsOpen()) {
      Close();
    }
  }

  [[nodiscard]] bool IsOpen() const { return mStream != nullptr; }

  // Reads one line, or as much of a longer one as fits, and terminates it. False at the end of the
  // output, and when it cannot be read.
  bool ReadPiece(std::span<char> piece) {
    return std::fgets(piece.data(), static_cast<int>(piece.size()), mStream) != nullptr;
  }

  // Closes the pipe and waits for the command to end. Returns its wait status, or -1.
  int Close() {
    const int status = pclose(mStream);
    mStream = nullptr;
    return status;
  }

 private:
  std::FILE* mStream;
};

}  // namespace Velmar::Utils
