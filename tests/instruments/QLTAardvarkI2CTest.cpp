// The adapter object, against the stand-in for the adapter's library. The library is bound once in
// a process, so each test has its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QLTAardvarkI2C.h>
#include <QLTUtil.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/FreshProcess.h"
#include "support/aardvark/StandIn.h"

namespace {

using test::ConsoleLog;
using test::earlierError;
using test::isUntouched;
using test::StandInRecord;
using testing::ElementsAre;
using testing::IsEmpty;
using Arguments = std::vector<std::uint64_t>;

constexpr std::int32_t kEeprom = 0x50;
constexpr std::int32_t kNothingThere = 0x51;
// The stand-in's statuses.
constexpr int kBadHandle = -203;
constexpr int kNotAcknowledged = -204;

void expectError(const QLTError& error, std::int64_t code, const std::string& description) {
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.code(), code);
  EXPECT_EQ(error.description(), description);
  EXPECT_EQ(error.userInfo().size(), 1U);
  EXPECT_FALSE(error.underlyingError());
}

/// `operation` fails with and without a place for the error, and tells the console log so.
void expectFailure(const std::function<bool(QLTError*)>& operation, std::int64_t code,
                   const std::string& description) {
  ConsoleLog log;
  QLTError empty;
  QLTError filled = earlierError();
  EXPECT_FALSE(operation(nullptr));
  EXPECT_FALSE(operation(&empty));
  EXPECT_FALSE(operation(&filled));
  expectError(empty, code, description);
  expectError(filled, code, description);
  const std::string line = "error number is: " + description + " (" + std::to_string(code) + ")\n";
  EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
}

class QLTAardvarkI2CTest : public testing::Test {
 protected:
  /// In a new process beside the stand-in.
  void run(const std::function<void(const StandInRecord&)>& body) {
    const auto library = process.executableFolder() / "aardvark.so";
    process.place(test::standIn(), library);
    process.run([&] { body(StandInRecord(library)); });
  }

  test::FreshProcess process;
};

// Finding adapters.

TEST_F(QLTAardvarkI2CTest, DetectsNoneRatherThanAnEmptyList) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "0");
  run([](const StandInRecord&) { EXPECT_EQ(QLTAardvarkI2C::detectAardvarks(), std::nullopt); });
}

TEST_F(QLTAardvarkI2CTest, DetectsNoneWhenTheLibraryFails) {
  run([](const StandInRecord& record) {
    record.setResult("c_aa_find_devices_ext", -7);
    EXPECT_EQ(QLTAardvarkI2C::detectAardvarks(), std::nullopt);
  });
}

TEST_F(QLTAardvarkI2CTest, DetectsAdaptersInTheLibrarysOrderAndOpensNone) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "3");
  run([](const StandInRecord& record) {
    const auto adapters = QLTAardvarkI2C::detectAardvarks();
    ASSERT_TRUE(adapters);
    ASSERT_EQ(adapters->size(), 3U);
    EXPECT_EQ(record.calls("c_aa_open"), 0);
    for (std::uint64_t port = 0; port < 3; ++port) {
      const auto& adapter = adapters->at(port);
      EXPECT_EQ(adapter->bitRate(), 100);
      EXPECT_TRUE(adapter->open());
      EXPECT_EQ(record.arguments("c_aa_open"), Arguments{port});
    }
  });
}

TEST_F(QLTAardvarkI2CTest, DetectsAdaptersInUseToo) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "2");
  run([](const StandInRecord& record) {
    ASSERT_TRUE(QLTAardvarkI2C(1).open());
    const auto adapters = QLTAardvarkI2C::detectAardvarks();
    ASSERT_TRUE(adapters);
    ASSERT_EQ(adapters->size(), 2U);
    EXPECT_TRUE(adapters->at(0)->open());
    QLTError error;
    EXPECT_FALSE(adapters->at(1)->open(&error));
    EXPECT_EQ(record.arguments("c_aa_open"), Arguments{0x8001});
    expectError(error, -90001, "Error openning Aardvard at port 32769");
  });
}

