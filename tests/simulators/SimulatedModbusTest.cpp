#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SimulatorProcess.h"

// The Modbus device, by its bytes: what a driver is tested with must itself be as the protocol has
// it. The checksums are those of the published examples, or were computed by another program.

namespace {

using test::Endpoint;
using test::SimulatorProcess;
using testing::HasSubstr;
using namespace std::string_literals;

/// What is given as hexadecimal digits, blanks aside.
std::string bytes(const std::string& digits) {
  std::string result;
  std::string pair;
  for (const char digit : digits) {
    if (digit != ' ') pair += digit;
    if (pair.size() < 2) continue;
    result += static_cast<char>(std::stoi(pair, nullptr, 16));
    pair.clear();
  }
  return result;
}

/// Sends a request, and expects exactly this reply.
void expectReply(const Endpoint& line, const std::string& request, const std::string& reply) {
  ASSERT_TRUE(line.send(bytes(request)));
  EXPECT_EQ(line.receive(bytes(reply).size()), bytes(reply)) << request;
}

void expectSilence(const Endpoint& line, const std::string& request) {
  ASSERT_TRUE(line.send(bytes(request)));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(line.receivePending(), "") << request;
}

const std::vector<std::string> kValues{
    "--coil",  "19=1,0,1,1,0,0,1,1,1", "--holding", "107=555,0,100", "--input",
    "8=10,-2", "--discrete",           "5=1",       "--input",       "9/8=7"};

std::vector<std::string> device(std::vector<std::string> options,
                                const std::vector<std::string>& values = kValues) {
  options.insert(options.begin(), "modbus");
  options.insert(options.end(), values.begin(), values.end());
  return options;
}

TEST(SimulatedModbusTest, ReadsAndWritesOverTcp) {
  const SimulatorProcess sim(device({"--tcp", "0"}));
  const Endpoint line = test::connectTo(sim.readPort());
  expectReply(line, "0001 0000 0006 01 01 0013 0009", "0001 0000 0005 01 01 02 CD01");
  expectReply(line, "0002 0000 0006 01 02 0005 0001", "0002 0000 0004 01 02 01 01");
  expectReply(line, "0003 0000 0006 01 03 006B 0003", "0003 0000 0009 01 03 06 022B 0000 0064");
  expectReply(line, "0004 0000 0006 01 04 0008 0002", "0004 0000 0007 01 04 04 000A FFFE");
  expectReply(line, "0005 0000 0006 01 05 0014 FF00", "0005 0000 0006 01 05 0014 FF00");
  expectReply(line, "0006 0000 0006 01 06 006C 1234", "0006 0000 0006 01 06 006C 1234");
  expectReply(line, "0007 0000 0008 01 0F 0013 0002 01 02", "0007 0000 0006 01 0F 0013 0002");
  expectReply(line, "0008 0000 000B 01 10 006B 0002 04 0001 0002",
              "0008 0000 0006 01 10 006B 0002");
  expectReply(line, "0009 0000 0006 01 01 0013 0003", "0009 0000 0004 01 01 01 06");
  expectReply(line, "000A 0000 0006 01 03 006B 0003", "000A 0000 0009 01 03 06 0001 0002 0064");
}

TEST(SimulatedModbusTest, RefusesWhatItCannotDo) {
  const SimulatorProcess sim(device({"--tcp", "0"}));
  const Endpoint line = test::connectTo(sim.readPort());
  expectReply(line, "0001 0000 0002 01 2B", "0001 0000 0003 01 AB 01");
  expectReply(line, "0002 0000 0006 01 03 006B 0004", "0002 0000 0003 01 83 02");
  expectReply(line, "0003 0000 0006 01 03 006B 0000", "0003 0000 0003 01 83 03");
  expectReply(line, "0004 0000 0006 01 03 006B 007E", "0004 0000 0003 01 83 03");
  expectReply(line, "0005 0000 0006 01 05 0014 0001", "0005 0000 0003 01 85 03");
  expectReply(line, "0006 0000 0003 01 03 00", "0006 0000 0003 01 83 03");
  expectReply(line, "0007 0000 0006 01 04 FFFF 0002", "0007 0000 0003 01 84 02");
  expectReply(line, "0008 0000 0006 07 04 0008 0001", "0008 0000 0003 07 84 0B");
}

TEST(SimulatedModbusTest, IsAGatewayToSeveralUnits) {
  const SimulatorProcess sim(device({"--tcp", "0", "--unit", "3"}));
  const Endpoint line = test::connectTo(sim.readPort());
  expectReply(line, "0001 0000 0006 03 04 0008 0001", "0001 0000 0005 03 04 02 000A");
  expectReply(line, "0002 0000 0006 09 04 0008 0001", "0002 0000 0005 09 04 02 0007");
  expectReply(line, "0003 0000 0006 FF 04 0008 0001", "0003 0000 0005 FF 04 02 000A");
}

TEST(SimulatedModbusTest, SpeaksRtuAtATerminal) {
  const SimulatorProcess sim(device({"--pty", "--unit", "17"}));
  const Endpoint line = test::openTerminal(sim.readPath());
  expectReply(line, "11 03 006B 0003 7687", "11 03 06 022B 0000 0064 C8BA");
  expectReply(line, "11 2B 4DFF", "11 AB 01 9F35");
  expectSilence(line, "11 03 006B 0003 7688");  // not its checksum
  expectSilence(line, "07 03 006B 0003 7471");  // another unit
  expectReply(line, "11 03 006B 0003 7687", "11 03 06 022B 0000 0064 C8BA");
}

TEST(SimulatedModbusTest, DoesWhatIsSaidToAllAndDoesNotAnswer) {
  const SimulatorProcess sim(device({"--pty", "--unit", "17"}));
  const Endpoint line = test::openTerminal(sim.readPath());
  expectSilence(line, "00 06 006B 0001 3807");
  expectReply(line, "11 03 006B 0003 7687", "11 03 06 0001 0000 0064 D09E");
}

TEST(SimulatedModbusTest, AReplyFileHasValuesAndFaults) {
  const SimulatorProcess sim(device({"--pty", "--unit", "17"}),
                             "\"read holding registers 107 3\" -> \"1 2\" \"3\"\n"
                             "\"read holding registers 107 3\" -> \"exception 4\"\n"
                             "\"read holding registers 107 3\" -> \"bad crc\"\n"
                             "\"read holding registers 107 3\" -> \"from unit 18\"\n"
                             "\"read holding registers 107 3\" -> \"cut 4\"\n"
                             "\"read holding registers 107 3\" -> silent\n"
                             "\"read holding registers 107 3\" -> \"own\"\n");
  const Endpoint line = test::openTerminal(sim.readPath());
  const std::string request = "11 03 006B 0003 7687";
  expectReply(line, request, "11 03 06 0001 0002 0003 30B4");
  expectReply(line, request, "11 83 04 4136");
  expectReply(line, request, "11 03 06 022B 0000 0064 C845");
  expectReply(line, request, "12 03 06 022B 0000 0064 DC4A");
  expectReply(line, request, "11 03 06 02");
  expectSilence(line, request);
  expectReply(line, request, "11 03 06 022B 0000 0064 C8BA");
}

TEST(SimulatedModbusTest, AnEntryForAWriteKeepsItFromTakingPlace) {
  const SimulatorProcess sim(device({"--tcp", "0"}),
                             "\"write register 107 9\" -> \"exception 6\"\n"
                             "\"read input registers 8 1 unit 9\" -> \"70\"\n");
  const Endpoint line = test::connectTo(sim.readPort());
  expectReply(line, "0001 0000 0006 01 06 006B 0009", "0001 0000 0003 01 86 06");
  expectReply(line, "0002 0000 0006 01 03 006B 0001", "0002 0000 0005 01 03 02 022B");
  expectReply(line, "0003 0000 0006 09 04 0008 0001", "0003 0000 0005 09 04 02 0046");
}

TEST(SimulatedModbusTest, ARequestInPiecesIsOne) {
  const SimulatorProcess sim(device({"--tcp", "0"}));
  const Endpoint line = test::connectTo(sim.readPort());
  for (const char byte : bytes("0001 0000 0006 01 04 0008")) EXPECT_TRUE(line.send({&byte, 1}));
  expectReply(line, "0001", "0001 0000 0005 01 04 02 000A");
}

TEST(SimulatedModbusTest, SilenceEndsAHalfRequestOnASerialLine) {
  const SimulatorProcess sim(device({"--pty", "--unit", "17"}));
  const Endpoint line = test::openTerminal(sim.readPath());
  expectSilence(line, "11 03 00");
  expectReply(line, "11 03 006B 0003 7687", "11 03 06 022B 0000 0064 C8BA");
}

TEST(SimulatedModbusTest, MistakesAreToldBeforeTheAddress) {
  for (const auto& [option, value, complaint] :
       std::vector<std::tuple<std::string, std::string, std::string>>{
           {"--coil", "1=2", "'2' is neither 0 nor 1"},
           {"--input", "1=70000", "'70000' is not a number from -32768 to 65535"},
           {"--input", "1", "'1' is not [UNIT/]ADDRESS=VALUE[,VALUE...]"},
           {"--holding", "65535=1,2", "'65535=1,2' goes beyond address 65535"},
           {"--holding", "300/1=1", "'300' is not a whole number from 0 to 255"}}) {
    SimulatorProcess sim(device({"--tcp", "0", option, value}, {}));
    EXPECT_EQ(sim.wait(), 1);
    EXPECT_EQ(sim.readRest(), "");
    EXPECT_THAT(sim.errors(), HasSubstr(complaint));
  }
}

}  // namespace
