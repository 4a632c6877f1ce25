#include "Connection.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <thread>

#include <sys/stat.h>

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "common/Sanitizers.h"
#include "results/Clock.h"
#include "results/FileUsers.h"

#ifdef QUILLON_THREAD_SANITIZER
// The database library makes a table of type names at its first use, guarded as the language wants;
// the guard's later readers are in code that the checker does not see.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libsoci_sqlite3.so\n";
}
#endif

namespace results {
namespace {

using sqlite_api::sqlite3;

// A larger store is not read whole at each start; what is damaged in it shows where it is used.
constexpr std::uintmax_t kWholeCheckBytes = 64U << 20U;

sqlite3* handleOf(soci::session& session) {
  return static_cast<soci::sqlite3_session_backend*>(session.get_backend())->conn_;
}

void persistLog(soci::session& session) {
  int persist = 1;
  sqlite_api::sqlite3_file_control(handleOf(session), nullptr, SQLITE_FCNTL_PERSIST_WAL, &persist);
}

std::string messageOf(int error) { return std::generic_category().message(error); }

/// The database's own words, without those of the library in front of them.
std::string wordsOf(const soci::soci_error& error) {
  const std::string message = error.get_error_message();
  const std::size_t colon = message.find(": ");
  const bool framed = message.starts_with("sqlite3_") && colon != std::string::npos;
  return framed ? message.substr(colon + 2) : message;
}

std::string textOf(soci::session& session, const std::string& query) {
  std::string result;
  soci::indicator state = soci::i_null;
  session << query, soci::into(result, state);
  return result;
}

std::string orphanText(long long row, const std::string& table, const std::string& parent) {
  return "row " + std::to_string(row) + " of " + table + " refers to a missing " + parent;
}

}  // namespace

Connection::Connection(std::string file, Access access, std::chrono::milliseconds patience,
                       const std::vector<Migration>& migrations)
    : file_(std::move(file)) {
  // The library's connection text knows no way to write one.
  if (file_.find('"') != std::string::npos) throw StoreError(file_, "a path with a double quote");
  open(access, patience);
  attempt([&](soci::session& session) {
    if (access == Access::Write) {
      // Making a store, or bringing one up to date, is all or nothing without waiting for the disk
      // at each step. What counts is what is committed later, and that takes it along.
      session << "PRAGMA synchronous = NORMAL";
      useWriteAheadLog(patience);
      requireSound();
      migrate(migrations);
      session << "PRAGMA synchronous = FULL";
      session << "PRAGMA foreign_keys = ON";
      // Instead of the database's own way, which lets a commit that somebody waits for do it.
      sqlite_api::sqlite3_wal_hook(
          handleOf(session),
          [](void* pages, sqlite3* /*handle*/, const char* /*name*/, int count) {
            *static_cast<int*>(pages) = count;
            return SQLITE_OK;
          },
          &pagesInLog_);
    } else if (const int found = version(); found != migrations.back().version) {
      throw StoreError(file_, "has version " + std::to_string(found) +
                                  " of the schema, and version " +
                                  std::to_string(migrations.back().version) + " is needed");
    }
  });
}

Connection::~Connection() {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0 || status.st_dev != device_ || status.st_ino != inode_) {
    // The file was deleted or replaced. The names beside it may belong to another store by now,
    // and closing would remove them.
    persistLog(*session_);
    sqlite_api::sqlite3_db_config(handleOf(*session_), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1,
                                  nullptr);
  }
}

void Connection::open(Access access, std::chrono::milliseconds patience) {
  if (access == Access::Read && !std::filesystem::exists(file_)) {
    throw StoreError(file_, "does not exist");
  }
  try {
    session_ = std::make_unique<soci::session>(
        soci::sqlite3, "db=\"" + file_ + "\"" + (access == Access::Read ? " readonly=true" : ""));
  } catch (const soci::soci_error& error) {
    const std::string fault = faultOfPath(file_);
    throw StoreError(file_, fault.empty() ? error.get_error_message() : fault);
  }
  sqlite_api::sqlite3_busy_timeout(handleOf(*session_), static_cast<int>(patience.count()));
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0) throw StoreError(file_, messageOf(errno));
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

