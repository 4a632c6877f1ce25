#include "ServerReader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include <soci/postgresql/soci-postgresql.h>
#include <soci/soci.h>

#include "results/RowStream.h"
#include "results/StoreError.h"
#include "results/central/CentralSchema.h"
#include "results/central/PostgresClient.h"
#include "results/central/Server.h"

namespace results {
namespace {

// A report over years may take long, but no forgotten one shall burden a server for ever.
constexpr const char* kLongest = "30min";
// For sorting, of which a report does one at a time; the server's own 4 MB are for hundreds of
// clients.
constexpr const char* kSortMemory = "64MB";

/// The server's own words, without those of the database library in front of them.
std::string wordsOf(const std::string& message) {
  for (const char* const frame : {"Cannot establish connection to the database", "ERROR:"}) {
    const std::size_t found = message.find(frame);
    if (found == std::string::npos) continue;
    return wordsOfServer(message.substr(found + std::string_view(frame).size() + 1));
  }
  return wordsOfServer(message);
}

std::string reasonOf(const soci::postgresql_soci_error& error) {
  const std::string state = PostgresBackend::get().stateOf(&error);
  std::string words = wordsOf(error.get_error_message());
  if (state == kNoRight) {
    return "its role may not read this: " + words + " ('GRANT " + kReaderRole +
           " TO' that role by the database's owner allows it)";
  }
  if (state == "57014") {
    return std::string("the question was stopped after ") + kLongest + ", or by hand: " + words;
  }
  if (state == "55P03") return "is locked: its tables are being changed. Try again later";
  if (state.starts_with("08") || state.starts_with("57P")) {
    return "the connection was lost: " + words;
  }
  return words;
}

/// A value as the client library takes it apart, within the quotes of the database library.
std::string quoted(const std::string& value) {
  std::string text = "\"'";
  for (const char c : value) {
    if (c == '\'' || c == '\\') text += '\\';
    text += c;
  }
  return text + "'\"";
}

std::string connectText(const ServerAddress& address, std::chrono::milliseconds patience) {
  auto settings = address.settings();
  const auto seconds = std::max<std::int64_t>(2, patience.count() / 1000);
  settings.try_emplace("connect_timeout", std::to_string(seconds));
  settings.try_emplace("application_name", "quillon report");
  std::string text;
  for (const auto& [name, value] : settings) {
    if (value.find('"') != std::string::npos) {
      throw StoreError(address.name(), "has a double quote in " + name);
    }
    text += (text.empty() ? "" : " ") + name + "=" + quoted(value);
  }
  return text;
}

}  // namespace

ServerReader::ServerReader(const ServerAddress& address, std::chrono::milliseconds patience)
    : name_(address.name()) {
  try {
    session_ = std::make_unique<soci::session>(*PostgresBackend::get().factory,
                                               connectText(address, patience));
  } catch (const NoLibrary& missing) {
    throw StoreError(name_, std::string(missing.what()) + ". " + missing.advice());
  } catch (const soci::soci_error& error) {
    throw StoreError(name_, "cannot be reached: " + wordsOf(error.what()));
  }
  attempt([&](soci::session& session) {
    session << "SET search_path = public";
    session << "SET lock_timeout = " << patience.count();
    session << "SET statement_timeout = '" << kLongest << "'";
    session << "SET work_mem = '" << kSortMemory << "'";
    // Rows are read in portions, and all of them.
    session << "SET cursor_tuple_fraction = 1";
    session << "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";
    requireVersion();
  });
}

ServerReader::~ServerReader() = default;

void ServerReader::requireVersion() {
  std::int64_t tables = 0;
  forEachRow<std::int64_t>(
      *session_, "SELECT count(*) FROM pg_class WHERE oid = to_regclass('public.schema_version')",
      Conditions(), Rows::Whole, [&](std::int64_t count) { tables = count; });
  if (tables == 0) {
    throw StoreError(name_, "has no tables of results; 'quillon forward --prepare' makes them");
  }
  std::int64_t found = 0;
  forEachRow<std::int64_t>(*session_, "SELECT coalesce(max(version), 0) FROM schema_version",
                           Conditions(), Rows::Whole,
                           [&](std::int64_t version) { found = version; });
  const int needed = centralMigrations().back().version;
  if (found == needed) return;
  throw StoreError(name_, "has version " + std::to_string(found) + " of the schema, and version " +
                              std::to_string(needed) + " is needed; " +
                              (found > needed ? "a newer Quillon reads it"
                                              : "'quillon forward --prepare' brings it there"));
}

std::optional<IdRange> ServerReader::idsOf(std::optional<std::int64_t> sinceUs,
                                           std::optional<std::int64_t> untilUs) {
  if (!sinceUs && !untilUs) return std::nullopt;
  const auto textOf = [](const std::optional<std::int64_t>& time) {
    return time ? std::to_string(*time) : std::string("NULL");
  };
  IdRange ids;
  attempt([&](soci::session& session) {
    forEachRow<std::string, std::string>(
        session, "SELECT low, high FROM run_ids(" + textOf(sinceUs) + ", " + textOf(untilUs) + ")",
        Conditions(), Rows::Whole, [&](std::string low, std::string high) {
          ids = {std::move(low), std::move(high)};
        });
  });
  return ids;
}

void ServerReader::attempt(const std::function<void(soci::session&)>& work) {
  try {
    work(*session_);
  } catch (const soci::postgresql_soci_error& error) {
    throw StoreError(name_, reasonOf(error));
  } catch (const soci::soci_error& error) {
    throw StoreError(name_, wordsOf(error.get_error_message()));
  }
}

}  // namespace results
