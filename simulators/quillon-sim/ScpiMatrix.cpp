#include "ScpiMatrix.h"

#include <iterator>
#include <utility>
#include <vector>

#include "Problem.h"

namespace sim {
namespace {

bool exists(int relay) { return (relay > 100 && relay <= 132) || (relay > 200 && relay <= 232); }

/// All of a list, before any of them is switched.
std::vector<int> relaysIn(const ScpiParameters& parameters) {
  std::vector<int> relays = scpiListIn(parameters.front());
  for (const int relay : relays) {
    if (!exists(relay)) throw ScpiError{-222};
  }
  return relays;
}

int known(int relay) {
  if (!exists(relay)) throw Problem("the matrix has no relay " + std::to_string(relay));
  return relay;
}

}  // namespace

ScpiMatrix::ScpiMatrix(ReplyTable replies, std::string lineEnd, std::string identity)
    : ScpiDevice(std::move(replies), std::move(lineEnd), std::move(identity)) {
  addCommands();
}

void ScpiMatrix::setStuck(int relay) { stuck_.insert(known(relay)); }

void ScpiMatrix::setClosed(int relay) { closed_.insert(known(relay)); }

void ScpiMatrix::addCommands() {
  addForEach("[ROUTe]:CLOSe", [this](int relay) { close(relay); });
  addForEach("[ROUTe]:OPEN", [this](int relay) { open(relay); });
  addAction("[ROUTe]:OPEN:ALL", [this] { openAll(); });
  add("[ROUTe]:CLOSe:EXCLusive", 1, 1, [this](const Parameters& parameters) {
    const std::vector<int> relays = relaysIn(parameters);
    openAll();
    for (const int relay : relays) close(relay);
    return std::nullopt;
  });
  addQuestion("[ROUTe]:CLOSe?", true);
  addQuestion("[ROUTe]:OPEN?", false);
  addQuery("[ROUTe]:CLOSe:STATe?", [this] {
    std::string list;
    for (const int relay : closed_) list += (list.empty() ? "" : ",") + std::to_string(relay);
    return "(@" + list + ')';
  });
}

void ScpiMatrix::addForEach(const std::string& pattern, const std::function<void(int)>& act) {
  add(pattern, 1, 1, [act](const Parameters& parameters) {
    for (const int relay : relaysIn(parameters)) act(relay);
    return std::nullopt;
  });
}

void ScpiMatrix::addQuestion(const std::string& pattern, bool whenClosed) {
  add(pattern, 1, 1, [this, whenClosed](const Parameters& parameters) {
    std::string answer;
    for (const int relay : relaysIn(parameters)) {
      answer += (answer.empty() ? "" : ",") + scpiSwitch(closed_.contains(relay) == whenClosed);
    }
    return answer;
  });
}

void ScpiMatrix::close(int relay) {
  if (!stuck_.contains(relay)) closed_.insert(relay);
}

void ScpiMatrix::open(int relay) {
  if (!stuck_.contains(relay)) closed_.erase(relay);
}

void ScpiMatrix::openAll() {
  for (auto relay = closed_.begin(); relay != closed_.end();) {
    relay = stuck_.contains(*relay) ? std::next(relay) : closed_.erase(relay);
  }
}

}  // namespace sim
