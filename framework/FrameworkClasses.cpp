#include <QLTestMethod.h>
#include <QLTestMethodDelay.h>
#include <QLTestSuite.h>

#include "platform/BundleLoading.h"

namespace quillon::internal {

std::vector<std::pair<std::string, QLTClass::Operations>> frameworkClasses() {
  return {{"QLTestMethod", operationsOf<QLTestMethod>()},
          {"QLTestMethodDelay", operationsOf<QLTestMethodDelay>()},
          {"QLTestSuite", operationsOf<QLTestSuite>()}};
}

}  // namespace quillon::internal
