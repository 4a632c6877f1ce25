#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace test {

// The builds of the stand-in for the adapter's library.
std::filesystem::path standIn();
std::filesystem::path standInWithoutVersion();
std::filesystem::path standInWithoutGpioChange();
/// A library with `c_version` and `c_aa_port` only; each of them is there once the environment
/// variable of its name is set.
std::filesystem::path lateLibrary();

/// What `nm` lists of the framework's library: its exported symbols.
std::string exportedSymbols();

/// The record of a stand-in; see aardvark_standin.h. Loads the library unless the process has it.
class StandInRecord {
 public:
  explicit StandInRecord(const std::filesystem::path& library);

  int calls(const std::string& function) const { return calls_(function.c_str()); }
  int position(const std::string& function) const { return position_(function.c_str()); }
  /// The last call's arguments; throws when there was none.
  std::vector<std::uint64_t> arguments(const std::string& function) const;
  void setResult(const std::string& function, int result) const {
    setResult_(function.c_str(), result);
  }

 private:
  int (*calls_)(const char*);
  int (*position_)(const char*);
  int (*arguments_)(const char*, std::uint64_t*, int);
  void (*setResult_)(const char*, int);
};

/// Opens the adapter at port 0, from C.
extern "C" int openFromC(void);

}  // namespace test
