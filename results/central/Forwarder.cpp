#include "Forwarder.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <utility>

#include "results/Clock.h"
#include "results/RunJson.h"
#include "results/Uuid.h"
#include "results/central/CentralSchema.h"
#include "results/central/CentralWriter.h"
#include "results/central/ForwardSource.h"
#include "results/central/ForwardState.h"

namespace results {
namespace {

/// Waits, unless it is stopped.
void pauseFor(std::chrono::milliseconds time, const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any stopped;
  std::unique_lock lock(mutex);
  stopped.wait_for(lock, stop, time, [] { return false; });
}

std::string nameOf(const Event& event) {
  return kEvent + std::to_string(event.sequence) + " of " + event.stationId;
}

}  // namespace

class Forwarder::Work {
 public:
  Work(ForwardOptions options, Tell tell)
      : options_(std::move(options)),
        tell_(std::move(tell)),
        lock_(options_.store),
        state_(options_.store, options_.server.name()) {
    status_.server = options_.server.name();
    status_.parked = state_.parkedCount();
    status_.reachedUs = state_.note().reachedUs;
  }

  void pass(const std::stop_token& stop);
  void follow(const std::stop_token& stop);
  const ForwardStatus& status() const { return status_; }

 private:
  /// A connection with what is known of the server on it.
  struct Link {
    Link(const ServerAddress& address, const Server::Limits& limits)
        : server(address, limits), writer(server) {}

    Server server;
    CentralWriter writer;
  };
  struct Batch {
    std::vector<Candidate> ended;
    std::optional<ForwardProgress> progress;
    std::vector<std::string> newlyPending;
  };

  void passOnce(const std::stop_token& stop);
  void connect(const std::stop_token& stop);
  void requireSameStores();
  std::vector<Batch> endedOfPending();
  Batch nextBatch();
  void offer(Batch batch);
  void send(const std::vector<const RunContent*>& runs, ForwardState::Step& step);
  void sendEvents(const std::stop_token& stop);
  void send(const std::vector<ForwardSource::NumberedEvent>& events);
  void countWaiting();
  void recountWaiting();
  void countOff(const std::vector<Candidate>& candidates);
  std::vector<StationWord> words();
  void hearIfDue();
  void park(ForwardState::Step& step, const std::string& id, const std::string& reason);
  void reached();
  void troubled(const std::string& reason);
  void tell() {
    if (tell_) tell_(status_);
  }

