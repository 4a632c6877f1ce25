#include "I2cAdapter.h"

#include <cstdint>
#include <string>

#include <QLTUtil.h>
#include <aardvark.h>

namespace {

/// Why an adapter does not open. The framework's error only says that it does not.
std::string reason() {
  const int found = aa_find_devices(0, nullptr);
  if (found == kAardvarkNotLoaded) {
    return "the adapter's library aardvark.so is missing or does not load; put it beside the "
           "station application";
  }
  if (found == kAardvarkIncompatible || found == kAardvarkFunctionMissing) {
    return "the adapter's library aardvark.so does not fit: version 5.10 or newer is needed";
  }
  if (found <= 0) return "no adapter is attached";
  return "it is in use, or is none of the " + std::to_string(found) + " attached";
}

}  // namespace

std::shared_ptr<I2cAdapter> I2cAdapter::fromEntry(const QLTDictionary& entry, QLTError* error) {
  const QLTValue* const port = entry.find("port");
  auto adapter = std::make_shared<I2cAdapter>(
      static_cast<std::uint16_t>(port != nullptr ? port->intValue() : 0));
  adapter->setPowerTarget(true);
  QLTError problem;
  adapter->isOpen_ = adapter->open(&problem);
  if (adapter->isOpen_) return adapter;
  if (error != nullptr) {
    const std::string text = problem.description().value_or("") + ": " + reason();
    *error = QLTUtil::handleError(static_cast<std::int32_t>(problem.code()), text);
  }
  return nullptr;
}

I2cAdapter::~I2cAdapter() {
  if (isOpen_) QLTAardvarkI2C::close();  // its base does not
}
