#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reports/Report.h"
#include "reports/Reports.h"
#include "results/Samples.h"
#include "results/Store.h"

namespace test {

/// A device's test, for a store of known figures.
struct SampleRun {
  std::string serial;
  results::Verdict verdict = results::Verdict::Pass;
  std::vector<double> values = {};  ///< of the sub-tests V1, V2, ...
  std::string site = "left";
  std::optional<std::string> process = {};
  std::optional<std::string> operatorName = {};
  results::RunKind kind = results::RunKind::Production;
  std::string version = "1.0";
  double low = 4;
  double high = 6;
  std::int64_t day = 0;                          ///< after the first
  std::optional<std::size_t> firstFailure = {};  ///< the place of a value
  std::optional<double> superseded = {};  ///< a first attempt at the first sub-test, that failed
  std::string instrument = "0815";
};

/// A store whose runs begin one after the other, a minute apart.
class SampleStore {
 public:
  static constexpr std::int64_t kFirstDay = 1'795'132'800'000'000;  // 2026-11-20 00:00 UTC
  static constexpr std::int64_t kMinute = 60'000'000;

  SampleStore() { setenv("TZ", "UTC", 1); }

  std::string add(const SampleRun& sample);
  /// One of each serial number, all with this verdict.
  void addAll(const std::vector<std::string>& serials,
              results::Verdict verdict = results::Verdict::Pass) {
    for (const std::string& serial : serials) {
      SampleRun sample;
      sample.serial = serial;
      sample.verdict = verdict;
      add(sample);
    }
  }

  results::ReportQueries queries() const { return results::ReportQueries(folder.options.file); }

  const StoreFolder folder;
  results::Store store{folder.options};

 private:
  std::int64_t minute_ = 0;
};

/// The fields of a report's table by the keys of its columns: one map a row.
std::vector<std::map<std::string, reports::Cell>> rowsOf(const reports::Report& report,
                                                         const std::string& table);

/// The number of a field; NaN when it has none.
double numberIn(const reports::Cell& cell);
/// The text of a field as people see it.
std::string textIn(const reports::Cell& cell);

}  // namespace test
