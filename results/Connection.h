#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "results/Schema.h"
#include "results/StoreError.h"
#include "results/StoreReader.h"

namespace results {

/// A row that the database refuses whatever the state of the disk: it contradicts others.
class RowError : public StoreError {
 public:
  using StoreError::StoreError;
};

/// One connection to the database file, with all that is particular to SQLite. For one thread at a
/// time. Whatever fails throws `StoreError`.
class Connection : public StoreReader {
 public:
  enum class Access { Write, Read };

  /// Opens the file. For writing it is made when it is missing, and brought to the last version of
  /// `migrations`; for reading it must have that version. `patience`: how long a lock of another
  /// process is waited for, now and later.
  Connection(std::string file, Access access, std::chrono::milliseconds patience,
             const std::vector<Migration>& migrations);
  /// Also ends a transaction that was not committed, without its changes.
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Does `work`, with the errors of the database as `StoreError`.
  void attempt(const std::function<void(soci::session&)>& work) override;
  /// Does `work` in a transaction that is on disk when this returns; nothing of it is when it
  /// throws, unless the disk failed while it was asked to keep it.
  void transaction(const std::function<void(soci::session&)>& work);
  /// How many pages the write-ahead log has; it grows until `checkpoint` is called.
  int pagesInLog() const { return pagesInLog_; }
  /// Copies the write-ahead log into the file, as far as no reader needs it. Reads and writes of
  /// others go on; a failure is left for the next try.
  void checkpoint();
  /// Leaves the files of the write-ahead log, empty, beside the file when it is closed: without
  /// them nobody can read it who may not write in its folder.
  void keepLog();
  /// What is wrong with the file, and with rows that name missing ones, in words. Reads all of it.
  std::vector<std::string> damages();

 private:
  void open(Access access, std::chrono::milliseconds patience);
  void useWriteAheadLog(std::chrono::milliseconds patience);
  void requireSound();
  int version();
  void migrate(const std::vector<Migration>& migrations);
  void requireOwnFile();
  std::string reasonOf(int code, const std::string& message) const;

  std::string file_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
  int pagesInLog_ = 0;
  std::unique_ptr<soci::session> session_;
};

}  // namespace results
