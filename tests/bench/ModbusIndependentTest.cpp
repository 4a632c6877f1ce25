// Modbus units at a device that shares no code with the driver, over TCP and on a serial line.

#include <QLTErrorCodes.h>
#include <QLTModbus.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "bench/PythonServer.h"
#include "support/ConsoleLog.h"
#include "support/SignalStorm.h"
#include "support/Watchdog.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

class ModbusIndependentTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!test::PythonServer::isPossible()) GTEST_SKIP() << "python3 is not installed";
    if (server_.place() == "missing") GTEST_SKIP() << "python3-pymodbus is not installed";
    ASSERT_THAT(server_.place(), HasSubstr(" /dev/"));
    unit_ = unit(17);
    ASSERT_FALSE(unit_->isLost());
  }
  std::shared_ptr<QLTModbus> unit(std::int32_t number, double timeOut = 20) const {
    const QLTModbus::Options options{.unit = number, .timeOutInSeconds = timeOut, .retries = 0};
    const std::size_t blank = server_.place().find(' ');
    if (!GetParam()) {
      return QLTModbus::overTcp("127.0.0.1:" + server_.place().substr(0, blank), options);
    }
    QLTBenchSerial::Settings settings;
    settings.baudRate = 19200;
    return QLTModbus::overSerial(server_.place().substr(blank + 1), settings, options);
  }
  std::string description() const { return error_.description().value_or("(none)"); }

  void readAndWriteAll() {
    EXPECT_THAT(unit_->readCoils(19, 9, &error_),
                Optional(ElementsAre(true, false, true, true, false, false, true, true, true)))
        << description();
    EXPECT_THAT(unit_->readDiscreteInputs(5, 3, &error_), Optional(ElementsAre(true, false, true)))
        << description();
    EXPECT_THAT(unit_->readHoldingRegisters(107, 3, &error_), Optional(ElementsAre(555, 0, 100)))
        << description();
    EXPECT_THAT(unit_->readInputRegisters(8, 2, &error_), Optional(ElementsAre(10, 65534)))
        << description();
    EXPECT_EQ(unit_->inputNumber(9, {.type = QLTModbusNumber::Type::S16}, &error_), -2);
    EXPECT_TRUE(unit_->writeCoil(20, true, &error_)) << description();
    EXPECT_TRUE(unit_->writeCoils(21, {false, true}, &error_)) << description();
    EXPECT_THAT(unit_->readCoils(19, 4), Optional(ElementsAre(true, true, false, true)));
    EXPECT_TRUE(unit_->writeRegister(107, 4660, &error_)) << description();
    EXPECT_TRUE(unit_->writeRegisters(108, {1, 65535}, &error_)) << description();
    EXPECT_THAT(unit_->readHoldingRegisters(107, 3), Optional(ElementsAre(4660, 1, 65535)));
    // As it was.
    EXPECT_TRUE(unit_->writeCoils(20, {false, true, true}, &error_)) << description();
    EXPECT_TRUE(unit_->writeRegisters(107, {555, 0, 100}, &error_)) << description();
    EXPECT_FALSE(error_);
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  const test::PythonServer server_{MODBUS_SERVER};
  std::shared_ptr<QLTModbus> unit_;
  QLTError error_;
};

TEST_P(ModbusIndependentTest, ReadsAndWritesAndTellsWhatTheDeviceRefuses) {
  readAndWriteAll();
  EXPECT_EQ(unit_->readHoldingRegisters(107, 4, &error_), std::nullopt);
  EXPECT_EQ(error_.userInfo().integer("exception"), 2) << description();
  EXPECT_FALSE(unit_->writeCoil(28, true, &error_));
  EXPECT_EQ(error_.userInfo().integer("exception"), 2) << description();
  EXPECT_EQ(unit(18, 0.01)->readInputRegisters(8, 2, &error_), std::nullopt);  // there is none
  EXPECT_EQ(error_.code(), kQLTErrorModbusSilence) << description();
  EXPECT_FALSE(unit_->isLost());
  const test::SignalStorm storm;
  error_ = {};
  readAndWriteAll();
}

INSTANTIATE_TEST_SUITE_P(Lines, ModbusIndependentTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "Serial" : "Tcp"; });

}  // namespace
