#include "QLTBenchConsole.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

#include <QLTErrorCodes.h>

#include <re2/re2.h>

#include "bench/Fail.h"
#include "bench/Ready.h"
#include "bench/TerminalText.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::fail;
using quillon::internal::fixedText;
using quillon::internal::format;
using quillon::internal::kBlanks;
using quillon::internal::kNewlines;
using quillon::internal::printable;
using quillon::internal::split;
using quillon::internal::trimmed;

namespace {

constexpr std::size_t kLongestAnswer = std::size_t{16} << 20;
constexpr std::size_t kTail = 4096;  // of what was heard; holds the last line, and noise around it
constexpr std::size_t kLongestQuote = 80;  // of that, in a message
constexpr double kBootQuiet = 2;           // s; see `bootWaitInSeconds`
constexpr double kSettling = 0.3;          // s; between a late prompt and that of an empty line

double secondsUntil(quillon::bench::Deadline end) {
  const std::chrono::duration<double> left = end - quillon::bench::Deadline::clock::now();
  return std::max(left.count(), 0.0);
}

std::string withoutBlanks(std::string_view text) {
  std::string packed;
  std::copy_if(text.begin(), text.end(), std::back_inserter(packed),
               [](char letter) { return letter != ' ' && letter != '\r'; });
  return packed;
}

}  // namespace

/// The expressions, read.
struct QLTBenchConsole::Expressions {
  explicit Expressions(const Settings& settings)
      : prompt(settings.prompt, RE2::Quiet),
        user(settings.userPrompt, RE2::Quiet),
        password(settings.passwordPrompt, RE2::Quiet),
        noise("(?:" + settings.noise + ")[^\\r\\n]*\\r*\\n", RE2::Quiet) {}

  /// The first that cannot be read; null when all can.
  const RE2* wrong() const {
    for (const RE2* one : {&prompt, &user, &password, &noise}) {
      if (!one->ok()) return one;
    }
    return nullptr;
  }

  RE2 prompt;
  RE2 user;
  RE2 password;
  RE2 noise;
};

/// What the last line is.
enum class QLTBenchConsole::Found { Nothing, Prompt, User, Password, Failed };

std::shared_ptr<QLTBenchConsole> QLTBenchConsole::initWithLine(std::shared_ptr<QLTBenchLine> line,
                                                               Settings settings) {
  if (!line) return nullptr;
  return std::shared_ptr<QLTBenchConsole>(
      new QLTBenchConsole(std::move(line), std::move(settings)));
}

QLTBenchConsole::QLTBenchConsole(std::shared_ptr<QLTBenchLine> line, Settings settings)
    : com_(std::move(line)),
      settings_(std::move(settings)),
      expressions_(std::make_unique<Expressions>(settings_)) {}

QLTBenchConsole::~QLTBenchConsole() = default;

bool QLTBenchConsole::isUsable(QLTError* error) const {
  if (settings_.prompt.empty()) {
    return fail(error, kQLTErrorConfigWrong, where() + ": no prompt is given for the console");
  }
  const RE2* const wrong = expressions_->wrong();
  if (wrong == nullptr) return true;
  return fail(
      error, kQLTErrorConfigWrong,
      format("%@: no regular expression: %@: %@", where(), wrong->pattern(), wrong->error()));
}

// What is heard.

std::string QLTBenchConsole::cleaned(std::string_view text) const {
  std::string clean =
      settings_.stripsEscapes ? quillon::bench::withoutEscapes(text) : std::string(text);
  if (!settings_.noise.empty()) RE2::GlobalReplace(&clean, expressions_->noise, "");
  return clean;
}

QLTBenchConsole::Found QLTBenchConsole::foundInLastLine() const {
  const std::size_t length = std::min(heard_.size(), kTail);
  const std::string tail = cleaned(std::string_view(heard_).substr(heard_.size() - length));
  std::string line = trimmed(std::string_view(tail).substr(tail.rfind('\n') + 1), "\r");
  line.erase(0, line.rfind('\r') + 1);
  const std::string_view text = line;
  const std::string_view shorter = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  const auto is = [&](const RE2& expression) {
    return RE2::FullMatch(text, expression) || RE2::FullMatch(shorter, expression);
  };
  if (shorter.empty()) return Found::Nothing;
  if (is(expressions_->prompt)) return Found::Prompt;
  if (!settings_.user.empty() || !settings_.password.empty()) {
    if (is(expressions_->user)) return Found::User;
    if (is(expressions_->password)) return Found::Password;
  }
  return Found::Nothing;
}

