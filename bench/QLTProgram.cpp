#include "QLTProgram.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/ProgramTalk.h"
#include "common/Format.h"

using quillon::bench::deadlineIn;
using quillon::bench::fail;
using quillon::bench::failWith;
using quillon::bench::ProgramTalk;
using quillon::internal::fixedText;
using quillon::internal::format;

namespace {

constexpr std::size_t kLongestOutput = std::size_t{64} << 20;
constexpr double kRunGrace = 1;  // s

/// What a program that was ended before its time had said, beside why it was ended.
QLTError cutShort(std::int32_t code, const std::string& why, ProgramTalk& talk) {
  const QLTError record = QLTUtil::handleError(code, why + talk.lastErrors());
  QLTDictionary information = record.userInfo();
  information.set("output", talk.takePending());
  information.set("errors", talk.errors());
  return {record.domain(), record.code(), information};
}

/// Splits a line into words.
class Words {
 public:
  explicit Words(std::string_view line) : line_(line) {}

  std::optional<std::vector<std::string>> split(QLTError* error) {
    while (at_ < line_.size()) {
      const char next = line_[at_++];
      if (next == ' ' || next == '\t') {
        endWord();
      } else if (next == '\'' || next == '"') {
        if (!quoted(next)) return fail(error, kQLTErrorConfigWrong, problem_);
      } else if (next == '\\') {
        if (at_ == line_.size())
          return fail(error, kQLTErrorConfigWrong, "a backslash ends the command line");
        add(line_[at_++]);
      } else if (std::string_view("|&;<>$`").find(next) != std::string_view::npos) {
        return fail(error, kQLTErrorConfigWrong, meaningless(next));
      } else {
        add(next);
      }
    }
    endWord();
    if (words_.empty()) return fail(error, kQLTErrorConfigWrong, "an empty command line");
    return std::move(words_);
  }

 private:
  static std::string meaningless(char special) {
    return format(
        "\"%@\" in a command line: no shell reads it; quote it, or have it read by sh -c '...'",
        std::string(1, special));
  }

  void add(char letter) {
    isInWord_ = true;
    word_ += letter;
  }
  void endWord() {
    if (isInWord_) words_.push_back(std::exchange(word_, {}));
    isInWord_ = false;
  }
  bool quoted(char quote) {
    isInWord_ = true;
    for (; at_ < line_.size(); ++at_) {
      char next = line_[at_];
      if (next == quote) {
        ++at_;
        return true;
      }
      if (quote == '"') {
        const bool escapes =
            next == '\\' && at_ + 1 < line_.size() &&
            std::string_view("\"\\$`").find(line_[at_ + 1]) != std::string_view::npos;
        if (escapes) {
          next = line_[++at_];
        } else if (next == '$' || next == '`') {
          problem_ = meaningless(next);
          return false;
        }
      }
      word_ += next;
    }
    problem_ = format("a command line whose quote %@ is not closed", std::string(1, quote));
    return false;
  }

  std::string_view line_;
  std::size_t at_ = 0;
  std::string word_;
  bool isInWord_ = false;
  std::vector<std::string> words_;
  std::string problem_;
};

}  // namespace

std::string QLTProgramEnd::text() const {
  if (exitStatus) return format("exit status %d", *exitStatus);
  return format("ended by signal %d (%s)", signal, strsignal(signal));
}

std::optional<std::vector<std::string>> QLTProgram::wordsOf(const std::string& line,
                                                            QLTError* error) {
  return Words(line).split(error);
}

std::string QLTProgram::name() const {
  if (words.empty()) return "";
  const std::string& path = words.front();
  return path.substr(path.rfind('/') + 1);
}

std::optional<QLTProgramOutput> QLTProgram::run(double timeOutInSeconds, const std::string& input,
                                                QLTError* error) const {
  std::string problem;
  const auto talk = ProgramTalk::start(*this, kRunGrace, problem);
  if (!talk) {
    const int reason = errno;
    const QLTError cause = reason != 0 ? QLTError::fromErrno(reason, name()) : QLTError();
    const std::string why = cause ? ": " + std::generic_category().message(reason) : "";
    return fail(error, kQLTErrorLineOpen, name() + ": " + problem + why, cause);
  }
  talk->setLongestPending(kLongestOutput);
  const auto deadline = deadlineIn(timeOutInSeconds);
  talk->sendAndClose(input);
  while (!talk->isOver() && !talk->isFull()) {
    if (talk->await(deadline)) continue;
    const std::string why =
        format("%@: has not ended within %@ s", name(), fixedText(timeOutInSeconds, 1));
    talk->end();
    return failWith(error, cutShort(kQLTErrorLineTimedOut, why, *talk));
  }
  if (talk->isFull()) {
    const std::string why = format("%@: said more than %d bytes", name(), kLongestOutput);
    talk->end();
    return failWith(error, cutShort(kQLTErrorLineRead, why, *talk));
  }
  return QLTProgramOutput{*talk->ended(), talk->takePending(), talk->errors()};
}
