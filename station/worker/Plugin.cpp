#include "Plugin.h"

#include <exception>
#include <utility>

#include <QLTError.h>

#include "CannotRun.h"
#include "LoadAdvice.h"
#include "Text.h"
#include "Unavailable.h"

namespace station {
namespace {

const QLTClass* principalClassOf(const QLTBundle& bundle) {
  const QLTClass* const found = bundle.principalClass();
  if (found != nullptr && found->operations().onLoad != nullptr) return found;
  const QLTValue* const name = bundle.infoDictionary().find("PrincipalClass");
  const std::string problem =
      found != nullptr  ? "the plug-in's principal class " + found->name() + " is not a suite"
      : name == nullptr ? "the plug-in names no principal class"
                        : "the plug-in has no class " + name->text() + ", its principal class";
  throw CannotRun(problem + ": " + bundle.path().string(),
                  "\"PrincipalClass\" in Contents/Info.plist must name a class derived from "
                  "QLTestSuite that the\nplug-in registers with QLT_CLASS.");
}

}  // namespace

const QLTBundle& Plugin::openBundle(const std::filesystem::path& path) {
  QLTError error;
  const QLTBundle* const bundle = QLTBundle::open(path, &error);
  if (bundle != nullptr) return *bundle;
  throw CannotRun("cannot open the plug-in: " + printable(describe(error)),
                  "BUNDLE must be the folder of a test plug-in, NAME.bundle, with "
                  "Contents/Info.plist in it.");
}

Plugin::Plugin(const QLTBundle& bundle, Warn warn)
    : bundle_(bundle), principalClass_(principalClassOf(bundle)), warn_(std::move(warn)) {}

Plugin::~Plugin() {
  if (loaded_) {
    QLTError error;
    try {
      if (!principalClass_->operations().onUnload(&error)) {
        warn_("the plug-in's onUnload failed: " + printable(describe(error)));
      }
    } catch (const std::exception& exception) {
      warn_("the plug-in's onUnload threw: " + printable(exception.what()));
    } catch (...) {
      warn_("the plug-in's onUnload threw an exception of an unknown kind");
    }
  }
  manager_.reset();
  QLTestSiteManager::releaseSharedInstance();
}

void Plugin::load(const QLTDictionary& stationInfo, const Load& wanted) {
  const std::string seeLog = "\nThe diagnostics are in " + wanted.diagnostics;
  const std::string problem = "cannot load " + bundle_.path().string() + ":\n";
  QLTError error;
  QLTestSiteManager::sharedInstance()->setKeepsLostInstruments(wanted.again);
  try {
    loaded_ = principalClass_->operations().onLoad(*principalClass_, stationInfo, &error);
  } catch (const std::exception& exception) {
    throw CannotRun(problem + "its onLoad threw: " + printable(exception.what()), seeLog.substr(1));
  } catch (...) {
    throw CannotRun(problem + "its onLoad threw an exception of an unknown kind", seeLog.substr(1));
  }
  if (!loaded_) {
    throw CannotRun(problem + printable(reasonOf(error, bundle_)), adviceFor(error) + seeLog);
  }
  manager_ = QLTestSiteManager::sharedInstance();
  // What failed of instruments is told with the sites that need them.
  if (error && unavailableSites(*manager_).empty() && manager_->instrumentFailures().empty()) {
    warn_("the station loaded only in part: " + printable(describeWithCauses(error)) + "\n" +
          adviceFor(error) + seeLog);
  }
}
bool Plugin::hasEndHooks(const QLTestSuite& suite) const {
  const std::type_info* const without = principalClass_->operations().withoutEndHooks;
  // One that the plug-in made itself may be of any class.
  return without == nullptr || typeid(suite) != *without;
}

}  // namespace station
