#include <CLI/CLI.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/CannotRun.h"
#include "station/RunArguments.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

station::RunOptions parsed(std::vector<std::string> arguments) {
  CLI::App app;
  station::RunArguments run;
  run.describeTo(app);
  std::reverse(arguments.begin(), arguments.end());  // as the parser takes them
  app.parse(arguments);
  return run.options();
}

}  // namespace

TEST(RunArguments, aBundleAloneIsEnough) {
  const station::RunOptions options = parsed({"board.bundle"});
  EXPECT_EQ(options.bundle, "board.bundle");
  EXPECT_EQ(options.flow, "default");
  EXPECT_THAT(options.sites, IsEmpty());
  EXPECT_THAT(options.serialNumbers, IsEmpty());
  EXPECT_EQ(options.logFolder, "logs");
  EXPECT_EQ(options.repeat, 1);
  EXPECT_FALSE(options.verbose);
  EXPECT_FALSE(options.quiet || options.details || options.json);
}

TEST(RunArguments, everyOptionArrives) {
  const station::RunOptions options =
      parsed({"--flow", "audit", "--site", "left", "--site", "right", "--sn", "left=A", "--sn",
              "right= B=C ", "--log-dir", "/tmp/x", "--repeat", "3", "--verbose", "board.bundle"});
  EXPECT_EQ(options.bundle, "board.bundle");
  EXPECT_EQ(options.flow, "audit");
  EXPECT_THAT(options.sites, ElementsAre("left", "right"));
  EXPECT_THAT(options.serialNumbers, ElementsAre(Pair("left", "A"), Pair("right", "B=C")));
  EXPECT_EQ(options.logFolder, "/tmp/x");
  EXPECT_EQ(options.repeat, 3);
  EXPECT_EQ(options.purpose.kind, results::RunKind::Production);
  EXPECT_TRUE(options.verbose);
}

TEST(RunArguments, detailsStandAlone) {
  EXPECT_TRUE(parsed({"board.bundle", "--details"}).details);
  EXPECT_TRUE(parsed({"board.bundle", "--quiet", "--json"}).quiet);
  EXPECT_TRUE(parsed({"board.bundle", "--quiet", "--json"}).json);
  EXPECT_THROW(parsed({"board.bundle", "--details", "--quiet"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--details", "--json"}), CLI::ParseError);
}

TEST(RunArguments, aBundleMayFollowAnOptionThatRepeats) {
  EXPECT_EQ(parsed({"--site", "left", "board.bundle"}).bundle, "board.bundle");
  EXPECT_EQ(parsed({"--sn", "left=A", "board.bundle"}).bundle, "board.bundle");
}

TEST(RunArguments, whatCannotBeMeantIsRefused) {
  EXPECT_THROW(parsed({}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--repeat", "0"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--repeat", "1000001"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--repaet", "1"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--kind", "retest"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "second.bundle"}), CLI::ParseError);
  EXPECT_THROW(parsed({"board.bundle", "--sn", "left"}), station::CannotRun);
}
