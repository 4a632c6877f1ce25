// A plug-in with a mistake: one of its static objects throws.

#include <QLTestMethod.h>

#include <stdexcept>

class EarlyTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};
QLT_CLASS(EarlyTest);

namespace {

struct Fixture {
  Fixture() { throw std::runtime_error("no fixture"); }
};
const Fixture fixture;

}  // namespace