TEST_F(QLTAardvarkI2CTest, DetectsAtMost16) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "20");
  run([](const StandInRecord& record) {
    const auto adapters = QLTAardvarkI2C::detectAardvarks();
    ASSERT_TRUE(adapters);
    ASSERT_EQ(adapters->size(), 16U);
    const Arguments asked = record.arguments("c_aa_find_devices_ext");
    EXPECT_EQ(asked[0], 16U);
    EXPECT_EQ(asked[2], 16U);
    EXPECT_TRUE(adapters->back()->open());
    EXPECT_EQ(record.arguments("c_aa_open"), Arguments{15});
  });
}

// Opening and closing.

TEST_F(QLTAardvarkI2CTest, HasItsDefaultsAndCallsNothingBeforeItIsOpened) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    EXPECT_FALSE(adapter.powerTarget());
    EXPECT_EQ(adapter.bitRate(), 100);
    EXPECT_TRUE(adapter.enablePullUp());
    EXPECT_EQ(adapter.busTimeoutInMilliSecond(), 200);
    EXPECT_EQ(record.calls("c_version"), 0);
  });
}

TEST_F(QLTAardvarkI2CTest, OpensWithTheDefaultsAndLeavesTargetPowerAlone) {
  run([](const StandInRecord& record) {
    const ConsoleLog log;
    QLTAardvarkI2C adapter(0);
    QLTError error = earlierError();
    EXPECT_TRUE(adapter.open(&error));
    EXPECT_THAT(error, isUntouched());
    EXPECT_EQ(record.arguments("c_aa_open"), Arguments{0});
    EXPECT_EQ(record.arguments("c_aa_configure"), (Arguments{1, 3}));
    EXPECT_EQ(record.arguments("c_aa_i2c_pullup"), (Arguments{1, 3}));
    EXPECT_EQ(record.calls("c_aa_target_power"), 0);
    EXPECT_EQ(record.arguments("c_aa_i2c_bitrate"), (Arguments{1, 100}));
    EXPECT_EQ(record.arguments("c_aa_i2c_bus_timeout"), (Arguments{1, 200}));
    EXPECT_THAT(log.lines(), IsEmpty());
  });
}

TEST_F(QLTAardvarkI2CTest, OpensWithTheSettingsInOrder) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    adapter.setPowerTarget(true);
    adapter.setEnablePullUp(false);
    adapter.setBitRate(400);
    adapter.setBusTimeoutInMilliSecond(0x10005);
    EXPECT_TRUE(adapter.powerTarget());
    EXPECT_FALSE(adapter.enablePullUp());
    EXPECT_EQ(adapter.bitRate(), 400);
    EXPECT_EQ(adapter.busTimeoutInMilliSecond(), 0x10005);
    EXPECT_TRUE(adapter.open());
    EXPECT_EQ(record.arguments("c_aa_i2c_pullup"), (Arguments{1, 0}));
    EXPECT_EQ(record.arguments("c_aa_target_power"), (Arguments{1, 3}));
    EXPECT_EQ(record.arguments("c_aa_i2c_bitrate"), (Arguments{1, 400}));
    EXPECT_EQ(record.arguments("c_aa_i2c_bus_timeout"), (Arguments{1, 5}));
    const int first = record.position("c_aa_open");
    EXPECT_EQ(record.position("c_aa_configure"), first + 1);
    EXPECT_EQ(record.position("c_aa_i2c_pullup"), first + 2);
    EXPECT_EQ(record.position("c_aa_target_power"), first + 3);
    EXPECT_EQ(record.position("c_aa_i2c_bitrate"), first + 4);
    EXPECT_EQ(record.position("c_aa_i2c_bus_timeout"), first + 5);
  });
}

TEST_F(QLTAardvarkI2CTest, KeepsWhatTheAdapterGranted) {
  run([](const StandInRecord& record) {
    record.setResult("c_aa_i2c_bitrate", 99);
    record.setResult("c_aa_i2c_bus_timeout", 198);
    QLTAardvarkI2C adapter(0);
    EXPECT_TRUE(adapter.open());
    EXPECT_EQ(adapter.bitRate(), 99);
    EXPECT_EQ(adapter.busTimeoutInMilliSecond(), 198);
  });
}

