#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace results {

// The rows of a results store, one struct a table, one field a column. docs/results.md tells what
// each column means. Times are integer microseconds since 1970, UTC. An absent text is null in the
// store, an empty one is empty. Plain values: copy them as you like, hand them to any thread.

/// How a device's run, or one attempt at a test, ended.
enum class Verdict { Running, Pass, Fail, BrokenOff, Incomplete };
/// How one record ended.
enum class Mark { Pass, Fail, NotApplicable };
/// Why a device was tested.
enum class RunKind { Production, Retest, Golden, Study, Debug };
/// What a sub-test compares with.
enum class SpecKind { Range, Match, None };
/// What is known of an instrument's calibration at the time of a run.
enum class Calibration { Valid, DueSoon, Overdue, Unknown, Simulated };

/// The word that stands in the store: "RUNNING", "BROKEN_OFF", "production", "due_soon".
const char* text(Verdict verdict);
const char* text(Mark mark);
const char* text(RunKind kind);
const char* text(SpecKind kind);
const char* text(Calibration calibration);

/// A station: a computer, and the name that it has on the line.
struct Station {
  std::string id;
  std::string name;
  std::string machineId;
  std::optional<std::string> location;
};

/// What was run.
struct Plan {
  std::string id;
  std::string bundle;
  std::optional<std::string> bundleVersion;
  std::string frameworkVersion;
  std::string flow;
  std::string configSha256;
};

/// A sub-test with its limits. A limit that changes makes another row.
struct Spec {
  std::string id;
  std::string bundle;
  std::string flow;
  std::string number;  ///< as in a record: "3.1"
  std::string test;
  std::string subTest;
  SpecKind kind = SpecKind::None;
  std::optional<double> low;
  std::optional<double> high;
  std::optional<std::string> expected;
  std::optional<std::string> unit;
  std::int64_t priority = 3;
};

/// One device at one site, once.
struct Run {
  std::string id;
  std::string stationId;
  std::string site;
  std::int64_t runIndex = 0;
  std::optional<std::string> batch;
  std::string serial;
  std::optional<std::string> part;
  std::optional<std::string> revision;
  std::optional<std::string> process;
  std::optional<std::string> operatorName;
  std::string planId;
  RunKind kind = RunKind::Production;
  std::optional<std::string> retestOf;
  std::optional<std::string> reason;
  std::int64_t startedUs = 0;
  std::optional<std::int64_t> endedUs;
  Verdict verdict = Verdict::Running;
  std::optional<std::int64_t> firstFailure;  ///< the sequence of a measurement
  std::optional<std::string> message;
  std::int64_t records = 0;
  std::optional<std::string> sha256;
};

/// One attempt at one test. RUNNING until it is stored again with its end.
struct Step {
  std::string runId;
  std::int64_t step = 0;     ///< the place in the flow, from 1
  std::int64_t attempt = 1;  ///< 2: the retest
  std::int64_t number = 0;   ///< the major number of its records
  std::string test;
  std::int64_t startedUs = 0;
  std::optional<std::int64_t> endedUs;
  Verdict verdict = Verdict::Running;
  std::optional<std::string> errorDomain;
  std::optional<std::int64_t> errorCode;
  std::optional<std::string> errorText;
};

/// One record.
struct Measurement {
  std::string runId;
  std::int64_t sequence = 0;  ///< from 1, in the order of the reports
  std::int64_t step = 0;
  std::int64_t attempt = 1;
  bool superseded = false;
  std::string specId;
  std::optional<double> value;
  std::optional<std::string> text;
  Mark verdict = Mark::NotApplicable;
  std::optional<std::string> message;
};

/// An extra of a record, or a station attribute of a run (sequence 0).
struct Attribute {
  std::string runId;
  std::int64_t sequence = 0;
  std::string name;
  std::optional<std::string> value;
};

/// An instrument as it was last calibrated. A new calibration makes another row.
struct Instrument {
  std::string id;
  std::optional<std::string> vendor;
  std::optional<std::string> model;
  std::optional<std::string> serial;
  std::optional<std::int64_t> calibratedUs;
  std::optional<std::int64_t> dueUs;
  std::optional<std::string> certificate;
};

/// An instrument that took part in a run, under the name that the plug-in knows.
struct RunInstrument {
  std::string runId;
  std::string name;
  std::string instrumentId;
  std::optional<std::string> firmware;
  std::optional<std::int64_t> dueUs;
  Calibration state = Calibration::Unknown;
};

/// What a person or the station did.
struct Event {
  std::string stationId;
  std::int64_t sequence = 0;
  std::int64_t atUs = 0;
  std::string kind;
  std::optional<std::string> site;
  std::optional<std::string> runId;
  std::optional<std::string> who;
  std::optional<std::string> text;
};

/// A run with everything that belongs to it, each list in the order of its primary key.
struct RunContent {
  Run run;
  Plan plan;
  std::vector<Step> steps;
  std::vector<Measurement> measurements;
  std::vector<Spec> specs;  ///< those that the measurements name
  std::vector<Attribute> attributes;
  std::vector<RunInstrument> runInstruments;
  std::vector<Instrument> instruments;  ///< those that took part
};

}  // namespace results
