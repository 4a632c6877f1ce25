#include "ForwardQueue.h"

#include <algorithm>

#include "results/Queries.h"
#include "results/central/ForwardSource.h"

namespace results {

std::vector<ForwardQueue> forwardQueues(const std::filesystem::path& store) {
  std::vector<ForwardQueue> queues;
  ForwardSource source(store);
  Queries queries(store);
  for (const std::string& server : ForwardState::serversOf(store)) {
    ForwardState state(store, server, ForwardState::Access::Read);
    ForwardQueue& queue = queues.emplace_back();
    const ForwardNote note = state.note();
    queue.status.server = server;
    queue.status.trouble = note.trouble;
    queue.status.sinceUs = note.sinceUs;
    queue.status.reachedUs = note.reachedUs;
    const auto wait = [&](std::int64_t count, std::int64_t endedUs) {
      queue.status.waiting += count;
      queue.status.oldestEndedUs =
          std::min(queue.status.oldestEndedUs.value_or(INT64_MAX), endedUs);
    };
    for (const WaitingRuns& runs : source.waiting(state.progress().runRow)) {
      wait(runs.count, runs.oldestEndedUs.value_or(INT64_MAX));
    }
    for (const std::string& id : state.pending()) {
      const auto candidate = source.candidate(id);
      if (candidate && candidate->hasEnded) wait(1, candidate->endedUs);
    }
    for (Parked& parked : state.parked()) {
      std::string serial;
      try {
        const auto run = queries.run(parked.runId);
        if (run) serial = run->run.serial;
      } catch (const StoreError&) {
        // It may be parked because it cannot be read.
      }
      queue.parked.push_back({std::move(parked), std::move(serial)});
    }
    queue.status.parked = static_cast<std::int64_t>(queue.parked.size());
  }
  return queues;
}

}  // namespace results
