#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "StoreSample.h"
#include "support/TemporaryFolder.h"

// `quillon results`: what the store holds, shown, copied and checked.

namespace {

using nlohmann::json;
using test::changeStore;
using test::Said;
using test::say;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kFirst = "01a1fee6-ae8e-773f-ab2b-216f175f370f";

class ResultsCommand : public testing::Test {
 protected:
  ResultsCommand() {
    setenv("TZ", "UTC", 1);
    test::makeStore(store_, VERSION_1);
  }

  Said results(std::vector<std::string> arguments, const std::string& store = "") const {
    arguments.insert(arguments.begin(), "results");
    arguments.insert(arguments.end(), {"--store", store.empty() ? store_.string() : store});
    return say(arguments);
  }
  std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
  /// A file of what the store exports.
  std::string exported(const std::string& name) const {
    return folder_.write(name, results({"export"}).output).string();
  }
  /// What the serial numbers of a list are, in its order.
  static std::vector<std::string> serialsOf(const Said& said) {
    std::vector<std::string> serials;
    const json report = json::parse(said.output);
    for (const json& row : report.at("tables").at(0).at("rows")) {
      serials.push_back(row.at("serial").get<std::string>());
    }
    return serials;
  }

  const test::TemporaryFolder folder_;
  const std::filesystem::path store_ = folder_.path() / "results.db";
};

TEST_F(ResultsCommand, listsTheRunsOfAFilter) {
  const Said said = results({"list", "--since", "2026-11-21", "--site", "left"});
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.errors, "");
  EXPECT_EQ(
      said.output,
      "Runs\n"
      "  Store  " +
          store_.string() +
          "\n"
          "  Since  2026-11-21 00:00:00\n"
          "  Site   left\n"
          "\n"
          "Runs, the latest first\n"
          "  Started              Station  Site  Serial number  Part  Process  Operator  Kind "
          "       Verdict     Took [s]  Records  Run\n"
          "  2026-11-21 08:09:00  line 3   left  QB2601-0007    QB26  final    Ada       "
          "production  INCOMPLETE   29353.5        1  01a1fee6-af6c-770e-8442-6f33c222a9f6\n"
          "  2026-11-21 08:07:00  line 3   left  QB2601-0006    QB26  final    Ada       "
          "production  FAIL           0.049        3  01a1fee6-af53-7c24-bac4-0962700aeee7\n");
}

TEST_F(ResultsCommand, filtersByAllThatARunHas) {
  const auto serials = [&](std::vector<std::string> filter) {
    filter.insert(filter.begin(), "list");
    filter.emplace_back("--json");
    return serialsOf(results(filter));
  };
  EXPECT_THAT(serials({"--kind", "retest"}), ElementsAre("QB2601-0002"));
  EXPECT_THAT(serials({"--until", "2026-11-20T08:02"}), ElementsAre("QB2601-0001"));
  EXPECT_THAT(serials({"--most", "1"}), ElementsAre("QB2601-0007"));
  EXPECT_THAT(serials({"--serial", "QB2601-0001", "--serial", "QB2601-0003", "--station", "line 3",
                       "--part", "QB26", "--process", "final", "--operator", "Ada", "--flow",
                       "Production", "--plugin-version", "1.2"}),
              ElementsAre("QB2601-0003", "QB2601-0001"));
}

TEST_F(ResultsCommand, saysWhatTheStoreDoesNotHave) {
  const auto problem = [&](std::vector<std::string> arguments, int status) {
    const Said said = results(arguments);
    EXPECT_EQ(said.status, status);
    EXPECT_EQ(said.output, "");
    return said.errors;
  };
  EXPECT_EQ(problem({"list", "--site", "lefd"}, 1),
            "quillon: the store has no site lefd\nDid you mean left?\n");
  EXPECT_EQ(problem({"export", "--since", "2026-12-01"}, 1),
            "quillon: no run fits the filter\n"
            "'quillon results list' shows which runs there are.\n");
  EXPECT_THAT(problem({"show", "nobody"}, 1), StartsWith("quillon: the store has no run nobody"));
  EXPECT_THAT(problem({"show", "01a1fee6-a"}, 1), StartsWith("quillon: several runs begin with"));
  EXPECT_THAT(problem({"list", "--since", "2026-02-30"}, 2),
              StartsWith("--since: 2026-02-30 is no time; 2026-11-21"));
  EXPECT_THAT(problem({"list", "--kind", "golder"}, 2),
              StartsWith("--kind: golder is none of production"));
}

