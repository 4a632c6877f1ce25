#include "WorkerLink.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "common/Retried.h"

using quillon::internal::retried;

namespace station {
namespace {

constexpr std::chrono::seconds kAfterTerminate{5};
constexpr int kChunksOfAPipe = 16;

void drain(int descriptor) {
  std::uint64_t count = 0;
  retried([&] { return read(descriptor, &count, sizeof count); });
}

}  // namespace

WorkerLink::WorkerLink(const RunOptions& options, const ConsoleLogFile& diagnostics, Take take)
    : options_(options),
      diagnostics_(diagnostics),
      take_(std::move(take)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WorkerLink::start() {
  process_ = std::make_unique<WorkerProcess>(options_.bundle, options_.wrap);
  endReason_.reset();
  wasTold_ = false;
  killAt_.reset();
}

void WorkerLink::send(const Message& message) {
  if (process_ != nullptr) process_->channel().send(message);
}

std::optional<int> WorkerLink::pump(std::chrono::milliseconds time,
                                    std::initializer_list<int> others) {
  // An end shows for as long as one looks.
  const bool hears = process_ != nullptr && !process_->channel().hasEnded();
  std::vector<pollfd> waited{{wake_.get(), POLLIN, 0},
                             {hears ? process_->channel().descriptor() : -1, POLLIN, 0},
                             {process_ ? process_->output() : -1, POLLIN, 0},
                             {process_ ? process_->ended() : -1, POLLIN, 0}};
  for (const int other : others) waited.push_back({other, POLLIN, 0});
  if (poll(waited.data(), waited.size(), static_cast<int>(time.count())) <= 0) return std::nullopt;
  if (waited[0].revents != 0) drain(wake_.get());
  // What it said before it ended counts.
  const auto status = waited[3].revents != 0 ? process_->status() : std::nullopt;
  if (waited[2].revents != 0) readOutput();
  if (waited[1].revents != 0) readMessages();
  if (!status) return std::nullopt;
  readAll();
  if (!endReason_) endReason_ = endText(*status);
  return status;
}

/// Reads what the worker has printed: no more than fits into a pipe, so that a flood of it leaves
/// time for all else.
void WorkerLink::readOutput() {
  std::array<char, 4096> chunk{};
  for (int i = 0; i < kChunksOfAPipe; ++i) {
    const ssize_t count =
        retried([&] { return read(process_->output(), chunk.data(), chunk.size()); });
    if (count == 0) process_->closeOutput();
    if (count <= 0) return;
    unfinishedLine_.append(chunk.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = 0; (end = unfinishedLine_.find('\n', start)) != std::string::npos;
         start = end + 1) {
      diagnostics_.write("output", unfinishedLine_.substr(start, end - start));
    }
    unfinishedLine_.erase(0, start);
    if (unfinishedLine_.size() > chunk.size()) {
      diagnostics_.write("output", std::exchange(unfinishedLine_, {}));
    }
    if (count < static_cast<ssize_t>(chunk.size())) return;
  }
}

/// False when nothing was to be read.
bool WorkerLink::readMessages() {
  try {
    // One go, so that a flood leaves time for all else.
    Channel& channel = process_->channel();
    channel.read(false);
    while (const auto message = channel.next()) take_(*message);
    return channel.hasRead();
  } catch (const BrokenMessage& problem) {
    if (!endReason_) {
      endReason_ = std::string("the plug-in broke the station's connection: ") + problem.what();
    }
    process_->kill();
    return false;
  }
}

/// What one that has ended left.
void WorkerLink::readAll() {
  readOutput();
  if (!unfinishedLine_.empty()) diagnostics_.write("output", std::exchange(unfinishedLine_, {}));
  while (readMessages()) {
  }
}

void WorkerLink::wake() const {
  const std::uint64_t one = 1;
  retried([&] { return write(wake_.get(), &one, sizeof one); });
}

void WorkerLink::end(const std::string& reason) {
  endReason_ = reason;
  wasTold_ = true;
  process_->terminate();
  killAt_ = Clock::now() + kAfterTerminate;
}

void WorkerLink::kill(const std::string& reason) {
  endReason_ = reason;
  wasTold_ = true;
  process_->kill();
}

void WorkerLink::killWhenDue() {
  if (process_ != nullptr && killAt_ && Clock::now() >= *killAt_) process_->kill();
}

void WorkerLink::drop() { process_.reset(); }

}  // namespace station
