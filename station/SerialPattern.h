#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace re2 {
class RE2;
}

namespace station {

/// A regular expression that a whole serial number must match, such as "QB[0-9]{4}-[0-9]{4}".
///
/// The syntax is RE2's, which is Perl's without what would need backtracking (references to groups,
/// looking ahead and behind): so a match takes time in proportion to the number's length, whatever
/// the pattern, and no stack. Both are read as UTF-8; a number that is none matches nothing.
///
/// Immutable; any thread. Copies share what was compiled.
class SerialPattern {
 public:
  /// Compiles; throws `std::invalid_argument` with the reason when `pattern` is empty, longer
  /// than 4096 bytes, no regular expression, or one that takes more than a mebibyte.
  explicit SerialPattern(const std::string& pattern);

  bool matches(std::string_view serialNumber) const;
  /// As it was given.
  const std::string& text() const;

 private:
  std::shared_ptr<const re2::RE2> compiled_;
};

}  // namespace station
