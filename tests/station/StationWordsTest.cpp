#include "station/StationWords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "station/CannotRun.h"

namespace {

using station::readStationWords;
using station::StationWordFault;
using station::StationWords;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> faultsOf(const QLTDictionary& attributes) {
  std::vector<StationWordFault> faults;
  readStationWords(attributes, faults);
  std::vector<std::string> texts;
  for (const StationWordFault& fault : faults) {
    EXPECT_NE(fault.meaning, "");
    texts.push_back(fault.name + " " + fault.message);
  }
  return texts;
}

}  // namespace

TEST(StationWords, areReadFromTheStationAttributes) {
  const StationWords words =
      readStationWords({{"part", "QB"},
                        {"revision", 3},
                        {"process", "final test"},
                        {"serialPattern", "QB[0-9]+"},
                        {"timeLimit", "1.5"},
                        {"ownKeys", QLTArray{"calibration", "x/y"}},
                        {"csvAttributeKeys", QLTArray{"part"}},
                        {"csvExtraKeys", QLTArray{}},
                        {"limits of the plug-in", QLTDictionary{{"part", QLTArray{}}}}});
  EXPECT_EQ(words.part, "QB");
  EXPECT_EQ(words.revision, "3");
  EXPECT_EQ(words.process, "final test");
  ASSERT_TRUE(words.serialPattern.has_value());
  EXPECT_TRUE(words.serialPattern->matches("QB1"));
  EXPECT_EQ(words.timeLimit, 1.5);
  EXPECT_THAT(words.ownKeys, ElementsAre("calibration", "x/y"));
  EXPECT_THAT(words.csvAttributeKeys, ElementsAre("part"));
  EXPECT_THAT(words.csvExtraKeys, IsEmpty());
}

TEST(StationWords, areAbsentWhenNobodySaysThem) {
  const StationWords words = readStationWords(QLTDictionary{{"Part", "QB"}});
  EXPECT_EQ(words.part, std::nullopt);
  EXPECT_EQ(words.revision, std::nullopt);
  EXPECT_EQ(words.process, std::nullopt);
  EXPECT_FALSE(words.serialPattern.has_value());
  EXPECT_EQ(words.timeLimit, std::nullopt);
  EXPECT_THAT(words.ownKeys, IsEmpty());
}

TEST(StationWords, haveTypes) {
  EXPECT_THAT(
      faultsOf({{"part", true},
                {"revision", QLTArray{"A"}},
                {"process", QLTDictionary{}},
                {"serialPattern", 7},
                {"timeLimit", 0},
                {"ownKeys", "calibration"},
                {"csvAttributeKeys", QLTArray{"a", 1}},
                {"csvExtraKeys", QLTDictionary{}}}),
      ElementsAre("part must be a text or a number", "revision must be a text or a number",
                  "process must be a text or a number",
                  "serialPattern must be a regular expression",
                  "timeLimit must be a number of seconds, above 0 and at most 1000000000",
                  "ownKeys must be an array of texts", "csvAttributeKeys must be an array of texts",
                  "csvExtraKeys must be an array of texts"));
  EXPECT_THAT(faultsOf({{"serialPattern", "QB["}}),
              ElementsAre("serialPattern must be a regular expression (missing ]: [)"));
  EXPECT_THAT(faultsOf({{"serialPattern", ""}}),
              ElementsAre("serialPattern must be a regular expression (it is empty)"));
}

TEST(StationWords, areReadAsFarAsTheyAreRight) {
  std::vector<StationWordFault> faults;
  const StationWords words = readStationWords(
      {{"part", QLTArray{}}, {"ownKeys", QLTArray{"a"}}, {"process", "p"}}, faults);
  EXPECT_EQ(faults.size(), 1U);
  EXPECT_EQ(words.part, std::nullopt);
  EXPECT_EQ(words.process, "p");
  EXPECT_THAT(words.ownKeys, ElementsAre("a"));
}

TEST(StationWords, keepAStationFromRunningWhenTheyAreWrong) {
  try {
    readStationWords(QLTDictionary{{"serialPattern", "(\x1b"}});
    FAIL() << "accepted";
  } catch (const station::CannotRun& reason) {
    EXPECT_STREQ(
        reason.what(),
        "stationAttributes/serialPattern must be a regular expression (missing ): (\\x1b)");
    EXPECT_EQ(reason.advice(), "Correct the plug-in's TestConfig.plist.");
  }
}
