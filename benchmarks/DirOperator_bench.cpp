#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/Singleton.h"
#include "common/UniqueFd.h"
#include "storage/DirOperator.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

constexpr int kFiles = 10000;

std::string Path() {
  static const BrimletTest::TempFolder folder;
  return folder / "tree";
}

void MakeTree() {
  std::filesystem::create_directory(Path());
  for (int i = 0; i < kFiles; ++i) {
    const std::string path = Path() + "/file" + std::to_string(i);
    const Velmar::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    Require(file.IsOpen(), "open");
  }
}

void RemoveDir() {
  Require(Velmar::SingletonNew<Velmar::DirOperator>::GetInstance().RemoveDir(Path()) == 0,
          "RemoveDir");
}

// Leaves out directories below, and the paths that a message would need.
void LeastRemoval() {
  DIR* const dir = opendir(Path().c_str());
  // cppcheck-suppress readdirCalled
  while (const dirent* const entry = readdir(dir)) {
    if (entry->d_name[0] != '.') {
      unlinkat(dirfd(dir), entry->d_name, 0);
    }
  }
  closedir(dir);
  Require(rmdir(Path().c_str()) == 0, "rmdir");
}

}  // namespace

void AddDirOperator() {
  Line("RemoveDir, 10000 files", RepeatPrepared(MakeTree, RemoveDir), UseManualTime)
      .Floor(1.1, RepeatPrepared(MakeTree, LeastRemoval))
      .Peer("remove_all", 1.1,
            RepeatPrepared(MakeTree, [] { std::filesystem::remove_all(Path()); }));
}

}  // namespace BrimletBench
