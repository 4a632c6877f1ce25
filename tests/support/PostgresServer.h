#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

#include "TemporaryFolder.h"

namespace test {

/// A PostgreSQL server of the test's own, with an empty database "postgres": on a Unix socket in a
/// temporary folder, without TCP, started as an ordinary user even where the test runs as root.
/// It ends with the object, and with the test's process, however that ends. Its superuser is
/// "postgres"; everybody on the socket is whom he says he is.
///
/// The first of a build tree makes a template of the server's files, all others copy it.
class PostgresServer {
 public:
  struct Options {
    /// Whether a commit is on disk before it is told: needed only where the computer would fail,
    /// not where the server is killed.
    bool fsync = false;
    /// Further lines of the server's configuration, "work_mem = 64MB".
    std::vector<std::string> settings = {};
    /// Where the server's files are, a folder that exists; empty: in the temporary folder.
    std::filesystem::path dataFolder = {};
  };

  /// Starts a server and waits until it answers. Throws `std::runtime_error`, with the server's
  /// log, when it does not.
  PostgresServer() : PostgresServer(Options()) {}
  explicit PostgresServer(const Options& options);
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  /// Ends the server and all of its processes, as a power failure would end them. It may have ended
  /// by itself.
  void kill();
  /// Ends it in good order; connections are broken off.
  void stop();
  /// Starts it again after `kill` or `stop`, with the files that it has, and waits until it
  /// answers.
  void start();

  /// "postgresql://USER@/DATABASE?host=FOLDER".
  std::string url(const std::string& user = "postgres",
                  const std::string& database = "postgres") const;
  /// The folder of the socket, which has the name ".s.PGSQL.5432".
  const std::filesystem::path& socketFolder() const { return folder_.path(); }
  /// The server's first process.
  pid_t process() const { return process_; }
  /// What the server has logged.
  std::string log() const;

  /// The rows that statements give, a line each, with '|' between the columns; null is "".
  /// Throws `std::runtime_error` with the server's message when one fails.
  std::string ask(const std::string& statements, const std::string& user = "postgres",
                  const std::string& database = "postgres") const;

 private:
  void makeFiles(const Options& options);
  void waitUntilItAnswers();

  TemporaryFolder folder_;
  std::filesystem::path data_;
  pid_t process_ = -1;
};

}  // namespace test
