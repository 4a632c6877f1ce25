#include "Server.h"

#include <algorithm>
#include <cctype>
#include <cerrno>

#include <poll.h>

#include "common/Format.h"
#include "results/central/PostgresClient.h"

namespace results {
namespace {

using Result = std::unique_ptr<PGresult, void (*)(PGresult*)>;

const PostgresClient& client() { return PostgresClient::get(); }

std::string reasonOf(const PGconn* connection) {
  const std::string words = wordsOfServer(client().PQerrorMessage(connection));
  return words.empty() ? "the connection is broken" : words;
}

[[noreturn]] void fail(PGconn* connection) { throw ServerError(reasonOf(connection), ""); }

[[noreturn]] void fail(const PGresult* result, PGconn* connection) {
  const char* const state = client().PQresultErrorField(result, PG_DIAG_SQLSTATE);
  if (state == nullptr || client().PQstatus(connection) == CONNECTION_BAD) {
    const char* const words = client().PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    throw ServerError(words != nullptr ? words : reasonOf(connection),
                      state == nullptr ? "" : state);
  }
  std::string text = client().PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
  for (const int part : {int{PG_DIAG_MESSAGE_DETAIL}, int{PG_DIAG_MESSAGE_HINT}}) {
    const char* const words = client().PQresultErrorField(result, part);
    if (words != nullptr) text += std::string(" (") + words + ")";
  }
  throw ServerError(text, state);
}

}  // namespace

std::string wordsOfServer(const std::string& message) {
  std::string words = message;
  for (const char* const level : {"ERROR:", "FATAL:"}) {
    for (std::size_t found = 0; (found = words.find(level, found)) != std::string::npos;) {
      words.erase(found, std::string_view(level).size());
    }
  }
  // What the library guesses behind it, on further lines.
  for (const char* const rest : {"\nLINE 1:", "\n\tIs the server", "\n\tThis probably means"}) {
    // Of several addresses each has its own.
    for (std::size_t found = 0; (found = words.find(rest, found)) != std::string::npos;) {
      const std::size_t next = words.find("\nconnection to ", found);
      words.erase(found, next == std::string::npos ? next : next - found);
    }
  }
  std::string line;
  for (const char c : words) {
    const bool isSpace = std::isspace(static_cast<unsigned char>(c)) != 0;
    if (!isSpace) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && (line.back() == ' ' || line.back() == '.')) line.pop_back();
  return line;
}

bool ServerError::isOfData() const {
  // Those a run is not at fault for: its month is being dropped. The tables have no other checks.
  if (state_ == "23514") return false;
  // Values that no column takes, rows that contradict others, and what is too large for a row.
  return state_.starts_with("22") || state_.starts_with("23") || state_.starts_with("54");
}

/// The connection, with waiting that ends.
class Server::Line {
 public:
  Line(const ServerAddress& address, const Limits& limits)
      : limits_(limits), connection_(start(address), client().PQfinish) {
    if (!connection_) throw ServerError("no memory for a connection", "");
    client().PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
    finishConnecting();
    if (client().PQsetnonblocking(connection_.get(), 1) != 0) fail(connection_.get());
  }

  PGconn* get() const { return connection_.get(); }

  /// Sends what is queued, and takes what comes meanwhile.
  void flush() {
    while (true) {
      const int left = client().PQflush(get());
      if (left < 0) fail(get());
      if (left == 0) return;
      if ((wait(POLLIN | POLLOUT) & POLLIN) != 0 && client().PQconsumeInput(get()) == 0)
        fail(get());
    }
  }

  /// The next result of what was sent; null when there is no more.
  Result next() {
    flush();
    while (client().PQisBusy(get()) != 0) {
      wait(POLLIN);
      if (client().PQconsumeInput(get()) == 0) fail(get());
    }
    return {client().PQgetResult(get()), client().PQclear};
  }

  /// All results of what was sent; the last one, or the error.
  Result finish() {
    Result last = next();
    if (!last) fail(get());
    if (isCopy(last)) return last;
    while (true) {
      Result further = next();
      if (!further) break;
      if (!isError(last)) last = std::move(further);
      if (isCopy(last)) return last;
    }
    if (isError(last)) fail(last.get(), get());
    return last;
  }

 private:
  static bool isCopy(const Result& result) {
    return client().PQresultStatus(result.get()) == PGRES_COPY_IN;
  }
  static bool isError(const Result& result) {
    const ExecStatusType status = client().PQresultStatus(result.get());
    return status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_EMPTY_QUERY &&
           status != PGRES_COPY_IN;
  }

