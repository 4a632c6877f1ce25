#include "FlowReader.h"

#include <algorithm>
#include <utility>

#include <QLTSubTestInfo.h>
#include <QLTUtil.h>

#include "common/Format.h"

namespace quillon::internal {
namespace {

const std::vector<std::string> kTestKeys{"class",      "displayName", "params",      "retest",
                                         "stopOnFail", "timeLimit",   "subTestInfos"};
const std::vector<std::string> kSubTestKeys{"name",      "priority",    "expected", "lowLimit",
                                            "highLimit", "failMessage", "unit",     "optional"};

}  // namespace

/// What stands in a sub-test.
struct FlowReader::SubTest {
  explicit SubTest(const ConfigEntry& entry)
      : name(entry.at("name")),
        priority(entry.at("priority")),
        expected(entry.at("expected")),
        low(entry.at("lowLimit")),
        high(entry.at("highLimit")),
        failMessage(entry.at("failMessage")),
        unit(entry.at("unit")),
        optional(entry.at("optional")) {}

  ConfigEntry name;
  ConfigEntry priority;
  ConfigEntry expected;
  ConfigEntry low;
  ConfigEntry high;
  ConfigEntry failMessage;
  ConfigEntry unit;
  ConfigEntry optional;
};

std::string defaultFlowMissing(const std::optional<std::string>& name,
                               const std::vector<std::string>& flowNames) {
  const std::string flows = flowNames.empty() ? "(none)" : QLTUtil::arrayToString(flowNames, ", ");
  return name ? format("there is no flow \"%@\"; the flows are: %@", *name, flows)
              : format("missing; it must name one of the flows: %@", flows);
}

void FlowReader::read(const ConfigEntry& flows, const ConfigEntry& defaultFlow) {
  if (flows.present()) {
    const QLTDictionary& entries = *flows.value().dictionary();
    plan_.flows.reserve(entries.size());
    for (const auto& flow : entries) readFlow(flows.at(flow.first), flow.first);
  }
  readDefaultFlow(defaultFlow);
  const auto isDefault = [](const auto& flow) { return flow.name == "default"; };
  if (plan_.defaultFlow && *plan_.defaultFlow != "default" &&
      std::any_of(plan_.flows.begin(), plan_.flows.end(), isDefault)) {
    findings_.warning(flows.at("default").finding(
        format("its place is taken by \"%@\", the default flow", *plan_.defaultFlow)));
  }
}

void FlowReader::readFlow(const ConfigEntry& entry, const std::string& name) {
  const std::size_t before = findings_.size();
  QLTStationPlan::Flow& flow = plan_.flows.emplace_back();
  flow.name = name;
  flow.position = entry.position();
  const QLTArray* const tests = entry.array(findings_);
  flow.refusedBy = findings_.refusalSince(before);
  if (tests == nullptr) return;
  if (tests->empty()) {
    findings_.warning(
        entry.finding("has no tests; a device that passed it would not have been tested"));
  }
  flow.tests.reserve(tests->size());
  for (std::size_t i = 0; i < tests->size(); ++i) readTest(entry.at(i), flow);
}

void FlowReader::readTest(const ConfigEntry& entry, QLTStationPlan::Flow& flow) {
  const std::size_t before = findings_.size();
  QLTStationPlan::Test& test = flow.tests.emplace_back();
  test.position = entry.position();
  if (entry.dictionary(findings_) != nullptr) {
    const ConfigEntry cls = entry.at("class");
    const ConfigEntry displayName = entry.at("displayName");
    const ConfigEntry params = entry.at("params");
    const ConfigEntry retest = entry.at("retest");
    const ConfigEntry stopOnFail = entry.at("stopOnFail");
    const ConfigEntry timeLimit = entry.at("timeLimit");
    const ConfigEntry infos = entry.at("subTestInfos");
    test.classPosition = cls.present() ? cls.position() : test.position;
    test.className = cls.text(findings_);
    test.displayName = displayName.text(findings_);
    if (params.present()) test.params = params.value();
    test.retest = retest.boolean(findings_);
    test.stopOnFail = stopOnFail.boolean(findings_);
    test.timeLimit = timeLimit.timeLimit(findings_);
    findings_.unknownKeys(entry, kTestKeys);
    findings_.surprisingBoolean(retest);
    findings_.surprisingBoolean(stopOnFail);
    if (test.displayName) {
      findings_.shiftedColumns(displayName, *test.displayName);
    } else if (!displayName.present()) {
      findings_.warning(entry.finding("has no displayName; its columns in the result log shift"),
                        "give it a displayName");
    }
    if (const QLTArray* const list = infos.array(findings_)) {
      test.subTests.reserve(list->size());
      for (std::size_t i = 0; i < list->size(); ++i) readSubTest(infos.at(i), test);
    }
    test.refusedBy = findings_.refusalSince(before);
    const std::size_t beforeClass = findings_.size();
    // A class of a wrong type has been told.
    if (test.className || !cls.present()) readClass(entry, cls, test);
    test.classRefusedBy = findings_.refusalSince(beforeClass);
  } else {
    test.refusedBy = findings_.refusalSince(before);
  }
}

void FlowReader::readClass(const ConfigEntry& entry, const ConfigEntry& place,
                           QLTStationPlan::Test& test) {
  if (test.className) {
    test.cls = bundle_.classNamed(*test.className);
    if (test.cls == nullptr) {
      test.cls = QLTBundle::frameworkBundle().classNamed(*test.className);
    }
  }
  if (test.cls == nullptr) {
    std::string advice;
    if (findings_.wantsWarnings()) {
      const std::vector<std::string>& methods = methodNames();
      if (test.className) advice = didYouMean(*test.className, methods);
      if (advice.empty()) {
        advice = "the test methods are: " + QLTUtil::arrayToString(methods, ", ");
      }
    }
    findings_.complaint((place.present() ? place : entry)
                            .finding(format("unrecognized test method class %@", test.className)),
                        std::move(advice));
  } else if (test.cls->operations().makeMethod == nullptr) {
    findings_.complaint(
        place.finding(format("the class %@ is not a test method", test.cls->name())));
  } else if (test.cls->name() == "QLTestMethodDelay" && test.subTests.empty()) {
    findings_.warning(
        entry.finding("QLTestMethodDelay needs a sub-test, whose limits decide whether the delay "
                      "passes"));
  }
}

const std::vector<std::string>& FlowReader::methodNames() {
  if (!methodNames_.empty()) return methodNames_;
  for (const QLTBundle* const holder : {&bundle_, &QLTBundle::frameworkBundle()}) {
    for (const std::string& name : holder->classNames()) {
      if (holder->classNamed(name)->operations().makeMethod != nullptr) {
        methodNames_.push_back(name);
      }
    }
  }
  return methodNames_;
}

void FlowReader::readSubTest(const ConfigEntry& entry, QLTStationPlan::Test& test) {
  const std::size_t before = findings_.size();
  if (entry.dictionary(findings_) == nullptr) return;
  const SubTest content(entry);
  std::optional<std::string> name = content.name.text(findings_);
  const QLTValue* const priority = content.priority.number(findings_);
  const QLTValue* const low = content.low.number(findings_);
  const QLTValue* const high = content.high.number(findings_);
  std::optional<std::string> failMessage = content.failMessage.text(findings_);
  const std::optional<bool> isOptional = content.optional.boolean(findings_);
  const bool isRefused = findings_.refusalSince(before).has_value();
  if (findings_.wantsWarnings()) {
    findings_.unknownKeys(entry, kSubTestKeys);
    findings_.surprisingBoolean(content.optional);
    warnOfTexts(entry, content);
    warnOfLimits(content, low, high);
  }
  if (isRefused) return;

  if (!failMessage) failMessage = QLTSubTestInfo::defaultFailMessage(name);
  auto info = QLTSubTestInfo::subTestInfo(
      std::move(name), priority != nullptr ? priority->intValue() : 0, std::move(failMessage));
  if (content.expected.present()) info->setExpected(content.expected.value().text());
  if (low != nullptr) {
    info->setLimits(low->doubleValue(), high != nullptr ? high->doubleValue() : 0.0);
  }
  // A unit decides nothing, so none that is given wrongly ends a load.
  if (content.unit.present() && content.unit.value().string() != nullptr) {
    info->setUnit(*content.unit.value().string());
  }
  info->setOptional(isOptional.value_or(false));
  test.subTests.push_back(std::move(info));
}

void FlowReader::warnOfTexts(const ConfigEntry& entry, const SubTest& content) {
  const auto warn = [&](const ConfigEntry& text) {
    if (text.present()) findings_.shiftedColumns(text, text.value().text());
  };
  if (!content.name.present()) {
    findings_.warning(entry.finding("has no name; its columns in the result log shift"),
                      "give it a name");
  }
  if (content.unit.present() && content.unit.value().string() == nullptr) {
    findings_.warning(content.unit.finding("expected a text; loading ignores it"));
  }
  warn(content.name);
  warn(content.failMessage);
  if (!content.low.present()) warn(content.expected);
}

void FlowReader::warnOfLimits(const SubTest& content, const QLTValue* low, const QLTValue* high) {
  if (!content.low.present()) {
    if (!content.high.present()) return;
    findings_.warning(
        content.high.finding("without lowLimit no limits are set; only the value 0 passes"),
        "give a lowLimit, too");
    return;
  }
  if (!content.high.present()) {
    findings_.warning(content.low.finding("without highLimit the upper limit is 0"),
                      "give a highLimit, too");
  }
  if (low != nullptr && (high != nullptr || !content.high.present())) {
    const double lowest = low->doubleValue();
    const double highest = high != nullptr ? high->doubleValue() : 0.0;
    if (lowest > highest) {
      findings_.warning(content.low.finding(
          format("the low limit %@ is above the high limit %@; no value passes", lowest, highest)));
    }
  }
  if (content.expected.present()) {
    findings_.warning(content.expected.finding("the limits take the place of the expected text"));
  }
}

void FlowReader::readDefaultFlow(const ConfigEntry& entry) {
  const std::size_t before = findings_.size();
  plan_.defaultFlowPosition = entry.position();
  plan_.defaultFlow = entry.text(findings_);
  plan_.defaultFlowRefusedBy = findings_.refusalSince(before);
  if (plan_.defaultFlow || plan_.defaultFlowRefusedBy) return;
  std::vector<std::string> names;
  for (const QLTStationPlan::Flow& flow : plan_.flows) names.push_back(flow.name);
  if (!entry.present()) findings_.complaint(entry.finding(defaultFlowMissing({}, names)));
}

}  // namespace quillon::internal
