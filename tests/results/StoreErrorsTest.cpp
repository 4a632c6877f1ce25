#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "results/Samples.h"
#include "results/Store.h"

namespace {

namespace fs = std::filesystem;
using results::Store;
using results::Verdict;
using test::errorOf;
using test::StoreFolder;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string openingErrorOf(const results::StoreOptions& options) {
  return errorOf([&] { const Store store(options); });
}

/// The database, for a test's own statements.
class Database {
 public:
  explicit Database(const fs::path& file) { sqlite3_open(file.c_str(), &handle_); }
  ~Database() { sqlite3_close(handle_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void execute(const std::string& statement) {
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(handle_, statement.c_str(), nullptr, nullptr, &message), SQLITE_OK)
        << message;
    sqlite3_free(message);
  }

 private:
  sqlite3* handle_ = nullptr;
};

/// Whether `body` holds in a process that is not the superuser's, who may write anywhere.
bool holdsWithoutPrivileges(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    const bool dropped = getuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
    _exit(dropped && body() ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

TEST(StoreErrors, AMissingFolder) {
  StoreFolder folder;
  folder.options.file = folder.folder.path() / "none" / "results.db";
  EXPECT_EQ(openingErrorOf(folder.options), folder.options.file.string() + ": the folder " +
                                                (folder.folder.path() / "none").string() +
                                                " does not exist");
}

TEST(StoreErrors, AFolderInPlaceOfTheFile) {
  const StoreFolder folder;
  fs::create_directory(folder.options.file);
  EXPECT_EQ(openingErrorOf(folder.options), folder.options.file.string() + ": is no file");
}

TEST(StoreErrors, AFolderThatMayNotBeWritten) {
  const StoreFolder folder;
  fs::permissions(folder.folder.path(), fs::perms::owner_read | fs::perms::owner_exec |
                                            fs::perms::others_read | fs::perms::others_exec);
  const std::string expected = folder.options.file.string() + ": the folder " +
                               folder.folder.path().string() +
                               " cannot be written: Permission denied";
  EXPECT_TRUE(holdsWithoutPrivileges([&] { return openingErrorOf(folder.options) == expected; }));
  fs::permissions(folder.folder.path(), fs::perms::owner_all);
}

TEST(StoreErrors, AFileThatMayNotBeWritten) {
  const StoreFolder folder;
  { const Store store(folder.options); }
  fs::permissions(folder.folder.path(), fs::perms::all);
  fs::permissions(folder.options.file, fs::perms::owner_read | fs::perms::others_read);
  const std::string expected =
      folder.options.file.string() + ": cannot be written: Permission denied";
  EXPECT_TRUE(holdsWithoutPrivileges([&] { return openingErrorOf(folder.options) == expected; }));
}

TEST(StoreErrors, AFileOfAnotherKind) {
  const StoreFolder folder;
  std::ofstream(folder.options.file) << std::string(5000, 'x');
  EXPECT_EQ(openingErrorOf(folder.options),
            folder.options.file.string() + ": is no results store (no SQLite database)");
  EXPECT_EQ(test::contentOf(folder.options.file), std::string(5000, 'x'));
}

TEST(StoreErrors, AnotherDatabase) {
  const StoreFolder folder;
  Database(folder.options.file).execute("CREATE TABLE cake (name text)");
  EXPECT_EQ(openingErrorOf(folder.options),
            folder.options.file.string() + ": is a database, but no results store");
}

TEST(StoreErrors, ANewerSchema) {
  const StoreFolder folder;
  { const Store store(folder.options); }
  Database(folder.options.file).execute("INSERT INTO schema_version VALUES (99, 0)");
  EXPECT_EQ(
      openingErrorOf(folder.options),
      folder.options.file.string() +
          ": was written by a newer Quillon (version 99 of the schema; this one knows up to " +
          std::to_string(results::migrations().back().version) + ")");
}

TEST(StoreErrors, ADamagedFile) {
  const StoreFolder folder;
  {
    Store store(folder.options);
    const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    for (int i = 1; i < 500; ++i) {
      store.addMeasurement(test::sampleMeasurement(id, i), test::sampleSpec());
    }
    store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  }
  std::fstream file(folder.options.file);
  file.seekp(static_cast<std::streamoff>(fs::file_size(folder.options.file)) - 12 * 4096);
  file << std::string(4 * 4096, 'x');
  file.close();
  EXPECT_THAT(openingErrorOf(folder.options),
              StartsWith(folder.options.file.string() + ": is damaged: "));
}

TEST(StoreErrors, ATruncatedFile) {
  const StoreFolder folder;
  { const Store store(folder.options); }
  fs::resize_file(folder.options.file, 2 * 4096);
  EXPECT_THAT(openingErrorOf(folder.options),
              StartsWith(folder.options.file.string() + ": is damaged: "));
}

TEST(StoreErrors, AFileThatAnotherProcessKeepsLocked) {
  const StoreFolder folder;
  { const Store store(folder.options); }
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t other = fork();
  if (other == 0) {
    Database database(folder.options.file);
    database.execute("BEGIN IMMEDIATE");
    static_cast<void>(write(ready[1], "x", 1));
    pause();
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const std::string error = openingErrorOf(folder.options);
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  EXPECT_EQ(error, folder.options.file.string() + ": is locked by process " +
                       std::to_string(other) + " (StoreErrorsTest)");
  EXPECT_EQ(openingErrorOf(folder.options), "");
  close(ready[0]);
  close(ready[1]);
}

/// A store with a run in progress that has one record on disk.
class RunInProgress : public testing::Test {
 protected:
  RunInProgress() {
    id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    store.addMeasurement(test::sampleMeasurement(id, 1), test::sampleSpec());
    store.flush(id);
  }
  /// What the station is told when it goes on.
  std::string errorOfRest() {
    return errorOf([&] {
      store.addMeasurement(test::sampleMeasurement(id, 2), test::sampleSpec());
      store.finishRun(id, {Verdict::Pass, {}, {}, 0});
    });
  }
  void expectThatADevicePasses() {
    const std::string next = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    store.addMeasurement(test::sampleMeasurement(next, 1), test::sampleSpec());
    store.finishRun(next, {Verdict::Pass, {}, {}, 0});
    EXPECT_EQ(folder.content(next).run.verdict, Verdict::Pass);
    EXPECT_EQ(folder.content(next).measurements.size(), 1U);
  }

  const StoreFolder folder;
  Store store{folder.options};
  std::string id;
};

using StoreInUse = RunInProgress;

TEST_F(StoreInUse, ADeletedFileIsNoticedAndMadeAnew) {
  fs::remove(folder.options.file);
  EXPECT_EQ(errorOfRest(), folder.options.file.string() + ": was deleted while in use");
  expectThatADevicePasses();
  EXPECT_EQ(results::Queries(folder.options.file).run(id).has_value(), false);
}

TEST_F(StoreInUse, AReplacedFileIsNoticedAndTheNewOneUsed) {
  const StoreFolder other;
  { const Store made(other.options); }
  fs::rename(other.options.file, folder.options.file);
  EXPECT_EQ(errorOfRest(), folder.options.file.string() + ": was replaced while in use");
  expectThatADevicePasses();
}

TEST_F(StoreInUse, AFolderThatVanishesIsNoticedAndTheStoreGoesOnWhenItIsBack) {
  const fs::path away = folder.folder.path().string() + "-away";
  fs::rename(folder.folder.path(), away);
  EXPECT_EQ(errorOfRest(), folder.options.file.string() + ": was deleted while in use");
  EXPECT_THAT(errorOf([&] { store.check(); }), EndsWith(" does not exist"));
  fs::rename(away, folder.folder.path());
  expectThatADevicePasses();
  const results::Run run = folder.content(id).run;
  EXPECT_EQ(run.verdict, Verdict::BrokenOff);
  EXPECT_EQ(run.message, "not recorded: was deleted while in use");
  EXPECT_EQ(run.records, 1);
}

TEST_F(StoreInUse, ALockThatStaysFailsTheRunAndIsToldWithItsHolder) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t other = fork();
  if (other == 0) {
    Database database(folder.options.file);
    database.execute("BEGIN IMMEDIATE");
    static_cast<void>(write(ready[1], "x", 1));
    pause();
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const std::string error = errorOfRest();
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  EXPECT_THAT(error, HasSubstr(": is locked by process " + std::to_string(other)));
  expectThatADevicePasses();
  EXPECT_EQ(folder.content(id).run.verdict, Verdict::BrokenOff);
  close(ready[0]);
  close(ready[1]);
}

}  // namespace
