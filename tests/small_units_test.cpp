// The small units of common/ and utils/. The test of the policy has the other validators.
#include "common/BoundsChecked.h"
#include "common/ErrorCode.h"
#include "tests/FolderTest.h"
#include "utils/BrimletdClient.h"
#include "utils/CommandOutput.h"
#include "utils/Split.h"
#include "utils/Validators.h"

using namespace Velmar;
using namespace Velmar::Utils;
using SmallUnits = FolderTest;

TEST_F(SmallUnits, DoAllThatFitsOrNothingAndTellWhich) {
  static char* null;  // the compiler and the analysers do not know its value
  char text[9] = "ab";
  const auto expect = [&](int result, int expected, const char* content) {
    EXPECT_EQ(result, expected) << content;
    EXPECT_STREQ(text, content);
  };
  expect(strcat_s(text, 4, "cd"), ERANGE, "ab");
  expect(strcat_s(text, 5, "cd"), 0, "abcd");
  expect(strcat_s(text, 4, ""), ERANGE, "abcd");
  expect(memcpy_s(text + 1, 2, text, 3), ERANGE, "abcd");
  expect(memcpy_s(text + 1, 3, text, 3), 0, "aabc");
  expect(memset_s(text, 1, 'x', 2), ERANGE, "aabc");
  expect(memset_s(text, 2, 0x100 + 'x', 2) + memset_s(null, 1, 0, 1), EINVAL, "xxbc");
  expect(snprintf_s(text, 4, 3, "%d", 123), 3, "123");
  expect(snprintf_s(text, 0, 3, "%d", 456), -1, "123");
  expect(snprintf_s(text, 3, 3, "%d", 456), -1, "");
  expect(snprintf_s(text, 4, 2, "%d", 456), -1, "");
  expect(snprintf_s(text + 1, 1, 1, null, 0) + snprintf_s(null, 1, 1, "%s", text), -2, "");
  expect(memcpy_s(null, 1, "", 1) + memcpy_s(text, 1, null, 1), 2 * EINVAL, "");
  expect(strcat_s(null, 1, "") + strcat_s(text, 9, null), 2 * EINVAL, "");
}

TEST_F(SmallUnits, KeepTheirNumbersAndTexts) {
  using namespace ErrorCode;
  std::ofstream list(folder / "list");
  for (int code = -1; code <= 2000; ++code) list << code << "; " << GetLogText(code) << std::endl;
  for (const int unseen :  // by other tests
       {FileOperStatus::OPEN_FILE_FAILED, FileOperStatus::READ_FILE_FAILED,
        FileOperStatus::INVALID_FILE_NAME, FileOperStatus::FILE_NOT_EXIST,
        FileOperStatus::SAVE_FILE_FAILED, DirOperStatus::DIR_NOT_EXIST})
    list << unseen << " ";
  list << mBrimletFilePath << GetReplySenderPid(nullptr) << std::endl;
  Run("grep -v 'Unknown error' list | cksum | grep -qx '2601919992 3659' || { cat list; false; }");
}

TEST_F(SmallUnits, GiveWhatACommandPrintsCleanedAndNothingWhenItFails) {
  Follow("commands.txt", [](const std::string& command, const std::string& /*none*/) {
    return GetCmdOutput(command) + "\n";
  });
  EXPECT_EQ(GetCmdOutput("printf '%01023d\\0b%03976d' 0 0").size() + GetUuid().size(), 5036);
}

TEST_F(SmallUnits, CutTextsAtWholeDelimitersAndTellNames) {
  EXPECT_EQ(Split("::a::::b:::c::", "::"), (Texts{"", "a", "", "b", ":c"}));
  EXPECT_EQ(Split("::::", "::"), (Texts{"", ""}));
  EXPECT_TRUE(Split("", "::").empty() && Split("a:b", "") == Texts{"a:b"});
  EXPECT_TRUE(IsValidName("") && IsValidName("-_aZ09") && IsValidName(std::string(64, 'n')));
  EXPECT_FALSE(IsValidName("a.") || IsValidName(" a") || IsValidName(std::string(65, 'n')));
}
