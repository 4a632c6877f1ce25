#include "FlowConfig.h"

#include <algorithm>

#include <QLTSubTestInfo.h>
#include <QLTUtil.h>

#include "common/Format.h"

namespace quillon::internal {
namespace {

/// One sub-test; null, with a complaint, when the entry is malformed.
std::shared_ptr<QLTSubTestInfo> readSubTest(const ConfigEntry& entry, Complaints& complaints) {
  const std::size_t before = complaints.size();
  if (entry.dictionary(complaints) == nullptr) return nullptr;
  const std::optional<std::string> name = entry.at("name").text(complaints);
  const QLTValue* const priority = entry.at("priority").number(complaints);
  const ConfigEntry expected = entry.at("expected");
  const QLTValue* const lowLimit = entry.at("lowLimit").number(complaints);
  const QLTValue* const highLimit = entry.at("highLimit").number(complaints);
  const std::optional<std::string> failMessage = entry.at("failMessage").text(complaints);
  if (complaints.size() > before) return nullptr;

  const auto info =
      QLTSubTestInfo::subTestInfo(name, priority != nullptr ? priority->intValue() : 0);
  if (expected.present()) info->setExpected(expected.value().text());
  if (lowLimit != nullptr) {
    info->setLimits(lowLimit->doubleValue(), highLimit != nullptr ? highLimit->doubleValue() : 0.0);
  }
  info->setFailMessage(failMessage ? *failMessage : QLTSubTestInfo::defaultFailMessage(name));
  return info;
}

}  // namespace

std::optional<TestEntry> readTest(const ConfigEntry& entry, Complaints& complaints) {
  const std::size_t before = complaints.size();
  if (entry.dictionary(complaints) == nullptr) return std::nullopt;
  TestEntry test;
  test.className = entry.at("class").text(complaints);
  test.displayName = entry.at("displayName").text(complaints);
  if (entry.at("params").present()) test.params = entry.at("params").value();
  test.retest = entry.at("retest").boolean(complaints);
  test.stopOnFail = entry.at("stopOnFail").boolean(complaints);
  const ConfigEntry infos = entry.at("subTestInfos");
  const QLTArray* const list = infos.array(complaints);
  for (std::size_t i = 0; list != nullptr && i < list->size(); ++i) {
    test.subTests.push_back(readSubTest(infos.at(i), complaints));
  }
  if (complaints.size() > before) return std::nullopt;
  return test;
}

const QLTClass* classOfTest(const QLTBundle& bundle, const std::optional<std::string>& name) {
  if (!name) return nullptr;
  const QLTClass* const own = bundle.classNamed(*name);
  return own != nullptr ? own : QLTBundle::frameworkBundle().classNamed(*name);
}

std::optional<std::string> readDefaultFlow(const ConfigEntry& entry,
                                           const std::vector<std::string>& flowNames,
                                           Complaints& complaints) {
  const std::size_t before = complaints.size();
  std::optional<std::string> name = entry.text(complaints);
  if (complaints.size() > before) return std::nullopt;
  if (name && std::find(flowNames.begin(), flowNames.end(), *name) != flowNames.end()) return name;
  const std::string flows = flowNames.empty() ? "(none)" : QLTUtil::arrayToString(flowNames, ", ");
  complaints.push_back(
      entry.complaint(name ? format("there is no flow \"%@\"; the flows are: %@", *name, flows)
                           : format("missing; it must name one of the flows: %@", flows)));
  return std::nullopt;
}

}  // namespace quillon::internal
