#include "QLTClass.h"

#include <QLTErrorCodes.h>
#include <QLTestSuite.h>

#include "platform/BundleLoading.h"
#include "platform/Failed.h"

using quillon::internal::bundleBeingOpened;
using quillon::internal::failWith;

namespace {

/// Why a class cannot be; empty when it can.
std::string complaintAbout(const std::string& name, const QLTClass::Operations& operations) {
  if (name.empty()) return "a class must have a name";
  if (operations.makeSuite && operations.makeMethod) {
    return name + " cannot be a suite and a test method at once";
  }
  if (!operations.makeSuite && !operations.makeMethod) {
    return name + " makes neither suites nor test methods";
  }
  return {};
}

}  // namespace

QLTClass::QLTClass(std::string name, Operations operations, const QLTBundle* bundle)
    : name_(std::move(name)), operations_(std::move(operations)), bundle_(bundle) {
  if (operations_.onLoad) hookNames_.emplace_back("onLoad");
  if (operations_.customizeConfig) hookNames_.emplace_back("customizeConfig");
  if (operations_.createInstrument) hookNames_.emplace_back("createInstrument");
  if (operations_.instrumentClasses) hookNames_.emplace_back("instrumentClasses");
  if (operations_.onUnload) hookNames_.emplace_back("onUnload");
  if (!operations_.makeSuite) return;
  if (!operations_.onLoad) {
    operations_.onLoad = [](const QLTClass& cls, const QLTDictionary& stationInfo,
                            QLTError* error) {
      return QLTestSuite::onLoad(cls, stationInfo, error);
    };
  }
  if (!operations_.onUnload) {
    operations_.onUnload = [](QLTError* error) { return QLTestSuite::onUnload(error); };
  }
}

const QLTClass* QLTClass::registerClass(const std::string& name, Operations operations) {
  QLTBundle* const opened = bundleBeingOpened();
  const QLTBundle& bundle = opened != nullptr ? *opened : QLTBundle::mainBundle();
  // Not make_shared: the constructor is private.
  const std::shared_ptr<const QLTClass> cls(new QLTClass(name, std::move(operations), &bundle));
  if (!bundle.add(name, cls) && opened != nullptr) opened->registeredTwice_.push_back(name);
  return bundle.classNamed(name);
}

const QLTClass* QLTClass::registerClass(const QLTBundle& bundle, const std::string& name,
                                        Operations operations, QLTError* error) {
  const auto refuse = [&](const std::string& reason) {
    const std::string where = bundle.path().empty() ? "" : bundle.path().string() + ": ";
    return failWith(error, QLTError::withDescription(QLTFrameworkErrorDomain,
                                                     kQLTErrorPluginClassUnusable, where + reason));
  };
  const std::string complaint = complaintAbout(name, operations);
  if (!complaint.empty()) return refuse(complaint);
  const std::shared_ptr<const QLTClass> cls(new QLTClass(name, std::move(operations), &bundle));
  if (!bundle.add(name, cls)) return refuse("the class " + name + " is registered already");
  return cls.get();
}
