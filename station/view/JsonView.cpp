#include "JsonView.h"

#include "Json.h"
#include "ResultText.h"
#include "common/TimeStamp.h"

namespace station {
namespace {

constexpr int kFormat = 1;

Json verdictIn(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return "PASS";
    case Verdict::Fail:
      return "FAIL";
    case Verdict::BrokenOff:
      return "BROKEN_OFF";
  }
  return nullptr;
}

/// What JSON has no kind for, a date or data, is text.
Json jsonOf(const QLTValue& value) {
  switch (value.type()) {
    case QLTValue::Type::Boolean:
      return value.boolValue();
    case QLTValue::Type::Integer:
      return value.int64Value();
    case QLTValue::Type::Real:
      return value.doubleValue();
    case QLTValue::Type::Array: {
      Json array = Json::array();
      for (const QLTValue& element : *value.array()) array.push_back(jsonOf(element));
      return array;
    }
    case QLTValue::Type::Dictionary: {
      Json object = Json::object();
      for (const auto& [key, entry] : *value.dictionary()) object[key] = jsonOf(entry);
      return object;
    }
    default:
      return value.text();
  }
}

Json jsonOf(const QLTestResult& record) {
  const auto& extras = record.extras();
  return {{"number", orNull(record.testNumber())},
          {"subTest", orNull(record.subTestName())},
          {"verdict", markText(record)},
          {"value", orNull(record.value())},
          {"text", orNull(record.actual())},
          {"low", orNull(record.low())},
          {"high", orNull(record.high())},
          {"expected", orNull(record.expected())},
          {"unit", orNull(record.unit())},
          {"message", orNull(record.failMessage())},
          {"priority", record.priority()},
          {"extras", extras ? jsonOf(QLTValue(*extras)) : Json::object()}};
}

Json jsonOf(const FinishedTest& test) {
  Json records = Json::array();
  for (const auto& record : test.records) records.push_back(jsonOf(*record));
  return {{"number", test.index},
          {"name", test.test},
          {"verdict", verdictIn(test.verdict)},
          {"retested", test.retested},
          {"seconds", test.seconds},
          {"failure", test.failure.empty() ? Json(nullptr) : Json(test.failure)},
          {"records", std::move(records)}};
}

std::string now() {
  std::string text = quillon::internal::timeStamp();
  text.at(text.find(' ')) = 'T';
  return text + "Z";
}

}  // namespace

void JsonView::deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) {
  Json device{{"format", kFormat},
              {"site", outcome.site},
              {"serialNumber", outcome.serialNumber},
              {"round", outcome.round},
              {"run", outcome.run.empty() ? Json(nullptr) : Json(outcome.run)},
              {"verdict", verdictIn(outcome.verdict)},
              {"firstFailure", orNull(outcome.firstFailure)},
              {"brokenOff", orNull(outcome.brokenOff)},
              {"hookProblem", orNull(outcome.hookProblem)},
              {"endedAt", now()},
              {"seconds", outcome.seconds},
              {"tests", Json::array()}};
  if (outcome.traffic) device["traffic"] = *outcome.traffic;
  for (const FinishedTest& test : tests) device["tests"].push_back(jsonOf(test));
  screen_.line(lineOf(device));
}

}  // namespace station
