#include "StandIn.h"

#include <array>
#include <cstdio>
#include <stdexcept>

#include <dlfcn.h>

namespace test {

std::filesystem::path standIn() { return STANDIN; }
std::filesystem::path standInWithoutVersion() { return STANDIN_WITHOUT_VERSION; }
std::filesystem::path standInWithoutGpioChange() { return STANDIN_WITHOUT_GPIO_CHANGE; }
std::filesystem::path lateLibrary() { return LATE_LIBRARY; }

std::string exportedSymbols() {
  FILE* listing = popen("'" NM "' -D --defined-only '" FRAMEWORK "'", "r");
  if (listing == nullptr) throw std::runtime_error("popen");
  std::string symbols;
  std::array<char, 4096> chunk{};
  while (const std::size_t size = fread(chunk.data(), 1, chunk.size(), listing)) {
    symbols.append(chunk.data(), size);
  }
  if (pclose(listing) != 0) throw std::runtime_error(NM " failed");
  return symbols;
}

namespace {

template <typename Function>
void find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) throw std::runtime_error(std::string("no ") + name);
}

}  // namespace

StandInRecord::StandInRecord(const std::filesystem::path& library) {
  void* handle = dlopen(library.c_str(), RTLD_LAZY);
  if (handle == nullptr) throw std::runtime_error(dlerror());
  find(handle, "aardvark_standin_calls", calls_);
  find(handle, "aardvark_standin_position", position_);
  find(handle, "aardvark_standin_arguments", arguments_);
  find(handle, "aardvark_standin_set_result", setResult_);
}

std::vector<std::uint64_t> StandInRecord::arguments(const std::string& function) const {
  std::array<std::uint64_t, 16> passed{};
  const int count = arguments_(function.c_str(), passed.data(), passed.size());
  if (count < 0) throw std::runtime_error(function + " was not called");
  return {passed.begin(), passed.begin() + count};
}

}  // namespace test
