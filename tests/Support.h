// What the tests of several units need: a temporary folder, whole files, what was logged.
#pragma once

#include <string>
#include <vector>

namespace BrimletTest {

// A fresh folder, removed with everything below it at the end.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  [[nodiscard]] const std::string& Path() const { return mPath; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

// The content of a file, or "<unreadable>".
std::string ReadWhole(const std::string& path);
void WriteWhole(const std::string& path, const std::string& content);

// Type and permission bits of what stands at a path, a link itself included; 0 when nothing does.
unsigned ModeOf(const std::string& path);

// Sends the process's log to a file of its own as long as it lives.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The lines since the last call, each without its time and its source line:
  // "[ERROR] [DirOperator] UTILS: opendir /x failed". A line that does not have the layout of the
  // log comes as "<malformed> " and the line.
  std::vector<std::string> Take();

 private:
  TempFolder mFolder;
  std::string mPath;
};

// One line of a log file in the form that LogCapture::Take() gives.
std::string StripLogLine(const std::string& line);

// Splits a text at line feeds; one at the end begins no further line.
std::vector<std::string> LinesOf(const std::string& text);

using Lines = std::vector<std::string>;

}  // namespace BrimletTest
