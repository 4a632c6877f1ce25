#include <QLTDavDPEther.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTSimSocket.h>
#include <QLTUtil.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/TcpPeer.h"

namespace {

using test::earlierError;
using test::IsError;
using test::isUntouched;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

/// A socket that answers as told and records what is asked of it.
class ScriptedSocket : public QLTSocket {
 public:
  explicit ScriptedSocket(bool* destroyed = nullptr)
      : QLTSocket("10.0.0.9"), destroyed_(destroyed) {
    setTimeOutInSeconds(10);
  }
  ~ScriptedSocket() override {
    if (destroyed_) *destroyed_ = true;
  }

  bool write(const std::string& text, QLTError* error) override {
    written.push_back(text);
    if (writeFails && error) *error = QLTError::withDescription("Socket Domain", 1, "write failed");
    return !writeFails;
  }
  std::optional<std::string> readLine(QLTError* error) override {
    timeOutsWhileReading.push_back(timeOutInSeconds());
    if (!reply && error) *error = QLTError::withDescription("Socket Domain", 2, "read failed");
    return reply;
  }

  std::vector<std::string> written;
  std::vector<std::int32_t> timeOutsWhileReading;
  std::optional<std::string> reply = "P,1.1,2.2,3.3,4.4\r\n";
  bool writeFails = false;

 private:
  bool* destroyed_;
};

class QLTDavDPEtherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto made = std::make_shared<ScriptedSocket>(&socketDestroyed);
    socket = made.get();
    unit = QLTDavDPEther::initWithSocket(std::move(made));
    ASSERT_TRUE(unit);
  }

  /// Forgets what the creation did.
  void startAfresh() {
    socket->written.clear();
    socket->timeOutsWhileReading.clear();
    log.clear();
  }

  test::ConsoleLog log;
  bool socketDestroyed = false;
  ScriptedSocket* socket = nullptr;
  std::shared_ptr<QLTDavDPEther> unit;
};

TEST_F(QLTDavDPEtherTest, CreationAsksForTheRevisions) {
  EXPECT_THAT(socket->written, ElementsAre("&1,0000\n"));
  EXPECT_THAT(socket->timeOutsWhileReading, ElementsAre(5));
  EXPECT_THAT(log.lines(), ElementsAre("{DAVDP_Write 10.0.0.9}: &1,0000\n",
                                       "{DAVDP_Read 10.0.0.9}: P,1.1,2.2,3.3,4.4"));
  EXPECT_EQ(unit->socket().get(), socket);
  EXPECT_EQ(unit->timeOutInSeconds(), 8.0);
  EXPECT_EQ(unit->revFPGA(), "1.1");
  EXPECT_EQ(unit->revDPRx(), "2.2");
  EXPECT_EQ(unit->revHDMIRx(), "3.3");
  EXPECT_EQ(unit->revPIC(), "4.4");
}

TEST_F(QLTDavDPEtherTest, DestructionDestroysTheSocket) {
  unit.reset();

  EXPECT_TRUE(socketDestroyed);
}

