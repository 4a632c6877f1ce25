#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

/// Takes numbers and byte strings from a message of a remote procedure call, which has them in
/// words of four bytes. What is not there reads as zero or empty, and `isWhole` turns false.
class XdrReader {
 public:
  explicit XdrReader(std::string_view bytes) : rest_(bytes) {}

  std::uint32_t number() {
    std::uint32_t value = 0;
    for (const char byte : take(4)) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
  }
  std::string bytes() {
    const std::uint32_t length = number();
    std::string value(take(length));
    take((4 - length % 4) % 4);
    return value;
  }
  bool isWhole() const { return isWhole_; }

 private:
  std::string_view take(std::size_t count) {
    if (count > rest_.size()) {
      isWhole_ = false;
      rest_ = {};
      return {};
    }
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  std::string_view rest_;
  bool isWhole_ = true;
};

/// Puts such a message together.
class XdrWriter {
 public:
  XdrWriter& number(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) text_ += static_cast<char>(value >> shift & 0xFF);
    return *this;
  }
  XdrWriter& bytes(std::string_view value) {
    number(static_cast<std::uint32_t>(value.size()));
    text_ += value;
    text_.append((4 - value.size() % 4) % 4, '\0');
    return *this;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace sim
