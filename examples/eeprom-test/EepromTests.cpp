// Tests of the board's EEPROM, which holds the board's record (see BoardRecord.h).

#include <algorithm>
#include <cstdint>
#include <string>

#include <QLTAardvarkI2C.h>
#include <QLTestMethod.h>

#include "BoardRecord.h"

namespace {

/// What the tests have in common. Parameter "address": the EEPROM's 7-bit bus address.
class EepromTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

 protected:
  std::int32_t address() const {
    const QLTValue* const address = param("address");
    return address != nullptr ? address->intValue() : 0;
  }
  std::string serialNumber() const { return suite()->currentSN().value_or(""); }
};

/// Writes the record of the board under test.
///
/// Sub-test 1: how many bytes were written. Parameter "partNumber": the part number to write.
class EepromProgramTest : public EepromTest {
 public:
  using EepromTest::EepromTest;

  bool run(std::int32_t, QLTError* error) override {
    const auto adapter = exclusive<QLTAardvarkI2C>("adapter", error);
    if (!adapter) return false;  // the error names the site that holds it
    const QLTValue* const partNumber = param("partNumber");
    const BoardRecord record{partNumber != nullptr ? partNumber->text() : "", serialNumber()};
    const auto bytes = record.encoded();
    if (!bytes) {
      addRuntimeError(1, "the part number or the serial number is too long for the EEPROM");
      return false;
    }
    QLTError problem;
    if (!write(*adapter, *bytes, &problem)) {
      addRuntimeError(1, problem.description());
      return false;
    }
    return addResultAndCompare(1, static_cast<double>(bytes->size())) == kQLTestResultPass;
  }

 private:
  /// Writes page by page: an EEPROM takes no more at once, and then is busy for a while.
  bool write(QLTAardvarkI2C& adapter, const QLTData& bytes, QLTError* error) const {
    constexpr std::size_t kPageSize = 8;
    constexpr std::uint32_t kWriteCycleInMilliseconds = 5;
    for (std::size_t start = 0; start < bytes.size(); start += kPageSize) {
      QLTData message{static_cast<std::uint8_t>(start)};  // the register to begin with
      const auto end = std::min(start + kPageSize, bytes.size());
      message.insert(message.end(), bytes.begin() + static_cast<std::ptrdiff_t>(start),
                     bytes.begin() + static_cast<std::ptrdiff_t>(end));
      if (!adapter.write(address(), message, error)) return false;
      adapter.sleepMSecond(kWriteCycleInMilliseconds);
    }
    return true;
  }
};

/// Reads the record back and checks it.
///
/// Sub-test 1: the checksum. Sub-test 2: the part number. Sub-test 3: the serial number, expected
/// to be that of the board under test.
class EepromVerifyTest : public EepromTest {
 public:
  using EepromTest::EepromTest;

  bool run(std::int32_t, QLTError* error) override {
    const auto adapter = exclusive<QLTAardvarkI2C>("adapter", error);
    if (!adapter) return false;
    QLTError problem;
    const bool asked = adapter->write(address(), QLTData{0}, &problem);  // from register 0 on
    const auto bytes =
        asked ? adapter->read(address(), BoardRecord::kSize, &problem) : std::nullopt;
    if (!bytes) {
      addRuntimeError(1, problem.description());
      return false;
    }
    if (bytes->size() != BoardRecord::kSize) {  // no error of the adapter's
      addRuntimeError(1, "the EEPROM gave only " + std::to_string(bytes->size()) + " bytes");
      return false;
    }
    const std::string checksum = BoardRecord::isIntact(*bytes) ? "OK" : "wrong";
    if (addResultAndMatch(1, checksum, {}, subTests().at(0)->failMessage()) != kQLTestResultPass) {
      return false;
    }
    const BoardRecord record = BoardRecord::decoded(*bytes);
    subTests().at(2)->setExpected(serialNumber());
    const bool isPart = addResultAndMatch(2, record.partNumber) == kQLTestResultPass;
    const bool isBoard = addResultAndMatch(3, record.serialNumber) == kQLTestResultPass;
    return isPart && isBoard;
  }
};

}  // namespace

QLT_CLASS(EepromProgramTest);
QLT_CLASS(EepromVerifyTest);
