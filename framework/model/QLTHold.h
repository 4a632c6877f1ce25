#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>

/// A site that waits for an instrument which another site holds.
struct QLTWaiting {
  std::string site;            ///< which waits
  std::string resource;        ///< what for, by the name that the waiting site has for it
  std::string holder;          ///< the site that holds it
  double waitedInSeconds = 0;  ///< so far
};

/// An instrument that is held for one site; see `QLTExclusive`, through which tests do it.
///
/// The hold is that of the object: one object under several names, or in several suites, is held as
/// one. The thread that holds it may take it again, and holds it until the last of its holds is
/// gone. Threads that wait get it in the order in which they came; none overtakes another. A hold
/// keeps the object alive.
///
/// The class operations may be called on any thread; a hold is used by one thread at a time, and
/// may be given up by another one than took it.
class QLT_EXPORT QLTHold {
 public:
  /// How long to wait for an instrument where nothing else is said.
  static constexpr double kTimeOutInSeconds = 60;

  QLTHold() noexcept = default;  ///< holds nothing
  QLTHold(QLTHold&& other) noexcept;
  QLTHold& operator=(QLTHold&& other) noexcept;  ///< gives up what was held here
  ~QLTHold();                                    ///< gives it up

  /// Holds `object` for the site, as soon as no other thread does, but waits no longer than the
  /// time-out: infinity waits for ever; 0, less and NaN do not wait. Holds nothing for a null
  /// object, without an error, and when time has run out: code -80003, with the name of the
  /// resource and the site that holds it ("resource" and "holder" in the user information).
  [[nodiscard]] static QLTHold take(std::shared_ptr<QLTObject> object, const QLTText& resource,
                                    const QLTText& site,
                                    double timeOutInSeconds = kTimeOutInSeconds,
                                    QLTError* error = nullptr);
  /// Gives the object up before the hold itself ends.
  void release() noexcept;
  /// True when something is held.
  explicit operator bool() const noexcept { return object_ != nullptr; }

  // For the station application.

  /// Who waits for whom now; those that wait for one object in the order in which they will get it.
  static std::vector<QLTWaiting> waiting();
  /// Sets what is called each time that a wait has begun or ended, on the thread that waits; it
  /// then asks `waiting`. It must not take a hold itself. What it throws is logged and goes no
  /// further. An empty one ends it; an earlier one may still be running then.
  static void setObserver(std::function<void()> observer);

 private:
  explicit QLTHold(std::shared_ptr<QLTObject> object);

  std::shared_ptr<QLTObject> object_;
};
