#include <QLTInstruments.h>

#include <cerrno>
#include <future>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTDavDPEther.h>
#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTUtil.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/TcpPeer.h"

namespace {

using test::earlierError;
using test::IsError;
using test::isUntouched;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

const char* const kNoDevice = "/dev/quillon-no-such-device";
const QLTDictionary kReplies = {{"&1,0000\n", "P,1.1,2.2,3.3,4.4\r\n"}};

/// The instrument that was made; null when there is none. A marker is a failure of the test.
std::shared_ptr<QLTObject> instrumentOf(const QLTInstruments::InstrumentOrMarker& made) {
  const auto* instrument = std::get_if<std::shared_ptr<QLTObject>>(&made);
  if (!instrument) ADD_FAILURE() << "marker: " << std::get<std::string>(made);
  return instrument ? *instrument : nullptr;
}

template <typename T>
std::shared_ptr<T> make(const QLTDictionary& entry, QLTError* error = nullptr) {
  return std::dynamic_pointer_cast<T>(
      instrumentOf(QLTInstruments::creaeteInstrument(entry, error)));
}

bool isMarker(const QLTInstruments::InstrumentOrMarker& made) {
  const auto* marker = std::get_if<std::string>(&made);
  return marker && *marker == "unknown instrument";
}

/// No instrument comes of `entry`, with or without a slot for the error, which is returned.
QLTError failureOf(const QLTDictionary& entry) {
  EXPECT_FALSE(instrumentOf(QLTInstruments::creaeteInstrument(entry)));
  QLTError error = earlierError();
  EXPECT_FALSE(instrumentOf(QLTInstruments::creaeteInstrument(entry, &error)));
  return error;
}

class QLTInstrumentsTest : public ::testing::Test {
 protected:
  ~QLTInstrumentsTest() override {
    QLTSimSerial::removeResponseMap();
    QLTSimSocket::removeResponseMap();
  }

