#include "LoadAdvice.h"

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include <QLTConfigFinding.h>
#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>
#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "Text.h"

namespace station {
namespace {

constexpr const char* kFaultOfPlugin =
    "A fault of the plug-in, not of the station: install another version of it, or tell its "
    "author.";

std::string testerConfig() { return QLTestSiteManager::testerConfigPath().string(); }

std::string checkInstruments() {
  return "Check the instruments that " + testerConfig() + " lists: cables, power, addresses.";
}

/// The one file that loading reads by the system's calls and reports by their errors.
std::string adviceForTesterConfig(std::int64_t reason) {
  if (reason == ENOENT) {
    return "Each tester needs the list of its instruments in " + testerConfig() +
           ".\nCopy the example that comes with the plug-in there and enter this tester's devices.";
  }
  return "The list of this tester's instruments, " + testerConfig() +
         ",\nmust be a text file (ASCII) that this user may read.";
}

std::string adviceForCode(std::int64_t code) {
  switch (code) {
    case kQLTErrorConfigUnreadable:
    case kQLTErrorFlowWrong:
    case kQLTErrorConfigWrong:
      return "Correct the plug-in's TestConfig.plist, or install the plug-in again.\n"
             "'quillon check' tells everything that is wrong with it.";
    case kQLTErrorTesterConfigMalformed:
      return "Correct that line of " + testerConfig() + ": name,class,sim,key=value;key=value";
    case kQLTErrorPropertyListMalformed:
      return "Correct the file at the place that is named.";
    case kQLTErrorBundleUnusable:
      return "Install the plug-in again, built for this version of Quillon.";
    case kQLTErrorPluginClassUnusable:
      return kFaultOfPlugin;
    case kQLTErrorInstrumentTypeUnknown:
      return "Correct the class (second field) in " + testerConfig() +
             ",\nor use the plug-in that knows this class.";
    case kQLTErrorInstrumentAttributeMissing:
      return "Add the attribute to the instrument's line in " + testerConfig() + ".";
    case kQLTErrorResourceMissing:
      return "Either " + testerConfig() +
             " does not list the instrument, or it did not come up:\ncheck its line, its cable and "
             "its power.";
    case kQLTErrorResourceUnusable:
      return "Correct \"Resources\" of the site in the plug-in's TestConfig.plist, or the "
             "instrument's class in\n" +
             testerConfig() + ".";
    case kQLTErrorResourceHeld:
      return "Another site kept for too long what the sites share; see what it is busy with.";
    case kQLTErrorOperatorAbsent:
    case kQLTErrorOperatorTimedOut:
    case kQLTErrorOperatorCancelled:
    case kQLTErrorOperatorAnswerUnfit:
      return "The plug-in asks the person at the station: start it again where somebody answers.";
    case kQLTErrorQuestionWrong:
    case kQLTErrorCanFrame:
    case kQLTErrorModbusRequest:
    case kQLTErrorLineCommand:
      return kFaultOfPlugin;
    case kQLTErrorConsoleLogIn:
      return "Correct \"user\" of the console's line in " + testerConfig() +
             ", or the file of its \"passwordFile\".";
    case kQLTErrorScpiDialect:
      return "Correct \"dialect\" of the instrument's line in " + testerConfig() +
             ", or the file of its \"dialectFile\".";
    case kQLTErrorScpiIdentity:
      return "Are the cables or addresses of two instruments swapped? Put them right, or correct "
             "the "
             "address or\n\"expectedSerial\" of the instrument's line in " +
             testerConfig() + ".";
    case kQLTErrorDigitalLine:
      return "Correct \"outputs\" and \"inputs\" of the instrument's line in " + testerConfig() +
             ",\nor the test that asks for another line.";
    case kQLTErrorDigitalOpen:
      return "Check \"chip\" and the names of the lines in " + testerConfig() +
             ",\nwhether this user may use the chip, and whether another program has the lines.";
    case kQLTErrorAardvarkOpen:
    case kQLTErrorAardvarkWrite:
      return "Check the I2C adapter: is it plugged in, and its library installed?";
    default:  // of lines, sockets and the instruments on them
      return checkInstruments();
  }
}

/// Where the cause stands, when the record knows that and its text does not tell it.
std::string placeOf(const QLTError& error) {
  const QLTError cause = error.underlyingError() ? error.underlyingError() : error;
  std::optional<QLTConfigFinding> place = QLTConfigFinding::of(cause);
  if (!place || describe(error).find(place->file) != std::string::npos) return {};
  place->message = std::exchange(place->key, "");  // the error itself tells the rest
  return place->text();
}

}  // namespace

std::string reasonOf(const QLTError& error, const QLTBundle& bundle) {
  if (!error) return "its onLoad gave no reason";
  // That record has no text of its own; reading the file once more tells what is wrong with it.
  if (error.domain() == QLTFrameworkErrorDomain && error.code() == kQLTErrorConfigUnreadable &&
      !error.description()) {
    const auto file = bundle.pathForResource("TestConfig", "plist");
    if (!file) return "it has no configuration, Contents/Resources/TestConfig.plist";
    QLTError reading;
    if (!QLTPropertyList::readDictionary(*file, &reading)) return describe(reading);
  }
  const std::string place = placeOf(error);
  return describeWithCauses(error) + (place.empty() ? "" : " (" + place + ")");
}

std::string adviceFor(const QLTError& error) {
  if (!error) return "A fault of the plug-in: its onLoad must say what is wrong. Tell its author.";
  if (error.domain() == QLTFrameworkErrorDomain) return adviceForCode(error.code());
  if (error.domain() == kQLTPosixErrorDomain) return adviceForTesterConfig(error.code());
  if (error.domain() == QLTSerialErrorDomain || error.domain() == kQLTScipErrorDomain) {
    return checkInstruments();
  }
  return "This is the plug-in's own reason; its documentation or its author can tell more.";
}

}  // namespace station
