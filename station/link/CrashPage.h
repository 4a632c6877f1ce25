#pragma once

#include <atomic>

#include "common/Descriptor.h"

namespace station {

/// A piece of memory that host and worker share, in which a worker that crashes leaves whose thread
/// it was: nothing else of a process works then.
class CrashPage {
 public:
  /// One for a host and the worker that it starts, close-on-exec. Throws `std::system_error`.
  static quillon::internal::Descriptor make();

  /// Maps the memory behind `descriptor`, which is not needed afterwards. Where that fails, nothing
  /// is ever told.
  explicit CrashPage(int descriptor);
  ~CrashPage();
  CrashPage(const CrashPage&) = delete;
  CrashPage& operator=(const CrashPage&) = delete;

  /// Tells whose thread it was, as a number of both sides' choice above 0. The first one counts.
  /// May be called by a signal handler.
  void tell(int who) noexcept;
  /// What was told; 0 when nothing was.
  int told() const noexcept;

 private:
  std::atomic<int>* who_ = nullptr;
};

}  // namespace station