  const ForwardOptions options_;
  const Tell tell_;
  const ForwardLock lock_;
  ForwardState state_;
  ForwardStatus status_;
  ForwardProgress progress_;
  std::optional<ForwardSource> source_;
  std::unique_ptr<Link> link_;
  std::map<std::string, WaitingRuns> waiting_;  // by station
  std::chrono::steady_clock::time_point heard_{};
  bool hasSent_ = false;  // since the last error
};

void Forwarder::Work::connect(const std::stop_token& stop) {
  if (link_) return;
  Server::Limits limits = options_.limits;
  limits.stop = stop;
  link_ = std::make_unique<Link>(options_.server, limits);
  requireSameStores();
}

/// Begins anew where the store is another one, or the server has lost what it had: it was set up
/// again, or from a copy of an earlier day.
void Forwarder::Work::requireSameStores() {
  bool isSame = progress_.runRow == 0 || source_->isAt(progress_.runRow, progress_.runId);
  if (isSame && link_ && !progress_.lastSent.empty() &&
      link_->writer.sums({progress_.lastSent}).empty()) {
    const auto idUs = timeOfUuid(progress_.lastSent);
    isSame = idUs && !link_->writer.makeMonth(progress_.lastSent, *idUs, *idUs);
  }
  if (isSame) return;
  state_.startAnew();
  progress_ = state_.progress();
  status_.parked = 0;
}

void Forwarder::Work::pass(const std::stop_token& stop) {
  try {
    passOnce(stop);
  } catch (const ServerError& error) {
    if (error.state() != kNoRight) throw;
    throw ServerError(std::string("its role may not add results: ") + error.what() + " ('GRANT " +
                          kStationRole + " TO' that role by the database's owner allows it)",
                      error.state());
  }
}

void Forwarder::Work::passOnce(const std::stop_token& stop) {
  source_.emplace(options_.store);
  progress_ = state_.progress();
  if (link_) link_->writer.forgetMonths();
  requireSameStores();
  countWaiting();
  connect(stop);
  countWaiting();
  tell();
  for (Batch& batch : endedOfPending()) {
    offer(std::move(batch));
    tell();
  }
  while (!stop.stop_requested()) {
    Batch batch = nextBatch();
    if (!batch.progress) break;
    offer(std::move(batch));
    tell();
  }
  sendEvents(stop);
  hearIfDue();
  reached();
  tell();
}

/// Those that have ended since they were passed.
std::vector<Forwarder::Work::Batch> Forwarder::Work::endedOfPending() {
  std::vector<Batch> batches;
  std::int64_t records = 0;
  ForwardState::Step gone;
  for (const std::string& id : state_.pending()) {
    if (id.starts_with(kEvent)) {
      progress_.eventRow = 0;  // the server knows which of them it has
      gone.progress = progress_;
      gone.done.push_back(id);
      continue;
    }
    const auto candidate = source_->candidate(id);
    if (!candidate) {
      gone.done.push_back(id);
    } else if (candidate->hasEnded) {
      if (batches.empty() || batches.back().ended.size() == options_.batchRuns ||
          records + candidate->records > options_.batchRecords) {
        batches.emplace_back();
        records = 0;
      }
      records += candidate->records;
      batches.back().ended.push_back(*candidate);
    }
  }
  if (!gone.done.empty()) state_.enter(gone);
  return batches;
}

Forwarder::Work::Batch Forwarder::Work::nextBatch() {
  Batch batch;
  std::int64_t records = 0;
  for (Candidate& candidate : source_->after(progress_.runRow, options_.batchRuns)) {
    if (records > 0 && records + candidate.records > options_.batchRecords) break;
    if (!batch.progress) batch.progress = progress_;
    batch.progress->runRow = candidate.row;
    batch.progress->runId = candidate.id;
    if (!candidate.hasEnded) {
      batch.newlyPending.push_back(candidate.id);
      continue;
    }
    records += candidate.records;
    batch.ended.push_back(std::move(candidate));
  }
  return batch;
}

void Forwarder::Work::offer(Batch batch) {
  ForwardState::Step step;
  step.progress = batch.progress;
  step.newlyPending = std::move(batch.newlyPending);
  CentralWriter& writer = link_->writer;
  // With another id the server could not even be asked about those beside it.
  std::vector<std::string> ids;
  for (const Candidate& candidate : batch.ended) {
    if (timeOfUuid(candidate.id)) ids.push_back(candidate.id);
  }
  const auto there = writer.sums(ids);
  countOff(batch.ended);

  std::vector<RunContent> contents;
  for (const Candidate& candidate : batch.ended) {
    const auto found = there.find(candidate.id);
    if (found != there.end()) {
      if (found->second && found->second == candidate.sha256) {
        step.done.push_back(candidate.id);
      } else {
        park(step, candidate.id,
             "ALARM: the server has a run of this id with another content, which stays as it is");
      }
      continue;
    }
    try {
      const auto idUs = timeOfUuid(candidate.id);
      if (!idUs) throw NoRun("its id tells no time");
      if (!writer.makeMonth(candidate.id, *idUs, candidate.startedUs)) {
        step.done.push_back(candidate.id);  // nobody wants it any more
        continue;
      }
      contents.push_back(source_->run(candidate.id));
    } catch (const NoRun& problem) {
      park(step, candidate.id, problem.what());
    } catch (const ServerError& error) {
      if (!error.isOfData()) throw;
      park(step, candidate.id, std::string("the server refuses it: ") + error.what());
    }
  }
  std::vector<const RunContent*> runs;
  runs.reserve(contents.size());
  for (const RunContent& content : contents) runs.push_back(&content);
  if (!runs.empty()) send(runs, step);

  if (!step.done.empty()) {
    if (!step.progress) step.progress = progress_;
    step.progress->lastSent = step.done.back();
  }
  if (step.progress) progress_ = *step.progress;
  state_.enter(step);
  status_.parked = state_.parkedCount();
  hasSent_ = true;
}

/// Sends runs together; where one of them is at fault, finds it, and sends the others.
void Forwarder::Work::send(const std::vector<const RunContent*>& runs, ForwardState::Step& step) {
  std::string fault;
  try {
    const std::set<std::string> added = link_->writer.add(runs, *source_, words());
    heard_ = std::chrono::steady_clock::now();
    std::vector<std::string> others;
    for (const RunContent* run : runs) {
      (added.contains(run->run.id) ? step.done : others).push_back(run->run.id);
    }
    status_.sent += static_cast<std::int64_t>(added.size());
    // Another forwarder was faster; the next look compares the sums.
    for (std::string& id : others) step.newlyPending.push_back(std::move(id));
    return;
  } catch (const NoRun& problem) {
    fault = problem.what();
  } catch (const ServerError& error) {
    if (!error.isOfData()) throw;
    fault = std::string("the server refuses it: ") + error.what();
  }
  if (runs.size() == 1) {
    park(step, runs.front()->run.id, fault);
    return;
  }
  const auto middle = runs.begin() + static_cast<std::ptrdiff_t>(runs.size() / 2);
  send({runs.begin(), middle}, step);
  send({middle, runs.end()}, step);
}

void Forwarder::Work::sendEvents(const std::stop_token& stop) {
  constexpr std::size_t kEvents = 1000;
  while (!stop.stop_requested()) {
    const auto events = source_->eventsAfter(progress_.eventRow, kEvents);
    if (events.empty()) return;
    send(events);
    progress_.eventRow = events.back().row;
    ForwardState::Step step;
    step.progress = progress_;
    state_.enter(step);
  }
}

void Forwarder::Work::send(const std::vector<ForwardSource::NumberedEvent>& events) {
  std::string fault;
  try {
    std::vector<Event> rows;
    rows.reserve(events.size());
    for (const auto& each : events) rows.push_back(each.event);
    link_->writer.add(rows);
    if (status_.parked > 0) {
      ForwardState::Step step;
      for (const Event& event : rows) step.done.push_back(nameOf(event));
      state_.enter(step);
      status_.parked = state_.parkedCount();
    }
    return;
  } catch (const NoRun& problem) {
    fault = problem.what();
  } catch (const ServerError& error) {
    if (!error.isOfData()) throw;
    fault = std::string("the server refuses it: ") + error.what();
  }
  if (events.size() == 1) {
    ForwardState::Step step;
    park(step, nameOf(events.front().event), fault);
    state_.enter(step);
    status_.parked = state_.parkedCount();
    return;
  }
  const auto middle = events.begin() + static_cast<std::ptrdiff_t>(events.size() / 2);
  send({events.begin(), middle});
  send({middle, events.end()});
}

void Forwarder::Work::countWaiting() {
  waiting_.clear();
  for (WaitingRuns& runs : source_->waiting(progress_.runRow)) {
    waiting_.emplace(runs.stationId, std::move(runs));
  }
  for (const std::string& id : state_.pending()) {
    const auto candidate = source_->candidate(id);
    if (!candidate || !candidate->hasEnded) continue;
    WaitingRuns& runs = waiting_[candidate->stationId];
    ++runs.count;
    runs.oldestEndedUs = std::min(runs.oldestEndedUs.value_or(INT64_MAX), candidate->endedUs);
  }
  countOff({});
}

/// After an error: what was under way was not sent.
void Forwarder::Work::recountWaiting() {
  if (!source_) return;
  try {
    countWaiting();
  } catch (const StoreError&) {
    // The store may be what is at fault; then the last count stands.
  }
}

/// What waits when these are sent.
void Forwarder::Work::countOff(const std::vector<Candidate>& candidates) {
  for (const Candidate& candidate : candidates) {
    WaitingRuns& runs = waiting_[candidate.stationId];
    // The others began later, and most of them ended later.
    runs.count = std::max<std::int64_t>(0, runs.count - 1);
    runs.oldestEndedUs = candidate.endedUs;
  }
  status_.waiting = 0;
  status_.oldestEndedUs.reset();
  for (auto& [station, runs] : waiting_) {
    if (runs.count == 0) runs.oldestEndedUs.reset();
    status_.waiting += runs.count;
    if (runs.count > 0 && runs.oldestEndedUs) {
      status_.oldestEndedUs =
          std::min(status_.oldestEndedUs.value_or(INT64_MAX), *runs.oldestEndedUs);
    }
  }
}

std::vector<StationWord> Forwarder::Work::words() {
  std::vector<StationWord> words;
  const std::int64_t now = microsecondsNow();
  for (Station& station : source_->ownStations()) {
    const WaitingRuns& runs = waiting_[station.id];
    StationWord& word = words.emplace_back();
    word.station = std::move(station);
    word.nowUs = now;
    word.waiting = runs.count;
    if (runs.oldestEndedUs) word.oldestAgeUs = std::max<std::int64_t>(0, now - *runs.oldestEndedUs);
    word.parked = status_.parked;
    word.version = options_.version;
  }
  return words;
}

void Forwarder::Work::hearIfDue() {
  const auto now = std::chrono::steady_clock::now();
  if (heard_ != std::chrono::steady_clock::time_point{} && now - heard_ < options_.heartbeat) {
    return;
  }
  for (const StationWord& word : words()) link_->writer.hear(word);
  heard_ = now;
}

void Forwarder::Work::park(ForwardState::Step& step, const std::string& id,
                           const std::string& reason) {
  step.parked.push_back({id, reason, microsecondsNow()});
}

void Forwarder::Work::reached() {
  constexpr std::int64_t kMinute = 60'000'000;
  const std::int64_t now = microsecondsNow();
  const bool wasTroubled = !status_.trouble.empty();
  // A clock that was set back has left a time to come.
  const bool isOld = now < status_.reachedUs || now - status_.reachedUs > kMinute;
  status_.trouble.clear();
  status_.sinceUs = 0;
  status_.reachedUs = now;
  if (wasTroubled || isOld) state_.enter(ForwardNote{now, "", 0, now});
}

void Forwarder::Work::troubled(const std::string& reason) {
  const std::int64_t now = microsecondsNow();
  if (status_.trouble.empty()) status_.sinceUs = now;
  const bool isNew = status_.trouble != reason;
  status_.trouble = reason;
  tell();
  if (!isNew) return;
  try {
    state_.enter(ForwardNote{now, reason, status_.sinceUs, status_.reachedUs});
  } catch (const StoreError&) {
    // Only those who ask from another process do not learn it.
  }
}

void Forwarder::Work::follow(const std::stop_token& stop) {
  std::mt19937 random(std::random_device{}());
  std::uniform_real_distribution<double> jitter(0.5, 1.0);
  std::chrono::milliseconds pause = options_.firstPause;
  while (!stop.stop_requested()) {
    hasSent_ = false;
    if (!std::filesystem::exists(options_.store)) {  // the station has not begun yet
      pauseFor(options_.look, stop);
      continue;
    }
    std::string reason;
    try {
      pass(stop);
      pause = options_.firstPause;
      source_.reset();
      pauseFor(options_.look, stop);
      continue;
    } catch (const ServerError& error) {
      reason = error.what();
    } catch (const StoreError& error) {
      reason = error.what();
    }
    link_.reset();
    recountWaiting();
    source_.reset();
    if (stop.stop_requested()) break;
    if (hasSent_) pause = options_.firstPause;
    troubled(reason);
    // Each at another moment: the server of two hundred stations has just come back.
    pauseFor(std::chrono::milliseconds(
                 static_cast<std::int64_t>(static_cast<double>(pause.count()) * jitter(random))),
             stop);
    pause = std::min(2 * pause, options_.longestPause);
  }
}

Forwarder::Forwarder(ForwardOptions options, Tell tell)
    : work_(std::make_unique<Work>(std::move(options), std::move(tell))) {}

Forwarder::~Forwarder() = default;

void Forwarder::pass(const std::stop_token& stop) { work_->pass(stop); }

void Forwarder::follow(const std::stop_token& stop) { work_->follow(stop); }

const ForwardStatus& Forwarder::status() const { return work_->status(); }

}  // namespace results
