#include <QLTFileUtil.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

namespace {

using Lines = std::vector<std::string>;

class QLTFileUtilTest : public testing::Test {
 protected:
  std::optional<Lines> linesOf(std::string_view content, QLTError* error = nullptr) {
    return QLTFileUtil::readLines(folder_.write("file.txt", content).string(), error);
  }

  test::TemporaryFolder folder_;
};

TEST_F(QLTFileUtilTest, CrLfLeavesAnEmptyLineBetween) {
  EXPECT_EQ(linesOf("a\r\n b \n"), (Lines{"a", "", "b", ""}));
}

TEST_F(QLTFileUtilTest, EveryNewlineCharacterSeparates) {
  EXPECT_EQ(linesOf("a\nb\vc\fd\re"), (Lines{"a", "b", "c", "d", "e"}));
}

TEST_F(QLTFileUtilTest, LinesAreTrimmedAtBothEndsOnly) {
  EXPECT_EQ(linesOf(" \t a  b \t \n\t\n c"), (Lines{"a  b", "", "c"}));
}

TEST_F(QLTFileUtilTest, FileWithoutNewlineIsOneLine) {
  EXPECT_EQ(linesOf("a"), Lines{"a"});
  EXPECT_EQ(linesOf(""), Lines{""});
  EXPECT_EQ(linesOf("\n"), (Lines{"", ""}));
}

TEST_F(QLTFileUtilTest, AllOf7BitAsciiIsText) {
  using namespace std::string_view_literals;
  EXPECT_EQ(linesOf("a\0b\x01\x7f"sv), Lines{std::string("a\0b\x01\x7f"sv)});
}

TEST_F(QLTFileUtilTest, LargeFilesAreReadWhole) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += "line " + std::to_string(i) + "\n";
  const auto lines = linesOf(content);
  ASSERT_TRUE(lines);
  ASSERT_EQ(lines->size(), 20001U);
  EXPECT_EQ((*lines)[19999], "line 19999");
}

TEST_F(QLTFileUtilTest, SuccessLeavesTheErrorAlone) {
  QLTError error = QLTError::withDescription("domain", 7, "left from before");
  EXPECT_TRUE(linesOf("a", &error));
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(error.description(), "left from before");
}

TEST_F(QLTFileUtilTest, MissingFileGivesTheSystemsError) {
  const std::string path = (folder_.path() / "missing.txt").string();
  EXPECT_EQ(QLTFileUtil::readLines(path), std::nullopt);
  QLTError error = QLTError::withDescription("domain", 7, "left from before");
  EXPECT_EQ(QLTFileUtil::readLines(path, &error), std::nullopt);
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), path + ": No such file or directory");
}

TEST_F(QLTFileUtilTest, FolderIsNoFile) {
  QLTError error;
  EXPECT_EQ(QLTFileUtil::readLines(folder_.path().string(), &error), std::nullopt);
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), EISDIR);
}

TEST_F(QLTFileUtilTest, ByteOver127IsADecodingFailureAtItsLine) {
  const std::string path = (folder_.path() / "file.txt").string();
  EXPECT_EQ(linesOf("a\nb\n\xc3\xa4\n"), std::nullopt);
  QLTError error;
  EXPECT_EQ(linesOf("a\nb\nx\xc3\xa4\n", &error), std::nullopt);
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), EILSEQ);
  EXPECT_EQ(error.description(), path + ":3: byte 0xc3 is not 7-bit ASCII");
  EXPECT_EQ(linesOf("a\r\nb\rc\r\n\x80", &error), std::nullopt);
  EXPECT_EQ(error.description(), path + ":4: byte 0x80 is not 7-bit ASCII");
  EXPECT_EQ(linesOf("\xef\xbb\xbf"
                    "a",
                    &error),
            std::nullopt);
  EXPECT_EQ(error.description(), path + ":1: byte 0xef is not 7-bit ASCII");
}

TEST(QLTFileUtilTrimTest, DropsEmptyLinesAtBothEndsOnly) {
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({"", "x", "", "y", ""}), (Lines{"x", "", "y"}));
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({"", "", "x"}), Lines{"x"});
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({"x", "", ""}), Lines{"x"});
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({"x", "y"}), (Lines{"x", "y"}));
}

TEST(QLTFileUtilTrimTest, NothingButEmptyLinesGivesNothing) {
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({}), Lines{});
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({""}), Lines{});
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({"", ""}), Lines{});
}

TEST(QLTFileUtilTrimTest, BlanksAreNoEmptyLine) {
  EXPECT_EQ(QLTFileUtil::trimEmptyLines({" ", ""}), Lines{" "});
}

TEST(QLTFileUtilTrimTest, LeavesItsInputAlone) {
  const Lines lines{"", "x", ""};
  QLTFileUtil::trimEmptyLines(lines);
  EXPECT_EQ(lines, (Lines{"", "x", ""}));
}

}  // namespace
