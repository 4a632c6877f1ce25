#include "Uuid.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <system_error>

#include <unistd.h>
#include <cerrno>

#include "common/Text.h"

namespace results {
namespace {

/// Milliseconds since 1970 and a twelve-bit fraction of one, always more than the last.
std::uint64_t nextTick() {
  static std::mutex mutex;
  static std::uint64_t last = 0;
  using namespace std::chrono;
  const auto us = static_cast<std::uint64_t>(
      duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
  const std::uint64_t now = (us / 1000) << 12U | (us % 1000) * 4096 / 1000;
  const std::lock_guard lock(mutex);
  last = now > last ? now : last + 1;  // the clock may be set back
  return last;
}

}  // namespace

std::string newUuid() {
  std::array<unsigned char, 16> bytes{};
  if (getentropy(bytes.data() + 8, 8) != 0) {
    throw std::system_error(errno, std::generic_category(), "random numbers");
  }
  const std::uint64_t tick = nextTick();
  for (unsigned i = 0; i < 6; ++i) {
    bytes[i] = static_cast<unsigned char>(tick >> (12 + 40 - 8 * i));
  }
  bytes[6] = static_cast<unsigned char>(0x70U | (tick >> 8U & 0x0fU));  // version
  bytes[7] = static_cast<unsigned char>(tick);
  bytes[8] = static_cast<unsigned char>(0x80U | (bytes[8] & 0x3fU));  // variant

  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    quillon::internal::appendHex(text, bytes[i]);
  }
  return text;
}

std::optional<std::int64_t> timeOfUuid(const std::string& text) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-7xxx-xxxx-xxxxxxxxxxxx";
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (text.size() != kForm.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool fits =
        kForm[i] == 'x' ? kDigits.find(text[i]) != std::string_view::npos : text[i] == kForm[i];
    if (!fits) return std::nullopt;
  }
  const auto milliseconds =
      quillon::internal::numberIn<std::int64_t>(text.substr(0, 8) + text.substr(9, 4), 16);
  if (!milliseconds) return std::nullopt;
  return *milliseconds * 1000;
}

}  // namespace results
