#include "bench/ScpiDialect.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/ScpiDialects.h"
#include "bench/ScpiText.h"
#include "common/Files.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::internal::format;
using quillon::internal::trimmed;

namespace quillon::bench {
namespace {

/// The names between braces; absent for a brace without its other one.
std::optional<std::set<std::string>> placesIn(std::string_view pattern) {
  std::set<std::string> places;
  while (true) {
    const std::size_t open = pattern.find_first_of("{}");
    if (open == pattern.npos) return places;
    const std::size_t close = pattern.find('}', open);
    if (pattern[open] == '}' || close == pattern.npos) return std::nullopt;
    places.insert(std::string(pattern.substr(open + 1, close - open - 1)));
    pattern.remove_prefix(close + 1);
  }
}

std::string join(const std::vector<std::string>& names) {
  return QLTUtil::arrayToString(names, ", ");
}

const ScpiDialect* findIn(const ScpiDialects& dialects, std::string_view kind,
                          std::string_view name) {
  for (const auto& dialect : dialects) {
    if (dialect->kind() == kind && dialect->name() == name) return dialect.get();
  }
  return nullptr;
}

}  // namespace

ScpiDialect::ScpiDialect(std::string kind, std::string name)
    : kind_(std::move(kind)), name_(std::move(name)) {}

bool ScpiDialect::fits(std::string_view identity) const {
  return std::any_of(patterns_.begin(), patterns_.end(),
                     [&](const std::string& pattern) { return fitsPattern(identity, pattern); });
}

bool ScpiDialect::offers(const std::string& operation) const {
  const auto found = commands_.find(operation);
  return found != commands_.end() && !found->second.empty();
}

std::optional<std::string> ScpiDialect::command(const std::string& operation,
                                                const ScpiValues& values, QLTError* error) const {
  if (!offers(operation)) {
    return fail(error, kQLTErrorScpiDialect,
                format("the %@ dialect \"%@\" has no command for \"%@\"", kind_, name_, operation));
  }
  std::string command = commands_.at(operation);
  for (const auto& [name, value] : values) {
    const std::string place = '{' + name + '}';
    for (std::size_t at = 0; (at = command.find(place, at)) != command.npos; at += value.size()) {
      command.replace(at, place.size(), value);
    }
  }
  return command;
}

// A file of dialects.

class ScpiDialectReader {
 public:
  /// `known` are the dialects that others can be built on; `isStandard` that they make kinds.
  ScpiDialectReader(const ScpiDialects& known, std::string name, bool isStandard)
      : known_(known), name_(std::move(name)), isStandard_(isStandard) {}

  std::optional<ScpiDialects> read(std::string_view content, QLTError* error) {
    for (const std::string& raw : internal::split(content, "\n")) {
      ++line_;
      const std::string line = trimmed(raw);
      if (line.empty() || line.front() == '#') continue;
      const std::string problem = line.front() == '[' ? takeSection(line) : takeEntry(line);
      if (!problem.empty()) {
        return fail(error, kQLTErrorScpiDialect, format("%@:%d: %@", name_, line_, problem));
      }
    }
    return ScpiDialects(read_.begin(), read_.end());
  }

 private:
  /// What is wrong with a line; "" when it is taken.
  std::string takeSection(const std::string& line) {
    const std::size_t colon = line.find(':');
    if (line.back() != ']' || (colon == line.npos && !isStandard_)) {
      return "a section is [NAME : BASE], not " + line;
    }
    const std::string name = trimmed(line.substr(1, std::min(colon, line.size() - 1) - 1));
    if (name.empty()) return "a section needs a name";
    if (colon == line.npos) {
      read_.push_back(std::make_shared<ScpiDialect>(name, name));
      return "";
    }
    const std::string baseName = trimmed(line.substr(colon + 1, line.size() - colon - 2));
    const ScpiDialect* const base = baseNamed(baseName);
    if (base == nullptr) {
      return "there is no dialect \"" + baseName + "\" to build on; there are " + allNames();
    }
    for (const auto& other : read_) {
      if (other->name() == name && other->kind() == base->kind()) {
        return "there is a dialect \"" + name + "\" already";
      }
    }
    auto dialect = std::make_shared<ScpiDialect>(base->kind(), name);
    dialect->commands_ = base->commands_;
    read_.push_back(std::move(dialect));
    return "";
  }

