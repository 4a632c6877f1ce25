#include "SerialPattern.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include <re2/re2.h>

namespace station {
namespace {

// A bound on the program that a pattern becomes, and with it on the time that each character takes.
constexpr std::int64_t kMostMemory = 1 << 20;
// What is wrong with a pattern may quote it.
constexpr std::size_t kLongest = 4096;

RE2::Options options() {
  RE2::Options options;
  options.set_log_errors(false);
  options.set_never_capture(true);
  options.set_max_mem(kMostMemory);
  return options;
}

}  // namespace

SerialPattern::SerialPattern(const std::string& pattern) {
  // Nothing but an empty number would match, and that is none.
  if (pattern.empty()) throw std::invalid_argument("it is empty");
  if (pattern.size() > kLongest) throw std::invalid_argument("it is longer than 4096 bytes");
  auto compiled = std::make_shared<const RE2>(pattern, options());
  if (!compiled->ok()) throw std::invalid_argument(compiled->error());
  compiled_ = std::move(compiled);
}

bool SerialPattern::matches(std::string_view serialNumber) const {
  return RE2::FullMatch(re2::StringPiece(serialNumber.data(), serialNumber.size()), *compiled_);
}

const std::string& SerialPattern::text() const { return compiled_->pattern(); }

}  // namespace station
