// The binding of the adapter's run-time library. What it does it does once in a process, so each
// test has its own.

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>

#include <aardvark.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/FreshProcess.h"
#include "support/aardvark/StandIn.h"

namespace {

namespace fs = std::filesystem;
using test::FreshProcess;
using test::StandInRecord;

const std::string kName = "aardvark.so";

std::string loaderText(const std::string& library) {
  dlerror();
  EXPECT_EQ(dlopen(library.c_str(), RTLD_LAZY), nullptr);
  return dlerror();
}

/// What goes to standard error when `library` cannot be loaded `times` times.
std::string unableToLoad(const std::string& library, std::size_t times = 1) {
  const std::string once = "Unable to load " + library + "\n" + loaderText(library) + "\n";
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += once;
  return all;
}

fs::path pathOfLength(const fs::path& root, std::size_t length) {
  return root / std::string(length - root.native().size() - 1, 'x');
}

// Every exported function that gives a number, a call of it, and what its counterpart has to get.
// Numbers that the interface narrows carry more bits than it takes.

struct Row {
  std::string name;
  std::function<int()> call;
  std::vector<std::uint64_t> passed;
};

constexpr int kHandle = 0x7A000001;
constexpr int kNegative = -2;
std::array<std::uint8_t, 4> bytesOut{}, bytesIn{};
std::array<std::uint16_t, 4> words{}, otherWords{};
std::array<std::uint32_t, 4> identifiers{};
AardvarkExt ext{};
AardvarkVersion version{};
std::uint32_t pause = 0;  // what the sleeping function gets

int moreThanByte(int low) { return 0x7FFFFF00 | low; }
int moreThanWord(int low) { return 0x7FFF0000 | low; }

std::uint64_t asPassed(int number) { return static_cast<std::uint32_t>(number); }
std::uint64_t asPassed(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }
template <typename... Values>
std::vector<std::uint64_t> passed(Values... values) {
  return {asPassed(values)...};
}

#define ROW(NAME, ARGUMENTS, ...)                             \
  Row {                                                       \
#NAME, [] { return NAME ARGUMENTS; }, passed(__VA_ARGS__) \
  }

std::vector<Row> rows() {
  std::uint8_t* const in = bytesIn.data();
  const std::uint8_t* const out = bytesOut.data();
  std::uint16_t* const count = words.data();
  std::uint16_t* const otherCount = otherWords.data();
  return {
      ROW(aa_find_devices, (kNegative, words.data()), kNegative, count),
      ROW(aa_find_devices_ext, (70000, words.data(), 80000, identifiers.data()), 70000, count,
          80000, identifiers.data()),
      ROW(aa_open, (70000), 70000),
      ROW(aa_open_ext, (kNegative, &ext), kNegative, &ext),
      ROW(aa_close, (kHandle), kHandle),
      ROW(aa_port, (kHandle), kHandle),
      ROW(aa_features, (kHandle), kHandle),
      ROW(aa_unique_id, (kHandle), kHandle),
      ROW(aa_log, (kHandle, 70000, kNegative), kHandle, 70000, kNegative),
      ROW(aa_version, (kHandle, &version), kHandle, &version),
      ROW(aa_configure, (kHandle, 70000), kHandle, 70000),
      ROW(aa_target_power, (kHandle, moreThanByte(0xF3)), kHandle, 0xF3),
      ROW(aa_sleep_ms, (pause), static_cast<int>(pause)),
      ROW(aa_async_poll, (kHandle, kNegative), kHandle, kNegative),
      ROW(aa_i2c_free_bus, (kHandle), kHandle),
      ROW(aa_i2c_bitrate, (kHandle, 70000), kHandle, 70000),
      ROW(aa_i2c_bus_timeout, (kHandle, moreThanWord(0xF234)), kHandle, 0xF234),
      ROW(aa_i2c_read, (kHandle, moreThanWord(0xF150), 70000, moreThanWord(0xF002), bytesIn.data()),
          kHandle, 0xF150, 70000, 0xF002, in),
      ROW(aa_i2c_read_ext,
          (kHandle, moreThanWord(0xF150), 70000, moreThanWord(0xF002), bytesIn.data(),
           words.data()),
          kHandle, 0xF150, 70000, 0xF002, in, count),
      ROW(aa_i2c_write,
          (kHandle, moreThanWord(0xF150), 70000, moreThanWord(0xF002), bytesOut.data()), kHandle,
          0xF150, 70000, 0xF002, out),
      ROW(aa_i2c_write_ext,
          (kHandle, moreThanWord(0xF150), 70000, moreThanWord(0xF002), bytesOut.data(),
           words.data()),
          kHandle, 0xF150, 70000, 0xF002, out, count),
      ROW(aa_i2c_write_read,
          (kHandle, moreThanWord(0xF150), 70000, moreThanWord(0xF002), bytesOut.data(),
           words.data(), moreThanWord(0xF003), bytesIn.data(), otherWords.data()),
          kHandle, 0xF150, 70000, 0xF002, out, count, 0xF003, in, otherCount),
      ROW(aa_i2c_slave_enable,
          (kHandle, moreThanByte(0xF1), moreThanWord(0xF002), moreThanWord(0xF003)), kHandle, 0xF1,
          0xF002, 0xF003),
      ROW(aa_i2c_slave_disable, (kHandle), kHandle),
      ROW(aa_i2c_slave_set_response, (kHandle, moreThanByte(0xF2), bytesOut.data()), kHandle, 0xF2,
          out),
      ROW(aa_i2c_slave_write_stats, (kHandle), kHandle),
      ROW(aa_i2c_slave_read, (kHandle, &bytesIn[1], moreThanWord(0xF002), bytesIn.data()), kHandle,
          in + 1, 0xF002, in),
      ROW(aa_i2c_slave_write_stats_ext, (kHandle, words.data()), kHandle, count),
      ROW(aa_i2c_slave_read_ext,
          (kHandle, &bytesIn[1], moreThanWord(0xF002), bytesIn.data(), words.data()), kHandle,
          in + 1, 0xF002, in, count),
      ROW(aa_i2c_monitor_enable, (kHandle), kHandle),
      ROW(aa_i2c_monitor_disable, (kHandle), kHandle),
      ROW(aa_i2c_monitor_read, (kHandle, moreThanWord(0xF002), words.data()), kHandle, 0xF002,
          count),
      ROW(aa_i2c_pullup, (kHandle, moreThanByte(0xF3)), kHandle, 0xF3),
      ROW(aa_spi_bitrate, (kHandle, 70000), kHandle, 70000),
      ROW(aa_spi_configure, (kHandle, 70001, 70002, 70003), kHandle, 70001, 70002, 70003),
      ROW(aa_spi_write,
          (kHandle, moreThanWord(0xF002), bytesOut.data(), moreThanWord(0xF003), bytesIn.data()),
          kHandle, 0xF002, out, 0xF003, in),
      ROW(aa_spi_slave_enable, (kHandle), kHandle),
      ROW(aa_spi_slave_disable, (kHandle), kHandle),
      ROW(aa_spi_slave_set_response, (kHandle, moreThanByte(0xF2), bytesOut.data()), kHandle, 0xF2,
          out),
      ROW(aa_spi_slave_read, (kHandle, moreThanWord(0xF002), bytesIn.data()), kHandle, 0xF002, in),
      ROW(aa_spi_master_ss_polarity, (kHandle, 70000), kHandle, 70000),
      ROW(aa_gpio_direction, (kHandle, moreThanByte(0xF4)), kHandle, 0xF4),
      ROW(aa_gpio_pullup, (kHandle, moreThanByte(0xF5)), kHandle, 0xF5),
      ROW(aa_gpio_get, (kHandle), kHandle),
      ROW(aa_gpio_set, (kHandle, moreThanByte(0xF6)), kHandle, 0xF6),
      ROW(aa_gpio_change, (kHandle, moreThanWord(0xF234)), kHandle, 0xF234),
  };
}

// 47 functions, of which one gives a text.
constexpr std::size_t kNumericFunctions = 46;

/// Every function fails in the same way, twice.
void expectAll(int status) {
  const auto all = rows();
  ASSERT_EQ(all.size(), kNumericFunctions);
  for (int round = 0; round < 2; ++round) {
    for (const Row& row : all) EXPECT_EQ(row.call(), status) << row.name;
    EXPECT_EQ(aa_status_string(-1), nullptr);
  }
}
constexpr std::size_t kCallsOfExpectAll = 2 * (kNumericFunctions + 1);

// The search.

TEST(AardvarkSearch, TellsOnStandardErrorAtEveryCallThatThereIsNoLibrary) {
  FreshProcess process;
  const auto outcome = process.run([] {
    const test::ConsoleLog log;
    expectAll(-1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
  });
  EXPECT_EQ(outcome.standardError, unableToLoad(kName, kCallsOfExpectAll));
}

TEST(AardvarkSearch, FindsTheLibraryOnceItIsThere) {
  FreshProcess process;
  const auto outcome = process.run([&] {
    EXPECT_EQ(aa_open(0), -1);
    fs::copy_file(test::standIn(), kName);
    EXPECT_GT(aa_open(0), 0);
  });
  EXPECT_EQ(outcome.standardError, unableToLoad(kName));
}

TEST(AardvarkSearch, FindsTheLibraryBesideTheExecutable) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  const auto outcome = process.run([] { EXPECT_GT(aa_open(0), 0); });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkSearch, LeavesNoDescriptorOpen) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  process.run([] {
    const std::size_t before = test::openDescriptors();
    EXPECT_GT(aa_open(0), 0);
    EXPECT_EQ(test::openDescriptors(), before);
  });
}

