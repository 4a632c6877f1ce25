// A line by VXI-11 to a stand-in, well-behaved or not.

#include <gmock/gmock.h>

#include <QLTBench.h>
#include <QLTBenchScpi.h>
#include <QLTBenchVxi11.h>
#include <QLTErrorCodes.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "bench/PythonServer.h"
#include "bench/ScpiMessages.h"
#include "common/Descriptor.h"
#include "common/Sanitizers.h"
#include "simulators/SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Eventually.h"
#include "support/SignalStorm.h"
#include "support/TcpPeer.h"
#include "support/Watchdog.h"

#ifdef QUILLON_ADDRESS_SANITIZER
// The protocol's library keeps some bytes of every connection; and what belongs to a call that
// never came back cannot be freed.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:liblxi\nleak:clnttcp_create\nleak:xdrrec_create\n";
}
#endif

namespace {

using test::IsError;
using test::SimulatorProcess;

const std::string kFramework = QLTFrameworkErrorDomain;
const std::string kIdentity = "QUILLON,SIM-DMM,0,1.0";

/// Whether this user may have the portmapper's port.
bool mayHavePortmapper() {
  const quillon::internal::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(111);
  inet_pton(AF_INET, test::TcpPeer::ownAddress().c_str(), &name.sin_addr);
  return bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ||
         errno != EACCES;
}

class Vxi11Test : public testing::Test {
 protected:
  void SetUp() override {
    if (!mayHavePortmapper())
      GTEST_SKIP() << "a stand-in for VXI-11 needs port 111, which is root's";
  }
  void begin(std::vector<std::string> arguments = {}, const std::string& replies = "") {
    sim_.reset();
    arguments.insert(arguments.begin(), {"scpi", "--vxi11", address_});
    sim_.emplace(std::move(arguments), replies);
    ASSERT_EQ(sim_->readLine(), "quillon-sim scpi: vxi11=" + address_);
    line_ = std::make_unique<QLTBenchVxi11>(address_);
    line_->setTimeOutInSeconds(5);
  }

  const std::string address_ = test::TcpPeer::ownAddress();
  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  std::optional<SimulatorProcess> sim_;
  std::unique_ptr<QLTBenchVxi11> line_;
  QLTError error_ = test::earlierError();
};

TEST_F(Vxi11Test, AsksAndIsAnswered) {
  begin({"--reading", "VOLT:DC=3.3"});
  ASSERT_TRUE(line_->open(&error_)) << error_.description().value_or("");
  EXPECT_EQ(line_->where(), address_ + " inst0");
  EXPECT_EQ(line_->query("*IDN?"), kIdentity);
  EXPECT_TRUE(line_->write("MEAS:VOLT:DC?\n"));
  EXPECT_EQ(line_->read(5), "+3.30");
  EXPECT_EQ(line_->read(1000), "000000E+00\n");
  EXPECT_FALSE(line_->isLost());
  EXPECT_TRUE(line_->reopen());
  EXPECT_EQ(line_->query("*IDN?"), kIdentity);
  EXPECT_TRUE(line_->close());
  EXPECT_FALSE(line_->write("x", &error_));
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorLineWrite, line_->where() + ": the line is not open"));
  EXPECT_THAT(error_.userInfo().text("where"), line_->where());
}

TEST_F(Vxi11Test, TheEndOfAMessageIsALineEnd) {
  begin({"--line-end", "cr"});
  ASSERT_TRUE(line_->open());
  EXPECT_EQ(line_->query("*IDN?"), kIdentity);
  EXPECT_EQ(line_->query("*OPC?"), "1");
  EXPECT_EQ(line_->readSome(0.01), "");
}

TEST_F(Vxi11Test, TakesLongMessages) {
  begin({}, "\"DATA?\" -> \"end\" flood 300000\n");
  ASSERT_TRUE(line_->open());
  EXPECT_EQ(line_->query("DATA?"), std::string(300000, 'x') + "end");
  EXPECT_TRUE(line_->write(std::string(100000, ' ') + "\n"));
  EXPECT_EQ(line_->query("*IDN?"), kIdentity);
}

