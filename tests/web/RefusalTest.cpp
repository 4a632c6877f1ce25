#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "support/Eventually.h"
#include "support/Watchdog.h"
#include "web/Server.h"
#include "web/TestSite.h"

namespace {

using std::chrono::milliseconds;
using test::commandText;
using test::HttpClient;
using test::Reply;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kToken = "a-token-of-16-chars+/=";

class Refusal : public testing::Test {
 protected:
  static web::Options options() {
    web::Options options = test::testOptions();
    options.allowedHosts = {"line3.local", "proxy.example:443"};
    return options;
  }

  /// After whatever was refused, the server goes on and the site has not noticed.
  void TearDown() override {
    EXPECT_EQ(HttpClient(server_.address()).get("/icon.svg").status, 200);
    EXPECT_EQ(site_.commands(), 0U);
  }

  std::string port() const { return server_.address().substr(server_.address().rfind(':')); }

  const test::Watchdog watchdog_;
  test::TestSite site_;
  web::Server server_{options(), site_};
  HttpClient client_{server_.address()};
};

TEST_F(Refusal, OfForeignHosts) {
  for (const std::string& host :
       std::vector<std::string>{"evil.example" + port(), std::string("127.0.0.1"),
                                "127.0.0.2" + port(), std::string("127.0.0.1:1"),
                                std::string("localhost"), "line3.local.evil.example" + port(),
                                std::string("proxy.example"), "line3.local:81", std::string("")}) {
    for (const char* path : {"/", "/page.js", "/api/1/state", "/api/1/events", "/api/1/session"}) {
      EXPECT_EQ(client_.get(path, "Host: " + host).status, 403) << host << path;
    }
  }
  for (const std::string& host : std::vector<std::string>{
           "127.0.0.1" + port(), "localhost" + port(), "LocalHost" + port(), "[::1]" + port(),
           std::string("line3.local"), "Line3.local" + port(), std::string("proxy.example:443")}) {
    EXPECT_EQ(client_.get("/", "Host: " + host).status, 200) << host;
  }
}

TEST_F(Refusal, OfNoHostAndOfTwo) {
  client_.send("GET / HTTP/1.1\r\n\r\n");
  EXPECT_EQ(client_.reply().status, 403);
  client_.send("GET / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(client_.reply().status, 403);
  HttpClient two(server_.address());
  EXPECT_EQ(two.get("/", "Host: " + server_.address() + "\nHost: evil.example").status, 403);
}

TEST_F(Refusal, OfForeignOrigins) {
  const std::string fields = test::pageFields(server_.address());
  for (const std::string& origin : std::vector<std::string>{
           std::string("http://evil.example"), std::string("null"), std::string(""),
           "http://localhost" + port(), "https://" + server_.address() + ".evil.example",
           "ftp://" + server_.address(), "http://127.0.0.1"}) {
    const std::string line = "\nOrigin: " + origin;
    EXPECT_EQ(client_.get("/api/1/state", line).status, 403) << origin;
    EXPECT_EQ(client_.get("/api/1/events", line).status, 403) << origin;
    EXPECT_EQ(client_.post("/api/1/commands", fields + line, commandText("1", "go")).status, 403);
  }
  EXPECT_EQ(client_.get("/api/1/state", "Origin: http://" + server_.address()).status, 200);
  EXPECT_EQ(client_.get("/", "Host: line3.local\nOrigin: https://LINE3.local").status, 200);
}

TEST_F(Refusal, OfWhatForeignPagesFetch) {
  EXPECT_EQ(client_.get("/icon.svg", "Sec-Fetch-Site: cross-site\nSec-Fetch-Mode: no-cors").status,
            403);
  EXPECT_EQ(client_.get("/metrics", "Sec-Fetch-Site: same-site\nSec-Fetch-Mode: no-cors").status,
            403);
  EXPECT_EQ(client_.get("/", "Sec-Fetch-Site: cross-site\nSec-Fetch-Mode: navigate").status, 200);
  EXPECT_EQ(client_.get("/", "Sec-Fetch-Site: same-origin\nSec-Fetch-Mode: cors").status, 200);
}

TEST_F(Refusal, OfCommandsWithoutTheSessionsToken) {
  const std::string type = "Content-Type: application/json";
  for (const char* token : {"", "\nX-Quillon-Token: ", "\nX-Quillon-Token: 0123456789abcdef",
                            "\nX-Quillon-Token: 0123456789abcdef0123456789abcdef"}) {
    EXPECT_EQ(client_.post("/api/1/commands", type + token, commandText("1", "go")).status, 403);
  }
}

TEST_F(Refusal, OfCommandsOfOtherTypes) {
  const std::string fields = test::pageFields(server_.address());
  const std::string token = fields.substr(fields.find("X-Quillon"));
  for (const char* type : {"", "Content-Type: text/plain\n", "Content-Type: application/json5\n",
                           "Content-Type: application/x-www-form-urlencoded\n"}) {
    EXPECT_EQ(client_.post("/api/1/commands", type + token, commandText("1", "go")).status, 415);
  }
}

TEST_F(Refusal, OfWhatIsNoCommand) {
  const std::string fields = test::pageFields(server_.address());
  const std::string deep = std::string(30'000, '[') + std::string(30'000, ']');
  for (const std::string& body : std::vector<std::string>{
           std::string("{"), std::string("nonsense"), std::string("[]"), std::string("7"),
           std::string("{}"), std::string(R"({"id": "a"})"), std::string(R"({"command": "a"})"),
           std::string(R"({"id": 7, "command": "go"})"),
           std::string(R"({"id": "", "command": "go"})"),
           R"({"id": ")" + std::string(65, 'x') + R"(", "command": "go"})",
           std::string(R"({"id": "a", "command": ["go"]})"), std::string("\xff\xfe"), deep,
           R"({"id": "a", "command": "go", "x": )" + deep + "}",
           std::string("{\"id\": \"\xc3\x28\", \"command\": \"go\"}")}) {
    const Reply reply = client_.post("/api/1/commands", fields, body);
    EXPECT_EQ(reply.status, 400) << body.substr(0, 80);
    EXPECT_NE(reply.json()["message"], "");
  }
  client_.request("POST", "/api/1/commands", fields);
  EXPECT_EQ(client_.reply().status, 411);
}

TEST_F(Refusal, OfOtherMethods) {
  const std::string fields = test::pageFields(server_.address());
  for (const char* method : {"PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "BREW"}) {
    client_.request(method, "/api/1/commands", fields, "{}");
    const Reply reply = client_.reply();
    EXPECT_EQ(reply.status, 405) << method;
    EXPECT_EQ(reply.field("Allow"), "GET, HEAD, POST");
  }
  EXPECT_EQ(client_.post("/api/1/state", fields, "{}").status, 405);
  EXPECT_EQ(client_.post("/", fields, "{}").field("Allow"), "GET, HEAD");
  EXPECT_EQ(client_.get("/api/1/commands").status, 405);
}

TEST_F(Refusal, OfMalformedTargets) {
  for (const char* target : {"/%", "/%2", "/%zz", "/a%00b", "/a?x=%1", "*", "http://127.0.0.1/"}) {
    EXPECT_EQ(client_.get(target).status, 400) << target;
  }
  EXPECT_EQ(client_.get("/../../etc/passwd").status, 404);
  EXPECT_EQ(client_.get("/%2e%2e/%2e%2e/etc/passwd").status, 404);
}

TEST_F(Refusal, OfBodiesThatAreTooLarge) {
  const std::string fields = test::pageFields(server_.address());
  const Reply reply = client_.post("/api/1/commands", fields, std::string(64 * 1024 + 1, ' '));
  EXPECT_EQ(reply.status, 413);
  EXPECT_TRUE(client_.ends());
  HttpClient claiming(server_.address());
  claiming.request("POST", "/api/1/commands", fields + "\nContent-Length: 99999999999999");
  EXPECT_EQ(claiming.reply().status, 413);
  HttpClient chunked(server_.address());
  chunked.request("POST", "/api/1/commands", fields + "\nTransfer-Encoding: chunked");
  for (int i = 0; i < 100; ++i) chunked.send("1000\r\n" + std::string(0x1000, ' ') + "\r\n");
  EXPECT_EQ(chunked.reply().status, 413);
}

TEST_F(Refusal, OfHeadersThatAreTooLarge) {
  EXPECT_EQ(client_.get("/", "X-Large: " + std::string(20'000, 'x')).status, 431);
  EXPECT_TRUE(client_.ends());
  HttpClient endless(server_.address());
  endless.send("GET / HTTP/1.1\r\n");
  for (int i = 0; i < 1000; ++i)
    endless.send("X-" + std::to_string(i) + ": " + std::string(100, 'x') + "\r\n");
  EXPECT_EQ(endless.reply().status, 431);
  HttpClient target(server_.address());
  EXPECT_EQ(target.get("/" + std::string(20'000, 'x')).status, 431);
}

TEST_F(Refusal, OfGarbage) {
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes each time
  std::vector<std::string> garbage{
      std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11) + std::string(200, 'x'),
      "\r\n\r\n",
      "GET\r\n\r\n",
      "GET / HTTP/9.9\r\n\r\n",
      "GET / HTTP/1.1\r\nno colon\r\n\r\n",
      "GET  /  HTTP/1.1\r\n\r\n",
      "GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
      "POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab",
      "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"};
  for (int i = 0; i < 30; ++i) {
    std::string bytes(1 + random() % 500, ' ');
    for (char& byte : bytes) byte = static_cast<char>(random());
    garbage.push_back(bytes);
  }
  for (const std::string& bytes : garbage) {
    HttpClient client(server_.address());
    client.send(bytes);
    client.endSending();
    EXPECT_TRUE(client.ends());
  }
  HttpClient client(server_.address());
  client.send(garbage.front());
  EXPECT_EQ(client.reply().status, 400);
}

TEST(RefusalOfTheSlow, AnswersHalfARequestAndEnds) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.request = milliseconds(300);
  options.limits.idle = milliseconds(300);
  const web::Server server(options, site);
  const std::string fields = test::pageFields(server.address());
  {
    HttpClient idle(server.address());
    EXPECT_EQ(idle.get("/icon.svg").status, 200);
    HttpClient silent(server.address());
    HttpClient halfHeader(server.address());
    halfHeader.send("GET / HTTP/1.1\r\nHost: ");
    HttpClient halfBody(server.address());
    halfBody.request("POST", "/api/1/commands", fields + "\nContent-Length: 10");
    halfBody.send("{");

    EXPECT_EQ(halfHeader.reply().status, 408);
    EXPECT_TRUE(halfHeader.ends());
    EXPECT_EQ(halfBody.reply().status, 408);
    EXPECT_TRUE(halfBody.ends());
    EXPECT_TRUE(silent.ends());
    EXPECT_TRUE(idle.ends());
  }
  EXPECT_TRUE(test::eventually([&server] { return server.counts().connections == 0; }));
}

TEST(RefusalOfTheSlow, CountsTheTimeOfTheWholeRequest) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.request = milliseconds(60);
  const web::Server server(options, site);
  HttpClient drop(server.address());
  const auto start = std::chrono::steady_clock::now();
  // Byte by byte, each well within the time.
  while (server.counts().refused == 0 &&
         std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
    drop.send("G");
    std::this_thread::sleep_for(milliseconds(5));
  }
  EXPECT_THAT(drop.reply().status, testing::AnyOf(408, 400));
}

TEST(RefusalOfTheSlow, GivesUpAnAnswerThatIsNotTaken) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  const std::string large(30'000'000, 'x');
  options.files = {{"/large.txt", "text/plain", large}};
  options.limits.send = milliseconds(30);
  const web::Server server(options, site);
  HttpClient client(server.address(), 4096);
  client.request("GET", "/large.txt");
  EXPECT_TRUE(test::eventually([&server] { return server.counts().requests == 1; }));
  EXPECT_TRUE(test::eventually([&server] { return server.counts().connections == 0; }));
}

TEST(RefusalOfTheMany, TellsSoAndServesAgainLater) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.connections = 3;
  const web::Server server(options, site);
  std::vector<HttpClient> clients;
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back(server.address());
    EXPECT_EQ(clients.back().get("/icon.svg").status, 200);
  }
  HttpClient more(server.address());
  EXPECT_EQ(more.get("/icon.svg").status, 503);
  EXPECT_TRUE(more.ends());
  std::vector<HttpClient> flood;
  for (int i = 0; i < 100; ++i) flood.emplace_back(server.address());
  EXPECT_TRUE(test::eventually([&server] { return server.counts().connections == 3 + 32; }));
  EXPECT_EQ(clients.front().get("/icon.svg").status, 200);
  flood.clear();
  clients.pop_back();
  EXPECT_TRUE(test::eventually([&server] { return server.counts().connections == 2; }));
  EXPECT_EQ(HttpClient(server.address()).get("/icon.svg").status, 200);
}

class TokenFile : public testing::Test {
 protected:
  static web::Options options() {
    web::Options options = test::testOptions();
    options.token = kToken;
    options.limits.wrongToken = milliseconds(30);
    return options;
  }
  static std::string form(const std::string& token) {
    std::string text = "token=";
    for (const char c : token) text += c == '+' ? "%2B" : c == '=' ? "%3d" : std::string(1, c);
    return text;
  }

  const test::Watchdog watchdog_;
  test::TestSite site_;
  web::Server server_{options(), site_};
  HttpClient client_{server_.address()};
  const std::string formType_ = "Content-Type: application/x-www-form-urlencoded";
};

TEST(TokenNeeded, WhereOtherMachinesReachTheServer) {
  test::TestSite site;
  for (const char* address : {"0.0.0.0:0", "[::]:0", "192.0.2.1:0"}) {
    web::Options options = test::testOptions();
    options.address = address;
    EXPECT_THAT([&] { web::Server(options, site); },
                testing::ThrowsMessage<web::CannotListen>(HasSubstr("needs a token")))
        << address;
  }
  for (const std::string& token : std::vector<std::string>{
           std::string("short"), std::string("0123456789abcde"), std::string(257, 'x'),
           std::string("0123456789abcdef;"), std::string("0123456789 abcdef"), std::string()}) {
    web::Options options = test::testOptions();
    options.token = token;
    EXPECT_THAT([&] { web::Server(options, site); },
                testing::ThrowsMessage<web::CannotListen>(HasSubstr("16 to 256 characters")))
        << token;
  }
}

TEST(TokenNeeded, LetsTheServerListenEverywhere) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.address = "0.0.0.0:0";
  options.token = kToken;
  const web::Server server(options, site);
  const std::string port = server.address().substr(server.address().rfind(':'));
  const std::string bearer = std::string("\nAuthorization: Bearer ") + kToken;
  // The Host is the address that the client came to.
  HttpClient client("127.0.0.5" + port);
  EXPECT_EQ(client.get("/icon.svg", bearer).status, 200);
  EXPECT_EQ(client.get("/icon.svg", "Host: 127.0.0.6" + port + bearer).status, 403);
  EXPECT_EQ(client.get("/icon.svg", "Host: 0.0.0.0" + port + bearer).status, 403);
  EXPECT_EQ(client.get("/icon.svg").status, 401);
}

TEST_F(TokenFile, IsWantedForEverything) {
  for (const char* path : {"/page.js", "/api/1/state", "/api/1/events", "/api/1/session",
                           "/api/1/runs/a%20b", "/none"}) {
    const Reply reply = client_.get(path);
    EXPECT_EQ(reply.status, 401) << path;
    EXPECT_EQ(reply.field("WWW-Authenticate"), "Bearer");
  }
  const Reply command = client_.post("/api/1/commands", "Content-Type: application/json", "{}");
  EXPECT_EQ(command.status, 401);
}

TEST_F(TokenFile, LetsAProgramIn) {
  const std::string bearer = std::string("Authorization: bearer ") + kToken;
  EXPECT_EQ(client_.get("/api/1/state", bearer).status, 200);
  const std::string session = client_.get("/api/1/session", bearer).json()["token"];
  EXPECT_EQ(client_
                .post("/api/1/commands",
                      bearer + "\nContent-Type: application/json\nX-Quillon-Token: " + session,
                      commandText("a", "go"))
                .status,
            200);
}

TEST_F(TokenFile, LetsABrowserIn) {
  const Reply form = client_.get("/");
  EXPECT_EQ(form.status, 401);
  EXPECT_THAT(form.body, HasSubstr("<form method=\"post\" action=\"/login\">"));
  EXPECT_THAT(form.body, Not(HasSubstr("quillon-token")));
  // Without it a browser sends the form with "Origin: null", which is refused.
  EXPECT_THAT(form.body, HasSubstr("<meta name=\"referrer\" content=\"same-origin\">"));
  EXPECT_EQ(client_.get("/login").status, 200);

  const Reply in = client_.post("/login", formType_, TokenFile::form(kToken));
  EXPECT_EQ(in.status, 303);
  EXPECT_EQ(in.field("Location"), "/");
  const std::string cookie = in.field("Set-Cookie");
  EXPECT_THAT(cookie, HasSubstr("; HttpOnly; SameSite=Strict"));
  const std::string pair = cookie.substr(0, cookie.find(';'));
  EXPECT_EQ(client_.get("/", "Cookie: theme=dark; " + pair + "; x=y").status, 200);
  EXPECT_EQ(client_.get("/api/1/state", "Cookie: " + pair).status, 200);
  EXPECT_EQ(client_.get("/api/1/state", "Cookie: x" + pair).status, 401);
}

TEST_F(TokenFile, RefusesWrongOnesSlowly) {
  const std::string almost = std::string(kToken).substr(1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client_.post("/login", formType_, form("x" + almost)).status, 401);
  EXPECT_EQ(client_.get("/api/1/state", "Authorization: Bearer " + almost).status, 401);
  EXPECT_EQ(client_.get("/api/1/state", std::string("Authorization: Basic ") + kToken).status, 401);
  const std::string port = server_.address().substr(server_.address().rfind(':') + 1);
  EXPECT_EQ(client_.get("/", "Cookie: quillon-token-" + port + "=" + kToken + "x").status, 401);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 4 * milliseconds(30));
  EXPECT_EQ(client_.post("/login", formType_, "password=1").status, 401);
  EXPECT_EQ(client_.post("/login", formType_, "token=%").status, 401);
  EXPECT_EQ(client_.post("/login", "Content-Type: text/plain", form(kToken)).status, 415);
  EXPECT_EQ(
      client_.post("/login", formType_ + "\nOrigin: http://evil.example", form(kToken)).status,
      403);
}

}  // namespace
