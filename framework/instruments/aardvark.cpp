#include "aardvark.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <type_traits>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "common/Descriptor.h"
#include "common/Retried.h"

namespace quillon::internal {
namespace {

constexpr std::size_t kLongestPath = 256;
constexpr std::uint16_t kBindingVersion = 0x050A;  // 5.10

std::mutex mutex;  // held while a function is looked up, so also over the search and the load

// The file to load; the full path once the search has found it.
char SO_NAME[kLongestPath + 1] = "aardvark.so";

bool _checkPath(const std::string& directory) {
  const std::string path = directory + "/" + SO_NAME;
  const Descriptor file(retried([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!file) return false;
  SO_NAME[path.copy(SO_NAME, kLongestPath)] = '\0';
  return true;
}

/// The path of the running executable; "" when it does not fit into `kLongestPath` with its end.
std::string _getExecPath() {
  char path[kLongestPath];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length < 0 || static_cast<std::size_t>(length) == sizeof path) return {};
  return {path, static_cast<std::size_t>(length)};
}

void _setSearchPath() {
  if (SO_NAME[0] == '/') return;
  std::string directory = _getExecPath();
  if (const auto slash = directory.rfind('/'); slash != std::string::npos) {
    directory.resize(slash == 0 ? 1 : slash);
  }
  if (_checkPath(directory)) return;
  char current[kLongestPath + 1];
  if (getcwd(current, sizeof current) != nullptr) _checkPath(current);
}

void reportLoadFailure() {
  const char* reason = dlerror();
  // One write, so that the two lines stay together whatever else goes to standard error.
  const std::string lines =
      std::string("Unable to load ") + SO_NAME + "\n" + (reason != nullptr ? reason : "") + "\n";
  static_cast<void>(std::fputs(lines.c_str(), stderr));
}

bool isCompatible(void* library) {
  const auto version = reinterpret_cast<std::uint32_t (*)()>(dlsym(library, "c_version"));
  if (version == nullptr) return false;
  const auto own = static_cast<std::uint16_t>(version() & 0xFFFF);
  const auto required = static_cast<std::uint16_t>(version() >> 16);
  return own >= kBindingVersion && required <= kBindingVersion;
}

/// The address of the library's function `name`, or null with the reason in `status`. Loads the
/// library unless an earlier call has.
void* _loadFunction(const char* name, int& status) {
  static void* handle = nullptr;
  const std::lock_guard lock(mutex);
  if (handle == nullptr) {
    _setSearchPath();
    void* library = dlopen(SO_NAME, RTLD_LAZY);
    if (library == nullptr) {
      reportLoadFailure();
      status = kAardvarkNotLoaded;
      return nullptr;
    }
    if (!isCompatible(library)) {
      status = kAardvarkIncompatible;  // the library is forgotten, and stays open
      return nullptr;
    }
    handle = library;
  }
  void* function = dlsym(handle, name);
  status = function != nullptr ? 0 : kAardvarkFunctionMissing;
  return function;
}

/// What the slot holds, looked up when it is empty; null with the reason in `status`.
template <typename Function>
Function resolve(std::atomic<Function>& slot, const char* name, int& status) {
  Function function = slot.load(std::memory_order_acquire);
  if (function == nullptr) {
    function = reinterpret_cast<Function>(_loadFunction(name, status));
    if (function != nullptr) slot.store(function, std::memory_order_release);
  }
  return function;
}

template <typename Result>
Result unresolved([[maybe_unused]] int status) {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return status;
  }
}

}  // namespace
}  // namespace quillon::internal

