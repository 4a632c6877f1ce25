#include "ListingText.h"

#include <algorithm>

#include "Json.h"
#include "Text.h"

namespace station {
namespace {

constexpr const char* kNone = "(none)";

std::string listOrNone(const std::vector<std::string>& names) {
  return names.empty() ? kNone : printable(listOf(names));
}

std::string shownName(const std::optional<std::string>& name) {
  return name ? printable(*name) : "(no name)";
}

/// "QLTDiags, simulated, bsdPath=/dev/ttyS1"
std::string instrumentText(const QLTDictionary& entry) {
  std::string text = printable(entry.find("class")->text());
  text += entry.find("sim")->intValue() == 1 ? ", simulated" : ", real";
  for (const auto& [key, value] : entry) {
    if (key != "class" && key != "sim") text += ", " + printable(key + "=" + value.text());
  }
  return text;
}

template <typename Range, typename Text>
std::size_t widest(const Range& range, Text text) {
  std::size_t width = 0;
  for (const auto& element : range) width = std::max(width, widthOf(text(element)));
  return width;
}

const QLTStationPlan::Instrument* instrumentOf(const QLTStationPlan& plan,
                                               const QLTStationPlan::Resource& resource) {
  const auto found = plan.instruments.find(resource.instrument);
  return found == plan.instruments.end() ? nullptr : &found->second;
}

bool isFrameworks(const QLTStationPlan::Test& test) {
  return test.cls != nullptr && &test.cls->bundle() == &QLTBundle::frameworkBundle();
}

/// The line of the plug-in's own instrument classes; "" when it tells of none.
std::string instrumentClassesText(const Listing& listing) {
  std::vector<std::string> names;
  for (const auto& described : listing.instrumentClasses) names.push_back(described.className);
  return names.empty() ? "" : "\n  Makes:            " + listOrNone(names);
}

std::string headText(const Listing& listing) {
  return printable(listing.identifier + " " + listing.version.value_or("(no version)")) +
         "\n  Bundle:           " + printable(listing.bundle.string()) +
         "\n  Built for:        framework " + printable(listing.builtFor) + ", running is " +
         listing.running + "\n  Principal class:  " + printable(listing.principalClass) +
         "\n  Its own hooks:    " + listOrNone(listing.hooks) +
         "\n  Suite classes:    " + listOrNone(listing.suiteClasses) +
         "\n  Test methods:     " + listOrNone(listing.methodClasses) +
         instrumentClassesText(listing) + "\n  Instruments of:   " +
         (listing.plan.testerConfig ? printable(listing.plan.testerConfig->string())
                                    : "(this machine has no tester-config file)") +
         "\n";
}

std::string siteText(const QLTStationPlan& plan, const QLTStationPlan::Site& site) {
  std::string text =
      "\nSite " + printable(site.name) + (site.isEnabled ? "" : " (disabled)") + "\n";
  const auto name = [](const QLTStationPlan::Resource& resource) {
    return printable(resource.name);
  };
  const auto instrument = [](const QLTStationPlan::Resource& resource) {
    return printable(resource.instrument);
  };
  const std::size_t nameWidth = widest(site.resources, name);
  const std::size_t instrumentWidth = widest(site.resources, instrument);
  for (const QLTStationPlan::Resource& resource : site.resources) {
    const std::string start = "  " + padded(name(resource), nameWidth) + "  ";
    if (const auto* const listed = instrumentOf(plan, resource)) {
      text += start + padded(instrument(resource), instrumentWidth) + "  " +
              instrumentText(listed->entry) + "\n";
    } else if (plan.testerConfig) {
      text += start + padded(instrument(resource), instrumentWidth) + "  not on this tester" +
              (site.isEnabled ? ": the site is left out" : "") + "\n";
    } else {
      text += start + instrument(resource) + "\n";
    }
  }
  if (site.resources.empty()) text += "  (no resources)\n";
  return text;
}

std::string passesText(const QLTSubTestInfo& info) {
  if (info.hasLimits()) {
    return QLTValue(info.lowLimit()).text() + " to " + QLTValue(info.highLimit()).text() +
           (info.unit() ? " " + printable(*info.unit()) : "");
  }
  const std::string expected = info.expected().value_or("");
  return expected.empty() ? "no limits" : "\"" + printable(expected) + "\"";
}

/// "PowerTest, retest, stops on fail"; "QLTestMethodDelay (framework)"
std::string testText(const QLTStationPlan::Test& test) {
  std::string text = shownName(test.className) + (isFrameworks(test) ? " (framework)" : "");
  if (test.retest) text += *test.retest ? ", retest" : ", no retest";
  if (test.stopOnFail) text += *test.stopOnFail ? ", stops on fail" : ", goes on after a failure";
  if (test.timeLimit) text += ", at most " + QLTValue(*test.timeLimit).text() + " s";
  return text;
}

std::string flowText(const QLTStationPlan::Flow& flow, bool isDefault) {
  std::string text = "\nFlow " + printable(flow.name) + (isDefault ? " (default)" : "") + "\n";
  const std::size_t testWidth = widest(
      flow.tests, [](const QLTStationPlan::Test& test) { return shownName(test.displayName); });
  int testNumber = 0;
  for (const QLTStationPlan::Test& test : flow.tests) {
    const std::string number = std::to_string(++testNumber);
    text += "  " + number + "  " + padded(shownName(test.displayName), testWidth) + "  " +
            testText(test) + "\n";
    const std::size_t width =
        widest(test.subTests, [](const auto& info) { return shownName(info->name()); });
    const std::size_t passesWidth =
        widest(test.subTests, [](const auto& info) { return passesText(*info); });
    int subTestNumber = 0;
    for (const auto& info : test.subTests) {
      text += "     " + number + "." + std::to_string(++subTestNumber) + "  " +
              padded(shownName(info->name()), width) + "  " +
              padded(passesText(*info), passesWidth) + "  priority " +
              std::to_string(info->priority()) + (info->isOptional() ? ", optional" : "") + "\n";
    }
  }
  if (flow.tests.empty()) text += "  (no tests)\n";
  return text;
}

Json attributesOf(const QLTDictionary& entry) {
  Json attributes = Json::object();
  for (const auto& [key, value] : entry) {
    if (key != "class" && key != "sim") attributes[key] = value.text();
  }
  return attributes;
}

Json jsonOf(const QLTInstrumentDescription& described) {
  Json attributes = Json::array();
  for (const QLTInstrumentAttribute& attribute : described.attributes) {
    attributes.push_back(
        {{"name", attribute.name()},
         {"needed", attribute.isNeeded()},
         {"oneOf", attribute.group().empty() ? Json(nullptr) : Json(attribute.group())},
         {"form", attribute.formText()},
         {"standard", orNull(attribute.standard())},
         {"meaning", attribute.meaning()}});
  }
  return {{"name", described.className},
          {"kind", described.kind},
          {"attributes", std::move(attributes)}};
}

Json jsonOf(const QLTStationPlan& plan, const QLTStationPlan::Site& site) {
  Json resources = Json::array();
  for (const QLTStationPlan::Resource& resource : site.resources) {
    Json instrument = nullptr;
    if (const auto* const listed = instrumentOf(plan, resource)) {
      instrument = {{"class", listed->entry.find("class")->text()},
                    {"simulated", listed->entry.find("sim")->intValue() == 1},
                    {"attributes", attributesOf(listed->entry)}};
    }
    resources.push_back({{"name", resource.name},
                         {"instrument", resource.instrument},
                         {"entry", std::move(instrument)}});
  }
  return {{"name", site.name}, {"enabled", site.isEnabled}, {"resources", std::move(resources)}};
}

Json jsonOf(const QLTSubTestInfo& info, int number) {
  const bool limits = info.hasLimits();
  return {{"number", number},
          {"name", orNull(info.name())},
          {"priority", info.priority()},
          {"lowLimit", limits ? Json(info.lowLimit()) : Json(nullptr)},
          {"highLimit", limits ? Json(info.highLimit()) : Json(nullptr)},
          {"expected", limits ? Json(nullptr) : orNull(info.expected())},
          {"failMessage", orNull(info.failMessage())},
          {"unit", orNull(info.unit())},
          {"optional", info.isOptional()}};
}

Json jsonOf(const QLTStationPlan::Test& test, int number) {
  Json subTests = Json::array();
  for (const auto& info : test.subTests) {
    subTests.push_back(jsonOf(*info, static_cast<int>(subTests.size()) + 1));
  }
  return {{"number", number},
          {"displayName", orNull(test.displayName)},
          {"class", orNull(test.className)},
          {"ofFramework", isFrameworks(test)},
          {"retest", orNull(test.retest)},
          {"stopOnFail", orNull(test.stopOnFail)},
          {"timeLimit", orNull(test.timeLimit)},
          {"subTests", std::move(subTests)}};
}

Json jsonOf(const QLTStationPlan::Flow& flow, bool isDefault) {
  Json tests = Json::array();
  for (const QLTStationPlan::Test& test : flow.tests) {
    tests.push_back(jsonOf(test, static_cast<int>(tests.size()) + 1));
  }
  return {{"name", flow.name}, {"default", isDefault}, {"tests", std::move(tests)}};
}

}  // namespace

std::string asText(const Listing& listing) {
  std::string text = headText(listing);
  const QLTStationPlan& plan = listing.plan;
  for (const QLTStationPlan::Site& site : plan.sites) text += siteText(plan, site);
  if (plan.sites.empty()) text += "\n(no sites)\n";
  bool isDefaultThere = false;
  for (const QLTStationPlan::Flow& flow : plan.flows) {
    const bool isDefault = flow.name == plan.defaultFlow;
    isDefaultThere = isDefaultThere || isDefault;
    text += flowText(flow, isDefault);
  }
  if (plan.flows.empty()) text += "\n(no flows)\n";
  if (plan.defaultFlow && !isDefaultThere) {
    text += "\nThe default flow " + printable(*plan.defaultFlow) +
            " is not in the configuration; 'quillon check' tells whether the plug-in makes it.\n";
  }
  return text + (listing.instrumentClasses.empty()
                     ? "\nOf the plug-in only customizeConfig has run; no instrument was made."
                     : "\nOf the plug-in only customizeConfig and instrumentClasses have run; no "
                       "instrument was made.");
}

std::string asJson(const Listing& listing) {
  Json sites = Json::array();
  const QLTStationPlan& plan = listing.plan;
  for (const QLTStationPlan::Site& site : plan.sites) sites.push_back(jsonOf(plan, site));
  Json flows = Json::array();
  for (const QLTStationPlan::Flow& flow : plan.flows) {
    flows.push_back(jsonOf(flow, flow.name == plan.defaultFlow));
  }
  Json instrumentClasses = Json::array();
  for (const auto& described : listing.instrumentClasses) {
    instrumentClasses.push_back(jsonOf(described));
  }
  return textOf(
      Json{{"format", 1},
           {"bundle", listing.bundle.string()},
           {"identifier", listing.identifier},
           {"version", orNull(listing.version)},
           {"builtForFramework", listing.builtFor},
           {"runningFramework", listing.running},
           {"principalClass", listing.principalClass},
           {"hooks", listing.hooks},
           {"suiteClasses", listing.suiteClasses},
           {"methodClasses", listing.methodClasses},
           {"instrumentClasses", std::move(instrumentClasses)},
           {"testerConfig", plan.testerConfig ? Json(plan.testerConfig->string()) : Json(nullptr)},
           {"sites", std::move(sites)},
           {"defaultFlow", orNull(plan.defaultFlow)},
           {"flows", std::move(flows)}});
}

}  // namespace station
