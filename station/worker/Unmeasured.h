#pragma once

#include <cstdint>

#include <QLTestMethod.h>
#include <QLTestResult.h>

namespace station {

/// A record for each sub-test of `method` that `records`, those of a test that says it has passed,
/// do not report: FAIL, "VREF was not measured", or NA for one that is optional. `index` is the
/// test's place in the flow.
///
/// A sub-test is reported by a record with its number or, as a plug-in may make records by hand,
/// one with its name.
QLTestResults unmeasured(const QLTestMethod& method, std::int32_t index,
                         const QLTestResults& records);

}  // namespace station
