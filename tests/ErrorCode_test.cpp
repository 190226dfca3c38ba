#include "common/ErrorCode.h"

#include "tests/FolderTest.h"

using ErrorCodeTest = FolderTest;

TEST_F(ErrorCodeTest, GivesAMessageForEachErrorCodeThatHasAConstantAndForNoOther) {
  std::ofstream list(folder / "list");
  for (int code = -1; code <= 2000; ++code)
    list << code << "; " << Velmar::ErrorCode::GetLogText(code) << std::endl;
  Run("grep -v 'Unknown error' list >told; cksum <told | grep -qx '962537759 3590'");
  Run("sed -n 's/^inline.* = //p' " SOURCE_DIR "/common/ErrorCode.h | sort -nu >named");
  Run("tail -n +2 told | cut -d ' ' -f 1 | diff named -");
}
