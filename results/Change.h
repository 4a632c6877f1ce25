#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "results/Store.h"

namespace results {

// Internal to the library: what can be asked of the thread that writes. Rows are ready to be
// stored, with their ids.

struct BeginRun {
  std::unique_ptr<std::pair<Run, Plan>> row;
};
struct AddMeasurement {
  Measurement measurement;
  Spec spec;
};
struct AddInstrument {
  RunInstrument use;
  Instrument instrument;
};
struct Supersede {
  std::int64_t step = 0;
  std::int64_t attempt = 0;
};
struct FinishRun {
  RunEnd end;
  /// How many measurements the run must have; absent for a run that lost some.
  std::optional<std::int64_t> records;
};
struct Recover {
  Recovered* result = nullptr;  ///< whose owner waits
};
/// Does what can be done for the end of the run before it comes.
struct PrepareEnd {};
/// A write of no account.
struct Touch {};

struct Change {
  std::string runId;  ///< "": of no run
  std::variant<BeginRun, Step, AddMeasurement, Attribute, AddInstrument, Supersede, FinishRun,
               Event, Recover, PrepareEnd, Touch>
      what;
};

}  // namespace results
