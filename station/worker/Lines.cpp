#include "Lines.h"

#include <exception>
#include <memory>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTHasIdentity.h>
#include <QLTHold.h>
#include <QLTMakesSafe.h>
#include <QLTReopenable.h>

#include "Text.h"

namespace station {
namespace {

constexpr double kHoldSeconds = 1;

/// Gives each instrument that has lost its line to `function`, until that has something to say.
template <typename Function>
std::optional<std::string> firstOfLost(const QLTestSuite& suite, Function&& function) {
  if (!suite.resources()) return std::nullopt;
  for (const auto& [name, resource] : QLTResources(*suite.resources())) {
    const auto line = std::dynamic_pointer_cast<QLTReopenable>(resource);
    if (!line) continue;
    const QLTHold hold = QLTHold::take(resource, name, suite.siteName(), kHoldSeconds);
    if (!hold || !line->isLost()) continue;
    if (auto text = function(name + ", " + line->where(), *line)) return text;
  }
  return std::nullopt;
}

/// Before anything is asked: one that does not answer may take all the time that there is. One that
/// another site holds is waited for later.
void tellInstrumentsSafe(const QLTestSuite& suite, const QLTResources& resources) {
  for (const auto& [name, resource] : resources) {
    const auto instrument = std::dynamic_pointer_cast<QLTMakesSafe>(resource);
    if (!instrument) continue;
    const QLTHold hold = QLTHold::take(resource, name, suite.siteName(), 0);
    if (!hold) continue;
    try {
      instrument->tellSafe();
    } catch (const std::exception& exception) {
      QLTLog(name + " cannot be told to be safe: " + exception.what());
    } catch (...) {
      QLTLog(name + " cannot be told to be safe");
    }
  }
}

}  // namespace

std::optional<std::string> lostLine(const QLTestSuite& suite) {
  return firstOfLost(suite, [](const std::string& name, QLTReopenable&) {
    return std::optional<std::string>(name);
  });
}

std::optional<std::string> reopenLines(const QLTestSuite& suite) {
  return firstOfLost(suite, [](const std::string& name, QLTReopenable& line) {
    QLTError error;
    if (line.reopen(&error)) {
      QLTLog("opened again: " + name);
      return std::optional<std::string>();
    }
    return std::optional<std::string>(name + ": " + (error ? describe(error) : "does not open"));
  });
}

void learnIdentities(const QLTestSuite& suite, QLTDictionary& known) {
  if (!suite.resources()) return;
  for (const auto& [name, resource] : QLTResources(*suite.resources())) {
    const auto instrument = std::dynamic_pointer_cast<QLTHasIdentity>(resource);
    if (!instrument) continue;
    const QLTHold hold = QLTHold::take(resource, name, suite.siteName(), 0);
    if (!hold) continue;
    QLTIdentity who;
    try {
      who = instrument->who();
    } catch (const std::exception& exception) {
      QLTLog(name + " does not tell who it is: " + exception.what());
    } catch (...) {
      QLTLog(name + " does not tell who it is");
    }
    QLTDictionary identity;
    for (const auto& [part, text] :
         {std::pair("vendor", &who.vendor), std::pair("model", &who.model),
          std::pair("serial", &who.serial), std::pair("firmware", &who.firmware)}) {
      if (!text->empty()) identity.set(part, *text);
    }
    known.set(name, std::move(identity));
  }
}

std::optional<std::string> makeInstrumentsSafe(const QLTestSuite& suite) {
  std::optional<std::string> problems;
  if (!suite.resources()) return problems;
  const QLTResources resources(*suite.resources());
  tellInstrumentsSafe(suite, resources);
  for (const auto& [name, resource] : resources) {
    const auto instrument = std::dynamic_pointer_cast<QLTMakesSafe>(resource);
    if (!instrument) continue;
    const auto line = std::dynamic_pointer_cast<QLTReopenable>(resource);
    const QLTHold hold = QLTHold::take(resource, name, suite.siteName(), kHoldSeconds);
    QLTError error;
    std::string reason = "another site holds it";
    if (hold) {
      if (instrument->makeSafe(&error)) continue;
      reason = error ? describe(error) : "it does not say why";
    }
    if (problems) {
      *problems += "; ";
    } else {
      problems.emplace();
    }
    *problems += name;
    if (line) *problems += ", " + line->where();
    *problems += ", cannot be made safe: " + reason;
  }
  return problems;
}

}  // namespace station