void Connection::useWriteAheadLog(std::chrono::milliseconds patience) {
  // Two processes that begin with a new file at once: the database does not wait here by itself.
  const auto end = std::chrono::steady_clock::now() + patience;
  while (true) {
    try {
      const std::string mode = textOf(*session_, "PRAGMA journal_mode = WAL");
      if (mode == "wal") return;
      throw StoreError(file_, "the file system does not allow a write-ahead log");
    } catch (const soci::sqlite3_soci_error& error) {
      if (error.result() != SQLITE_BUSY || std::chrono::steady_clock::now() > end) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
}

void Connection::requireSound() {
  if (std::filesystem::file_size(file_) > kWholeCheckBytes) return;
  const std::string finding = textOf(*session_, "PRAGMA quick_check(1)");
  if (finding != "ok") throw StoreError(file_, "is damaged: " + finding);
}

int Connection::version() {
  int tables = 0;
  int versions = 0;
  *session_ << "SELECT count(*), coalesce(sum(name = 'schema_version'), 0) FROM sqlite_master "
               "WHERE type = 'table'",
      soci::into(tables), soci::into(versions);
  if (tables == 0) return 0;
  if (versions == 0) throw StoreError(file_, "is a database, but no results store");
  int version = 0;
  *session_ << "SELECT coalesce(max(version), 0) FROM schema_version", soci::into(version);
  return version;
}

void Connection::migrate(const std::vector<Migration>& migrations) {
  const int present = migrations.back().version;
  const int found = version();
  if (found > present) {
    throw StoreError(file_, "was written by a newer Quillon (version " + std::to_string(found) +
                                " of the schema; this one knows up to " + std::to_string(present) +
                                ")");
  }
  if (found == present) return;
  transaction([&](soci::session& session) {
    const int before = version();  // another process may have been faster
    session << "CREATE TABLE IF NOT EXISTS schema_version "
               "(version bigint PRIMARY KEY, applied_us bigint NOT NULL)";
    for (const Migration& migration : migrations) {
      if (migration.version <= before) continue;
      for (const std::string& statement : migration.statements) session << statement;
      const long long now = microsecondsNow();
      session << "INSERT INTO schema_version (version, applied_us) VALUES (:version, :now)",
          soci::use(migration.version), soci::use(now);
    }
    const std::string orphan = textOf(session, "PRAGMA foreign_key_check");
    if (!orphan.empty()) throw StoreError(file_, "rows of " + orphan + " refer to missing ones");
  });
}

void Connection::requireOwnFile() {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0) {
    throw StoreError(file_, errno == ENOENT ? "was deleted while in use" : messageOf(errno));
  }
  if (status.st_dev != device_ || status.st_ino != inode_) {
    throw StoreError(file_, "was replaced while in use");
  }
}

void Connection::attempt(const std::function<void(soci::session&)>& work) {
  try {
    work(*session_);
  } catch (const soci::sqlite3_soci_error& error) {
    const std::string reason = reasonOf(error.result(), wordsOf(error));
    if (error.result() == SQLITE_CONSTRAINT || error.result() == SQLITE_TOOBIG) {
      throw RowError(file_, reason);
    }
    throw StoreError(file_, reason);
  } catch (const soci::soci_error& error) {
    throw RowError(file_, error.get_error_message());
  }
}

void Connection::transaction(const std::function<void(soci::session&)>& work) {
  attempt([&](soci::session& session) {
    requireOwnFile();
    // At once for writing: one that began by reading could not wait for another writer.
    session << "BEGIN IMMEDIATE";
    try {
      work(session);
      session << "COMMIT";
    } catch (...) {
      if (sqlite_api::sqlite3_get_autocommit(handleOf(session)) == 0) {
        try {
          session << "ROLLBACK";
        } catch (const soci::soci_error&) {
          // The first error counts.
        }
      }
      throw;
    }
    requireOwnFile();
  });
}

void Connection::checkpoint() {
  sqlite_api::sqlite3_wal_checkpoint_v2(handleOf(*session_), nullptr, SQLITE_CHECKPOINT_PASSIVE,
                                        nullptr, nullptr);
  pagesInLog_ = 0;  // until the next commit tells
}

void Connection::keepLog() {
  attempt([](soci::session& session) {
    session << "PRAGMA journal_size_limit = 0";
    persistLog(session);
  });
}

std::vector<std::string> Connection::damages() {
  std::vector<std::string> damages;
  attempt([&](soci::session& session) {
    std::string text;
    soci::statement whole = (session.prepare << "PRAGMA integrity_check", soci::into(text));
    whole.execute();
    while (whole.fetch()) {
      if (text != "ok") damages.push_back("the file is damaged: " + text);
    }
    std::string table;
    std::string parent;
    long long row = 0;
    soci::indicator rowState = soci::i_ok;
    soci::statement orphans = (session.prepare << "PRAGMA foreign_key_check", soci::into(table),
                               soci::into(row, rowState), soci::into(parent));
    orphans.execute();
    while (orphans.fetch()) {
      damages.push_back(orphanText(row, table, parent));
    }
  });
  return damages;
}

std::string Connection::reasonOf(int code, const std::string& message) const {
  const int systemError = sqlite_api::sqlite3_system_errno(handleOf(*session_));
  switch (code) {
    case SQLITE_FULL:
      return "the disk is full";
    case SQLITE_IOERR:
      if (systemError == ENOSPC || systemError == EDQUOT) return "the disk is full";
      return systemError == 0 ? message : message + ": " + messageOf(systemError);
    case SQLITE_BUSY: {
      const std::string holder = holderOf(file_);
      return "is locked by " + (holder.empty() ? "another process" : holder);
    }
    case SQLITE_NOTADB:
      return "is no results store (no SQLite database)";
    case SQLITE_CORRUPT:
      return "is damaged: " + message;
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY: {
      const std::string fault = faultOfPath(file_);
      return fault.empty() ? message : fault;
    }
    default:
      return message;
  }
}

}  // namespace results
