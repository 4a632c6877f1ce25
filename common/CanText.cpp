#include "CanText.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <linux/can.h>

#include "common/Text.h"

namespace quillon::internal {
namespace {

constexpr std::size_t kShortDigits = 3;
constexpr std::size_t kLongDigits = 8;
constexpr int kHexadecimal = 16;
constexpr std::uint8_t kFlags = CANFD_BRS | CANFD_ESI;

template <typename Frame>
std::string bytesOf(const Frame& frame) {
  std::string bytes(sizeof frame, '\0');
  std::memcpy(bytes.data(), &frame, sizeof frame);
  return bytes;
}

/// The number in hexadecimal digits; absent for anything else.
template <typename Number>
std::optional<Number> hexIn(std::string_view digits) {
  if (digits.starts_with('-')) return std::nullopt;
  return numberIn<Number>(digits, kHexadecimal);
}

/// With the system's flags; absent when there is no such identifier.
std::optional<canid_t> identifierIn(std::string_view digits) {
  const auto number = hexIn<canid_t>(digits);
  if (!number) return std::nullopt;
  if (digits.size() == kShortDigits && *number <= CAN_SFF_MASK) return number;
  if (digits.size() != kLongDigits) return std::nullopt;
  if (*number <= CAN_EFF_MASK) return *number | CAN_EFF_FLAG;
  if ((*number & ~CAN_ERR_MASK) == CAN_ERR_FLAG) return number;
  return std::nullopt;
}

/// Writes the bytes of pairs of digits; how many, absent when it is something else or too long.
std::optional<std::uint8_t> dataIn(std::string_view digits, std::uint8_t* data,
                                   std::size_t longest) {
  if (digits.size() % 2 != 0 || digits.size() / 2 > longest) return std::nullopt;
  const std::size_t count = digits.size() / 2;
  for (std::size_t i = 0; i < count; ++i) {
    const auto byte = hexIn<std::uint8_t>(digits.substr(2 * i, 2));
    if (!byte) return std::nullopt;
    data[i] = *byte;
  }
  return static_cast<std::uint8_t>(count);
}

std::optional<std::string> fdMessage(canid_t identifier, std::string_view text) {
  canfd_frame frame{};
  frame.can_id = identifier;
  const auto flags = hexIn<std::uint8_t>(text.substr(0, 1));
  if (!flags || (*flags & ~kFlags) != 0 || (identifier & CAN_ERR_FLAG) != 0) return std::nullopt;
  const auto length = dataIn(text.substr(1), frame.data, sizeof frame.data);
  if (!length || !isCanFdLength(*length)) return std::nullopt;
  frame.flags = *flags;
  frame.len = *length;
  return bytesOf(frame);
}

std::optional<std::string> plainMessage(canid_t identifier, std::string_view text) {
  can_frame frame{};
  frame.can_id = identifier;
  std::optional<std::uint8_t> length;
  if (text.starts_with('R')) {
    frame.can_id |= CAN_RTR_FLAG;
    if ((identifier & CAN_ERR_FLAG) != 0 || text.size() > 2) return std::nullopt;
    length = text.size() == 1 ? 0 : hexIn<std::uint8_t>(text.substr(1));
  } else {
    length = dataIn(text, frame.data, sizeof frame.data);
  }
  if (!length || *length > CAN_MAX_DLEN) return std::nullopt;
  frame.len = *length;
  return bytesOf(frame);
}

void appendNumber(std::string& text, std::uint32_t number, std::size_t digits) {
  for (std::size_t place = digits; place > 0; --place) {
    constexpr std::uint32_t digit = 0xf;
    text += "0123456789ABCDEF"[number >> 4 * (place - 1) & digit];
  }
}

std::string identifierText(canid_t identifier) {
  std::string text;
  if ((identifier & CAN_ERR_FLAG) != 0) {
    appendNumber(text, (identifier & CAN_ERR_MASK) | CAN_ERR_FLAG, kLongDigits);
  } else if ((identifier & CAN_EFF_FLAG) != 0) {
    appendNumber(text, identifier & CAN_EFF_MASK, kLongDigits);
  } else {
    appendNumber(text, identifier & CAN_SFF_MASK, kShortDigits);
  }
  return text + "#";
}

void appendData(std::string& text, const std::uint8_t* data, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) appendNumber(text, data[i], 2);
}

}  // namespace

bool isCanFdLength(std::size_t length) {
  constexpr std::array<std::size_t, 7> longer{12, 16, 20, 24, 32, 48, 64};
  return length <= CAN_MAX_DLEN || std::find(longer.begin(), longer.end(), length) != longer.end();
}

std::optional<std::string> canMessage(std::string_view text) {
  const std::size_t sign = text.find('#');
  if (sign == text.npos) return std::nullopt;
  const auto identifier = identifierIn(text.substr(0, sign));
  if (!identifier) return std::nullopt;
  const std::string_view rest = text.substr(sign + 1);
  return rest.starts_with('#') ? fdMessage(*identifier, rest.substr(1))
                               : plainMessage(*identifier, rest);
}

std::optional<std::string> canText(std::string_view message) {
  if (message.size() == CANFD_MTU) {
    canfd_frame frame{};
    std::memcpy(&frame, message.data(), sizeof frame);
    if (!isCanFdLength(frame.len)) return std::nullopt;
    std::string text = identifierText(frame.can_id) + "#";
    appendNumber(text, frame.flags & kFlags, 1);
    appendData(text, frame.data, frame.len);
    return text;
  }
  can_frame frame{};
  if (message.size() != sizeof frame) return std::nullopt;
  std::memcpy(&frame, message.data(), sizeof frame);
  if (frame.len > CAN_MAX_DLEN) return std::nullopt;
  std::string text = identifierText(frame.can_id);
  if ((frame.can_id & CAN_RTR_FLAG) != 0) {
    text += "R";
    if (frame.len > 0) appendNumber(text, frame.len, 1);
  } else {
    appendData(text, frame.data, frame.len);
  }
  return text;
}

}  // namespace quillon::internal
