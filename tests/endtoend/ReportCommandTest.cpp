#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "StoreSample.h"
#include "support/TemporaryFolder.h"

// `quillon report`: what is told of the results store, on the terminal and for programs.

namespace {

using nlohmann::json;
using test::Said;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ReportCommand : public testing::Test {
 protected:
  ReportCommand() {
    setenv("TZ", "UTC", 1);
    test::makeStore(store_, VERSION_1);
  }

  Said report(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "report");
    arguments.insert(arguments.end(), {"--store", store_.string()});
    return test::say(arguments);
  }
  static std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const test::TemporaryFolder folder_;
  const std::filesystem::path store_ = folder_.path() / "results.db";
};

TEST_F(ReportCommand, showsTheYieldAsTables) {
  const Said said = report({"yield", "--by", "day", "--part", "QB26"});
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.errors, "");
  const std::string rows =
      "Yield\n"
      "  Store  " +
      store_.string() +
      "\n"
      "  Part   QB26\n"
      "\n"
      "By process\n"
      "  Process  Units  New  Passed at first          First-pass yield  Passed at last            "
      "   Final yield  Runs  Passed              Report yield\n"
      "  final        6    6                4  66.67 % (30.00 to 90.32)               5  83.33 % "
      "(43.65 to 96.99)     7       5  71.43 % (35.89 to 91.78)\n"
      "\n"
      "Rolled throughput over all processes\n"
      "  Processes   Rolled throughput yield\n"
      "          1  66.67 % (30.00 to 90.32)\n"
      "\n"
      "By day\n";
  EXPECT_THAT(said.output, StartsWith(rows));
  EXPECT_THAT(said.output, HasSubstr("  broken off                                       1  no\n"));
  EXPECT_THAT(said.output, HasSubstr("\nWhat the words mean\n  Counted are the runs of the kinds "
                                     "production and retest that ended PASS or FAIL.\n"));
}

TEST_F(ReportCommand, writesAllDigitsForPrograms) {
  const Said said = report({"yield", "--json"});
  const json yield = json::parse(said.output);
  EXPECT_EQ(yield.at("report"), "yield");
  EXPECT_EQ(yield.at("tables").at(0).at("rows").at(0).at("first_pass_yield").get<double>(),
            4.0 / 6);
  EXPECT_EQ(yield.at("about").at("Filter"), "none");
}

TEST_F(ReportCommand, writesTheTableThatIsWantedAsCsv) {
  const Said said = report({"pareto", "--csv"});
  EXPECT_EQ(said.output,
            "test,sub_test,first_failures,share,cumulative,all_failures,all_share,superseded\r\n"
            "Voltages,VBUS,2,1,1,2,1,1\r\n");
  EXPECT_THAT(report({"pareto", "--csv", "--table", "by_site"}).output,
              StartsWith("station,site,first_failures"));
  const Said none = report({"pareto", "--csv", "--table", "by_moon"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.errors,
            "quillon: the report pareto has no table by_moon\n"
            "Its tables are by_sub_test, by_site, by_site_and_sub_test.\n");
}

TEST_F(ReportCommand, writesAPageThatNeedsNothingElse) {
  const std::string page = (folder_.path() / "yield.html").string();
  const Said said = report({"yield", "--html", page});
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.output, "Written: " + page + "\n");
  const std::string html = contentOf(page);
  EXPECT_THAT(html, AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("<canvas>"),
                          HasSubstr("66.67 % (30.00 to 90.32)"), Not(HasSubstr(" src=")),
                          Not(HasSubstr("<link"))));
  const Said denied = report({"yield", "--html", "/nowhere/page.html"});
  EXPECT_EQ(denied.status, 2);
  EXPECT_EQ(denied.errors, "quillon: cannot write /nowhere/page.html: No such file or directory\n");
}

TEST_F(ReportCommand, everyReportIsMade) {
  EXPECT_THAT(report({"capability"}).output,
              AllOf(StartsWith("Capability\n"), HasSubstr("VBUS"), HasSubstr("VREF")));
  EXPECT_THAT(report({"trend", "--sub-test", "VBUS"}).output,
              StartsWith("Trend of Voltages / VBUS\n"));
  EXPECT_THAT(report({"compare", "--by", "site", "left", "right"}).output,
              StartsWith("left and right\n"));
  EXPECT_THAT(report({"compare"}).output, StartsWith("Test times\n"));
  EXPECT_THAT(report({"runs", "--most", "2"}).output,
              HasSubstr("The last 2 of 9 runs; --most N shows more."));
}

TEST_F(ReportCommand, saysWhatIsWrong) {
  const auto problem = [&](const std::vector<std::string>& arguments, int status) {
    const Said said = report(arguments);
    EXPECT_EQ(said.status, status);
    EXPECT_EQ(said.output, "");
    return said.errors;
  };
  EXPECT_EQ(problem({"trend", "--sub-test", "VBOS"}, 1),
            "quillon: the store has no sub-test VBOS\nDid you mean VBUS?\n");
  EXPECT_THAT(problem({"grr", "--sub-test", "VBUS"}, 1),
              StartsWith("quillon: there are no runs of the kind study in the filter\n"));
  EXPECT_THAT(problem({"yield", "--by", "moon"}, 2),
              StartsWith("--by: moon is none of day, station, site"));
  EXPECT_THAT(problem({"compare", "--by", "site"}, 2), HasSubstr("--by requires SIDE"));
  EXPECT_THAT(problem({"compare", "--by", "period", "x", "y"}, 1),
              StartsWith("quillon: x is no period\n"));
  EXPECT_THAT(problem({"grr", "--appraiser", "part"}, 2),
              StartsWith("--appraiser: part is none of operator, station, site"));
}

}  // namespace
