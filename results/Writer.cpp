#include "Writer.h"

#include <chrono>
#include <exception>
#include <map>
#include <utility>
#include <variant>

#include "results/Clock.h"

namespace results {
namespace {

// Full at some 20 MB.
constexpr std::size_t kMostQueued = 16384;
// What nobody waits for is kept back so long, so that slow records share a flush of the disk.
constexpr std::chrono::milliseconds kGathering{20};
// Of the database's log: 4 MB, and what it may grow to while there is no good moment.
constexpr int kLogPages = 1000;
constexpr int kMostLogPages = 16000;

}  // namespace

Writer::Writer(BatchWriter& batches, std::string file)
    : batches_(batches), file_(std::move(file)), thread_([this] { work(); }) {}

Writer::~Writer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    retrying_ = !abandoned_.empty();
  }
  queued_.notify_all();
  thread_.join();
}

void Writer::add(Change change) {
  std::unique_lock lock(mutex_);
  if (!admit(change)) return;
  push(lock, std::move(change), nullptr);
}

void Writer::addAndWait(Change change) {
  std::unique_lock lock(mutex_);
  const std::string runId = change.runId;
  if (!admit(change)) {
    const std::optional<StoreError> error = runs_.at(runId).failure;
    if (auto* finish = std::get_if<FinishRun>(&change.what)) {
      abandon(runId, *error, std::move(finish->end));
      retrying_ = true;
      queued_.notify_one();
    }
    throw StoreError(*error);
  }
  Waiter waiter;
  push(lock, std::move(change), &waiter);
  changed_.wait(lock, [&] { return waiter.done; });
  if (waiter.error) throw StoreError(*waiter.error);
}

/// Whether the change can be written; not when its run has lost something.
bool Writer::admit(Change& change) {
  if (change.runId.empty()) return true;
  if (std::holds_alternative<BeginRun>(change.what)) {
    runs_.try_emplace(change.runId);
    return true;
  }
  const auto found = runs_.find(change.runId);
  if (found == runs_.end()) {
    throw StoreError(file_, "the run " + change.runId + " is not in progress");
  }
  RunState& run = found->second;
  if (run.failure) return false;
  if (std::holds_alternative<AddMeasurement>(change.what)) ++run.records;
  if (auto* finish = std::get_if<FinishRun>(&change.what)) finish->records = run.records;
  return true;
}

void Writer::hurry(const std::string& runId) {
  const std::lock_guard lock(mutex_);
  if (queue_.empty()) return;
  hurried_ = runId;
  queued_.notify_one();
}

void Writer::expectEnd(const std::string& runId) {
  const std::lock_guard lock(mutex_);
  if (queue_.empty()) return;
  expected_ = runId;
  queued_.notify_one();
}

void Writer::flush(const std::string& runId) {
  hurry(runId);
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this, last = added_] { return settled_ >= last; });
  const auto run = runs_.find(runId);
  if (run == runs_.end()) throw StoreError(file_, "the run " + runId + " is not in progress");
  if (run->second.failure) throw StoreError(*run->second.failure);
}

void Writer::push(std::unique_lock<std::mutex>& lock, Change change, Waiter* waiter) {
  changed_.wait(lock, [&] { return queue_.size() < kMostQueued; });
  queue_.push_back({std::move(change), waiter});
  ++added_;
  if (waiter != nullptr) ++waiting_;
  if (waiter != nullptr || queue_.size() == 1 || queue_.size() == kMostQueued / 2) {
    queued_.notify_one();
  }
}

/// Whether what is queued is to be made durable at once.
bool Writer::isUrgent() const {
  return waiting_ > 0 || !hurried_.empty() || retrying_ || ending_ ||
         queue_.size() >= kMostQueued / 2;
}

void Writer::work() {
  std::unique_lock lock(mutex_);
  while (!ending_ || !queue_.empty() || retrying_) {
    queued_.wait(lock, [&] { return !queue_.empty() || retrying_ || ending_; });
    queued_.wait_for(lock, kGathering, [&] { return isUrgent() || !expected_.empty(); });
    Batch batch = take();
    changed_.notify_all();  // there is room
    lock.unlock();
    write(batch);
    lock.lock();
    settle(batch);
    settled_ = batch.last;
    changed_.notify_all();
    const bool isBusy = !queue_.empty();
    lock.unlock();
    if (!batch.hurried.empty()) batches_.readAhead(batch.hurried);
    checkpoint(batch, isBusy);
    lock.lock();
  }
}

/// Tends the database's log at a moment when hardly anybody waits: a device has its verdict. While
/// one is tested its verdict may be due next, and would come so much later.
void Writer::checkpoint(const Batch& batch, bool isBusy) {
  bool isGood = false;
  for (const Request& request : batch.requests) {
    if (request.waiter == nullptr) continue;
    isGood = std::holds_alternative<FinishRun>(request.change.what);
    if (!isGood) break;
  }
  isGood = isGood && !isBusy && batch.hurried.empty();
  batches_.checkpointFrom(isGood ? kLogPages : kMostLogPages);
}

