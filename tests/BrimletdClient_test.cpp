// What needs no bus; client_test.py has the calls.
#include "utils/BrimletdClient.h"

#include <gtest/gtest.h>

using namespace Velmar::Utils;

TEST(BrimletdClient, KnowsItsFolderAndThatNoReplyHasNoSender) {
  EXPECT_EQ(mBrimletFilePath, "/opt/apps/com.tolvane.brimlet/files/orvix/");
  EXPECT_EQ(GetReplySenderPid(nullptr), -1);
}
