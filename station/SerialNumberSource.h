#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "Screen.h"
#include "SerialNumberPrompt.h"
#include "SerialNumbers.h"
#include "SerialPattern.h"

namespace station {

/// Where the serial numbers of a run come from: the command line or, for the sites that it gives
/// none for, the operator. He is asked for one site at a time, the first one that waits in the
/// order of the sites.
///
/// Each site asks from its own thread.
class SerialNumberSource {
 public:
  /// `CannotRun` when `given` names another site, when there is nobody to ask for the others, or
  /// when a number does not match `pattern`, as all of them must if there is one.
  SerialNumberSource(SerialNumbers given, std::vector<std::string> sites, Screen& screen,
                     std::optional<SerialPattern> pattern = {});

  /// The number of the site's next device; absent when the operator ends the run instead, from then
  /// on for all sites. He is asked again for a number that is being tested at another site, or
  /// ill-formed.
  std::optional<std::string> next(const std::string& site);
  /// The name of the person who has made the unsafe fixture of a site safe by hand. Absent as with
  /// `next`, and when there is no terminal to ask on.
  std::optional<std::string> whoMadeSafe(const std::string& site, const std::string& reason);
  /// What the operator answers to `question` of a test, to which there is no complaint. Such
  /// questions come before those for serial numbers. Absent as with `SerialNumberPrompt::ask`, and
  /// when it is cancelled; the others go on then.
  std::optional<std::string> answerTo(
      const std::string& question, const std::function<std::string(const std::string&)>& complaint,
      SerialNumberPrompt::Patience patience, const std::stop_token& cancelled);
  /// The site's device is done.
  void release(const std::string& site);
  /// The site wants no more numbers; the others wait for it until it says so.
  void leave(const std::string& site);

 private:
  void checkSites() const;
  void checkPattern() const;
  void warnOfEqualOnes() const;
  void checkThatOthersCanBeAsked() const;
  std::ptrdiff_t rankOf(const std::string& site) const;
  std::string complaintOfPattern(const std::string& serialNumber) const;
  std::string complaintAbout(const std::string& serialNumber) const;

  const SerialNumbers given_;
  const std::vector<std::string> sites_;
  Screen& screen_;
  const std::optional<SerialPattern> pattern_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable_any changed_;
  std::set<std::ptrdiff_t> waiting_;            // ranks of the sites to ask for
  std::map<std::string, std::string> running_;  // serial number by site
  int questions_ = 0;                           // of tests, that wait or are asked
  bool asking_ = false;
  bool ended_ = false;
  SerialNumberPrompt prompt_;  // for the site that asks
};

}  // namespace station
