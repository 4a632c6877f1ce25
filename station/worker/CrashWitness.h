#pragma once

#include <memory>

#include "link/CrashPage.h"

namespace station {

/// Has the process tell, when a thread of a site crashes, which site that was; then it ends as it
/// would have without. What somebody handles himself, before or after, is left to him.
///
/// Once in a process; before the plug-in is opened, so that a handler of its own replaces this one.
/// The page stays mapped to the end of the process.
void witnessCrashes(std::unique_ptr<CrashPage> page);

/// The current thread is at work for a site as long as this lives. `number` is the place of the
/// site among the loaded ones, from 1.
class CrashWitness {
 public:
  explicit CrashWitness(int number);
  ~CrashWitness();
  CrashWitness(const CrashWitness&) = delete;
  CrashWitness& operator=(const CrashWitness&) = delete;

 private:
  std::unique_ptr<char[]> stack_;  // for the handler of a thread whose own is exhausted
};

}  // namespace station
