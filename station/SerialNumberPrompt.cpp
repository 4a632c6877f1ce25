#include "SerialNumberPrompt.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "Signals.h"
#include "common/Retried.h"
#include "common/Text.h"

using quillon::internal::retried;
using quillon::internal::trimmed;

namespace station {

bool SerialNumberPrompt::isPossible() { return isatty(STDIN_FILENO) == 1; }

std::optional<std::string> SerialNumberPrompt::ask(
    const std::string& question, const std::function<std::string(const std::string&)>& complaint) {
  while (true) {
    tcflush(STDIN_FILENO, TCIFLUSH);
    screen_.prompt(question);
    const std::optional<std::string> line = readLine();
    if (!line) {
      screen_.prompt("\n");
      return std::nullopt;
    }
    std::string serialNumber = trimmed(*line);
    const std::string problem = complaint(serialNumber);
    if (problem.empty()) return serialNumber;
    screen_.prompt(problem + " (Ctrl-D ends.)\n");
  }
}

std::optional<std::string> SerialNumberPrompt::readLine() {
  std::string line;
  while (true) {
    std::array<pollfd, 2> waited{{{STDIN_FILENO, POLLIN, 0}, {Signals::descriptor(), POLLIN, 0}}};
    if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) return std::nullopt;
    if (Signals::stopRequested()) return std::nullopt;
    if (waited[0].revents == 0) continue;
    std::array<char, 1024> chunk{};
    const ssize_t count = retried([&] { return read(STDIN_FILENO, chunk.data(), chunk.size()); });
    if (count <= 0) return std::nullopt;
    line.append(chunk.data(), static_cast<std::size_t>(count));
    // What follows the line came before the next question.
    const std::size_t end = line.find('\n');
    if (end != std::string::npos) return line.substr(0, end);
  }
}

}  // namespace station
