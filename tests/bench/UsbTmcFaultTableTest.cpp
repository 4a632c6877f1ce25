// What every operation on an instrument on USB comes to when it misbehaves, or the kernel's driver
// does, calm and amid signals: the result, the error, whether the line is lost, and that the next
// question has its own answer.

#include <QLTBenchUsbTmc.h>
#include <QLTErrorCodes.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>

#include "bench/UsbTmcDriver.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/Watchdog.h"

namespace {

using test::UsbTmcDriver;

enum class Kind { Line, Bytes, Write, Control };

struct Operation {
  std::string name;
  Kind kind;
  std::function<std::optional<std::string>(QLTBenchUsbTmc&, QLTError* slot)> run;
  std::string result;  // when the instrument says "+1.5\n"
  std::string failing = "";

  bool asks() const { return name == "Query"; }
  bool writes() const { return kind == Kind::Write || asks(); }
  bool reads() const { return kind == Kind::Line || kind == Kind::Bytes; }
  friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

std::optional<std::string> whether(bool isDone) {
  return isDone ? std::optional<std::string>("done") : std::nullopt;
}

std::vector<Operation> operations() {
  using Line = QLTBenchUsbTmc;
  return {
      {"Read", Kind::Line, [](Line& line, QLTError* slot) { return line.read(990, slot); },
       "+1.5\n"},
      {"ReadLine", Kind::Line, [](Line& line, QLTError* slot) { return line.readLine(slot); },
       "+1.5"},
      {"ReadUntil", Kind::Line,
       [](Line& line, QLTError* slot) { return line.readUntil("\n", slot); }, "+1.5\n"},
      {"ReadBytes", Kind::Bytes, [](Line& line, QLTError* slot) { return line.readBytes(5, slot); },
       "+1.5\n"},
      {"Query", Kind::Line, [](Line& line, QLTError* slot) { return line.query("MEAS?", slot); },
       "+1.5"},
      {"Write", Kind::Write,
       [](Line& line, QLTError* slot) { return whether(line.write("MEAS?\n", slot)); }, "done"},
      {"Clear", Kind::Control, [](Line& line, QLTError* slot) { return whether(line.clear(slot)); },
       "done", "cannot be cleared"},
      {"StatusByte", Kind::Control,
       [](Line& line, QLTError* slot) {
         const auto status = line.statusByte(slot);
         return status ? std::optional(std::to_string(*status)) : std::nullopt;
       },
       "80", "tells no status"},
  };
}

/// One misbehaviour, and what comes of it.
struct Fault {
  std::string name;
  std::function<void(UsbTmcDriver&)> begin;
  std::int32_t code = 0;  // 0: the good result
  std::string text = "";
  bool isLoss = false;
};

std::vector<Fault> faultsOfReading(Kind kind) {
  const auto says = [](const std::string& text) {
    return [text](UsbTmcDriver& driver) { driver.messages = {text}; };
  };
  const auto fails = [](int problem) {
    return [problem](UsbTmcDriver& driver) { driver.readProblem = problem; };
  };
  const auto timesOut = [kind](const std::string& soFar) -> std::string {
    if (kind == Kind::Bytes) return std::to_string(soFar.size()) + " of 5 bytes came within 5 s";
    if (soFar.empty()) return "nothing came within 5 s";
    return "no line end came within 5 s, but: " + soFar;
  };
  std::vector<Fault> all{
      {"None", says("+1.5\n")},
      {"NoLineEnd", says("+1.5")},
      {"InPieces",
       [](UsbTmcDriver& driver) {
         driver.messages = {"+1.5\n"};
         driver.longestPiece = 1;
       }},
      {"OldDriver",
       [](UsbTmcDriver& driver) {
         driver.messages = {"+1.5"};
         driver.tellsEnds = false;
       }},
      {"Silence", fails(ETIMEDOUT), kQLTErrorLineTimedOut, timesOut("")},
      {"SilenceOfAnotherDriver", fails(EAGAIN), kQLTErrorLineTimedOut, timesOut("")},
      {"SilenceAmidAnswer",
       [](UsbTmcDriver& driver) {
         driver.messages = {"+1."};
         driver.endsMessages = false;
       },
       kQLTErrorLineTimedOut, timesOut("+1.")},
      {"PulledOut", fails(ENODEV), kQLTErrorLineRead, "cannot be read: No such device", true},
      {"PulledOutAmidAnswer",
       [](UsbTmcDriver& driver) {
         driver.messages = {"+1."};
         driver.endsMessages = false;
         driver.readProblem = ENODEV;
       },
       kQLTErrorLineRead, "cannot be read: No such device", true},
      {"Stalls", fails(EPIPE), kQLTErrorLineRead, "cannot be read: Broken pipe", true},
      {"Breaks", fails(EPROTO), kQLTErrorLineRead, "cannot be read: Protocol error", true},
  };
  if (kind == Kind::Line) {
    constexpr std::size_t tooMany = 1100000;
    all.push_back({"Flood", says(std::string(tooMany, 'x')), kQLTErrorLineRead,
                   "sent 1 MiB without a line end"});
  }
  return all;
}

std::vector<Fault> faultsOf(const Operation& operation) {
  const auto fails = [](int problem) {
    return [problem](UsbTmcDriver& driver) { driver.writeProblem = problem; };
  };
  std::vector<Fault> all;
  if (operation.reads()) all = faultsOfReading(operation.kind);
  if (operation.writes()) {
    const std::string tooSlow = "did not take all of the text within 5 s";
    all.push_back({"TakesNothing", fails(ETIMEDOUT), kQLTErrorLineTimedOut, tooSlow});
    all.push_back({"IsFull", fails(EAGAIN), kQLTErrorLineTimedOut, tooSlow});
    all.push_back({"WasPulledOut", fails(ENODEV), kQLTErrorLineWrite,
                   "cannot be written: No such device", true});
    all.push_back({"StallsWriting", fails(EPIPE), kQLTErrorLineWrite,
                   "cannot be written: Broken pipe", true});
  }
  if (operation.kind == Kind::Control) {
    for (const int problem : {EIO, ENODEV, EPIPE, ETIMEDOUT}) {
      all.push_back({"Refuses" + std::to_string(problem),
                     [problem](UsbTmcDriver& driver) { driver.controlProblem = problem; },
                     kQLTErrorLineRead,
                     operation.failing + ": " + std::generic_category().message(problem)});
    }
  }
  all.push_back({"IsInterrupted", [](UsbTmcDriver& driver) {
                   driver.messages = {"+1.5\n"};
                   driver.interruptions = 3;
                 }});
  return all;
}

using Parameters = std::tuple<Operation, bool>;

class UsbTmcFaultTable : public testing::TestWithParam<Parameters> {
 protected:
  const Operation& operation() const { return std::get<0>(GetParam()); }

