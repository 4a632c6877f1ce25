// A stand-in for the Aardvark adapter's run-time library "aardvark.so": adapters, each with an I2C
// bus that carries one EEPROM, so that code which uses an adapter runs without one.
//
// The EEPROM has 256 registers. A write sets the register pointer to its first byte and stores the
// bytes that follow from there on; a read continues from the pointer. Both wrap round. Nothing else
// answers on the bus. SPI, the pins, the monitor and the slave functions take their arguments and
// give 0.
//
// The environment configures it, read anew at every call (numbers are decimal, or hexadecimal with
// 0x):
//   AARDVARK_STANDIN_ADAPTERS     how many adapters are attached; their ports count from 0 (1)
//   AARDVARK_STANDIN_EEPROM       the EEPROM's bus address (0x50)
//   AARDVARK_STANDIN_WRITE_LIMIT  the EEPROM takes at most so many bytes of a write (65535)
//   AARDVARK_STANDIN_READ_LIMIT   the EEPROM gives at most so many bytes of a read (65535)
//   AARDVARK_STANDIN_VERSION      what c_version tells: low half the library's own version, high
//   half the oldest
//                                 binding it accepts (0x050A050A, both 5.10)
//
// Tests find a record of the calls in aardvark_standin.h. Defining one of these leaves a function
// out: AARDVARK_STANDIN_WITHOUT_VERSION (c_version), AARDVARK_STANDIN_WITHOUT_GPIO_CHANGE
// (c_aa_gpio_change).
//
// Numeric parameters are 32 bits wide here also where the interface has 8 or 16 bits, so that the
// record shows all that the caller passed. Any thread.

#include "aardvark_standin.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <concepts>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <QLTExport.h>
#include <aardvark.h>

namespace {

// The stand-in's own numbering; the only promise is that failures are negative.
enum Status {
  kOk = 0,
  kNoSuchPort = -201,
  kPortInUse = -202,
  kBadHandle = -203,
  kNotAcknowledged = -204
};

struct Adapter {
  bool isOpen = false;
  int configuration = kAardvarkConfigSpiI2c;
  int bitRate = 100;
  int busTimeout = 200;
  int pullups = kAardvarkPullupNone;
  int targetPower = kAardvarkTargetPowerNone;
  std::array<std::uint8_t, 256> registers{};
  std::uint8_t pointer = 0;
};

struct Record {
  int calls = 0;
  int position = 0;
  std::vector<std::uint64_t> arguments;
  std::optional<int> result;
};

std::mutex mutex;  // guards all of the stand-in's state
std::map<int, Adapter> adapters;
std::map<std::string, Record, std::less<>> records;
int callsOfAll = 0;

std::uint32_t setting(const char* name, std::uint32_t standard) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)) : standard;
}

int adapterCount() { return static_cast<int>(setting("AARDVARK_STANDIN_ADAPTERS", 1)); }

