#include "ForwardState.h"

#include <cerrno>
#include <chrono>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <soci/soci.h>

#include "common/Files.h"
#include "results/Connection.h"

namespace results {
namespace {

constexpr std::chrono::seconds kPatience{10};

const std::vector<Migration>& stateMigrations() {
  static const std::vector<Migration> all{
      {1,
       {
           R"(CREATE TABLE progress (
  server text PRIMARY KEY,
  run_row bigint NOT NULL,
  run_id text NOT NULL,
  event_row bigint NOT NULL,
  last_sent text NOT NULL
))",
           R"(CREATE TABLE pending (
  server text NOT NULL,
  run_id text NOT NULL,
  PRIMARY KEY (server, run_id)
))",
           R"(CREATE TABLE parked (
  server text NOT NULL,
  run_id text NOT NULL,
  reason text NOT NULL,
  at_us bigint NOT NULL,
  PRIMARY KEY (server, run_id)
))",
           R"(CREATE TABLE note (
  server text PRIMARY KEY,
  at_us bigint NOT NULL,
  trouble text NOT NULL,
  since_us bigint NOT NULL,
  reached_us bigint NOT NULL
))",
       }},
  };
  return all;
}

}  // namespace

std::filesystem::path ForwardState::fileOf(const std::filesystem::path& store) {
  return store.string() + ".forward";
}

std::vector<std::string> ForwardState::serversOf(const std::filesystem::path& store) {
  std::vector<std::string> servers;
  if (!std::filesystem::exists(fileOf(store))) return servers;
  Connection connection(fileOf(store).string(), Connection::Access::Read, kPatience,
                        stateMigrations());
  connection.attempt([&](soci::session& session) {
    const soci::rowset<std::string> names =
        (session.prepare << "SELECT server FROM progress UNION SELECT server FROM note "
                            "ORDER BY server");
    servers.assign(names.begin(), names.end());
  });
  return servers;
}

ForwardState::ForwardState(const std::filesystem::path& store, const std::string& server,
                           Access access)
    : server_(server) {
  const bool isForWriting = access == Access::Write;
  connection_ = std::make_unique<Connection>(
      fileOf(store).string(), isForWriting ? Connection::Access::Write : Connection::Access::Read,
      kPatience, stateMigrations());
  if (!isForWriting) return;
  connection_->keepLog();
  // The disk belongs to the station: what a power failure takes from this file is sent again.
  connection_->attempt([](soci::session& session) { session << "PRAGMA synchronous = NORMAL"; });
}

ForwardState::~ForwardState() = default;

ForwardProgress ForwardState::progress() {
  ForwardProgress progress;
  connection_->attempt([&](soci::session& session) {
    long long run = 0;
    long long event = 0;
    session << "SELECT run_row, run_id, event_row, last_sent FROM progress WHERE server = :server",
        soci::use(server_), soci::into(run), soci::into(progress.runId), soci::into(event),
        soci::into(progress.lastSent);
    progress.runRow = run;
    progress.eventRow = event;
  });
  return progress;
}

std::vector<std::string> ForwardState::pending() {
  std::vector<std::string> ids;
  connection_->attempt([&](soci::session& session) {
    const soci::rowset<std::string> found =
        (session.prepare << "SELECT run_id FROM pending WHERE server = :server ORDER BY run_id",
         soci::use(server_));
    ids.assign(found.begin(), found.end());
  });
  return ids;
}

std::vector<Parked> ForwardState::parked() {
  std::vector<Parked> all;
  connection_->attempt([&](soci::session& session) {
    Parked parked;
    long long at = 0;
    soci::statement statement =
        (session.prepare << "SELECT run_id, reason, at_us FROM parked WHERE server = :server "
                            "ORDER BY at_us, run_id",
         soci::use(server_), soci::into(parked.runId), soci::into(parked.reason), soci::into(at));
    statement.execute();
    while (statement.fetch()) {
      parked.atUs = at;
      all.push_back(parked);
    }
  });
  return all;
}

std::int64_t ForwardState::parkedCount() {
  long long count = 0;
  connection_->attempt([&](soci::session& session) {
    session << "SELECT count(*) FROM parked WHERE server = :server", soci::use(server_),
        soci::into(count);
  });
  return count;
}

