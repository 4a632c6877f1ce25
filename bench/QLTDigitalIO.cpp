#include "QLTDigitalIO.h"

#include <algorithm>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::fail;
using quillon::internal::format;

namespace {

using Line = QLTDigitalIO::Line;

/// Appends the lines in `text`; gives the reason when it is malformed, else "".
std::string readLines(const std::string& text, bool areOutputs, std::vector<Line>& lines) {
  for (const std::string& piece : quillon::internal::split(text, " ")) {
    if (piece.empty()) continue;
    const std::size_t colon = piece.find(':');
    if (colon == 0 || colon == piece.npos) {
      return format("\"%@\" is not name:channel, or name:!channel", piece);
    }
    const bool isInverted = piece.compare(colon + 1, 1, "!") == 0;
    Line line{piece.substr(0, colon), piece.substr(colon + (isInverted ? 2 : 1)), areOutputs,
              isInverted};
    if (line.channel.empty()) return format("\"%@\" names no channel", piece);
    const auto isSame = [&](const Line& other) { return other.name == line.name; };
    if (std::any_of(lines.begin(), lines.end(), isSame)) {
      return format("\"%@\" is there twice", line.name);
    }
    lines.push_back(std::move(line));
  }
  return "";
}

}  // namespace

std::optional<std::vector<Line>> QLTDigitalIO::linesIn(const QLTText& outputs,
                                                       const QLTText& inputs, QLTError* error) {
  std::vector<Line> lines;
  std::string problem = readLines(outputs.orEmpty(), true, lines);
  if (problem.empty()) problem = readLines(inputs.orEmpty(), false, lines);
  if (problem.empty()) return lines;
  return fail(error, kQLTErrorConfigWrong, problem);
}

QLTDigitalIO::QLTDigitalIO(std::shared_ptr<QLTDigitalPort> port, std::vector<Line> lines)
    : port_(std::move(port)), lines_(std::move(lines)) {}

QLTDigitalIO::~QLTDigitalIO() {
  if (isOffAtEnd_ && !port_->isLost()) QLTDigitalIO::allOff();
}

std::vector<std::string> QLTDigitalIO::outputs() const { return names(true); }

std::vector<std::string> QLTDigitalIO::inputs() const { return names(false); }

std::vector<std::string> QLTDigitalIO::names(bool areOutputs) const {
  std::vector<std::string> names;
  for (const Line& line : lines_) {
    if (line.isOutput == areOutputs) names.push_back(line.name);
  }
  return names;
}

const Line* QLTDigitalIO::find(const std::string& name, QLTError* error) const {
  const auto line = std::find_if(lines_.begin(), lines_.end(),
                                 [&](const Line& known) { return known.name == name; });
  if (line != lines_.end()) return &*line;
  fail(error, kQLTErrorDigitalLine,
       format("%@: no line \"%@\"; outputs: %@; inputs: %@", where(), name,
              QLTUtil::arrayToString(outputs(), ", "), QLTUtil::arrayToString(inputs(), ", ")));
  return nullptr;
}

bool QLTDigitalIO::write(const Line& line, bool isOn, QLTError* error) {
  QLTLog(format("{Digital_Write %@}: %@ %@", where(), line.name, isOn ? "on" : "off"));
  return port_->writeOutput(line.channel, isOn != line.isInverted, error);
}

bool QLTDigitalIO::set(const QLTText& name, bool isOn, QLTError* error) {
  const Line* const line = find(name.orEmpty(), error);
  if (line == nullptr) return false;
  if (line->isOutput) return write(*line, isOn, error);
  return fail(error, kQLTErrorDigitalLine,
              format("%@: \"%@\" is an input, and cannot be switched", where(), line->name));
}

std::optional<bool> QLTDigitalIO::isOn(const QLTText& name, QLTError* error) {
  const Line* const line = find(name.orEmpty(), error);
  if (line == nullptr) return std::nullopt;
  const auto isHigh = line->isOutput ? port_->readOutput(line->channel, error)
                                     : port_->readInput(line->channel, error);
  if (!isHigh) return std::nullopt;
  return *isHigh != line->isInverted;
}

std::optional<bool> QLTDigitalIO::waitUntil(const QLTText& name, bool isOn, double seconds,
                                            QLTError* error) {
  const Line* const line = find(name.orEmpty(), error);
  if (line == nullptr) return std::nullopt;
  if (!line->isOutput) {
    return port_->waitForInput(line->channel, isOn != line->isInverted, seconds, error);
  }
  fail(error, kQLTErrorDigitalLine,
       format("%@: \"%@\" is an output, and cannot be waited for", where(), line->name));
  return std::nullopt;
}

bool QLTDigitalIO::allOff(QLTError* error) {
  QLTError first;
  bool areOff = true;
  for (const Line& line : lines_) {
    if (!line.isOutput) continue;
    if (!write(line, false, areOff ? &first : nullptr)) areOff = false;
  }
  if (!areOff && error != nullptr) *error = first;
  return areOff;
}

void QLTDigitalIO::tellSafe() {
  for (const Line& line : lines_) {
    if (line.isOutput) port_->tellOutput(line.channel, line.isInverted);
  }
}

bool QLTDigitalIO::makeSafe(QLTError* error) {
  QLTDigitalIO::tellSafe();
  return allOff(error);
}

bool QLTDigitalIO::reopen(QLTError* error) { return port_->reopen(error) && allOff(error); }
