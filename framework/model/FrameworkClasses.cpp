#include <QLTClass.h>
#include <QLTestMethod.h>
#include <QLTestMethodDelay.h>
#include <QLTestSuite.h>

// The framework's own classes, in its own bundle, so that a configuration can name them.

namespace {

using quillon::internal::operationsOf;

[[maybe_unused]] const bool kRegistered = [] {
  const QLTBundle& framework = QLTBundle::frameworkBundle();
  QLTClass::registerClass(framework, "QLTestMethod", operationsOf<QLTestMethod>());
  QLTClass::registerClass(framework, "QLTestMethodDelay", operationsOf<QLTestMethodDelay>());
  QLTClass::registerClass(framework, "QLTestSuite", operationsOf<QLTestSuite>());
  return true;
}();

}  // namespace
