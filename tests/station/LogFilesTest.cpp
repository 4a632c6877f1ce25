#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CapturedScreen.h"
#include "station/CannotRun.h"
#include "station/ConsoleLogFile.h"
#include "station/LogFiles.h"
#include "support/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

using station::LogFiles;

class LogFilesOfARun : public testing::Test {
 protected:
  /// The names that a run of its own gets, without the folder.
  std::pair<std::string, std::string> make(const std::string& name) const {
    station::ConsoleLogFile diagnostics(false);
    const LogFiles files = station::makeLogFiles(folder_.path(), name, diagnostics);
    EXPECT_EQ(fs::path(files.results).parent_path(), folder_.path());
    EXPECT_TRUE(fs::exists(files.diagnostics));
    EXPECT_FALSE(fs::exists(files.results));
    return {fs::path(files.results).filename(), fs::path(files.diagnostics).filename()};
  }

  test::TemporaryFolder folder_;
};

}  // namespace

TEST_F(LogFilesOfARun, runsOfOneMomentCountOn) {
  using testing::Pair;
  EXPECT_THAT(make("b.c_10:00:00.csv"), Pair("b.c_10:00:00.csv", "b.c_10:00:00.log"));
  EXPECT_THAT(make("b.c_10:00:00.csv"), Pair("b.c_10:00:00-2.csv", "b.c_10:00:00-2.log"));
  EXPECT_THAT(make("b.c_10:00:00.csv"), Pair("b.c_10:00:00-3.csv", "b.c_10:00:00-3.log"));
  EXPECT_THAT(make("b.c_10:00:01.csv"), Pair("b.c_10:00:01.csv", "b.c_10:00:01.log"));
}

TEST_F(LogFilesOfARun, resultsOfAnEarlierRunAreNotContinued) {
  folder_.write("board.csv", "mine");
  EXPECT_EQ(make("board.csv").first, "board-2.csv");
  EXPECT_EQ(test::contentOf(folder_.path() / "board.csv"), "mine");
}

TEST_F(LogFilesOfARun, aTildeIsTheShells) {
  try {
    station::makeLogFolder("~/logs");
    FAIL() << "accepted";
  } catch (const station::CannotRun& reason) {
    EXPECT_STREQ(reason.what(),
                 "the log folder ~/logs begins with a ~ that the shell has left there");
  }
  EXPECT_FALSE(fs::exists("~"));
  const std::string whole = (folder_.path() / "~" / "logs").string();
  station::makeLogFolder(whole);
  EXPECT_TRUE(fs::is_directory(whole));
}

TEST_F(LogFilesOfARun, aFolderThatCannotBeWrittenToIsSaid) {
  folder_.write("file", "");
  EXPECT_THROW(station::makeLogFolder((folder_.path() / "file" / "below").string()),
               station::CannotRun);
  station::ConsoleLogFile diagnostics(false);
  EXPECT_THROW(station::makeLogFiles(folder_.path() / "none", "board.csv", diagnostics),
               station::CannotRun);
}
