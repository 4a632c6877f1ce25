#include "RunChoice.h"

#include <cstddef>
#include <vector>

#include "Text.h"
#include "reports/Request.h"
#include "results/Filter.h"

namespace station {

std::string idOfRun(const std::string& meant, results::Archive& archive) {
  constexpr std::size_t kMost = 5;
  std::vector<std::string> ids = archive.runsBeginning(meant, kMost);
  if (ids.empty()) {
    results::Filter filter;
    filter.serials = {meant};
    ids = archive.endedRuns(filter);
    if (!ids.empty()) return ids.back();
    throw reports::NoReport(
        "the store has no run " + printable(meant) + ", and none of that serial number",
        "'quillon results list' shows which runs there are.");
  }
  if (ids.size() == 1) return ids.front();
  throw reports::NoReport("several runs begin with " + printable(meant),
                          "They are " + listOf(ids) + (ids.size() == kMost ? " ..." : "") + ".");
}

}  // namespace station
