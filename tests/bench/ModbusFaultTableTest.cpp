// What every operation of a Modbus unit comes to when the device misbehaves, over TCP and on a
// serial line, calm and amid signals: the error, whether the line is lost, and that the next
// request has its own answer.

#include <QLTErrorCodes.h>
#include <QLTModbus.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/TcpPeer.h"
#include "support/Watchdog.h"

namespace {

using namespace std::string_literals;

constexpr char kUnit = 1;

struct Operation {
  std::string name;
  std::string request;  // function and data
  std::string reply;
  std::string words;                                    // in the error's description
  std::function<bool(QLTModbus&, QLTError* slot)> run;  // whether it gives what the reply says

  bool isRead() const { return request[0] <= 4; }
  friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

std::vector<Operation> operations() {
  using Words = std::vector<std::uint16_t>;
  return {
      {"ReadCoils", "\x01\0\0\0\x02"s, "\x01\x01\x01"s, "read coils 0..1",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.readCoils(0, 2, slot) == std::vector{true, false};
       }},
      {"ReadDiscreteInputs", "\x02\0\0\0\x02"s, "\x02\x01\x02"s, "read discrete inputs 0..1",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.readDiscreteInputs(0, 2, slot) == std::vector{false, true};
       }},
      {"ReadHoldingRegisters", "\x03\0\0\0\x02"s, "\x03\x04\0\x07\0\x08"s,
       "read holding registers 0..1",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.readHoldingRegisters(0, 2, slot) == Words{7, 8};
       }},
      {"ReadInputRegisters", "\x04\0\0\0\x02"s, "\x04\x04\0\x05\0\x06"s,
       "read input registers 0..1",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.readInputRegisters(0, 2, slot) == Words{5, 6};
       }},
      {"WriteCoil", "\x05\0\x08\xff\0"s, "\x05\0\x08\xff\0"s, "write coil 8",
       [](QLTModbus& unit, QLTError* slot) { return unit.writeCoil(8, true, slot); }},
      {"WriteCoils", "\x0f\0\x08\0\x02\x01\x01"s, "\x0f\0\x08\0\x02"s, "write coils 8..9",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.writeCoils(8, {true, false}, slot);
       }},
      {"WriteRegister", "\x06\0\x08\0\x09"s, "\x06\0\x08\0\x09"s, "write register 8",
       [](QLTModbus& unit, QLTError* slot) { return unit.writeRegister(8, 9, slot); }},
      {"WriteRegisters", "\x10\0\x08\0\x02\x04\0\x09\0\x0a"s, "\x10\0\x08\0\x02"s,
       "write registers 8..9",
       [](QLTModbus& unit, QLTError* slot) {
         return unit.writeRegisters(8, {9, 10}, slot);
       }},
  };
}

std::string word(std::size_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value & 0xff)};
}

std::string checksum(std::string_view bytes) {
  unsigned sum = 0xffff;
  for (const char byte : bytes) {
    sum ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xa001 : sum >> 1;
  }
  return {static_cast<char>(sum & 0xff), static_cast<char>(sum >> 8)};
}

/// A request that has come, and frames for it.
struct Exchange {
  const Operation& operation;
  bool isSerial;
  std::string transaction;  // over TCP

  std::string frame(const std::string& data, char unit = kUnit) const {
    const std::string content = unit + data;
    if (isSerial) return content + checksum(content);
    return transaction + "\0\0"s + word(content.size()) + content;
  }
  std::string reply() const { return frame(operation.reply); }
};

/// One misbehaviour, and what comes of it.
struct Fault {
  enum class Lines { Both, Tcp, Serial };
  enum class End { Stays, HangsUp, BreaksOff };

  std::string name;
  std::function<std::string(const Exchange&)> says;
  std::int32_t code;  // 0: an answer
  std::string text;
  Lines lines = Lines::Both;
  End end = End::Stays;
  bool comesLate = false;  // what it says; after the time-out

  bool isOn(bool serial) const {
    return lines == Lines::Both || (lines == Lines::Serial) == serial;
  }
  bool isSilence() const { return code == kQLTErrorModbusSilence; }
  bool isLoss() const { return code == kQLTErrorLineRead; }
};

