#include "ModbusFrame.h"

#include <utility>

namespace sim {
namespace {

constexpr std::chrono::milliseconds kSilence(50);
constexpr std::size_t kTcpHeader = 7;     // transaction, protocol, length, unit
constexpr std::size_t kLongestTcp = 254;  // as the header counts: unit, function, data
constexpr std::size_t kChecksum = 2;
constexpr std::size_t kLongestRtu = 256;

std::uint8_t byteAt(std::string_view bytes, std::size_t place) {
  return static_cast<std::uint8_t>(bytes[place]);
}

bool endsInChecksum(std::string_view frame) {
  const std::string_view content = frame.substr(0, frame.size() - kChecksum);
  return frame.substr(content.size()) == modbusChecksum(content);
}

/// How long a request on a serial line is; absent when more of it must come first, or when its
/// function tells nothing.
std::optional<std::size_t> lengthOfRtu(std::string_view frame) {
  constexpr std::size_t fixed = 8;
  constexpr std::size_t countAt = 6;
  switch (byteAt(frame, 1)) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 6:
      return fixed;
    case 15:
    case 16:
      if (frame.size() > countAt) return countAt + 1 + byteAt(frame, countAt) + kChecksum;
      return std::nullopt;
    default:
      // It ends where a checksum fits.
      if (frame.size() > kChecksum + 1 && endsInChecksum(frame)) return frame.size();
      return std::nullopt;
  }
}

}  // namespace

std::uint16_t wordAt(std::string_view bytes, std::size_t place) {
  return static_cast<std::uint16_t>(byteAt(bytes, place) << 8 | byteAt(bytes, place + 1));
}

void appendWord(std::string& bytes, std::uint16_t word) {
  bytes += static_cast<char>(word >> 8);
  bytes += static_cast<char>(word & 0xff);
}

std::string modbusChecksum(std::string_view bytes) {
  constexpr std::uint16_t polynomial = 0xa001;
  std::uint16_t sum = 0xffff;
  for (const char byte : bytes) {
    sum ^= static_cast<std::uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      const bool isOdd = (sum & 1) != 0;
      sum = static_cast<std::uint16_t>(sum >> 1);
      if (isOdd) sum ^= polynomial;
    }
  }
  return {static_cast<char>(sum & 0xff), static_cast<char>(sum >> 8)};  // the low byte first
}

ModbusRequest modbusRequestIn(const std::string& frame, ModbusFraming framing) {
  if (framing == ModbusFraming::Tcp) {
    return {wordAt(frame, 0), byteAt(frame, kTcpHeader - 1), frame.substr(kTcpHeader)};
  }
  return {0, byteAt(frame, 0), frame.substr(1, frame.size() - 1 - kChecksum)};
}

std::string modbusFrame(const ModbusRequest& reply, ModbusFraming framing) {
  std::string frame;
  if (framing == ModbusFraming::Tcp) {
    appendWord(frame, reply.transaction);
    appendWord(frame, 0);
    appendWord(frame, static_cast<std::uint16_t>(reply.pdu.size() + 1));
  }
  frame += static_cast<char>(reply.unit);
  return frame + reply.pdu;
}

std::optional<std::string> ModbusSplitter::add(char byte) {
  const auto now = std::chrono::steady_clock::now();
  if (framing_ == ModbusFraming::Rtu && now - last_ > kSilence) frame_.clear();
  last_ = now;
  frame_ += byte;
  if (!isWhole()) {
    if (frame_.size() > kLongestRtu + kTcpHeader) frame_.clear();
    return std::nullopt;
  }
  std::string frame = std::exchange(frame_, {});
  if (framing_ == ModbusFraming::Rtu && !endsInChecksum(frame)) return std::nullopt;
  return frame;
}

bool ModbusSplitter::isWhole() const {
  if (framing_ == ModbusFraming::Rtu) {
    return frame_.size() > 1 && lengthOfRtu(frame_) == frame_.size();
  }
  if (frame_.size() < kTcpHeader) return false;
  const std::size_t length = wordAt(frame_, 4);
  return length > 1 && length <= kLongestTcp && frame_.size() == kTcpHeader - 1 + length;
}

}  // namespace sim