  std::string takeEntry(const std::string& line) {
    const std::size_t sign = line.find('=');
    if (sign == line.npos) return "a line is OPERATION = COMMAND, not " + line;
    if (read_.empty()) return "a section, [NAME : BASE], comes first";
    ScpiDialect& dialect = *read_.back();
    const std::string operation = trimmed(line.substr(0, sign));
    std::string pattern = trimmed(line.substr(sign + 1));
    if (operation == "matches") {
      if (pattern.empty()) return "\"matches\" needs a pattern of identities";
      dialect.patterns_.push_back(std::move(pattern));
      return "";
    }
    if (!isStandard_) {
      std::string problem = problemOf(dialect, operation, pattern);
      if (!problem.empty()) return problem;
    }
    dialect.commands_[operation] = std::move(pattern);
    return "";
  }

  std::string problemOf(const ScpiDialect& dialect, const std::string& operation,
                        const std::string& pattern) const {
    const auto& standard = findIn(known_, dialect.kind(), dialect.kind())->commands_;
    const auto usual = standard.find(operation);
    if (usual == standard.end()) {
      std::vector<std::string> operations;
      operations.reserve(standard.size());
      for (const auto& entry : standard) operations.push_back(entry.first);
      return format("a %@ has no operation \"%@\"; it has %@", dialect.kind(), operation,
                    join(operations));
    }
    if (pattern.empty()) return "";  // not offered
    const auto places = placesIn(pattern);
    if (!places) return "a brace without its other one in " + pattern;
    std::set<std::string> wanted = *placesIn(usual->second);
    wanted.erase("channel");  // a command may name it or not
    const bool hasChannels = dialect.kind() != "meter" && dialect.kind() != "matrix";
    for (const std::string& place : *places) {
      if (!(place == "channel" && hasChannels) && !wanted.contains(place)) {
        return format("nothing fills the place {%@} of \"%@\"", place, operation);
      }
    }
    for (const std::string& place : wanted) {
      if (!places->contains(place)) {
        return format("\"%@\" needs the place {%@}", operation, place);
      }
    }
    return "";
  }

  const ScpiDialect* baseNamed(const std::string& name) const {
    for (const auto& dialect : known_) {
      if (dialect->name() == name) return dialect.get();
    }
    for (const auto& dialect : read_) {
      if (dialect->name() == name) return dialect.get();
    }
    return nullptr;
  }

  std::string allNames() const {
    std::vector<std::string> names;
    for (const auto& dialect : known_) names.push_back(dialect->name());
    for (const auto& dialect : read_) names.push_back(dialect->name());
    return join(names);
  }

  const ScpiDialects& known_;
  std::string name_;
  bool isStandard_;
  int line_ = 0;
  std::vector<std::shared_ptr<ScpiDialect>> read_;
};

const ScpiDialects& standardDialects() {
  static const ScpiDialects all = [] {
    const ScpiDialects none;
    ScpiDialects dialects =
        ScpiDialectReader(none, "kinds", true).read(kScpiKinds, nullptr).value();
    const auto more =
        ScpiDialectReader(dialects, "dialects", false).read(kScpiDialects, nullptr).value();
    dialects.insert(dialects.end(), more.begin(), more.end());
    return dialects;
  }();
  return all;
}

std::optional<ScpiDialects> readDialects(std::string_view content, const std::string& name,
                                         QLTError* error) {
  return ScpiDialectReader(standardDialects(), name, false).read(content, error);
}

std::shared_ptr<const ScpiDialect> dialectFor(const std::string& kind, const std::string& name,
                                              const std::string& file, std::string_view identity,
                                              QLTError* error) {
  ScpiDialects all;
  if (!file.empty()) {
    const auto content = internal::readWhole(file);
    if (!content) {
      return fail(error, kQLTErrorScpiDialect,
                  file + ": " + std::generic_category().message(errno));
    }
    auto own = readDialects(*content, file, error);
    if (!own) return nullptr;
    all = std::move(*own);
  }
  const ScpiDialects& standard = standardDialects();
  all.insert(all.end(), standard.begin(), standard.end());

  std::vector<std::string> names;
  for (const auto& dialect : all) {
    if (dialect->kind() != kind) continue;
    if (name.empty() ? dialect->fits(identity) : dialect->name() == name) return dialect;
    names.push_back(dialect->name());
  }
  if (name.empty()) return dialectFor(kind, kind, "", identity, error);
  return fail(error, kQLTErrorScpiDialect,
              format("a %@ has no dialect \"%@\"; there are %@", kind, name, join(names)));
}

std::vector<std::string> dialectNames(std::string_view kind) {
  std::vector<std::string> names;
  for (const auto& dialect : standardDialects()) {
    if (dialect->kind() == kind) names.push_back(dialect->name());
  }
  return names;
}

}  // namespace quillon::bench
