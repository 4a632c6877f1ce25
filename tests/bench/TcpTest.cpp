// ASCII devices over TCP, against real listeners.

#include <QLTBench.h>
#include <QLTBenchTcp.h>
#include <QLTErrorCodes.h>
#include <QLTScpiInstrument.h>
#include <QLTSimSocket.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/Endpoint.h"
#include "support/Eventually.h"
#include "support/TcpPeer.h"

namespace {

using testing::HasSubstr;
using namespace std::string_literals;

QLTHostAndPort at(const std::string& host, std::int32_t port) {
  return {host, static_cast<std::uint16_t>(port)};
}

QLTDictionary entry(const std::string& address, const QLTDictionary& more = {}) {
  QLTDictionary entry{{"class", "QLTBenchTcp"}, {"sim", "0"}, {"address", address}};
  entry.merge(more);
  return entry;
}

/// For as long as it lives, there is a name with addresses of the test's choice.
class KnownName {
 public:
  static constexpr const char* kName = "meter.bench.test";

  explicit KnownName(const std::string& addresses) { list = addresses; }
  ~KnownName() { list.clear(); }
  KnownName(const KnownName&) = delete;
  KnownName& operator=(const KnownName&) = delete;

  using Resolve = int(const char*, const char*, const addrinfo*, addrinfo**);

  /// What `real` finds of each address, one after the other; absent for another name.
  static std::optional<int> resolve(const std::string& name, const char* service,
                                    const addrinfo* hints, addrinfo** found, Resolve* real) {
    if (list.empty() || name != kName) return std::nullopt;
    *found = nullptr;
    addrinfo** end = found;
    std::istringstream addresses(list);
    for (std::string address; addresses >> address;) {
      const int status = real(address.c_str(), service, hints, end);
      if (status != 0) return status;
      while (*end != nullptr) end = &(*end)->ai_next;
    }
    return 0;
  }

 private:
  inline static std::string list;
};

/// A listener on ::1 alone; none where the system has no IPv6.
class Ipv6Listener {
 public:
  Ipv6Listener() : socket_(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t length = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    isThere_ = socket_ >= 0 && bind(socket_, plain, length) == 0 && listen(socket_, 4) == 0 &&
               getsockname(socket_, plain, &length) == 0;
    port_ = ntohs(address.sin6_port);
  }
  ~Ipv6Listener() { ::close(socket_); }

  bool isThere() const { return isThere_; }
  std::uint16_t port() const { return port_; }
  test::Endpoint accept() const { return test::Endpoint(::accept(socket_, nullptr, nullptr)); }

 private:
  int socket_;
  bool isThere_ = false;
  std::uint16_t port_ = 0;
};

TEST(QLTBenchTcp, talksToADeviceByAddressAndByName) {
  for (const char* const host : {"127.0.0.1", "localhost"}) {
    SCOPED_TRACE(host);
    const test::TcpPeer peer;
    QLTBenchTcp line(at(host, peer.port()));
    EXPECT_FALSE(line.isOpen());
    QLTError error;
    ASSERT_TRUE(line.open(&error)) << error.description().value_or("");
    test::Endpoint device = peer.accept();
    const test::Device meter(device, [](const std::string& question) -> std::vector<std::string> {
      return {"answer to " + question + "\r\n"};
    });
    EXPECT_EQ(line.query("MEAS?"), "answer to MEAS?");
    EXPECT_TRUE(line.writeLine("READ?"));
    EXPECT_EQ(line.read(990), "answer to READ?\r\n");
    EXPECT_EQ(line.where(), host + ":"s + std::to_string(peer.port()));
  }
}

TEST(QLTBenchTcp, talksOverIpv6) {
  const Ipv6Listener listener;
  if (!listener.isThere()) GTEST_SKIP() << "no IPv6 here";
  const auto made = QLTBench::createInstrument(entry("[::1]:" + std::to_string(listener.port())));
  const auto line = std::dynamic_pointer_cast<QLTBenchTcp>(made);
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->isOpen());
  EXPECT_EQ(line->where(), "[::1]:" + std::to_string(listener.port()));
  test::Endpoint device = listener.accept();
  ASSERT_TRUE(device.send("ready\n"));
  EXPECT_EQ(line->readLine(), "ready");
}

TEST(QLTBenchTcp, ofANameWithSeveralAddressesEachIsTried) {
  const test::TcpPeer peer;  // refuses at the other addresses
  for (const char* const addresses : {"127.0.0.1 127.99.99.99", "127.99.99.99 127.0.0.1",
                                      "127.99.99.99 127.99.99.98 127.0.0.1"}) {
    const KnownName name(addresses);
    QLTBenchTcp line(at(KnownName::kName, peer.port()));
    ASSERT_TRUE(line.open()) << addresses;
    peer.accept();
  }
  const KnownName name("127.99.99.99 127.99.99.98");
  QLTBenchTcp line(at(KnownName::kName, peer.port()));
  EXPECT_FALSE(line.open());
  const Ipv6Listener ipv6;
  if (!ipv6.isThere()) return;
  const KnownName both("127.0.0.1 ::1");
  QLTBenchTcp other(at(KnownName::kName, ipv6.port()));
  EXPECT_TRUE(other.open());
}

