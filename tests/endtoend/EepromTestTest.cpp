#include <cstdlib>

#include "StationProcess.h"

// The EEPROM test of the examples, with the stand-in for the adapter's library and without it.

namespace {

using test::StationProcess;
using testing::AllOf;
using testing::HasSubstr;

class EepromTest : public testing::Test {
 protected:
  void SetUp() override {
    // The example file itself, so that it stays one that works.
    const std::string example =
        test::contentOf(std::string(EEPROM_TEST_SOURCES) + "/TesterConfig_oc.csv");
    const std::string header = "name,class,sim,attributes\n";
    ASSERT_TRUE(example.starts_with(header));
    ASSERT_NO_THROW(test::writeTesterConfig(example.substr(header.size())));
    set("LD_LIBRARY_PATH", AARDVARK_FOLDER);
  }
  void TearDown() override {
    for (const char* name : set_) unsetenv(name);
  }

  /// Sets a variable of the environment for this test.
  void set(const char* name, const char* value) {
    setenv(name, value, 1);
    set_.push_back(name);
  }

  static StationProcess testBoard(const std::string& flow = "main") {
    return StationProcess({"run", EEPROM_TEST_BUNDLE, "--flow", flow, "--sn", "bench=QB1"});
  }

  /// Expects that the station does not load, for this reason.
  static void expectNoLoad(const std::string& reason) {
    StationProcess station = testBoard();
    EXPECT_EQ(station.wait(), 2);
    EXPECT_THAT(station.errors(),
                HasSubstr("load instruments failed. Tests can not be run. Details: Error openning "
                          "Aardvard at port 0: " +
                          reason + "\n"));
    EXPECT_EQ(station.results(), "");
  }

 private:
  std::vector<const char*> set_;
};

constexpr const char* kHeader =
    "runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,\n";

}  // namespace

TEST_F(EepromTest, showsAndLogsABoardThatPasses) {
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 0) << station.errors();
  EXPECT_EQ(station.steadyOutput(),
            "bench  PASS  Program EEPROM  0.0 s\n"
            "bench  PASS  Verify EEPROM   0.0 s\n"
            "bench  PASS  device QB1 in 0.0 s\n"
            "\n"
            "Site   Serial number  Result      Time   First failure\n"
            "bench  QB1            PASS        0.0 s\n"
            "\n"
            "1 passed, 0 failed, 0 broken off\n"
            "Results:     logs/eeprom-test_STAMP.csv\n"
            "Diagnostics: logs/eeprom-test_STAMP.log\n");
  EXPECT_EQ(station.errors(), "");
  EXPECT_EQ(station.results(), std::string(kHeader) +
                                   "1,QB1,bench,Program EEPROM,bytes written,1.1,from 25.000000 to "
                                   "25.000000,25.000000,P,\"\",\n"
                                   "1,QB1,bench,Verify EEPROM,checksum,2.1,OK,1,P,\"\",\n"
                                   "1,QB1,bench,Verify EEPROM,part number,2.2,QB2601,1,P,\"\",\n"
                                   "1,QB1,bench,Verify EEPROM,serial number,2.3,QB1,1,P,\"\",\n");
  EXPECT_THAT(station.diagnostics(),
              HasSubstr("[bench] wrote 9 bytes to Aardvard I2C port 0, address 0x50: "
                        "00,51,42,32,36,30,31,00,00\n"));
}

TEST_F(EepromTest, anEmptyEepromFails) {
  StationProcess station = testBoard("verify");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("bench  FAIL  Verify EEPROM  0.0 s  checksum: the EEPROM holds no record "
                        "(expected: OK)\n"));
  EXPECT_EQ(station.results(),
            std::string(kHeader) +
                "1,QB1,bench,Verify EEPROM,checksum,1.1,OK,0,F,\"the EEPROM holds no record\",\n");
}

TEST_F(EepromTest, anEepromThatDoesNotAnswerFails) {
  set("AARDVARK_STANDIN_EEPROM", "0x51");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(station.results(),
            std::string(kHeader) +
                "1,QB1,bench,Program EEPROM,bytes written,1.1,from 25.000000 to 25.000000,run time "
                "error,F,\"Error writting aardvar I2c @port 0, address 0x50: address not "
                "acknowledged\",\n");
}

TEST_F(EepromTest, anEepromThatTakesLessFails) {
  set("AARDVARK_STANDIN_WRITE_LIMIT", "7");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(),
              HasSubstr("bytes written: Error writting aardvark I2c @port 0, addres 0x50: 7 of 9 "
                        "bytes written\n"));
}

TEST_F(EepromTest, anEepromThatGivesLessFails) {
  set("AARDVARK_STANDIN_READ_LIMIT", "7");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("checksum: the EEPROM gave only 7 bytes\n"));
}

TEST_F(EepromTest, aSerialNumberThatDoesNotFitFails) {
  StationProcess station({"run", EEPROM_TEST_BUNDLE, "--sn", "bench=12345678901234567"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("bytes written: the part number or the serial number is "
                                          "too long for the EEPROM\n"));
}

TEST_F(EepromTest, aStationWithoutTheLibrarySaysSo) {
  unsetenv("LD_LIBRARY_PATH");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(),
              testing::StartsWith("quillon: cannot load " EEPROM_TEST_BUNDLE
                                  ":\nload instruments failed. Tests can not be run. Details: "
                                  "Error openning Aardvard at port 0: the adapter's library "
                                  "aardvark.so is missing or does not load; put it beside the "
                                  "station application\n"));
  // The binding's own words.
  EXPECT_THAT(station.diagnostics(),
              AllOf(HasSubstr("[output] Unable to load aardvark.so\n"),
                    HasSubstr("[output] aardvark.so: cannot open shared object file: No such file "
                              "or directory\n")));
  EXPECT_EQ(station.results(), "");
}

TEST_F(EepromTest, aStationWithAnOldLibrarySaysSo) {
  set("AARDVARK_STANDIN_VERSION", "0x05090509");
  expectNoLoad("the adapter's library aardvark.so does not fit: version 5.10 or newer is needed");
}

TEST_F(EepromTest, aStationWithoutAnAdapterSaysSo) {
  set("AARDVARK_STANDIN_ADAPTERS", "0");
  expectNoLoad("no adapter is attached");
}

TEST_F(EepromTest, aPortThatIsNotThereIsSaidSo) {
  test::writeTesterConfig("adapter,I2cAdapter,0,port=3\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("Error openning Aardvard at port 3: it is in use, or is "
                                          "none of the 1 attached\n"));
}
