#pragma once

// Internal: not installed.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QLTError.h>

namespace quillon::bench {

/// What fills the places of a command's pattern, by their names: {"value", "5"}.
using ScpiValues = std::vector<std::pair<std::string, std::string>>;

/// How one kind of instrument (meter, supply, load, scope, matrix) is told what to do: a command's
/// pattern for each operation, "VOLT {value}". The operations of a kind are those of its standard
/// dialect.
class ScpiDialect {
 public:
  ScpiDialect(std::string kind, std::string name);

  const std::string& kind() const { return kind_; }
  const std::string& name() const { return name_; }
  /// Whether an instrument with that answer to "*IDN?" is one of the dialect's.
  bool fits(std::string_view identity) const;

  /// Whether there is a command for the operation.
  bool offers(const std::string& operation) const;
  /// The command. Absent with an error when the dialect has none.
  std::optional<std::string> command(const std::string& operation, const ScpiValues& values,
                                     QLTError* error) const;

 private:
  friend class ScpiDialectReader;

  std::string kind_;
  std::string name_;
  std::vector<std::string> patterns_;  // of identities
  std::map<std::string, std::string> commands_;
};

using ScpiDialects = std::vector<std::shared_ptr<const ScpiDialect>>;

/// Those that the library brings; a kind's standard one comes first and has the kind's name.
const ScpiDialects& standardDialects();

/// Reads a file of dialects:
///
///     # my supply
///     [ps30 : supply]
///     matches = ACME,PS-30*
///     voltage = VSET{channel}:{value}
///
/// The name in brackets comes before the kind, or another dialect of it, whose commands count where
/// the section has none. Absent with an error, -33004, that names the file and the line.
std::optional<ScpiDialects> readDialects(std::string_view content, const std::string& name,
                                         QLTError* error);

/// The dialect for an instrument: the one that is named, else the first whose `matches` fits its
/// identity, else the kind's standard one. Those of the file (a path, or "") come before the
/// library's. Null with an error when there is none of that name and kind.
std::shared_ptr<const ScpiDialect> dialectFor(const std::string& kind, const std::string& name,
                                              const std::string& file, std::string_view identity,
                                              QLTError* error);

/// The names of a kind's dialects that the library brings.
std::vector<std::string> dialectNames(std::string_view kind);

}  // namespace quillon::bench