// One exported function and its slot. The parameters' types, which the header settles, narrow what
// is passed on.
// NOLINTBEGIN(bugprone-macro-parentheses): names and types in parentheses are none any more
#define FUNCTION(RESULT, NAME, PARAMETERS, ARGUMENTS)                             \
  static constinit std::atomic<decltype(&NAME)> c_##NAME = nullptr;               \
  RESULT NAME PARAMETERS {                                                        \
    using namespace quillon::internal;                                            \
    int status = 0;                                                               \
    const auto function = resolve(c_##NAME, "c_" #NAME, status);                  \
    return function != nullptr ? function ARGUMENTS : unresolved<RESULT>(status); \
  }
// NOLINTEND(bugprone-macro-parentheses)

// clang-format off
FUNCTION(int, aa_find_devices, (int count, uint16_t* devices), (count, devices))
FUNCTION(int, aa_find_devices_ext, (int count, uint16_t* devices, int idCount, uint32_t* ids),
         (count, devices, idCount, ids))
FUNCTION(Aardvark, aa_open, (int port), (port))
FUNCTION(Aardvark, aa_open_ext, (int port, AardvarkExt* ext), (port, ext))
FUNCTION(int, aa_close, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_port, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_features, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_unique_id, (Aardvark aardvark), (aardvark))
FUNCTION(const char*, aa_status_string, (int code), (code))
FUNCTION(int, aa_log, (Aardvark aardvark, int level, int file), (aardvark, level, file))
FUNCTION(int, aa_version, (Aardvark aardvark, AardvarkVersion* version), (aardvark, version))
FUNCTION(int, aa_configure, (Aardvark aardvark, AardvarkConfig config), (aardvark, config))
FUNCTION(int, aa_target_power, (Aardvark aardvark, uint8_t mask), (aardvark, mask))
FUNCTION(int, aa_sleep_ms, (uint32_t milliseconds), (milliseconds))
FUNCTION(int, aa_async_poll, (Aardvark aardvark, int timeout), (aardvark, timeout))

FUNCTION(int, aa_i2c_free_bus, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_i2c_bitrate, (Aardvark aardvark, int rate), (aardvark, rate))
FUNCTION(int, aa_i2c_bus_timeout, (Aardvark aardvark, uint16_t timeout), (aardvark, timeout))
FUNCTION(int, aa_i2c_read,
         (Aardvark aardvark, uint16_t address, AardvarkI2cFlags flags, uint16_t count, uint8_t* data),
         (aardvark, address, flags, count, data))
FUNCTION(int, aa_i2c_read_ext,
         (Aardvark aardvark, uint16_t address, AardvarkI2cFlags flags, uint16_t count, uint8_t* data,
          uint16_t* read),
         (aardvark, address, flags, count, data, read))
FUNCTION(int, aa_i2c_write,
         (Aardvark aardvark, uint16_t address, AardvarkI2cFlags flags, uint16_t count,
          const uint8_t* data),
         (aardvark, address, flags, count, data))
FUNCTION(int, aa_i2c_write_ext,
         (Aardvark aardvark, uint16_t address, AardvarkI2cFlags flags, uint16_t count,
          const uint8_t* data, uint16_t* written),
         (aardvark, address, flags, count, data, written))
FUNCTION(int, aa_i2c_write_read,
         (Aardvark aardvark, uint16_t address, AardvarkI2cFlags flags, uint16_t outCount,
          const uint8_t* out, uint16_t* written, uint16_t inCount, uint8_t* in, uint16_t* read),
         (aardvark, address, flags, outCount, out, written, inCount, in, read))
FUNCTION(int, aa_i2c_slave_enable,
         (Aardvark aardvark, uint8_t address, uint16_t maxOut, uint16_t maxIn),
         (aardvark, address, maxOut, maxIn))
FUNCTION(int, aa_i2c_slave_disable, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_i2c_slave_set_response, (Aardvark aardvark, uint8_t count, const uint8_t* data),
         (aardvark, count, data))
FUNCTION(int, aa_i2c_slave_write_stats, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_i2c_slave_read,
         (Aardvark aardvark, uint8_t* address, uint16_t count, uint8_t* data),
         (aardvark, address, count, data))
FUNCTION(int, aa_i2c_slave_write_stats_ext, (Aardvark aardvark, uint16_t* written),
         (aardvark, written))
FUNCTION(int, aa_i2c_slave_read_ext,
         (Aardvark aardvark, uint8_t* address, uint16_t count, uint8_t* data, uint16_t* read),
         (aardvark, address, count, data, read))
FUNCTION(int, aa_i2c_monitor_enable, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_i2c_monitor_disable, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_i2c_monitor_read, (Aardvark aardvark, uint16_t count, uint16_t* data),
         (aardvark, count, data))
FUNCTION(int, aa_i2c_pullup, (Aardvark aardvark, uint8_t mask), (aardvark, mask))

FUNCTION(int, aa_spi_bitrate, (Aardvark aardvark, int rate), (aardvark, rate))
FUNCTION(int, aa_spi_configure,
         (Aardvark aardvark, AardvarkSpiPolarity polarity, AardvarkSpiPhase phase,
          AardvarkSpiBitorder order),
         (aardvark, polarity, phase, order))
FUNCTION(int, aa_spi_write,
         (Aardvark aardvark, uint16_t outCount, const uint8_t* out, uint16_t inCount, uint8_t* in),
         (aardvark, outCount, out, inCount, in))
FUNCTION(int, aa_spi_slave_enable, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_spi_slave_disable, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_spi_slave_set_response, (Aardvark aardvark, uint8_t count, const uint8_t* data),
         (aardvark, count, data))
FUNCTION(int, aa_spi_slave_read, (Aardvark aardvark, uint16_t count, uint8_t* data),
         (aardvark, count, data))
FUNCTION(int, aa_spi_master_ss_polarity, (Aardvark aardvark, AardvarkSpiSSPolarity polarity),
         (aardvark, polarity))

FUNCTION(int, aa_gpio_direction, (Aardvark aardvark, uint8_t mask), (aardvark, mask))
FUNCTION(int, aa_gpio_pullup, (Aardvark aardvark, uint8_t mask), (aardvark, mask))
FUNCTION(int, aa_gpio_get, (Aardvark aardvark), (aardvark))
FUNCTION(int, aa_gpio_set, (Aardvark aardvark, uint8_t value), (aardvark, value))
FUNCTION(int, aa_gpio_change, (Aardvark aardvark, uint16_t timeout), (aardvark, timeout))
// clang-format on
