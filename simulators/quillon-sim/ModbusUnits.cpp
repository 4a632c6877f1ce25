#include "ModbusUnits.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "Problem.h"
#include "Text.h"
#include "common/Text.h"

namespace sim {
namespace {

using Words = std::map<std::uint16_t, std::uint16_t>;
using Table = ModbusUnits::Table;

constexpr std::uint64_t kMostUnits = 255;
constexpr std::uint16_t kOn = 0xff00;
constexpr char kExceptionFlag = '\x80';

enum Exception : std::uint8_t {
  kIllegalFunction = 1,
  kIllegalAddress = 2,
  kIllegalValue = 3,
  kNoUnitBehindTheGateway = 11,
};

/// What a function does.
struct Function {
  char code;
  const char* words;
  Table table;
  bool isWrite;
  bool isSingle;  ///< a write of one value, which stands where others have a count
  std::uint16_t most;
};

constexpr std::array kFunctions{
    Function{1, "read coils", Table::Coils, false, false, 2000},
    Function{2, "read discrete inputs", Table::DiscreteInputs, false, false, 2000},
    Function{3, "read holding registers", Table::HoldingRegisters, false, false, 125},
    Function{4, "read input registers", Table::InputRegisters, false, false, 125},
    Function{5, "write coil", Table::Coils, true, true, 1},
    Function{6, "write register", Table::HoldingRegisters, true, true, 1},
    Function{15, "write coils", Table::Coils, true, false, 1968},
    Function{16, "write registers", Table::HoldingRegisters, true, false, 123},
};

bool isOfBits(Table table) { return table == Table::Coils || table == Table::DiscreteInputs; }

const Function* functionOf(const std::string& pdu) {
  const auto found = std::find_if(kFunctions.begin(), kFunctions.end(),
                                  [&](const Function& known) { return known.code == pdu[0]; });
  return found == kFunctions.end() ? nullptr : found;
}

/// How many bytes so many values take.
std::size_t sizeOf(Table table, std::size_t count) {
  return isOfBits(table) ? (count + 7) / 8 : count * 2;
}

std::string packed(Table table, const std::vector<std::uint16_t>& values) {
  std::string bytes;
  if (!isOfBits(table)) {
    for (const std::uint16_t value : values) appendWord(bytes, value);
    return bytes;
  }
  bytes.resize(sizeOf(table, values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0) bytes[i / 8] = static_cast<char>(bytes[i / 8] | 1 << i % 8);
  }
  return bytes;
}

std::vector<std::uint16_t> unpacked(Table table, std::string_view bytes, std::size_t count) {
  std::vector<std::uint16_t> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.push_back(isOfBits(table) ? bytes[i / 8] >> i % 8 & 1 : wordAt(bytes, i * 2));
  }
  return values;
}

std::string exception(const std::string& pdu, std::uint64_t code) {
  return {static_cast<char>(pdu[0] | kExceptionFlag), static_cast<char>(code)};
}

/// A request that is as its function wants it.
struct Access {
  const Function* function = nullptr;
  std::uint16_t address = 0;
  std::uint16_t count = 1;
  std::vector<std::uint16_t> values;  ///< of a write
  std::uint8_t complaint = 0;         ///< the exception to one that is not
};

Access accessIn(const std::string& pdu) {
  constexpr std::size_t fixed = 5;         // function, address, value or count
  constexpr std::size_t head = fixed + 1;  // and how many bytes of values follow
  Access access{functionOf(pdu), 0, 1, {}, 0};
  if (access.function == nullptr) {
    access.complaint = kIllegalFunction;
    return access;
  }
  access.complaint = kIllegalValue;
  if (pdu.size() < fixed) return access;
  const Function& function = *access.function;
  access.address = wordAt(pdu, 1);
  const std::uint16_t word = wordAt(pdu, 3);
  if (function.isSingle) {
    const bool isBit = isOfBits(function.table);
    if (pdu.size() != fixed || (isBit && word != 0 && word != kOn)) return access;
    access.values = {isBit ? static_cast<std::uint16_t>(word == kOn) : word};
  } else {
    access.count = word;
    const std::size_t bytes = function.isWrite ? sizeOf(function.table, word) : 0;
    if (word == 0 || word > function.most) return access;
    if (pdu.size() != (function.isWrite ? head + bytes : fixed)) return access;
    if (function.isWrite) {
      if (static_cast<unsigned char>(pdu[fixed]) != bytes) return access;
      access.values = unpacked(function.table, std::string_view(pdu).substr(head), word);
    }
  }
  access.complaint = 0;
  return access;
}

/// Reads or writes; the answer's function and data.
std::string accessed(const std::string& pdu, std::array<Words, 4>& tables) {
  const Access access = accessIn(pdu);
  if (access.complaint != 0) return exception(pdu, access.complaint);
  const Function& function = *access.function;
  Words& words = tables[static_cast<std::size_t>(function.table)];
  for (std::uint32_t i = 0; i < access.count; ++i) {
    const std::uint32_t place = access.address + i;
    if (place > std::numeric_limits<std::uint16_t>::max() ||
        words.count(static_cast<std::uint16_t>(place)) == 0) {
      return exception(pdu, kIllegalAddress);
    }
  }
  const auto at = [&](std::size_t i) -> std::uint16_t& {
    return words[static_cast<std::uint16_t>(access.address + i)];
  };
  if (function.isWrite) {
    for (std::size_t i = 0; i < access.values.size(); ++i) at(i) = access.values[i];
    return pdu.substr(0, 5);
  }
  std::vector<std::uint16_t> values;
  for (std::size_t i = 0; i < access.count; ++i) values.push_back(at(i));
  const std::string bytes = packed(function.table, values);
  return pdu.substr(0, 1) + static_cast<char>(bytes.size()) + bytes;
}

std::uint16_t valueIn(std::string_view text, Table table) {
  const auto value = quillon::internal::numberIn<std::int32_t>(text);
  const bool isBit = isOfBits(table);
  constexpr std::int32_t least = std::numeric_limits<std::int16_t>::min();
  constexpr std::int32_t most = std::numeric_limits<std::uint16_t>::max();
  if (!value || *value < (isBit ? 0 : least) || *value > (isBit ? 1 : most)) {
    throw Problem("'" + std::string(text) +
                  (isBit ? "' is neither 0 nor 1" : "' is not a number from -32768 to 65535"));
  }
  return static_cast<std::uint16_t>(*value);
}

/// The number behind `words` at the front of `text`; absent when it does not begin so.
std::optional<std::uint64_t> behind(std::string_view words, std::string_view text,
                                    std::uint64_t most) {
  if (!text.starts_with(words)) return std::nullopt;
  return numberIn(text.substr(words.size()), most);
}

/// The answer with the values that a reply file gives.
std::string givenAnswer(const std::string& pdu, const std::string& text) {
  const Function* const function = functionOf(pdu);
  if (function == nullptr || function->isWrite) {
    throw Problem("'" + text +
                  "' is no reply to a write; there are own, exception N, from unit N, "
                  "bad crc, cut N");
  }
  std::vector<std::uint16_t> values;
  for (const std::string& piece : quillon::internal::split(text, " ")) {
    values.push_back(valueIn(piece, function->table));
  }
  const std::string bytes = packed(function->table, values);
  return pdu.substr(0, 1) + static_cast<char>(bytes.size()) + bytes;
}

}  // namespace

