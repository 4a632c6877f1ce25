#include <QLTByteStream.h>

#include <cerrno>

#include <netinet/in.h>

#include "support/Eventually.h"
#include "support/TcpPeer.h"

namespace {

using test::eventually;

TEST(QLTByteStreamTest, PairGoesThroughItsStatuses) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  ASSERT_TRUE(pair.read && pair.write);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::NotOpen);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::NotOpen);
  EXPECT_TRUE(pair.read->open());
  EXPECT_FALSE(pair.read->open());
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::NotOpen);
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);

  test::Endpoint device = peer.accept();
  EXPECT_FALSE(pair.read->hasBytesAvailable());
  char byte = 0;
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->write("x", 1), 1);
  EXPECT_EQ(device.receive(1), "x");
  device.close();
  EXPECT_TRUE(eventually([&] { return pair.read->hasBytesAvailable(); }));
  EXPECT_EQ(pair.read->read(&byte, 1), 0);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::AtEnd);

  pair.read->close();
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Closed);
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);
  pair.write->close();
  EXPECT_EQ(pair.write->write("x", 1), -1);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST(QLTByteStreamTest, ReadingHalfMayCloseTheConnection) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  pair.read->setClosesSocket(true);
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  pair.read.reset();
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Closed);
  EXPECT_TRUE(pair.write->canAcceptBytes());
  EXPECT_EQ(pair.write->write("x", 1), -1);
}

TEST(QLTByteStreamTest, RefusalIsAnErrorOfBothHalves) {
  test::TcpPeer peer;
  peer.refuse();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.write->connectError(), 0);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Error);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Error);
  EXPECT_EQ(pair.read->connectError(), ECONNREFUSED);
  EXPECT_EQ(pair.write->connectError(), ECONNREFUSED);
}

TEST(QLTByteStreamTest, FailureIsAnErrorOfTheHalfThatMetIt) {
  const test::TcpPeer peer;
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  test::Endpoint device = peer.accept();
  test::TcpPeer::reset(device);
  EXPECT_TRUE(eventually([&] { return pair.read->hasBytesAvailable(); }));
  char byte = 0;
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Error);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->write("x", 1), -1);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Error);
}

}  // namespace