std::vector<Fault> faultsOf(const Operation& operation) {
  using Lines = Fault::Lines;
  using End = Fault::End;
  const auto answer = [](const Exchange& exchange) { return exchange.reply(); };
  const auto data = [](const std::function<std::string(std::string reply)>& change) {
    return [change](const Exchange& exchange) {
      return exchange.frame(change(exchange.operation.reply));
    };
  };
  const auto half = [](const Exchange& exchange) { return exchange.reply().substr(0, 4); };
  const auto exception = [](char number) {
    return [number](const Exchange& exchange) {
      const char function = static_cast<char>(exchange.operation.reply[0] | 0x80);
      return exchange.frame({function, number});
    };
  };
  const auto changed = [](std::size_t fromEnd) {
    return [fromEnd](const Exchange& exchange) {
      std::string reply = exchange.reply();
      char& byte = fromEnd > 0 ? reply[reply.size() - fromEnd] : reply[0];
      byte = static_cast<char>(byte ^ 0x40);
      return reply;
    };
  };
  const auto bytes = [](const std::string& before) {
    return [before](const Exchange& exchange) { return before + exchange.reply(); };
  };
  const std::string silence = "no whole answer within 0.01 s";
  const std::string garbled = "the answer is garbled: ";
  const std::string lost = "the line is lost";
  std::vector<Fault> all{
      {"None", answer, 0, ""},
      {"Silence", [](const Exchange&) { return ""; }, kQLTErrorModbusSilence, silence},
      {"Late", data([&operation](std::string reply) {
         // An answer to the question, but not to the next one.
         if (operation.isRead()) reply.back() = static_cast<char>(reply.back() ^ 3);
         return reply;
       }),
       kQLTErrorModbusSilence, silence, Lines::Both, End::Stays, true},
      {"ShortFrame", half, kQLTErrorModbusSilence, silence},
      {"Exception", exception(4), kQLTErrorModbusException,
       "refused with exception 4, failure of the device"},
      {"NoSuchException", exception(42), kQLTErrorModbusGarbled,
       garbled + "it is an exception that there is not"},
      {"WrongFunction", data([](std::string reply) {
         reply[0] = static_cast<char>(((reply[0] - 1) ^ 1) + 1);  // whose reply is as long
         return reply;
       }),
       kQLTErrorModbusGarbled, garbled + "it does not fit the request"},
      {"WrongUnit",
       [](const Exchange& exchange) { return exchange.frame(exchange.operation.reply, 9); },
       kQLTErrorModbusGarbled, garbled + "it comes from another unit", Lines::Serial},
      // Over TCP it is the transaction that counts: many a device gives a unit of its own.
      {"OwnUnit",
       [](const Exchange& exchange) { return exchange.frame(exchange.operation.reply, '\xff'); }, 0,
       "", Lines::Tcp},
      {"WrongChecksum", changed(1), kQLTErrorModbusGarbled, garbled + "the checksum is wrong",
       Lines::Serial},
      {"WrongTransaction", changed(0), kQLTErrorModbusGarbled,
       garbled + "it does not fit the request", Lines::Tcp},
      {"GarbageBefore", bytes("\x55\xaa\x01\0\0\x7f\x01\xaa\x01"s), kQLTErrorModbusGarbled, ""},
      {"Flood", bytes(std::string(3000, 'x')), kQLTErrorModbusGarbled, ""},
      {"HangsUp", [](const Exchange&) { return ""; }, kQLTErrorLineRead, lost, Lines::Both,
       End::HangsUp},
      {"HangsUpAmidAnswer", half, kQLTErrorLineRead, lost, Lines::Both, End::HangsUp},
      {"BreaksOff", [](const Exchange&) { return ""; }, kQLTErrorLineRead, lost, Lines::Tcp,
       End::BreaksOff},
  };
  if (!operation.isRead()) {
    // What was confirmed is another write.
    for (const auto& [name, place] : {std::pair("WrongAddress", 2), std::pair("WrongValue", 4)}) {
      all.push_back({name, data([place = place](std::string reply) {
                       reply[place] = static_cast<char>(reply[place] ^ 1);
                       return reply;
                     }),
                     kQLTErrorModbusGarbled, garbled + "it does not fit the request"});
    }
  }
  if (operation.reply != operation.request) {
    all.push_back({"WrongCount", data([&operation](std::string reply) {
                     if (!operation.isRead()) {
                       ++reply.back();
                       return reply;
                     }
                     reply[1] = static_cast<char>(reply[1] + 2);
                     return reply + "\0\0"s;
                   }),
                   kQLTErrorModbusGarbled, garbled + "it does not fit the request"});
  }
  return all;
}

/// A device on a line of one kind, and its unit as two see it who wait differently long.
class Peer {
 public:
  Peer(bool isSerial, const Operation& operation) : operation_(operation) {
    if (isSerial) {
      pty_.emplace();
    } else {
      listener_.emplace();
    }
    patient = unit(20);
    hasty = unit(0.01);
    if (!isSerial) accept();
  }

  std::shared_ptr<QLTModbus> patient;
  std::shared_ptr<QLTModbus> hasty;

