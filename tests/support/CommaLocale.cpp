#include "CommaLocale.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace test {

CommaLocale::CommaLocale() {
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "es_ES.UTF-8", "it_IT.UTF-8"}) {
    if (trySetting(name)) return;
  }
  made_.emplace();
  const std::string folder = made_->path().string();
  const std::string command = "localedef -i de_DE -f UTF-8 '" + folder + "/de_DE.UTF-8' >&2";
  if (std::system(command.c_str()) != 0) return;
  setenv("LOCPATH", folder.c_str(), 1);
  trySetting("de_DE.UTF-8");
}

CommaLocale::~CommaLocale() {
  if (previous_) std::locale::global(*previous_);
  if (made_) unsetenv("LOCPATH");
}

bool CommaLocale::trySetting(const std::string& name) {
  try {
    previous_ = std::locale::global(std::locale(name));
  } catch (const std::runtime_error&) {
    return false;
  }
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%.1f", 1.5);
  if (std::string(text.data()) == "1,5") return true;
  std::locale::global(*previous_);
  previous_.reset();
  return false;
}

}  // namespace test
