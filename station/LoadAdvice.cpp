#include "LoadAdvice.h"

#include <QLTPropertyList.h>
#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "Text.h"

namespace station {
namespace {

// The codes of the framework's loading, in its own domain.
constexpr std::int64_t kConfigUnreadable = -40000;
constexpr std::int64_t kFlowWrong = -40001;
constexpr std::int64_t kTesterConfigMalformed = -40002;
constexpr std::int64_t kInstrumentTypeUnknown = -70000;
constexpr std::int64_t kInstrumentAttributeMissing = -60000;
constexpr std::int64_t kResourceMissing = -80001;

}  // namespace

std::string reasonOf(const QLTError& error, const QLTBundle& bundle) {
  if (!error) return "its onLoad gave no reason";
  // That record has no text of its own; reading the file once more tells what is wrong with it.
  if (error.domain() == QLTFrameworkErrorDomain && error.code() == kConfigUnreadable &&
      !error.description()) {
    const auto file = bundle.pathForResource("TestConfig", "plist");
    if (!file) return "it has no configuration, Contents/Resources/TestConfig.plist";
    QLTError reading;
    if (!QLTPropertyList::readDictionary(*file, &reading)) return describe(reading);
  }
  return describe(error);
}

std::string adviceFor(const QLTError& error) {
  const std::string testerConfig = QLTestSiteManager::testerConfigPath().string();
  if (error.domain() == kQLTPosixErrorDomain) {
    return "Each tester needs the list of its instruments in " + testerConfig +
           ".\nCopy the example that comes with the plug-in there and enter this tester's devices.";
  }
  if (error.domain() == QLTFrameworkErrorDomain) {
    switch (error.code()) {
      case kConfigUnreadable:
      case kFlowWrong:
        return "Correct the plug-in's TestConfig.plist, or install the plug-in again.";
      case kTesterConfigMalformed:
        return "Correct that line of " + testerConfig + ": name,class,sim,key=value;key=value";
      case kInstrumentTypeUnknown:
        return "Correct the class (second field) in " + testerConfig +
               ",\nor use the plug-in that knows this class.";
      case kInstrumentAttributeMissing:
        return "Add the attribute to the instrument's line in " + testerConfig + ".";
      case kResourceMissing:
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