  test::Endpoint& device() { return pty_ ? pty_->master() : *connection_; }
  void accept() { connection_ = std::make_unique<test::Endpoint>(listener_->accept()); }
  /// Takes a request, which must be that of the operation.
  Exchange receive() {
    Exchange exchange{operation_, pty_.has_value(), ""};
    const std::string wanted = exchange.frame(operation_.request);
    if (pty_) {
      EXPECT_EQ(device().receive(wanted.size()), wanted);
    } else {
      exchange.transaction = device().receive(2);
      EXPECT_EQ(device().receive(wanted.size()), wanted);
    }
    return exchange;
  }

 private:
  std::shared_ptr<QLTModbus> unit(double timeOut) const {
    const QLTModbus::Options options{.unit = kUnit, .timeOutInSeconds = timeOut, .retries = 0};
    if (!pty_) {
      return QLTModbus::overTcp("127.0.0.1:" + std::to_string(listener_->port()), options);
    }
    QLTBenchSerial::Settings settings;
    settings.baudRate = 19200;
    QLTError error;
    auto made = QLTModbus::overSerial(pty_->path(), settings, options, &error);
    EXPECT_FALSE(error) << error.description().value_or("");
    return made;
  }

  const Operation& operation_;
  std::optional<test::Pty> pty_;
  std::optional<test::TcpPeer> listener_;
  std::unique_ptr<test::Endpoint> connection_;
};

/// What the device does while `act` lasts, on a thread that no signal disturbs.
std::jthread meanwhile(const std::function<void()>& act) {
  return std::jthread([act] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    act();
  });
}

using Parameters = std::tuple<Operation, bool, bool>;

class ModbusFaultTable : public testing::TestWithParam<Parameters> {
 protected:
  const Operation& operation() const { return std::get<0>(GetParam()); }
  bool isSerial() const { return std::get<1>(GetParam()); }
  bool isAmidSignals() const { return std::get<2>(GetParam()); }

  void meet(const Fault& fault) const {
    Peer peer(isSerial(), operation());
    std::optional<Exchange> late;
    const auto unit = fault.isSilence() ? peer.hasty : peer.patient;
    QLTError error = test::earlierError();
    bool isDone = false;
    {
      const std::jthread device = meanwhile([&] {
        const Exchange exchange = peer.receive();
        late.emplace(exchange);
        if (!fault.comesLate) peer.device().send(fault.says(exchange));
        if (fault.end == Fault::End::BreaksOff) test::TcpPeer::reset(peer.device());
        if (fault.end == Fault::End::HangsUp) peer.device().close();
      });
      isDone = operation().run(*unit, &error);
    }
    expectError(fault, *unit, isDone, error);
    if (fault.comesLate) peer.device().send(fault.says(*late));
    if (isSerial() && fault.isLoss()) return;  // there is no line any more
    expectItsOwnAnswer(fault, peer);
  }

 private:
  void expectError(const Fault& fault, const QLTModbus& unit, bool isDone,
                   const QLTError& error) const {
    EXPECT_EQ(isDone, fault.code == 0);
    EXPECT_EQ(unit.isLost(), fault.isLoss());
    if (fault.code == 0) {
      EXPECT_THAT(error, test::isUntouched());
      return;
    }
    EXPECT_EQ(error.code(), fault.code);
    const std::string place = unit.where() + ", " + operation().words + ": ";
    EXPECT_THAT(error.description().value_or(""), testing::StartsWith(place + fault.text));
  }
  void expectItsOwnAnswer(const Fault& fault, Peer& peer) const {
    const bool isNew = !isSerial() && fault.code != 0 && fault.code != kQLTErrorModbusException;
    if (fault.isLoss()) {
      EXPECT_TRUE(peer.patient->reopen());
    }
    const std::jthread device = meanwhile([&] {
      if (isNew) peer.accept();
      const Exchange exchange = peer.receive();
      peer.device().send(exchange.reply());
    });
    QLTError error;
    EXPECT_TRUE(operation().run(*peer.patient, &error)) << error.description().value_or("");
    EXPECT_FALSE(peer.patient->isLost());
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
};

TEST_P(ModbusFaultTable, EndsAsStated) {
  std::optional<test::SignalStorm> storm;
  if (isAmidSignals()) storm.emplace();
  for (const Fault& fault : faultsOf(operation())) {
    SCOPED_TRACE(fault.name);
    if (fault.isOn(isSerial())) meet(fault);
  }
}

std::string nameOf(const testing::TestParamInfo<Parameters>& info) {
  const auto& [operation, isSerial, isAmidSignals] = info.param;
  return operation.name + (isSerial ? "_Serial" : "_Tcp") + (isAmidSignals ? "_AmidSignals" : "");
}

INSTANTIATE_TEST_SUITE_P(Lines, ModbusFaultTable,
                         testing::Combine(testing::ValuesIn(operations()), testing::Bool(),
                                          testing::Bool()),
                         nameOf);

}  // namespace