template <std::integral T>
std::uint64_t recorded(T number) {
  return static_cast<std::uint32_t>(number);
}
std::uint64_t recorded(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

template <typename... Values>
std::vector<std::uint64_t> passed(Values... values) {
  return {recorded(values)...};
}

int nothing() { return kOk; }

/// Records the call, then gives the result that was set for the function, else that of `action`.
template <typename Action = int (*)()>
int perform(const char* function, std::vector<std::uint64_t> arguments,
            const Action& action = nothing) {
  const std::lock_guard lock(mutex);
  Record& record = records[function];
  ++record.calls;
  record.position = ++callsOfAll;
  record.arguments = std::move(arguments);
  return record.result ? *record.result : action();
}

// A handle is the port's number plus 1.

int openPort(int port) {
  if (port < 0 || port >= adapterCount()) return kNoSuchPort;
  Adapter& adapter = adapters[port];
  if (adapter.isOpen) return kPortInUse;
  adapter.isOpen = true;
  return port + 1;
}

/// Performs `action` on the adapter of an open handle.
template <typename Action>
int withAdapter(int handle, const Action& action) {
  const auto found = adapters.find(handle - 1);
  if (found == adapters.end() || !found->second.isOpen) return kBadHandle;
  return action(found->second);
}

/// Sets one of an adapter's settings and gives what it is now.
template <typename Value>
auto change(int handle, int Adapter::*field, Value value) {
  return [=] {
    return withAdapter(handle,
                       [=](Adapter& adapter) { return adapter.*field = static_cast<int>(value); });
  };
}

int writeEeprom(Adapter& adapter, std::uint32_t address, std::uint32_t count,
                const std::uint8_t* bytes, std::uint16_t& written) {
  written = 0;
  if (address != setting("AARDVARK_STANDIN_EEPROM", 0x50)) return kNotAcknowledged;
  written = static_cast<std::uint16_t>(
      std::min({count, setting("AARDVARK_STANDIN_WRITE_LIMIT", 0xFFFF), 0xFFFFU}));
  for (std::uint16_t i = 0; i < written; ++i) {
    if (i == 0) {
      adapter.pointer = bytes[0];
    } else {
      adapter.registers[adapter.pointer++] = bytes[i];
    }
  }
  return kOk;
}

int readEeprom(Adapter& adapter, std::uint32_t address, std::uint32_t count, std::uint8_t* bytes,
               std::uint16_t& read) {
  read = 0;
  if (address != setting("AARDVARK_STANDIN_EEPROM", 0x50)) return kNotAcknowledged;
  read = static_cast<std::uint16_t>(
      std::min({count, setting("AARDVARK_STANDIN_READ_LIMIT", 0xFFFF), 0xFFFFU}));
  for (std::uint16_t i = 0; i < read; ++i) bytes[i] = adapter.registers[adapter.pointer++];
  return kOk;
}

int findDevices(int capacity, std::uint16_t* ports, int idCapacity, std::uint32_t* ids) {
  const int count = adapterCount();
  for (int port = 0; port < count; ++port) {
    if (port < capacity) {
      const bool inUse = adapters[port].isOpen;
      ports[port] = static_cast<std::uint16_t>(port | (inUse ? kAardvarkPortInUse : 0));
    }
    if (port < idCapacity) ids[port] = 1000U + static_cast<std::uint32_t>(port);
  }
  return count;
}

const AardvarkVersion kVersions{0x050A, 0x050A, 0x050A, 0, 0, 0x050A};

}  // namespace

#define EXPORT extern "C" QLT_EXPORT

// The record.

EXPORT int aardvark_standin_calls(const char* function) {
  const std::lock_guard lock(mutex);
  const auto found = records.find(std::string_view(function));
  return found != records.end() ? found->second.calls : 0;
}

EXPORT int aardvark_standin_arguments(const char* function, std::uint64_t* arguments,
                                      int capacity) {
  const std::lock_guard lock(mutex);
  const auto found = records.find(std::string_view(function));
  if (found == records.end() || found->second.calls == 0) return -1;
  const auto& last = found->second.arguments;
  const auto count = static_cast<int>(last.size());
  std::copy_n(last.begin(), std::min(count, capacity), arguments);
  return count;
}

EXPORT int aardvark_standin_position(const char* function) {
  const std::lock_guard lock(mutex);
  const auto found = records.find(std::string_view(function));
  return found != records.end() ? found->second.position : 0;
}

EXPORT void aardvark_standin_set_result(const char* function, int result) {
  const std::lock_guard lock(mutex);
  records[function].result = result;
}

// Adapters.

#ifndef AARDVARK_STANDIN_WITHOUT_VERSION
EXPORT std::uint32_t c_version() {
  return static_cast<std::uint32_t>(perform(__func__, passed(), [] {
    return static_cast<int>(setting("AARDVARK_STANDIN_VERSION", 0x050A050A));
  }));
}
#endif

EXPORT int c_aa_find_devices(int capacity, std::uint16_t* ports) {
  return perform(__func__, passed(capacity, ports),
                 [=] { return findDevices(capacity, ports, 0, nullptr); });
}

EXPORT int c_aa_find_devices_ext(int capacity, std::uint16_t* ports, int idCapacity,
                                 std::uint32_t* ids) {
  return perform(__func__, passed(capacity, ports, idCapacity, ids),
                 [=] { return findDevices(capacity, ports, idCapacity, ids); });
}

EXPORT int c_aa_open(int port) {
  return perform(__func__, passed(port), [=] { return openPort(port); });
}

EXPORT int c_aa_open_ext(int port, AardvarkExt* ext) {
  return perform(__func__, passed(port, ext), [=] {
    const int handle = openPort(port);
    if (handle > 0 && ext != nullptr) *ext = {kVersions, 0};
    return handle;
  });
}

