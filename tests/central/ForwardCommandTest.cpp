#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "central/Fleet.h"
#include "support/Eventually.h"

namespace {

using test::FleetStation;
using test::testDevice;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

struct Said {
  std::string text;
  int status = 0;
};

/// `environment`: "NAME=VALUE ", or nothing.
Said quillon(const std::string& arguments, const std::string& environment = "") {
  FILE* const pipe =
      popen((environment + std::string(STATION) + " " + arguments + " 2>&1").c_str(), "r");
  Said said;
  std::array<char, 4096> chunk{};
  for (std::size_t count = 0; (count = fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) {
    said.text.append(chunk.data(), count);
  }
  said.status = WEXITSTATUS(pclose(pipe));
  return said;
}

TEST(ForwardCommand, PreparesSendsShowsAndTriesAgain) {
  const test::PostgresServer server;
  FleetStation station;
  const std::string to = " --to '" + server.url() + "'";
  const std::string store = " --store " + station.folder.options.file.string();
  std::string id;
  {
    results::Store writer(station.folder.options);
    id = testDevice(writer, "QB-1");
    testDevice(writer, "QB-2");
  }
  Said said = quillon("results queue" + store);
  EXPECT_THAT(said.text, HasSubstr("was never forwarded"));
  said = quillon("forward" + to + store);
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.text, HasSubstr("not prepared yet"));
  said = quillon("forward --prepare" + to);
  EXPECT_EQ(said.status, 0) << said.text;
  EXPECT_THAT(said.text, HasSubstr("prepared, with version"));
  EXPECT_THAT(quillon("forward --prepare" + to).text, HasSubstr("already"));

  server.ask(
      "INSERT INTO run (id, station_id, site, run_index, serial, plan_id, kind, started_us, "
      "verdict, records) VALUES ('" +
      id + "', 's', 'left', 1, 'QB-other', 'p', 'production', 0, 'PASS', 0)");
  said = quillon("forward" + to + store);
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.text, HasSubstr("1 run sent"));
  EXPECT_THAT(said.text, HasSubstr("1 run is parked"));
  said = quillon("results queue" + store);
  EXPECT_THAT(said.text, HasSubstr(id));
  EXPECT_THAT(said.text, HasSubstr("QB-1"));
  EXPECT_THAT(said.text, HasSubstr("ALARM"));
  EXPECT_THAT(quillon("results queue --json" + store).text, HasSubstr("\"parked\""));
  EXPECT_THAT(quillon("results show QB-1" + store).text, HasSubstr("another content"));
  EXPECT_EQ(quillon("results retry" + store).status, 1);
  EXPECT_EQ(quillon("results retry nonsense" + store).status, 1);

  server.ask("DELETE FROM run WHERE id = '" + id + "'");
  EXPECT_THAT(quillon("results retry " + id.substr(0, 20) + store).text,
              testing::AnyOf(HasSubstr("1 run will"), HasSubstr("2 runs will")));
  said = quillon("forward" + to + store);
  EXPECT_EQ(said.status, 0) << said.text;
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-1\nQB-2\n");
}

