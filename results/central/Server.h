#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <stop_token>

#include "results/central/ServerAddress.h"

namespace results {

/// What keeps a server from doing what was asked. `what()` is for a person, without the server's
/// name and without secrets.
class ServerError : public std::runtime_error {
 public:
  /// `state`: PostgreSQL's code of five characters; "" for a connection that failed.
  ServerError(const std::string& reason, std::string state)
      : std::runtime_error(reason), state_(std::move(state)) {}

  const std::string& state() const { return state_; }
  /// The rows themselves are at fault: the same would come of every further try.
  bool isOfData() const;

 private:
  std::string state_;
};

/// What PostgreSQL or its library says, in one line, without levels and guesses.
std::string wordsOfServer(const std::string& message);

/// A connection to a server. For one thread at a time. Every operation throws `ServerError`, also
/// when the server says nothing for too long; after an error of the connection, or one within a
/// `Copy`, only the destructor is of use.
class Server {
 public:
  struct Limits {
    /// How long nothing may happen: connecting, or waiting for the next bytes or answer.
    std::chrono::milliseconds silence = std::chrono::seconds(60);
    /// How long the server waits for a lock of others.
    std::chrono::milliseconds lock = std::chrono::seconds(10);
    /// Ends waiting at once; what was waited for throws.
    std::stop_token stop = {};
  };

  using Field = std::optional<std::string>;
  using Row = std::vector<Field>;

  explicit Server(const ServerAddress& address) : Server(address, Limits()) {}
  Server(const ServerAddress& address, const Limits& limits);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Does a statement, with $1, $2 ... for the parameters, and gives its rows.
  std::vector<Row> ask(const std::string& statement, const std::vector<Field>& parameters = {});
  /// Does statements that need no parameters and give no rows that matter.
  void run(const std::string& statements);
  /// Does `work` in a transaction; nothing of it is done when it throws. An error of the connection
  /// while it is committed leaves open whether it was.
  void transaction(const std::function<void()>& work);

  /// Rows on their way into a table, in the text form of COPY.
  class Copy {
   public:
    /// `into`: "measurement (run_id, sequence)".
    Copy(Server& server, const std::string& into);
    /// Adds whole lines.
    void add(std::string_view lines);
    void end();

   private:
    Server& server_;
  };

 private:
  class Line;
  std::unique_ptr<Line> line_;
};

}  // namespace results