TEST_F(QLTDavDPEtherTest, SendCommandExchangesOneLine) {
  startAfresh();
  socket->reply = "\r\n OK,P,1.2 \r\n";
  QLTError error = earlierError();

  EXPECT_THAT(unit->sendCommand("&7,0001", 3, &error), Optional(ElementsAre("OK", "P", "1.2")));

  EXPECT_THAT(socket->written, ElementsAre("&7,0001\n"));
  EXPECT_THAT(socket->timeOutsWhileReading, ElementsAre(3));
  EXPECT_EQ(socket->timeOutInSeconds(), 10);
  EXPECT_THAT(log.lines(),
              ElementsAre("{DAVDP_Write 10.0.0.9}: &7,0001\n", "{DAVDP_Read 10.0.0.9}: OK,P,1.2"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDavDPEtherTest, SendCommandThatCannotBeWrittenReadsNothing) {
  startAfresh();
  socket->writeFails = true;
  QLTError error = earlierError();

  EXPECT_EQ(unit->sendCommand("&7,0001", 3, &error), std::nullopt);
  EXPECT_EQ(unit->sendCommand("&7,0001", 3), std::nullopt);

  EXPECT_THAT(error, IsError("Socket Domain", 1, "write failed"));
  EXPECT_THAT(socket->timeOutsWhileReading, IsEmpty());
  EXPECT_EQ(socket->timeOutInSeconds(), 10);
}

TEST_F(QLTDavDPEtherTest, FailedReadGivesOneEmptyFieldAndTheSocketsError) {
  startAfresh();
  socket->reply = std::nullopt;
  socket->setTimeOutInSeconds(17);
  QLTError error = earlierError();

  EXPECT_THAT(unit->sendCommand("&7,0001", 3, &error), Optional(ElementsAre("")));
  EXPECT_THAT(unit->sendCommand("&7,0001", 3), Optional(ElementsAre("")));

  EXPECT_THAT(error, IsError("Socket Domain", 2, "read failed"));
  EXPECT_EQ(socket->timeOutInSeconds(), 17);
  EXPECT_EQ(log.lines().back(), "{DAVDP_Read 10.0.0.9}: ");
}

TEST(QLTDavDPEtherCreationTest, FailsAndDestroysTheSocketWhenTheUnitIsSilent) {
  const test::ConsoleLog log;
  bool destroyed = false;
  auto socket = std::make_shared<ScriptedSocket>(&destroyed);
  socket->reply = std::nullopt;

  EXPECT_FALSE(QLTDavDPEther::initWithSocket(std::move(socket)));

  EXPECT_TRUE(destroyed);
  EXPECT_EQ(log.lines().back(),
            "unexpected result from &1 " + QLTValue(QLTArray{QLTValue("")}).text());
}

TEST(QLTDavDPEtherCreationTest, FailsWhenTheVersionQueryCannotBeWritten) {
  const test::ConsoleLog log;
  auto socket = std::make_shared<ScriptedSocket>();
  socket->writeFails = true;

  EXPECT_FALSE(QLTDavDPEther::initWithSocket(std::move(socket)));

  EXPECT_EQ(log.lines().back(), "error sending &1 to DAVDP");
}

TEST(QLTDavDPEtherCreationTest, FailsOnAVersionReplyOfFourOrSixFields) {
  for (const char* reply : {"P,1,2,3\n", "P,1,2,3,4,\n"}) {
    auto socket = std::make_shared<ScriptedSocket>();
    socket->reply = reply;
    EXPECT_FALSE(QLTDavDPEther::initWithSocket(std::move(socket))) << reply;
  }
}

TEST(QLTDavDPEtherCreationTest, GivesNoneForNoSocket) {
  EXPECT_FALSE(QLTDavDPEther::initWithSocket(nullptr));
}

TEST(QLTDavDPEtherCreationTest, AddressWithoutAConnectionGivesNoneAndALine) {
  const test::ConsoleLog log;

  EXPECT_FALSE(QLTDavDPEther::init("not an address"));

  EXPECT_THAT(log.lines(), ElementsAre(testing::StartsWith("no connection to \"not an address\""),
                                       "error creating socket to DAVDP"));
}

TEST(QLTDavDPEtherCreationTest, SimulatedUnitAnswersTheVersionQuery) {
  QLTSimSocket::setResponseMap({{"&1,0000\n", "P,1,2,3,4\r\n"}});

  const auto unit = QLTDavDPEther::initWithSocket(QLTSimSocket::init("10.0.0.9", 9760));

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revFPGA(), "1");
  EXPECT_EQ(unit->revPIC(), "4");
}

/// A unit and the test's end of its connection.
class QLTDavDPEtherOverTcpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto socket = QLTSocket::init("127.0.0.1", peer.port());
    ASSERT_TRUE(socket);
    connection.emplace(peer.accept());
    connection->send("P,1.1,2.2,3.3,4.4\r\n");
    unit = QLTDavDPEther::initWithSocket(std::move(socket));
    ASSERT_TRUE(unit);
    ASSERT_EQ(connection->receiveUntil('\n'), "&1,0000\n");
  }

  const test::ConsoleLog log;
  test::TcpPeer peer;
  std::optional<test::Endpoint> connection;
  std::shared_ptr<QLTDavDPEther> unit;
};