TEST(AardvarkSearch, FindsTheLibraryInTheWorkingDirectory) {
  FreshProcess process;
  process.place(test::standIn(), process.workingFolder() / kName);
  const auto outcome = process.run([] { EXPECT_GT(aa_open(0), 0); });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkSearch, FindsTheLibraryWhereTheLoaderSearches) {
  FreshProcess process;
  process.place(test::standIn(), process.otherFolder() / kName);
  process.setEnvironment("LD_LIBRARY_PATH", process.otherFolder());
  const auto outcome = process.run([] { EXPECT_GT(aa_open(0), 0); });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkSearch, PrefersTheExecutablesFolder) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  process.write(process.workingFolder() / kName, "no library");
  process.write(process.otherFolder() / kName, "no library");
  process.setEnvironment("LD_LIBRARY_PATH", process.otherFolder());
  process.run([] { EXPECT_GT(aa_open(0), 0); });
}

TEST(AardvarkSearch, PrefersTheWorkingDirectoryToWhereTheLoaderSearches) {
  FreshProcess process;
  process.place(test::standIn(), process.workingFolder() / kName);
  process.write(process.otherFolder() / kName, "no library");
  process.setEnvironment("LD_LIBRARY_PATH", process.otherFolder());
  process.run([] { EXPECT_GT(aa_open(0), 0); });
}

