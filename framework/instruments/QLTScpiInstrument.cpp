#include "QLTScpiInstrument.h"

#include <utility>
#include <vector>

#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Text.h"
#include "platform/Failed.h"

using quillon::internal::failWith;
using quillon::internal::integerReading;
using quillon::internal::split;

namespace {

constexpr int kMaxAnswerSize = 990;

}  // namespace

QLTScpiInstrument::QLTScpiInstrument(std::shared_ptr<QLTAsciiReadWriteDevice> device)
    : device_(std::move(device)) {}

std::shared_ptr<QLTScpiInstrument> QLTScpiInstrument::initWithDevice(
    std::shared_ptr<QLTAsciiReadWriteDevice> device) {
  if (!device) return nullptr;
  std::shared_ptr<QLTScpiInstrument> instrument(new QLTScpiInstrument(std::move(device)));
  // The error decides, not the answer: a device that has nothing to say reports none and is
  // accepted.
  QLTError error;
  instrument->identity_ = instrument->identity(&error);
  return error ? nullptr : instrument;
}

bool QLTScpiInstrument::command(const std::string& command, bool /*waitTillDone*/,
                                QLTError* error) {
  return device_->write(command + lineEnd(), error);
}

std::optional<std::string> QLTScpiInstrument::query(const std::string& query, QLTError* error) {
  if (!device_->write(query + lineEnd(), error)) return std::nullopt;
  return device_->read(kMaxAnswerSize, error);
}

std::optional<std::string> QLTScpiInstrument::identity(QLTError* error) {
  return query("*IDN?", error);
}

bool QLTScpiInstrument::reset(QLTError* error) { return command("*RST", true, error); }

bool QLTScpiInstrument::clearStatus(QLTError* error) { return command("*CLS", false, error); }

bool QLTScpiInstrument::queryError(QLTError* error) {
  const std::optional<std::string> answer = query("SYST:ERR?", error);
  if (!answer) return true;

  const std::vector<std::string> pieces = split(*answer, ",");
  const std::int32_t code = integerReading(pieces.front());
  if (code == 0) return false;
  if (error) *error = makeError(code, pieces.size() > 1 ? pieces[1] : "");
  return true;
}

QLTError QLTScpiInstrument::makeError(std::int32_t code, const std::string& message) {
  return QLTError::withDescription(kQLTScipErrorDomain, code, message);
}

std::optional<std::string> QLTScpiInstrument::read(std::int32_t size, QLTError* error) {
  return device_->read(size, error);
}

bool QLTScpiInstrument::write(const std::string& text, QLTError* error) {
  return device_->write(text, error);
}

bool QLTScpiInstrument::close(QLTError* error) { return device_->close(error); }

bool QLTScpiInstrument::isLost() const {
  const auto* line = dynamic_cast<const QLTReopenable*>(device_.get());
  return line != nullptr && line->isLost();
}

std::string QLTScpiInstrument::where() const {
  const auto* line = dynamic_cast<const QLTReopenable*>(device_.get());
  return line != nullptr ? line->where() : device_->className();
}

bool QLTScpiInstrument::reopen(QLTError* error) {
  auto* line = dynamic_cast<QLTReopenable*>(device_.get());
  if (line != nullptr && !line->reopen(error)) return false;
  QLTError problem;
  std::optional<std::string> answer = identity(&problem);
  if (problem) return failWith(error, std::move(problem));
  identity_ = std::move(answer);
  return true;
}

QLTIdentity QLTScpiInstrument::who() const { return QLTIdentity::of(identity_.value_or("")); }

std::string QLTScpiInstrument::lineEnd() const {
  const std::lock_guard lock(lineEndMutex_);
  return lineEnd_;
}

void QLTScpiInstrument::setLineEnd(QLTText lineEnd) {
  const std::lock_guard lock(lineEndMutex_);
  lineEnd_ = std::move(lineEnd).orEmpty();
}
