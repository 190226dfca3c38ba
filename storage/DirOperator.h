// The application's directory tree below a user's home directory, tests of directories, and the
// removal of a directory with everything below it.
//
//   $HOME/Brimlet/                 the application's files
//   $HOME/Brimlet/log              its log files
//   $HOME/Brimlet/Orvix/conf/      the casting component's configuration
//   $HOME/Brimlet/Orvix/others/    its other files
#pragma once

#include <sys/types.h>

#include <string>

#include "../common/Singleton.h"

namespace Velmar {

// The object of a process is SingletonNew<DirOperator>::GetInstance(). It holds constants only:
// every call reads the environment and the file system afresh, and several threads may call. When
// the tree changes between two steps of a call, the later step decides the result.
//
// Directories are created with mode 0700, less the process's umask. With "HOME" unset, empty or not
// naming a directory, the tree lies at the root of the file system.
class BRIMLET_EXPORT DirOperator {
 public:
  // The value of "HOME", unchanged, when it names a directory. Otherwise the empty string; an ERROR
  // is logged unless "HOME" is unset.
  std::string GetUserDir();

  // The directory of the name, with all missing levels created (GetAppDir: with a trailing slash).
  // Returns the empty string and logs an ERROR when it cannot be created; levels that were created
  // stay.
  std::string GetAppDir();
  std::string GetLogDir();

  // The directory of the name, with a trailing slash. Returns the empty string and logs an ERROR
  // when it does not exist. Creates nothing.
  std::string GetConfDir();
  std::string GetOthersDir();

  // The user's desktop directory as "xdg-user-dir DESKTOP" tells it, or the empty string.
  std::string GetDesktopDir();

  // Creates the directory that GetOthersDir() names level by level, starting at the home directory.
  // Logs every level as INFO (and first the ERROR of GetOthersDir). Returns 0, also when it is
  // there already (logged as INFO), or CREATE_DIR_FAILED (100): there is no home directory (logged
  // as ERROR), or a level cannot be created.
  int CreateOthersDir();

  // Creates one directory with the given mode. Returns 0, also when it is there already, or
  // CREATE_DIR_FAILED (100). Logs nothing.
  int CreateDir(const std::string& path, mode_t mode);

  // Creates every missing level of a path. Returns 0, or CREATE_DIR_FAILED (100) when a level
  // cannot be created; those created before it stay. Logs nothing.
  int CreateMultiLevelDir(const std::string& path);

  // True when the path leads to a directory. Links are followed. Logs nothing.
  bool IsDirExist(const std::string& path);

  // True when the process's real user may read, write and search the path. Links are followed. Logs
  // nothing.
  bool IsDirAccessible(const std::string& path);

  // True when the path itself is a symbolic link, wherever it leads. Logs nothing.
  bool IsSymLink(const std::string& path);

  // Removes a directory and everything below it. It removes a symbolic link below it as a link, and
  // works on the directories that it has opened, never on names alone: nothing outside of the tree
  // is removed, even when somebody exchanges folders and links meanwhile.
  //
  // Returns 0. Stops at the first failure, leaves the rest in place and returns
  //   -102 (REMOVE_DIR_FAILED negated), logged as ERROR: a directory cannot be opened;
  //        also when the path is itself a symbolic link, with or without trailing slashes;
  //   -1:  the path of an entry has more than 4095 characters or an entry cannot be removed (both
  //        logged as ERROR; an entry whose type the file system does not tell counts as a file), or
  //        the emptied directory cannot be removed.
  // Every directory around a failure is logged once more. Each level of depth takes a descriptor.
  int RemoveDir(const std::string& path);

  // Places that the application's programs share and that no operation here reads: the casting
  // component's temporary files (below the home directory, as the others), the application's
  // system-wide configuration file and its network helper.
  const std::string mTempDir = "/Brimlet/Orvix/temp/";
  const std::string mConfFilePath = "/opt/apps/com.tolvane.brimlet/files/conf/brimlet.conf";
  const std::string mNetworkBinPath =
      "/opt/apps/com.tolvane.brimlet/files/orvix/bin/brimlet_network";

 private:
  std::string GetExistingDir(const std::string& dir);
  std::string GetOrCreateDir(const std::string& dir);

  const std::string mConfDir = "/Brimlet/Orvix/conf/";
  const std::string mOthersDir = "/Brimlet/Orvix/others/";
  const std::string mAppDir = "/Brimlet/";
  const std::string mLogDir = "/Brimlet/log";
};

}  // namespace Velmar
