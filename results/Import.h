#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/StoreError.h"

namespace results {

class Connection;

/// Enters runs, as `jsonOf` writes them, into a store. For one thread at a time.
class Import {
 public:
  /// What became of a run.
  struct Outcome {
    enum Kind { Added, Present, Refused } kind = Refused;
    std::string reason;  ///< of a refusal, for a person
  };

  /// Opens the store, or makes it. Throws `StoreError`.
  explicit Import(const std::filesystem::path& file,
                  std::chrono::milliseconds patience = std::chrono::seconds(10));
  ~Import();
  Import(const Import&) = delete;
  Import& operator=(const Import&) = delete;

  /// Enters a run a line, all of them in one transaction that is on disk when this returns. A run
  /// whose content is not what its sum says is refused, and so is one whose id another content has
  /// already; one that is there as it is stays so. Throws `StoreError` when the store cannot be
  /// written; nothing of these lines is in it then.
  std::vector<Outcome> add(const std::vector<std::string>& lines);

 private:
  std::unique_ptr<Connection> connection_;
};

}  // namespace results
