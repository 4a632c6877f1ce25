#include "QLTCanFrame.h"

#include <algorithm>
#include <cstring>

#include <linux/can.h>

#include "bench/CanMessage.h"
#include "bench/Fail.h"
#include "common/CanText.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::canFrameIn;
using quillon::bench::canMessageOf;
using quillon::internal::format;
using quillon::internal::isCanFdLength;

namespace {

template <typename Frame>
std::string bytesOf(const Frame& frame) {
  std::string bytes(sizeof frame, '\0');
  std::memcpy(bytes.data(), &frame, sizeof frame);
  return bytes;
}

std::uint32_t mostOf(bool isExtended) { return isExtended ? CAN_EFF_MASK : CAN_SFF_MASK; }

/// "ID" or "ID/MASK"; absent for another text.
std::optional<QLTCanFilter> filterIn(std::string_view text) {
  const std::size_t slash = text.find('/');
  const auto id = QLTCanId::of(text.substr(0, slash));
  if (!id) return std::nullopt;
  if (slash == text.npos) return QLTCanFilter{*id, mostOf(id->isExtended)};
  const auto mask = QLTCanId::of(text.substr(slash + 1));
  if (!mask || mask->isExtended != id->isExtended) return std::nullopt;
  return QLTCanFilter{*id, mask->number};
}

}  // namespace

namespace quillon::bench {

std::optional<std::string> canMessageOf(const QLTCanFrame& frame) {
  if (!frame.complaint().empty()) return std::nullopt;
  const canid_t identifier = frame.id.number | (frame.id.isExtended ? CAN_EFF_FLAG : 0);
  if (frame.isFd) {
    canfd_frame message{};
    message.can_id = identifier;
    message.len = static_cast<std::uint8_t>(frame.data.size());
    message.flags = frame.isSwitched ? CANFD_BRS : 0;
    std::copy(frame.data.begin(), frame.data.end(), message.data);
    return bytesOf(message);
  }
  can_frame message{};
  message.can_id = identifier | (frame.isRemote ? CAN_RTR_FLAG : 0);
  message.len = static_cast<std::uint8_t>(
      frame.isRemote ? frame.remoteLength : static_cast<std::int32_t>(frame.data.size()));
  std::copy(frame.data.begin(), frame.data.end(), message.data);
  return bytesOf(message);
}

std::optional<QLTCanFrame> canFrameIn(std::string_view message) {
  if (!internal::canText(message)) return std::nullopt;
  canfd_frame whole{};  // begins as a `can_frame` does
  std::memcpy(&whole, message.data(), message.size());
  if ((whole.can_id & CAN_ERR_FLAG) != 0) return std::nullopt;
  QLTCanFrame frame;
  frame.id.isExtended = (whole.can_id & CAN_EFF_FLAG) != 0;
  frame.id.number = whole.can_id & mostOf(frame.id.isExtended);
  frame.isFd = message.size() == CANFD_MTU;
  frame.isSwitched = frame.isFd && (whole.flags & CANFD_BRS) != 0;
  frame.isRemote = !frame.isFd && (whole.can_id & CAN_RTR_FLAG) != 0;
  if (frame.isRemote) {
    frame.remoteLength = whole.len;
  } else {
    frame.data.assign(whole.data, whole.data + whole.len);
  }
  return frame;
}

}  // namespace quillon::bench

// Identifiers.

std::optional<QLTCanId> QLTCanId::of(std::string_view text) {
  const auto frame = QLTCanFrame::of(std::string(text) + "#");
  if (!frame) return std::nullopt;
  return frame->id;
}

std::string QLTCanId::text() const {
  std::string text = QLTCanFrame{*this}.text();
  if (!text.empty()) text.pop_back();
  return text;
}

// Frames.

std::optional<QLTCanFrame> QLTCanFrame::of(std::string_view text) {
  const auto message = quillon::internal::canMessage(text);
  return message ? canFrameIn(*message) : std::nullopt;
}

std::string QLTCanFrame::text() const {
  const auto message = canMessageOf(*this);
  return message ? quillon::internal::canText(*message).value_or("") : "";
}

std::string QLTCanFrame::complaint() const {
  if (id.number > mostOf(id.isExtended)) {
    return format("the identifier 0x%x is larger than 0x%x", id.number, mostOf(id.isExtended));
  }
  if (isRemote) {
    if (isFd) return "there are no remote frames of CAN FD";
    if (!data.empty()) return "a remote frame has no data";
    const bool isKnown = remoteLength >= 0 && remoteLength <= CAN_MAX_DLEN;
    return isKnown ? "" : format("a remote frame asks for 0 to 8 bytes, not %d", remoteLength);
  }
  if (!isFd) {
    if (isSwitched) return "only FD frames have a higher bit rate";
    return data.size() <= CAN_MAX_DLEN ? ""
                                       : format("a frame has 0 to 8 bytes, not %d", data.size());
  }
  if (isCanFdLength(data.size())) return "";
  return format("an FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes, not %d", data.size());
}

// Filters.

bool QLTCanFilter::accepts(const QLTCanId& other) const {
  return other.isExtended == id.isExtended && (other.number & mask) == (id.number & mask);
}

std::optional<std::vector<QLTCanFilter>> QLTCanFilter::listIn(const QLTText& text,
                                                              QLTError* error) {
  std::vector<QLTCanFilter> filters;
  for (const std::string& piece : quillon::internal::split(text.orEmpty(), " ")) {
    if (piece.empty()) continue;
    const auto filter = filterIn(piece);
    if (!filter) {
      return quillon::bench::fail(
          error, kQLTErrorConfigWrong,
          format("\"%@\" is not ID or ID/MASK, of 3 or 8 hexadecimal digits each", piece));
    }
    filters.push_back(*filter);
  }
  return filters;
}
