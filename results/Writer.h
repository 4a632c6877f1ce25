#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "results/BatchWriter.h"
#include "results/Change.h"

namespace results {

/// The thread that writes: takes what all sites have queued and writes it together, and knows which
/// runs are in progress and which of them lost something. Thread-safe.
class Writer {
 public:
  Writer(BatchWriter& batches, std::string file);
  /// Writes what is queued, and ends.
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// Queues a change; waits while the queue is full. Throws `StoreError` when its run is not in
  /// progress.
  void add(Change change);
  /// Queues a change and waits until it is on disk. Throws `StoreError`.
  void addAndWait(Change change);
  /// Has what is queued written at once, for a run that is about to end, and does not wait for it.
  void hurry(const std::string& runId);
  /// As `hurry`, and makes it durable together with the end of the run when that comes soon.
  void expectEnd(const std::string& runId);
  /// Waits until everything of a run that was queued is on disk. Throws `StoreError` when some of
  /// it is not, and will not be.
  void flush(const std::string& runId);
  std::optional<StoreError> failure() const;

 private:
  struct Waiter {
    bool done = false;
    std::optional<StoreError> error;
  };
  struct Request {
    Change change;
    Waiter* waiter = nullptr;
  };
  struct RunState {
    std::int64_t records = 0;
    std::optional<StoreError> failure;
  };
  /// Requests with what came of them. One that was forgotten has failed.
  struct Batch {
    std::deque<Request> requests;
    std::vector<std::optional<StoreError>> errors;
    std::vector<std::size_t> writable;  // those whose run has lost nothing
    std::uint64_t last = 0;             // how many were queued with it, ever
    std::string hurried;
    std::string expected;
  };

  bool isUrgent() const;
  bool admit(Change& change);
  void push(std::unique_lock<std::mutex>& lock, Change change, Waiter* waiter);
  void work();
  Batch take();
  void takeQueue(Batch& batch);
  void join(Batch& batch, const BatchWriter::Sink& sink);
  void write(Batch& batch);
  void checkpoint(const Batch& batch, bool isBusy);
  bool writeTogether(Batch& batch, const std::vector<std::size_t>& which);
  void settle(Batch& batch);
  void settle(Request& request, const StoreError& error);
  void abandon(const std::string& runId, const StoreError& error, RunEnd end);

  BatchWriter& batches_;
  const std::string file_;
  mutable std::mutex mutex_;
  std::condition_variable queued_;   // something is to be written
  std::condition_variable changed_;  // there is room, or a waiter's change is settled
  std::deque<Request> queue_;
  std::size_t waiting_ = 0;    // how many in the queue are waited for
  std::uint64_t added_ = 0;    // how many were queued, ever
  std::uint64_t settled_ = 0;  // how many of them are settled
  std::string hurried_;        // a run that is about to end: what is queued is soon waited for
  std::string expected_;       // a run whose end is about to be queued
  bool retrying_ = false;      // an abandoned run is to be tried though nothing is queued
  bool ending_ = false;
  std::unordered_map<std::string, RunState> runs_;
  std::vector<Change> abandoned_;  // ends of runs that lost something, to be written
  std::optional<StoreError> failure_;
  std::thread thread_;
};

}  // namespace results
