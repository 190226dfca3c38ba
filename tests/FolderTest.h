// What tests of units that work on files share: a folder, the log of the process, and a stand
// between the product and its calls that open files, in a program linked with --wrap.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "common/Logger.h"

namespace fs = std::filesystem;
using std::string_literals::operator""s;
using Texts = std::vector<std::string>;

// Called before a file is opened. A result other than 0 is the error with which that fails.
inline std::function<int()> g_hook = [] { return 0; };
inline std::string g_device = "/dev/random";  // what is opened by this name

extern "C" long __wrap_openat(int folder, const char* name, int flags, mode_t mode) {
  const int wanted = O_CLOEXEC | ((flags & O_DIRECTORY) != 0 ? 0 : O_NOCTTY | O_NONBLOCK);
  EXPECT_TRUE((flags & wanted) == wanted || fs::path(name).extension() == ".profraw") << name;
  errno = g_hook();
  return errno == 0 ? syscall(SYS_openat, folder, name, flags, mode) : -1;
}
extern "C" long __wrap_open(const char* name, int flags, mode_t mode) {
  return __wrap_openat(AT_FDCWD, name == "/dev/random"s ? g_device.c_str() : name, flags, mode);
}

struct FolderTest : testing::Test {
  FolderTest() {
    std::signal(SIGXFSZ, SIG_IGN);
    umask(022);
    Velmar::Singleton<Velmar::Logger>::Instance()->Init(folder / ".log");
  }
  ~FolderTest() override {
    [[maybe_unused]] const int isRoot = setresuid(0, 0, 0);  // again, after LeaveRoot()
    Velmar::Singleton<Velmar::Logger>::Destroy();
    EXPECT_LE(CountOpen(), descriptors);
    Run("chmod -R u+rwx . && rm -r $PWD");
  }
  static long CountOpen() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
  // Root, who may do everything, is somebody else, who owns the folder, to the end of the test.
  void LeaveRoot() const {
    EXPECT_TRUE(geteuid() != 0 || (Run("chown -R 1:1 .") == 0 && setresuid(1, 1, 0) == 0));
  }
  // Runs a shell command in the folder, which has to succeed, and then returns 0.
  int Run(const std::string& command) const {
    const int status = std::system(("cd " + base + " && " + command).c_str());
    EXPECT_EQ(status, 0) << command;
    return status;
  }
  std::string ReadWhole(const fs::path& name) const {
    std::ifstream file(folder / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // What was logged since the last call: "E opendir x failed\n", x being in the folder.
  std::string Logged() const {
    Run(R"(sed -E 's,.{28}(.)\w+. .\w+:\w+.( UTILS:)?,\1,; s,'$PWD'/?,,g; s,/+,/,g' .log >.told)");
    fs::resize_file(folder / ".log", 0);
    return ReadWhole(".told");
  }
  // Goes through a transcript in tests/data/. After each of its lines "$ FIRST => SECOND", of which
  // the second may be missing, stands what `act` tells of the two.
  void Follow(const char* transcript,
              const std::function<std::string(std::string, std::string)>& act) const {
    const std::string told = ReadWhole(std::string(SOURCE_DIR "/tests/data/") + transcript);
    std::istringstream lines(told);
    std::string seen;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t arrow = std::min(line.find(" => "), line.size());
      if (line.starts_with("$ "))
        seen += line + "\n" + act(line.substr(2, arrow - 2), line.substr(arrow).erase(0, 4));
    }
    EXPECT_EQ(seen, told);
  }
  // Runs `act` after the command `before` again and again, with the command `disturb` before it
  // opens file number `first`, the next one and so on to the last. Each time `check` has to
  // succeed.
  void DisturbEachOpen(int first, const std::string& before, const std::function<void()>& act,
                       const std::string& disturb, const std::string& check) const {
    for (int at = first, calls = at; calls >= at; ++at) {
      Run(before);
      calls = 0;
      g_hook = [&] { return calls++ == at ? Run(disturb) : 0; };
      act();
      EXPECT_GT(calls, first) << disturb;
      g_hook = [] { return 0; };
      Run(check + " # after: " + disturb + ", before file " + std::to_string(at));
    }
  }

  std::string base = fs::temp_directory_path() / "brimlet-test-XXXXXX";
  const fs::path folder = mkdtemp(base.data());
  std::ptrdiff_t descriptors = CountOpen();
};
