#pragma once

#include <optional>
#include <string>

#include "ConsoleLogFile.h"
#include "results/Store.h"

namespace station {

/// What people and the station did, for whoever looks into it later: in the diagnostics and, once
/// there is one, in the results store. Any thread.
class EventLog {
 public:
  explicit EventLog(const ConsoleLogFile& diagnostics) : diagnostics_(diagnostics) {}

  /// The store outlives this object's use. To be called before there are several threads.
  void keepIn(results::Store& store) { store_ = &store; }

  /// `kind` is a word that queries can rely on, see docs/results.md. Where the store cannot be
  /// written, the diagnostics alone have it.
  void add(const std::string& kind, const std::optional<std::string>& site, const std::string& text,
           const std::optional<std::string>& who = std::nullopt) const;

 private:
  const ConsoleLogFile& diagnostics_;
  results::Store* store_ = nullptr;
};

}  // namespace station