TEST_F(ResultsCommand, aStoreThatIsMissingOrOfAnotherVersionIsRefused) {
  EXPECT_EQ(results({"list"}, path("none.db")).errors,
            "quillon: cannot use the results store " + path("none.db") +
                ": does not exist\n--store FILE names another one.\n");
  changeStore(store_, "INSERT INTO schema_version VALUES (99, 1)");
  const Said said = results({"check"});
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.errors, HasSubstr("has version 99 of the schema"));
}

TEST_F(ResultsCommand, showsARunWithAllThatBelongsToIt) {
  const Said said = results({"show", "QB2601-0002"});
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.output, StartsWith("Run 01a1fee6-aeba-724d-89e5-3c4d77885e19\n"));
  EXPECT_THAT(said.output, HasSubstr("  Reason     contact cleaned\n"));
  EXPECT_THAT(said.output, HasSubstr("  2.2     Voltages  VREF            1  1.28633  -     V      "
                                     "1.2   1.3  -         PASS     yes\n"));
  EXPECT_THAT(said.output, HasSubstr("meter  Example  M1     0815"));
  const Said object = results({"show", "01a1fee6-ae8e", "--json"});
  EXPECT_EQ(json::parse(object.output).at("run").at("id"), kFirst);
}

TEST_F(ResultsCommand, whatIsExportedIsImportedAsItWas) {
  const std::string file = exported("runs.jsonl");
  const std::string copy = path("copy.db");
  const Said first = results({"import", file}, copy);
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.output, "9 runs added, 0 there already, 0 refused\n");
  EXPECT_EQ(results({"import", file}, copy).output, "0 runs added, 9 there already, 0 refused\n");
  EXPECT_EQ(results({"export"}, copy).output, results({"export"}).output);
  const Said checked = results({"check"}, copy);
  EXPECT_EQ(checked.status, 0);
  EXPECT_EQ(checked.output, "9 runs checked: all is as it was stored.\n");
}

TEST_F(ResultsCommand, aRunOfAnotherContentIsRefused) {
  const std::string file = exported("runs.jsonl");
  // The same run, changed by somebody who knows how its sum is made.
  changeStore(store_,
              "UPDATE run SET message = 'other', sha256 = "
              "'0000000000000000000000000000000000000000000000000000000000000000' WHERE id = '" +
                  std::string(kFirst) + "'");
  const Said said = results({"import", file});
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.output, "0 runs added, 8 there already, 1 refused\n");
  EXPECT_EQ(said.errors, "quillon: " + file + ":1: the run " + kFirst +
                             " is in the store already, with another content\n");
}

TEST_F(ResultsCommand, whatIsNoRunIsRefusedAndTheOthersEntered) {
  std::istringstream lines(results({"export"}).output);
  std::string first;
  std::string second;
  std::getline(lines, first);
  std::getline(lines, second);
  json changed = json::parse(first);
  changed["measurements"][1]["value"] = 5.02;
  json without = json::parse(first);
  without["run"].erase("operator");
  json wrong = json::parse(first);
  wrong["run"]["verdict"] = "GOOD";
  json more = json::parse(first);
  more["run"]["colour"] = "red";
  json foreign = json::parse(first);
  foreign["measurements"][1]["run_id"] = "another";
  json later = json::parse(first);
  later["format"] = 2;
  std::string text = "nonsense\n\n";
  for (const json& each : {changed, without, wrong, more, foreign, later}) {
    text += each.dump() + "\n";
  }
  const std::string file = folder_.write("bad.jsonl", text + second + "\n").string();
  const Said said = results({"import", file}, path("copy.db"));
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.output, "1 run added, 0 there already, 7 refused\n");
  const std::string start = "quillon: " + file + ":";
  EXPECT_EQ(said.errors, start + "1: it is no JSON object\n" + start + "3: the run " + kFirst +
                             " is not what its sum says: it was changed\n" + start +
                             "4: run lacks operator\n" + start +
                             "5: run: verdict cannot be \"GOOD\"\n" + start +
                             "6: run has more columns than this Quillon knows\n" + start +
                             "7: a measurement of another run, another\n" + start +
                             "8: its format is 2, and this Quillon knows 1\n");
}

