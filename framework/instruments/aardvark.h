#pragma once

/// @file
/// The C interface of the Aardvark I2C/SPI host adapter, for C and C++.
///
/// The adapter maker's run-time library "aardvark.so" is not linked: it is searched for and loaded
/// when one of these functions is called for the first time, first in the folder of the running
/// program, then in the working directory, then as the dynamic loader searches. Once accepted it
/// stays loaded for the life of the process. Each function finds its counterpart (`aa_open`:
/// `c_aa_open`) when it is first called, and passes its arguments through unchanged; what the calls
/// do on the adapter is told by the maker's documentation.
///
/// When a function cannot be bound it returns one of the statuses below, and the next call tries
/// again. `aa_status_string` returns null instead. The library's own statuses are negative, too;
/// they pass through.
///
/// Handles come from `aa_open`. No pointer argument is owned; output arguments are the caller's
/// memory.
///
/// Thread safety: first calls may come from several threads at once. The calls themselves are as
/// safe as the library makes them; drive one adapter from one thread at a time.

#include <stdint.h>

#include <QLTExport.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The statuses of the binding itself.
enum {
  kAardvarkNotLoaded = -1,        ///< the library could not be loaded; standard error tells why
  kAardvarkFunctionMissing = -3,  ///< the library is loaded and lacks this function
  kAardvarkIncompatible = -4      ///< it is older than 5.10, asks for more, or tells no version
};

typedef int Aardvark;  ///< a handle; negative when invalid

// The library has enumerations for these; they are as wide as an int.
typedef int AardvarkConfig;
typedef int AardvarkI2cFlags;
typedef int AardvarkSpiPolarity;
typedef int AardvarkSpiPhase;
typedef int AardvarkSpiBitorder;
typedef int AardvarkSpiSSPolarity;

enum { kAardvarkConfigSpiI2c = 3 };  ///< configuration: SPI and I2C enabled
enum { kAardvarkPullupNone = 0, kAardvarkPullupBoth = 3 };
enum { kAardvarkTargetPowerNone = 0, kAardvarkTargetPowerBoth = 3 };
enum { kAardvarkPortInUse = 0x8000 };  ///< set in the number of a port that is in use

/// How an I2C transfer is made; flags that may be combined.
enum {
  kAardvarkI2cNoFlags = 0,  ///< seven-bit address, start and stop
  kAardvarkI2cTenBitAddress = 1,
  kAardvarkI2cCombinedFormat = 2,
  kAardvarkI2cNoStop = 4
};

typedef struct AardvarkVersion {
  uint16_t software;
  uint16_t firmware;
  uint16_t hardware;
  uint16_t sw_req_by_fw;
  uint16_t fw_req_by_sw;
  uint16_t api_req_by_sw;
} AardvarkVersion;

typedef struct AardvarkExt {
  AardvarkVersion version;
  int features;
} AardvarkExt;

// Adapters. The finders return how many adapters there are, also when more are found than the
// arrays hold.

QLT_EXPORT int aa_find_devices(int num_devices, uint16_t* devices);
QLT_EXPORT int aa_find_devices_ext(int num_devices, uint16_t* devices, int num_ids,
                                   uint32_t* unique_ids);
QLT_EXPORT Aardvark aa_open(int port_number);
QLT_EXPORT Aardvark aa_open_ext(int port_number, AardvarkExt* aa_ext);
QLT_EXPORT int aa_close(Aardvark aardvark);  ///< how many handles were closed
QLT_EXPORT int aa_port(Aardvark aardvark);
QLT_EXPORT int aa_features(Aardvark aardvark);
QLT_EXPORT int aa_unique_id(Aardvark aardvark);  ///< an identifier uses all 32 bits
QLT_EXPORT const char* aa_status_string(int status);
QLT_EXPORT int aa_log(Aardvark aardvark, int level, int handle);
QLT_EXPORT int aa_version(Aardvark aardvark, AardvarkVersion* version);
QLT_EXPORT int aa_configure(Aardvark aardvark, AardvarkConfig config);
QLT_EXPORT int aa_target_power(Aardvark aardvark, uint8_t power_mask);
QLT_EXPORT int aa_sleep_ms(uint32_t milliseconds);  ///< the milliseconds slept
QLT_EXPORT int aa_async_poll(Aardvark aardvark, int timeout_ms);

// I2C, as the bus's master, as a slave, and watching. Rates are in kilohertz; setters return what
// was set.

