#include "QLTSleeper.h"

#include <chrono>

#include <QLTConsoleLog.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Sleep.h"

using quillon::internal::format;

std::shared_ptr<QLTSleeper> QLTSleeper::sleeper() { return std::make_shared<QLTSleeper>(); }

void QLTSleeper::sleep(double seconds) {
  QLTLog(format("delaying %f Seconds", seconds));
  quillon::internal::sleepForSeconds(seconds);
}

void QLTSleeper::microSleep(std::int32_t microseconds) {
  // The line has never shown the count; log readers know it as this fixed text.
  QLTLog(format("delaying %f microSeconds", 0.0));
  quillon::internal::sleepFor(std::chrono::microseconds(microseconds));
}

void QLTSleeper::sendCommand(const std::string& command) { sleep(QLTUtil::hex2int(command)); }
