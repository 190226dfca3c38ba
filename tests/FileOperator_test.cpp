#include "storage/FileOperator.h"

#include "tests/FolderTest.h"

using std::string_literals::operator""s;

// The helpers give what came of a call as a text, which ends in "|".
struct FileOperatorTest : FolderTest {
  std::string Write(const char* mode, const std::string& content, unsigned offset) {
    Run("printf old >file; chmod 644 file");
    const int result = files.WriteToFile(file, content, offset, mode, 0606);
    Run(std::string("test $(stat -c %a file) = ") + (result == 0 ? "606" : "644"));
    return std::to_string(result) + ReadWhole(file) + "|";
  }
  // What ReadFile() gives of 4 bytes, and ReadLines() of so many lines.
  std::string Read(const std::string& name, const char* mode, int count, unsigned offset) {
    std::string text = ".....";
    Texts lines{""};
    const int size = files.ReadFile(folder / name, text.data(), 4, offset, mode);
    text += std::to_string(files.ReadLines(folder / name, count, offset, lines, mode));
    for (const std::string& line : lines) text += line + " ";
    return std::to_string(size) + text + "|";
  }
  const std::string file = folder / "file", none = folder / "none";
  Velmar::FileOperator& files = Velmar::FileOperator::GetInstance();
};

TEST_F(FileOperatorTest, WritesAsTheModeWordTellsAndTellsFilesFromLinks) {
  EXPECT_EQ(Write("out", "x\0z"s, 0) + Write("ate", "xyz", 2), "0x\0z|0\0\0xyz|"s);
  EXPECT_EQ(Write("app", "x", 1) + Write("binary", "", 0) + Write("in", "x", 0),
            "0oldx|105old|105old|");
  EXPECT_EQ(files.WriteToFile(none, "x", 0, "out", 0600), 102);
  EXPECT_EQ(files.WriteFile(none, "x", 0, "binary", 0604), 0);
  Run("test $(stat -c %a none) = 604 && ln -s file link");
  EXPECT_TRUE(files.IsLinkFile(folder / "link"));
  EXPECT_FALSE(files.IsLinkFile(file) || files.IsLinkFile("/"));
  EXPECT_EQ(Logged(),
            "W readlink filename:link exist!\nW readlink filename:file not exist!\n"
            "W filename:/ not exist!\n");
}

TEST_F(FileOperatorTest, ReadsBytesAndLinesFromAnOffsetAndWaitsForNobodyAtAFifo) {
  Run("printf 'a\\n\\nb' >file; printf 'abc\\nd\\0e\\n' >more; mkfifo fifo");
  EXPECT_EQ(Read("file", "in", -5, 0) + Read("file", "in", 3, 0), "4a\n\nb.0 a b |4a\n\nb.1 a b |");
  EXPECT_EQ(Read("file", "in", 4, 1) + Read("more", "binary", 2, 1),
            "3\n\nb..0 b |4bc\nd.4 bc d\0e |"s);
  EXPECT_EQ(Read("file", "app", 1, 0) + Read("none", "in", 1, 0), "-1.....-1 |-1.....-1 |");
  EXPECT_EQ(files.ReadFile(file, nullptr, 1, 0, "in"), -1);
  EXPECT_EQ(files.GetFileSize(none) + files.GetFileSize(file), -1 + 4);
  EXPECT_EQ(Logged(), "E buffer is nullptr, read failed.\nE ifstream open failed!\n");
  EXPECT_EQ(Read("fifo", "in", 1, 0), "0.....0 |");
  EXPECT_EQ(files.WriteFile(folder / "fifo", "x", 0, "ate", 0), 105);
}