TEST(AardvarkSearch, KeepsTheFullPathThatItFound) {
  FreshProcess process;
  const fs::path broken = process.executableFolder() / kName;
  process.write(broken, "no library");
  process.place(test::standIn(), process.otherFolder() / kName);
  const auto outcome = process.run([&] {
    EXPECT_EQ(aa_open(0), -1);
    fs::copy_file(process.otherFolder() / kName, process.workingFolder() / kName);
    EXPECT_EQ(aa_open(0), -1);
    // The full path is no name to search for in those folders.
    const fs::path nested = process.executableFolder() / broken.relative_path();
    fs::create_directories(nested.parent_path());
    fs::copy_file(process.otherFolder() / kName, nested);
    EXPECT_EQ(aa_open(0), -1);
    // A sound library at that path is loaded.
    fs::rename(process.otherFolder() / kName, broken);
    EXPECT_GT(aa_open(0), 0);
    fs::remove(broken);
  });
  process.write(broken, "no library");
  EXPECT_EQ(outcome.standardError, unableToLoad(broken, 3));
}

TEST(AardvarkSearch, EndsWithTheFirstSuccess) {
  FreshProcess process;
  const fs::path library = process.executableFolder() / kName;
  process.place(test::standIn(), library);
  const auto outcome = process.run([&] {
    const int handle = aa_open(0);
    EXPECT_GT(handle, 0);
    fs::remove(library);
    EXPECT_EQ(aa_port(handle), 0);
    EXPECT_EQ(aa_close(handle), 1);
  });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkSearch, TakesAnExecutablePathOf255Characters) {
  FreshProcess process;
  process.setExecutable(pathOfLength(process.root(), 255).filename());
  process.place(test::standIn(), process.root() / kName);
  process.run([] {
    EXPECT_EQ(fs::read_symlink("/proc/self/exe").native().size(), 255U);
    EXPECT_GT(aa_open(0), 0);
  });
}

