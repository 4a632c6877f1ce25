#include "LoadAdvice.h"

#include <QLTConfigFinding.h>
#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>
#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "Text.h"

namespace station {
namespace {

/// Where the cause stands, when the record knows that and its text does not tell it.
std::string placeOf(const QLTError& error) {
  const QLTError cause = error.underlyingError() ? error.underlyingError() : error;
  const QLTDictionary& parts = cause.userInfo();
  const QLTValue* const file = parts.find("file");
  const QLTValue* const key = parts.find("keyPath");
  if (file == nullptr || key == nullptr ||
      describe(error).find(file->text()) != std::string::npos) {
    return {};
  }
  const auto number = [&](const char* name) {
    const QLTValue* const value = parts.find(name);
    return value != nullptr ? value->intValue() : 0;
  };
  return QLTConfigFinding{QLTConfigFinding::Severity::Error,
                          file->text(),
                          number("line"),
                          number("column"),
                          "",
                          key->text(),
                          ""}
      .text();
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
  return describe(error) + (place.empty() ? "" : " (" + place + ")");
}

std::string adviceFor(const QLTError& error) {
  const std::string testerConfig = QLTestSiteManager::testerConfigPath().string();
  if (error.domain() == kQLTPosixErrorDomain) {
    return "Each tester needs the list of its instruments in " + testerConfig +
           ".\nCopy the example that comes with the plug-in there and enter this tester's devices.";
  }
  if (error.domain() == QLTFrameworkErrorDomain) {
    switch (error.code()) {
      case kQLTErrorConfigUnreadable:
      case kQLTErrorFlowWrong:
        return "Correct the plug-in's TestConfig.plist, or install the plug-in again.";
      case kQLTErrorTesterConfigMalformed:
        return "Correct that line of " + testerConfig + ": name,class,sim,key=value;key=value";
      case kQLTErrorInstrumentTypeUnknown:
        return "Correct the class (second field) in " + testerConfig +
               ",\nor use the plug-in that knows this class.";
      case kQLTErrorInstrumentAttributeMissing:
        return "Add the attribute to the instrument's line in " + testerConfig + ".";
      case kQLTErrorResourceMissing:
        return "Either " + testerConfig +
               " does not list the instrument, or it did not come up:\ncheck its line, its cable "
               "and its power.";
      default:
        break;
    }
  }
  return "Check the instruments that " + testerConfig + " lists: cables, power, addresses.";
}

}  // namespace station
