// The stand-in for the adapter's library, as a plug-in meets it through the C interface.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>

#include <aardvark.h>

#include "support/FreshProcess.h"
#include "support/aardvark/StandIn.h"

namespace {

using testing::ElementsAre;

constexpr std::uint16_t kEeprom = 0x50;

class AardvarkStandInTest : public testing::Test {
 protected:
  void run(const std::function<void()>& body) {
    process.place(test::standIn(), process.executableFolder() / "aardvark.so");
    process.run(body);
  }

  test::FreshProcess process;
};

TEST_F(AardvarkStandInTest, NumbersItsAdaptersAndMarksThoseInUse) {
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", "3");
  run([] {
    std::array<std::uint16_t, 2> ports{};
    EXPECT_EQ(aa_find_devices(2, ports.data()), 3);
    EXPECT_THAT(ports, ElementsAre(0, 1));
    const Aardvark aardvark = aa_open(1);
    EXPECT_EQ(aa_port(aardvark), 1);
    EXPECT_LT(aa_open(1), 0);
    EXPECT_LT(aa_open(3), 0);
    EXPECT_EQ(aa_find_devices(2, ports.data()), 3);
    EXPECT_THAT(ports, ElementsAre(0, 1 | kAardvarkPortInUse));
    EXPECT_EQ(aa_close(aardvark), 1);
    EXPECT_LT(aa_port(aardvark), 0);
    EXPECT_LT(aa_close(aardvark), 0);
    EXPECT_GT(aa_open(1), 0);
  });
}

TEST_F(AardvarkStandInTest, TellsItsVersionsAndIdentifiers) {
  run([] {
    std::array<std::uint16_t, 1> ports{};
    std::array<std::uint32_t, 1> identifiers{};
    EXPECT_EQ(aa_find_devices_ext(1, ports.data(), 1, identifiers.data()), 1);
    AardvarkExt ext{};
    const Aardvark aardvark = aa_open_ext(0, &ext);
    EXPECT_EQ(ext.version.software, 0x050A);
    EXPECT_EQ(aa_unique_id(aardvark), static_cast<int>(identifiers[0]));
    AardvarkVersion version{};
    EXPECT_EQ(aa_version(aardvark, &version), 0);
    EXPECT_EQ(version.firmware, 0x050A);
  });
}

TEST_F(AardvarkStandInTest, KeepsWhatIsWrittenToItsEeprom) {
  run([] {
    const Aardvark aardvark = aa_open(0);
    const std::array<std::uint8_t, 4> content{0xFF, 1, 2, 3};
    std::array<std::uint8_t, 3> back{};
    EXPECT_EQ(aa_i2c_write(aardvark, kEeprom, 0, 4, content.data()), 4);
    EXPECT_EQ(aa_i2c_write(aardvark, kEeprom, 0, 1, content.data()), 1);
    EXPECT_EQ(aa_i2c_read(aardvark, kEeprom, 0, 3, back.data()), 3);
    EXPECT_THAT(back, ElementsAre(1, 2, 3));
    back = {};
    std::uint16_t written = 9;
    std::uint16_t read = 9;
    EXPECT_EQ(
        aa_i2c_write_read(aardvark, kEeprom, 0, 1, content.data(), &written, 2, back.data(), &read),
        0);
    EXPECT_EQ(written, 1);
    EXPECT_EQ(read, 2);
    EXPECT_THAT(back, ElementsAre(1, 2, 0));
  });
}

TEST_F(AardvarkStandInTest, HasItsEepromWhereTheEnvironmentSays) {
  process.setEnvironment("AARDVARK_STANDIN_EEPROM", "0x22");
  run([] {
    const Aardvark aardvark = aa_open(0);
    const std::array<std::uint8_t, 1> pointer{0};
    EXPECT_EQ(aa_i2c_write(aardvark, 0x22, 0, 1, pointer.data()), 1);
    std::array<std::uint8_t, 1> back{};
    std::uint16_t written = 9;
    std::uint16_t read = 9;
    const int status =
        aa_i2c_write_read(aardvark, kEeprom, 0, 1, pointer.data(), &written, 1, back.data(), &read);
    EXPECT_STREQ(aa_status_string(status), "address not acknowledged");
    EXPECT_EQ(written, 0);
    EXPECT_EQ(read, 0);
    EXPECT_EQ(aa_i2c_read(aardvark, kEeprom, 0, 1, back.data()), status);
    EXPECT_EQ(aa_i2c_write(aardvark, kEeprom, 0, 1, pointer.data()), status);
  });
}

TEST_F(AardvarkStandInTest, TakesAndGivesAsManyBytesAsTheEnvironmentSays) {
  run([] {
    const Aardvark aardvark = aa_open(0);
    std::array<std::uint8_t, 3> bytes{};
    setenv("AARDVARK_STANDIN_WRITE_LIMIT", "2", 1);
    EXPECT_EQ(aa_i2c_write(aardvark, kEeprom, 0, 3, bytes.data()), 2);
    setenv("AARDVARK_STANDIN_READ_LIMIT", "1", 1);
    EXPECT_EQ(aa_i2c_read(aardvark, kEeprom, 0, 3, bytes.data()), 1);
  });
}

}  // namespace
