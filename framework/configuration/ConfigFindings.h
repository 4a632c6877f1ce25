#pragma once

// Internal: not installed.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QLTConfigFinding.h>
#include <QLTError.h>

#include "configuration/ConfigEntry.h"

namespace quillon::internal {

/// Collects what reading a configuration finds. Loading wants only what it refuses; the check wants
/// warnings as well.
class ConfigFindings {
 public:
  enum class Wanted { Complaints, All };
  explicit ConfigFindings(Wanted wanted) : wantsWarnings_(wanted == Wanted::All) {}

  /// Whether the warnings below are kept; if not, they need not be looked for.
  bool wantsWarnings() const { return wantsWarnings_; }
  /// From now on loading does not come by, so that what it would refuse is only a warning.
  void setUnread(bool unread) { unread_ = unread; }

  /// Enters what loading refuses.
  void complaint(QLTConfigFinding finding, std::string advice = {});
  void warning(QLTConfigFinding finding, std::string advice = {});

  /// Warns of the keys of a dictionary that nothing reads.
  void unknownKeys(const ConfigEntry& entry, const std::vector<std::string>& known);
  void unknownKey(const ConfigEntry& entry, std::string_view key,
                  const std::vector<std::string>& known);
  /// Warns of a text that reads as false although it does not say so.
  void surprisingBoolean(const ConfigEntry& entry);
  /// Warns of a text that the lines of the result log cannot hold.
  void shiftedColumns(const ConfigEntry& entry, std::string_view text);

  std::size_t size() const { return findings_.size(); }
  /// The first from `index` on that loading refuses.
  std::optional<std::size_t> refusalSince(std::size_t index) const;
  const std::vector<QLTConfigFinding>& all() const { return findings_; }
  std::vector<QLTConfigFinding> take() { return std::move(findings_); }

 private:
  bool wantsWarnings_;
  bool unread_ = false;
  std::vector<QLTConfigFinding> findings_;
};

/// "did you mean \"X\"?" with the candidate that `name` is most like; "" when none is close.
std::string didYouMean(std::string_view name, const std::vector<std::string>& candidates);

/// Why a file cannot be read, without its path, which a finding has anyway.
std::string cannotBeRead(const QLTError& error, const std::string& file);

}  // namespace quillon::internal
