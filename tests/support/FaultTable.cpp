#include "FaultTable.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

#include <QLTValue.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/Errors.h"

namespace test {
namespace {

constexpr std::string_view readTag = "{Serial_Read ";
constexpr std::string_view countMark = "too many bytes ";

std::string withoutChance(std::string line) {
  // Longer than any run in the name of a temporary folder.
  const std::string run(8, 'x');
  for (std::size_t at = 0; (at = line.find(run, at)) != std::string::npos; ++at) {
    line.replace(at, line.find_first_not_of('x', at) - at, "x");
  }
  if (const std::size_t at = line.find(countMark); at != std::string::npos) {
    const auto digits = line.begin() + static_cast<std::ptrdiff_t>(at + countMark.size());
    line.replace(digits, std::find_if_not(digits, line.end(), ::isdigit), "N");
  }
  return line;
}

bool isPairAgain(const std::vector<std::string>& lines) {
  const std::size_t n = lines.size();
  return n >= 4 && lines[n - 1] == lines[n - 3] && lines[n - 2] == lines[n - 4];
}

QLTError withoutChance(const QLTError& error) {
  if (!error.description()) return error;
  QLTDictionary userInfo = error.userInfo();
  userInfo.set(kQLTErrorDescriptionKey, withoutChance(*error.description()));
  return {error.domain(), error.code(), userInfo};
}

}  // namespace

std::vector<std::string> withoutChance(const std::vector<std::string>& lines) {
  std::vector<std::string> kept;
  for (const std::string& line : lines) {
    const bool continues =
        !kept.empty() && kept.back().starts_with(readTag) && line.starts_with(readTag);
    if (continues) {
      kept.back() += line.substr(line.find("}: ") + 3);
    } else {
      kept.push_back(line);
    }
    if (isPairAgain(kept)) kept.resize(kept.size() - 2);
  }
  for (std::string& line : kept) line = withoutChance(std::move(line));
  return kept;
}

std::optional<std::string> joined(const std::optional<std::vector<std::string>>& pieces) {
  if (!pieces) return std::nullopt;
  std::string text;
  for (const std::string& piece : *pieces) text += (&piece == &pieces->front() ? "" : "|") + piece;
  return text;
}

void expectOutcome(const Outcome& expected, bool withSlot, ConsoleLog& log,
                   const std::function<std::optional<std::string>(QLTError* slot)>& operation) {
  log.clear();
  QLTError error = earlierError();
  EXPECT_EQ(operation(withSlot ? &error : nullptr), expected.result);
  EXPECT_EQ(withoutChance(log.lines()), expected.log);
  if (!withSlot) return;
  const QLTError reported = withoutChance(error);
  const QLTError wanted = expected.error ? expected.error : earlierError();
  EXPECT_EQ(reported.domain(), wanted.domain());
  EXPECT_EQ(reported.code(), wanted.code());
  EXPECT_EQ(QLTValue(reported.userInfo()).text(), QLTValue(wanted.userInfo()).text());
}

void flood(const Endpoint& device, const std::stop_token& stop) {
  const int descriptor = device.descriptor();
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
  const std::string chunk(64 * 1024, 'x');
  while (!stop.stop_requested()) {
    pollfd poll{descriptor, POLLOUT, 0};
    if (::poll(&poll, 1, 5) <= 0) continue;
    // A terminal is no socket, and does not raise SIGPIPE.
    ssize_t count = ::send(descriptor, chunk.data(), chunk.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == ENOTSOCK) count = ::write(descriptor, chunk.data(), chunk.size());
    if (count < 0 && errno != EAGAIN && errno != EINTR) return;
  }
}

}  // namespace test
