#include "results/Schema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "results/Columns.h"
#include "results/Content.h"
#include "results/Samples.h"
#include "results/Store.h"

namespace {

using results::Migration;
using results::Store;
using results::Verdict;
using test::errorOf;
using test::StoreFolder;
using testing::ElementsAre;
using testing::HasSubstr;

/// What a statement gives, a text a row with its columns behind each other: "a|b".
std::vector<std::string> rowsOf(const std::filesystem::path& file, const std::string& statements) {
  sqlite3* database = nullptr;
  sqlite3_open(file.c_str(), &database);
  std::vector<std::string> rows;
  const auto add = [](void* rows, int count, char** values, char**) {
    std::string row;
    for (int i = 0; i < count; ++i) {
      row += (i > 0 ? "|" : "") + std::string(values[i] != nullptr ? values[i] : "(null)");
    }
    static_cast<std::vector<std::string>*>(rows)->push_back(row);
    return 0;
  };
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(database, statements.c_str(), add, &rows, &message), SQLITE_OK) << message;
  sqlite3_free(message);
  sqlite3_close(database);
  return rows;
}

template <typename Row>
void expectColumns(const std::filesystem::path& file) {
  std::vector<std::string> names;
  Row row;
  results::forEachColumn(row, [&](const char* name, auto&) { names.push_back(name); });
  const std::string table = results::Table<Row>::kName;
  EXPECT_EQ(rowsOf(file, "SELECT name FROM pragma_table_info('" + table + "') ORDER BY cid"), names)
      << table;
}

TEST(Schema, HasTheColumnsThatAreWritten) {
  const StoreFolder folder;
  const Store store(folder.options);
  expectColumns<results::Station>(folder.options.file);
  expectColumns<results::Plan>(folder.options.file);
  expectColumns<results::Spec>(folder.options.file);
  expectColumns<results::Run>(folder.options.file);
  expectColumns<results::Step>(folder.options.file);
  expectColumns<results::Measurement>(folder.options.file);
  expectColumns<results::Attribute>(folder.options.file);
  expectColumns<results::Instrument>(folder.options.file);
  expectColumns<results::RunInstrument>(folder.options.file);
  expectColumns<results::Event>(folder.options.file);
}

TEST(Schema, StoresHaveAWriteAheadLog) {
  const StoreFolder folder;
  const Store store(folder.options);
  EXPECT_THAT(rowsOf(folder.options.file, "PRAGMA journal_mode"), ElementsAre("wal"));
}

/// The schema with two steps more.
std::vector<Migration> laterSchema() {
  std::vector<Migration> schema = results::migrations();
  const int last = schema.back().version;
  schema.push_back({last + 1,
                    {"ALTER TABLE run ADD COLUMN colour text",
                     "UPDATE run SET colour = 'red' WHERE verdict = 'FAIL'"}});
  schema.push_back({last + 2, {"CREATE TABLE cake (run_id text REFERENCES run (id))"}});
  return schema;
}

TEST(Schema, AStoreOfTheFirstVersionIsBroughtToTheLastWithItsRows) {
  const StoreFolder folder;
  rowsOf(folder.options.file, test::contentOf(VERSION_1));
  const auto before = rowsOf(folder.options.file, "SELECT * FROM measurement ORDER BY 1, 2");
  ASSERT_FALSE(before.empty());
  {
    Store store(folder.options);
    EXPECT_EQ(rowsOf(folder.options.file, "SELECT max(version) FROM schema_version"),
              std::vector{std::to_string(results::migrations().back().version)});
    EXPECT_EQ(rowsOf(folder.options.file, "SELECT * FROM measurement ORDER BY 1, 2"), before);
    results::Queries queries(folder.options.file);
    for (const std::string& id : rowsOf(folder.options.file, "SELECT id FROM run")) {
      const auto content = queries.run(id).value();
      EXPECT_EQ(content.run.sha256, results::sha256Of(content)) << id;
      EXPECT_EQ(content.plan.id, results::idOf(content.plan));
      for (const results::Spec& spec : content.specs) EXPECT_EQ(spec.id, results::idOf(spec));
    }
    const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  }
}

TEST(Schema, TheStepsThatAreLackingAreTakenInOrderOnce) {
  StoreFolder folder;
  std::string failed;
  {
    Store store(folder.options);
    failed = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    store.finishRun(failed, {Verdict::Fail, {}, {}, 0});
  }
  const std::vector<Migration> later = laterSchema();
  const results::StoreOptions upgraded{folder.options.file,          "line 3", {}, {},
                                       folder.options.machineIdFile, later};
  for (int i = 0; i < 2; ++i) {
    const Store store(upgraded);
    EXPECT_THAT(rowsOf(folder.options.file, "SELECT colour FROM run"), ElementsAre("red"));
    EXPECT_THAT(rowsOf(folder.options.file, "SELECT version FROM schema_version ORDER BY 1"),
                ElementsAre("1", "2", "3"));
  }
  EXPECT_THAT(errorOf([&] { const Store older(folder.options); }),
              HasSubstr("was written by a newer Quillon (version 3 of the schema; this one knows "
                        "up to 1)"));
  EXPECT_THAT(errorOf([&] { const results::Queries older(folder.options.file); }),
              HasSubstr("has version 3 of the schema, and version 1 is needed"));
}

TEST(Schema, AStepThatFailsLeavesTheStoreAsItWas) {
  const StoreFolder folder;
  { const Store store(folder.options); }
  std::vector<Migration> broken = laterSchema();
  broken.back().statements.push_back("CREATE TABLE cake (again text)");
  const results::StoreOptions upgraded{folder.options.file,          "line 3", {}, {},
                                       folder.options.machineIdFile, broken};
  EXPECT_THAT(errorOf([&] { const Store store(upgraded); }),
              HasSubstr("results.db: table cake already exists"));
  EXPECT_THAT(rowsOf(folder.options.file, "SELECT version FROM schema_version"), ElementsAre("1"));
  const Store store(folder.options);
}

TEST(Schema, SeveralThatBeginWithAMissingFileShareTheOneThatIsMade) {
  StoreFolder folder;
  folder.options.patience = std::chrono::seconds(20);
  std::vector<std::thread> stations;
  for (int i = 0; i < 4; ++i) {
    stations.emplace_back([&] {
      EXPECT_EQ(errorOf([&] {
                  Store store(folder.options);
                  store.check();
                }),
                "");
    });
  }
  for (std::thread& station : stations) station.join();
  EXPECT_THAT(rowsOf(folder.options.file, "SELECT version FROM schema_version"), ElementsAre("1"));
}

}  // namespace
