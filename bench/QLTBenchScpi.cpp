#include "QLTBenchScpi.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <tuple>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTReopenable.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/ScpiReplies.h"
#include "bench/ScpiText.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::fail;
using quillon::bench::failWith;
using quillon::bench::scpiItems;
using quillon::bench::scpiMessage;
using quillon::bench::scpiNumber;
using quillon::bench::scpiQueueEntry;
using quillon::bench::ScpiReplies;
using quillon::bench::scpiString;
using quillon::bench::scpiSwitch;
using quillon::internal::format;
using quillon::internal::printable;
using quillon::internal::trimmed;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kWho = "*IDN?";
constexpr std::size_t kLongestQuote = 120;  // of an answer, in a message
constexpr std::size_t kLongestBlock = 256 << 20;
constexpr double kLongestAfterwards = 1;  // seconds; after silence, to learn why

std::string quote(std::string_view text) {
  std::string quoted = '"' + printable(text.substr(0, kLongestQuote));
  return quoted + (text.size() > kLongestQuote ? "...\"" : "\"");
}

/// Whether a text is one message, for one line.
bool isOneMessage(const std::string& text, QLTError* error) {
  if (!scpiMessage(text).hasLineEnd) return true;
  return fail(error, kQLTErrorLineCommand,
              quote(text) + " holds a line end: send one command at a time, without its end");
}

/// The same, and that it has no answer.
bool isOneCommand(const std::string& text, QLTError* error) {
  if (!isOneMessage(text, error)) return false;
  if (!scpiMessage(text).isQuery) return true;
  return fail(error, kQLTErrorLineCommand,
              quote(text) + " is a query, whose answer would be taken for the next: ask it");
}

/// That an answer was not read, or that there was none: what a query that goes wrong makes.
bool isOfAQuery(const QLTBenchQueueEntry& entry) {
  constexpr std::int32_t interrupted = -410;
  constexpr std::int32_t unterminated = -420;
  return entry.code == interrupted || entry.code == unterminated;
}

std::string listOf(const std::vector<QLTBenchQueueEntry>& entries, const char* rest) {
  std::string text;
  for (const QLTBenchQueueEntry& entry : entries) {
    text += (text.empty() ? "" : "; ") + std::to_string(entry.code) + ' ' + quote(entry.text);
  }
  return text + rest;
}

}  // namespace

// Made, opened and lost.

QLTBenchScpi::QLTBenchScpi(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                           QLTBenchScpiSettings settings)
    : QLTScpiInstrument(device),
      settings_(std::move(settings)),
      replies_(std::make_unique<ScpiReplies>(std::move(device))) {
  setLineEnd(settings_.lineEnd);
}

QLTBenchScpi::~QLTBenchScpi() = default;

std::shared_ptr<QLTBenchScpi> QLTBenchScpi::open(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                                 QLTError* error) {
  return open(std::move(device), QLTBenchScpiSettings(), error);
}

std::shared_ptr<QLTBenchScpi> QLTBenchScpi::open(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                                 QLTBenchScpiSettings settings, QLTError* error) {
  const auto instrument = lost(std::move(device), std::move(settings));
  if (!instrument) return fail(error, kQLTErrorLineOpen, "a SCPI instrument needs a device");
  return instrument->begin(error) ? instrument : nullptr;
}

std::shared_ptr<QLTBenchScpi> QLTBenchScpi::lost(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                                 QLTBenchScpiSettings settings) {
  if (!device) return nullptr;
  return std::shared_ptr<QLTBenchScpi>(new QLTBenchScpi(std::move(device), std::move(settings)));
}

bool QLTBenchScpi::isLost() const { return !isReady_ || QLTScpiInstrument::isLost(); }

bool QLTBenchScpi::reopen(QLTError* error) {
  isReady_ = false;
  auto* const line = dynamic_cast<QLTReopenable*>(device().get());
  if (line != nullptr && !line->reopen(error)) return false;
  return begin(error);
}

