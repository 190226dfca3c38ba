#include "daemon/CommandMethod.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "common/BoundsChecked.h"
#include "common/LogStatement.h"
#include "common/Singleton.h"
#include "daemon/CallerAuth.h"
#include "utils/CommandPipe.h"
#include "verifycmds/verifycmds.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr std::size_t kPieceSize = 1024;  // terminator included

// A result as BrimletPopen() returns it, and whether the caller got a reply.
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

// A command's output as far as it has come, always terminated.
class OutputBuffer {
 public:
  OutputBuffer() { mText[0] = '\0'; }

  // Returns 0. Appends nothing and returns -1 when the text would become too long or would still be
  // empty, and the positive error code of the copy when that fails.
  int Append(const char* piece) {
    const std::size_t pieceLength = std::strlen(piece);
    const std::size_t newLength = mLength + pieceLength;
    if (newLength < 1 || newLength >= MAX_BUF_SIZE) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "lenBuf >= MAX_BUF_SIZE or < 1!");
      return -1;
    }
    const int r = memcpy_s(mText.data() + mLength, mText.size() - mLength, piece, pieceLength + 1);
    if (r != 0) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "strcat_s failed!");
      return r;
    }
    mLength = newLength;
    return 0;
  }

  void RemoveLastByte() {
    if (mLength > 0) {
      mText[--mLength] = '\0';
    }
  }

  [[nodiscard]] const char* Get() const { return mText.data(); }

 private:
  std::array<char, MAX_BUF_SIZE> mText;
  std::size_t mLength = 0;
};

// Reads all output of a command. Returns 0, or the result of the append that failed.
int ReadOutput(Utils::CommandPipe& pipe, OutputBuffer& output) {
  std::array<char, kPieceSize> piece;
  while (pipe.ReadPiece(piece)) {
    const int r = output.Append(piece.data());
    if (r != 0) {
      return r;
    }
  }
  output.RemoveLastByte();
  return 0;
}

Outcome Execute(sd_bus_message* message, const char* command) {
  if (!SingletonNew<VerifyCmds>::GetInstance().IsValidCmd(command)) {
    BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command is not in check_whitelist, command =  %s",
                command);
    return Refuse(message, kExecuteFailedReply, -1);
  }
  if (std::strlen(command) >= kMaxCommandSize) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  Utils::CommandPipe pipe(command);
  if (!pipe.IsOpen()) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  OutputBuffer output;
  const int read = ReadOutput(pipe, output);
  // Waits for the command: it has ended before the caller hears of it.
  pipe.Close();
  if (read != 0) {
    return Refuse(message, kExecuteFailedReply, read);
  }
  const int r = Reply(message, output.Get());
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "retBuf: %s", output.Get());
  return {r, r >= 0};
}

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
  if (command == nullptr) {
    return {r, false};
  }
  if (std::strcmp(command, kBrimletdExitCommand) == 0) {
    BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "brimletd exit!");
    std::exit(EXIT_SUCCESS);
  }
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command = %s ", command);
  const Outcome outcome = Execute(message, command);
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command = %s 函数返回值 = %d", command, outcome.result);
  return outcome;
}

Outcome HandleCall(sd_bus_message* message) {
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "BrimletPopen in");
  if (message == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "BrimletPopen error! ");
    return {-1, false};
  }
  const Outcome outcome = PopenProcess(message);
  if (outcome.result < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "PopenProcess fail r:%d ", outcome.result);
  }
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "BrimletPopen out");
  return outcome;
}

}  // namespace

int BrimletPopen(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  return HandleCall(message).result;
}

int HandleBrimletdCall(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  const Outcome outcome = HandleCall(message);
  return outcome.isReplied ? 1 : outcome.result;
}

int ExecutePopen(sd_bus_message* message, const char* command) {
  return Execute(message, command).result;
}

}  // namespace Velmar