TEST_F(QLTDavDPEtherOverTcpTest, ExchangesOneLine) {
  const test::Device device(*connection, [](const std::string& line) {
    return std::vector<std::string>{" OK,", line, ",1.2 \r\n"};
  });
  QLTError error = earlierError();

  EXPECT_THAT(unit->sendCommand("P", 5, &error), Optional(ElementsAre("OK", "P", "1.2")));

  EXPECT_THAT(error, isUntouched());
  EXPECT_EQ(unit->revPIC(), "4.4");
  EXPECT_EQ(unit->socket()->timeOutInSeconds(), 10);
}

TEST_F(QLTDavDPEtherOverTcpTest, TimedOutExchangeGivesTheSocketItsTimeOutBack) {
  QLTError error = earlierError();

  EXPECT_THAT(unit->sendCommand("&7,0001", 0, &error), Optional(ElementsAre("")));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -20001, "timeout reading socket"));
  EXPECT_EQ(unit->socket()->timeOutInSeconds(), 10);
  EXPECT_EQ(connection->receiveUntil('\n'), "&7,0001\n");
}

TEST_F(QLTDavDPEtherOverTcpTest, UnitThatHangsUpGivesAnEmptyReplyAtOnce) {
  connection->close();
  QLTError error;

  EXPECT_THAT(unit->sendCommand("&7,0001", 5, &error), Optional(ElementsAre("")));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -20001, "Error reading socket"));
}

TEST_F(QLTDavDPEtherOverTcpTest, DestructionEndsTheConnection) {
  unit.reset();

  EXPECT_EQ(connection->receive(1), "");
}

TEST_F(QLTDavDPEtherOverTcpTest, DestructionEndsTheConnectionOfASocketThatIsHeld) {
  const std::shared_ptr<QLTSocket> held = unit->socket();
  QLTError error = earlierError();

  unit.reset();

  EXPECT_EQ(connection->receive(1), "");
  EXPECT_FALSE(held->write("&7,0001\n", &error));
  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -20000, "Error writing to socket"));
}

TEST(QLTDavDPEtherInitTest, ConnectsToTheUnitsPort) {
  const test::TcpPeer peer(QLTDavDPEther::kPort);
  auto served = std::async(std::launch::async, [&peer] {
    test::Endpoint connection = peer.accept();
    const std::string query = connection.receiveUntil('\n');
    connection.send("P,1.1,2.2,3.3,4.4\r\n");
    return query;
  });

  const auto unit = QLTDavDPEther::init(test::TcpPeer::ownAddress());

  EXPECT_EQ(served.get(), "&1,0000\n");
  ASSERT_TRUE(unit);
  EXPECT_EQ(QLTDavDPEther::kPort, 9760);
  EXPECT_EQ(unit->socket()->strIPAddr(), test::TcpPeer::ownAddress());
  EXPECT_EQ(unit->socket().use_count(), 1);
  EXPECT_EQ(unit->revFPGA(), "1.1");
}

TEST(QLTDavDPEtherInitTest, RefusedConnectionGivesNoneAndALine) {
  const test::ConsoleLog log;

  EXPECT_FALSE(QLTDavDPEther::init(test::TcpPeer::ownAddress()));

  EXPECT_THAT(log.lines(), ElementsAre("unable to connect to remote socket",
                                       "no connection to " + test::TcpPeer::ownAddress() +
                                           ":9760: Connection refused",
                                       "error creating socket to DAVDP"));
}

}  // namespace
