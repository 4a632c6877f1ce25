// The plug-in whose configuration the fuzzer makes up: one suite without hooks, one test method.

#include <QLTestMethod.h>
#include <QLTestSuite.h>

class FuzzSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
};
QLT_CLASS(FuzzSuite);

class FuzzTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};
QLT_CLASS(FuzzTest);
