#include "QLTDiags.h"

#include <chrono>
#include <string_view>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "common/Format.h"
#include "common/Sleep.h"
#include "common/Text.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::format;
using quillon::internal::kBlanks;
using quillon::internal::kNewlines;
using quillon::internal::sleepFor;
using quillon::internal::split;
using quillon::internal::trimmed;

namespace {

constexpr std::string_view kPrompt = ":-)";
constexpr int kMaxReadSize = 5000;
constexpr std::chrono::milliseconds kPollInterval(10);

std::vector<std::string> linesOf(const std::string& answer) {
  std::vector<std::string> lines = split(trimmed(answer, kBlanks), "\n");
  for (std::string& line : lines) line = trimmed(line, kNewlines);
  return lines;
}

}  // namespace

QLTDiags::QLTDiags(std::shared_ptr<QLTSerial> port) : com_(std::move(port)) {}

std::shared_ptr<QLTDiags> QLTDiags::init(const QLTText& path) {
  auto port = std::make_shared<QLTSerial>(path);
  QLTError error;
  if (!port->open(&error)) {
    QLTLog(format("error opening comport for diag: %@", error.description()));
    return nullptr;
  }
  return initWithPort(std::move(port));
}

std::shared_ptr<QLTDiags> QLTDiags::initWithPort(std::shared_ptr<QLTSerial> port) {
  if (!port) return nullptr;
  return std::shared_ptr<QLTDiags>(new QLTDiags(std::move(port)));
}

bool QLTDiags::open(QLTError* error) {
  const auto lines = sendCommand("", error);
  if (lines && !lines->empty() && lines->back() == kPrompt) return true;
  return fail(error, kQLTErrorNoDiagsPrompt, "No diags prompot found");
}

std::optional<std::vector<std::string>> QLTDiags::sendCommand(const std::string& command,
                                                              QLTError* error) {
  if (!com_->write(command + "\n", error)) return std::nullopt;

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  std::string answer;
  while (answer.find(kPrompt) == std::string::npos) {
    const std::chrono::duration<double> elapsed = Clock::now() - start;
    // Not "elapsed > limit": a limit that is not a number must end the wait too.
    if (!(elapsed.count() <= timeOutInSeconds_)) {
      QLTLog("timeout reading from diags");
      return fail(error, kQLTErrorSerialRead, "timeout trying to read from diags");
    }
    sleepFor(kPollInterval);
    // A line that hiccups while the device restarts must not end the exchange: only the time-out
    // does.
    if (const auto part = com_->read(kMaxReadSize, error)) answer += *part;
  }
  return linesOf(answer);
}

bool QLTDiags::resetCommunication(QLTError* error) {
  com_->close();
  return com_->open(error);
}

bool QLTDiags::isLost() const { return com_->isLost(); }

std::string QLTDiags::where() const { return com_->where(); }

bool QLTDiags::reopen(QLTError* error) { return resetCommunication(error); }
