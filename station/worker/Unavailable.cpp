#include "Unavailable.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <string_view>
#include <utility>

#include <QLTError.h>
#include <QLTValue.h>

#include "Calibration.h"
#include "DeviceUsers.h"
#include "Text.h"

namespace station {
namespace {

const QLTDictionary& section(const QLTDictionary& dictionary, std::string_view key) {
  static const QLTDictionary none;
  const QLTValue* const value = dictionary.find(key);
  return value != nullptr && value->dictionary() != nullptr ? *value->dictionary() : none;
}

/// The device file that was busy, if that was the reason; else "". A record that wraps the
/// transport's has its code, but not the path.
std::string busyDevice(QLTError error) {
  for (; error; error = error.underlyingError()) {
    std::string path = error.userInfo().text("path", "");
    if (error.code() == EBUSY && !path.empty()) return path;
  }
  return "";
}

std::string failureText(const QLTDictionary& config, const std::string& name,
                        const QLTError& error) {
  std::string text = "instrument " + name;
  const QLTDictionary& entry = section(section(config, "Instruments"), name);
  for (const char* const place : {"bsdPath", "ip"}) {
    const QLTValue* const value = entry.find(place);
    if (value != nullptr) text += ", " + value->text();
  }
  text += ": " + describeWithCauses(error);
  const std::string device = busyDevice(error);
  if (!device.empty()) text += "; " + usersOfDevice(device);
  return text;
}

}  // namespace

std::set<std::string> instrumentsOf(const QLTDictionary& config, const std::string& site) {
  std::set<std::string> names;
  for (const auto& resource : section(section(section(config, "Sites"), site), "Resources")) {
    names.insert(resource.second.text());
  }
  return names;
}

QLTDictionary instrumentsOfSites(QLTestSiteManager& manager) {
  const QLTDictionary& config = manager.config();
  QLTDictionary sites;
  for (const std::string& site : manager.siteNames()) {
    QLTDictionary entries;
    for (const auto& [name, instrument] :
         section(section(section(config, "Sites"), site), "Resources")) {
      entries.set(name, section(section(config, "Instruments"), instrument.text()));
    }
    sites.set(site, std::move(entries));
  }
  return sites;
}

Unavailable unavailableSites(QLTestSiteManager& manager) {
  Unavailable sites;
  const QLTDictionary& config = manager.config();
  const std::vector<std::string>& disabled = manager.disabledSiteNames();
  for (const auto& entry : section(config, "Sites")) {
    const std::string& site = entry.first;
    if (manager.suiteForSite(site) ||
        std::find(disabled.begin(), disabled.end(), site) != disabled.end()) {
      continue;
    }
    std::vector<std::string>& causes = sites[site];
    for (const std::string& name : instrumentsOf(config, site)) {
      const auto failure = manager.instrumentFailures().find(name);
      if (failure != manager.instrumentFailures().end()) {
        causes.push_back(failureText(config, name, failure->second));
      } else if (!section(config, "Instruments").contains(name)) {
        causes.push_back("instrument " + name + " is not in " +
                         QLTestSiteManager::testerConfigPath().string());
      }
    }
  }
  return sites;
}

CalibrationNotes judgeCalibrations(QLTestSiteManager& manager, const std::string& override,
                                   Unavailable& unavailable) {
  using State = Calibration::State;
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  const QLTDictionary& config = manager.config();
  std::set<std::string> notes;
  std::set<std::string> overridden;
  for (const std::string& site : manager.siteNames()) {
    for (const std::string& name : instrumentsOf(config, site)) {
      const Calibration calibration =
          calibrationOf(section(section(config, "Instruments"), name), today);
      const std::string what = "the calibration of instrument " + name;
      if (calibration.state == State::Malformed) {
        unavailable[site].push_back(what + ": " + kCalibrationDue + " " + kCalibrationDueForm);
      } else if (calibration.state == State::DueSoon) {
        notes.insert(what + " is due on " + calibration.due);
      } else if (calibration.state == State::Overdue) {
        std::string text = what + " was due on " + calibration.due;
        if (override.empty()) {
          unavailable[site].push_back(text);
        } else {
          overridden.insert(text);
          notes.insert(text.append("; tested all the same, as ").append(override + " wants it"));
        }
      }
    }
  }
  return {{notes.begin(), notes.end()}, {overridden.begin(), overridden.end()}};
}

std::vector<std::string> unusedFailures(QLTestSiteManager& manager) {
  const QLTDictionary& config = manager.config();
  std::set<std::string> used;
  for (const auto& entry : section(config, "Sites")) used.merge(instrumentsOf(config, entry.first));
  std::vector<std::string> texts;
  for (const auto& [name, error] : manager.instrumentFailures()) {
    if (!used.contains(name)) texts.push_back(failureText(config, name, error));
  }
  return texts;
}

}  // namespace station
