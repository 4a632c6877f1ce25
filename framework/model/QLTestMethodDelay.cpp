#include "QLTestMethodDelay.h"

#include "common/Sleep.h"

bool QLTestMethodDelay::run(std::int32_t, QLTError*) {
  const QLTValue* entry = param("delayInSeconds");
  const double seconds = entry != nullptr ? entry->doubleValue() : 0.0;
  quillon::internal::sleepForSeconds(seconds);
  return addResultAndCompare(1, seconds) != kQLTestResultFail;
}
