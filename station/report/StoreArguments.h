#pragma once

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
  enum class Stores { Files, FilesAndServers };

  /// Tells `command` of `--store`, a file or, where that makes sense, also a server that many
  /// stations feed. What is given is put in here when it is parsed, so this must live until then.
  void describeStoreTo(CLI::App& command, Stores stores = Stores::FilesAndServers);
  /// Likewise of the filters for runs.
  void describeFilterTo(CLI::App& command);
  /// Likewise of those for measurements.
  void describeSubTestsTo(CLI::App& command);

  /// A file, or the address of a server.
  const std::string& store() const { return store_; }
  bool isServer() const;
  /// The same for people.
  std::string storeName() const;
  const results::Filter& filter() const { return filter_; }
  results::Filter& filter() { return filter_; }

 private:
  void describeNames(CLI::App& command, const std::string& option, std::vector<std::string>& names,
                     const std::string& what);

  std::string store_ = defaultStore();
  results::Filter filter_;

  static std::string defaultStore();
};

}  // namespace station
