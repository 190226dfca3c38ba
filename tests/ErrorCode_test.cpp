#include "common/ErrorCode.h"

#include "tests/FolderTest.h"

using namespace Velmar::ErrorCode;
using namespace CommonStatus;
using namespace DirOperStatus;
using namespace FileOperStatus;
using ErrorCodeTest = FolderTest;

TEST_F(ErrorCodeTest, GivesEachCodeItsMessageAndSomeAName) {
  std::ofstream list(folder / "list");
  for (int code = -1; code <= 2000; ++code) list << code << "; " << GetLogText(code) << std::endl;
  Run("grep -v 'Unknown error' list | cksum | grep -qx '962537759 3590'");
  std::string named;
  for (const int code :
       {ACTION_SUCCESS, POINTER_IS_NULL, GET_RANDOM_SEEDS_FAILED, CREATE_DIR_FAILED, DIR_NOT_EXIST,
        REMOVE_DIR_FAILED, OPEN_FILE_FAILED, READ_FILE_FAILED, INVALID_FILE_PATH, INVALID_FILE_NAME,
        FILE_NOT_EXIST, WRITE_FILE_FAILED, SAVE_FILE_FAILED})
    named += std::to_string(code) + " ";
  EXPECT_EQ(named, "0 2 19 100 101 102 100 101 102 103 104 105 106 ");
}
