#include "RunJson.h"

#include <optional>
#include <string>

#include <QLTValue.h>

namespace station {
namespace {

std::string number(double value) { return QLTValue(value).text(); }

/// "Voltages / VREF: 2.71 V, limits 2.4 to 2.6 (check R7)".
std::string wordsOf(const results::FailedRecord& failed) {
  const auto& [record, spec] = failed;
  std::string text = spec.test;
  if (!spec.subTest.empty()) text += " / " + spec.subTest;
  text += ": ";
  if (!record.value) return text + record.message.value_or(record.text.value_or("no value"));
  text += number(*record.value);
  if (spec.unit) text += " " + *spec.unit;
  if (spec.low && spec.high) text += ", limits " + number(*spec.low) + " to " + number(*spec.high);
  if (record.message && !record.message->empty()) text += " (" + *record.message + ")";
  return text;
}

}  // namespace

nlohmann::json jsonOf(const results::Run& run, results::Queries& queries) {
  nlohmann::json json{{"id", run.id},
                      {"site", run.site},
                      {"serial", run.serial},
                      {"kind", results::text(run.kind)},
                      {"startedAt", run.startedUs},
                      {"verdict", results::text(run.verdict)}};
  const auto put = [&json](const char* name, const auto& value) {
    if (value) json[name] = *value;
  };
  put("operator", run.operatorName);
  put("reason", run.reason);
  put("endedAt", run.endedUs);
  put("message", run.message);
  if (const auto failed = queries.firstFailure(run)) json["firstFailure"] = wordsOf(*failed);
  return json;
}

}  // namespace station