TEST_F(QLTAardvarkI2CTest, KeepsNegativeAnswersAndReportsNone) {
  run([](const StandInRecord& record) {
    for (const char* function : {"c_aa_configure", "c_aa_i2c_pullup", "c_aa_target_power",
                                 "c_aa_i2c_bitrate", "c_aa_i2c_bus_timeout"}) {
      record.setResult(function, -9);
    }
    const ConsoleLog log;
    QLTAardvarkI2C adapter(0);
    adapter.setPowerTarget(true);
    QLTError error = earlierError();
    EXPECT_TRUE(adapter.open(&error));
    EXPECT_THAT(error, isUntouched());
    EXPECT_EQ(adapter.bitRate(), -9);
    EXPECT_EQ(adapter.busTimeoutInMilliSecond(), -9);
    EXPECT_THAT(log.lines(), IsEmpty());
  });
}

TEST_F(QLTAardvarkI2CTest, TakesSettingsOverAtTheNextOpenOnly) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    EXPECT_TRUE(adapter.open());
    const int last = record.position("c_aa_i2c_bus_timeout");
    adapter.setPowerTarget(true);
    adapter.setEnablePullUp(false);
    adapter.setBitRate(400);
    adapter.setBusTimeoutInMilliSecond(50);
    EXPECT_TRUE(adapter.close());
    EXPECT_EQ(record.position("c_aa_close"), last + 1);
    EXPECT_TRUE(adapter.open());
    EXPECT_EQ(record.arguments("c_aa_i2c_bitrate"), (Arguments{1, 400}));
    EXPECT_EQ(record.calls("c_aa_target_power"), 1);
  });
}

TEST_F(QLTAardvarkI2CTest, TellsThePortThatDoesNotOpenAndSetsNothing) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(3);
    expectFailure([&](QLTError* error) { return adapter.open(error); }, -90001,
                  "Error openning Aardvard at port 3");
    EXPECT_EQ(record.calls("c_aa_configure"), 0);
    EXPECT_EQ(record.calls("c_aa_i2c_bitrate"), 0);
    EXPECT_EQ(adapter.bitRate(), 100);
    EXPECT_EQ(adapter.busTimeoutInMilliSecond(), 200);
  });
}

TEST_F(QLTAardvarkI2CTest, TakesAHandleOf0ForOpen) {
  run([](const StandInRecord& record) {
    record.setResult("c_aa_open", 0);
    QLTAardvarkI2C adapter(0);
    EXPECT_TRUE(adapter.open());
    EXPECT_EQ(record.arguments("c_aa_configure"), (Arguments{0, 3}));
  });
}

TEST_F(QLTAardvarkI2CTest, ClosesItsHandleWithTrueWhateverTheLibraryAnswers) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "3");
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(2);
    ASSERT_TRUE(adapter.open());
    QLTError error = earlierError();
    EXPECT_TRUE(adapter.close(&error));
    EXPECT_EQ(record.arguments("c_aa_close"), Arguments{3});
    record.setResult("c_aa_close", -5);
    EXPECT_TRUE(adapter.close(&error));
    EXPECT_TRUE(adapter.close());
    EXPECT_THAT(error, isUntouched());
    EXPECT_TRUE(adapter.open());
  });
}

TEST_F(QLTAardvarkI2CTest, OpensAnOpenAdapterAnew) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    EXPECT_TRUE(adapter.open());
    EXPECT_EQ(record.calls("c_aa_close"), 1);
    EXPECT_EQ(record.arguments("c_aa_close"), Arguments{1});
    EXPECT_TRUE(adapter.write(kEeprom, QLTData{0}));
    EXPECT_TRUE(adapter.close());
    EXPECT_TRUE(QLTAardvarkI2C(0).open());
  });
}

