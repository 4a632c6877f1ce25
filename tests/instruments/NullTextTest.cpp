// A null text from C, where transports, drivers, loggers and the platform take a text.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTAsciiReadWriteSimDevice.h>
#include <QLTCSVLogger.h>
#include <QLTConsoleLog.h>
#include <QLTDavDP.h>
#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTError.h>
#include <QLTScpiInstrument.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>

#include "support/ConsoleLog.h"

namespace {

class NullTextTest : public testing::Test {
 protected:
  const test::ConsoleLog log_;
  const char* const null_ = std::strstr("reply", "OK");
  const std::optional<std::string> absent_;
};

TEST_F(NullTextTest, IsNoPathOfALine) {
  QLTSerial port(null_);
  EXPECT_EQ(port.bsdPath(), "");
  port.setBsdPath("/dev/x");
  port.setBsdPath(null_);
  EXPECT_EQ(port.bsdPath(), "");
  EXPECT_EQ(QLTDiags::init(null_), nullptr);
  EXPECT_EQ(QLTDavDPSerial::init(null_), nullptr);
  EXPECT_EQ(QLTSocket::init(null_, 5000), nullptr);
}

TEST_F(NullTextTest, IsTheEmptyCommand) {
  const auto port = std::make_shared<QLTSimSerial>("sim");
  ASSERT_TRUE(port->open());
  EXPECT_TRUE(port->write(null_));
  EXPECT_EQ(port->lastCmd(), "");
  port->setLastCmd(null_);
  EXPECT_EQ(port->lastCmd(), absent_);
  const auto socket = QLTSimSocket::init(null_, 5000);
  EXPECT_TRUE(socket->write(null_));
  EXPECT_EQ(socket->lastCmd(), "");
  socket->setLastCmd(null_);
  EXPECT_EQ(socket->lastCmd(), absent_);
  socket->readUntil(null_);
  QLTDavDP unit;
  EXPECT_EQ(unit.sendCommand(null_, 1), std::nullopt);
}

TEST_F(NullTextTest, IsAnAbsentReplyAndAnEmptyAddress) {
  const std::vector<std::string> fields{"&1", "P"};
  QLTDavDP unit;
  EXPECT_EQ(unit.packageReturn(std::optional<std::string>("&1,P"), null_), fields);
  EXPECT_EQ(unit.packageReturn(std::string("&1,P"), null_), fields);
  EXPECT_EQ(unit.packageReturn("&1,P", null_), fields);
  EXPECT_EQ(unit.packageReturn("&1,P", "10.0.0.20"), fields);
  EXPECT_EQ(unit.packageReturn("&1,P", std::string("10.0.0.20")), fields);
  EXPECT_EQ(unit.packageReturn(null_, "10.0.0.20"), std::nullopt);
  EXPECT_EQ(unit.packageReturn(std::nullopt, "10.0.0.20"), std::nullopt);
}

TEST_F(NullTextTest, IsTheEmptyTextOfAnInstrumentsError) {
  const auto port = std::make_shared<QLTSimSerial>("sim");
  ASSERT_TRUE(port->open());
  const auto meter = QLTScpiInstrument::initWithDevice(port);
  ASSERT_TRUE(meter);
  EXPECT_EQ(meter->makeError(-222, null_).description(), "");
  EXPECT_EQ(meter->makeError(-222, "range").description(), "range");
}

TEST_F(NullTextTest, IsTheEmptyTextOfAScript) {
  const auto device = std::make_shared<QLTAsciiReadWriteSimDevice>(null_);
  device->addResponse(null_, null_);
  EXPECT_EQ(device->response(null_), "");
  device->insertResponse(null_, 0);
  EXPECT_TRUE(device->write(null_));
  const auto meter = QLTScpiInstrument::initWithDevice(device);
  ASSERT_NE(meter, nullptr);
  meter->setLineEnd(null_);
  EXPECT_EQ(meter->lineEnd(), "");
  EXPECT_TRUE(meter->command(null_, false));
  EXPECT_TRUE(meter->write(null_));
  meter->query(null_);
}

TEST_F(NullTextTest, IsNoPathOfALog) {
  QLTCSVLogger logger(null_);
  EXPECT_EQ(logger.path(), absent_);
  logger.setPath("/x.csv");
  logger.setPath(null_);
  EXPECT_EQ(logger.path(), absent_);
  EXPECT_EQ(QLTCSVLogger::timeStampedFileName(null_).front(), '_');
  EXPECT_FALSE(QLTLogger::createLogPath(null_));
  QLTLogger::clearLogs(null_);
}

TEST_F(NullTextTest, IsNoDescription) {
  const QLTError error = QLTError::withDescription(null_, 5, null_);
  EXPECT_EQ(error.domain(), "");
  EXPECT_EQ(error.code(), 5);
  EXPECT_EQ(error.description(), absent_);
  QLTLog(null_);
}

}  // namespace
