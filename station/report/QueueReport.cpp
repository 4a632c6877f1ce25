#include "QueueReport.h"

#include <optional>
#include <string>

#include "Text.h"
#include "forward/ForwardText.h"

namespace station {
namespace {

using reports::Kind;
using reports::Table;

std::optional<std::int64_t> timeOf(std::int64_t us) {
  return us == 0 ? std::nullopt : std::optional(us);
}

std::optional<std::string> textOf(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

}  // namespace

reports::Report queueReport(const std::filesystem::path& store,
                            const std::vector<results::ForwardQueue>& queues) {
  Table servers{"servers",
                "Servers",
                {{"server", "Server"},
                 {"waiting", "Waiting", Kind::Count},
                 {"oldest", "Oldest ended", Kind::Time},
                 {"parked", "Parked", Kind::Count},
                 {"reached", "Last answered", Kind::Time},
                 {"since", "Trouble since", Kind::Time},
                 {"trouble", "Trouble"}},
                {}};
  Table parked{"parked",
               "Parked runs",
               {{"run", "Run"},
                {"serial", "Serial number"},
                {"at", "Parked", Kind::Time},
                {"server", "Server"},
                {"reason", "Reason"}},
               {}};
  for (const results::ForwardQueue& queue : queues) {
    const results::ForwardStatus& status = queue.status;
    servers.rows.push_back({status.server, status.waiting, status.oldestEndedUs, status.parked,
                            timeOf(status.reachedUs), timeOf(status.sinceUs),
                            textOf(status.trouble)});
    for (const results::ParkedRun& run : queue.parked) {
      parked.rows.push_back({run.parked.runId, textOf(run.serial), run.parked.atUs, status.server,
                             run.parked.reason});
    }
  }
  reports::Report report;
  report.name = "queue";
  report.title = "Forwarding";
  report.about = {{"Store", printable(store.string())}};
  if (queues.empty()) {
    report.notes = {"This store was never forwarded; 'quillon forward' does it."};
  }
  for (const results::ForwardQueue& queue : queues) {  // a table has no place for long reasons
    if (!queue.status.trouble.empty()) report.notes.push_back(troubleText(queue.status));
  }
  report.tables = {std::move(servers)};
  if (!parked.rows.empty()) {
    report.tables.push_back(std::move(parked));
    report.notes.emplace_back(
        "A parked run stays in this store. 'quillon results show RUN' tells of it, and when its "
        "cause is removed, 'quillon results retry RUN' has it sent.");
  }
  return report;
}

}  // namespace station