TEST_F(ResultsCommand, everyDigitOfANumberIsKept) {
  const Said said = results({"export", "--serial", "QB2601-0001"});
  const json run = json::parse(said.output);
  bool isFound = false;
  for (const json& spec : run.at("specs")) {
    if (spec.at("sub_test") != "VREF") continue;
    isFound = true;
    EXPECT_EQ(spec.at("low").get<double>(), 1.1999999999999999555);
    EXPECT_EQ(spec.at("high").get<double>(), 1.3000000000000000444);
  }
  EXPECT_TRUE(isFound);
}

TEST_F(ResultsCommand, checkFindsWhatWasChanged) {
  EXPECT_EQ(results({"check"}).output, "9 runs checked: all is as it was stored.\n");
  changeStore(store_, "UPDATE measurement SET value = value + 1e-9 WHERE run_id = '" +
                          std::string(kFirst) + "' AND sequence = 2");
  const std::string changed =
      "Run " + std::string(kFirst) + " is not what its sum says: it was changed\n";
  Said said = results({"check"});
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.output, changed + "9 runs checked: 1 problem.\n");
  changeStore(store_, "DELETE FROM measurement WHERE run_id = '" + std::string(kFirst) +
                          "' AND sequence = 2; UPDATE spec SET low = 4 WHERE sub_test = 'VBUS'; "
                          "DELETE FROM instrument");
  said = results({"check"});
  EXPECT_THAT(said.output,
              HasSubstr("the row 6b0bdfbea5067bd11ac8d44efa7b021a of spec is not what its"));
  EXPECT_THAT(said.output, HasSubstr("of run_instrument refers to a missing instrument\n"));
  EXPECT_THAT(said.output,
              HasSubstr(changed + "Run " + kFirst + " has 2 measurements instead of 3"));
}

TEST_F(ResultsCommand, csvIsReadAsItWasWritten) {
  changeStore(store_,
              "UPDATE measurement SET text = 'a \"b\",' || char(10) || ' c', message = '' "
              "WHERE run_id = '" +
                  std::string(kFirst) + "' AND sequence = 1");
  const Said said = results({"export", "--csv"});
  EXPECT_EQ(said.status, 0);
  const std::string file = folder_.write("rows.csv", said.output).string();
  const Said read = test::sayProgram({PYTHON, "-c",
                                      "import csv, json, sys\n"
                                      "rows = list(csv.reader(open(sys.argv[1], newline='')))\n"
                                      "print(json.dumps([sorted(set(map(len, rows))), len(rows), "
                                      "dict(zip(rows[0], rows[1])), dict(zip(rows[0], rows[2]))]))",
                                      file});
  ASSERT_EQ(read.status, 0) << read.errors;
  const json rows = json::parse(read.output);
  EXPECT_EQ(rows[0], json({31}));  // every line has as many fields
  EXPECT_EQ(rows[1], 25);          // of the measurements, and the head
  EXPECT_EQ(rows[2]["text"], "a \"b\",\n c");
  EXPECT_EQ(rows[2]["serial"], "QB2601-0001");
  EXPECT_EQ(rows[2]["started"], "2026-11-20T08:01:00.000000Z");
  EXPECT_EQ(rows[3]["value"], "5.01");
  EXPECT_EQ(rows[3]["superseded"], "0");
  EXPECT_EQ(rows[3]["message"], "");
}

}  // namespace
