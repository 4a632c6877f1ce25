#pragma once

#include <string>
#include <string_view>

#include <QLTExport.h>

/// Who an instrument is, as it tells it itself. What it does not tell is empty.
struct QLT_EXPORT QLTIdentity {
  std::string vendor;
  std::string model;
  std::string serial;
  std::string firmware;

  /// That of an answer to "*IDN?": four texts with commas between them, the firmware with what
  /// follows if there are more. Blanks and line ends around them are dropped.
  static QLTIdentity of(std::string_view answer);

  bool operator==(const QLTIdentity&) const = default;
};

/// An instrument that has told who it is. The framework's and the bench library's instruments that
/// speak SCPI have it; an instrument of a plug-in derives from it beside `QLTObject`. The station
/// application finds it by a `dynamic_pointer_cast` of a resource, and keeps with each device what
/// measured it.
///
/// One thread at a time uses the object, as with all its operations.
class QLT_EXPORT QLTHasIdentity {
 public:
  QLTHasIdentity() = default;
  QLTHasIdentity(const QLTHasIdentity&) = delete;
  QLTHasIdentity& operator=(const QLTHasIdentity&) = delete;
  virtual ~QLTHasIdentity();

  /// What the instrument told when it was made, or last opened again; empty texts when it told
  /// nothing. Asks the instrument nothing and does not wait: it is called before each device.
  virtual QLTIdentity who() const = 0;
};
