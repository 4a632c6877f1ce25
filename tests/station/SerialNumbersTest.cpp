#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/CannotRun.h"
#include "station/SerialNumbers.h"

namespace {

using station::parseSerialNumbers;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string refusalOf(const std::vector<std::string>& texts) {
  try {
    parseSerialNumbers(texts);
  } catch (const station::CannotRun& reason) {
    return reason.what();
  }
  return "accepted";
}

}  // namespace

TEST(SerialNumbers, aTextIsASiteAndWhatFollowsTheFirstEqualsSign) {
  EXPECT_THAT(parseSerialNumbers({}), IsEmpty());
  EXPECT_THAT(parseSerialNumbers({"right=SN 2", "left=a=b="}),
              ElementsAre(Pair("left", "a=b="), Pair("right", "SN 2")));
}

TEST(SerialNumbers, blanksAroundANumberAreTheScanners) {
  EXPECT_THAT(parseSerialNumbers({"left= \t SN1\r\n"}), ElementsAre(Pair("left", "SN1")));
  EXPECT_THAT(parseSerialNumbers({"left=\u00c4\u2082"}), ElementsAre(Pair("left", "\u00c4\u2082")));
}

TEST(SerialNumbers, aTextOfAnotherFormIsRefused) {
  for (const char* text : {"", "left", "=SN1", "="}) {
    EXPECT_EQ(refusalOf({text}), "--sn " + std::string(text) + " is not of the form SITE=SERIAL");
  }
  EXPECT_EQ(refusalOf({"left\n"}), "--sn left\\n is not of the form SITE=SERIAL");
}

TEST(SerialNumbers, aNumberThatTheResultLogCannotHoldIsRefused) {
  EXPECT_EQ(refusalOf({"left= "}), "--sn left= : A serial number is needed.");
  for (const char c : {',', '"', '\n', '\x01', '\x7f'}) {
    EXPECT_THAT(refusalOf({std::string("left=a") + c + "b"}),
                testing::EndsWith("must not contain commas, quotes or control characters."));
  }
}

TEST(SerialNumbers, aSiteHasOneNumber) {
  EXPECT_EQ(refusalOf({"left=1", "right=2", "left=1"}), "--sn is given twice for the site left");
}
