#include "SerialNumberPrompt.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

#include "SerialNumbers.h"
#include "Signals.h"
#include "common/Retried.h"
#include "common/Text.h"

using quillon::internal::retried;
using quillon::internal::trimmed;

namespace station {

bool SerialNumberPrompt::isPossible() { return isatty(STDIN_FILENO) == 1; }

std::optional<std::string> SerialNumberPrompt::ask(const std::string& site) {
  while (true) {
    screen_.prompt("Serial number of the device at site " + site + ": ");
    const std::optional<std::string> line = readLine();
    if (!line) {
      screen_.prompt("\n");
      return std::nullopt;
    }
    std::string serialNumber = trimmed(*line);
    const std::string complaint = complaintAboutSerialNumber(serialNumber);
    if (complaint.empty()) return serialNumber;
    screen_.prompt(complaint + " (Ctrl-D ends.)\n");
  }
}

std::optional<std::string> SerialNumberPrompt::readLine() {
  while (true) {
    const std::size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    std::array<pollfd, 2> waited{{{STDIN_FILENO, POLLIN, 0}, {Signals::descriptor(), POLLIN, 0}}};
    if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) return std::nullopt;
    if (Signals::stopRequested()) return std::nullopt;
    if (waited[0].revents == 0) continue;
    std::array<char, 1024> chunk{};
    const ssize_t count = retried([&] { return read(STDIN_FILENO, chunk.data(), chunk.size()); });
    if (count <= 0) return std::nullopt;
    pending_.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace station