TEST(AardvarkSearch, PassesOverAnExecutablePathOf256Characters) {
  FreshProcess process;
  process.setExecutable(pathOfLength(process.root(), 256).filename());
  process.place(test::standIn(), process.root() / kName);
  const auto outcome = process.run([] {
    EXPECT_EQ(fs::read_symlink("/proc/self/exe").native().size(), 256U);
    EXPECT_EQ(aa_open(0), -1);
  });
  EXPECT_EQ(outcome.standardError, unableToLoad(kName));
}

TEST(AardvarkSearch, TakesTheFirst256CharactersOfALongerPath) {
  FreshProcess process;
  const fs::path folder = pathOfLength(process.root(), 256);
  process.place(test::standIn(), folder / kName);
  const auto outcome = process.run([&] {
    fs::current_path(folder);
    EXPECT_EQ(aa_open(0), -1);
  });
  EXPECT_EQ(outcome.standardError, unableToLoad((folder / kName).native().substr(0, 256)));
}

TEST(AardvarkSearch, PassesOverAWorkingDirectoryOf257Characters) {
  FreshProcess process;
  const fs::path folder = pathOfLength(process.root(), 257);
  process.place(test::standIn(), folder / kName);
  const auto outcome = process.run([&] {
    fs::current_path(folder);
    EXPECT_EQ(aa_open(0), -1);
  });
  EXPECT_EQ(outcome.standardError, unableToLoad(kName));
}

// The version.

class AardvarkVersionCheck : public testing::Test {
 protected:
  /// In a new process beside the stand-in, which tells that version.
  void run(const std::string& version, const std::function<void()>& body) {
    process.place(test::standIn(), library());
    process.setEnvironment("AARDVARK_STANDIN_VERSION", version);
    EXPECT_EQ(process.run(body).standardError, "");
  }
  fs::path library() const { return process.executableFolder() / kName; }

  FreshProcess process;
};

TEST_F(AardvarkVersionCheck, RefusesALibraryOlderThan5_10InSilence) {
  run("0x050A0509", [this] {
    const test::ConsoleLog log;
    expectAll(-4);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
    EXPECT_EQ(StandInRecord(library()).calls("c_aa_open"), 0);
  });
}

TEST_F(AardvarkVersionCheck, RefusesALibraryThatAsksForMoreThan5_10) {
  run("0x050B0600", [] { expectAll(-4); });
}

