#include "RunDetails.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "reports/Format.h"

namespace station {
namespace {

using reports::Cell;
using reports::Kind;
using reports::Table;

void addAbout(reports::Report& report, const std::string& name,
              const std::optional<std::string>& text) {
  if (text) report.about.emplace_back(name, *text);
}

Cell secondsBetween(std::int64_t started, const std::optional<std::int64_t>& ended) {
  return ended ? Cell(static_cast<double>(*ended - started) / 1e6) : Cell();
}

Table stepsOf(const results::RunContent& content) {
  Table table{"steps",
              "Tests",
              {{"step", "Step", Kind::Count},
               {"attempt", "Attempt", Kind::Count},
               {"test", "Test"},
               {"seconds", "Took", Kind::Seconds, "s"},
               {"verdict", "Verdict"},
               {"error", "Error"}},
              {}};
  for (const results::Step& step : content.steps) {
    table.rows.push_back({step.step, step.attempt, step.test,
                          secondsBetween(step.startedUs, step.endedUs), text(step.verdict),
                          step.errorText});
  }
  return table;
}

Table measurementsOf(const results::RunContent& content) {
  std::map<std::string, const results::Spec*> specs;
  for (const results::Spec& spec : content.specs) specs[spec.id] = &spec;
  Table table{"measurements",
              "Measurements",
              {{"number", "Number"},
               {"test", "Test"},
               {"sub_test", "Sub-test"},
               {"attempt", "Attempt", Kind::Count},
               {"value", "Value", Kind::Number},
               {"text", "Text"},
               {"unit", "Unit"},
               {"low", "Low", Kind::Number},
               {"high", "High", Kind::Number},
               {"expected", "Expected"},
               {"verdict", "Verdict"},
               {"superseded", "Counts"},
               {"message", "Message"}},
              {}};
  for (const results::Measurement& measurement : content.measurements) {
    const auto found = specs.find(measurement.specId);
    const results::Spec spec = found == specs.end() ? results::Spec() : *found->second;
    table.rows.push_back({spec.number, spec.test, spec.subTest, measurement.attempt,
                          measurement.value, measurement.text, spec.unit, spec.low, spec.high,
                          spec.expected, text(measurement.verdict),
                          measurement.superseded ? "no, repeated" : "yes", measurement.message});
  }
  return table;
}

Table attributesOf(const results::RunContent& content) {
  Table table{"attributes",
              "Attributes",
              {{"sequence", "Record", Kind::Count}, {"name", "Name"}, {"value", "Value"}},
              {}};
  for (const results::Attribute& attribute : content.attributes) {
    table.rows.push_back({attribute.sequence == 0 ? Cell() : Cell(attribute.sequence),
                          attribute.name, attribute.value});
  }
  return table;
}

Table instrumentsOf(const results::RunContent& content) {
  std::map<std::string, const results::Instrument*> instruments;
  for (const results::Instrument& each : content.instruments) instruments[each.id] = &each;
  Table table{"instruments",
              "Instruments",
              {{"name", "Name"},
               {"vendor", "Vendor"},
               {"model", "Model"},
               {"serial", "Serial number"},
               {"firmware", "Firmware"},
               {"calibration", "Calibration"},
               {"due", "Due", Kind::Time}},
              {}};
  for (const results::RunInstrument& use : content.runInstruments) {
    const auto found = instruments.find(use.instrumentId);
    const results::Instrument each =
        found == instruments.end() ? results::Instrument() : *found->second;
    table.rows.push_back(
        {use.name, each.vendor, each.model, each.serial, use.firmware, text(use.state), use.dueUs});
  }
  return table;
}

Table eventsOf(const results::RunRecord& record) {
  Table table{"events",
              "Events",
              {{"at", "At", Kind::Time}, {"kind", "Kind"}, {"who", "Who"}, {"text", "Text"}},
              {}};
  for (const results::Event& event : record.events) {
    table.rows.push_back({event.atUs, event.kind, event.who, event.text});
  }
  return table;
}

}  // namespace

reports::Report detailsOf(const results::RunRecord& record, const std::string& store) {
  const results::RunContent& content = record.content;
  const results::Run& run = content.run;
  reports::Report report;
  report.name = "run";
  report.title = "Run " + run.id;
  report.about = {{"Store", store},
                  {"Serial", run.serial},
                  {"Verdict", text(run.verdict)},
                  {"Started", reports::localTime(run.startedUs)},
                  {"Station", record.station.name},
                  {"Site", run.site}};
  addAbout(report, "Part", run.part);
  addAbout(report, "Revision", run.revision);
  addAbout(report, "Batch", run.batch);
  addAbout(report, "Process", run.process);
  addAbout(report, "Operator", run.operatorName);
  report.about.emplace_back("Kind", text(run.kind));
  addAbout(report, "Retest of", run.retestOf);
  addAbout(report, "Reason", run.reason);
  report.about.emplace_back("Plug-in", content.plan.bundle + " " +
                                           content.plan.bundleVersion.value_or("(no version)") +
                                           ", flow " + content.plan.flow);
  addAbout(report, "Message", run.message);
  addAbout(report, "Sum", run.sha256);
  for (Table table : {stepsOf(content), measurementsOf(content), attributesOf(content),
                      instrumentsOf(content), eventsOf(record)}) {
    if (!table.rows.empty()) report.tables.push_back(std::move(table));
  }
  return report;
}

}  // namespace station
