#include "Secrets.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include "common/Text.h"

namespace web {

std::string randomToken() {
  std::array<unsigned char, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "random numbers");
  }
  std::string token;
  for (const unsigned char byte : bytes) quillon::internal::appendHex(token, byte);
  return token;
}

bool sameSecret(std::string_view given, std::string_view secret) {
  if (secret.empty()) return false;
  unsigned difference = given.size() == secret.size() ? 0 : 1;
  for (std::size_t i = 0; i < given.size(); ++i) {
    difference |= static_cast<unsigned char>(given[i]) ^
                  static_cast<unsigned char>(secret[i % secret.size()]);
  }
  return difference == 0;
}

}  // namespace web