/// Learns who the instrument is, and leaves no old errors to be taken for those of the first
/// command.
bool QLTBenchScpi::begin(QLTError* error) {
  isReady_ = isOutOfStep_ = mayHaveErrors_ = false;
  identitiesOwed_ = 0;
  replies_->drop();
  QLTError problem;
  std::optional<std::string> answer;
  if (tell(kWho, &problem)) answer = hear(settings_.timeOutInSeconds, &problem);
  const std::string nobody = where() + " does not tell who it is (*IDN?)";
  if (!answer && problem) return failWith(error, QLTUtil::handleError(problem, nobody));
  identity_ = trimmed(answer.value_or(""));
  if (identity_ == kWho) {
    return fail(error, kQLTErrorScpiAnswer,
                where() + " echoes what it is sent: switch its echo off");
  }
  // Texts with commas between them. What is none is a late answer, or another device.
  if (identity_.find(',') == identity_.npos) {
    return fail(error, kQLTErrorScpiAnswer,
                identity_.empty() ? nobody : nobody + ", but says " + quote(identity_));
  }
  if (!isExpected(error)) {
    device()->close();  // it is another one's: nothing may be switched there, not even off
    return false;
  }
  setIdentityAtCreation(std::move(answer));
  if (!tell("*CLS", error)) return false;
  return isReady_ = true;
}

/// Whether it is the instrument that the settings tell of.
bool QLTBenchScpi::isExpected(QLTError* error) {
  const QLTIdentity& expected = settings_.expected;
  const auto who = QLTIdentity::of(identity_);
  std::string wanted;
  bool isSame = true;
  for (const auto& [part, pattern, answered] :
       {std::tuple("vendor", &expected.vendor, &who.vendor),
        std::tuple("model", &expected.model, &who.model),
        std::tuple("serial number", &expected.serial, &who.serial),
        std::tuple("firmware", &expected.firmware, &who.firmware)}) {
    if (pattern->empty()) continue;
    wanted += format("%@%@ %@", wanted.empty() ? "" : ", ", part, *pattern);
    isSame = isSame && quillon::bench::fitsPattern(*answered, *pattern);
  }
  if (isSame) return true;
  return fail(error, kQLTErrorScpiIdentity,
              format("%@ is another instrument: expected %@, but %@ answers", where(), wanted,
                     quote(identity_)));
}

// What goes out and comes in.

void QLTBenchScpi::note(char direction, std::string_view text) {
  if (settings_.longestLog == 0) return;
  if (log_.size() >= settings_.longestLog) log_.pop_front();
  log_.push_back(std::string{direction, ' '} + printable(text.substr(0, 1024)));
}

bool QLTBenchScpi::tell(const std::string& message, QLTError* error) {
  note('>', message);
  return device()->write(message + lineEnd(), error);
}

std::optional<std::string> QLTBenchScpi::hear(double seconds, QLTError* error) {
  std::optional<std::string> answer = replies_->line(seconds, error);
  if (answer) note('<', *answer);
  return answer;
}

/// The answer to `query`; not an identity that was asked for before it.
std::optional<std::string> QLTBenchScpi::answerTo(const std::string& query, double seconds,
                                                  QLTError* error) {
  const bool asksWho = quillon::internal::upperCase(trimmed(query)) == kWho;
  const auto start = Clock::now();
  std::optional<std::string> answer = hear(seconds, error);
  while (answer && !asksWho && identitiesOwed_ > 0 && trimmed(*answer) == identity_) {
    --identitiesOwed_;
    const std::chrono::duration<double> passed = Clock::now() - start;
    answer = hear(seconds - passed.count(), error);
  }
  if (answer && !asksWho) identitiesOwed_ = 0;  // it would have come before
  return answer;
}

/// Makes sure that the next answer is that of the next query, but for identities that are owed.
bool QLTBenchScpi::beInStep(double seconds, QLTError* error) {
  if (!isOutOfStep_) return true;
  constexpr int mostLines = 1000;
  replies_->drop();
  if (!tell(kWho, error)) return false;
  ++identitiesOwed_;
  const auto start = Clock::now();
  QLTError problem;
  int lines = 0;
  for (; lines < mostLines; ++lines) {
    const std::chrono::duration<double> passed = Clock::now() - start;
    if (passed.count() >= seconds) break;
    const auto answer = hear(seconds - passed.count(), &problem);
    if (!answer) break;
    if (trimmed(*answer) != identity_) continue;
    --identitiesOwed_;  // an earlier try may be answered, too
    isOutOfStep_ = false;
    return true;
  }
  // It may have been taken for another one. It has to tell anew who it is.
  if (lines > 0) {
    isReady_ = false;
    return fail(error, kQLTErrorScpiAnswer, where() + " answers something else than was asked");
  }
  return failWith(error, QLTUtil::handleError(problem, where() + " still does not answer"));
}

