#pragma once

// Internal: not installed.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTConfigFinding.h>
#include <QLTError.h>
#include <QLTObject.h>
#include <QLTStationPlan.h>
#include <QLTValue.h>
#include <QLTestSuite.h>

#include "configuration/InstrumentClasses.h"

namespace quillon::internal {

using InstrumentTable = std::map<std::string, std::shared_ptr<QLTObject>, std::less<>>;
/// Why instruments did not come up, by their names.
using FailureTable = std::map<std::string, QLTError, std::less<>>;
using SuiteTable = std::map<std::string, std::shared_ptr<QLTestSuite>, std::less<>>;

/// Why something of a plan could not be made.
struct BuildProblem {
  QLTError error;            // for whoever loads
  QLTConfigFinding finding;  // for whoever checks
};

/// Makes what a plan describes: instruments, suites and flows of test methods.
class StationBuilder {
 public:
  enum class Policy {
    Make,    ///< everything; the first problem that ends a load ends the building
    Pretend  ///< no instrument, so that nothing touches hardware; goes on after each problem, and
             ///< leaves out those that are the plan's own findings
  };
  using Report = std::function<void(const BuildProblem&)>;

  /// `bundle` and `principalClass` may be null as far as nothing needs them.
  StationBuilder(const QLTBundle* bundle, const QLTClass* principalClass, Policy policy,
                 Report report)
      : bundle_(bundle),
        principalClass_(principalClass),
        makes_(policy == Policy::Make),
        report_(std::move(report)) {}

  // Each is false when loading ends there. What was made before stays.

  /// Enters the plan's instruments into `instruments`, and those that do not come up into
  /// `failures`. Where lost ones are kept, one of the plug-in's that fails is skipped, too.
  bool buildInstruments(const QLTStationPlan& plan, LostInstruments lost,
                        InstrumentTable& instruments, FailureTable& failures);
  /// Hands the suites of the plan's sites to `enter`, each with its resources out of `instruments`
  /// and a copy of what `attributes` holds then. A resource that is missing may be so for one of
  /// the `failures`.
  bool buildSites(
      const QLTStationPlan& plan, const InstrumentTable& instruments, const FailureTable& failures,
      const QLTDictionary& attributes,
      const std::function<void(std::shared_ptr<QLTestSuite>, const std::string&)>& enter);
  /// Builds the plan's flows in every suite. When it makes, the last suite takes
  /// the plan's own sub-tests.
  bool buildFlows(QLTStationPlan& plan, const SuiteTable& suites);

 private:
  /// Passes a problem on; whether the building goes on.
  bool problem(QLTError error, QLTConfigFinding finding);
  bool refused(const QLTStationPlan& plan, std::size_t index, std::int32_t code);
  std::shared_ptr<QLTestSuite> makeSuite(const QLTStationPlan& plan,
                                         const QLTStationPlan::Site& site);
  void principalClassUnusable();
  bool addResources(const QLTStationPlan& plan, const QLTStationPlan::Site& site,
                    const InstrumentTable& instruments, const FailureTable& failures,
                    QLTestSuite& suite);
  bool buildTest(const QLTStationPlan& plan, const QLTStationPlan::Flow& flow,
                 QLTStationPlan::Test& test, const std::shared_ptr<QLTestSuite>& suite, bool isLast,
                 QLTFlow& methods);
  bool enterDefaultFlow(const QLTStationPlan& plan, QLTestSuite& suite);

  const QLTBundle* bundle_;
  const QLTClass* principalClass_;
  bool makes_;
  Report report_;
};

/// Enters the versions of plug-in and framework.
void enterVersions(const QLTBundle& bundle, QLTDictionary& stationAttributes);

}  // namespace quillon::internal