  const test::ConsoleLog log;
};

TEST_F(QLTInstrumentsTest, UnknownClassGivesTheMarkerAndLeavesTheSlot) {
  for (const QLTDictionary& entry :
       {QLTDictionary{{"class", "AcmeMeter"}, {"port", "7"}},
        QLTDictionary{{"class", "qltdiags"}, {"bsdPath", kNoDevice}},
        QLTDictionary{{"class", "QLTDiags2"}, {"bsdPath", kNoDevice}},
        QLTDictionary{{"class", "QLTDiags\n"}, {"bsdPath", kNoDevice}},
        QLTDictionary{{"class", "QLT Diags"}, {"bsdPath", kNoDevice}}, QLTDictionary{{"class", ""}},
        QLTDictionary{{"class", " \t"}}, QLTDictionary{{"class", 7}}, QLTDictionary{}}) {
    QLTError error = earlierError();
    EXPECT_TRUE(isMarker(QLTInstruments::creaeteInstrument(entry, &error))) << entry.text();
    EXPECT_TRUE(isMarker(QLTInstruments::creaeteInstrument(entry))) << entry.text();
    EXPECT_THAT(error, isUntouched()) << entry.text();
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTInstrumentsTest, MissingAttributeIsReportedBeforeATransportIsMade) {
  for (const char* sim : {"0", "1"}) {
    EXPECT_THAT(failureOf({{"class", "QLTDiags"}, {"ip", "127.0.0.1"}, {"sim", sim}}),
                IsError(QLTFrameworkErrorDomain, -60000,
                        "no bsdPath attribute config for QLTDiags instrument"));
    EXPECT_THAT(failureOf({{"class", "QLTDavDPEther"}, {"bsdPath", kNoDevice}, {"sim", sim}}),
                IsError(QLTFrameworkErrorDomain, -60000,
                        "no ip attribute config for QLTDavDPEther instrument"));
    EXPECT_THAT(failureOf({{"class", "QLTDavDPSerial"}, {"ip", "127.0.0.1"}, {"sim", sim}}),
                IsError(QLTFrameworkErrorDomain, -60000,
                        "no bsdPath attribute config for QLTDavDPSerial instrument"));
  }
  EXPECT_THAT(log.lines(), ::testing::Each(::testing::MatchesRegex(
                               "error number is: no .* attribute config .*-60000.\n")));
}

TEST_F(QLTInstrumentsTest, AttributeThatIsNotATextCountsAsMissing) {
  EXPECT_THAT(failureOf({{"class", "QLTDiags"}, {"bsdPath", 7}}),
              IsError(QLTFrameworkErrorDomain, -60000,
                      "no bsdPath attribute config for QLTDiags instrument"));
  EXPECT_THAT(failureOf({{"class", "QLTDavDPEther"}, {"ip", QLTArray{}}}),
              IsError(QLTFrameworkErrorDomain, -60000,
                      "no ip attribute config for QLTDavDPEther instrument"));
}

TEST_F(QLTInstrumentsTest, BlanksAndTabsAroundTheClassDoNotCount) {
  for (const char* name : {"QLTDiags", " QLTDiags ", "\tQLTDiags", "QLTDiags \t "}) {
    EXPECT_TRUE(make<QLTDiags>({{"class", name}, {"bsdPath", "/dev/sim"}, {"sim", "1"}})) << name;
  }
}

TEST_F(QLTInstrumentsTest, SimThatReadsOneSelectsTheSimulatedPort) {
  for (const QLTValue& sim : {QLTValue("1"), QLTValue(1), QLTValue(" 1 V"), QLTValue(1.9)}) {
    QLTError error = earlierError();
    const auto diags =
        make<QLTDiags>({{"class", "QLTDiags"}, {"bsdPath", kNoDevice}, {"sim", sim}}, &error);
    ASSERT_TRUE(diags) << sim.text();
    EXPECT_TRUE(std::dynamic_pointer_cast<QLTSimSerial>(diags->com()));
    EXPECT_THAT(error, isUntouched());
  }
}

TEST_F(QLTInstrumentsTest, AnyOtherSimSelectsTheRealPort) {
  for (const QLTValue& sim :
       {QLTValue("yes"), QLTValue("2"), QLTValue(2), QLTValue(0), QLTValue("0"), QLTValue(""),
        QLTValue("true"), QLTValue("-1"), QLTValue("10"), QLTValue(QLTArray{1})}) {
    EXPECT_THAT(failureOf({{"class", "QLTDiags"}, {"bsdPath", kNoDevice}, {"sim", sim}}).code(),
                ENOENT)
        << sim.text();
  }
}

TEST_F(QLTInstrumentsTest, SimulatedConsoleIsOpenAndHasThePortsDefaults) {
  const auto diags = make<QLTDiags>({{"class", "QLTDiags"}, {"bsdPath", "/dev/sim"}, {"sim", "1"}});

  ASSERT_TRUE(diags);
  EXPECT_THAT(log.lines(), ElementsAre("open on sim serial at /dev/sim called"));
  EXPECT_EQ(diags->com()->bsdPath(), "/dev/sim");
  EXPECT_EQ(diags->com()->baudRate(), 115200u);
  EXPECT_EQ(diags->com()->interCharDelayInMicroSeconds(), 1000u);
  EXPECT_EQ(diags->com().use_count(), 1);
}

TEST_F(QLTInstrumentsTest, PortThatDoesNotOpenKeepsItsOwnErrorUnderTheWrap) {
  const QLTError error = failureOf({{"class", "QLTDiags"}, {"bsdPath", kNoDevice}});

  EXPECT_THAT(error, IsError(QLTSerialErrorDomain, ENOENT,
                             std::string("Error opening serial port at ") + kNoDevice +
                                 ". Details: No such file or directory"));
  EXPECT_THAT(error.underlyingError(),
              IsError(QLTSerialErrorDomain, ENOENT, "No such file or directory"));
}

TEST_F(QLTInstrumentsTest, SerialUnitsPortThatDoesNotOpenKeepsItsOwnErrorUnderTheWrap) {
  const QLTError error = failureOf({{"class", "QLTDavDPSerial"}, {"bsdPath", kNoDevice}});

  EXPECT_THAT(error, IsError(QLTSerialErrorDomain, ENOENT,
                             std::string("Error opening serial port at ") + kNoDevice +
                                 " for DAVDP. Details: No such file or directory"));
  EXPECT_THAT(error.underlyingError(),
              IsError(QLTSerialErrorDomain, ENOENT, "No such file or directory"));
}

TEST_F(QLTInstrumentsTest, SimulatedUnitOverTcpAlwaysUsesItsPort) {
  QLTSimSocket::setResponseMap(kReplies);
  QLTError error = earlierError();

  const auto unit = make<QLTDavDPEther>(
      {{"class", "QLTDavDPEther"}, {"ip", "10.0.0.9"}, {"port", "5025"}, {"sim", 1}}, &error);

  ASSERT_TRUE(unit);
  EXPECT_EQ(log.lines().front(), "sim socket for 10.0.0.9:9760 opned");
  EXPECT_TRUE(std::dynamic_pointer_cast<QLTSimSocket>(unit->socket()));
  EXPECT_EQ(unit->socket().use_count(), 1);
  EXPECT_EQ(unit->revHDMIRx(), "3.3");
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTInstrumentsTest, UnitOverTcpThatDoesNotAnswerTheVersionQueryIsNotCreated) {
  QLTSimSocket::setResponseMap({});

  EXPECT_THAT(
      failureOf({{"class", "QLTDavDPEther"}, {"ip", "10.0.0.9"}, {"sim", "1"}}),
      IsError(QLTFrameworkErrorDomain, -21001, "error creating DAVDP with socket 10.0.0.9"));
  EXPECT_EQ(log.lines().back(),
            "error number is: error creating DAVDP with socket 10.0.0.9 (-21001)\n");
}

TEST_F(QLTInstrumentsTest, AddressWithoutAConnectionIsReported) {
  EXPECT_THAT(failureOf({{"class", "QLTDavDPEther"}, {"ip", "no address"}, {"sim", "yes"}}),
              IsError(QLTFrameworkErrorDomain, -21001, "error creating socket at no address"));
  const auto reason = testing::StartsWith("no connection to \"no address\": ");
  EXPECT_THAT(
      log.lines(),
      ElementsAre(reason, "error number is: error creating socket at no address (-21001)\n", reason,
                  "error number is: error creating socket at no address (-21001)\n"));
}

TEST_F(QLTInstrumentsTest, UnitWithoutAConnectionTellsWhy) {
  // A port of this machine that nobody listens on.
  const QLTError error = failureOf({{"class", "QLTDavDPEther"}, {"ip", "127.0.0.77"}});

  EXPECT_THAT(error,
              IsError(QLTFrameworkErrorDomain, -21001, "error creating socket at 127.0.0.77"));
  EXPECT_THAT(error.underlyingError(),
              IsError(kQLTPosixErrorDomain, ECONNREFUSED,
                      "no connection to 127.0.0.77:9760: Connection refused"));
}

TEST_F(QLTInstrumentsTest, SimulatedUnitOnASerialLineHasItsLineSettings) {
  QLTSimSerial::setResponseMap(kReplies);
  QLTError error = earlierError();

  const auto unit = make<QLTDavDPSerial>(
      {{"class", "\tQLTDavDPSerial"}, {"bsdPath", "/dev/sim"}, {"sim", "1"}}, &error);

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->com()->baudRate(), 19200u);
  EXPECT_EQ(unit->com()->interCharDelayInMicroSeconds(), 3000u);
  EXPECT_EQ(unit->com().use_count(), 1);
  EXPECT_EQ(unit->revDPRx(), "2.2");
  EXPECT_EQ(log.lines().front(), "open on sim serial at /dev/sim called");
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTInstrumentsTest, UnitOnASerialLineThatDoesNotAnswerTheVersionQueryIsNotCreated) {
  QLTSimSerial::setResponseMap({});
  QLTError error = earlierError();

  EXPECT_FALSE(make<QLTDavDPSerial>(
      {{"class", "QLTDavDPSerial"}, {"bsdPath", "/dev/sim"}, {"sim", "1"}}, &error));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -21001,
                             "error creating DAVDP with serial port /dev/sim"));
}

