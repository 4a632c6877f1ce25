#include "ModbusAccess.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "common/Format.h"

namespace quillon::bench {
namespace {

using internal::format;
using Type = QLTModbusNumber::Type;

constexpr std::int32_t kLastAddress = 65535;

struct Function {
  const char* words;
  std::int32_t most;
};

const Function& infoOf(ModbusFunction function) {
  static constexpr std::array<Function, 8> all{{{"read coils", 2000},
                                                {"read discrete inputs", 2000},
                                                {"read holding registers", 125},
                                                {"read input registers", 125},
                                                {"write coil", 1},
                                                {"write coils", 1968},
                                                {"write register", 1},
                                                {"write registers", 123}}};
  return all[static_cast<std::size_t>(function)];
}

template <typename Integer>
std::optional<std::uint32_t> bitsOf(double value) {
  if (value < static_cast<double>(std::numeric_limits<Integer>::min()) ||
      value > static_cast<double>(std::numeric_limits<Integer>::max())) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(static_cast<Integer>(value));
}

std::optional<std::uint32_t> bitsOf(double value, Type type) {
  if (type == Type::Float32) {
    if (std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
      return std::nullopt;
    }
    const auto number = static_cast<float>(value);
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
  }
  const double whole = std::round(value);
  switch (type) {
    case Type::U16:
      return bitsOf<std::uint16_t>(whole);
    case Type::S16:
      return bitsOf<std::int16_t>(whole);
    case Type::U32:
      return bitsOf<std::uint32_t>(whole);
    default:
      return bitsOf<std::int32_t>(whole);
  }
}

}  // namespace

std::string ModbusAccess::text() const {
  const char* const words = infoOf(function).words;
  if (count <= 1) return format("%@ %d", words, address);
  return format("%@ %d..%d", words, address, address + count - 1);
}

std::optional<std::string> ModbusAccess::complaint() const {
  const Function& info = infoOf(function);
  if (count < 1 || count > info.most) {
    return format("cannot %@ %d: %d at once, there are 1 to %d", info.words, address, count,
                  info.most);
  }
  if (address < 0 || address > kLastAddress - (count - 1)) {
    return format("cannot %@: addresses are 0 to %d", text(), kLastAddress);
  }
  return std::nullopt;
}

std::string modbusExceptionText(std::int64_t exception) {
  switch (exception) {
    case 1:
      return "illegal function";
    case 2:
      return "illegal data address";
    case 3:
      return "illegal data value";
    case 4:
      return "failure of the device";
    case 5:
      return "acknowledged, and still at work";
    case 6:
      return "device is busy";
    case 7:
      return "negative acknowledge";
    case 8:
      return "memory parity error";
    case 10:
      return "gateway has no path to the unit";
    case 11:
      return "unit behind the gateway does not answer";
    default:
      return "";
  }
}

std::int32_t registerCount(const QLTModbusNumber& as) {
  return as.type == Type::U16 || as.type == Type::S16 ? 1 : 2;
}

double numberIn(const std::vector<std::uint16_t>& words, const QLTModbusNumber& as) {
  double raw = 0;
  if (registerCount(as) == 1) {
    raw = as.type == Type::S16 ? static_cast<double>(static_cast<std::int16_t>(words[0]))
                               : static_cast<double>(words[0]);
  } else {
    const bool isHighFirst = as.words == QLTModbusNumber::Words::HighFirst;
    const std::uint32_t high = words[isHighFirst ? 0 : 1];
    const std::uint32_t bits = high << 16 | words[isHighFirst ? 1 : 0];
    if (as.type == Type::Float32) {
      float number = 0;
      std::memcpy(&number, &bits, sizeof number);
      raw = number;
    } else {
      raw = as.type == Type::S32 ? static_cast<double>(static_cast<std::int32_t>(bits))
                                 : static_cast<double>(bits);
    }
  }
  return raw * as.scale + as.offset;
}

std::optional<std::vector<std::uint16_t>> wordsOf(double value, const QLTModbusNumber& as) {
  const double raw = (value - as.offset) / as.scale;
  if (!std::isfinite(raw)) return std::nullopt;
  const auto bits = bitsOf(raw, as.type);
  if (!bits) return std::nullopt;
  const auto high = static_cast<std::uint16_t>(*bits >> 16);
  const auto low = static_cast<std::uint16_t>(*bits & 0xffff);
  if (registerCount(as) == 1) return std::vector{low};
  const bool isHighFirst = as.words == QLTModbusNumber::Words::HighFirst;
  return isHighFirst ? std::vector{high, low} : std::vector{low, high};
}

}  // namespace quillon::bench