TEST_F(Vxi11Test, NobodyIsToldAtOnce) {
  QLTBenchVxi11 line(address_);
  EXPECT_FALSE(line.open(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineOpen,
                              address_ + " inst0: no link: Connection refused"));
  EXPECT_EQ(error_.underlyingError().code(), ECONNREFUSED);
  EXPECT_TRUE(line.isLost());
}

TEST_F(Vxi11Test, OneThatHangsIsGivenUp) {
  begin();
  sim_->send(SIGSTOP);
  line_->setConnectTimeOutInSeconds(0.2);
  EXPECT_FALSE(line_->open(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineOpen, address_ + " inst0: no link"));
  sim_->send(SIGCONT);
  line_->setConnectTimeOutInSeconds(5);
  ASSERT_TRUE(line_->reopen());
  EXPECT_EQ(line_->query("*IDN?"), kIdentity);
  sim_->send(SIGSTOP);
  line_->setTimeOutInSeconds(0.1);
  EXPECT_EQ(line_->query("*IDN?", &error_), std::nullopt);
  const std::string gone = address_ + " inst0: the instrument refuses, or is gone";
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineWrite, gone));
  EXPECT_TRUE(line_->isLost());
  line_->setConnectTimeOutInSeconds(0.1);
  EXPECT_FALSE(line_->reopen(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineOpen,
                              address_ + " inst0: no link: the instrument still owes an answer to "
                                         "an earlier one"));
  sim_->send(SIGCONT);
  line_->setConnectTimeOutInSeconds(5);
  line_->setTimeOutInSeconds(5);
  EXPECT_TRUE(line_->reopen());
  EXPECT_EQ(line_->query("*OPC?"), "1");
}

TEST_F(Vxi11Test, AWrongInstanceShowsInTheFirstRead) {
  begin();
  QLTBenchVxi11 line(address_, "inst7");
  ASSERT_TRUE(line.open());
  EXPECT_EQ(line.query("*IDN?", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              address_ + " inst7: the instrument refuses, or is gone"));
}

TEST_F(Vxi11Test, TheTesterConfigMakesOne) {
  begin();
  const auto line = std::dynamic_pointer_cast<QLTBenchVxi11>(
      QLTBench::createInstrument({{"class", "QLTBenchVxi11"}, {"vxi11", address_}}, &error_));
  ASSERT_TRUE(line) << error_.description().value_or("");
  EXPECT_EQ(line->query("*IDN?"), kIdentity);
  EXPECT_EQ(line->connectTimeOutInSeconds(), 5);
}

// The SCPI driver, at an instrument that shares no code with the stand-in.

class Vxi11ScpiTest : public Vxi11Test {
 protected:
  void begin(const std::vector<std::string>& manners = {}) {
    std::vector<std::string> arguments{address_};
    arguments.insert(arguments.end(), manners.begin(), manners.end());
    scpi_.reset();
    server_.emplace(VXI11_SERVER, arguments);
    ASSERT_EQ(server_->place(), address_);
    auto line = std::make_shared<QLTBenchVxi11>(address_);
    ASSERT_TRUE(line->open(&error_)) << error_.description().value_or("");
    scpi_ = QLTBenchScpi::open(line, &error_);
    ASSERT_TRUE(scpi_) << error_.description().value_or("");
  }
  void SetUp() override {
    Vxi11Test::SetUp();
    if (!test::PythonServer::isPossible()) GTEST_SKIP() << "python3 is not installed";
  }

  std::optional<test::PythonServer> server_;
  std::shared_ptr<QLTBenchScpi> scpi_;
};

TEST_F(Vxi11ScpiTest, AsksAndTellsTheInstrumentsErrors) {
  begin();
  EXPECT_EQ(scpi_->who().model, "PY-1");
  test::expectQueriesAndBlocks(*scpi_);
  test::expectErrorsOfTheQueue(*scpi_);
  const test::SignalStorm storm;
  test::expectQueriesAndBlocks(*scpi_);
}

TEST_F(Vxi11ScpiTest, IsNeverOneReadingBehind) {
  begin();
  test::expectToBeInStepAfter(*scpi_, "SLOW?");
  test::expectToBeInStepAfter(*scpi_, "MUTE?");
}

