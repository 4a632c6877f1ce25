#include "CommaLocale.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include "TemporaryFolder.h"

namespace test {
namespace {

struct CommaPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

}  // namespace

CommaLocale::CommaLocale() : previousC_(std::setlocale(LC_ALL, nullptr)) {
  constexpr std::array names{"de_DE.UTF-8", "fr_FR.UTF-8", "es_ES.UTF-8", "it_IT.UTF-8"};
  isSet_ = std::any_of(names.begin(), names.end(), trySetting) || makeAndSet();
  if (isSet_) std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
}

CommaLocale::~CommaLocale() {
  if (isSet_) std::locale::global(previous_);
  std::setlocale(LC_ALL, previousC_.c_str());
}

bool CommaLocale::trySetting(const char* name) {
  if (std::setlocale(LC_ALL, name) == nullptr) return false;
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%.1f", 1.5);
  return std::string(text.data()) == "1,5";
}

bool CommaLocale::makeAndSet() {
  const TemporaryFolder made;
  const std::string folder = made.path().string();
  const std::string command = "localedef -i de_DE -f UTF-8 '" + folder + "/de_DE.UTF-8' >&2";
  if (std::system(command.c_str()) != 0) return false;
  // Needed only while the locale is loaded; some functions of the C library leak as long as it is
  // set.
  setenv("LOCPATH", folder.c_str(), 1);
  const bool isSet = trySetting("de_DE.UTF-8");
  unsetenv("LOCPATH");
  return isSet;
}

}  // namespace test
