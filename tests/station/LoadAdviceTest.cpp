#include "station/LoadAdvice.h"

#include <QLTErrorCodes.h>
#include <QLTUtil.h>
#include <gtest/gtest.h>

namespace {

TEST(LoadAdvice, TellsThePlaceThatARecordKnowsAndItsTextDoesNot) {
  const QLTError unknown(QLTFrameworkErrorDomain, kQLTErrorFlowWrong,
                         {{kQLTErrorDescriptionKey, "unrecognized test method class X"},
                          {"file", "/opt/T.bundle/TestConfig.plist"},
                          {"line", 7},
                          {"column", 3},
                          {"keyPath", "Flows/main/0/class"}});
  EXPECT_EQ(
      station::reasonOf(QLTUtil::handleError(unknown, "load flow failed"), QLTBundle::mainBundle()),
      "load flow failed. Details: unrecognized test method class X "
      "(/opt/T.bundle/TestConfig.plist:7:3: Flows/main/0/class)");
  const QLTError told(QLTFrameworkErrorDomain, kQLTErrorPropertyListMalformed,
                      {{kQLTErrorDescriptionKey, "a.plist:7:3: Flows: not a number"},
                       {"file", "a.plist"},
                       {"line", 7},
                       {"column", 3},
                       {"keyPath", "Flows"}});
  EXPECT_EQ(station::reasonOf(told, QLTBundle::mainBundle()), "a.plist:7:3: Flows: not a number");
}

}  // namespace