TEST_F(Vxi11ScpiTest, IsNeverOneReadingBehindOneThatKeepsItsAnswers) {
  begin({"keeps"});
  test::expectToBeInStepAfter(*scpi_, "SLOW?");
}

TEST_F(Vxi11ScpiTest, WhatComesAfterTheLineWasLostIsNoAnswer) {
  Vxi11Test::begin({"--reading", "VOLT:DC=3.3"}, R"("*TST?" -> "99" delay 650)");
  ASSERT_TRUE(line_->open());
  scpi_ = QLTBenchScpi::open(std::move(line_));
  ASSERT_TRUE(scpi_);
  scpi_->setTimeOutInSeconds(0.05);
  EXPECT_EQ(scpi_->number("*TST?", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineRead);
  EXPECT_TRUE(scpi_->isLost());
  scpi_->setTimeOutInSeconds(5);
  ASSERT_TRUE(scpi_->reopen(&error_)) << error_.description().value_or("");
  EXPECT_EQ(scpi_->number("MEAS:VOLT:DC?"), 3.3);
}

// Each misbehaviour, calm and amid signals.

struct Fault {
  std::string name;
  std::string replies;
  double timeOut;
  std::optional<std::string> answer;  // to "X?"
  std::int32_t code = 0;
  std::string text = "";
  bool isLost = false;

  friend void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
};

class Vxi11Faults : public Vxi11Test,
                    public testing::WithParamInterface<std::tuple<Fault, bool>> {};

TEST_P(Vxi11Faults, ComeToWhatTheTableSays) {
  const auto& [fault, inAStorm] = GetParam();
  begin({}, fault.replies);
  std::optional<test::SignalStorm> storm;
  if (inAStorm) storm.emplace();
  for (const bool withSlot : {false, true}) {
    SCOPED_TRACE(withSlot);
    ASSERT_TRUE(line_->reopen(&error_)) << error_.description().value_or("");
    line_->setTimeOutInSeconds(fault.timeOut);
    error_ = test::earlierError();
    EXPECT_EQ(line_->query("X?", withSlot ? &error_ : nullptr), fault.answer);
    if (withSlot && !fault.answer) {
      EXPECT_THAT(error_, IsError(kFramework, fault.code, line_->where() + ": " + fault.text));
    } else {
      EXPECT_THAT(error_, test::isUntouched());
    }
    EXPECT_EQ(line_->isLost(), fault.isLost);
    // Whatever it was, the next answer belongs to the next question.
    line_->setTimeOutInSeconds(5);
    if (fault.isLost) {
      ASSERT_TRUE(line_->reopen(&error_)) << error_.description().value_or("");
    }
    EXPECT_EQ(line_->query("*IDN?"), kIdentity);
  }
}

const std::string kGone = "the instrument refuses, or is gone";

std::vector<Fault> faults() {
  return {
      {"None", R"("X?" -> "1")", 5, "1"},
      {"Late", R"("X?" -> "1" delay 100)", 5, "1"},
      {"ByteByByte", R"("X?" -> "12345" byte-delay 5)", 5, "12345"},
      {"InPieces", R"("X?" -> "12345" split 1,3 pause 20)", 5, "12345"},
      {"WithGarbage", R"("X?" -> "1" garbage "\xff\x01")", 5,
       "\xff\x01"
       "1"},
      {"Silent", R"("X?" -> silent)", 0.1, std::nullopt, kQLTErrorLineTimedOut,
       "nothing came within 0.1 s"},
      {"WithoutItsEnd", R"("X?" -> "1" no-end)", 0.1, std::nullopt, kQLTErrorLineTimedOut,
       "nothing came within 0.1 s"},
      {"MuchTooLate", R"("X?" -> "1" delay 800)", 0.05, std::nullopt, kQLTErrorLineRead, kGone,
       true},
      {"HangsUp", R"("X?" -> "12345" hang-up 3)", 5, std::nullopt, kQLTErrorLineRead, kGone, true},
  };
}

INSTANTIATE_TEST_SUITE_P(Table, Vxi11Faults,
                         testing::Combine(testing::ValuesIn(faults()), testing::Bool()),
                         [](const auto& info) {
                           return std::get<0>(info.param).name +
                                  (std::get<1>(info.param) ? "_AmidSignals" : "");
                         });

}  // namespace
