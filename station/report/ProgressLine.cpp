#include "ProgressLine.h"

#include <utility>

#include <unistd.h>

#include "common/Files.h"
#include "reports/Format.h"

namespace station {
namespace {

using quillon::internal::writeWhole;

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

ProgressLine::ProgressLine(std::string what)
    : what_(std::move(what)),
      isTerminal_(isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + kPatience) {}

ProgressLine::~ProgressLine() {
  if (isShown_) writeWhole(STDERR_FILENO, "\r\x1b[K");
}

void ProgressLine::show(std::int64_t done, std::int64_t all) {
  if (!isTerminal_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  isShown_ = true;
  std::string text = "\r" + what_ + "  " + reports::grouped(done);
  if (all > 0) {
    text += " of " + reports::grouped(all) + ", " + std::to_string(done * 100 / all) + " %";
  }
  writeWhole(STDERR_FILENO, text + "\x1b[K");
}

}  // namespace station