TEST_F(AardvarkVersionCheck, Accepts5_10ThatAsksFor5_10) {
  run("0x050A050A", [] { EXPECT_GT(aa_open(0), 0); });
}

TEST_F(AardvarkVersionCheck, AcceptsANewerLibraryThatIsContentWithAnOlderBinding) {
  run("0x01000A01", [] { EXPECT_GT(aa_open(0), 0); });
}

TEST_F(AardvarkVersionCheck, ComparesWholeNumbersOf16Bits) {
  run("0x8000FFFF", [] { EXPECT_EQ(aa_open(0), -4); });
}

TEST_F(AardvarkVersionCheck, AsksOnceForEachHalfAndNeverAgainOnceAccepted) {
  run("0x050A050A", [this] {
    const StandInRecord record(library());
    const int handle = aa_open(0);
    EXPECT_EQ(record.calls("c_version"), 2);
    EXPECT_EQ(aa_port(handle), 0);
    EXPECT_EQ(aa_close(handle), 1);
    EXPECT_EQ(record.calls("c_version"), 2);
  });
}

TEST_F(AardvarkVersionCheck, IsMadeAgainAfterARefusal) {
  run("0x050A0509", [this] {
    const StandInRecord record(library());
    EXPECT_EQ(aa_open(0), -4);
    EXPECT_EQ(aa_open(0), -4);
    EXPECT_EQ(record.calls("c_version"), 4);
    setenv("AARDVARK_STANDIN_VERSION", "0x050A050A", 1);
    EXPECT_GT(aa_open(0), 0);
    EXPECT_EQ(record.calls("c_version"), 6);
  });
}

TEST_F(AardvarkVersionCheck, LeavesARefusedLibraryOpen) {
  run("0x050A0509", [this] {
    EXPECT_EQ(aa_open(0), -4);
    EXPECT_NE(dlopen(library().c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr);
  });
}

TEST(AardvarkWithoutVersion, IsRefusedInSilence) {
  FreshProcess process;
  process.place(test::standInWithoutVersion(), process.executableFolder() / kName);
  const auto outcome = process.run([] {
    const test::ConsoleLog log;
    expectAll(-4);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
  });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkWithoutVersion, IsTriedAgainAtTheNextCall) {
  FreshProcess process;
  process.place(test::lateLibrary(), process.executableFolder() / kName);
  process.setEnvironment("c_aa_port", "there");
  process.run([] {
    EXPECT_EQ(aa_port(1), -4);
    setenv("c_version", "there", 1);
    EXPECT_EQ(aa_port(1), 101);
  });
}

// The functions.

TEST(AardvarkFunctions, GiveMinus3WhenTheLibraryLacksThem) {
  FreshProcess process;
  process.place(test::lateLibrary(), process.executableFolder() / kName);
  process.setEnvironment("c_version", "there");
  const auto outcome = process.run([] {
    const test::ConsoleLog log;
    expectAll(-3);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
  });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkFunctions, AreLookedUpAgainWhenTheyWereMissing) {
  FreshProcess process;
  process.place(test::lateLibrary(), process.executableFolder() / kName);
  process.setEnvironment("c_version", "there");
  process.run([] {
    EXPECT_EQ(aa_port(1), -3);
    setenv("c_aa_port", "there", 1);
    EXPECT_EQ(aa_port(1), 101);
    // And not once they were found.
    unsetenv("c_aa_port");
    EXPECT_EQ(aa_port(2), 102);
  });
}

TEST(AardvarkFunctions, WorkBesideAMissingOne) {
  FreshProcess process;
  process.place(test::standInWithoutGpioChange(), process.executableFolder() / kName);
  const auto outcome = process.run([] {
    EXPECT_EQ(aa_gpio_change(1, 0), -3);
    EXPECT_GT(aa_open(0), 0);
    EXPECT_EQ(aa_gpio_get(1), 0);
    EXPECT_EQ(aa_gpio_change(1, 0), -3);
  });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkFunctions, PassTheirArgumentsOnWithTheInterfacesWidths) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  process.run([&] {
    const StandInRecord record(process.executableFolder() / kName);
    pause = 0xFFFFFFFE;  // asked for, not slept: the results are set
    for (const Row& row : rows()) {
      const std::string counterpart = "c_" + row.name;
      record.setResult(counterpart, 1);
      row.call();
      EXPECT_EQ(record.calls(counterpart), 1) << row.name;
      EXPECT_EQ(record.arguments(counterpart), row.passed) << row.name;
    }
    aa_status_string(-70000);
    EXPECT_EQ(record.arguments("c_aa_status_string"), passed(-70000));
  });
}