  static PGconn* start(const ServerAddress& address) {
    std::map<std::string, std::string> settings = address.settings();
    settings.try_emplace("application_name", "quillon");
    std::vector<const char*> names;
    std::vector<const char*> values;
    for (const auto& [name, value] : settings) {
      names.push_back(name.c_str());
      values.push_back(value.c_str());
    }
    names.push_back(nullptr);
    values.push_back(nullptr);
    return client().PQconnectStartParams(names.data(), values.data(), 0);
  }

  void finishConnecting() {
    if (client().PQstatus(get()) == CONNECTION_BAD) fail(get());
    auto state = PGRES_POLLING_WRITING;
    while (state != PGRES_POLLING_OK) {
      wait(state == PGRES_POLLING_READING ? POLLIN : POLLOUT);
      state = client().PQconnectPoll(get());
      if (state == PGRES_POLLING_FAILED) fail(get());
    }
  }

  /// Waits until the socket is ready, and tells for what.
  short wait(int events) {
    constexpr std::chrono::milliseconds kSlice{100};  // until a stop is noticed
    const auto end = std::chrono::steady_clock::now() + limits_.silence;
    while (true) {
      if (limits_.stop.stop_requested()) throw ServerError("it was stopped", "");
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          end - std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        throw ServerError("no answer for " +
                              quillon::internal::fixedText(
                                  std::chrono::duration<double>(limits_.silence).count(), 1) +
                              " s",
                          "");
      }
      pollfd waited{client().PQsocket(get()), static_cast<short>(events), 0};
      const int ready = poll(&waited, 1, static_cast<int>(std::min(left, kSlice).count()));
      if (ready > 0) return waited.revents;
      if (ready < 0 && errno != EINTR) throw ServerError("the connection is broken", "");
    }
  }

  const Limits limits_;
  std::unique_ptr<PGconn, void (*)(PGconn*)> connection_;
};

Server::Server(const ServerAddress& address, const Limits& limits)
    : line_(std::make_unique<Line>(address, limits)) {
  // A commit that was told must be on disk. What this connection holds is given up when it hangs.
  ask("SELECT set_config('synchronous_commit', 'on', false) "
      "WHERE current_setting('synchronous_commit') = 'off'");
  ask("SELECT set_config('lock_timeout', $1, false), "
      "set_config('idle_in_transaction_session_timeout', $2, false)",
      {std::to_string(limits.lock.count()), std::to_string(2 * limits.silence.count())});
}

Server::~Server() = default;

std::vector<Server::Row> Server::ask(const std::string& statement,
                                     const std::vector<Field>& parameters) {
  std::vector<const char*> values;
  values.reserve(parameters.size());
  for (const Field& parameter : parameters) {
    values.push_back(parameter ? parameter->c_str() : nullptr);
  }
  if (client().PQsendQueryParams(line_->get(), statement.c_str(), static_cast<int>(values.size()),
                                 nullptr, values.data(), nullptr, nullptr, 0) == 0) {
    fail(line_->get());
  }
  const Result result = line_->finish();
  std::vector<Row> rows(static_cast<std::size_t>(client().PQntuples(result.get())));
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (int column = 0; column < client().PQnfields(result.get()); ++column) {
      const auto at = static_cast<int>(row);
      Field& field = rows[row].emplace_back();
      if (client().PQgetisnull(result.get(), at, column) == 0) {
        field.emplace(client().PQgetvalue(result.get(), at, column),
                      static_cast<std::size_t>(client().PQgetlength(result.get(), at, column)));
      }
    }
  }
  return rows;
}

void Server::run(const std::string& statements) {
  if (client().PQsendQuery(line_->get(), statements.c_str()) == 0) fail(line_->get());
  line_->finish();
}

void Server::transaction(const std::function<void()>& work) {
  // Each statement sees what others have committed, whatever the role's default is.
  run("BEGIN ISOLATION LEVEL READ COMMITTED");
  try {
    work();
  } catch (...) {
    try {
      if (client().PQtransactionStatus(line_->get()) == PQTRANS_INTRANS ||
          client().PQtransactionStatus(line_->get()) == PQTRANS_INERROR) {
        run("ROLLBACK");
      }
    } catch (const ServerError&) {
      // The first error counts; the server gives up what a lost connection had begun.
    }
    throw;
  }
  run("COMMIT");
}

Server::Copy::Copy(Server& server, const std::string& into) : server_(server) {
  server.run("COPY " + into + " FROM STDIN");
}

void Server::Copy::add(std::string_view lines) {
  PGconn* const connection = server_.line_->get();
  // 0: there was no memory to queue them.
  if (client().PQputCopyData(connection, lines.data(), static_cast<int>(lines.size())) != 1) {
    fail(connection);
  }
  server_.line_->flush();
}

void Server::Copy::end() {
  PGconn* const connection = server_.line_->get();
  if (client().PQputCopyEnd(connection, nullptr) != 1) fail(connection);
  server_.line_->finish();
}

}  // namespace results
