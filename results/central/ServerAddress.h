#pragma once

#include <map>
#include <stdexcept>
#include <string>

namespace results {

/// Why a text is no address of a server, or cannot be read as one on this computer. `what()` never
/// has a password.
class NoAddress : public std::runtime_error {
 public:
  NoAddress(const std::string& reason, std::string advice)
      : std::runtime_error(reason), advice_(std::move(advice)) {}

  const std::string& advice() const { return advice_; }

 private:
  std::string advice_;
};

/// Where the results of many stations are kept: a database of a PostgreSQL server. A plain value.
class ServerAddress {
 public:
  /// Takes "postgresql://USER@HOST/DATABASE?sslmode=verify-full" and all else that such a URL of
  /// PostgreSQL may have, but no password: everybody could read it in the list of processes.
  /// Throws `NoAddress`.
  explicit ServerAddress(const std::string& url);

  /// Whether a text looks like such a URL, and not like a file.
  static bool isMeant(const std::string& text);

  /// As it was given.
  const std::string& url() const { return url_; }
  /// The server and the database, for people: "db.factory.example/quillon".
  const std::string& name() const { return name_; }
  /// The parts of it, as PostgreSQL's library names them, and what every connection needs besides.
  const std::map<std::string, std::string>& settings() const { return settings_; }

 private:
  std::string url_;
  std::string name_;
  std::map<std::string, std::string> settings_;
};

}  // namespace results
