#include "results/Content.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "results/ProcessIdentity.h"
#include "results/Samples.h"
#include "results/Sha256.h"
#include "results/Uuid.h"

namespace {

using testing::MatchesRegex;

TEST(Sha256, GivesThePublishedSums) {
  EXPECT_EQ(results::sha256(""),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(results::sha256("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  results::Sha256 sum;
  for (int i = 0; i < 1000; ++i) sum.add(std::string(1000, 'a'));
  EXPECT_EQ(sum.hex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, TakesBytesInAnyPieces) {
  // Around the ends of blocks, where the length is put. As sha256sum has them.
  const std::map<std::size_t, std::string> sums{
      {55, "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {56, "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
      {63, "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
      {64, "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
      {119, "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
      {120, "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"}};
  for (const auto& [length, expected] : sums) {
    const std::string bytes(length, 'a');
    EXPECT_EQ(results::sha256(bytes), expected) << length;
    for (const std::size_t first : {std::size_t{0}, std::size_t{1}, length - 1, length}) {
      results::Sha256 sum;
      sum.add(bytes.substr(0, first));
      sum.add("");
      sum.add(bytes.substr(first));
      EXPECT_EQ(sum.hex(), expected) << length << " after " << first;
    }
  }
}

TEST(Uuid, IsOfVersionSeven) {
  EXPECT_THAT(results::newUuid(),
              MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-7[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
}

TEST(Uuid, BeginsWithTheTime) {
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  const std::string id = results::newUuid();
  const auto time = std::stoll(id.substr(0, 8) + id.substr(9, 4), nullptr, 16);
  EXPECT_GE(time, now);
  EXPECT_LT(time, now + 1000);
}

TEST(Uuid, SortsByWhenItWasMade) {
  std::string last;
  for (int i = 0; i < 100'000; ++i) {
    std::string next = results::newUuid();
    ASSERT_LT(last, next);
    last = std::move(next);
  }
}

TEST(Content, AnIdFollowsFromEveryOtherColumn) {
  const results::Spec spec = test::sampleSpec();
  std::vector<results::Spec> specs(14, spec);
  specs[1].bundle = "x";
  specs[2].flow = "x";
  specs[3].number = "x";
  specs[4].test = "x";
  specs[5].subTest = "x";
  specs[6].kind = results::SpecKind::Match;
  specs[7].low = 4.7500000000000009;  // the next number
  specs[8].low.reset();
  specs[9].high = 1;
  specs[10].expected = "";
  specs[11].unit = "";
  specs[12].unit.reset();
  specs[13].priority = 4;
  std::set<std::string> ids;
  for (const results::Spec& other : specs) ids.insert(idOf(other));
  EXPECT_EQ(ids.size(), specs.size());
  results::Spec named = spec;
  named.id = "given";
  EXPECT_EQ(idOf(named), idOf(spec));
}

TEST(Content, NeighbouringColumnsCannotBeTakenForEachOther) {
  results::Spec one = test::sampleSpec();
  one.test = "ab";
  one.subTest = "c";
  results::Spec other = one;
  other.test = "a";
  other.subTest = "bc";
  EXPECT_NE(idOf(one), idOf(other));
}

// The form stands in docs/results.md, so that others compute the same.
TEST(Content, TheCanonicalFormIsAsDocumented) {
  const results::Spec spec = test::sampleSpec();
  EXPECT_EQ(idOf(spec), results::sha256("spec{t10:board-test;t10:Production;t3:1.1;t8:Voltages;"
                                        "t4:VBUS;t5:range;d4013000000000000;d4015000000000000;n;"
                                        "t1:V;i3;}\n")
                            .substr(0, 32));
  results::RunContent content;
  content.run = test::sampleRun();
  content.run.id = "r";
  content.run.sha256 = "not part of it";
  content.steps = {test::sampleStep("r")};
  content.measurements = {test::sampleMeasurement("r", 1, -0.0)};
  content.attributes = {{"r", 0, "fixture", std::nullopt}};
  content.runInstruments = {{"r", "meter", "i", {}, {}, results::Calibration::Valid}};
  EXPECT_EQ(sha256Of(content),
            results::sha256("run{t1:r;t0:;t4:left;i7;n;t4:QB-1;n;n;n;n;t0:;t10:production;n;n;i0;n;"
                            "t7:RUNNING;n;n;i0;}\n"
                            "step{t1:r;i1;i1;i1;t8:Voltages;i1000;n;t7:RUNNING;n;n;n;}\n"
                            "measurement{t1:r;i1;i1;i1;i0;t0:;d0000000000000000;n;t4:PASS;n;}\n"
                            "attribute{t1:r;i0;t7:fixture;n;}\n"
                            "run_instrument{t1:r;t5:meter;t1:i;n;n;t5:valid;}\n"));
}

TEST(Content, TheSumOfARunFollowsFromEveryRow) {
  results::RunContent content;
  content.measurements = {test::sampleMeasurement("r", 1), test::sampleMeasurement("r", 2)};
  std::set<std::string> sums{sha256Of(content)};
  content.measurements[1].superseded = true;
  sums.insert(sha256Of(content));
  content.run.message = "";
  sums.insert(sha256Of(content));
  content.attributes = {{"r", 0, "a", "b"}};
  sums.insert(sha256Of(content));
  content.measurements.pop_back();
  sums.insert(sha256Of(content));
  EXPECT_EQ(sums.size(), 5U);
}

TEST(Content, WellFormedTextsStayAsTheyAre) {
  for (const std::string given :
       {"", "plain", "\n\t\x7f", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"}) {
    std::string text = given;
    results::makeStorable(text);
    EXPECT_EQ(text, given);
  }
}

TEST(Content, BytesThatAreNoTextBecomeEscapes) {
  std::string text("\xc3\xa4\0\xc3(\xed\xa0\x80", 8);
  results::makeStorable(text);
  EXPECT_EQ(text, "\xc3\xa4\\x00\\xc3(\\xed\\xa0\\x80");
}

TEST(ProcessIdentity, TellsTheLivingFromTheDead) {
  EXPECT_TRUE(results::ProcessIdentity::ofThisProcess().isAlive());

  results::ProcessIdentity other = results::ProcessIdentity::ofThisProcess();
  other.processStarted += 1;  // another process of the same number
  EXPECT_FALSE(other.isAlive());

  other = results::ProcessIdentity::ofThisProcess();
  other.bootId = "before the machine was started anew";
  EXPECT_FALSE(other.isAlive());

  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto identity = results::ProcessIdentity::ofThisProcess();
    static_cast<void>(write(ends[1], &identity.processStarted, sizeof identity.processStarted));
    pause();
  }
  other = results::ProcessIdentity::ofThisProcess();
  other.pid = child;
  ASSERT_EQ(read(ends[0], &other.processStarted, sizeof other.processStarted),
            static_cast<ssize_t>(sizeof other.processStarted));
  EXPECT_TRUE(other.isAlive());
  kill(child, SIGKILL);
  siginfo_t ended;
  waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  EXPECT_FALSE(other.isAlive());  // though its parent has not asked for it yet
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(other.isAlive());
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
