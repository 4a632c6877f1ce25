#include "QLTLogger.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <QLTConsoleLog.h>

#include "platform/Failed.h"

using quillon::internal::failWith;

namespace {

namespace fs = std::filesystem;

constexpr double kOldestKeptInSeconds = 43200;

// Seconds since the epoch. A double holds every date that a file can carry.
double secondsOf(const struct statx_timestamp& stamp) {
  return static_cast<double>(stamp.tv_sec) + stamp.tv_nsec * 1e-9;
}

double now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The earlier of birth and modification time of the item itself, not of what a link leads to.
std::optional<double> creationDate(const fs::path& item) {
  struct statx status {};
  int result = -1;
  do {
    result = statx(AT_FDCWD, item.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return std::nullopt;
  const double modified = secondsOf(status.stx_mtime);
  if ((status.stx_mask & STATX_BTIME) == 0) return modified;
  return std::min(modified, secondsOf(status.stx_btime));
}

bool isTooOld(const fs::path& item) {
  const std::optional<double> created = creationDate(item);
  return created && now() - *created > kOldestKeptInSeconds;
}

std::vector<fs::path> itemsOf(const fs::path& folder) {
  std::vector<fs::path> items;
  std::error_code problem;
  for (fs::directory_iterator entry(folder, problem), end; !problem && entry != end;
       entry.increment(problem)) {
    items.push_back(entry->path());
  }
  return items;
}

void clearFolder(const fs::path& folder) {
  for (const fs::path& item : itemsOf(folder)) {
    std::error_code ignored;
    if (isTooOld(item)) fs::remove_all(item, ignored);
    // A young folder, or an old one of which a part could not be removed.
    if (fs::symlink_status(item, ignored).type() == fs::file_type::directory) clearFolder(item);
  }
}

/// Keeps the first failure that is noted on this thread as long as it lives. They nest: a link may
/// log several records where it was given one.
class FailureWatch {
 public:
  FailureWatch() : outer_(innermost) { innermost = this; }
  ~FailureWatch() { innermost = outer_; }
  FailureWatch(const FailureWatch&) = delete;
  FailureWatch& operator=(const FailureWatch&) = delete;

  static void note(const QLTError& failure) {
    for (FailureWatch* watch = innermost; watch != nullptr; watch = watch->outer_) {
      if (!watch->first_) watch->first_ = failure;
    }
  }
  const QLTError& first() const { return first_; }

 private:
  static thread_local FailureWatch* innermost;
  FailureWatch* const outer_;
  QLTError first_;
};

thread_local FailureWatch* FailureWatch::innermost = nullptr;

}  // namespace

bool QLTLogger::open(const std::vector<std::string>& deviceAttributeKeys,
                     const std::vector<std::string>&, QLTError* error) {
  const std::shared_ptr<QLTLogger> lower = lowerLogger();
  return !lower || lower->open(deviceAttributeKeys, extraKeys(), error);
}

void QLTLogger::log(const std::shared_ptr<const QLTestResult>& result) {
  if (const std::shared_ptr<QLTLogger> lower = lowerLogger()) lower->log(result);
}

bool QLTLogger::logAll(std::span<const std::shared_ptr<const QLTestResult>> results,
                       QLTError* error) {
  const FailureWatch watch;
  for (const std::shared_ptr<const QLTestResult>& result : results) log(result);
  if (watch.first()) return failWith(error, watch.first());
  return true;
}

bool QLTLogger::close(QLTError* error) {
  const std::shared_ptr<QLTLogger> lower = lowerLogger();
  return !lower || lower->close(error);
}

void QLTLogger::startDevice(QLTDictionary attributes) {
  setDeviceAttributes(std::move(attributes));
}

QLTError QLTLogger::failure() const {
  {
    const std::lock_guard lock(mutex_);
    if (failure_) return failure_;
  }
  const std::shared_ptr<QLTLogger> lower = lowerLogger();
  return lower ? lower->failure() : QLTError();
}

void QLTLogger::noteFailure(const QLTError& failure) {
  if (!failure) return;
  FailureWatch::note(failure);
  const std::lock_guard lock(mutex_);
  if (!failure_) failure_ = failure;
}

void QLTLogger::forgetFailure() {
  const std::lock_guard lock(mutex_);
  failure_ = {};
}

std::shared_ptr<QLTLogger> QLTLogger::lowerLogger() const {
  const std::lock_guard lock(mutex_);
  return lowerLogger_;
}

void QLTLogger::setLowerLogger(std::shared_ptr<QLTLogger> lowerLogger) {
  const std::lock_guard lock(mutex_);
  // Swapped, so that the earlier logger is disposed of by the argument, after the lock is released.
  lowerLogger_.swap(lowerLogger);
}

std::shared_ptr<const QLTLogger::Columns> QLTLogger::columns() const {
  const std::lock_guard lock(mutex_);
  return columns_;
}

// A new set of columns takes the place of the old one, which others may be reading.
template <typename Change>
void QLTLogger::changeColumns(Change change) {
  const std::lock_guard lock(mutex_);
  auto changed = std::make_shared<Columns>(*columns_);
  change(*changed);
  columns_ = std::move(changed);
}

std::vector<std::string> QLTLogger::extraKeys() const { return columns()->extraKeys; }

void QLTLogger::setExtraKeys(std::vector<std::string> extraKeys) {
  changeColumns([&](Columns& columns) { columns.extraKeys = std::move(extraKeys); });
}

std::vector<std::string> QLTLogger::deviceAttributeKeys() const {
  return columns()->deviceAttributeKeys;
}

void QLTLogger::setDeviceAttributeKeys(std::vector<std::string> deviceAttributeKeys) {
  changeColumns(
      [&](Columns& columns) { columns.deviceAttributeKeys = std::move(deviceAttributeKeys); });
}

QLTDictionary QLTLogger::deviceAttributes() const { return columns()->deviceAttributes; }

void QLTLogger::setDeviceAttributes(QLTDictionary deviceAttributes) {
  changeColumns([&](Columns& columns) { columns.deviceAttributes = std::move(deviceAttributes); });
}

bool QLTLogger::createLogPath(const QLTText& folder, QLTError* error) {
  QLTLog("createLogPath called");
  const std::string path = folder.orEmpty();
  std::error_code problem;
  if (fs::exists(path, problem)) return true;
  fs::create_directories(path, problem);
  if (!problem) return true;
  if (error != nullptr) *error = QLTError::fromErrno(problem.value(), path);
  return false;
}

void QLTLogger::clearLogs(const QLTText& path) { clearFolder(path.orEmpty()); }