TEST_F(QLTAardvarkI2CTest, ForgetsTheHandleThatItClosed) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C closed(0);
    ASSERT_TRUE(closed.open());
    ASSERT_TRUE(closed.close());
    QLTAardvarkI2C other(0);
    ASSERT_TRUE(other.open());  // gets the same handle
    EXPECT_FALSE(closed.write(kEeprom, QLTData{0}));
    EXPECT_TRUE(closed.close());
    EXPECT_TRUE(other.write(kEeprom, QLTData{0}));
  });
}

TEST_F(QLTAardvarkI2CTest, LeavesTheAdapterOpenWhenItIsDestroyed) {
  run([](const StandInRecord& record) {
    { ASSERT_TRUE(QLTAardvarkI2C(0).open()); }
    EXPECT_EQ(record.calls("c_aa_close"), 0);
  });
}

// Writing.

TEST_F(QLTAardvarkI2CTest, WritesAndLogsTheBytes) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    const ConsoleLog log;
    QLTError error = earlierError();
    const QLTData content{0x0A, 0xFF};
    EXPECT_TRUE(adapter.write(kEeprom, content, &error));
    EXPECT_THAT(error, isUntouched());
    EXPECT_THAT(log.lines(),
                ElementsAre("wrote 2 bytes to Aardvard I2C port 0, address 0x50: 0a,ff"));
    const Arguments passed = record.arguments("c_aa_i2c_write_ext");
    EXPECT_THAT((std::vector(passed.begin(), passed.begin() + 4)), ElementsAre(1, 0x50, 0, 2));
    EXPECT_EQ(passed[4], reinterpret_cast<std::uintptr_t>(content.data()));
  });
}

TEST_F(QLTAardvarkI2CTest, WritesPartOfABuffer) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    const ConsoleLog log;
    const std::array<std::uint8_t, 4> buffer{1, 2, 3, 4};
    EXPECT_TRUE(adapter.write(kEeprom, {buffer.data(), 1}));
    EXPECT_THAT(log.lines(), ElementsAre("wrote 1 bytes to Aardvard I2C port 0, address 0x50: 01"));
  });
}

TEST_F(QLTAardvarkI2CTest, WritesNothing) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    const ConsoleLog log;
    EXPECT_TRUE(adapter.write(kEeprom, {}));
    EXPECT_EQ(record.arguments("c_aa_i2c_write_ext")[3], 0U);
    EXPECT_THAT(log.lines(), ElementsAre("wrote 0 bytes to Aardvard I2C port 0, address 0x50: "));
  });
}

TEST_F(QLTAardvarkI2CTest, TellsTheStatusOfAWriteThatFailed) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    expectFailure(
        [&](QLTError* error) {
          return adapter.write(kNothingThere, QLTData{1, 2}, error);
        },
        kNotAcknowledged,
        "Error writting aardvar I2c @port 0, address 0x51: address not acknowledged");
  });
}

TEST_F(QLTAardvarkI2CTest, TellsHowManyBytesAShortWriteTook) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "8");
  process.setEnvironment("AARDVARK_STANDIN_WRITE_LIMIT", "1");
  process.setEnvironment("AARDVARK_STANDIN_EEPROM", "0x08");
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(7);
    ASSERT_TRUE(adapter.open());
    expectFailure(
        [&](QLTError* error) {
          return adapter.write(8, QLTData{1, 2}, error);
        },
        -90003, "Error writting aardvark I2c @port 7, addres 0x08: 1 of 2 bytes written");
  });
}

TEST_F(QLTAardvarkI2CTest, FailsToWriteWhenAPositiveStatusComesWithNoBytes) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    record.setResult("c_aa_i2c_write_ext", 3);
    expectFailure(
        [&](QLTError* error) {
          return adapter.write(kEeprom, QLTData{1, 2}, error);
        },
        -90003, "Error writting aardvark I2c @port 0, addres 0x50: 0 of 2 bytes written");
  });
}

