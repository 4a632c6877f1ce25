#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "common/Descriptor.h"

namespace test {

struct Reply {
  nlohmann::json json() const { return nlohmann::json::parse(body); }
  std::string field(const std::string& name) const;  ///< empty when it is not there

  int status = 0;
  std::map<std::string, std::string> fields;  ///< names in capitals
  std::string body;
};

struct Event {
  nlohmann::json json() const { return nlohmann::json::parse(data); }

  std::string name, id, data;
};

/// A connection to a server, byte by byte. What does not come within seconds is an exception.
class HttpClient {
 public:
  /// `address` as a server tells it. `receiveBuffer`: of the system, where it is to be small.
  explicit HttpClient(const std::string& address, int receiveBuffer = 0);

  void send(std::string_view bytes);
  void endSending();
  /// Sends a request with a Host, and `more`, lines of further fields.
  void request(const std::string& method, const std::string& target, const std::string& more = "",
               const std::string& body = "");
  /// The next answer; `head`: to HEAD, so without a body.
  Reply reply(bool head = false);
  Reply get(const std::string& target, const std::string& more = "");
  Reply post(const std::string& target, const std::string& more, const std::string& body);

  /// Reads the header of an answer, for a stream of events.
  Reply header();
  /// The next event, comments and `retry` left out.
  Event event();
  /// The next event of this name; others are passed over.
  Event event(const std::string& name);

  /// Whether the server ends the connection, whatever it sends before.
  bool ends();
  int descriptor() const { return socket_.get(); }

 private:
  std::string until(std::string_view mark);
  void receive();

  std::string host_;
  quillon::internal::Descriptor socket_;
  std::string received_;
};

/// The text's lines as a command of this id has them, as the page sends it.
std::string commandText(const std::string& id, const std::string& command);

}  // namespace test
