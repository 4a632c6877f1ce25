#include "web/HttpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "common/Files.h"
#include "common/Text.h"

namespace test {

using quillon::internal::split;
using quillon::internal::trimmed;
using quillon::internal::upperCase;

namespace {

constexpr int kPatience = 20'000;  // ms

}  // namespace

std::string Reply::field(const std::string& name) const {
  const auto found = fields.find(upperCase(name));
  return found == fields.end() ? "" : found->second;
}

HttpClient::HttpClient(const std::string& address, int receiveBuffer) : host_(address) {
  const std::size_t colon = address.rfind(':');
  const auto port = static_cast<std::uint16_t>(std::stoi(address.substr(colon + 1)));
  const std::string host = trimmed(address.substr(0, colon), "[]");
  sockaddr_storage storage{};
  socklen_t length = 0;
  if (auto* const four = reinterpret_cast<sockaddr_in*>(&storage);
      inet_pton(AF_INET, host.c_str(), &four->sin_addr) == 1) {
    four->sin_family = AF_INET;
    four->sin_port = htons(port);
    length = sizeof *four;
  } else {
    auto* const six = reinterpret_cast<sockaddr_in6*>(&storage);
    inet_pton(AF_INET6, host.c_str(), &six->sin6_addr);
    six->sin6_family = AF_INET6;
    six->sin6_port = htons(port);
    length = sizeof *six;
  }
  socket_.reset(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (receiveBuffer > 0) {
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  }
  if (::connect(socket_.get(), reinterpret_cast<sockaddr*>(&storage), length) != 0) {
    throw std::runtime_error("cannot connect to " + address);
  }
}

void HttpClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;  // the server has ended the connection; what it said is still to be read
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

void HttpClient::endSending() { ::shutdown(socket_.get(), SHUT_WR); }

void HttpClient::request(const std::string& method, const std::string& target,
                         const std::string& more, const std::string& body) {
  std::string text = method + " " + target + " HTTP/1.1\r\n";
  if (more.find("Host:") == std::string::npos) text += "Host: " + host_ + "\r\n";
  for (const std::string& line : split(more, "\n")) {
    if (!line.empty()) text += line + "\r\n";
  }
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  send(text + "\r\n" + body);
}

void HttpClient::receive() {
  pollfd waiting{socket_.get(), POLLIN, 0};
  if (::poll(&waiting, 1, kPatience) != 1) throw std::runtime_error("nothing comes");
  std::array<char, 65536> bytes{};
  const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
  if (count <= 0) throw std::runtime_error("the server ended after \"" + received_ + "\"");
  received_.append(bytes.data(), static_cast<std::size_t>(count));
}

std::string HttpClient::until(std::string_view mark) {
  std::size_t found = 0;
  while ((found = received_.find(mark)) == std::string::npos) receive();
  std::string text = received_.substr(0, found);
  received_.erase(0, found + mark.size());
  return text;
}

Reply HttpClient::header() {
  const auto lines = split(until("\r\n\r\n"), "\n");
  Reply reply;
  reply.status = std::stoi(lines.front().substr(9, 3));
  for (const std::string& line : lines) {
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos) {
      reply.fields[upperCase(line.substr(0, colon))] = trimmed(line.substr(colon + 2));
    }
  }
  return reply;
}

Reply HttpClient::reply(bool head) {
  Reply reply = header();
  const std::string length = reply.field("Content-Length");
  if (head || length.empty()) return reply;
  const std::size_t size = std::stoul(length);
  while (received_.size() < size) receive();
  reply.body = received_.substr(0, size);
  received_.erase(0, size);
  return reply;
}

Reply HttpClient::get(const std::string& target, const std::string& more) {
  request("GET", target, more);
  return reply();
}

Reply HttpClient::post(const std::string& target, const std::string& more,
                       const std::string& body) {
  request("POST", target, more, body);
  return reply();
}

Event HttpClient::event() {
  while (true) {
    Event event;
    for (const std::string& line : split(until("\n\n"), "\n")) {
      const std::size_t colon = line.find(": ");
      const std::string name = line.substr(0, colon);
      if (name == "event") event.name = line.substr(colon + 2);
      if (name == "id") event.id = line.substr(colon + 2);
      if (name == "data") event.data = line.substr(colon + 2);
    }
    if (!event.name.empty()) return event;
  }
}

Event HttpClient::event(const std::string& name) {
  Event next = event();
  while (next.name != name) next = event();
  return next;
}

bool HttpClient::ends() {
  try {
    while (true) {
      receive();
      received_.clear();
    }
  } catch (const std::runtime_error& e) {
    return std::string(e.what()).rfind("the server ended", 0) == 0;
  }
}

std::string commandText(const std::string& id, const std::string& command) {
  return nlohmann::json{{"id", id}, {"command", command}}.dump();
}

}  // namespace test