/// Listens until a prompt of any kind is the last thing that comes for `quiet` seconds.
QLTBenchConsole::Found QLTBenchConsole::listen(double seconds, double quiet, QLTError* error) {
  const auto deadline = quillon::bench::deadlineIn(seconds);
  while (true) {
    const Found found = foundInLastLine();
    const double left = secondsUntil(deadline);
    const double wait = found == Found::Nothing ? left : quiet;
    const auto text = com_->readSome(wait, error);
    if (!text) return Found::Failed;
    if (text->empty() && (found != Found::Nothing || left <= 0)) return found;
    // Who never stops does not show a prompt either.
    if (left <= 0 && found == Found::Nothing) return Found::Nothing;
    heard_ += *text;
    if (heard_.size() > kLongestAnswer) {
      fail(error, kQLTErrorConsoleNoPrompt, where() + ": said 16 MiB without a prompt");
      return Found::Failed;
    }
  }
}

bool QLTBenchConsole::failNoPrompt(const std::string& what, double seconds, QLTError* error) const {
  std::string last = trimmed(cleaned(heard_));
  if (last.size() > kLongestQuote) last.erase(0, last.size() - kLongestQuote);
  if (!settings_.password.empty()) {
    for (std::size_t at = 0; (at = last.find(settings_.password, at)) != std::string::npos;) {
      last.replace(at, settings_.password.size(), "***");
    }
  }
  const std::string came = last.empty() ? "; nothing came" : "; last came: " + printable(last);
  return fail(error, kQLTErrorConsoleNoPrompt,
              format("%@: %@ within %@ s%@", where(), what, fixedText(seconds, 1), came));
}

// Getting ready.

bool QLTBenchConsole::open(QLTError* error) {
  if (!isUsable(error)) return false;
  if (!com_->isOpen() || com_->isLost()) {
    if (!com_->reopen(error)) return false;
  }
  heard_.clear();
  Found found = Found::Nothing;
  if (settings_.bootWaitInSeconds > 0) {
    // What it has said already counts: it may have started before.
    found = awaitStart(error);
    if (found == Found::Nothing) {
      return failNoPrompt("did not start", settings_.bootWaitInSeconds, error);
    }
  } else {
    com_->discardInput();
    const std::string begin = isOutOfStep_ ? settings_.interrupt : "";
    if (!com_->write(begin + settings_.lineEnd, error)) return false;
    found = listen(timeOutInSeconds_, isOutOfStep_ ? kSettling : settings_.quietInSeconds, error);
  }
  return logIn(found, error);
}

/// Listens to a device that starts.
QLTBenchConsole::Found QLTBenchConsole::awaitStart(QLTError* error) {
  const auto deadline = quillon::bench::deadlineIn(settings_.bootWaitInSeconds);
  while (true) {
    const std::size_t before = heard_.size();
    const double left = secondsUntil(deadline);
    const Found found = listen(std::min(left, kBootQuiet), settings_.quietInSeconds, error);
    if (found != Found::Nothing || left <= 0) return found;
    // It may wait for somebody, without a prompt.
    if (heard_.size() == before && !com_->write(settings_.lineEnd, error)) return Found::Failed;
  }
}

bool QLTBenchConsole::logIn(Found found, QLTError* error) {
  bool hasGivenUser = false;
  bool hasGivenPassword = false;
  while (true) {
    switch (found) {
      case Found::Failed:
        return false;
      case Found::Nothing:
        return failNoPrompt("no prompt", timeOutInSeconds_, error);
      case Found::Prompt:
        isOutOfStep_ = false;
        return true;
      case Found::User:
      case Found::Password: {
        bool& hasGiven = found == Found::User ? hasGivenUser : hasGivenPassword;
        if (std::exchange(hasGiven, true)) {
          return fail(error, kQLTErrorConsoleLogIn,
                      format("%@: the log-in of %@ is refused", where(), settings_.user));
        }
        heard_.clear();
        const bool isGiven = found == Found::User
                                 ? com_->write(settings_.user + settings_.lineEnd, error)
                                 : com_->writeSecret(settings_.password + settings_.lineEnd, error);
        if (!isGiven) return false;
        found = listen(timeOutInSeconds_, settings_.quietInSeconds, error);
      }
    }
  }
}