TEST_F(QLTAardvarkI2CTest, PassesTheLow16BitsOfAddressAndLength) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    expectFailure([&](QLTError* error) { return adapter.write(0x70050, QLTData(0x10002), error); },
                  -90003,
                  "Error writting aardvark I2c @port 0, addres 0x70050: 2 of 65538 bytes written");
    EXPECT_EQ(record.arguments("c_aa_i2c_write_ext")[1], 0x50U);
    EXPECT_EQ(record.arguments("c_aa_i2c_write_ext")[3], 2U);
    EXPECT_EQ(adapter.read(0x70050, 0x10002), QLTData(2));
    EXPECT_EQ(record.arguments("c_aa_i2c_read_ext")[1], 0x50U);
    EXPECT_EQ(record.arguments("c_aa_i2c_read_ext")[3], 2U);
  });
}

TEST_F(QLTAardvarkI2CTest, ShowsAnAddressBelow0With32Bits) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    expectFailure([&](QLTError* error) { return adapter.write(-2, QLTData{1}, error); },
                  kNotAcknowledged,
                  "Error writting aardvar I2c @port 0, address 0xfffffffe: "
                  "address not acknowledged");
  });
}

// Reading.

TEST_F(QLTAardvarkI2CTest, ReadsWhatWasWritten) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    ASSERT_TRUE(adapter.write(kEeprom, QLTData{0xFE, 0x0A, 0xFF, 0x33}));
    ASSERT_TRUE(adapter.write(kEeprom, QLTData{0xFE}));
    const ConsoleLog log;
    QLTError error = earlierError();
    // Past the last register comes the first.
    EXPECT_EQ(adapter.read(kEeprom, 2, &error), (QLTData{0x0A, 0xFF}));
    EXPECT_EQ(adapter.read(kEeprom, 2, &error), (QLTData{0x33, 0x00}));
    EXPECT_THAT(error, isUntouched());
    EXPECT_THAT(log.lines(),
                ElementsAre("read 2 bytes from Aardvard I2C port 0, address 0x50: <0aff>",
                            "read 2 bytes from Aardvard I2C port 0, address 0x50: <3300>"));
    const Arguments passed = record.arguments("c_aa_i2c_read_ext");
    EXPECT_THAT((std::vector(passed.begin(), passed.begin() + 4)), ElementsAre(1, 0x50, 0, 2));
  });
}

TEST_F(QLTAardvarkI2CTest, ReadsFewerBytesThanAskedWithoutAnError) {
  process.setEnvironment("AARDVARK_STANDIN_READ_LIMIT", "3");
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    ASSERT_TRUE(adapter.write(kEeprom, QLTData{0, 1, 2, 3, 4}));
    ASSERT_TRUE(adapter.write(kEeprom, QLTData{0}));
    const ConsoleLog log;
    QLTError error = earlierError();
    EXPECT_EQ(adapter.read(kEeprom, 4, &error), (QLTData{1, 2, 3}));
    EXPECT_THAT(error, isUntouched());
    EXPECT_THAT(log.lines(),
                ElementsAre("read 3 bytes from Aardvard I2C port 0, address 0x50: <010203>"));
  });
}

TEST_F(QLTAardvarkI2CTest, ReadsNothingAsEmptyData) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    const ConsoleLog log;
    EXPECT_EQ(adapter.read(kEeprom, 0), QLTData{});
    EXPECT_THAT(log.lines(),
                ElementsAre("read 0 bytes from Aardvard I2C port 0, address 0x50: <>"));
  });
}

TEST_F(QLTAardvarkI2CTest, TellsTheStatusOfAReadThatFailed) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    expectFailure(
        [&](QLTError* error) { return adapter.read(kNothingThere, 4, error).has_value(); },
        kNotAcknowledged, "Error reading aardvar I2c @port 0: address not acknowledged");
  });
}

TEST_F(QLTAardvarkI2CTest, ShowsAStatusWithoutTextAsNull) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    record.setResult("c_aa_i2c_write_ext", -999);
    record.setResult("c_aa_i2c_read_ext", -999);
    expectFailure([&](QLTError* error) { return adapter.write(kEeprom, {}, error); }, -999,
                  "Error writting aardvar I2c @port 0, address 0x50: (null)");
    expectFailure([&](QLTError* error) { return adapter.read(kEeprom, 1, error).has_value(); },
                  -999, "Error reading aardvar I2c @port 0: (null)");
  });
}