ModbusUnits::ModbusUnits(ReplyTable replies, ModbusFraming framing)
    : Device(std::move(replies), " "), framing_(framing) {}

void ModbusUnits::set(Table table, const std::string& text) {
  const std::size_t sign = text.find('=');
  if (sign == text.npos) throw Problem("'" + text + "' is not [UNIT/]ADDRESS=VALUE[,VALUE...]");
  std::string_view place = std::string_view(text).substr(0, sign);
  std::uint8_t unit = first_;
  if (const std::size_t slash = place.find('/'); slash != place.npos) {
    unit = static_cast<std::uint8_t>(numberIn(place.substr(0, slash), kMostUnits));
    place.remove_prefix(slash + 1);
  }
  constexpr std::uint64_t last = std::numeric_limits<std::uint16_t>::max();
  std::uint64_t address = numberIn(place, last);
  for (const std::string& value : quillon::internal::split(text.substr(sign + 1), ",")) {
    if (address > last) throw Problem("'" + text + "' goes beyond address 65535");
    units_[unit].tables[static_cast<std::size_t>(table)][static_cast<std::uint16_t>(address++)] =
        valueIn(value, table);
  }
}

std::unique_ptr<Splitter> ModbusUnits::splitter() const {
  return std::make_unique<ModbusSplitter>(framing_);
}

