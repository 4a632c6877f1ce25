#pragma once

#include <QLTError.h>
#include <QLTExport.h>

/// An instrument that can do harm to a fixture or to a person, and that knows how to stop: a supply
/// whose outputs are on, a load, a relay. An instrument of a plug-in derives from it beside
/// `QLTObject`. The station application finds it by a `dynamic_pointer_cast` of a resource, and
/// asks each one of a site after the plug-in's `onSafeState`.
///
/// One thread at a time uses the object, as with all its operations.
class QLT_EXPORT QLTMakesSafe {
 public:
  QLTMakesSafe() = default;
  QLTMakesSafe(const QLTMakesSafe&) = delete;
  QLTMakesSafe& operator=(const QLTMakesSafe&) = delete;
  virtual ~QLTMakesSafe();

  /// Sends what makes the instrument safe, and waits for no answer. The station asks it of all
  /// instruments of a site before `makeSafe` of the first one, so that one which does not answer
  /// keeps no other on. Does nothing at first, as for an instrument that cannot be told without
  /// its answers: `makeSafe` has to do all of it then, and to do it for all of its outputs,
  /// whatever becomes of one.
  virtual void tellSafe();
  /// Brings the instrument into the state in which the fixture may be touched, and asks it whether
  /// it is so; not knowing what was done with it before. False, with the reason, when that cannot
  /// be said.
  virtual bool makeSafe(QLTError* error = nullptr) = 0;
};
