#include "storage/DirOperator.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "common/ErrorCode.h"
#include "common/LogStatement.h"
#include "common/UniqueFd.h"
#include "utils/CommandOutput.h"
#include "utils/Split.h"

namespace Velmar {
namespace {

using ErrorCode::CommonStatus::ACTION_SUCCESS;
using ErrorCode::DirOperStatus::CREATE_DIR_FAILED;
using ErrorCode::DirOperStatus::REMOVE_DIR_FAILED;

constexpr const char* kModule = "UTILS";
constexpr mode_t kDirMode = 0700;
constexpr std::size_t kMaxPathLength = 4095;

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// Opens the directory `name` of an open directory, but nothing that a link leads to.
UniqueDir OpenDirAt(int parent, const char* name) {
  UniqueFd fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  UniqueDir dir(fd.IsOpen() ? fdopendir(fd.Get()) : nullptr);
  if (dir) {
    static_cast<void>(fd.Release());  // the stream closes it from now on
  }
  return dir;
}

bool IsSelfOrParent(std::string_view name) { return name == "." || name == ".."; }

// One removal. `mPath` names the directory or file at work as the caller would.
class TreeRemoval {
 public:
  explicit TreeRemoval(std::string path) : mPath(std::move(path)) {}

  // Removes the directory `name` of the open directory `parent`.
  int RemoveDirAt(int parent, const char* name) {
    {
      const UniqueDir dir = OpenDirAt(parent, name);
      if (!dir) {
        BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "opendir %s failed", mPath.c_str());
        return -REMOVE_DIR_FAILED;
      }
      const int result = RemoveEntries(dir.get());
      if (result < 0) {
        return result;
      }
    }
    return unlinkat(parent, name, AT_REMOVEDIR);
  }

 private:
  int RemoveEntries(DIR* dir) {
    // No other thread reads from this stream.
    // cppcheck-suppress readdirCalled
    while (const dirent* const entry = readdir(dir)) {
      if (IsSelfOrParent(entry->d_name)) {
        continue;
      }
      const int result = RemoveEntry(dirfd(dir), *entry);
      if (result < 0) {
        return result;
      }
    }
    return ACTION_SUCCESS;
  }

  int RemoveEntry(int dir, const dirent& entry) {
    const std::size_t dirLength = mPath.size();
    if (dirLength + 1 + std::string_view(entry.d_name).size() > kMaxPathLength) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "remove dir failed %s for sprintf error",
                  mPath.c_str());
      return -1;
    }
    mPath.append("/").append(entry.d_name);
    const bool isDir = entry.d_type == DT_DIR;
    const int result = isDir ? RemoveDirAt(dir, entry.d_name) : RemoveFileAt(dir, entry.d_name);
    mPath.resize(dirLength);
    if (isDir && result < 0) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "RemoveDir failed, %s", mPath.c_str());
    }
    return result;
  }

  int RemoveFileAt(int dir, const char* name) {
    if (unlinkat(dir, name, 0) != 0) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "unlink failed, %s", mPath.c_str());
      return -1;
    }
    return ACTION_SUCCESS;
  }

  std::string mPath;
};

// Takes a path apart into the folder and the last name in it, without trailing slashes: for them
// the system would follow a link in spite of O_NOFOLLOW.
std::pair<std::string, std::string> SplitLastName(std::string path) {
  if (path.find_first_not_of('/') == std::string::npos) {
    return {path, path.empty() ? "" : "."};
  }
  path.resize(path.find_last_not_of('/') + 1);
  const std::size_t name = path.rfind('/') + 1;
  return {name == 0 ? "." : path.substr(0, name), path.substr(name)};
}

}  // namespace

std::string DirOperator::GetUserDir() {
  const char* const home = std::getenv("HOME");
  if (home == nullptr) {
    return "";
  }
  if (!IsDirExist(home)) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "dir:%s not exist!", home);
    return "";
  }
  return home;
}

std::string DirOperator::GetAppDir() { return GetOrCreateDir(mAppDir); }

std::string DirOperator::GetLogDir() { return GetOrCreateDir(mLogDir); }

std::string DirOperator::GetConfDir() { return GetExistingDir(mConfDir); }

std::string DirOperator::GetOthersDir() { return GetExistingDir(mOthersDir); }

std::string DirOperator::GetDesktopDir() { return Utils::GetCmdOutput("xdg-user-dir DESKTOP"); }

std::string DirOperator::GetExistingDir(const std::string& dir) {
  std::string path = GetUserDir() + dir;
  if (!IsDirExist(path)) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "dir:%s not exist!", path.c_str());
    return "";
  }
  return path;
}

std::string DirOperator::GetOrCreateDir(const std::string& dir) {
  std::string path = GetUserDir() + dir;
  if (!IsDirExist(path) && CreateMultiLevelDir(path) != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "dir:%s not exist!", path.c_str());
    return "";
  }
  return path;
}

int DirOperator::CreateOthersDir() {
  const std::string existing = GetOthersDir();
  if (!existing.empty()) {
    BRIMLET_LOG(LOG_LEVEL_INFO, kModule, "CreateOthersDir othersdir:%s already exist",
                existing.c_str());
    return ACTION_SUCCESS;
  }
  std::string level = GetUserDir();
  if (level.empty()) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CreateOthersDir userdir empty!");
    return CREATE_DIR_FAILED;
  }
  for (const std::string& piece : Utils::Split(mOthersDir, "/")) {
    level.append(piece).append("/");
    BRIMLET_LOG(LOG_LEVEL_INFO, kModule, "CreateOthersDir userdir:%s", level.c_str());
    const int result = CreateDir(level, kDirMode);
    if (result != ACTION_SUCCESS) {
      return result;
    }
  }
  return ACTION_SUCCESS;
}

int DirOperator::CreateDir(const std::string& path, mode_t mode) {
  if (IsDirExist(path) || mkdir(path.c_str(), mode) == 0) {
    return ACTION_SUCCESS;
  }
  return CREATE_DIR_FAILED;
}

int DirOperator::CreateMultiLevelDir(const std::string& path) {
  std::string prefix;
  for (const std::string& piece : Utils::Split(path, "/")) {
    prefix.append(piece).append("/");
    const int result = CreateDir(prefix, kDirMode);
    if (result != ACTION_SUCCESS) {
      return result;
    }
  }
  return ACTION_SUCCESS;
}

bool DirOperator::IsDirExist(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool DirOperator::IsDirAccessible(const std::string& path) {
  return access(path.c_str(), R_OK | W_OK | X_OK) == 0;
}

bool DirOperator::IsSymLink(const std::string& path) {
  char target = 0;
  return readlink(path.c_str(), &target, sizeof target) > 0;
}

int DirOperator::RemoveDir(const std::string& path) {
  const auto [folder, name] = SplitLastName(path);
  // The folder is opened first, so that the directory opened and the one removed in the end have
  // the same place, whatever happens to the names above it.
  const UniqueFd parent(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return TreeRemoval(path).RemoveDirAt(parent.Get(), name.c_str());
}

}  // namespace Velmar
