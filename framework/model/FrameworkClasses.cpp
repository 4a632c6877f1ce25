#include <utility>

#include <QLTClass.h>
#include <QLTestMethod.h>
#include <QLTestMethodDelay.h>
#include <QLTestSuite.h>

#include "platform/BundleLoading.h"

// The framework's own classes, in its own bundle, so that a configuration can name them.

namespace {

using quillon::internal::operationsOf;

[[maybe_unused]] const bool registered = [] {
  QLTBundle*& opened = quillon::internal::bundleBeingOpened();
  QLTBundle* const outer = std::exchange(opened, &quillon::internal::frameworkBundleToFill());
  QLTClass::registerClass("QLTestMethod", operationsOf<QLTestMethod>());
  QLTClass::registerClass("QLTestMethodDelay", operationsOf<QLTestMethodDelay>());
  QLTClass::registerClass("QLTestSuite", operationsOf<QLTestSuite>());
  opened = outer;
  return true;
}();

}  // namespace
