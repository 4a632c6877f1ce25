// Modbus units over TCP, at the stand-in in a process of its own.

#include <QLTBench.h>
#include <QLTErrorCodes.h>
#include <QLTModbus.h>
#include <QLTSimSocket.h>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "simulators/SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/TcpPeer.h"
#include "support/TemporaryFolder.h"

namespace {

using test::SimulatorProcess;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using Type = QLTModbusNumber::Type;
using Words = QLTModbusNumber::Words;

/// A stand-in over TCP, and its place.
class Device {
 public:
  explicit Device(std::vector<std::string> values, const std::string& replies = "")
      : process_(options(std::move(values)), replies),
        address_("127.0.0.1:" + std::to_string(process_.readPort())) {}

  const std::string& address() const { return address_; }
  std::shared_ptr<QLTModbus> unit(std::int32_t unit = 1, double timeOut = 5) const {
    QLTError error;
    auto made = QLTModbus::overTcp(
        address_, {.unit = unit, .timeOutInSeconds = timeOut, .retries = 2}, &error);
    EXPECT_FALSE(error) << error.description().value_or("");
    return made;
  }
  SimulatorProcess& process() { return process_; }

 private:
  static std::vector<std::string> options(std::vector<std::string> values) {
    values.insert(values.begin(), {"modbus", "--tcp", "0", "-v"});
    return values;
  }

