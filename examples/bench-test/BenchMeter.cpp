#include "BenchMeter.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <utility>

#include <QLTSerial.h>
#include <QLTUtil.h>

namespace {

constexpr std::int32_t kNoSuchMeter = -100;  // the plug-in's own codes
constexpr std::int32_t kNoReading = -101;

constexpr std::uint64_t kBaudRate = 9600;
constexpr double kOverload = 9.9e37;  // how SCPI says "beyond the range"

/// Fills the caller's error; null, for the caller to return.
std::nullptr_t fail(std::int32_t code, const std::string& message, QLTError* error) {
  const QLTError record = QLTUtil::handleError(code, message);
  if (error != nullptr) *error = record;
  return nullptr;
}

/// A serial port that is read line by line. A serial port's own `read` gives what has come so far,
/// which may be half a reply, and takes silence for an empty one.
class LinePort : public QLTSerial {
 public:
  using QLTSerial::QLTSerial;

  std::optional<std::string> read(std::int32_t size, QLTError* error) override {
    std::string line;
    for (std::int32_t pieces = 0; pieces < size; ++pieces) {  // even a flood has an end
      const auto piece = QLTSerial::read(size, error);
      if (!piece) return std::nullopt;
      if (piece->empty()) break;
      line += *piece;
      // What may be left of an earlier reply's line end.
      line.erase(0, line.find_first_not_of("\r\n"));
      if (line.find_first_of("\r\n") != line.npos) return line;
    }
    fail(kNoReading, "no reply that ends in time", error);
    return std::nullopt;
  }
};

std::optional<double> numberIn(std::string_view answer) {
  if (answer.starts_with('+')) answer.remove_prefix(1);
  double number = 0;
  const auto result = std::from_chars(answer.data(), answer.data() + answer.size(), number);
  return result.ec == std::errc{} ? std::optional(number) : std::nullopt;
}

std::string withoutQuotes(std::string text) {
  std::erase_if(text, [](char c) { return c == '"' || c == '\r' || c == '\n'; });
  return text;
}

}  // namespace

std::shared_ptr<BenchMeter> BenchMeter::fromEntry(const QLTDictionary& entry, QLTError* error) {
  const QLTValue* const bsdPath = entry.find("bsdPath");
  if (bsdPath == nullptr) return fail(kNoSuchMeter, "BenchMeter needs bsdPath=...", error);

  const auto port = std::make_shared<LinePort>(bsdPath->text());
  const QLTValue* const baudRate = entry.find("baudRate");
  port->setBaudRate(baudRate != nullptr ? static_cast<std::uint64_t>(baudRate->intValue())
                                        : kBaudRate);
  QLTError problem;
  if (!port->open(&problem)) {
    if (error != nullptr) {
      *error = QLTUtil::handleError(problem, "cannot open the multimeter at " + bsdPath->text());
    }
    return nullptr;
  }
  auto scpi = QLTScpiInstrument::initWithDevice(port);  // asks for its identity
  if (!scpi) {
    return fail(kNoSuchMeter, "no multimeter answers at " + bsdPath->text(), error);
  }
  return std::make_shared<BenchMeter>(std::move(scpi));
}

BenchMeter::BenchMeter(std::shared_ptr<QLTScpiInstrument> scpi) : scpi_(std::move(scpi)) {}

std::optional<double> BenchMeter::measure(const std::string& function, QLTError* error) {
  QLTError problem;
  const auto answer = scpi_->query("MEAS:" + function + "?", &problem);
  if (!answer) {
    // To what it cannot do it says nothing, and keeps the reason in its error queue.
    QLTError reason;
    if (scpi_->queryError(&reason)) {
      problem = scpi_->makeError(static_cast<std::int32_t>(reason.code()),
                                 "the multimeter says: " + withoutQuotes(*reason.description()));
    }
    if (error != nullptr) *error = problem;
    return std::nullopt;
  }
  const auto reading = numberIn(*answer);
  if (!reading) fail(kNoReading, "not a reading: " + withoutQuotes(*answer), error);
  if (reading && *reading >= kOverload) {
    fail(kNoReading, "the multimeter shows an overload", error);
    return std::nullopt;
  }
  return reading;
}