TEST(QLTBenchTcp, aDeviceThatIsNotThereIsToldWithTheReason) {
  test::TcpPeer peer;
  const std::int32_t port = peer.port();
  peer.refuse();
  QLTBenchTcp line(at("127.0.0.1", port));
  QLTError error;
  EXPECT_FALSE(line.open(&error));
  const std::string where = "127.0.0.1:" + std::to_string(port);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(error.description(), where + ": no connection: Connection refused");
  EXPECT_EQ(error.userInfo().text("where"), where);
  EXPECT_EQ(error.underlyingError().domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(error.underlyingError().code(), ECONNREFUSED);
  EXPECT_TRUE(line.isLost());
  EXPECT_TRUE(line.close());
  EXPECT_FALSE(line.isLost());

  QLTBenchTcp nobody(at("no-such-host.invalid", 5025));
  EXPECT_FALSE(nobody.open(&error));
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("no-such-host.invalid:5025: the host cannot be looked up: "));
}

TEST(QLTBenchTcp, aDeviceThatDoesNotAnswerCostsNoMoreThanTheTimeOut) {
  test::TcpPeer peer;
  peer.stopAnswering();
  QLTBenchTcp line(at("127.0.0.1", peer.port()));
  line.setConnectTimeOutInSeconds(0.1);
  QLTError error;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(line.open(&error));
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(95));
  EXPECT_LT(waited, std::chrono::seconds(5));
  EXPECT_EQ(error.underlyingError().code(), ETIMEDOUT);
  line.setConnectTimeOutInSeconds(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(line.open(&error));  // does not wait
}

TEST(QLTBenchTcp, aLostConnectionIsKnownAndMadeAgain) {
  const test::TcpPeer peer;
  QLTBenchTcp line(at("127.0.0.1", peer.port()));
  EXPECT_FALSE(line.isLost());
  ASSERT_TRUE(line.open());
  {
    const test::Endpoint device = peer.accept();
    EXPECT_FALSE(line.isLost());
    ASSERT_TRUE(device.send("half an ans"));
  }
  EXPECT_TRUE(test::eventually([&] { return line.isLost(); }));
  EXPECT_EQ(line.readLine(), std::nullopt);
  QLTError error;
  ASSERT_TRUE(line.reopen(&error)) << error.description().value_or("");
  EXPECT_FALSE(line.isLost());
  const test::Endpoint device = peer.accept();
  ASSERT_TRUE(device.send("whole\n"));
  EXPECT_EQ(line.readLine(), "whole");
}

TEST(QLTBenchTcp, aClosedLineSaysSo) {
  QLTBenchTcp line(at("127.0.0.1", 1));
  QLTError error;
  EXPECT_FALSE(line.write("x", &error));
  EXPECT_EQ(error.code(), kQLTErrorLineWrite);
  EXPECT_EQ(error.description(), "127.0.0.1:1: the line is not open");
  EXPECT_EQ(line.readLine(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineRead);
  EXPECT_EQ(line.readBytes(1), std::nullopt);
  EXPECT_EQ(line.readSome(0), std::nullopt);
  EXPECT_FALSE(line.isLost());
}

TEST(QLTBenchTcp, readsBytesAndPieces) {
  const test::TcpPeer peer;
  QLTBenchTcp line(at("127.0.0.1", peer.port()));
  ASSERT_TRUE(line.open());
  const test::Endpoint device = peer.accept();
  ASSERT_TRUE(device.send("#14\0\n\xff\r\nlogin: "s));
  EXPECT_EQ(line.readBytes(3), "#14");
  EXPECT_EQ(line.readBytes(0), "");
  EXPECT_EQ(line.readLine(), "\0"s);
  EXPECT_EQ(line.read(1), "\xff");
  EXPECT_EQ(line.read(990), "\r\n");
  EXPECT_EQ(line.readUntil("in: "), "login: ");
  EXPECT_EQ(line.readSome(0.01), "");
  ASSERT_TRUE(device.send("piece"));
  EXPECT_EQ(line.readSome(5), "piece");
  ASSERT_TRUE(device.send("stale\n"));
  EXPECT_TRUE(test::eventually([&] {
    line.discardInput();
    return line.readSome(0.01) == "";
  }));
}

TEST(QLTBenchTcp, theLineEndsAreThoseOfTheDevice) {
  const test::TcpPeer peer;
  const auto made = QLTBench::createInstrument(
      entry("127.0.0.1:" + std::to_string(peer.port()),
            {{"lineEnd", "crlf"}, {"replyEnd", "cr"}, {"timeOut", "7.5"}}));
  const auto line = std::dynamic_pointer_cast<QLTBenchTcp>(made);
  ASSERT_TRUE(line);
  EXPECT_EQ(line->timeOutInSeconds(), 7.5);
  const test::Endpoint device = peer.accept();
  ASSERT_TRUE(device.send("one\rtwo\r"));
  EXPECT_EQ(line->query("A"), "one");
  EXPECT_EQ(line->readLine(), "two");
  EXPECT_EQ(device.receive(3), "A\r\n");
}

TEST(QLTBenchTcp, asksForLifeSignsAndSendsAtOnce) {
  const test::TcpPeer peer;
  QLTBenchTcp line(at("127.0.0.1", peer.port()));
  line.setKeepAliveInSeconds(9);
  ASSERT_TRUE(line.open());
  std::optional<test::Endpoint> device(peer.accept());
  // The line's own descriptor: the one whose other end is the device.
  sockaddr_in wanted{};
  socklen_t length = sizeof wanted;
  ASSERT_EQ(getpeername(device->descriptor(), reinterpret_cast<sockaddr*>(&wanted), &length), 0);
  const auto option = [&](int level, int name) {
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
      sockaddr_in own{};
      socklen_t size = sizeof own;
      if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) != 0) continue;
      if (own.sin_port != wanted.sin_port) continue;
      int value = -1;
      socklen_t valueSize = sizeof value;
      getsockopt(descriptor, level, name, &value, &valueSize);
      return value;
    }
    return -1;
  };
  EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 9);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 12000);
  EXPECT_NE(option(IPPROTO_TCP, TCP_NODELAY), 0);

  line.setKeepAliveInSeconds(std::numeric_limits<int>::max());  // more than the system takes
  ASSERT_TRUE(line.open());
  device.emplace(peer.accept());
  ASSERT_EQ(getpeername(device->descriptor(), reinterpret_cast<sockaddr*>(&wanted), &length), 0);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 32767);
}