/// After an answer that did not come: makes sure that nothing of it is still to come.
bool QLTBenchConsole::resynchronise(QLTError* error) {
  heard_.clear();
  com_->discardInput();
  // Whatever the device still does, it comes to this line behind it.
  if (!com_->write(settings_.interrupt + settings_.lineEnd, error)) return false;
  switch (listen(timeOutInSeconds_, kSettling, error)) {
    case Found::Failed:
      return false;
    case Found::Prompt:
      isOutOfStep_ = false;
      return true;
    case Found::User:
    case Found::Password:
      return failLoggedOut(error);
    case Found::Nothing:
      break;
  }
  return failNoPrompt("not ready after a command that timed out: no prompt", timeOutInSeconds_,
                      error);
}

bool QLTBenchConsole::failLoggedOut(QLTError* error) const {
  return fail(error, kQLTErrorConsoleLogIn, where() + ": asks for a log-in; has it restarted?");
}

// Commands.

std::optional<std::vector<std::string>> QLTBenchConsole::sendCommand(const std::string& command,
                                                                     QLTError* error) {
  if (!isUsable(error)) return std::nullopt;
  if (command.find_first_of("\r\n") != command.npos) {
    return fail(error, kQLTErrorLineCommand,
                format("%@: \"%@\" holds a line end: send one command at a time, without its end",
                       where(), printable(command)));
  }
  if (isOutOfStep_ && !resynchronise(error)) return std::nullopt;
  heard_.clear();
  com_->discardInput();
  isOutOfStep_ = true;
  if (!com_->write(command + settings_.lineEnd, error)) return std::nullopt;
  const Found found = listen(timeOutInSeconds_, settings_.quietInSeconds, error);
  if (found == Found::Failed) return std::nullopt;
  if (found == Found::Nothing) {
    failNoPrompt("no prompt", timeOutInSeconds_, error);
    return std::nullopt;
  }
  if (found != Found::Prompt) {
    failLoggedOut(error);
    return std::nullopt;
  }
  isOutOfStep_ = false;
  std::vector<std::string> lines = split(trimmed(cleaned(heard_), kBlanks), "\n");
  for (std::string& line : lines) line = trimmed(line, kNewlines);
  const bool isEchoWrong =
      settings_.echo == Settings::Echo::Checked && !isEchoOf(command, lines.front());
  if (!isEchoWrong) return lines;
  return fail(error, kQLTErrorConsoleEcho,
              format("%@: the device heard \"%@\" instead of \"%@\"", where(),
                     printable(lines.front()), printable(command)));
}

bool QLTBenchConsole::isEchoOf(std::string_view command, std::string_view line) const {
  // A terminal that wraps its lines adds a blank and a carriage return at its edge.
  return settings_.echo != Settings::Echo::Never && withoutBlanks(command) == withoutBlanks(line);
}

std::optional<std::string> QLTBenchConsole::output(const std::string& command, QLTError* error) {
  const auto lines = sendCommand(command, error);
  if (!lines) return std::nullopt;
  const std::size_t first = lines->size() > 1 && isEchoOf(command, lines->front()) ? 1 : 0;
  std::string text;
  for (std::size_t i = first; i + 1 < lines->size(); ++i) {
    if (i > first) text += '\n';
    text += (*lines)[i];
  }
  return text;
}

// The line.

bool QLTBenchConsole::resetCommunication(QLTError* error) { return com_->reopen(error); }

bool QLTBenchConsole::isLost() const { return com_->isLost(); }

std::string QLTBenchConsole::where() const { return com_->where(); }

bool QLTBenchConsole::reopen(QLTError* error) { return resetCommunication(error); }
