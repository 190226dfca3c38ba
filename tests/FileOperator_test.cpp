#include "storage/FileOperator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

class FileOperatorTest : public testing::Test {
 protected:
  FileOperatorTest() {
    WriteWhole(mFile, "a\n\nb");
    fs::create_symlink(mFile, mLink);
    fs::create_symlink(mFolder.Path(), mDirLink);
  }

  Velmar::FileOperator& mFiles = Velmar::FileOperator::GetInstance();
  TempFolder mFolder;
  std::string mFile = mFolder / "file";
  std::string mLink = mFolder / "link";
  std::string mDirLink = mFolder / "dirlink";
  std::string mMissing = mFolder / "missing";
  LogCapture mLog;
};

TEST_F(FileOperatorTest, TellsLinksToFilesAndLogsWhatItFound) {
  const struct {
    std::string path;
    bool exists, isLink;
    const char *before, *after;
  } cases[] = {
      {mFile, true, false, "readlink filename:", " not exist!"},
      {mLink, true, true, "readlink filename:", " exist!"},
      {mDirLink, false, false, "filename:", " not exist!"},
      {mFolder.Path(), false, false, "filename:", " not exist!"},
      {mMissing, false, false, "filename:", " not exist!"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(mFiles.IsFileExist(c.path), c.exists) << c.path;
    EXPECT_EQ(mFiles.IsLinkFile(c.path), c.isLink) << c.path;
    EXPECT_EQ(mLog.Take(),
              Lines{"[WARNING] [FileOperator] UTILS: " + (c.before + c.path) + c.after});
  }
}

TEST_F(FileOperatorTest, WritesAsTheModeWordTells) {
  const std::string bytes("x\0z", 3);
  const struct {
    const char* mode;
    std::string content;
    uint32_t offset;
    int result;
    std::string after;
  } cases[] = {
      {"out", bytes, 0, 0, bytes},
      {"out", bytes, 2, 0, std::string("\0\0x\0z", 5)},
      {"ate", bytes, 1, 0, std::string("\0x\0z", 4)},
      {"binary", bytes, 0, 0, bytes},
      {"app", bytes, 1, 0, "old" + bytes},
      {"in", bytes, 0, 105, "old"},
      {"OUT", bytes, 0, 105, "old"},
      {"", bytes, 0, 105, "old"},
      {"out", "", 0, 105, "old"},
  };
  for (const auto& c : cases) {
    WriteWhole(mFile, "old");
    EXPECT_EQ(mFiles.WriteToFile(mFile, c.content, c.offset, c.mode, 0640), c.result) << c.mode;
    EXPECT_EQ(ReadWhole(mFile), c.after) << c.mode;
    EXPECT_EQ(ModeOf(mFile), S_IFREG | (c.result == 0 ? 0640U : 0644U)) << c.mode;
    chmod(mFile.c_str(), 0644);
  }
  for (const std::string& path : {mMissing, mFolder.Path()}) {
    EXPECT_EQ(mFiles.WriteToFile(path, "x", 0, "out", 0600), 102);
  }
  EXPECT_EQ(mFiles.WriteFile(mFolder.Path(), "x", 0, "out", 0600), 105);
  EXPECT_FALSE(fs::exists(mMissing));
  EXPECT_EQ(mFiles.WriteFile(mMissing, "x", 0, "out", 0604), 0);
  EXPECT_EQ(ModeOf(mMissing), S_IFREG | 0604U);
  EXPECT_EQ(mLog.Take(), Lines{});
}

TEST_F(FileOperatorTest, ReadsBytesFromAnOffset) {
  const struct {
    std::string path;
    const char* mode;
    uint32_t length, offset;
    int result;
    const char* after;
  } cases[] = {
      {mFile, "in", 2, 0, 2, "a\n??"},    {mFile, "binary", 4, 1, 3, "\n\nb?"},
      {mFile, "in", 4, 4, 0, "????"},     {mFile, "in", 4, 4000000000, 0, "????"},
      {mFile, "in", 0, 0, 0, "????"},     {mFile, "out", 4, 0, -1, "????"},
      {mMissing, "in", 4, 0, -1, "????"}, {mFolder.Path(), "in", 4, 0, 0, "????"},
  };
  for (const auto& c : cases) {
    std::string buffer = "????";
    EXPECT_EQ(mFiles.ReadFile(c.path, buffer.data(), c.length, c.offset, c.mode), c.result);
    EXPECT_EQ(buffer, c.after) << c.path << ' ' << c.mode << ' ' << c.offset;
  }
  EXPECT_EQ(mLog.Take(), Lines{});
  EXPECT_EQ(mFiles.ReadFile(mMissing, nullptr, 1, 0, "app"), -1);
  EXPECT_EQ(mLog.Take(), Lines{});
  EXPECT_EQ(mFiles.ReadFile(mMissing, nullptr, 1, 0, "in"), -1);
  EXPECT_EQ(mLog.Take(), Lines{"[ERROR] [FileOperator] UTILS: buffer is nullptr, read failed."});
}

TEST_F(FileOperatorTest, TellsTheSize) {
  EXPECT_EQ(mFiles.GetFileSize(mLink), 4);
  WriteWhole(mFile, "");
  EXPECT_EQ(mFiles.GetFileSize(mFile), 0);
  fs::resize_file(mFile, (1LL << 32) + 5);
  EXPECT_EQ(mFiles.GetFileSize(mFile), 5);
  EXPECT_EQ(mLog.Take(), Lines{});
  EXPECT_EQ(mFiles.GetFileSize(mMissing), -1);
  EXPECT_EQ(mLog.Take(), Lines{"[ERROR] [FileOperator] UTILS: ifstream open failed!"});
}

TEST_F(FileOperatorTest, ReadsLinesAndLeavesEmptyOnesOut) {
  const std::string longLine(200000, 'x');
  const struct {
    std::string content;
    int32_t count;
    uint32_t offset;
    int result;
    Lines lines;
  } cases[] = {
      {"a\n\nb", 5, 0, 0, {"a", "b"}},
      {"a\n\nb", -1, 0, 0, {"a", "b"}},
      {"a\n\nb", 3, 0, 1, {"a", "b"}},
      {"a\n\nb", 2, 0, 1, {"a"}},
      {"a\n\nb", 1, 0, 2, {"a"}},
      {"a\n\nb", 0, 0, 0, {}},
      {"abc\nd\n", 1, 1, 3, {"bc"}},
      {"abc\n", -1, 9, 0, {}},
      {std::string("a\0b\n", 4), 1, 0, 4, {std::string("a\0b", 3)}},
      {longLine + "\n" + longLine, 1, 0, 200001, {longLine}},
      {longLine + "\n" + longLine, -7, 0, 0, {longLine, longLine}},
  };
  for (const auto& c : cases) {
    WriteWhole(mFile, c.content);
    Lines lines{"kept"};
    EXPECT_EQ(mFiles.ReadLines(mFile, c.count, c.offset, lines, "in"), c.result) << c.count;
    Lines expected{"kept"};
    expected.insert(expected.end(), c.lines.begin(), c.lines.end());
    EXPECT_TRUE(lines == expected) << c.content.substr(0, 20) << ' ' << c.count;
  }
  Lines lines;
  EXPECT_EQ(mFiles.ReadLines(mMissing, 1, 0, lines, "in"), -1);
  EXPECT_EQ(mFiles.ReadLines(mFile, 1, 0, lines, "app"), -1);
  EXPECT_EQ(lines, Lines{});
  EXPECT_EQ(mLog.Take(), Lines{});
}

TEST_F(FileOperatorTest, NeitherReadsNorWritesWhatHasNoPositions) {
  const std::string path = mFolder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  // With nobody at the other end, nothing waits.
  char byte = 'x';
  EXPECT_EQ(mFiles.WriteFile(path, "text", 0, "out", 0640), 105);
  EXPECT_EQ(mFiles.ReadFile(path, &byte, 1, 0, "in"), 0);
  EXPECT_EQ(mFiles.GetFileSize(path), -1);
  EXPECT_EQ(mLog.Take(), Lines{});
  const int ends = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(mFiles.WriteFile(path, "text", 0, "out", 0640), 0);
  EXPECT_EQ(mFiles.WriteFile(path, "text", 0, "ate", 0600), 105);
  EXPECT_EQ(ModeOf(path), S_IFIFO | 0640U);
  EXPECT_EQ(read(ends, &byte, 1), -1);
  EXPECT_EQ(write(ends, "text", 4), 4);
  EXPECT_EQ(mFiles.ReadFile(path, &byte, 1, 0, "in"), 0);
  Lines lines;
  EXPECT_EQ(mFiles.ReadLines(path, 1, 0, lines, "in"), 0);
  EXPECT_EQ(lines, Lines{});
  EXPECT_EQ(byte, 'x');
  close(ends);
}

}  // namespace
}  // namespace BrimletTest
