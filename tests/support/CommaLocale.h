#pragma once

#include <locale>
#include <optional>
#include <string>

#include "TemporaryFolder.h"

namespace test {

/// Sets a process locale that writes "1,5" for as long as it lives: one that is installed, else one
/// that `localedef` makes in a folder of its own.
class CommaLocale {
 public:
  CommaLocale();
  ~CommaLocale();
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  /// False when the machine has neither such a locale nor the means to make one.
  bool isSet() const { return previous_.has_value(); }

 private:
  bool trySetting(const std::string& name);

  std::optional<TemporaryFolder> made_;
  std::optional<std::locale> previous_;
};

}  // namespace test
