#pragma once

#include <locale>
#include <string>

namespace test {

/// Sets a process locale that writes "1,5", in C functions and in C++ streams, for as long as it
/// lives. The C locale is one that is installed, else one that `localedef` makes in a folder of its
/// own.
class CommaLocale {
 public:
  CommaLocale();
  ~CommaLocale();
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  /// False when the machine has neither such a locale nor the means to make one.
  bool isSet() const { return isSet_; }

 private:
  static bool trySetting(const char* name);
  static bool makeAndSet();

  std::string previousC_;
  std::locale previous_;
  bool isSet_ = false;
};

}  // namespace test