bool QLTBenchScpi::startQuery(const std::string& query, QLTError* error) {
  return isOneMessage(query, error) && beInStep(settings_.timeOutInSeconds, error) &&
         tell(query, error);
}

/// That an answer is not what it should be. It may be that of something else.
quillon::internal::Failed QLTBenchScpi::notA(const char* what, const std::string& query,
                                             std::string_view answer, QLTError* error) {
  isOutOfStep_ = true;
  return fail(error, kQLTErrorScpiAnswer,
              format("the answer to %@ is not %@: %@", quote(query), what, quote(answer)));
}

/// The error of a query that was not answered, with the instrument's own reason where it has one.
void QLTBenchScpi::noAnswer(const std::string& query, const QLTError& cause, QLTError* error) {
  isOutOfStep_ = mayHaveErrors_ = true;
  const std::string what = "no answer to " + quote(query);
  if (isReady_ && !isLost()) {
    const bool isInStep =
        beInStep(std::min(settings_.timeOutInSeconds, kLongestAfterwards), nullptr);
    isReady_ = true;  // it may only have been slow
    auto queue = isInStep ? readQueue(nullptr) : std::nullopt;
    if (queue) std::erase_if(queue->entries, isOfAQuery);
    if (queue && !queue->entries.empty()) {
      const QLTError reason = errorOf(*queue, what);
      failWith(error, {reason.domain(), reason.code(), reason.userInfo(), cause});
      return;
    }
  }
  failWith(error, QLTUtil::handleError(cause, what));
}

// Commands.

bool QLTBenchScpi::sendUnasked(const std::string& command, QLTError* error) {
  if (!isOneCommand(command, error)) return false;
  mayHaveErrors_ = true;
  return tell(command, error);
}

bool QLTBenchScpi::send(const std::string& command, QLTError* error) {
  if (!isOneCommand(command, error)) return false;
  if (!beInStep(settings_.timeOutInSeconds, error) || !forgetErrors(command, error) ||
      !tell(command, error)) {
    return false;
  }
  return !settings_.checksQueue || checkErrors(quote(command), error);
}

bool QLTBenchScpi::command(const std::string& command, bool waitTillDone, QLTError* error) {
  if (!send(command, error)) return false;
  return !waitTillDone || this->waitTillDone(settings_.timeOutInSeconds, error);
}

bool QLTBenchScpi::waitTillDone(double seconds, QLTError* error) {
  const auto answer = ask("*OPC?", error, seconds);
  if (!answer) return false;
  return scpiNumber(*answer) == 1.0 || notA("1", "*OPC?", *answer, error);
}

bool QLTBenchScpi::reset(QLTError* error) { return command("*RST", true, error); }

// Queries.

std::optional<std::string> QLTBenchScpi::ask(const std::string& query, QLTError* error,
                                             double seconds) {
  if (!startQuery(query, error)) return std::nullopt;
  QLTError problem;
  std::optional<std::string> answer = answerTo(query, limit(seconds), &problem);
  if (!answer) noAnswer(query, problem, error);
  return answer;
}

std::optional<std::string> QLTBenchScpi::query(const std::string& query, QLTError* error) {
  std::optional<std::string> answer = ask(query, error);
  if (answer) *answer += '\n';
  return answer;
}

std::optional<double> QLTBenchScpi::number(const std::string& query, QLTError* error,
                                           double seconds) {
  const auto answer = ask(query, error, seconds);
  if (!answer) return std::nullopt;
  const auto number = scpiNumber(*answer);
  if (!number) return notA("a number", query, *answer, error);
  if (std::isnan(*number)) {
    return fail(error, kQLTErrorScpiNoReading,
                format("there is no reading for %@: %@", quote(query), quote(*answer)));
  }
  if (std::isinf(*number)) {
    return fail(error, kQLTErrorScpiOverload,
                format("an overload for %@: %@", quote(query), quote(*answer)));
  }
  return number;
}

