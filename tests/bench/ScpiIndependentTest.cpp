// The SCPI driver and a supply on it, at an instrument that shares no code with them.

#include <QLTBench.h>
#include <QLTBenchSupply.h>
#include <QLTErrorCodes.h>

#include <cmath>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "bench/PythonServer.h"
#include "support/ConsoleLog.h"
#include "support/SignalStorm.h"

namespace {

using testing::HasSubstr;

class ScpiIndependentTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::PythonServer::isPossible()) GTEST_SKIP() << "python3 is not installed";
    supply_ = std::dynamic_pointer_cast<QLTBenchSupply>(
        QLTBench::createInstrument({{"class", "QLTBenchSupply"},
                                    {"sim", "0"},
                                    {"address", "127.0.0.1:" + server_.place()},
                                    {"timeOut", "20"}},
                                   &error_));
    ASSERT_TRUE(supply_ && !error_) << description();
  }
  std::string description() const { return error_.description().value_or("(none)"); }

  test::ConsoleLog log_;
  const test::PythonServer server_{SCPI_SERVER};
  QLTError error_;
  std::shared_ptr<QLTBenchSupply> supply_;
};

TEST_F(ScpiIndependentTest, knowsTheInstrumentAndDrivesIt) {
  EXPECT_EQ(supply_->who().vendor, "INDEPENDENT");
  EXPECT_EQ(supply_->who().firmware, "3.2");
  EXPECT_TRUE(supply_->setVoltage(12.5, 1, &error_)) << description();
  EXPECT_EQ(supply_->voltage(), 12.5);
  EXPECT_EQ(supply_->measureVoltage(), 0.0);
  EXPECT_TRUE(supply_->setOutput(true, 1, &error_)) << description();
  EXPECT_EQ(supply_->measureVoltage(), 12.5);
  EXPECT_TRUE(supply_->makeSafe(&error_)) << description();
  EXPECT_TRUE(supply_->scpi()->reset(&error_)) << description();
  EXPECT_EQ(supply_->voltage(), 0.0);
}

TEST_F(ScpiIndependentTest, errorsAreThoseOfTheInstrument) {
  EXPECT_FALSE(supply_->setVoltage(99, 1, &error_));
  EXPECT_EQ(error_.code(), -222);
  EXPECT_FALSE(supply_->setCurrentLimit(1, 1, &error_));  // it has none
  EXPECT_EQ(error_.code(), -113);
  EXPECT_THAT(description(), HasSubstr("-113 \"Undefined header;CURR\""));
  EXPECT_EQ(supply_->scpi()->number("MEAS:CURR?", &error_, 0.05), std::nullopt);
  EXPECT_EQ(error_.code(), -113);
  EXPECT_EQ(supply_->scpi()->eventStatus(), 32 | 16);
  EXPECT_EQ(supply_->scpi()->statusByte(), 0);
}

TEST_F(ScpiIndependentTest, readsAnswersOfAllForms) {
  const auto& scpi = supply_->scpi();
  EXPECT_EQ(scpi->text("STR?"), "it said \"no\", twice");
  const auto list = scpi->numbers("LIST?");
  ASSERT_TRUE(list);
  EXPECT_EQ((*list)[1], 2.5);
  EXPECT_TRUE(std::isnan((*list)[2]));
  EXPECT_EQ(scpi->number("NAN?", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorScpiNoReading);
  EXPECT_EQ(scpi->number("OVL?", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorScpiOverload);
  const auto block = scpi->block("BLOC?", &error_);
  ASSERT_TRUE(block) << description();
  ASSERT_EQ(block->size(), 256U);
  for (std::size_t i = 0; i < block->size(); ++i) EXPECT_EQ((*block)[i], i);
  EXPECT_EQ(scpi->block("IBLOC?")->size(), std::string("no end but one").size());
  EXPECT_EQ(scpi->text("*IDN?"), "INDEPENDENT,PY-1,77,3.2");
}

TEST_F(ScpiIndependentTest, waitsNoLongerThanItIsTold) {
  const auto& scpi = supply_->scpi();
  EXPECT_TRUE(scpi->send("WAIT 200", &error_)) << description();
  EXPECT_TRUE(scpi->waitTillDone(10, &error_)) << description();
  EXPECT_EQ(scpi->number("LATE?", &error_, 0.05), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineTimedOut);
  scpi->setTimeOutInSeconds(10);
  EXPECT_EQ(supply_->voltage(1, &error_), 0.0) << description();  // and not 99
}

TEST_F(ScpiIndependentTest, comesBackAfterTheInstrumentHungUpAmidSignals) {
  const test::SignalStorm storm;
  EXPECT_EQ(supply_->scpi()->number("DROP?", &error_), std::nullopt);
  EXPECT_TRUE(supply_->isLost());
  EXPECT_TRUE(supply_->reopen(&error_)) << description();
  EXPECT_TRUE(supply_->setVoltage(5, 1, &error_)) << description();
  EXPECT_EQ(supply_->voltage(), 5.0);
}

}  // namespace
