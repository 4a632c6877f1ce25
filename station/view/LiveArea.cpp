#include "LiveArea.h"

#include <chrono>
#include <utility>

#include "Signals.h"
#include "Text.h"
#include "common/Files.h"

namespace station {
namespace {

constexpr std::chrono::milliseconds kPeriod{200};

}  // namespace

LiveArea::LiveArea(int descriptor, Lines lines)
    : descriptor_(descriptor), lines_(std::move(lines)), thread_([this] { work(); }) {
  Signals::setQuiet(true);  // or its words would stand amid the lines
}

LiveArea::~LiveArea() {
  Signals::setQuiet(false);
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_one();
  }
  thread_.join();
}

void LiveArea::add(std::string_view text) {
  const std::lock_guard lock(mutex_);
  waiting_ += text;
}

void LiveArea::ask(std::optional<std::string> question) {
  const std::lock_guard lock(mutex_);
  question_ = std::move(question);
  atOnce_ = true;
  changed_.notify_one();
}

void LiveArea::work() {
  std::unique_lock lock(mutex_);
  while (!ended_) {
    draw(lock);
    changed_.wait_for(lock, kPeriod, [this] { return ended_ || atOnce_; });
  }
  question_.reset();
  draw(lock);
}

void LiveArea::draw(std::unique_lock<std::mutex>& lock) {
  announceStop();
  const std::string scrolled = std::exchange(waiting_, {});
  const std::optional<std::string> question = question_;
  const bool isLast = ended_;
  atOnce_ = false;
  lock.unlock();
  const TerminalSize size = TerminalSize::of(descriptor_);
  const std::size_t kept = question ? 2 : 1;
  std::vector<std::string> lines;
  if (!isLast && size.rows > kept) lines = lines_({size.columns, size.rows - kept});
  if (question) lines.push_back(cutInFront(*question, size.columns - 1));
  // A failure means that nobody reads any more; the tests and their log matter more.
  quillon::internal::writeWhole(descriptor_, painter_.paint(scrolled, lines, size.columns));
  lock.lock();
}

void LiveArea::announceStop() {
  if (announced_ == 0 && Signals::stopRequested()) {
    waiting_ += Signals::kStopText;
    announced_ = 1;
  }
  if (announced_ == 1 && Signals::stopAtOnceRequested()) {
    waiting_ += Signals::kAtOnceText;
    announced_ = 2;
  }
}

}  // namespace station