QLT_EXPORT int aa_i2c_free_bus(Aardvark aardvark);
QLT_EXPORT int aa_i2c_bitrate(Aardvark aardvark, int bitrate_khz);
QLT_EXPORT int aa_i2c_bus_timeout(Aardvark aardvark, uint16_t timeout_ms);
QLT_EXPORT int aa_i2c_read(Aardvark aardvark, uint16_t slave_addr, AardvarkI2cFlags flags,
                           uint16_t num_bytes, uint8_t* data_in);
QLT_EXPORT int aa_i2c_read_ext(Aardvark aardvark, uint16_t slave_addr, AardvarkI2cFlags flags,
                               uint16_t num_bytes, uint8_t* data_in, uint16_t* num_read);
QLT_EXPORT int aa_i2c_write(Aardvark aardvark, uint16_t slave_addr, AardvarkI2cFlags flags,
                            uint16_t num_bytes, const uint8_t* data_out);
QLT_EXPORT int aa_i2c_write_ext(Aardvark aardvark, uint16_t slave_addr, AardvarkI2cFlags flags,
                                uint16_t num_bytes, const uint8_t* data_out, uint16_t* num_written);
QLT_EXPORT int aa_i2c_write_read(Aardvark aardvark, uint16_t slave_addr, AardvarkI2cFlags flags,
                                 uint16_t out_num_bytes, const uint8_t* out_data,
                                 uint16_t* num_written, uint16_t in_num_bytes, uint8_t* in_data,
                                 uint16_t* num_read);
QLT_EXPORT int aa_i2c_slave_enable(Aardvark aardvark, uint8_t addr, uint16_t max_tx_bytes,
                                   uint16_t max_rx_bytes);
QLT_EXPORT int aa_i2c_slave_disable(Aardvark aardvark);
QLT_EXPORT int aa_i2c_slave_set_response(Aardvark aardvark, uint8_t num_bytes,
                                         const uint8_t* data_out);
QLT_EXPORT int aa_i2c_slave_write_stats(Aardvark aardvark);
QLT_EXPORT int aa_i2c_slave_read(Aardvark aardvark, uint8_t* addr, uint16_t num_bytes,
                                 uint8_t* data_in);
QLT_EXPORT int aa_i2c_slave_write_stats_ext(Aardvark aardvark, uint16_t* num_written);
QLT_EXPORT int aa_i2c_slave_read_ext(Aardvark aardvark, uint8_t* addr, uint16_t num_bytes,
                                     uint8_t* data_in, uint16_t* num_read);
QLT_EXPORT int aa_i2c_monitor_enable(Aardvark aardvark);
QLT_EXPORT int aa_i2c_monitor_disable(Aardvark aardvark);
QLT_EXPORT int aa_i2c_monitor_read(Aardvark aardvark, uint16_t num_bytes, uint16_t* data);
QLT_EXPORT int aa_i2c_pullup(Aardvark aardvark, uint8_t pullup_mask);

// SPI.

QLT_EXPORT int aa_spi_bitrate(Aardvark aardvark, int bitrate_khz);
QLT_EXPORT int aa_spi_configure(Aardvark aardvark, AardvarkSpiPolarity polarity,
                                AardvarkSpiPhase phase, AardvarkSpiBitorder bitorder);
QLT_EXPORT int aa_spi_write(Aardvark aardvark, uint16_t out_num_bytes, const uint8_t* data_out,
                            uint16_t in_num_bytes, uint8_t* data_in);
QLT_EXPORT int aa_spi_slave_enable(Aardvark aardvark);
QLT_EXPORT int aa_spi_slave_disable(Aardvark aardvark);
QLT_EXPORT int aa_spi_slave_set_response(Aardvark aardvark, uint8_t num_bytes,
                                         const uint8_t* data_out);
QLT_EXPORT int aa_spi_slave_read(Aardvark aardvark, uint16_t num_bytes, uint8_t* data_in);
QLT_EXPORT int aa_spi_master_ss_polarity(Aardvark aardvark, AardvarkSpiSSPolarity polarity);

// General-purpose pins; one bit a pin.

QLT_EXPORT int aa_gpio_direction(Aardvark aardvark, uint8_t direction_mask);
QLT_EXPORT int aa_gpio_pullup(Aardvark aardvark, uint8_t pullup_mask);
QLT_EXPORT int aa_gpio_get(Aardvark aardvark);
QLT_EXPORT int aa_gpio_set(Aardvark aardvark, uint8_t value);
QLT_EXPORT int aa_gpio_change(Aardvark aardvark, uint16_t timeout_ms);

#ifdef __cplusplus
}
#endif