  void meet(const Fault& fault, bool withSlot) {
    UsbTmcDriver driver(pty_.path());
    QLTBenchUsbTmc line(pty_.path());
    line.setTimeOutInSeconds(5);
    ASSERT_TRUE(line.open());
    fault.begin(driver);
    QLTError error = test::earlierError();
    const auto result = operation().run(line, withSlot ? &error : nullptr);
    if (fault.code == 0) {
      EXPECT_EQ(result, operation().result);
    } else {
      EXPECT_EQ(result, std::nullopt);
    }
    if (fault.code == 0 || !withSlot) {
      EXPECT_THAT(error, test::isUntouched());
    } else {
      EXPECT_THAT(error, test::IsError(std::string(QLTFrameworkErrorDomain), fault.code,
                                       pty_.path() + ": " + fault.text));
    }
    EXPECT_EQ(line.isLost(), fault.isLoss);
    expectItsOwnAnswer(fault, driver, line);
  }

 private:
  static void expectItsOwnAnswer(const Fault& fault, UsbTmcDriver& driver, QLTBenchUsbTmc& line) {
    driver.readProblem = ETIMEDOUT;
    driver.writeProblem = driver.controlProblem = 0;
    driver.longestPiece = 1 << 20;
    driver.endsMessages = driver.tellsEnds = true;
    ASSERT_TRUE(!fault.isLoss || line.reopen());
    if (fault.code == kQLTErrorLineTimedOut) driver.messages.emplace_back("LATE\n");
    driver.onMessage = [&driver](const std::string& message) {
      if (message == "*IDN?\n") driver.messages.emplace_back("TEK,1,2,3\n");
    };
    if (fault.code == kQLTErrorLineWrite || fault.code == 0) driver.messages.clear();
    EXPECT_EQ(line.query("*IDN?"), "TEK,1,2,3");
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty pty_;
};

TEST_P(UsbTmcFaultTable, EndsAsStated) {
  std::optional<test::SignalStorm> storm;
  if (std::get<1>(GetParam())) storm.emplace();
  for (const Fault& fault : faultsOf(operation())) {
    SCOPED_TRACE(fault.name);
    for (const bool withSlot : {false, true}) meet(fault, withSlot);
  }
}

INSTANTIATE_TEST_SUITE_P(Bench, UsbTmcFaultTable,
                         testing::Combine(testing::ValuesIn(operations()), testing::Bool()),
                         [](const auto& info) {
                           return std::get<0>(info.param).name +
                                  (std::get<1>(info.param) ? "_AmidSignals" : "");
                         });

}  // namespace
