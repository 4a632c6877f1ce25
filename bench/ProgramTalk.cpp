#include "ProgramTalk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/Format.h"
#include "common/PipeWrite.h"
#include "common/Retried.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using internal::format;
using internal::KeptProcess;
using internal::retried;

constexpr double kLongestGrace = 60;  // s
constexpr std::size_t kLongestErrors = 65536;
constexpr std::size_t kLongestInMessage = 500;

std::vector<std::string> environmentOf(const QLTProgram& program) {
  std::vector<std::string> all;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    if (!program.environment.contains(std::string(text.substr(0, text.find('='))))) {
      all.emplace_back(text);
    }
  }
  for (const auto& [name, value] : program.environment) {
    all.push_back(name + '=');
    all.back() += value;
  }
  return all;
}

/// Where the program of that name may be.
std::vector<std::string> filesOf(const std::string& name,
                                 const std::vector<std::string>& environment) {
  if (name.find('/') != std::string::npos) return {name};
  std::string path = "/usr/local/bin:/usr/bin:/bin";
  for (const std::string& entry : environment) {
    if (entry.starts_with("PATH=")) path = entry.substr(5);
  }
  std::vector<std::string> files;
  for (const std::string& folder : internal::split(path, ":")) {
    files.push_back(folder.empty() ? "./" : folder + '/');
    files.back() += name;
  }
  return files;
}

/// Appends what a pipe holds, up to so many bytes. False at its end.
bool takeFrom(int pipe, std::string& bytes, std::size_t most) {
  std::array<char, 16384> buffer;
  while (most > 0) {
    const std::size_t wanted = std::min(most, buffer.size());
    const ssize_t count = retried([&] { return read(pipe, buffer.data(), wanted); });
    if (count == 0 || (count < 0 && errno != EAGAIN)) return false;
    if (count < 0) return true;
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
    most -= static_cast<std::size_t>(count);
    // What comes next is taken next time; asking once more costs as much as the reading.
    if (static_cast<std::size_t>(count) < wanted) return true;
  }
  return true;
}

}  // namespace

std::unique_ptr<ProgramTalk> ProgramTalk::start(const QLTProgram& program, double graceInSeconds,
                                                std::string& problem) {
  if (program.words.empty() || program.words.front().empty()) {
    problem = "no program is named";
    errno = 0;
    return nullptr;
  }
  KeptProcess::Start start;
  start.words = program.words;
  start.environment = environmentOf(program);
  start.folder = program.folder;
  start.files = filesOf(program.words.front(), start.environment);
  const double grace = graceInSeconds > 0 ? std::min(graceInSeconds, kLongestGrace) : 0;
  start.grace = std::chrono::milliseconds(std::llround(grace * 1000));
  KeptProcess::Problem stopped;
  auto process = KeptProcess::start(start, stopped);
  if (process) return std::unique_ptr<ProgramTalk>(new ProgramTalk(std::move(process)));
  problem = stopped.stage == KeptProcess::Stage::Folder
                ? format("does not start in the folder %@", program.folder)
                : "does not start";
  errno = stopped.reason;
  return nullptr;
}

std::ptrdiff_t ProgramTalk::send(std::string_view bytes, Deadline deadline) {
  while (true) {
    if (process_->input() < 0) {
      errno = 0;
      return -1;
    }
    const ssize_t count = internal::writeWithoutSignal(process_->input(), bytes);
    if (count >= 0 || errno != EAGAIN) return count;
    if (!await(deadline, true)) return 0;
  }
}

void ProgramTalk::sendAndClose(std::string bytes) {
  outgoing_ = std::move(bytes);
  sent_ = 0;
  sendRest();
}

void ProgramTalk::closeInput() {
  outgoing_.clear();
  process_->closeInput();
}

void ProgramTalk::sendRest() {
  if (process_->input() < 0) return;
  if (sent_ < outgoing_.size()) {
    const auto rest = std::string_view(outgoing_).substr(sent_);
    const ssize_t count = internal::writeWithoutSignal(process_->input(), rest);
    if (count > 0) sent_ += static_cast<std::size_t>(count);
    if (count < 0 && errno != EAGAIN) sent_ = outgoing_.size();  // it reads no more
  }
  if (sent_ >= outgoing_.size()) closeInput();
}

bool ProgramTalk::await(Deadline deadline) {
  return isOver() || await(deadline, !outgoing_.empty());
}

bool ProgramTalk::await(Deadline deadline, bool forInput) {
  std::array<pollfd, 4> watched{{{isFull() ? -1 : process_->output(), POLLIN, 0},
                                 {process_->errors(), POLLIN, 0},
                                 {process_->ended(), POLLIN, 0},
                                 {forInput ? process_->input() : -1, POLLOUT, 0}}};
  if (!awaitReady(watched.data(), watched.size(), deadline)) return false;
  if (watched[3].revents != 0 && !outgoing_.empty()) sendRest();
  if (watched[2].revents != 0) process_->status();
  if (watched[1].revents != 0) takeInErrors();
  if (watched[0].revents != 0) takeInOutput();
  return true;
}

std::size_t ProgramTalk::takePending(char* bytes, std::size_t size) {
  const std::size_t count = std::min(size, pending_.size());
  std::copy_n(pending_.begin(), count, bytes);
  pending_.erase(0, count);
  return count;
}

void ProgramTalk::takeIn() {
  takeInErrors();
  takeInOutput();
}

void ProgramTalk::takeInOutput() {
  if (process_->output() < 0 || isFull()) return;
  if (!takeFrom(process_->output(), pending_, longestPending_ - pending_.size())) {
    process_->closeOutput();
  }
}

void ProgramTalk::takeInErrors() {
  if (process_->errors() < 0) return;
  if (!takeFrom(process_->errors(), errors_, kLongestErrors)) process_->closeErrors();
  if (errors_.size() > kLongestErrors) errors_.erase(0, errors_.size() - kLongestErrors);
}

std::string ProgramTalk::lastErrors() const {
  const std::string text = internal::trimmed(errors_);
  if (text.empty()) return "";
  const std::string last =
      text.size() > kLongestInMessage ? "..." + text.substr(text.size() - kLongestInMessage) : text;
  return "; standard error: " + internal::printable(last);
}

std::optional<QLTProgramEnd> ProgramTalk::ended() const {
  const std::optional<int> status = process_->status();
  if (!status) return std::nullopt;
  if (WIFEXITED(*status)) return QLTProgramEnd{WEXITSTATUS(*status), 0};
  return QLTProgramEnd{std::nullopt, WTERMSIG(*status)};
}

bool ProgramTalk::isOver() {
  if (!process_->status()) return false;
  // Nothing of its group is left that could say more. One that has left the group, and keeps the
  // streams, is not waited for.
  const auto drain = [&](auto takeInOne, auto isOpen, auto size) {
    while (isOpen() && !isFull()) {
      const std::size_t before = size();
      (this->*takeInOne)();
      if (size() == before) return true;
    }
    return !isOpen();
  };
  return drain(
             &ProgramTalk::takeInErrors, [&] { return process_->errors() >= 0; },
             [&] { return errors_.size(); }) &&
         drain(
             &ProgramTalk::takeInOutput, [&] { return process_->output() >= 0; },
             [&] { return pending_.size(); });
}

}  // namespace quillon::bench