TEST_F(QLTInstrumentsTest, ConsoleOnARealPortIsNotAskedForItsPrompt) {
  test::Pty pty;
  QLTError error = earlierError();

  const auto diags = make<QLTDiags>({{"class", "QLTDiags"}, {"bsdPath", pty.path()}}, &error);

  ASSERT_TRUE(diags);
  EXPECT_EQ(pty.lineSpeed(), 115200u);
  EXPECT_EQ(pty.master().receivePending(), "");
  EXPECT_FALSE(std::dynamic_pointer_cast<QLTSimSerial>(diags->com()));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTInstrumentsTest, UnitOnARealSerialLineIsWokenAtItsLineSpeed) {
  test::Pty pty;
  const test::Device device(pty.master(), [](const std::string& line) {
    return std::vector<std::string>{line == "@&1,0000" ? "P,1.1,2.2,3.3,4.4\r\n" : "?\r\n"};
  });
  QLTError error = earlierError();

  const auto unit =
      make<QLTDavDPSerial>({{"class", "QLTDavDPSerial"}, {"bsdPath", pty.path()}}, &error);

  ASSERT_TRUE(unit);
  EXPECT_EQ(pty.lineSpeed(), 19200u);
  EXPECT_EQ(unit->revPIC(), "4.4");
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTInstrumentsTest, PortOfAUnitThatIsNotCreatedIsClosed) {
  test::Pty pty;
  const test::Device device(
      pty.master(), [](const std::string&) { return std::vector<std::string>{"P,1,2,3\r\n"}; });
  const std::size_t descriptors = test::openDescriptors();
  QLTError error;

  EXPECT_FALSE(
      make<QLTDavDPSerial>({{"class", "QLTDavDPSerial"}, {"bsdPath", pty.path()}}, &error));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -21001,
                             "error creating DAVDP with serial port " + pty.path()));
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(QLTInstrumentsTest, UnitOverTcpIsReachedAtItsPort) {
  const test::TcpPeer peer(9760);
  auto served = std::async(std::launch::async, [&peer] {
    const test::Endpoint connection = peer.accept();
    const std::string query = connection.receiveUntil('\n');
    connection.send("P,1.1,2.2,3.3,4.4\r\n");
    return query;
  });
  QLTError error = earlierError();

  const auto unit = make<QLTDavDPEther>(
      {{"class", "QLTDavDPEther"}, {"ip", test::TcpPeer::ownAddress()}, {"sim", 2}}, &error);

  EXPECT_EQ(served.get(), "&1,0000\n");
  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revHDMIRx(), "3.3");
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTInstrumentsTest, RefusedConnectionIsReported) {
  EXPECT_THAT(failureOf({{"class", "QLTDavDPEther"}, {"ip", test::TcpPeer::ownAddress()}}),
              IsError(QLTFrameworkErrorDomain, -21001,
                      "error creating socket at " + test::TcpPeer::ownAddress()));
  EXPECT_THAT(log.lines(), Contains("unable to connect to remote socket"));
}

}  // namespace
