// What tests of units that work on files share: a folder, the log of the process, and a stand
// between the product and its calls that open and unlink, in a program linked with --wrap.
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
#include <regex>

#include "common/Logger.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

// Called before each of these calls. A result other than 0 is the error with which the call fails.
inline std::function<int()> g_hook;
inline long Call(long number, int folder, const char* name, int flags, mode_t mode) {
  errno = g_hook ? g_hook() : 0;
  return errno == 0 ? syscall(number, folder, name, flags, mode) : -1;
}
extern "C" long __wrap_openat(int folder, const char* name, int flags, mode_t mode) {
  const int wanted = O_CLOEXEC | ((flags & O_DIRECTORY) != 0 ? 0 : O_NOCTTY | O_NONBLOCK);
  EXPECT_EQ(flags & wanted, wanted) << name;
  return Call(SYS_openat, folder, name, flags, mode);
}
extern "C" long __wrap_open(const char* name, int flags, mode_t mode) {
  return __wrap_openat(AT_FDCWD, name, flags, mode);
}
extern "C" long __wrap_unlinkat(int folder, const char* name, int flags) {
  return Call(SYS_unlinkat, folder, name, flags, 0);
}
extern "C" long __wrap_unlink(const char* name) { return __wrap_unlinkat(AT_FDCWD, name, 0); }

inline std::string ReadWhole(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct FolderTest : testing::Test {
  FolderTest() {
    std::signal(SIGXFSZ, SIG_IGN);
    umask(022);
    Velmar::Singleton<Velmar::Logger>::Instance()->Init(log);
  }
  ~FolderTest() override {
    EXPECT_TRUE(!isRoot || setresuid(0, 0, 0) == 0);
    Velmar::Singleton<Velmar::Logger>::Destroy();
    Run("chmod -R u+rwx . && rm -r " + base);
  }
  // Runs a shell command in the folder, which has to succeed.
  void Run(const std::string& command) const {
    EXPECT_EQ(std::system(("cd " + base + "/f && " + command).c_str()), 0) << command;
  }
  // What was logged since the last call: "E opendir x failed\n", x being in the folder.
  std::string Logged() const {
    const std::regex rest(R"(\[[-: .\d]{24}\] \[([A-Z])[A-Z]+\] \[\w+:\d+\]( UTILS:)?|)" + base +
                          "/f/?");
    std::string text = std::regex_replace(ReadWhole(log), rest, "$1");
    fs::resize_file(log, 0);
    return text;
  }
  // Runs `act` after the command `before` again and again, with `disturb` before its call number
  // `first`, the next one and so on. After each, `check` has to hold.
  void DisturbEachCall(int first, const std::string& before, const std::function<void()>& act,
                       const std::string& disturb, const std::string& check) const {
    for (int at = first, calls = first + 1; at < calls; ++at) {
      Run(before);
      calls = 0;
      g_hook = [&] {
        if (calls++ == at) Run(disturb);
        return 0;
      };
      act();
      g_hook = nullptr;
      Run(check + " # after: " + disturb + ", before call " + std::to_string(at));
    }
  }
  // Root, who may do everything, is somebody else, who owns the folder, to the end of the test.
  void LeaveRoot() {
    if (geteuid() != 0) return;
    Run("chown -R 1:1 " + base);
    isRoot = setresuid(1, 1, 0) == 0;
  }

  bool isRoot = false;
  std::string pattern = fs::temp_directory_path() / "brimlet-test-XXXXXX";
  const std::string base = mkdtemp(pattern.data()), log = base + "/log";
  const fs::path folder = base + "/f";
  const bool isMade = fs::create_directory(folder);
};
