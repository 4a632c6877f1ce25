#include "StationBuilder.h"

#include <variant>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTSubTestInfo.h>
#include <QLTTraffic.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

#include "common/Format.h"
#include "configuration/FlowReader.h"
#include "configuration/PluginCalls.h"
#include "platform/Place.h"
#include "utilities/Fail.h"

namespace quillon::internal {
namespace {

constexpr const char* kFaultOfPlugin = "a fault of the plug-in";

std::string textOf(const QLTError& error) {
  return error.description().value_or(error.domain() + " " + std::to_string(error.code()));
}

/// The record of an unknown class has a fixed text. Where the class stands is for the log, and for
/// whoever asks the record.
QLTError unknownClass(const QLTConfigFinding& finding) {
  const QLTError logged = QLTUtil::handleError(kQLTErrorFlowWrong, finding.text());
  const QLTPosition position{finding.line, finding.column, finding.offset};
  QLTDictionary userInfo =
      placedError(logged.code(), {finding.file, position, finding.key}, finding.message).userInfo();
  userInfo.set(kQLTErrorDescriptionKey, finding.message);
  return {logged.domain(), logged.code(), std::move(userInfo)};
}

/// Makes an instrument of a class that the factory does not know. Null with an error when the
/// plug-in does not know it, either, or fails.
std::shared_ptr<QLTObject> makePluginInstrument(const QLTClass* principalClass,
                                                const QLTDictionary& entry, QLTError& error) {
  if (principalClass != nullptr && principalClass->operations().createInstrument != nullptr) {
    QLTError pluginError;
    auto made = callPlugin(
        *principalClass, "createInstrument",
        [&] { return principalClass->operations().createInstrument(entry, &pluginError); }, error);
    if (!made) return nullptr;
    if (*made) return *made;
    if (pluginError) {
      error = pluginError;
      return nullptr;
    }
  }
  std::optional<std::string> cls;
  if (const QLTValue* value = entry.find("class")) cls = value->text();
  error = QLTUtil::handleError(kQLTErrorInstrumentTypeUnknown,
                               format("unknown instrument type %@", cls));
  return nullptr;
}

/// Every site has sub-tests of its own: all but the last get copies of the plan's.
QLTClass::SubTestInfos copiesOf(const QLTClass::SubTestInfos& subTests) {
  QLTClass::SubTestInfos copies;
  copies.reserve(subTests.size());
  for (const auto& info : subTests) {
    auto copy = QLTSubTestInfo::subTestInfo(info->name(), info->priority(), info->failMessage());
    if (info->hasLimits()) copy->setLimits(info->lowLimit(), info->highLimit());
    copy->setExpected(info->expected());
    copy->setUnit(info->unit());
    copy->setOptional(info->isOptional());
    copies.push_back(std::move(copy));
  }
  return copies;
}

}  // namespace

bool StationBuilder::problem(QLTError error, QLTConfigFinding finding) {
  report_({std::move(error), std::move(finding)});
  return !makes_;
}

bool StationBuilder::refused(const QLTStationPlan& plan, std::size_t index, std::int32_t code) {
  if (!makes_) return true;
  const QLTConfigFinding& finding = plan.findings[index];
  return problem(QLTUtil::handleError(code, finding.text()), finding);
}

// Instruments.

bool StationBuilder::buildInstruments(const QLTStationPlan& plan, LostInstruments lost,
                                      InstrumentTable& instruments, FailureTable& failures) {
  if (!makes_) return true;
  const auto skip = [&](const std::string& name, const QLTError& error) {
    QLTLog(format("error loading instrument %@:%@", name, error.description()));
    failures.insert_or_assign(name, error);
    problem(error, {});
  };
  for (const auto& [name, instrument] : plan.instruments) {
    if (instrument.refusedBy) return refused(plan, *instrument.refusedBy, kQLTErrorConfigWrong);
    QLTError error;
    const QLTInstrumentScope scope(name);
    auto made = makeInstrument(instrument.entry, lost, &error);
    if (auto* known = std::get_if<std::shared_ptr<QLTObject>>(&made)) {
      if (*known) {
        if (error) QLTLog(format("instrument %@ is lost:%@", name, error.description()));
        instruments.insert_or_assign(name, std::move(*known));
      } else {
        skip(name, error);
      }
      continue;
    }
    if (auto own = makePluginInstrument(principalClass_, instrument.entry, error)) {
      instruments.insert_or_assign(name, std::move(own));
    } else if (lost == LostInstruments::Keep) {
      skip(name, error);
    } else {
      return problem(error, {});
    }
  }
  return true;
}

// Sites.

bool StationBuilder::buildSites(
    const QLTStationPlan& plan, const InstrumentTable& instruments, const FailureTable& failures,
    const QLTDictionary& attributes,
    const std::function<void(std::shared_ptr<QLTestSuite>, const std::string&)>& enter) {
  for (const QLTStationPlan::Site& site : plan.sites) {
    if (site.refusedBy) {
      if (!refused(plan, *site.refusedBy, kQLTErrorConfigWrong)) return false;
      continue;
    }
    if (!site.isEnabled) {
      if (makes_) QLTLog(format("site %@ is disabled. Skipping load...", site.name));
      continue;
    }
    const std::shared_ptr<QLTestSuite> suite = makeSuite(plan, site);
    if (!suite) {
      if (makes_) return false;
      continue;
    }
    const bool usable = addResources(plan, site, instruments, failures, *suite);
    suite->siteAttributes().merge(attributes);
    if (usable) enter(suite, site.name);
  }
  return true;
}

std::shared_ptr<QLTestSuite> StationBuilder::makeSuite(const QLTStationPlan& plan,
                                                       const QLTStationPlan::Site& site) {
  if (principalClass_ == nullptr || principalClass_->operations().makeSuite == nullptr) {
    principalClassUnusable();
    return nullptr;
  }
  QLTError error;
  const auto made = callPlugin(
      *principalClass_, "its constructor",
      [&] { return principalClass_->operations().makeSuite(site.name); }, error);
  if (made && *made) return *made;
  if (made) error = pluginFault(*principalClass_, "its constructor gave no suite");
  problem(error, QLTConfigFinding::errorAt(plan.configFile, site.position, "Sites/" + site.name,
                                           textOf(error), kFaultOfPlugin));
  return nullptr;
}

void StationBuilder::principalClassUnusable() {
  const bool hasFolder = bundle_ != nullptr && !bundle_->path().empty();
  const QLTValue* const name =
      bundle_ == nullptr ? nullptr : bundle_->infoDictionary().find("PrincipalClass");
  std::string owner = hasFolder ? bundle_->path().string() + ": " : "";
  std::string message = "the bundle's Info.plist names no principal class";
  if (principalClass_ != nullptr) {
    owner = bundleOf(*principalClass_) + ": ";
    message = format("the principal class %@ is not a suite class", principalClass_->name());
  } else if (name != nullptr) {
    message = format(
        "the principal class %@ is none of the bundle's classes (is it registered with "
        "QLT_CLASS?)",
        name->text());
  }
  const QLTError error = QLTUtil::handleError(kQLTErrorPluginClassUnusable, owner + message);
  problem(error,
          QLTConfigFinding::errorAt(
              hasFolder ? (bundle_->path() / "Contents" / "Info.plist").string() : "",
              name == nullptr ? QLTPosition{} : name->position(), "PrincipalClass",
              std::move(message), "it must name a suite class that is registered with QLT_CLASS"));
}

/// False when one of them is missing: the site is left out.
bool StationBuilder::addResources(const QLTStationPlan& plan, const QLTStationPlan::Site& site,
                                  const InstrumentTable& instruments, const FailureTable& failures,
                                  QLTestSuite& suite) {
  if (!makes_) return plan.isUsable(site);
  for (const QLTStationPlan::Resource& resource : site.resources) {
    const auto instrument = instruments.find(resource.instrument);
    if (instrument == instruments.end()) {
      const auto cause = failures.find(resource.instrument);
      QLTError error;
      fail(&error, kQLTErrorResourceMissing,
           format("resource %@ for site %@ does not exist! This site will be disabled",
                  resource.name, site.name),
           cause == failures.end() ? QLTError() : cause->second);
      problem(std::move(error), {});
      return false;
    }
    suite.addResource(instrument->second, resource.name);
  }
  return true;
}

// Flows.

bool StationBuilder::buildFlows(QLTStationPlan& plan, const SuiteTable& suites) {
  std::size_t left = suites.size();
  for (const auto& [siteName, suite] : suites) {
    // Whoever checks may have more to do with the plan.
    const bool isLast = --left == 0 && makes_;
    for (QLTStationPlan::Flow& flow : plan.flows) {
      // Registered before it is filled: a flow that fails half way stays, partly filled.
      const auto methods = std::make_shared<QLTFlow>();
      suite->setFlow(methods, flow.name);
      if (flow.refusedBy && !refused(plan, *flow.refusedBy, kQLTErrorFlowWrong)) return false;
      methods->reserve(flow.tests.size());
      for (QLTStationPlan::Test& test : flow.tests) {
        if (!buildTest(plan, flow, test, suite, isLast, *methods)) return false;
      }
    }
    if (!enterDefaultFlow(plan, *suite)) return false;
  }
  return true;
}

bool StationBuilder::buildTest(const QLTStationPlan& plan, const QLTStationPlan::Flow& flow,
                               QLTStationPlan::Test& test,
                               const std::shared_ptr<QLTestSuite>& suite, bool isLast,
                               QLTFlow& methods) {
  if (test.refusedBy) return refused(plan, *test.refusedBy, kQLTErrorFlowWrong);
  if (test.classRefusedBy) {
    if (test.cls != nullptr || !makes_) {
      return refused(plan, *test.classRefusedBy, kQLTErrorFlowWrong);
    }
    const QLTConfigFinding& finding = plan.findings[*test.classRefusedBy];
    return problem(unknownClass(finding), finding);
  }
  QLTError error;
  const auto made = callPlugin(
      *test.cls, "its constructor",
      [&] {
        return test.cls->operations().makeMethod(
            suite, suite->resources(), isLast ? std::move(test.displayName) : test.displayName,
            isLast ? std::move(test.subTests) : copiesOf(test.subTests));
      },
      error);
  if (!made || !*made) {
    if (made) error = pluginFault(*test.cls, "its constructor gave no test method");
    const auto number = static_cast<std::size_t>(&test - flow.tests.data());
    return problem(error, QLTConfigFinding::errorAt(plan.configFile, test.classPosition,
                                                    format("Flows/%@/%d/class", flow.name, number),
                                                    textOf(error), kFaultOfPlugin));
  }
  const std::shared_ptr<QLTestMethod>& method = *made;
  method->setParams(isLast ? std::move(test.params) : test.params);
  if (test.retest) method->setAllowRetest(*test.retest);
  if (test.stopOnFail) method->setShouldStopOnFail(*test.stopOnFail);
  if (test.timeLimit) method->setTimeLimit(test.timeLimit);
  methods.push_back(method);
  return true;
}

bool StationBuilder::enterDefaultFlow(const QLTStationPlan& plan, QLTestSuite& suite) {
  if (plan.defaultFlowRefusedBy) {
    return refused(plan, *plan.defaultFlowRefusedBy, kQLTErrorFlowWrong);
  }
  // The plug-in's code may have made the flow, or taken it away.
  const auto flow = plan.defaultFlow ? suite.flowForName(*plan.defaultFlow) : nullptr;
  if (flow) {
    suite.setFlow(flow, "default");
    return true;
  }
  if (!plan.defaultFlow && !makes_) return true;  // the plan tells it
  const QLTConfigFinding finding =
      QLTConfigFinding::errorAt(plan.configFile, plan.defaultFlowPosition, "defaultFlow",
                                defaultFlowMissing(plan.defaultFlow, suite.flowNames()));
  return problem(makes_ ? QLTUtil::handleError(kQLTErrorFlowWrong, finding.text()) : QLTError(),
                 finding);
}

void enterVersions(const QLTBundle& bundle, QLTDictionary& stationAttributes) {
  const auto enter = [&](const std::string& key, const std::optional<std::string>& version) {
    if (version) {
      stationAttributes.set(key, *version);
    } else {
      stationAttributes.remove(key);
    }
  };
  enter(kVeltroQLTAttributeBundleVersion, bundle.version());
  enter(kVeltroQLTAttributeFrameworkVersion, QLTBundle::frameworkBundle().version());
}

}  // namespace quillon::internal