EXPORT int c_aa_close(int handle) {
  return perform(__func__, passed(handle), [=] {
    return withAdapter(handle, [](Adapter& adapter) {
      adapter.isOpen = false;
      return 1;
    });
  });
}

EXPORT int c_aa_port(int handle) {
  return perform(__func__, passed(handle),
                 [=] { return withAdapter(handle, [=](Adapter&) { return handle - 1; }); });
}

EXPORT int c_aa_features(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_unique_id(int handle) {
  return perform(__func__, passed(handle),
                 [=] { return withAdapter(handle, [=](Adapter&) { return 1000 + handle - 1; }); });
}

EXPORT const char* c_aa_status_string(int status) {
  perform(__func__, passed(status));
  switch (status) {
    case kOk:
      return "ok";
    case kNoSuchPort:
      return "no adapter at this port";
    case kPortInUse:
      return "port in use";
    case kBadHandle:
      return "adapter not open";
    case kNotAcknowledged:
      return "address not acknowledged";
    default:
      return nullptr;
  }
}

EXPORT int c_aa_log(int handle, int level, int file) {
  return perform(__func__, passed(handle, level, file));
}

EXPORT int c_aa_version(int handle, AardvarkVersion* version) {
  return perform(__func__, passed(handle, version), [=] {
    if (version != nullptr) *version = kVersions;
    return kOk;
  });
}

EXPORT int c_aa_configure(int handle, int configuration) {
  return perform(__func__, passed(handle, configuration),
                 change(handle, &Adapter::configuration, configuration));
}

EXPORT int c_aa_target_power(int handle, std::uint32_t mask) {
  return perform(__func__, passed(handle, mask), change(handle, &Adapter::targetPower, mask));
}

EXPORT int c_aa_sleep_ms(std::uint32_t milliseconds) {
  std::chrono::milliseconds pause{0};
  const int result = perform(__func__, passed(milliseconds), [&] {
    pause = std::chrono::milliseconds(milliseconds);
    return static_cast<int>(milliseconds);
  });
  std::this_thread::sleep_for(pause);  // other threads' calls go on
  return result;
}

EXPORT int c_aa_async_poll(int handle, int timeout) {
  return perform(__func__, passed(handle, timeout));
}

// I2C.

EXPORT int c_aa_i2c_free_bus(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_i2c_bitrate(int handle, int rate) {
  return perform(__func__, passed(handle, rate), change(handle, &Adapter::bitRate, rate));
}

EXPORT int c_aa_i2c_bus_timeout(int handle, std::uint32_t timeout) {
  return perform(__func__, passed(handle, timeout), change(handle, &Adapter::busTimeout, timeout));
}

EXPORT int c_aa_i2c_read(int handle, std::uint32_t address, int flags, std::uint32_t count,
                         std::uint8_t* bytes) {
  return perform(__func__, passed(handle, address, flags, count, bytes), [=] {
    return withAdapter(handle, [=](Adapter& adapter) {
      std::uint16_t read = 0;
      const int status = readEeprom(adapter, address, count, bytes, read);
      return status < 0 ? status : read;
    });
  });
}

EXPORT int c_aa_i2c_read_ext(int handle, std::uint32_t address, int flags, std::uint32_t count,
                             std::uint8_t* bytes, std::uint16_t* read) {
  return perform(__func__, passed(handle, address, flags, count, bytes, read), [=] {
    return withAdapter(handle, [=](Adapter& adapter) {
      return readEeprom(adapter, address, count, bytes, *read);
    });
  });
}

EXPORT int c_aa_i2c_write(int handle, std::uint32_t address, int flags, std::uint32_t count,
                          const std::uint8_t* bytes) {
  return perform(__func__, passed(handle, address, flags, count, bytes), [=] {
    return withAdapter(handle, [=](Adapter& adapter) {
      std::uint16_t written = 0;
      const int status = writeEeprom(adapter, address, count, bytes, written);
      return status < 0 ? status : written;
    });
  });
}

EXPORT int c_aa_i2c_write_ext(int handle, std::uint32_t address, int flags, std::uint32_t count,
                              const std::uint8_t* bytes, std::uint16_t* written) {
  return perform(__func__, passed(handle, address, flags, count, bytes, written), [=] {
    return withAdapter(handle, [=](Adapter& adapter) {
      return writeEeprom(adapter, address, count, bytes, *written);
    });
  });
}

EXPORT int c_aa_i2c_write_read(int handle, std::uint32_t address, int flags, std::uint32_t outCount,
                               const std::uint8_t* out, std::uint16_t* written,
                               std::uint32_t inCount, std::uint8_t* in, std::uint16_t* read) {
  return perform(__func__,
                 passed(handle, address, flags, outCount, out, written, inCount, in, read), [=] {
                   return withAdapter(handle, [=](Adapter& adapter) {
                     *read = 0;
                     const int status = writeEeprom(adapter, address, outCount, out, *written);
                     return status < 0 ? status : readEeprom(adapter, address, inCount, in, *read);
                   });
                 });
}

EXPORT int c_aa_i2c_slave_enable(int handle, std::uint32_t address, std::uint32_t maxOut,
                                 std::uint32_t maxIn) {
  return perform(__func__, passed(handle, address, maxOut, maxIn));
}

EXPORT int c_aa_i2c_slave_disable(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_i2c_slave_set_response(int handle, std::uint32_t count, const std::uint8_t* bytes) {
  return perform(__func__, passed(handle, count, bytes));
}

EXPORT int c_aa_i2c_slave_write_stats(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_i2c_slave_read(int handle, std::uint8_t* address, std::uint32_t count,
                               std::uint8_t* bytes) {
  return perform(__func__, passed(handle, address, count, bytes));
}

EXPORT int c_aa_i2c_slave_write_stats_ext(int handle, std::uint16_t* written) {
  return perform(__func__, passed(handle, written));
}

EXPORT int c_aa_i2c_slave_read_ext(int handle, std::uint8_t* address, std::uint32_t count,
                                   std::uint8_t* bytes, std::uint16_t* read) {
  return perform(__func__, passed(handle, address, count, bytes, read));
}

EXPORT int c_aa_i2c_monitor_enable(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_i2c_monitor_disable(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_i2c_monitor_read(int handle, std::uint32_t count, std::uint16_t* words) {
  return perform(__func__, passed(handle, count, words));
}

EXPORT int c_aa_i2c_pullup(int handle, std::uint32_t mask) {
  return perform(__func__, passed(handle, mask), change(handle, &Adapter::pullups, mask));
}

// SPI.

EXPORT int c_aa_spi_bitrate(int handle, int rate) {
  return perform(__func__, passed(handle, rate));
}

EXPORT int c_aa_spi_configure(int handle, int polarity, int phase, int order) {
  return perform(__func__, passed(handle, polarity, phase, order));
}

EXPORT int c_aa_spi_write(int handle, std::uint32_t outCount, const std::uint8_t* out,
                          std::uint32_t inCount, std::uint8_t* in) {
  return perform(__func__, passed(handle, outCount, out, inCount, in));
}

EXPORT int c_aa_spi_slave_enable(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_spi_slave_disable(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_spi_slave_set_response(int handle, std::uint32_t count, const std::uint8_t* bytes) {
  return perform(__func__, passed(handle, count, bytes));
}

EXPORT int c_aa_spi_slave_read(int handle, std::uint32_t count, std::uint8_t* bytes) {
  return perform(__func__, passed(handle, count, bytes));
}

EXPORT int c_aa_spi_master_ss_polarity(int handle, int polarity) {
  return perform(__func__, passed(handle, polarity));
}

// The pins.

EXPORT int c_aa_gpio_direction(int handle, std::uint32_t mask) {
  return perform(__func__, passed(handle, mask));
}

EXPORT int c_aa_gpio_pullup(int handle, std::uint32_t mask) {
  return perform(__func__, passed(handle, mask));
}

EXPORT int c_aa_gpio_get(int handle) { return perform(__func__, passed(handle)); }

EXPORT int c_aa_gpio_set(int handle, std::uint32_t value) {
  return perform(__func__, passed(handle, value));
}

#ifndef AARDVARK_STANDIN_WITHOUT_GPIO_CHANGE
EXPORT int c_aa_gpio_change(int handle, std::uint32_t timeout) {
  return perform(__func__, passed(handle, timeout));
}
#endif
