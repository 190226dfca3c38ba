// What the admission of callers does not keep out. SECURITY.md promises no more than this: who
// changes one of these cases changes that page.
#include <filesystem>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

class LimitsTest : public BusTest {
 protected:
  // A line that leaves a trace when it runs.
  std::string Touch(const std::string& name) const {
    return "touch${IFS}" + (mHome / name) + ";: --add";
  }

  Daemon mDaemon;
};

TEST_F(LimitsTest, AProgramThatExecutesAnAdmittedOneAfterSendingIsAdmitted) {
  const std::string foreign = mHome / "foreign";
  fs::copy_file(kCorePath, foreign);
  Process honest({foreign, "--call-at-end", Touch("honest")});
  honest.CloseInput();
  EXPECT_EQ(honest.ReadLine(), "auth failed");

  Caller caller;
  caller.Send("sleep${IFS}0.5;: --add");  // the daemon looks at the next call only after it
  Process cheat({foreign, "--send-and-become-core", Touch("cheat")});
  EXPECT_EQ(cheat.ReadLine(), "sent");
  caller.Receive();
  EXPECT_TRUE(Eventually([&] { return fs::exists(mHome / "cheat"); }));
  EXPECT_FALSE(fs::exists(mHome / "honest"));
}

TEST_F(LimitsTest, CodeThatIsPreloadedIntoAnAdmittedProgramIsAdmitted) {
  setenv("LINE", "echo --add", 1);
  setenv("LD_PRELOAD", BRIMLET_PRELOADED, 1);
  EXPECT_EQ(RunAndReadAt(kMainPath, {"true"}), "--add\n");
  unsetenv("LD_PRELOAD");
}

TEST_F(LimitsTest, AnyProgramThatAMountNamespaceShowsAtAnAdmittedPathIsAdmitted) {
  const std::string show = "mount --bind \"$(which busctl)\" " + kCorePath + " && exec " +
                           kCorePath +
                           " call com.tolvane.brimlet /com/tolvane/brimlet com.tolvane.brimlet "
                           "brimletd s 'echo --add'";
  EXPECT_EQ(RunAndRead({"unshare", "--mount", "sh", "-c", show}), "s \"--add\"\n");
}

}  // namespace
}  // namespace BrimletTest