TEST(QLTBenchTcp, servesADriverOfTheFramework) {
  const test::TcpPeer peer;
  const auto line = std::make_shared<QLTBenchTcp>(at("127.0.0.1", peer.port()));
  ASSERT_TRUE(line->open());
  test::Endpoint device = peer.accept();
  const test::Device meter(
      device,
      [](const std::string& question) -> std::vector<std::string> {
        if (question == "*IDN?") return {"ACME,DMM,", "4711,1.0\n"};
        return {"-1.25E+00\n"};
      },
      '\r');
  const auto instrument = QLTScpiInstrument::initWithDevice(line);
  ASSERT_TRUE(instrument);
  EXPECT_EQ(instrument->identityAtCreation(), "ACME,DMM,4711,1.0\n");
  EXPECT_EQ(instrument->query("READ?"), "-1.25E+00\n");
  EXPECT_FALSE(instrument->isLost());
}

TEST(QLTBenchTcp, isMadeWithItsLineLostWhereItDoesNotOpen) {
  test::TcpPeer peer;
  const std::string address = "127.0.0.1:" + std::to_string(peer.port());
  peer.refuse();
  QLTError error;
  const auto line =
      std::dynamic_pointer_cast<QLTBenchTcp>(QLTBench::createInstrument(entry(address), &error));
  ASSERT_TRUE(line);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_TRUE(line->isLost());
  EXPECT_FALSE(line->reopen());
}

TEST(QLTBenchTcp, aWrongEntryIsRefused) {
  QLTError error;
  EXPECT_EQ(QLTBench::createInstrument({{"class", "QLTBenchTcp"}, {"sim", "0"}}, &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorInstrumentAttributeMissing);
  EXPECT_EQ(error.description(), "no address attribute config for QLTBenchTcp instrument");
  EXPECT_EQ(QLTBench::createInstrument(entry("10.0.0.5"), &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
  EXPECT_EQ(QLTBench::createInstrument(entry("10.0.0.5:1", {{"timeOut", "soon"}}), &error),
            nullptr);
  EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
}

TEST(QLTBenchTcp, isSimulatedByTheResponseMap) {
  QLTSimSocket::setResponseMap({{"*IDN?\n", "ACME,DMM"}, {"READ?\n", "1.5\n"}});
  const auto line = std::dynamic_pointer_cast<QLTBenchTcp>(
      QLTBench::createInstrument(entry("no-such-host.invalid:1", {{"sim", "1"}})));
  ASSERT_TRUE(line);
  EXPECT_FALSE(line->isLost());
  EXPECT_TRUE(line->writeLine("OUTP ON"));
  EXPECT_EQ(line->query("*IDN?"), "ACME,DMM");
  EXPECT_EQ(line->query("READ?"), "1.5");
  EXPECT_EQ(line->query("X?"), "no reponse set up for X?");
  QLTError error;
  EXPECT_EQ(line->readLine(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  QLTSimSocket::removeResponseMap();
}

}  // namespace

// The test program's own definition stands before that of the system's library.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** found) {
  static auto* const real = reinterpret_cast<KnownName::Resolve*>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const auto known = KnownName::resolve(name == nullptr ? "" : name, service, hints, found, real);
  return known ? *known : real(name, service, hints, found);
}
