#include "logging/LineFile.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "common/Format.h"
#include "common/PipeWrite.h"
#include "common/Retried.h"

namespace quillon::internal {
namespace {

/// Whether a file ends amid a line, as a crash or a full disk may leave it.
bool endsAmidLine(const Descriptor& file, const std::string& path) {
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
    return false;
  }
  const Descriptor reader(retried([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!reader) return false;
  char last = '\n';
  retried([&] { return pread(reader.get(), &last, 1, status.st_size - 1); });
  return last != '\n';
}

/// Whether somebody reads what is written, who may be gone.
bool isPipe(const Descriptor& file) {
  struct stat status {};
  return fstat(file.get(), &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

}  // namespace

/// Goes through the lines of several requests, whose texts stand one behind the other.
class LineFile::LineCursor {
 public:
  explicit LineCursor(std::span<Request* const> requests) : requests_(requests) {}

  /// Goes on to the line that `position`, which stands within the texts, is part of.
  void advanceTo(std::size_t position) {
    while (end() <= position) {
      if (++line_ < request().ends.size()) continue;
      base_ += request().text.size();
      line_ = 0;
      ++request_;
    }
  }
  Request& request() const { return *requests_[request_]; }
  std::size_t begin() const { return base_ + (line_ == 0 ? 0 : request().ends[line_ - 1]); }
  std::size_t end() const { return base_ + request().ends[line_]; }

 private:
  const std::span<Request* const> requests_;
  std::size_t request_ = 0;
  std::size_t line_ = 0;
  std::size_t base_ = 0;  // where the request's text begins
};

LineFile::LineFile(Descriptor descriptor, std::string path)
    : descriptor_(std::move(descriptor)),
      path_(std::move(path)),
      hasReader_(isPipe(descriptor_)),
      amidLine_(endsAmidLine(descriptor_, path_)) {}

QLTError LineFile::append(std::string_view text, std::span<const std::size_t> ends) {
  Request own{text, ends};
  {
    std::unique_lock lock(mutex_);
    waiting_.push_back(&own);
    while (!own.done) {
      if (writing_) {
        changed_.wait(lock);
      } else {
        writeWaiting(lock);
      }
    }
  }

  // Only now, without the lock: a sink of the console log may lead back here.
  QLTError failure;
  if (own.writeProblem != 0) failure = report("writing to", own.writeProblem);
  if (own.flushProblem != 0) {
    const QLTError unflushed = report("flushing", own.flushProblem);
    if (!failure) failure = unflushed;
  }
  return failure;
}

void LineFile::writeWaiting(std::unique_lock<std::mutex>& lock) {
  writing_ = true;
  taken_.swap(waiting_);
  lock.unlock();
  writeTaken();
  lock.lock();
  for (Request* const request : taken_) request->done = true;
  taken_.clear();
  writing_ = false;
  // Whoever runs first writes next, one of those who wait or one who comes anew: on a busy machine
  // a certain one might be long in coming.
  changed_.notify_all();
}

void LineFile::writeTaken() noexcept {
  std::string_view text = taken_.front()->text;
  if (taken_.size() > 1) {
    joined_.clear();
    for (const Request* const request : taken_) joined_ += request->text;
    text = joined_;
  }

  LineCursor line(taken_);
  for (std::size_t position = 0; position < text.size();) {
    const int problem = writeSome(text, position);
    if (problem == 0) continue;
    line.advanceTo(position);
    if (line.request().writeProblem == 0) line.request().writeProblem = problem;
    if (position > line.begin()) amidLine_ = text[position - 1] != '\n';
    position = line.end();
  }

  if (retried([&] { return fdatasync(descriptor_.get()); }) == 0) return;
  const int problem = errno;
  // A pipe or a device has nothing to flush, and says so.
  if (problem == EINVAL || problem == EROFS) return;
  for (Request* const request : taken_) request->flushProblem = problem;
}

/// Writes from `position` on as much as goes at once and moves it. What was broken off is ended
/// first. Returns errno's value, 0 when all is well.
int LineFile::writeSome(std::string_view text, std::size_t& position) {
  const std::string_view rest = amidLine_ ? "\n" : text.substr(position);
  const ssize_t count =
      hasReader_ ? writeWithoutSignal(descriptor_.get(), rest)
                 : retried([&] { return ::write(descriptor_.get(), rest.data(), rest.size()); });
  if (count < 0) return errno;
  if (count == 0) return EIO;
  if (!std::exchange(amidLine_, false)) position += static_cast<std::size_t>(count);
  return 0;
}

QLTError LineFile::report(const char* action, int problem) {
  bool isNew = false;
  {
    const std::lock_guard lock(mutex_);
    isNew = reported_.insert(problem).second;
  }
  if (isNew) {
    QLTLog(format("In CSV logger, error %s file %@: %s", action, path_,
                  std::generic_category().message(problem)));
  }
  return QLTError::fromErrno(problem, path_);
}

}  // namespace quillon::internal
