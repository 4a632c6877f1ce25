#include <QLTByteStream.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"

namespace {

using test::isUntouched;
using testing::ElementsAre;
using testing::IsEmpty;

class QLTSimSocketTest : public testing::Test {
 protected:
  QLTSimSocketTest() {
    QLTSimSocket::removeResponseMap();
    log_.clear();
  }
  ~QLTSimSocketTest() override { QLTSimSocket::removeResponseMap(); }

  test::ConsoleLog log_;
  std::shared_ptr<QLTSimSocket> socket_ = QLTSimSocket::init("10.0.0.7", 9760);
  QLTError error_ = test::earlierError();
};

TEST_F(QLTSimSocketTest, IsMadeWithoutAConnection) {
  const std::size_t before = test::openDescriptors();
  const std::shared_ptr<QLTSimSocket> socket = QLTSimSocket::init("not an address", 70000);
  ASSERT_NE(socket, nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("sim socket for not an address:70000 opned"));
  EXPECT_EQ(socket->strIPAddr(), "not an address");
  EXPECT_EQ(socket->timeOutInSeconds(), 0);
  EXPECT_EQ(socket->delayTimeInSeconds(), 0.0);
  EXPECT_EQ(socket->lastCmd(), std::nullopt);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSimSocketTest, StandsInForASocket) {
  const std::shared_ptr<QLTObject> resource = socket_;
  EXPECT_EQ(resource->className(), "QLTSimSocket");
  const auto socket = std::dynamic_pointer_cast<QLTSocket>(resource);
  ASSERT_NE(socket, nullptr);
  QLTSimSocket::setResponseMap({{"&1,0000\n", "1,A,B,C,D\n"}});
  EXPECT_TRUE(socket->write("&1,0000\n"));
  EXPECT_EQ(socket->readLine(), "1,A,B,C,D\n");
}

TEST_F(QLTSimSocketTest, NeverWaitsForAConnection) {
  const QLTStreamPair pair = QLTStreamPair::toPeer(0x7F000001, 9);
  EXPECT_TRUE(socket_->WaitForConnection(*pair.write));
}

TEST_F(QLTSimSocketTest, AnswersFromTheMap) {
  QLTSimSocket::setResponseMap({{"ver\n", "1.2\n"}});
  EXPECT_TRUE(socket_->write("ver\n", &error_));
  EXPECT_EQ(socket_->lastCmd(), "ver\n");
  EXPECT_EQ(socket_->read(&error_), "1.2\n");
  EXPECT_THAT(log_.lines(), ElementsAre("{Sim_Socket_Write 10.0.0.7}: ver\n",
                                        "{Sim_Socket_Read 10.0.0.7}: 1.2\n"));
  EXPECT_EQ(socket_->readUntil("> ", &error_), "1.2\n");
  EXPECT_EQ(socket_->readLine(&error_), "1.2\n");
  EXPECT_EQ(socket_->read(), "1.2\n");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSimSocketTest, UnknownCommandIsAnsweredWithAnExplanation) {
  QLTSimSocket::setResponseMap({});
  EXPECT_EQ(socket_->read(&error_), "no reponse set up for (null)");
  EXPECT_TRUE(socket_->write("100%d\n"));
  EXPECT_EQ(socket_->read(&error_), "no reponse set up for 100%d\n");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSimSocketTest, KeysMatchWhole) {
  QLTSimSocket::setResponseMap({{"ver\n", "1.2\n"}});
  EXPECT_TRUE(socket_->write("ver"));
  EXPECT_EQ(socket_->read(), "no reponse set up for ver");
}

TEST_F(QLTSimSocketTest, WithoutAMapThereIsNoReplyAndNoError) {
  EXPECT_TRUE(socket_->write("ver\n"));
  log_.clear();
  EXPECT_EQ(socket_->read(&error_), std::nullopt);
  EXPECT_EQ(socket_->readUntil("\n", &error_), std::nullopt);
  EXPECT_EQ(socket_->readLine(nullptr), std::nullopt);
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(log_.lines().front(), "{Sim_Socket_Read 10.0.0.7}: (null)");
}

TEST_F(QLTSimSocketTest, MapIsSharedReplacedAndOutlivesSockets) {
  QLTSimSocket::setResponseMap({{"a", "1"}});
  QLTSimSocket::init("10.0.0.8", 1).reset();
  QLTSimSocket::init("10.0.0.9", 1).reset();
  EXPECT_TRUE(socket_->write("a"));
  EXPECT_EQ(socket_->read(), "1");
  QLTSimSocket::setResponseMap({{"a", "2"}});
  EXPECT_EQ(socket_->read(), "2");
}

TEST_F(QLTSimSocketTest, MapIsNotThatOfTheSerialPorts) {
  QLTSimSerial::setResponseMap({{"a", "a serial port's"}});
  EXPECT_TRUE(socket_->write("a"));
  EXPECT_EQ(socket_->read(), std::nullopt);
  QLTSimSocket::setResponseMap({{"a", "a socket's"}});
  EXPECT_EQ(socket_->read(), "a socket's");
  QLTSimSerial port("/dev/sim0");
  EXPECT_TRUE(port.open());
  EXPECT_TRUE(port.write("a"));
  EXPECT_EQ(port.read(100), "a serial port's");
  QLTSimSerial::removeResponseMap();
  EXPECT_EQ(socket_->read(), "a socket's");
}

TEST_F(QLTSimSocketTest, ReplyIsHeldBackForTheDelayOnce) {
  QLTSimSocket::setResponseMap({{"ver\n", "1.2\n"}});
  socket_->setDelayTimeInSeconds(0.2);
  EXPECT_EQ(socket_->read(), "");  // nothing was asked for yet
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(socket_->write("ver\n"));
  log_.clear();
  EXPECT_EQ(socket_->read(&error_), "");
  EXPECT_THAT(log_.lines(), IsEmpty());
  std::optional<std::string> reply;
  while ((reply = socket_->read(&error_)) == "") {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(reply, "1.2\n");
  socket_->setDelayTimeInSeconds(3600);
  EXPECT_EQ(socket_->read(&error_), "1.2\n");
  EXPECT_TRUE(socket_->write("ver\n"));
  EXPECT_EQ(socket_->readLine(&error_), "");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSimSocketTest, LastCommandCanBeSet) {
  QLTSimSocket::setResponseMap({{"ver\n", "1.2\n"}});
  socket_->setLastCmd("ver\n");
  EXPECT_EQ(socket_->read(), "1.2\n");
}

TEST_F(QLTSimSocketTest, MapMayBeReplacedWhileSocketsAreUsed) {
  QLTSimSocket::setResponseMap({{"n", "0"}});
  EXPECT_TRUE(socket_->write("n"));
  std::thread other([] {
    for (int i = 0; i < 200; ++i) QLTSimSocket::setResponseMap({{"n", std::to_string(i)}});
  });
  for (int i = 0; i < 200; ++i) EXPECT_NE(socket_->read(), "no reponse set up for n");
  other.join();
  EXPECT_EQ(socket_->read(), "199");
}

}  // namespace
