#pragma once

#include <csignal>

namespace station {

/// Takes care of SIGINT, SIGTERM and SIGHUP as long as it lives: the first one asks the run to
/// stop, a second one to stop at once, a third one ends the program. SIGPIPE is ignored: a screen
/// that is gone must not break off a test. SIGCHLD has its standard meaning, whatever the program
/// was started with: how a worker ended must show. One object at a time; the class operations may
/// be called from any thread.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// One that never ends, for a program that lets a signal in its very last moments change nothing
  /// of its exit status.
  static void takeForGood();

  /// True from the first signal on.
  static bool stopRequested();
  /// A descriptor that is readable from the first signal on, for waiting along with others.
  static int descriptor();
  /// True from the second signal on.
  static bool stopAtOnceRequested();
  static int atOnceDescriptor();  ///< likewise

  /// Quiet: says nothing of a request to stop, for somebody else does, in these words.
  static void setQuiet(bool quiet);
  static constexpr const char* kStopText =
      "Stopping after the running tests. Once more (Ctrl-C) ends them at once.\n";
  static constexpr const char* kAtOnceText =
      "Ending the running tests. Once more (Ctrl-C) ends the program as it is.\n";

 private:
  struct sigaction earlierInt_ {};
  struct sigaction earlierTerm_ {};
  struct sigaction earlierHup_ {};
  struct sigaction earlierPipe_ {};
  struct sigaction earlierChild_ {};
};

}  // namespace station
