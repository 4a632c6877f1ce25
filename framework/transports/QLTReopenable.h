#pragma once

#include <string>

#include <QLTError.h>
#include <QLTExport.h>

/// What a line, or an instrument on one, can tell of its line, so that a lost instrument is told
/// apart from a device that failed, and is opened again. The framework's ports, sockets and drivers
/// have it; an instrument of a plug-in derives from it beside `QLTObject`. The station application
/// finds it by a `dynamic_pointer_cast` of a resource.
///
/// It asks `isLost` after a test that ended with an error. Before the next device it calls `reopen`
/// until that is true.
///
/// One thread at a time uses the object, as with all its operations; hold an instrument that sites
/// share (`QLTHold`) before it is opened again.
class QLT_EXPORT QLTReopenable {
 public:
  QLTReopenable() = default;
  QLTReopenable(const QLTReopenable&) = delete;
  QLTReopenable& operator=(const QLTReopenable&) = delete;
  virtual ~QLTReopenable();

  /// Whether the line is gone: the device was pulled out, the peer has ended the connection, or the
  /// last try to open it has failed. An instrument that only says nothing is not lost, nor is one
  /// that was closed on purpose or never opened. Asks the system, sends nothing and does not wait.
  virtual bool isLost() const = 0;
  /// Where the line leads, for people: "/dev/ttyUSB0", "10.0.0.5:5025".
  virtual std::string where() const = 0;
  /// Closes what is left of the line, opens it again with the settings it has now, and makes the
  /// instrument ready for the next test. False, with the reason in `error`, when that did not
  /// succeed; it may be tried again.
  virtual bool reopen(QLTError* error = nullptr) = 0;
};
