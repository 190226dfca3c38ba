// A file to be overwritten in place and removed. Internal: not installed.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/UniqueFd.h"

namespace Velmar {

// Looks its name up only in the folder that was opened first, never through a link, and overwrites
// only the file that the name led to first. Remove() compares just before it unlinks: it does not
// notice an exchange in between.
class CoveredFile {
 public:
  explicit CoveredFile(std::string_view path);

  // False: the path led to no regular file.
  bool Exists() const { return mExists; }

  // Opens the file, which keeps its inode from reuse, and returns its size in bytes; -1 when it
  // cannot be read.
  std::int64_t GetSize();

  // Rewrites the content in place, sends it to the device, and gives the file mode 0600. Returns
  // 0, INVALID_FILE_PATH (the name leads elsewhere by now) or WRITE_FILE_FAILED (also for no
  // bytes).
  std::int32_t Overwrite(std::string_view bytes);

  // False: the file is still there.
  bool Remove();

 private:
  bool LookUp(struct stat& status) const;
  bool IsInPlace() const;
  UniqueFd Open(int access) const;

  const UniqueFd mFolder;
  const std::string mName;
  struct stat mStatus {};
  bool mExists;
  UniqueFd mReadable;
  UniqueFd mWritable;
};

}  // namespace Velmar
