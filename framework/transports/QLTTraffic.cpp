#include "QLTTraffic.h"

#include <atomic>
#include <cerrno>
#include <exception>

#include <QLTConsoleLog.h>

#include "common/Format.h"

using quillon::internal::format;

namespace {

constinit std::atomic<QLTTrafficWatcher*> watcher = nullptr;
constinit std::atomic<std::uint64_t> lines = 0;
constinit thread_local const std::string* currentInstrument = nullptr;

std::string nameNow() { return currentInstrument != nullptr ? *currentInstrument : std::string(); }

}  // namespace

QLTTrafficStandIn::~QLTTrafficStandIn() = default;

QLTTrafficWatcher::~QLTTrafficWatcher() = default;

std::unique_ptr<QLTTrafficStandIn> QLTTrafficWatcher::standIn(const QLTTrafficLine&) {
  return nullptr;
}

void QLTSetTrafficWatcher(QLTTrafficWatcher* newWatcher) {
  watcher.store(newWatcher, std::memory_order_release);
}

QLTInstrumentScope::QLTInstrumentScope(const std::string& instrument)
    : earlier_(currentInstrument) {
  currentInstrument = &instrument;
}

QLTInstrumentScope::~QLTInstrumentScope() { currentInstrument = earlier_; }

QLTTrafficLine::QLTTrafficLine()
    : number_(lines.fetch_add(1, std::memory_order_relaxed) + 1), instrument_(nameNow()) {}

QLTTrafficLine::~QLTTrafficLine() { closed(); }

QLTTrafficStandIn* QLTTrafficLine::begin(const std::string& where) {
  closed();
  where_ = where;
  if (instrument_.empty()) instrument_ = nameNow();
  isBegun_ = true;
  if (auto* const present = watcher.load(std::memory_order_acquire)) {
    standIn_ = present->standIn(*this);
  }
  return standIn_.get();
}

void QLTTrafficLine::opened() { tell(QLTTrafficEvent::Opened); }

void QLTTrafficLine::sent(std::string_view bytes) {
  if (!bytes.empty()) tell(QLTTrafficEvent::Sent, bytes);
}

void QLTTrafficLine::received(std::string_view bytes) {
  if (!bytes.empty()) tell(QLTTrafficEvent::Received, bytes);
}

void QLTTrafficLine::silent() { tell(QLTTrafficEvent::Silent); }

void QLTTrafficLine::failed(int code) { tell(QLTTrafficEvent::Failed, {}, code); }

void QLTTrafficLine::closed() {
  if (!isBegun_) return;
  if (standIn_) standIn_->close();
  tell(QLTTrafficEvent::Closed);
  standIn_.reset();
  isBegun_ = false;
}

void QLTTrafficLine::tell(QLTTrafficEvent event, std::string_view bytes, int code) const {
  // The watcher may be read while it is replaced; it stays as it is for whoever has read it.
  auto* const present = watcher.load(std::memory_order_acquire);
  if (present == nullptr || standIn_ || !isBegun_) return;
  const int earlierErrno = errno;
  // What was done is done: neither the transport nor the end of a line can heed it.
  try {
    present->happened(*this, event, bytes, code);
  } catch (const std::exception& exception) {
    QLTLog(format("the traffic watcher threw: %@", exception.what()));
  } catch (...) {
    QLTLog("the traffic watcher threw an unknown exception");
  }
  errno = earlierErrno;
}
