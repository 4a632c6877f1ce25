#include "Stations.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "reports/Format.h"

namespace reports {
namespace {

using results::StationState;

constexpr std::int64_t microseconds(std::chrono::microseconds time) { return time.count(); }

// A run is here some seconds after its end. What waits longer than this is late.
constexpr std::int64_t kLate = microseconds(std::chrono::minutes(15));
// A station that works says so at least each minute.
constexpr std::int64_t kSilent = microseconds(std::chrono::hours(1));
// Nobody waits for one that went with nothing left to send.
constexpr std::int64_t kGone = microseconds(std::chrono::hours(24 * 30));

bool isMeant(const StationState& station, const results::Filter& filter) {
  const auto& wanted = filter.stations;
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), station.name) != wanted.end() ||
         std::find(wanted.begin(), wanted.end(), station.id) != wanted.end();
}

bool isHeardOf(const StationState& station, std::int64_t now) {
  return station.heardUs && now - *station.heardUs <= kGone;
}

bool isGone(const StationState& station, std::int64_t now) {
  return station.heardUs && !isHeardOf(station, now) && station.waiting == 0 && station.parked == 0;
}

bool isBehind(const StationState& station, std::int64_t now) {
  if (!station.heardUs) return false;  // its runs came another way, as a copy
  const bool waitsLong =
      station.waiting > 0 && now - station.oldestUs.value_or(*station.heardUs) > kLate;
  return waitsLong || station.parked > 0 || now - *station.heardUs > kSilent;
}

std::string noteOf(const LateStation& station) {
  std::string text = station.name + " is behind: ";
  if (station.waiting > 0) {
    text += counted(station.waiting, "run") + (station.waiting == 1 ? " waits" : " wait");
    if (station.oldestUs) {
      text += (station.waiting == 1 ? ", since " : ", the oldest since ") +
              localTime(*station.oldestUs);
    }
    text += ", ";
  }
  if (station.parked > 0) {
    text += counted(station.parked, "run") + " parked until a person decides, ";
  }
  return text + "last heard of " + localTime(*station.heardUs) + ".";
}

std::string listOf(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

void addStations(Report& report, results::ReportQueries& queries, const results::Filter& filter) {
  const auto states = queries.stationStates();
  if (!states) return;
  std::vector<std::string> notes;
  std::vector<std::string> gone;
  std::map<std::string, int> named;  // how many stations of a name there are
  std::map<std::string, std::int64_t> heardOf;
  for (const StationState& station : states->stations) ++named[station.name];
  for (const StationState& station : states->stations) {
    if (!isMeant(station, filter)) continue;
    if (isHeardOf(station, states->nowUs)) ++heardOf[station.name];
    const std::string name =
        named[station.name] == 1 ? station.name : station.name + " (" + station.id + ")";
    if (isGone(station, states->nowUs)) {
      gone.push_back(name);
    } else if (isBehind(station, states->nowUs)) {
      report.behind.push_back(
          {name, station.waiting, station.oldestUs, station.heardUs, station.parked});
      notes.push_back(noteOf(report.behind.back()));
    }
  }
  for (const auto& [name, count] : heardOf) {
    if (count < 2) continue;
    notes.push_back(counted(count, "station") + " on different computers have the name " + name +
                    ": tables by station count them as one, and --station with an id tells them "
                    "apart.");
  }
  if (!gone.empty()) {
    notes.push_back("Not heard of for a month, with nothing left to send: " + listOf(gone) + ".");
  }
  if (const auto months = queries.droppedMonths(filter); !months.empty()) {
    notes.push_back("Taken out of the store: " + listOf(months) +
                    " (year and month). What ran then is not counted, and a unit that came back "
                    "later counts as new.");
  }
  report.notes.insert(report.notes.begin(), std::make_move_iterator(notes.begin()),
                      std::make_move_iterator(notes.end()));
}

}  // namespace reports
