#include "GpioPort.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <utility>

#include <gpiod.h>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/Ready.h"
#include "common/Format.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using internal::format;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr const char* kConsumer = "quillon";

int flagsOf(GpioPort::Bias bias) {
  switch (bias) {
    case GpioPort::Bias::None:
      return GPIOD_LINE_REQUEST_FLAG_BIAS_DISABLE;
    case GpioPort::Bias::Up:
      return GPIOD_LINE_REQUEST_FLAG_BIAS_PULL_UP;
    case GpioPort::Bias::Down:
      return GPIOD_LINE_REQUEST_FLAG_BIAS_PULL_DOWN;
    case GpioPort::Bias::AsItIs:
      break;
  }
  return 0;
}

timespec waitOf(nanoseconds wait) {
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(wait);
  return {whole.count(), (wait - whole).count()};
}

}  // namespace

GpioPort::GpioPort(std::string chip, Bias bias, std::vector<QLTDigitalIO::Line> lines)
    : chip_(std::move(chip)), bias_(bias), lines_(std::move(lines)) {}

GpioPort::~GpioPort() { giveUp(); }

std::string GpioPort::where() const { return chip_.empty() ? "GPIO" : "GPIO " + chip_; }

void GpioPort::giveUp() {
  // Each has a chip of its own; closing it gives the line up.
  for (const auto& [channel, taken] : taken_) gpiod_line_close_chip(taken.line);
  taken_.clear();
  isOpen_ = false;
}

bool GpioPort::reopen(QLTError* error) {
  giveUp();
  for (const QLTDigitalIO::Line& line : lines_) {
    if (take(line, error)) continue;
    giveUp();
    return false;
  }
  isOpen_ = true;
  return true;
}

/// The line; null, with errno, when there is none. It owns its chip.
gpiod_line* GpioPort::find(const std::string& channel) const {
  const auto number = internal::numberIn<unsigned>(channel);
  if (chip_.empty()) return number ? (errno = ENODEV, nullptr) : gpiod_line_find(channel.c_str());
  gpiod_chip* const chip = gpiod_chip_open_lookup(chip_.c_str());
  if (chip == nullptr) return nullptr;
  gpiod_line* const line =
      number ? gpiod_chip_get_line(chip, *number) : gpiod_chip_find_line(chip, channel.c_str());
  if (line != nullptr) return line;
  const int problem = errno;
  gpiod_chip_close(chip);
  errno = problem;
  return nullptr;
}

bool GpioPort::take(const QLTDigitalIO::Line& wanted, QLTError* error) {
  const auto failed = [&](const char* what) {
    const int problem = errno != 0 ? errno : ENOENT;
    return fail(error, kQLTErrorDigitalOpen,
                format("%@: line %@ (%@) %s", where(), wanted.channel, wanted.name, what),
                QLTError::fromErrno(problem, wanted.channel));
  };
  errno = 0;
  gpiod_line* const line = find(wanted.channel);
  if (line == nullptr) return failed("is not there");
  gpiod_line_request_config config{};
  config.consumer = kConsumer;
  config.flags = flagsOf(bias_);
  bool tellsEdges = false;
  int status = -1;
  if (wanted.isOutput) {
    config.request_type = GPIOD_LINE_REQUEST_DIRECTION_OUTPUT;
    status = gpiod_line_request(line, &config, wanted.isInverted ? 1 : 0);  // off
  } else {
    config.request_type = GPIOD_LINE_REQUEST_EVENT_BOTH_EDGES;
    status = gpiod_line_request(line, &config, 0);
    tellsEdges = status == 0;
    if (status != 0 && errno != EBUSY) {  // not every chip can
      config.request_type = GPIOD_LINE_REQUEST_DIRECTION_INPUT;
      status = gpiod_line_request(line, &config, 0);
    }
  }
  if (status != 0) {
    const bool result = failed("cannot be taken");
    gpiod_line_close_chip(line);
    return result;
  }
  taken_[wanted.channel] = {line, tellsEdges};
  return true;
}

const GpioPort::Taken* GpioPort::taken(const std::string& channel, QLTError* error) const {
  const auto found = taken_.find(channel);
  if (found != taken_.end()) return &found->second;
  fail(error, kQLTErrorDigitalOpen, format("%@: line %@ is not open", where(), channel));
  return nullptr;
}

std::optional<bool> GpioPort::valueOf(const std::string& channel, QLTError* error) {
  const Taken* const line = taken(channel, error);
  if (line == nullptr) return std::nullopt;
  const int value = gpiod_line_get_value(line->line);
  if (value >= 0) return value != 0;
  fail(error, kQLTErrorDigitalTransfer, format("%@: line %@ cannot be read", where(), channel),
       QLTError::fromErrno(errno, channel));
  return std::nullopt;
}

std::optional<bool> GpioPort::readInput(const std::string& channel, QLTError* error) {
  return valueOf(channel, error);
}

std::optional<bool> GpioPort::readOutput(const std::string& channel, QLTError* error) {
  return valueOf(channel, error);
}

bool GpioPort::writeOutput(const std::string& channel, bool isHigh, QLTError* error) {
  const Taken* const line = taken(channel, error);
  if (line == nullptr) return false;
  if (gpiod_line_set_value(line->line, isHigh ? 1 : 0) == 0) return true;
  return fail(error, kQLTErrorDigitalTransfer,
              format("%@: line %@ cannot be set", where(), channel),
              QLTError::fromErrno(errno, channel));
}

std::optional<bool> GpioPort::waitForInput(const std::string& channel, bool isHigh, double seconds,
                                           QLTError* error) {
  const Taken* const line = taken(channel, error);
  if (line == nullptr) return std::nullopt;
  if (!line->tellsEdges) return QLTDigitalPort::waitForInput(channel, isHigh, seconds, error);
  const auto end = deadlineIn(seconds);
  while (true) {
    const auto state = valueOf(channel, error);
    if (!state) return std::nullopt;
    if (*state == isHigh) return true;
    const nanoseconds left = end - steady_clock::now();
    if (left <= nanoseconds::zero()) return false;
    const timespec wait = waitOf(left);
    const int edges = gpiod_line_event_wait(line->line, &wait);
    gpiod_line_event edge{};
    if (edges > 0 && gpiod_line_event_read(line->line, &edge) == 0) continue;
    if (edges < 0 && errno == EINTR) continue;
    if (edges != 0) {
      fail(error, kQLTErrorDigitalTransfer,
           format("%@: line %@ cannot be waited for", where(), channel),
           QLTError::fromErrno(errno, channel));
      return std::nullopt;
    }
  }
}

}  // namespace quillon::bench
