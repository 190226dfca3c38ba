// A shell command and the pipe from its standard output. Internal: not installed.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <span>
#include <string_view>

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

  // Waits for output and reads at most as much as fits, which has to be at least one byte. Returns
  // the bytes read: none at the end of the output, and when it cannot be read. What came before
  // that stands, also the beginning of a line.
  std::span<char> Read(std::span<char> buffer) {
    // Past the stream, which would copy the output once more.
    const ssize_t length = read(fileno(mStream), buffer.data(), buffer.size());
    return buffer.first(length > 0 ? static_cast<std::size_t>(length) : 0);
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

// Takes out of a text, block by block, what its zero bytes hide: each hides the rest of its piece,
// which is a line or, of a longer line, `pieceSize` bytes.
class ZeroByteFilter {
 public:
  explicit ZeroByteFilter(std::size_t pieceSize) : mPieceSize(pieceSize) {}

  // Moves what is left of the next block to its front and returns how much that is.
  std::size_t Apply(std::span<char> block) {
    const std::string_view text(block.data(), block.size());
    if (!mIsHiding && text.find('\0') == std::string_view::npos) {
      Pass(text);
      return text.size();
    }
    std::size_t left = 0;
    for (const char c : block) {
      mIsHiding = mIsHiding || c == '\0';
      if (!mIsHiding) {
        block[left++] = c;
      }
      if (++mPieceLength == mPieceSize || c == '\n') {
        mPieceLength = 0;
        mIsHiding = false;
      }
    }
    return left;
  }

 private:
  void Pass(std::string_view text) {
    const std::size_t lineFeed = text.rfind('\n');
    mPieceLength = lineFeed == std::string_view::npos ? mPieceLength + text.size()
                                                      : text.size() - 1 - lineFeed;
    mPieceLength %= mPieceSize;
  }

  const std::size_t mPieceSize;
  std::size_t mPieceLength = 0;  // so far
  bool mIsHiding = false;
};

}  // namespace Velmar::Utils
