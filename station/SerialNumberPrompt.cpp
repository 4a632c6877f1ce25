#include "SerialNumberPrompt.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "Keyboard.h"
#include "Signals.h"
#include "Text.h"
#include "common/Retried.h"

using quillon::internal::retried;
using quillon::internal::trimmed;

namespace station {
namespace {

/// For `poll`, which cannot wait longer than some weeks.
int millisecondsTo(std::optional<SerialNumberPrompt::Clock::time_point> until) {
  if (!until) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*until - SerialNumberPrompt::Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1'000'000'000));
}

}  // namespace

bool SerialNumberPrompt::isPossible() { return isatty(STDIN_FILENO) == 1; }

std::optional<std::string> SerialNumberPrompt::ask(
    const std::string& question, const std::function<std::string(const std::string&)>& complaint,
    const Patience& patience) {
  while (true) {
    tcflush(STDIN_FILENO, TCIFLUSH);
    const std::optional<std::string> line =
        screen_.isLive() ? readLive(question, patience) : readLine(question, patience);
    if (!line) return std::nullopt;
    std::string serialNumber = trimmed(*line);
    const std::string problem = complaint(serialNumber);
    if (problem.empty()) return serialNumber;
    screen_.prompt(problem + patience.hint + "\n");
  }
}

/// Where the terminal shows what is typed.
std::optional<std::string> SerialNumberPrompt::readLine(const std::string& question,
                                                        const Patience& patience) {
  screen_.prompt(question);
  std::string line;
  while (true) {
    const std::string typed = read(patience);
    if (typed.empty()) {
      screen_.prompt("\n");
      return std::nullopt;
    }
    line += typed;
    // What follows the line came before the next question.
    const std::size_t end = line.find('\n');
    if (end != std::string::npos) return line.substr(0, end);
  }
}

/// Where lines of the sites go above the question while it is answered.
std::optional<std::string> SerialNumberPrompt::readLive(const std::string& question,
                                                        const Patience& patience) {
  // Only its last line stays.
  const std::size_t lastLine = question.rfind('\n') + 1;
  if (lastLine > 0) screen_.prompt(question.substr(0, lastLine));
  TypedLine line;
  TypedLine::State state = TypedLine::State::Typing;
  while (state == TypedLine::State::Typing) {
    screen_.ask(question.substr(lastLine) + printable(line.text()));
    const std::string typed = read(patience);
    if (typed.empty()) state = TypedLine::State::Ended;
    for (const char key : typed) {
      // What follows the line came before the next question.
      if (state == TypedLine::State::Typing) state = line.take(key);
    }
  }
  screen_.ask(std::nullopt);
  if (state == TypedLine::State::Ended) return std::nullopt;
  return line.text();
}

std::string SerialNumberPrompt::read(const Patience& patience) {
  while (true) {
    std::array<pollfd, 3> waited{{{STDIN_FILENO, POLLIN, 0},
                                  {Signals::descriptor(), POLLIN, 0},
                                  {patience.cancelled, POLLIN, 0}}};
    if (poll(waited.data(), waited.size(), millisecondsTo(patience.until)) < 0 && errno != EINTR)
      return "";
    if (Signals::stopRequested() || waited[2].revents != 0) return "";
    if (patience.until && Clock::now() >= *patience.until) return "";
    if (waited[0].revents == 0) continue;
    std::array<char, 1024> chunk{};
    const ssize_t count = retried([&] { return ::read(STDIN_FILENO, chunk.data(), chunk.size()); });
    return {chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }
}

}  // namespace station
