#include "SerialNumbers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include <poll.h>
#include <unistd.h>

#include "CannotRun.h"
#include "Signals.h"
#include "Text.h"
#include "common/Retried.h"

using quillon::internal::retried;
using quillon::internal::trimmed;

namespace station {
namespace {

/// Why a text cannot be a serial number; empty when it can.
std::string complaintAbout(const std::string& serialNumber) {
  if (serialNumber.empty()) return "A serial number is needed.";
  const bool breaksLines = std::any_of(serialNumber.begin(), serialNumber.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == ',' || c == '"';
  });
  // The result log has no way to write these.
  if (breaksLines) return "A serial number must not contain commas, quotes or control characters.";
  return {};
}

}  // namespace

std::map<std::string, std::string> parseSerialNumbers(const std::vector<std::string>& texts) {
  std::map<std::string, std::string> result;
  for (const std::string& text : texts) {
    const std::size_t separator = text.find('=');
    const std::string site = text.substr(0, separator);
    if (separator == std::string::npos || site.empty()) {
      throw CannotRun("--sn " + printable(text) + " is not of the form SITE=SERIAL",
                      "For example: --sn left=SN1001");
    }
    const std::string serialNumber = trimmed(std::string_view(text).substr(separator + 1));
    const std::string complaint = complaintAbout(serialNumber);
    if (!complaint.empty()) throw CannotRun("--sn " + printable(text) + ": " + complaint);
    if (!result.emplace(site, serialNumber).second) {
      throw CannotRun("--sn is given twice for the site " + site);
    }
  }
  return result;
}

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
    const std::string complaint = complaintAbout(serialNumber);
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