  SimulatorProcess process_;
  std::string address_;
};

std::string textOf(const QLTError& error) { return error.description().value_or(""); }

TEST(QLTModbus, readsAndWritesAllFourTables) {
  const Device device({"--coil", "3=1,0,1", "--discrete", "7=0,1", "--holding", "100=1,65535",
                       "--input", "200=21,-1"});
  const auto unit = device.unit();
  EXPECT_THAT(unit->readCoils(3, 3), Optional(ElementsAre(true, false, true)));
  EXPECT_THAT(unit->readDiscreteInputs(7, 2), Optional(ElementsAre(false, true)));
  EXPECT_THAT(unit->readHoldingRegisters(100, 2), Optional(ElementsAre(1, 65535)));
  EXPECT_THAT(unit->readInputRegisters(200, 2), Optional(ElementsAre(21, 65535)));

  EXPECT_TRUE(unit->writeCoil(4, true));
  EXPECT_TRUE(unit->writeCoils(3, {false, true, false}));
  EXPECT_THAT(unit->readCoils(3, 3), Optional(ElementsAre(false, true, false)));
  EXPECT_TRUE(unit->writeRegister(100, 4711));
  EXPECT_THAT(unit->readHoldingRegisters(100, 2), Optional(ElementsAre(4711, 65535)));
  EXPECT_TRUE(unit->writeRegisters(100, {7, 8}));
  EXPECT_THAT(unit->readHoldingRegisters(100, 2), Optional(ElementsAre(7, 8)));
}

TEST(QLTModbus, readsNumbersInOneCall) {
  // -12.5 as a float is 0xc148 0000; 70000 is 0x0001 0x1170; -70000 is 0xfffe 0xee90.
  const Device device({"--input", "0=215,-40,1,4464,4464,1,65534,61072,49480,0,0,49480",
                       "--holding", "0=20", "--input", "20=32704,0"});
  const auto unit = device.unit();
  EXPECT_EQ(unit->inputNumber(0), 215);
  EXPECT_DOUBLE_EQ(unit->inputNumber(0, {.scale = 0.1}).value(), 21.5);
  EXPECT_EQ(unit->inputNumber(1), 65496);
  EXPECT_DOUBLE_EQ(unit->inputNumber(1, {.type = Type::S16, .scale = 0.1, .offset = 1}).value(),
                   -3);
  EXPECT_EQ(unit->inputNumber(2, {.type = Type::U32}), 70000);
  EXPECT_EQ(unit->inputNumber(4, {.type = Type::U32, .words = Words::LowFirst}), 70000);
  EXPECT_EQ(unit->inputNumber(6, {.type = Type::S32}), -70000);
  EXPECT_EQ(unit->inputNumber(8, {.type = Type::Float32}), -12.5);
  EXPECT_EQ(unit->inputNumber(10, {.type = Type::Float32, .words = Words::LowFirst}), -12.5);
  EXPECT_EQ(unit->holdingNumber(0), 20);

  QLTError error;
  EXPECT_EQ(unit->inputNumber(20, {.type = Type::Float32}, &error), std::nullopt);  // not a number
  EXPECT_EQ(error.code(), kQLTErrorModbusNoNumber);
  EXPECT_EQ(textOf(error), device.address() +
                               ", unit 1, read input registers 20..21: the registers hold no "
                               "number");
}

TEST(QLTModbus, writesNumbersThatFit) {
  const Device device({"--holding", "0=0,0,0,0,0"});
  const auto unit = device.unit();
  EXPECT_TRUE(unit->writeNumber(0, 21.46, {.type = Type::S16, .scale = 0.1}));
  EXPECT_TRUE(unit->writeNumber(1, -70000, {.type = Type::S32}));
  EXPECT_TRUE(unit->writeNumber(3, -12.5, {.type = Type::Float32, .words = Words::LowFirst}));
  EXPECT_THAT(unit->readHoldingRegisters(0, 5), Optional(ElementsAre(215, 65534, 61072, 0, 49480)));

  for (const double value : {-1.0, 65536.0, std::numeric_limits<double>::quiet_NaN()}) {
    QLTError error;
    EXPECT_FALSE(unit->writeNumber(0, value, {}, &error));
    EXPECT_EQ(error.code(), kQLTErrorModbusRequest);
  }
  QLTError error;
  EXPECT_FALSE(unit->writeNumber(0, 1e39, {.type = Type::Float32}, &error));
  EXPECT_FALSE(unit->writeNumber(0, 1, {.scale = 0}, &error));
  EXPECT_THAT(textOf(error), HasSubstr("register 0: 1.000000 does not fit"));
  EXPECT_THAT(unit->readHoldingRegisters(0, 1), Optional(ElementsAre(215)));
}

TEST(QLTModbus, refusesWhatNoUnitCouldTakeBeforeItIsSent) {
  const Device device({});
  const auto unit = device.unit();
  const auto refused = [&](const QLTError& error, const std::string& text) {
    EXPECT_EQ(error.code(), kQLTErrorModbusRequest);
    EXPECT_THAT(textOf(error), HasSubstr(text));
  };
  QLTError error;
  EXPECT_EQ(unit->readCoils(0, 2001, &error), std::nullopt);
  refused(error, "cannot read coils 0: 2001 at once, there are 1 to 2000");
  EXPECT_EQ(unit->readDiscreteInputs(0, 0, &error), std::nullopt);
  refused(error, "cannot read discrete inputs 0: 0 at once");
  EXPECT_EQ(unit->readHoldingRegisters(0, 126, &error), std::nullopt);
  refused(error, "126 at once, there are 1 to 125");
  EXPECT_EQ(unit->readInputRegisters(-1, 1, &error), std::nullopt);
  refused(error, "cannot read input registers -1: addresses are 0 to 65535");
  EXPECT_EQ(unit->readInputRegisters(65535, 2, &error), std::nullopt);
  refused(error, "cannot read input registers 65535..65536: addresses are 0 to 65535");
  EXPECT_FALSE(unit->writeCoils(0, std::vector<bool>(1969), &error));
  refused(error, "1969 at once, there are 1 to 1968");
  EXPECT_FALSE(unit->writeRegisters(0, std::vector<std::uint16_t>(124), &error));
  refused(error, "124 at once, there are 1 to 123");
  EXPECT_FALSE(unit->writeRegisters(0, {}, &error));
  refused(error, "0 at once");
  EXPECT_EQ(device.unit()->readCoils(0, 1), std::nullopt);  // the only request that is sent
}

TEST(QLTModbus, tellsAnExceptionInWords) {
  const Device device({"--input", "0=1"}, "\"write register 5 6\" -> \"exception 6\"\n");
  const auto unit = device.unit();
  QLTError error;
  EXPECT_EQ(unit->readInputRegisters(0, 2, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorModbusException);
  EXPECT_EQ(error.userInfo().integer("exception"), 2);
  EXPECT_EQ(textOf(error), device.address() +
                               ", unit 1, read input registers 0..1: refused with exception 2, "
                               "illegal data address");
  EXPECT_FALSE(unit->writeRegister(5, 6, &error));
  EXPECT_EQ(textOf(error), device.address() +
                               ", unit 1, write register 5: refused with exception 6, device is "
                               "busy");
  EXPECT_FALSE(unit->isLost());
}

TEST(QLTModbus, sharesOneConnectionWithTheOtherUnitsOfAGateway) {
  Device device({"--input", "1/0=11", "--input", "5/0=55", "--connections", "1"});
  auto first = device.unit(1);
  const auto fifth = device.unit(5);
  EXPECT_EQ(first->inputNumber(0), 11);
  EXPECT_EQ(fifth->inputNumber(0), 55);
  QLTError error;
  EXPECT_EQ(device.unit(9)->inputNumber(0, {}, &error), std::nullopt);
  EXPECT_THAT(textOf(error), HasSubstr("exception 11, unit behind the gateway does not answer"));
  first.reset();
  EXPECT_EQ(fifth->inputNumber(0), 55);  // still on it
  EXPECT_EQ(fifth->unit(), 5);
  EXPECT_EQ(fifth->where(), device.address() + ", unit 5");
}

TEST(QLTModbus, severalThreadsMayAskAtOnce) {
  const Device device({"--input", "1/0=1", "--input", "2/0=2", "--input", "3/0=3"});
  std::vector<std::jthread> sites;
  for (int number = 1; number <= 3; ++number) {
    sites.emplace_back([&, number] {
      const auto unit = device.unit(number);
      for (int i = 0; i < 50; ++i) EXPECT_EQ(unit->inputNumber(0), number);
    });
  }
}

TEST(QLTModbus, aConnectionThatTheDeviceEndedWhileIdleIsMadeAnew) {
  Device device({"--input", "0=7"}, "\"read input registers 0 1\" -> \"own\" hang-up 100\n");
  const auto unit = device.unit();
  EXPECT_EQ(unit->inputNumber(0), 7);
  ASSERT_TRUE(device.process().waitForErrors("* disconnected"));
  EXPECT_EQ(unit->inputNumber(0), 7);
}

TEST(QLTModbus, aGarbledReadIsMadeAgainAndAWriteIsNot) {
  const Device device({"--holding", "0=7"},
                      "\"read holding registers 0 1\" -> garbage \"\\0\\x09\\0\\0\\0\\x05\"\n"
                      "\"read holding registers 0 1\" -> \"own\"\n"
                      "\"write register 0 8\" -> garbage \"\\0\\x09\\0\\0\\0\\x05\"\n");
  const auto unit = device.unit();
  const test::ConsoleLog log;
  EXPECT_EQ(unit->holdingNumber(0), 7);
  EXPECT_THAT(log.lines(), testing::Contains(HasSubstr("a garbled answer: ")));
  QLTError error;
  EXPECT_FALSE(unit->writeRegister(0, 8, &error));
  EXPECT_EQ(error.code(), kQLTErrorModbusGarbled);
}

TEST(QLTModbus, whatComesTooLateIsNotTheNextAnswer) {
  const Device device({"--input", "0=1,2"}, "\"read input registers 0 1\" -> delay 60\n");
  const auto unit = device.unit(1, 0.04);
  QLTError error;
  EXPECT_EQ(unit->inputNumber(0, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorModbusSilence);
  EXPECT_EQ(textOf(error),
            device.address() + ", unit 1, read input registers 0: no whole answer within 0.04 s");
  EXPECT_FALSE(unit->isLost());
  const auto patient = device.unit();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(patient->inputNumber(1), 2);
}

TEST(QLTModbus, aLostConnectionIsOpenedAgain) {
  const Device device({"--input", "0=7"},
                      "\"read input registers 0 1\" -> away 150\n"
                      "\"read input registers 0 1\" -> \"own\"\n");
  const auto unit = device.unit();
  // It answers, and is gone then; what is lost first shows when it refuses.
  EXPECT_EQ(unit->inputNumber(0), 7);
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  QLTError error;
  EXPECT_EQ(unit->inputNumber(0, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_TRUE(unit->isLost());
  EXPECT_EQ(unit->inputNumber(0, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineRead);
  while (!unit->reopen()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_FALSE(unit->isLost());
  EXPECT_EQ(unit->inputNumber(0), 7);
}

TEST(QLTModbus, aDeviceThatIsNotThereGivesALostUnit) {
  test::TcpPeer peer;
  peer.refuse();
  QLTError error;
  const auto unit =
      QLTModbus::overTcp("127.0.0.1:" + std::to_string(peer.port()), {.unit = 3}, &error);
  ASSERT_TRUE(unit);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_THAT(textOf(error), HasSubstr("Connection refused"));
  EXPECT_TRUE(unit->isLost());
  EXPECT_FALSE(unit->reopen(&error));
}

TEST(QLTModbus, whatCannotBeMeantIsNoUnit) {
  QLTError error;
  EXPECT_EQ(QLTModbus::overTcp("10.0.0.9", {}, &error), nullptr);
  EXPECT_EQ(textOf(error), "\"10.0.0.9\" is not host:port");
  EXPECT_EQ(QLTModbus::overTcp("127.0.0.1:1", {.unit = 250}, &error), nullptr);
  EXPECT_EQ(textOf(error), "there is no unit 250 on a TCP connection");
}

TEST(QLTModbus, logsRequestsAndAnswers) {
  const Device device({"--holding", "0=7,8"});
  const auto unit = device.unit();
  const test::ConsoleLog log;
  unit->readHoldingRegisters(0, 2);
  unit->writeRegisters(0, {1, 2});
  const std::string& where = device.address();
  EXPECT_THAT(log.lines(),
              ElementsAre("{Modbus_Write " + where + "}: unit 1: read holding registers 0..1",
                          "{Modbus_Read " + where + "}: 7 8",
                          "{Modbus_Write " + where + "}: unit 1: write registers 0..1: 1 2",
                          "{Modbus_Read " + where + "}: done"));
}

TEST(QLTModbus, isMadeFromTheTesterConfigFile) {
  const Device device({"--input", "5/100=215"});
  QLTError error;
  const auto made = QLTBench::createInstrument({{"class", "QLTModbus"},
                                                {"sim", "0"},
                                                {"address", device.address()},
                                                {"unit", "5"},
                                                {"timeOut", "3"}},
                                               &error);
  const auto unit = std::dynamic_pointer_cast<QLTModbus>(made);
  ASSERT_TRUE(unit) << textOf(error);
  EXPECT_FALSE(error);
  EXPECT_EQ(unit->inputNumber(100), 215);
}

TEST(QLTModbus, isSimulatedByAResponseMap) {
  QLTSimSocket::setResponseMap({{"unit 2: read input registers 100", "215"},
                                {"unit 2: read coils 0..1", "1 0"},
                                {"unit 2: write coil 7: 1", "exception 4"}});
  const auto made = QLTBench::createInstrument(
      {{"class", "QLTModbus"}, {"sim", "1"}, {"address", "10.0.0.9:502"}, {"unit", "2"}});
  const auto unit = std::dynamic_pointer_cast<QLTModbus>(made);
  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->inputNumber(100), 215);
  EXPECT_THAT(unit->readCoils(0, 2), Optional(ElementsAre(true, false)));
  EXPECT_TRUE(unit->writeCoil(6, true));
  QLTError error;
  EXPECT_FALSE(unit->writeCoil(7, true, &error));
  EXPECT_THAT(textOf(error), HasSubstr("exception 4, failure of the device"));
  EXPECT_EQ(unit->inputNumber(101, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorModbusSilence);
  QLTSimSocket::removeResponseMap();
}

// On a serial line.

/// A stand-in on a serial line, and its place.
class Bus {
 public:
  explicit Bus(std::vector<std::string> values, const std::string& replies = "")
      : process_(options(std::move(values)), replies), path_(process_.readPath()) {}

  const std::string& path() const { return path_; }
  std::shared_ptr<QLTModbus> unit(std::int32_t unit = 17, double timeOut = 5,
                                  QLTError* error = nullptr) const {
    return QLTModbus::overSerial(path_, settings(),
                                 {.unit = unit, .timeOutInSeconds = timeOut, .retries = 2}, error);
  }
  static QLTBenchSerial::Settings settings() {
    QLTBenchSerial::Settings settings;
    settings.baudRate = 19200;
    return settings;
  }

 private:
  static std::vector<std::string> options(std::vector<std::string> values) {
    values.insert(values.begin(), {"modbus", "--pty", "--unit", "17"});
    return values;
  }

  SimulatorProcess process_;
  std::string path_;
};

TEST(QLTModbus, readsAndWritesOnASerialLine) {
  const Bus bus({"--coil", "3=1,0", "--discrete", "7=0,1", "--holding", "100=1,2", "--input",
                 "200=21,-1", "--input", "18/200=5"});
  const auto unit = bus.unit();
  EXPECT_THAT(unit->readCoils(3, 2), Optional(ElementsAre(true, false)));
  EXPECT_THAT(unit->readDiscreteInputs(7, 2), Optional(ElementsAre(false, true)));
  EXPECT_THAT(unit->readInputRegisters(200, 2), Optional(ElementsAre(21, 65535)));
  EXPECT_TRUE(unit->writeCoil(4, true));
  EXPECT_TRUE(unit->writeCoils(3, {false, true}));
  EXPECT_TRUE(unit->writeRegister(100, 4711));
  EXPECT_TRUE(unit->writeRegisters(101, {8}));
  EXPECT_THAT(unit->readHoldingRegisters(100, 2), Optional(ElementsAre(4711, 8)));
  EXPECT_EQ(bus.unit(18)->inputNumber(200), 5);
  EXPECT_EQ(unit->where(), bus.path() + ", unit 17");
  EXPECT_FALSE(unit->isLost());
}

TEST(QLTModbus, aReadWithAWrongChecksumIsMadeAgain) {
  const Bus bus({"--holding", "0=7"},
                "\"read holding registers 0 1\" -> \"bad crc\"\n"
                "\"read holding registers 0 1\" -> \"bad crc\"\n"
                "\"read holding registers 0 1\" -> \"own\"\n"
                "\"write register 0 8\" -> \"bad crc\"\n"
                "\"write register 0 8\" -> \"own\"\n");
  const auto unit = bus.unit();
  EXPECT_EQ(unit->holdingNumber(0), 7);
  QLTError error;
  EXPECT_FALSE(unit->writeRegister(0, 8, &error));
  EXPECT_EQ(error.code(), kQLTErrorModbusGarbled);
  EXPECT_THAT(textOf(error), HasSubstr("the answer is garbled: the checksum is wrong"));
  EXPECT_TRUE(unit->writeRegister(0, 8));
}

TEST(QLTModbus, anotherUnitsAnswerIsNoAnswer) {
  const Bus bus({"--holding", "0=7"}, "* -> \"from unit 18\"\n");
  const auto unit = bus.unit();
  QLTError error;
  EXPECT_EQ(unit->holdingNumber(0, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorModbusGarbled);
  EXPECT_THAT(textOf(error), HasSubstr("it comes from another unit"));
}

TEST(QLTModbus, whatComesTooLateOnASerialLineIsNotTheNextAnswer) {
  const Bus bus({"--input", "0=1,2"}, "\"read input registers 0 1\" -> delay 60\n");
  const auto unit = bus.unit(17, 0.04);
  EXPECT_EQ(unit->inputNumber(0), std::nullopt);
  EXPECT_FALSE(unit->isLost());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(unit->inputNumber(1), 2);
}

TEST(QLTModbus, unitsOnOneLineHaveTheSameSettings) {
  const Bus bus({"--input", "0=1"});
  const auto unit = bus.unit();
  QLTBenchSerial::Settings others = Bus::settings();
  others.baudRate = 9600;
  others.parity = QLTBenchSerial::Parity::Even;
  QLTError error;
  EXPECT_EQ(QLTModbus::overSerial(bus.path(), others, {.unit = 18}, &error), nullptr);
  EXPECT_EQ(textOf(error),
            bus.path() + " is in use with other settings: 19200 baud, 8N1, not 9600 baud, 8E1");
  EXPECT_EQ(QLTModbus::overSerial(bus.path(), Bus::settings(), {.unit = 0}, &error), nullptr);
  EXPECT_EQ(textOf(error), "there is no unit 0 on a serial line");
}

TEST(QLTModbus, aSerialLineThatIsPulledOutIsLost) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "bus";
  const SimulatorProcess process({"modbus", "--pty", "--link", link, "--input", "0=7"},
                                 "\"read input registers 0 1\" -> hang-up 3\n"
                                 "\"read input registers 0 1\" -> \"own\"\n");
  process.readLine();
  const auto unit = QLTModbus::overSerial(link, Bus::settings(), {.timeOutInSeconds = 5});
  QLTError error;
  EXPECT_EQ(unit->inputNumber(0, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineRead);
  EXPECT_TRUE(unit->isLost());
  while (!unit->reopen()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(unit->inputNumber(0), 7);
}

TEST(QLTModbus, isMadeOnASerialLineFromTheTesterConfigFile) {
  const Bus bus({"--input", "100=215"});
  QLTDictionary entry{{"class", "QLTModbus"}, {"sim", "0"}, {"port", bus.path()}, {"unit", "17"}};
  QLTError error;
  const auto unit = std::dynamic_pointer_cast<QLTModbus>(QLTBench::createInstrument(entry, &error));
  ASSERT_TRUE(unit) << textOf(error);
  EXPECT_EQ(unit->inputNumber(100), 215);
  entry.set("address", "127.0.0.1:502");
  EXPECT_EQ(QLTBench::createInstrument(entry, &error), nullptr);
}

}  // namespace