ForwardNote ForwardState::note() {
  ForwardNote note;
  connection_->attempt([&](soci::session& session) {
    long long at = 0;
    long long since = 0;
    long long reached = 0;
    session << "SELECT at_us, trouble, since_us, reached_us FROM note WHERE server = :server",
        soci::use(server_), soci::into(at), soci::into(note.trouble), soci::into(since),
        soci::into(reached);
    note.atUs = at;
    note.sinceUs = since;
    note.reachedUs = reached;
  });
  return note;
}

void ForwardState::enter(const Step& step) {
  connection_->transaction([&](soci::session& session) {
    if (step.progress) {
      const long long run = step.progress->runRow;
      const long long event = step.progress->eventRow;
      session << "INSERT OR REPLACE INTO progress (server, run_row, run_id, event_row, last_sent) "
                 "VALUES (:server, :run, :id, :event, :sent)",
          soci::use(server_), soci::use(run), soci::use(step.progress->runId), soci::use(event),
          soci::use(step.progress->lastSent);
    }
    for (const std::string& id : step.newlyPending) {
      session << "INSERT INTO pending (server, run_id) VALUES (:server, :id) "
                 "ON CONFLICT DO NOTHING",
          soci::use(server_), soci::use(id);
    }
    const auto forget = [&](const std::string& id) {
      session << "DELETE FROM pending WHERE server = :server AND run_id = :id", soci::use(server_),
          soci::use(id);
      session << "DELETE FROM parked WHERE server = :server AND run_id = :id", soci::use(server_),
          soci::use(id);
    };
    for (const std::string& id : step.done) forget(id);
    for (const Parked& parked : step.parked) {
      forget(parked.runId);
      const long long at = parked.atUs;
      session << "INSERT INTO parked (server, run_id, reason, at_us) "
                 "VALUES (:server, :id, :reason, :at)",
          soci::use(server_), soci::use(parked.runId), soci::use(parked.reason), soci::use(at);
    }
  });
}

void ForwardState::enter(const ForwardNote& note) {
  connection_->transaction([&](soci::session& session) {
    const long long at = note.atUs;
    const long long since = note.sinceUs;
    const long long reached = note.reachedUs;
    session << "INSERT OR REPLACE INTO note (server, at_us, trouble, since_us, reached_us) "
               "VALUES (:server, :at, :trouble, :since, :reached)",
        soci::use(server_), soci::use(at), soci::use(note.trouble), soci::use(since),
        soci::use(reached);
  });
}

void ForwardState::startAnew() {
  connection_->transaction([&](soci::session& session) {
    session << "UPDATE progress SET run_row = 0, run_id = '', event_row = 0, last_sent = '' "
               "WHERE server = :server",
        soci::use(server_);
    session << "DELETE FROM pending WHERE server = :server", soci::use(server_);
    session << "DELETE FROM parked WHERE server = :server", soci::use(server_);
  });
}

std::int64_t ForwardState::retry(const std::vector<std::string>& runIds) {
  std::int64_t count = 0;
  const std::vector<Parked> all = parked();
  connection_->transaction([&](soci::session& session) {
    for (const Parked& parked : all) {
      bool isMeant = runIds.empty();
      for (const std::string& id : runIds) isMeant = isMeant || id == parked.runId;
      if (!isMeant) continue;
      session << "INSERT INTO pending (server, run_id) VALUES (:server, :id) "
                 "ON CONFLICT DO NOTHING",
          soci::use(server_), soci::use(parked.runId);
      session << "DELETE FROM parked WHERE server = :server AND run_id = :id", soci::use(server_),
          soci::use(parked.runId);
      ++count;
    }
  });
  return count;
}

ForwardLock::ForwardLock(const std::filesystem::path& store) {
  const std::string name = ForwardState::fileOf(store).string() + ".lock";
  descriptor_ = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (descriptor_ < 0) {
    const int reason = errno;
    if (reason == ENOENT) throw StoreError(store.string(), "does not exist");
    throw StoreError(name, std::generic_category().message(reason));
  }
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    const std::string process = quillon::internal::readWhole(name).value_or("");
    close(descriptor_);
    throw StoreError(store.string(),
                     "is forwarded already, by process " + (process.empty() ? "?" : process));
  }
  const std::string own = std::to_string(getpid());
  if (ftruncate(descriptor_, 0) != 0 ||
      write(descriptor_, own.data(), own.size()) != static_cast<ssize_t>(own.size())) {
    // Only the name of this process is missing then.
  }
}

ForwardLock::~ForwardLock() { close(descriptor_); }

}  // namespace results
