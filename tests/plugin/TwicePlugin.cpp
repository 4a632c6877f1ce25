// A plug-in with a mistake: one class is registered twice.

#include <QLTestMethod.h>

class TwiceTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};
QLT_CLASS(TwiceTest);
QLT_CLASS(TwiceTest);