TEST(ForwardCommand, FollowsUntilItIsEnded) {
  test::PostgresServer server;
  FleetStation station;
  const std::string store = " --store " + station.folder.options.file.string();
  ASSERT_EQ(quillon("forward --prepare --to '" + server.url() + "'").status, 0);
  server.stop();
  {
    results::Store writer(station.folder.options);
    testDevice(writer, "QB-1");
  }
  const std::filesystem::path output = station.folder.folder.path() / "output";
  const std::string url = server.url();
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    execl(STATION, STATION, "forward", "--follow", "--to", url.c_str(), "--store",
          station.folder.options.file.c_str(), nullptr);
    _exit(127);
  }
  const auto hasSaid = [&](const std::string& text) {
    return test::contentOf(output).find(text) != std::string::npos;
  };
  EXPECT_TRUE(test::eventually([&] { return hasSaid("1 run waits, and nothing is lost"); }));
  // Whoever asks learns the whole reason.
  EXPECT_THAT(quillon("results queue" + store).text,
              AllOf(HasSubstr("Notes\n  cannot send to "), HasSubstr("failed: No such file")));
  EXPECT_THAT(quillon("forward --to '" + url + "'" + store).text,
              HasSubstr("is forwarded already, by process " + std::to_string(process)));
  server.start();
  EXPECT_TRUE(test::eventually([&] { return server.ask("SELECT serial FROM run") == "QB-1\n"; }));
  EXPECT_TRUE(test::eventually([&] { return hasSaid("takes runs again"); }));
  kill(process, SIGTERM);
  int status = -1;
  waitpid(process, &status, 0);
  EXPECT_EQ(status, 0) << test::contentOf(output);
}

TEST(ForwardCommand, AStoreThatIsNotThereIsSaidToBeMissing) {
  const test::TemporaryFolder folder;
  const std::string arguments = "forward --to 'postgresql://line@/quillon?host=/nowhere' --store " +
                                (folder.path() / "typo.db").string();
  const Said said = quillon(arguments);
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.text, HasSubstr("typo.db: does not exist"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "nothing is left beside a wrong name";
}

TEST(ForwardCommand, TakesNoPasswordAndTellsNone) {
  for (const std::string password : {"hunter2", "hunter2/more", "2/hunter2"}) {
    const Said said = quillon("forward --to postgresql://line:" + password + "@db/quillon");
    EXPECT_EQ(said.status, 2);
    EXPECT_THAT(said.text, HasSubstr("the server's address "));
    EXPECT_THAT(said.text, Not(HasSubstr("hunter2")));
  }
  EXPECT_EQ(quillon("forward --to results.db").status, 2);
  EXPECT_EQ(quillon("forward").status, 2);
}

// Every start of the program would take twice as long with them and the libraries that they need.
TEST(ServersLibraries, AreNoPartOfTheProgram) {
  const Said loaded = quillon("", "LD_TRACE_LOADED_OBJECTS=1 ");
  EXPECT_THAT(loaded.text, HasSubstr("libquillon.so"));
  EXPECT_THAT(loaded.text, Not(HasSubstr(LIBPQ)));
  EXPECT_THAT(loaded.text, Not(HasSubstr(LIBSOCI_POSTGRESQL)));
}

TEST(ServersLibraries, AreNamedWithReasonAndPackageWhenTheyAreBroken) {
  FleetStation station;
  const std::string store = " --store " + station.folder.options.file.string();
  const std::string server = " 'postgresql://line@/quillon?host=/nowhere'";
  {
    results::Store writer(station.folder.options);
    testDevice(writer, "QB-1");
  }
  struct Case {
    std::string library;
    std::string package;
    std::string arguments;
  };
  const std::string forward = "forward" + store + " --to" + server;
  const std::string list = "results list --store" + server;
  for (const Case& each : {Case{LIBPQ, "libpq", forward}, Case{LIBPQ, "libpq", list},
                           Case{LIBSOCI_POSTGRESQL, "libsoci-postgresql", list}}) {
    const test::TemporaryFolder folder;
    const std::string broken = folder.write(each.library, "no library").string();
    const std::string environment = "LD_LIBRARY_PATH=" + folder.path().string() + " ";
    const Said said = quillon(each.arguments, environment);
    EXPECT_NE(said.status, 0);
    EXPECT_THAT(said.text, HasSubstr(broken + ": file too short")) << each.arguments;
    EXPECT_THAT(said.text, HasSubstr("Install the package " + each.package)) << each.arguments;
    // What needs no server needs none of them.
    const Said local = quillon("results list" + store, environment);
    EXPECT_EQ(local.status, 0) << local.text;
    EXPECT_THAT(local.text, HasSubstr("QB-1"));
  }
}

}  // namespace
