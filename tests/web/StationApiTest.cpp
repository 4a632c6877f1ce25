#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

#include "common/Files.h"
#include "common/Text.h"
#include "support/Watchdog.h"
#include "web/Server.h"
#include "web/TestSite.h"

namespace {

using std::chrono::milliseconds;
using test::HttpClient;

/// The first two cells of each row of the document's table with this header, without back quotes.
std::map<std::string, std::string> table(const std::string& header) {
  std::istringstream document(quillon::internal::readWhole(STATION_API).value_or(""));
  std::string line;
  while (std::getline(document, line) && line.rfind(header, 0) != 0) {
  }
  std::getline(document, line);
  std::map<std::string, std::string> rows;
  while (std::getline(document, line) && line.rfind("| ", 0) == 0) {
    const auto cells = quillon::internal::split(line, "|");
    rows[quillon::internal::trimmed(cells[1], " `")] = quillon::internal::trimmed(cells[2], " `");
  }
  return rows;
}

std::set<std::string> firstCells(const std::string& header) {
  std::set<std::string> names;
  for (const auto& [name, rest] : table(header)) names.insert(name);
  return names;
}

TEST(StationApi, NamesEachStatusOfWhatIsRefused) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.streams = 0;
  options.limits.request = milliseconds(300);
  const web::Server server(options, site);
  options.token = "0123456789abcdef";
  const web::Server closed(options, site);
  const std::string address = server.address();
  const std::string fields = test::pageFields(address);
  const auto command = [&](const std::string& more, const std::string& body) {
    return HttpClient(address).post("/api/1/commands", more, body).status;
  };
  HttpClient half(address);
  half.send("GET /");
  HttpClient lengthless(address);
  lengthless.request("POST", "/api/1/commands", fields);

  const std::set<int> found{
      command(fields, "{}"),
      HttpClient(closed.address()).get("/api/1/state").status,
      command("Content-Type: application/json", "{}"),
      HttpClient(address).get("/none").status,
      HttpClient(address).get("/api/1/commands").status,
      half.reply().status,
      lengthless.reply().status,
      command(fields, std::string(70'000, ' ')),
      command("Content-Type: text/plain", "{}"),
      HttpClient(address).get("/" + std::string(20'000, 'x')).status,
      HttpClient(address).get("/throws").status,
      HttpClient(address).get("/api/1/events").status,
  };
  std::set<std::string> statuses;
  for (const int status : found) statuses.insert(std::to_string(status));
  EXPECT_EQ(firstCells("| status | why"), statuses);
}

TEST(StationApi, StatesTheLimits) {
  const web::Limits limits;
  const std::map<std::string, std::size_t> known{
      {"connections at once", limits.connections},
      {"event streams among them", limits.streams},
      {"bytes of a request's header", limits.headerBytes},
      {"bytes of a request's body", limits.bodyBytes},
      {"milliseconds for a request, from its first byte to its last", limits.request.count()},
      {"milliseconds between two requests of a connection", limits.idle.count()},
      {"bytes that an event stream may lag behind", limits.queuedBytes},
      {"answers that are kept for repeated commands", limits.keptAnswers}};
  std::map<std::string, std::string> stated;
  for (const auto& [what, number] : known) stated[what] = std::to_string(number);
  EXPECT_EQ(table("| limit | value"), stated);
  EXPECT_EQ(limits.delta, milliseconds(100));
  EXPECT_EQ(limits.heartbeat, milliseconds(1000));
  EXPECT_EQ(limits.wrongToken, milliseconds(1000));
}

TEST(StationApi, NamesEachEvent) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.heartbeat = milliseconds(10);
  const web::Server server(options, site);
  HttpClient client(server.address());
  client.request("GET", "/api/1/events");
  client.header();
  std::set<std::string> names{client.event().name};
  site.set("a", 1);
  site.log("line");
  while (names.size() < 4) names.insert(client.event().name);
  for (int i = 0; i < 5; ++i) names.insert(client.event().name);
  EXPECT_EQ(firstCells("| event | `data`"), names);
}

}  // namespace
