#include "ResultsCsv.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "common/Csv.h"
#include "reports/Format.h"

namespace station {
namespace {

using quillon::internal::appendCsvField;
using quillon::internal::kCsvLineEnd;

class Line {
 public:
  explicit Line(std::string start = {}) : text_(std::move(start)) {}

  Line& add(const std::string& text) {
    next();
    appendCsvField(text_, text);
    return *this;
  }
  Line& add(const char* text) { return add(std::string(text)); }
  Line& add(std::int64_t number) { return add(std::to_string(number)); }
  Line& add(double number) { return add(reports::exactText(number)); }
  template <typename Value>
  Line& add(const std::optional<Value>& value) {
    if (value) return add(*value);
    next();
    return *this;
  }
  Line& addTime(const std::optional<std::int64_t>& microseconds) {
    if (microseconds) return add(reports::exactTime(*microseconds));
    next();
    return *this;
  }

  const std::string& text() const { return text_; }

 private:
  void next() {
    if (!isFirst_) text_ += ',';
    isFirst_ = false;
  }

  std::string text_;
  bool isFirst_ = text_.empty();
};

const results::Spec* specOf(const results::RunContent& content, const std::string& id) {
  const auto found = std::find_if(content.specs.begin(), content.specs.end(),
                                  [&](const results::Spec& spec) { return spec.id == id; });
  return found == content.specs.end() ? nullptr : &*found;
}

}  // namespace

std::string measurementCsvHead() {
  Line line;
  for (const char* const name :
       {"run",     "started",        "ended",    "station",     "site",     "serial",
        "batch",   "part",           "revision", "process",     "operator", "kind",
        "bundle",  "bundle_version", "flow",     "run_verdict", "sequence", "step",
        "attempt", "superseded",     "number",   "test",        "sub_test", "value",
        "text",    "unit",           "low",      "high",        "expected", "verdict",
        "message"}) {
    line.add(name);
  }
  return line.text() + std::string(kCsvLineEnd);
}

std::string measurementCsvOf(const results::RunRecord& record) {
  const results::RunContent& content = record.content;
  const results::Run& run = content.run;
  Line start;
  start.add(run.id)
      .addTime(run.startedUs)
      .addTime(run.endedUs)
      .add(record.station.name)
      .add(run.site)
      .add(run.serial)
      .add(run.batch)
      .add(run.part)
      .add(run.revision)
      .add(run.process)
      .add(run.operatorName)
      .add(text(run.kind))
      .add(content.plan.bundle)
      .add(content.plan.bundleVersion)
      .add(content.plan.flow)
      .add(text(run.verdict));
  std::string lines;
  for (const results::Measurement& measurement : content.measurements) {
    const results::Spec* const found = specOf(content, measurement.specId);
    const results::Spec spec = found == nullptr ? results::Spec() : *found;
    Line line(start.text());
    line.add(measurement.sequence)
        .add(measurement.step)
        .add(measurement.attempt)
        .add(std::int64_t{measurement.superseded ? 1 : 0})
        .add(spec.number)
        .add(spec.test)
        .add(spec.subTest)
        .add(measurement.value)
        .add(measurement.text)
        .add(spec.unit)
        .add(spec.low)
        .add(spec.high)
        .add(spec.expected)
        .add(text(measurement.verdict))
        .add(measurement.message);
    lines += line.text() + std::string(kCsvLineEnd);
  }
  return lines;
}

}  // namespace station