/// Everything that is to be written now. What belongs to a run that has lost something since it was
/// queued is settled with the reason.
Writer::Batch Writer::take() {
  Batch batch;
  for (Change& change : abandoned_) batch.requests.push_back({std::move(change), nullptr});
  abandoned_.clear();
  if (!isUrgent()) batch.expected = expected_;  // else somebody would wait for somebody else's end
  retrying_ = false;
  takeQueue(batch);
  return batch;
}

void Writer::takeQueue(Batch& batch) {
  for (Request& request : queue_) batch.requests.push_back(std::move(request));
  queue_.clear();
  waiting_ = 0;
  batch.last = added_;
  batch.hurried = std::exchange(hurried_, "");
  expected_.clear();
  for (std::size_t i = batch.errors.size(); i < batch.requests.size(); ++i) {
    const auto run = runs_.find(batch.requests[i].change.runId);
    const bool isLost = run != runs_.end() && run->second.failure;
    batch.errors.push_back(isLost ? run->second.failure : StoreError(file_, "was not written"));
    if (!isLost) batch.writable.push_back(i);
  }
}

/// Takes what is queued in the next moment into the same transaction: the end of a run belongs to
/// what it ends, and needs no flush of the disk of its own.
void Writer::join(Batch& batch, const BatchWriter::Sink& sink) {
  sink({std::exchange(batch.expected, ""), PrepareEnd{}});
  const std::size_t first = batch.writable.size();
  {
    std::unique_lock lock(mutex_);
    queued_.wait_for(lock, kGathering, [&] { return isUrgent(); });
    takeQueue(batch);
  }
  changed_.notify_all();  // there is room
  for (std::size_t i = first; i < batch.writable.size(); ++i) {
    sink(batch.requests[batch.writable[i]].change);
  }
}

void Writer::write(Batch& batch) {
  if (batch.writable.empty() || writeTogether(batch, batch.writable)) return;
  batch.expected.clear();  // another run's row must not join any more
  // One run's rows that contradict each other are no fault of the other runs.
  std::map<std::string, std::vector<std::size_t>> groups;
  for (const std::size_t i : batch.writable) {
    const std::string& runId = batch.requests[i].change.runId;
    groups[runId.empty() ? std::to_string(i) : runId].push_back(i);
  }
  for (const auto& [name, group] : groups) writeTogether(batch, group);
}

/// Writes some requests of a batch in one transaction, with what joined it, and enters what came of
/// them. False when a row was refused, which another division may make good.
bool Writer::writeTogether(Batch& batch, const std::vector<std::size_t>& which) {
  std::optional<StoreError> error;
  bool refused = false;
  try {
    batches_.write([&](const BatchWriter::Sink& sink) {
      for (const std::size_t i : which) sink(batch.requests[i].change);
      if (!batch.expected.empty()) join(batch, sink);
    });
  } catch (const RowError& thrown) {
    error = thrown;
    refused = true;
  } catch (const StoreError& thrown) {
    error = thrown;
  } catch (const std::exception& thrown) {
    error = StoreError(file_, thrown.what());
  }
  for (const std::size_t i : which) batch.errors[i] = error;
  if (!refused) {
    const std::lock_guard lock(mutex_);
    failure_ = error;
  }
  return !refused;
}

/// Tells those who wait, and keeps account of the runs.
void Writer::settle(Batch& batch) {
  for (std::size_t i = 0; i < batch.requests.size(); ++i) {
    Request& request = batch.requests[i];
    const auto& error = batch.errors[i];
    if (error) {
      settle(request, *error);
    } else if (std::holds_alternative<FinishRun>(request.change.what)) {
      runs_.erase(request.change.runId);
    }
    if (request.waiter != nullptr) {
      request.waiter->error = error;
      request.waiter->done = true;
    }
  }
}

void Writer::settle(Request& request, const StoreError& error) {
  const std::string& runId = request.change.runId;
  if (runId.empty()) return;
  if (auto* finish = std::get_if<FinishRun>(&request.change.what)) {
    if (finish->records) {
      abandon(runId, error, finish->end);
    } else {
      abandoned_.push_back(std::move(request.change));
    }
  } else if (std::holds_alternative<BeginRun>(request.change.what)) {
    abandon(runId, error, {});  // whether the disk has the row is not sure
  } else if (const auto run = runs_.find(runId); run != runs_.end() && !run->second.failure) {
    run->second.failure = error;
  }
}

/// Ends a run that lost something: it is entered as broken off when the store can be written.
void Writer::abandon(const std::string& runId, const StoreError& error, RunEnd end) {
  end.message = "not recorded: " + error.reason() + (end.message ? "; " + *end.message : "");
  if (end.endedUs == 0) end.endedUs = microsecondsNow();
  end.verdict = Verdict::BrokenOff;
  abandoned_.push_back({runId, FinishRun{std::move(end), std::nullopt}});
  runs_.erase(runId);
}

std::optional<StoreError> Writer::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

}  // namespace results
