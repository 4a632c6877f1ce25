#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "results/Filter.h"

namespace CLI {
class App;
}

namespace station {

/// The store and the runs that a command is about, on its command line.
class StoreArguments {
 public:
  /// Tells `command` of `--store`. What is given is put in here when it is parsed, so this must
  /// live until then.
  void describeStoreTo(CLI::App& command);
  /// Likewise of the filters for runs.
  void describeFilterTo(CLI::App& command);
  /// Likewise of those for measurements.
  void describeSubTestsTo(CLI::App& command);

  const std::filesystem::path& store() const { return store_; }
  const results::Filter& filter() const { return filter_; }
  results::Filter& filter() { return filter_; }

 private:
  void describeNames(CLI::App& command, const std::string& option, std::vector<std::string>& names,
                     const std::string& what);

  std::filesystem::path store_ = defaultStore();
  results::Filter filter_;

  static std::filesystem::path defaultStore();
};

}  // namespace station
