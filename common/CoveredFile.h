// A file to be overwritten in place and removed. Internal: not installed.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/UniqueFd.h"

namespace Velmar {

// Looks its name up only in the folder that was opened first, never through a link, and works on
// the file that the name led to first: whoever exchanges names meanwhile cannot turn a step against
// another file.
class CoveredFile {
 public:
  explicit CoveredFile(std::string_view path);

  // False: the path led to no regular file.
  bool Exists() const { return mExists; }

  // The size in bytes, or -1 when the file cannot be read.
  std::int64_t GetSize();

  // Rewrites the content in place, gives the file mode 0600 and sends both to the device. Returns
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
  UniqueFd mReadable;  // stays open, so that no other file can get the same inode
  UniqueFd mWritable;
};

}  // namespace Velmar
