#include "QLTBenchProgram.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>
#include <vector>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/Lines.h"
#include "bench/ProgramTalk.h"
#include "bench/Simulated.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::bench::ProgramTalk;
using quillon::bench::Simulated;
using quillon::internal::fixedText;
using quillon::internal::format;

namespace {

using Attribute = QLTInstrumentAttribute;

constexpr double kDying = 0.1;  // s

/// NAME:VALUE words.
std::map<std::string, std::string> environmentIn(const std::vector<std::string>& words) {
  std::map<std::string, std::string> environment;
  for (const std::string& word : words) {
    const std::size_t colon = std::min(word.find(':'), word.size());
    environment[word.substr(0, colon)] = colon < word.size() ? word.substr(colon + 1) : "";
  }
  return environment;
}

/// One whose command line cannot be read: it never opens, and tells why.
class Unreadable : public QLTBenchProgram {
 public:
  explicit Unreadable(std::string problem) : QLTBenchProgram({}), problem_(std::move(problem)) {}
  std::string where() const override { return "program"; }

 protected:
  bool openLine(std::string& reason) override {
    reason = problem_;
    errno = 0;
    return false;
  }

 private:
  std::string problem_;
};

template <typename Line>
std::shared_ptr<QLTBenchLine> programIn(const QLTDictionary& entry) {
  QLTError problem;
  const auto words = QLTProgram::wordsOf(entry.text("command"), &problem);
  const auto variables = entry.contains("environment")
                             ? QLTProgram::wordsOf(entry.text("environment"), &problem)
                             : std::vector<std::string>();
  if (!words || !variables) {
    return std::make_shared<Unreadable>(problem.description().value_or(""));
  }
  auto line =
      std::make_shared<Line>(QLTProgram{*words, entry.text("folder"), environmentIn(*variables)});
  line->setGraceInSeconds(entry.number("grace"));
  return line;
}

}  // namespace

quillon::bench::LineKind quillon::bench::programLine() {
  return {"QLTBenchProgram",
          "ASCII device over a program's standard input and output",
          {Attribute::text("command",
                           "the program, searched for in PATH unless it has a slash, and its "
                           "arguments, quoted as for a shell"),
           Attribute::path("folder", "its working folder; the station's where it is not given"),
           Attribute::text("environment",
                           "what is set beside the station's own environment: words NAME:VALUE"),
           Attribute::seconds("grace", 0, 60,
                              "how long it may take to end after SIGTERM, before SIGKILL")
               .standard("2")},
          [](const QLTDictionary& entry) {
            return isSimulated(entry) ? programIn<Simulated<QLTBenchProgram>>(entry)
                                      : programIn<QLTBenchProgram>(entry);
          }};
}

QLTBenchProgram::QLTBenchProgram(QLTProgram program) : program_(std::move(program)) {}

QLTBenchProgram::~QLTBenchProgram() { QLTBenchProgram::close(); }

std::string QLTBenchProgram::where() const { return program_.name(); }

bool QLTBenchProgram::openLine(std::string& reason) {
  talk_ = ProgramTalk::start(program_, graceInSeconds_, reason);
  return talk_ != nullptr;
}

void QLTBenchProgram::closeLine() { talk_.reset(); }

std::ptrdiff_t QLTBenchProgram::receive(char* bytes, std::size_t size, Deadline deadline) {
  while (talk_->pending().empty()) {
    if (talk_->isOver()) {
      if (!talk_->pending().empty()) break;
      errno = 0;
      return -1;
    }
    if (!talk_->await(deadline)) return 0;
  }
  return static_cast<std::ptrdiff_t>(talk_->takePending(bytes, size));
}

std::ptrdiff_t QLTBenchProgram::send(const char* bytes, std::size_t size, Deadline deadline) {
  const std::ptrdiff_t count = talk_->send({bytes, size}, deadline);
  if (count >= 0 || errno != EPIPE) return count;
  // It has closed its input, commonly because it ends, which is known in a moment.
  const auto moment = quillon::bench::deadlineIn(kDying);
  while (!talk_->ended() && talk_->await(moment)) {
  }
  errno = 0;
  return -1;
}

bool QLTBenchProgram::hasEnded() const { return talk_->ended().has_value(); }

std::string QLTBenchProgram::endText() const {
  if (!talk_) return QLTBenchLine::endText();  // one that is recorded
  const auto end = talk_->ended();
  return (end ? "has ended: " + end->text() : "has closed its streams") + talk_->lastErrors();
}

void QLTBenchProgram::closeInput() {
  if (talk_) talk_->closeInput();
}

std::optional<QLTProgramEnd> QLTBenchProgram::ended() const {
  return talk_ ? talk_->ended() : std::nullopt;
}

std::optional<QLTProgramEnd> QLTBenchProgram::awaitEnd(double seconds, QLTError* error) {
  if (!talk_) return fail(error, kQLTErrorLineRead, where() + ": the line is not open");
  const auto deadline = quillon::bench::deadlineIn(seconds);
  while (!talk_->ended()) {
    if (talk_->await(deadline)) continue;
    return fail(error, kQLTErrorLineTimedOut,
                format("%@: has not ended within %@ s%@", where(), fixedText(seconds, 1),
                       talk_->lastErrors()));
  }
  return talk_->ended();
}

std::string QLTBenchProgram::errors() {
  if (!talk_) return "";
  talk_->takeIn();
  return talk_->errors();
}