TEST_F(QLTAardvarkI2CTest, FailsToTransferWhenItIsNotOpen) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0);
    expectFailure([&](QLTError* error) { return adapter.write(kEeprom, QLTData{1}, error); },
                  kBadHandle, "Error writting aardvar I2c @port 0, address 0x50: adapter not open");
    expectFailure([&](QLTError* error) { return adapter.read(kEeprom, 1, error).has_value(); },
                  kBadHandle, "Error reading aardvar I2c @port 0: adapter not open");
  });
}

TEST_F(QLTAardvarkI2CTest, SleepsInTheLibrary) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    adapter.sleepMSecond(2);
    EXPECT_EQ(record.arguments("c_aa_sleep_ms"), Arguments{2});
  });
}

// Without the library.

TEST_F(QLTAardvarkI2CTest, FailsCleanlyWithoutTheLibrary) {
  process.run([] {
    EXPECT_EQ(QLTAardvarkI2C::detectAardvarks(), std::nullopt);
    QLTAardvarkI2C adapter(0);
    expectFailure([&](QLTError* error) { return adapter.open(error); }, -90001,
                  "Error openning Aardvard at port 0");
    expectFailure([&](QLTError* error) { return adapter.write(kEeprom, QLTData{1}, error); }, -1,
                  "Error writting aardvar I2c @port 0, address 0x50: (null)");
    expectFailure([&](QLTError* error) { return adapter.read(kEeprom, 1, error).has_value(); }, -1,
                  "Error reading aardvar I2c @port 0: (null)");
    EXPECT_TRUE(adapter.close());
    adapter.sleepMSecond(1);
  });
}

// Lost adapters.

TEST_F(QLTAardvarkI2CTest, AdapterIsLostWhenTheLibraryListsItNoLonger) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "2");
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(1);
    EXPECT_EQ(adapter.where(), "I2C adapter 1");
    EXPECT_FALSE(adapter.isLost());  // never opened
    EXPECT_EQ(record.calls("c_aa_find_devices"), 0);
    ASSERT_TRUE(adapter.open());
    EXPECT_FALSE(adapter.isLost());
    setenv("AARDVARK_STANDIN_ADAPTERS", "1", 1);
    EXPECT_TRUE(adapter.isLost());
    QLTError error;
    EXPECT_FALSE(adapter.reopen(&error));
    expectError(error, -90001, "Error openning Aardvard at port 1");
    EXPECT_TRUE(adapter.isLost());
    setenv("AARDVARK_STANDIN_ADAPTERS", "2", 1);
    EXPECT_TRUE(adapter.isLost());  // until somebody opens it
    error = earlierError();
    EXPECT_TRUE(adapter.reopen(&error));
    EXPECT_THAT(error, isUntouched());
    EXPECT_FALSE(adapter.isLost());
    EXPECT_TRUE(adapter.write(kEeprom, QLTData{0x00}));
    setenv("AARDVARK_STANDIN_ADAPTERS", "0", 1);
    EXPECT_TRUE(adapter.isLost());
    adapter.close();
    EXPECT_FALSE(adapter.isLost());
  });
}

TEST_F(QLTAardvarkI2CTest, AdapterIsNotLostWhileTheLibraryCannotTell) {
  run([](const StandInRecord& record) {
    QLTAardvarkI2C adapter(0);
    ASSERT_TRUE(adapter.open());
    record.setResult("c_aa_find_devices", -7);
    EXPECT_FALSE(adapter.isLost());
    record.setResult("c_aa_find_devices", 17);  // more than it has listed
    EXPECT_FALSE(adapter.isLost());
  });
}

TEST_F(QLTAardvarkI2CTest, AdapterThatIsMarkedAsInUseIsFoundByItsNumber) {
  run([](const StandInRecord&) {
    QLTAardvarkI2C adapter(0x8000);
    EXPECT_EQ(adapter.where(), "I2C adapter 0");
  });
}

}  // namespace
