#pragma once

#include <memory>

#include <QLTAardvarkI2C.h>
#include <QLTError.h>
#include <QLTValue.h>

/// The station's I2C adapter as an instrument of the tester-config file: opened with it, and closed
/// with the station. One caller at a time.
class I2cAdapter : public QLTAardvarkI2C {
 public:
  /// Opens the adapter of one line of the tester-config file: "port", 0 where there is none. Null
  /// when it cannot be opened; the error then tells whether library or adapter is missing.
  static std::shared_ptr<I2cAdapter> fromEntry(const QLTDictionary& entry, QLTError* error);

  using QLTAardvarkI2C::QLTAardvarkI2C;
  ~I2cAdapter() override;

 private:
  bool isOpen_ = false;
};