std::optional<std::vector<double>> QLTBenchScpi::numbers(const std::string& query, QLTError* error,
                                                         double seconds) {
  const auto answer = ask(query, error, seconds);
  if (!answer) return std::nullopt;
  std::vector<double> numbers;
  for (const std::string& item : quillon::internal::split(*answer, ",")) {
    const auto number = scpiNumber(item);
    if (!number) return notA("a list of numbers", query, *answer, error);
    numbers.push_back(*number);
  }
  return numbers;
}

std::optional<std::int64_t> QLTBenchScpi::integer(const std::string& query, QLTError* error) {
  constexpr double mostExact = 9007199254740992;  // beyond it not every whole number is a double
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  const auto number = scpiNumber(*answer);
  if (!number || std::abs(*number) > mostExact || *number != std::floor(*number)) {
    return notA("a whole number", query, *answer, error);
  }
  return static_cast<std::int64_t>(*number);
}

std::optional<bool> QLTBenchScpi::boolean(const std::string& query, QLTError* error) {
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  const auto value = scpiSwitch(*answer);
  if (!value) notA("0 or 1", query, *answer, error);  // a returned failure would be false
  return value;
}

std::optional<std::vector<bool>> QLTBenchScpi::booleans(const std::string& query, QLTError* error) {
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  std::vector<bool> values;
  for (const std::string& item : quillon::internal::split(*answer, ",")) {
    const auto value = scpiSwitch(item);
    if (!value) return notA("a list of 0 and 1", query, *answer, error);
    values.push_back(*value);
  }
  return values;
}

std::optional<std::string> QLTBenchScpi::text(const std::string& query, QLTError* error) {
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  auto text = scpiString(*answer);
  if (!text) return notA("a text in quotes", query, *answer, error);
  return text;
}

std::optional<std::vector<std::string>> QLTBenchScpi::texts(const std::string& query,
                                                            QLTError* error) {
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  const auto items = scpiItems(*answer);
  if (!items) return notA("a list of texts", query, *answer, error);
  std::vector<std::string> texts;
  for (const std::string& item : *items) {
    auto text = scpiString(item);
    if (!text) return notA("a list of texts", query, *answer, error);
    texts.push_back(std::move(*text));
  }
  return texts;
}

std::optional<QLTData> QLTBenchScpi::block(const std::string& query, QLTError* error,
                                           double seconds) {
  if (!startQuery(query, error)) return std::nullopt;
  QLTError problem;
  const auto bytes = blockBytes(limit(seconds), &problem);
  if (!bytes) {
    noAnswer(query, problem, error);
    return std::nullopt;
  }
  note('<', format("a block of %d bytes", bytes->size()));
  return QLTData(bytes->begin(), bytes->end());
}

std::optional<std::string> QLTBenchScpi::blockBytes(double seconds, QLTError* error) {
  const auto start = Clock::now();
  const auto left = [&] {
    return seconds - std::chrono::duration<double>(Clock::now() - start).count();
  };
  auto head = replies_->bytes(2, seconds, error);
  // What is left of the line end of an earlier answer.
  while (head && (head->front() == '\r' || head->front() == '\n')) {
    const auto next = replies_->bytes(1, left(), error);
    head = next ? std::optional(head->substr(1) + *next) : std::nullopt;
  }
  // An identity that was asked for before it.
  while (head && identitiesOwed_ > 0 && identity_.starts_with(*head)) {
    --identitiesOwed_;
    head = replies_->rest(left(), error) ? replies_->bytes(2, left(), error) : std::nullopt;
  }
  if (!head) return std::nullopt;
  identitiesOwed_ = 0;
  const int digits = (*head)[0] == '#' ? (*head)[1] - '0' : -1;
  if (digits < 0 || digits > 9) {
    return fail(error, kQLTErrorScpiAnswer,
                "the answer is not a block, but begins " + quote(*head));
  }
  if (digits == 0) return replies_->rest(left(), error);
  const auto length = replies_->bytes(static_cast<std::size_t>(digits), left(), error);
  if (!length) return std::nullopt;
  const auto count = quillon::internal::numberIn<std::size_t>(*length);
  if (!count || *count > kLongestBlock) {
    return fail(error, kQLTErrorScpiAnswer, "a block of no possible length: " + quote(*length));
  }
  auto bytes = replies_->bytes(*count, left(), error);
  if (!bytes) return std::nullopt;
  const auto rest = replies_->rest(left(), error);
  if (!rest) return std::nullopt;
  if (!trimmed(*rest).empty()) {
    return fail(error, kQLTErrorScpiAnswer, "something follows the block: " + quote(*rest));
  }
  return bytes;
}

