#include "Portmapper.h"

#include <array>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Problem.h"
#include "common/NoSignals.h"

using quillon::internal::Descriptor;
using quillon::internal::Pipe;

namespace sim {
namespace {

constexpr std::uint16_t kPort = 111;
constexpr std::uint32_t kProgram = 100000;
constexpr std::uint32_t kVersion = 2;
constexpr std::uint32_t kGetPort = 3;
constexpr std::uint32_t kTcp = 6;

Descriptor bound(const std::string& address, int type) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(kPort);
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    throw Problem("'" + address + "' is not an IPv4 address");
  }
  Descriptor socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  constexpr int kWaiting = 16;
  if (!socket || bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
      (type == SOCK_STREAM && listen(socket.get(), kWaiting) != 0)) {
    throw Problem(
        "cannot have port 111 of " + address +
        ", where clients ask for a VXI-11 instrument: " + std::generic_category().message(errno));
  }
  return socket;
}

}  // namespace

Portmapper::Portmapper(const std::string& address, std::uint32_t program, std::uint32_t version,
                       std::uint16_t port)
    : program_(program),
      version_(version),
      port_(port),
      datagrams_(bound(address, SOCK_DGRAM)),
      listener_(bound(address, SOCK_STREAM)),
      stop_(Pipe::make()) {
  const quillon::internal::NoSignals noSignals;  // they are the main thread's
  thread_ = std::thread([this] { serve(); });
}

Portmapper::~Portmapper() {
  stop_.writing.reset();
  thread_.join();
}

void Portmapper::serve() {
  constexpr std::size_t kMostClients = 64;
  std::vector<Client> clients;
  while (true) {
    std::vector<pollfd> watched{{stop_.reading.get(), POLLIN, 0},
                                {datagrams_.get(), POLLIN, 0},
                                {listener_.get(), POLLIN, 0}};
    for (const Client& client : clients) watched.push_back({client.line.get(), POLLIN, 0});
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    if (watched[0].revents != 0) return;
    if (watched[1].revents != 0) answerDatagram();
    for (std::size_t i = clients.size(); i-- > 0;) {
      if (watched[i + 3].revents == 0 || answerStream(clients[i])) continue;
      clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (watched[2].revents == 0) continue;
    Descriptor line(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (line && clients.size() < kMostClients) clients.push_back({std::move(line), {}});
  }
}

void Portmapper::answerDatagram() const {
  std::array<char, 2048> buffer;
  sockaddr_in client{};
  socklen_t size = sizeof client;
  auto* const name = reinterpret_cast<sockaddr*>(&client);
  const ssize_t count =
      recvfrom(datagrams_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT, name, &size);
  if (count <= 0) return;
  const std::string answer = answerTo({buffer.data(), static_cast<std::size_t>(count)});
  sendto(datagrams_.get(), answer.data(), answer.size(), MSG_NOSIGNAL, name, size);
}

/// False when the client is gone, or speaks something else.
bool Portmapper::answerStream(Client& client) const {
  std::array<char, 2048> buffer;
  const ssize_t count = recv(client.line.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count <= 0) return false;
  client.calls.add({buffer.data(), static_cast<std::size_t>(count)});
  while (const auto message = client.calls.next()) {
    const std::string answer = asRecord(answerTo(*message));
    if (::send(client.line.get(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return false;
  }
  return !client.calls.isSenseless();
}

std::string Portmapper::answerTo(const std::string& message) const {
  auto call = RemoteCall::in(message);
  if (!call) return "";
  if (call->program != kProgram) return call->noSuchProgram();
  // Newer ones exist; clients then ask for this one.
  if (call->version != kVersion) return call->onlyVersion(kVersion);
  if (call->procedure == 0) return call->reply({});
  if (call->procedure != kGetPort) return call->noSuchProcedure();
  const bool isKnown = call->arguments.number() == program_ &&
                       call->arguments.number() == version_ && call->arguments.number() == kTcp;
  return call->reply(XdrWriter().number(isKnown ? port_ : 0));
}

}  // namespace sim