TEST(AardvarkFunctions, PassResultsThrough) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  const auto outcome = process.run([&] {
    const StandInRecord record(process.executableFolder() / kName);
    for (const Row& row : rows()) {
      // Also those that the binding itself uses.
      for (const int result : {0x7B000002, 0, -1, -3, -4, -70000}) {
        record.setResult("c_" + row.name, result);
        EXPECT_EQ(row.call(), result) << row.name;
      }
      EXPECT_EQ(record.calls("c_" + row.name), 6) << row.name;
    }
    EXPECT_STREQ(aa_status_string(0), "ok");
    EXPECT_EQ(aa_status_string(-70000), nullptr);
    EXPECT_EQ(record.calls("c_aa_status_string"), 2);
  });
  EXPECT_EQ(outcome.standardError, "");
}

TEST(AardvarkFunctions, AreCallableFromC) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  process.run([] { EXPECT_EQ(test::openFromC(), kAardvarkConfigSpiI2c); });
}

TEST(AardvarkFunctions, AreAllThatIsExported) {
  const std::string listing = test::exportedSymbols();
  std::size_t functions = 0;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" T aa_") != std::string::npos) ++functions;
    for (const char* internal :
         {"c_aa_", "SO_NAME", "_checkPath", "_getExecPath", "_setSearchPath", "_loadFunction"}) {
      EXPECT_EQ(line.find(internal), std::string::npos) << line;
    }
  }
  EXPECT_EQ(functions, kNumericFunctions + 1);
  for (const Row& row : rows()) {
    EXPECT_NE(listing.find(" T " + row.name + "\n"), std::string::npos) << row.name;
  }
}

// Threads.

constexpr std::size_t kThreads = 8;

/// Calls `body` from eight threads at once, with the thread's number.
void atOnce(const std::function<void(std::size_t)>& body) {
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      body(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(AardvarkThreads, LoadTheLibraryOnceWhenTheyMakeTheirFirstCallsAtOnce) {
  FreshProcess process;
  process.place(test::standIn(), process.executableFolder() / kName);
  process.setEnvironment("AARDVARK_STANDIN_ADAPTERS", std::to_string(kThreads));
  process.run([&] {
    std::array<int, kThreads> ports{};
    atOnce([&](std::size_t i) {
      const int handle = aa_open(static_cast<int>(i));
      ports[i] = aa_port(handle);
      EXPECT_EQ(aa_i2c_bitrate(handle, 400), 400);
      EXPECT_EQ(aa_gpio_set(handle, 1), 0);
    });
    for (std::size_t i = 0; i < kThreads; ++i) EXPECT_EQ(ports[i], static_cast<int>(i));
    EXPECT_EQ(StandInRecord(process.executableFolder() / kName).calls("c_version"), 2);
  });
}

TEST(AardvarkThreads, KeepTheLinesOfAFailureTogether) {
  FreshProcess process;
  const auto outcome = process.run([] {
    std::array<int, kThreads> results{};
    atOnce([&](std::size_t i) { results[i] = aa_open(0); });
    for (const int result : results) EXPECT_EQ(result, -1);
  });
  EXPECT_EQ(outcome.standardError, unableToLoad(kName, kThreads));
}

}  // namespace