/// The unit that is meant. Over TCP those who have but one do not care for its address.
std::uint8_t ModbusUnits::addressed() const {
  const bool isForAny =
      framing_ == ModbusFraming::Tcp && (request_.unit == 0 || request_.unit == 255);
  return isForAny ? first_ : request_.unit;
}

std::optional<std::string> ModbusUnits::commandIn(const std::string& request) {
  request_ = modbusRequestIn(request, framing_);
  units_[first_];  // is there, also without any value
  if (framing_ == ModbusFraming::Rtu && request_.unit == 0) {
    for (auto& [address, unit] : units_) accessed(request_.pdu, unit.tables);
    return std::nullopt;  // to all, and nobody answers
  }
  const std::uint8_t unit = addressed();
  if (units_.count(unit) == 0 && framing_ == ModbusFraming::Rtu) return std::nullopt;
  const Access access = accessIn(request_.pdu);
  std::string command;
  if (access.complaint != 0) {
    command = "function " + std::to_string(static_cast<unsigned char>(request_.pdu[0]));
  } else {
    command = access.function->words + std::string(" ") + std::to_string(access.address);
    if (!access.function->isWrite) command += " " + std::to_string(access.count);
    for (const std::uint16_t value : access.values) command += " " + std::to_string(value);
  }
  return unit == first_ ? command : command + " unit " + std::to_string(unit);
}

std::optional<Device::Lines> ModbusUnits::ownReply(const std::string&) { return Lines{"own"}; }

/// Does what is asked; the answer's function and data.
std::string ModbusUnits::perform() {
  const auto unit = units_.find(addressed());
  if (unit == units_.end()) return exception(request_.pdu, kNoUnitBehindTheGateway);
  return accessed(request_.pdu, unit->second.tables);
}

ModbusRequest ModbusUnits::replyOf(const std::string& text) {
  ModbusRequest reply = request_;
  constexpr std::uint64_t most = 255;
  if (const auto code = behind("exception ", text, most)) {
    reply.pdu = exception(request_.pdu, *code);
  } else if (const auto other = behind("from unit ", text, kMostUnits)) {
    reply.pdu = perform();
    reply.unit = static_cast<std::uint8_t>(*other);
  } else {
    reply.pdu = givenAnswer(request_.pdu, text);
  }
  return reply;
}

std::string ModbusUnits::bytesOf(const Lines& lines) {
  const std::string text = Device::bytesOf(lines);
  const bool isBad = text == "bad crc";
  const std::optional<std::uint64_t> kept = behind("cut ", text, 300);
  ModbusRequest reply = request_;
  if (isBad || kept || text == "own") {
    reply.pdu = perform();
  } else {
    reply = replyOf(text);
  }
  std::string frame = modbusFrame(reply, framing_);
  end_ = framing_ == ModbusFraming::Rtu ? modbusChecksum(frame) : "";
  if (isBad) {
    if (end_.empty()) throw Problem("over TCP there is no checksum that could be bad");
    end_.back() = static_cast<char>(~end_.back());
  }
  if (kept) {
    frame = (frame + end_).substr(0, *kept);
    end_.clear();
  }
  return frame;
}

std::string ModbusUnits::endOf(const Lines&) const { return end_; }

}  // namespace sim
