#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include <libpq-fe.h>

namespace soci {
class backend_factory;
class postgresql_soci_error;
}  // namespace soci

namespace results {

// Internal to the library, for its sources only.

/// Why a library of the system is of no use. `what()` names it, with the system's reason.
class NoLibrary : public std::runtime_error {
 public:
  NoLibrary(const std::string& reason, std::string advice)
      : std::runtime_error(reason), advice_(std::move(advice)) {}

  const std::string& advice() const { return advice_; }

 private:
  std::string advice_;
};

// What is used of PostgreSQL's client library.
#define RESULTS_POSTGRES_FUNCTIONS(FUNCTION) \
  FUNCTION(PQclear)                          \
  FUNCTION(PQconndefaults)                   \
  FUNCTION(PQconnectPoll)                    \
  FUNCTION(PQconnectStartParams)             \
  FUNCTION(PQconninfoFree)                   \
  FUNCTION(PQconninfoParse)                  \
  FUNCTION(PQconsumeInput)                   \
  FUNCTION(PQerrorMessage)                   \
  FUNCTION(PQfinish)                         \
  FUNCTION(PQflush)                          \
  FUNCTION(PQgetResult)                      \
  FUNCTION(PQgetisnull)                      \
  FUNCTION(PQgetlength)                      \
  FUNCTION(PQgetvalue)                       \
  FUNCTION(PQisBusy)                         \
  FUNCTION(PQnfields)                        \
  FUNCTION(PQntuples)                        \
  FUNCTION(PQputCopyData)                    \
  FUNCTION(PQputCopyEnd)                     \
  FUNCTION(PQresultErrorField)               \
  FUNCTION(PQresultStatus)                   \
  FUNCTION(PQsendQuery)                      \
  FUNCTION(PQsendQueryParams)                \
  FUNCTION(PQsetNoticeProcessor)             \
  FUNCTION(PQsetnonblocking)                 \
  FUNCTION(PQsocket)                         \
  FUNCTION(PQstatus)                         \
  FUNCTION(PQtransactionStatus)

/// PostgreSQL's client library. The program is not linked to it: with the two dozen libraries that
/// it needs itself it would make every start of the program take twice as long, and most stations
/// have no server.
struct PostgresClient {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a member's name takes none
#define RESULTS_POSTGRES_MEMBER(name) decltype(&::name) name = nullptr;
  RESULTS_POSTGRES_FUNCTIONS(RESULTS_POSTGRES_MEMBER)
#undef RESULTS_POSTGRES_MEMBER

  /// Loaded by the first call that succeeds, and for good. Thread-safe. Throws `NoLibrary`.
  static const PostgresClient& get();
};

/// The same for the part of the database library that speaks to PostgreSQL.
struct PostgresBackend {
  const soci::backend_factory* factory = nullptr;
  /// PostgreSQL's code of five characters.
  std::string (*stateOf)(const soci::postgresql_soci_error*) = nullptr;

  /// As that of `PostgresClient`.
  static const PostgresBackend& get();
};

}  // namespace results