// Status.

std::optional<QLTBenchQueueEntry> QLTBenchScpi::nextError(QLTError* error) {
  const std::string query = "SYST:ERR?";
  QLTError problem;
  if (!startQuery(query, error)) return std::nullopt;
  const auto answer = answerTo(query, settings_.timeOutInSeconds, &problem);
  if (!answer) {
    isOutOfStep_ = mayHaveErrors_ = true;
    return failWith(error, QLTUtil::handleError(problem, "no answer to " + quote(query)));
  }
  auto entry = scpiQueueEntry(*answer);
  if (!entry) return notA("an error's number and text", query, *answer, error);
  return QLTBenchQueueEntry{entry->code, std::move(entry->text)};
}

/// Leaves nothing of the queue for a later command.
std::optional<QLTBenchScpi::Queue> QLTBenchScpi::readQueue(QLTError* error) {
  Queue queue;
  auto entry = nextError(error);
  while (entry && entry->code != 0 && queue.entries.size() < settings_.longestQueue) {
    queue.entries.push_back(*std::move(entry));
    entry = nextError(error);
  }
  if (entry && entry->code != 0) {
    if (!tell("*CLS", error)) return std::nullopt;
    entry = nextError(error);
    queue.rest = entry && entry->code == 0 ? "; and more, which were cleared (*CLS)"
                                           : "; and the queue does not end there";
  }
  if (!entry) return std::nullopt;
  mayHaveErrors_ = mayHaveErrors_ && entry->code != 0;
  return queue;
}

std::optional<std::vector<QLTBenchQueueEntry>> QLTBenchScpi::errors(QLTError* error) {
  auto queue = readQueue(error);
  if (!queue) return std::nullopt;
  return std::move(queue->entries);
}

bool QLTBenchScpi::checkErrors(const std::string& after, QLTError* error) {
  const auto queue = readQueue(error);
  if (!queue) return false;
  if (queue->entries.empty()) return true;
  return failWith(error, errorOf(*queue, after));
}

QLTError QLTBenchScpi::errorOf(const Queue& queue, const std::string& after) {
  return makeError(queue.entries.front().code, format("%@: the instrument %@ says %@", after,
                                                      where(), listOf(queue.entries, queue.rest)));
}

/// Sees to it that errors of what was not answered are not taken for those of `command`.
bool QLTBenchScpi::forgetErrors(const std::string& command, QLTError* error) {
  if (!mayHaveErrors_ || !settings_.checksQueue) return true;
  auto queue = readQueue(error);
  if (!queue) return false;
  std::erase_if(queue->entries, isOfAQuery);
  if (!queue->entries.empty()) {
    QLTLog(format("before %@: the instrument %@ says %@", quote(command), where(),
                  listOf(queue->entries, queue->rest)));
  }
  return true;
}

std::optional<std::uint8_t> QLTBenchScpi::statusRegister(const std::string& query,
                                                         QLTError* error) {
  const auto answer = ask(query, error);
  if (!answer) return std::nullopt;
  const auto value = scpiNumber(*answer);
  if (!value || !(*value >= 0 && *value <= 255) || *value != std::floor(*value)) {
    return notA("a number from 0 to 255", query, *answer, error);
  }
  return static_cast<std::uint8_t>(*value);
}

std::optional<std::uint8_t> QLTBenchScpi::statusByte(QLTError* error) {
  return statusRegister("*STB?", error);
}

std::optional<std::uint8_t> QLTBenchScpi::eventStatus(QLTError* error) {
  return statusRegister("*ESR?", error);
}
