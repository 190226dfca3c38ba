#include "daemon/CommandMethod.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "common/LogStatement.h"
#include "common/Singleton.h"
#include "daemon/CallerAuth.h"
#include "utils/CommandPipe.h"
#include "verifycmds/verifycmds.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
// The only line that stops the daemon, byte for byte. With a blank behind it, it is a command.
constexpr const char* kBrimletdExitCommand = "brimletd --exit";
constexpr const char* kAuthFailedReply = "auth failed";
constexpr const char* kExecuteFailedReply = "ExecutePopen failed!";
constexpr std::size_t MAX_BUF_SIZE = 102400;  // of a command's output, a terminator included
constexpr std::size_t kLineBufferSize = 1024;

// What came of a call, negative for a failure, and whether the caller got a reply all the same.
struct Outcome {
  int result;
  bool isReplied;
};

int Reply(sd_bus_message* message, const char* text) {
  return sd_bus_reply_method_return(message, "s", text);
}

// Replies with a fixed text because of `result`.
Outcome Refuse(sd_bus_message* message, const char* text, int result) {
  return {result, Reply(message, text) >= 0};
}

// Reads all that a command prints. False when that is too long, or begins with a zero byte.
bool ReadOutput(std::FILE* pipe, std::string& output) {
  char buffer[kLineBufferSize];
  while (const char* const piece = std::fgets(buffer, sizeof buffer, pipe)) {
    output.append(piece);
    if (output.empty() || output.size() >= MAX_BUF_SIZE) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "lenBuf >= MAX_BUF_SIZE or < 1!");
      return false;
    }
  }
  return true;
}

Outcome ExecutePopen(sd_bus_message* message, const char* command) {
  if (!SingletonNew<VerifyCmds>::GetInstance().IsValidCmd(command)) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  Utils::UniquePipe pipe = Utils::OpenCommand(command);
  if (!pipe) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  std::string output;
  const bool isWhole = ReadOutput(pipe.get(), output);
  pipe.reset();  // waits for the command: it has ended before the caller hears of it
  if (!isWhole) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  if (!output.empty()) {
    output.pop_back();
  }
  const int r = Reply(message, output.c_str());
  return {r, r >= 0};
}

// Authorises, reads, judges, runs, replies.
Outcome PopenProcess(sd_bus_message* message) {
  const int auth = CheckAuth(message);
  if (auth < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckAuth failed: %d", auth);
    return Refuse(message, kAuthFailedReply, auth);
  }
  const char* command = nullptr;
  const int r = sd_bus_message_read(message, "s", &command);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to parse parameters: %d", r);
    return {r, false};
  }
  if (std::strcmp(command, kBrimletdExitCommand) == 0) {
    std::exit(EXIT_SUCCESS);
  }
  return ExecutePopen(message, command);
}

}  // namespace

int BrimletPopen(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  if (message == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "BrimletPopen error! ");
    return -1;
  }
  const Outcome outcome = PopenProcess(message);
  if (outcome.result < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "PopenProcess fail r:%d ", outcome.result);
  }
  return outcome.isReplied ? 1 : outcome.result;
}

}  // namespace Velmar
