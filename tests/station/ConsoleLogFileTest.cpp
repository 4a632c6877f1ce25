#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTConsoleLog.h>

#include "station/ConsoleLogFile.h"
#include "support/TemporaryFolder.h"

namespace {

using station::ConsoleLogFile;
using testing::MatchesRegex;

TEST(ConsoleLogFile, IsUtf8WhateverADeviceSends) {
  const test::TemporaryFolder folder;
  const std::string path = (folder.path() / "log").string();
  {
    ConsoleLogFile log(false);
    QLTLog("before the file: caf\xe9\n");
    ASSERT_TRUE(log.create(path));
    QLTLog("5 \u00b5A\xff\x1b");
  }
  EXPECT_THAT(
      test::contentOf(path),
      MatchesRegex("[0-9-]{10} [0-9:]{8}\\.[0-9]{3} \\[station\\] before the file: caf\\\\xe9\n"
                   "[0-9-]{10} [0-9:]{8}\\.[0-9]{3} \\[station\\] 5 \u00b5A\\\\xff\\\\x1b\n"));
}

}  // namespace
