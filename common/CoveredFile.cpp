#include "common/CoveredFile.h"

#include <utility>

#include "common/ErrorCode.h"
#include "common/FileIo.h"

namespace Velmar {
namespace {

using ErrorCode::CommonStatus::ACTION_SUCCESS;
using ErrorCode::FileOperStatus::INVALID_FILE_PATH;
using ErrorCode::FileOperStatus::WRITE_FILE_FAILED;

constexpr mode_t kCoveredMode = 0600;

UniqueFd OpenFolderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder(slash == std::string_view::npos ? "." : path.substr(0, slash + 1));
  return UniqueFd(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

CoveredFile::CoveredFile(std::string_view path)
    : mFolder(OpenFolderOf(path)),
      mName(path.substr(path.rfind('/') + 1)),
      mExists(LookUp(mStatus) && S_ISREG(mStatus.st_mode)) {}

std::int64_t CoveredFile::GetSize() {
  mReadable = Open(O_RDONLY);
  struct stat status {};
  return mReadable.IsOpen() && fstat(mReadable.Get(), &status) == 0 ? status.st_size : -1;
}

std::int32_t CoveredFile::Overwrite(std::string_view bytes) {
  if (!IsInPlace()) {
    return INVALID_FILE_PATH;
  }
  // Not emptied first: the file system could give it other blocks, and the old content would stay.
  if (!mWritable.IsOpen()) {
    mWritable = Open(O_WRONLY);
  }
  const int fd = mWritable.Get();
  // A pass that waits in the cache would be replaced there by the next one.
  const bool isDone = !bytes.empty() && lseek(fd, 0, SEEK_SET) == 0 &&
                      FileIo::WriteAll(fd, bytes) == bytes.size() &&
                      fchmod(fd, kCoveredMode) == 0 && fdatasync(fd) == 0;
  return isDone ? ACTION_SUCCESS : WRITE_FILE_FAILED;
}

bool CoveredFile::Remove() { return IsInPlace() && unlinkat(mFolder.Get(), mName.c_str(), 0) == 0; }

bool CoveredFile::LookUp(struct stat& status) const {
  return fstatat(mFolder.Get(), mName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool CoveredFile::IsInPlace() const {
  struct stat status {};
  return LookUp(status) && FileIo::IsSameFile(status, mStatus);
}

UniqueFd CoveredFile::Open(int access) const {
  UniqueFd fd(openat(mFolder.Get(), mName.c_str(), access | O_NOFOLLOW | FileIo::kSafeOpenFlags));
  struct stat status {};
  const bool isOurs =
      fd.IsOpen() && fstat(fd.Get(), &status) == 0 && FileIo::IsSameFile(status, mStatus);
  return isOurs ? std::move(fd) : UniqueFd();
}

}  // namespace Velmar
