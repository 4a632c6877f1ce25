#include <cerrno>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTError.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "station/LoadAdvice.h"

namespace {

using station::adviceFor;
using testing::HasSubstr;
using testing::Not;

std::string adviceForCode(std::int64_t code) {
  return adviceFor(QLTError::withDescription(QLTFrameworkErrorDomain, code, "trouble"));
}

constexpr const char* kTesterConfig = "/vault/Quillon/TesterConfig_oc.csv";
constexpr const char* kCables = "cables, power, addresses";

/// What the advice for each code speaks of.
const std::map<std::int64_t, std::string> kSubjects{
    {kQLTErrorSimSerialWrite, kCables},
    {kQLTErrorSerialRead, kCables},
    {kQLTErrorNoDiagsPrompt, kCables},
    {kQLTErrorSocketWrite, kCables},
    {kQLTErrorSocketRead, kCables},
    {kQLTErrorDavDPReply, kCables},
    {kQLTErrorInstrumentNotCreated, kCables},
    {kQLTErrorLineOpen, kCables},
    {kQLTErrorLineWrite, kCables},
    {kQLTErrorLineRead, kCables},
    {kQLTErrorLineTimedOut, kCables},
    {kQLTErrorConsoleNoPrompt, kCables},
    {kQLTErrorConsoleEcho, kCables},
    {kQLTErrorModbusException, kCables},
    {kQLTErrorModbusSilence, kCables},
    {kQLTErrorModbusGarbled, kCables},
    {kQLTErrorModbusNoNumber, kCables},
    {kQLTErrorScpiAnswer, kCables},
    {kQLTErrorScpiOverload, kCables},
    {kQLTErrorScpiNoReading, kCables},
    {kQLTErrorScpiNotDone, kCables},
    {kQLTErrorDigitalTransfer, kCables},
    {kQLTErrorCanBusOff, kCables},
    {kQLTErrorCanUnacknowledged, kCables},
    {kQLTErrorCanPassive, kCables},
    {kQLTErrorCanGarbled, kCables},
    {kQLTErrorCanBus, kCables},
    {kQLTErrorConsoleLogIn, "passwordFile"},
    {kQLTErrorScpiDialect, "dialectFile"},
    {kQLTErrorScpiIdentity, "expectedSerial"},
    {kQLTErrorDigitalLine, "\"outputs\" and \"inputs\""},
    {kQLTErrorDigitalOpen, "whether this user may use the chip"},
    {kQLTErrorCanFrame, "A fault of the plug-in"},
    {kQLTErrorModbusRequest, "A fault of the plug-in"},
    {kQLTErrorLineCommand, "A fault of the plug-in"},
    {kQLTErrorConfigUnreadable, "Correct the plug-in's TestConfig.plist"},
    {kQLTErrorFlowWrong, "Correct the plug-in's TestConfig.plist"},
    {kQLTErrorTesterConfigMalformed, "Correct that line"},
    {kQLTErrorConfigWrong, "Correct the plug-in's TestConfig.plist"},
    {kQLTErrorPropertyListMalformed, "at the place that is named"},
    {kQLTErrorBundleUnusable, "Install the plug-in again"},
    {kQLTErrorPluginClassUnusable, "A fault of the plug-in"},
    {kQLTErrorInstrumentAttributeMissing, "Add the attribute"},
    {kQLTErrorInstrumentTypeUnknown, "Correct the class"},
    {kQLTErrorResourceMissing, "does not list the instrument"},
    {kQLTErrorResourceUnusable, "\"Resources\" of the site"},
    {kQLTErrorResourceHeld, "what the sites share"},
    {kQLTErrorOperatorAbsent, "asks the person"},
    {kQLTErrorOperatorTimedOut, "asks the person"},
    {kQLTErrorOperatorCancelled, "asks the person"},
    {kQLTErrorOperatorAnswerUnfit, "asks the person"},
    {kQLTErrorQuestionWrong, "A fault of the plug-in"},
    {kQLTErrorAardvarkOpen, "I2C adapter"},
    {kQLTErrorAardvarkWrite, "I2C adapter"}};

}  // namespace

TEST(LoadAdvice, eachCodeHasItsOwn) {
  for (const auto& [code, subject] : kSubjects) {
    EXPECT_THAT(adviceForCode(code), HasSubstr(subject)) << code;
    const bool speaksOfCables = adviceForCode(code).find(kCables) != std::string::npos;
    EXPECT_EQ(speaksOfCables, subject == kCables) << code;
  }
}

TEST(LoadAdvice, noCodeOfTheCatalogueIsForgotten) {
  std::ifstream file(CATALOGUE);
  const std::string header(std::istreambuf_iterator<char>(file), {});
  const std::regex constant("constexpr std::int32_t kQLTError\\w+ = (-?[0-9]+);");
  std::set<std::int64_t> codes;
  for (std::sregex_iterator found(header.begin(), header.end(), constant), end; found != end;
       ++found) {
    codes.insert(std::stoll((*found)[1]));
  }
  std::set<std::int64_t> advised;
  for (const auto& [code, subject] : kSubjects) advised.insert(code);
  EXPECT_FALSE(codes.empty());
  EXPECT_EQ(advised, codes);
}

TEST(LoadAdvice, theListOfInstrumentsIsMissingOrCannotBeRead) {
  EXPECT_THAT(adviceFor(QLTError::fromErrno(ENOENT, kTesterConfig)),
              AllOf(HasSubstr(kTesterConfig), HasSubstr("Copy the example")));
  for (const int reason : {EACCES, EISDIR, EILSEQ}) {
    EXPECT_THAT(adviceFor(QLTError::fromErrno(reason, kTesterConfig)),
                AllOf(HasSubstr(kTesterConfig), HasSubstr("that this user may read"),
                      Not(HasSubstr("Copy"))));
  }
}

TEST(LoadAdvice, otherDomainsAreLinesInstrumentsOrThePlugin) {
  EXPECT_THAT(adviceFor(QLTError::withDescription(QLTSerialErrorDomain, ENOENT, "no port")),
              HasSubstr(kCables));
  EXPECT_THAT(adviceFor(QLTError::withDescription(kQLTScipErrorDomain, -222, "range")),
              HasSubstr(kCables));
  EXPECT_THAT(adviceFor(QLTError::withDescription("Board", kQLTErrorSerialRead, "no licence")),
              AllOf(HasSubstr("the plug-in's own reason"), Not(HasSubstr(kCables))));
  EXPECT_THAT(adviceFor({}), HasSubstr("A fault of the plug-in"));
}

TEST(LoadAdvice, tellsThePlaceThatARecordKnowsAndItsTextDoesNot) {
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
