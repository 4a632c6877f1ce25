#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "DeviceSource.h"
#include "Screen.h"
#include "SerialNumberPrompt.h"
#include "SerialNumberRules.h"
#include "SerialNumbers.h"
#include "SerialPattern.h"
#include "common/Files.h"

namespace station {

/// The serial numbers of a run come from the command line or, for the sites that it gives none for,
/// from the operator at the terminal. He is asked for one site at a time, the first one that waits
/// in the order of the sites.
class SerialNumberSource : public DeviceSource {
 public:
  /// `CannotRun` when `given` names another site or the same number for two of them, when there is
  /// nobody to ask for the others, or when a number does not match `pattern`, as all of them must
  /// if there is one.
  SerialNumberSource(SerialNumbers given, std::vector<std::string> sites, Screen& screen,
                     std::optional<SerialPattern> pattern = {}, RunPurpose purpose = {});

  /// Absent when the operator ends the run instead, from then on for all sites. He is asked again
  /// for a number that is being tested at another site, or ill-formed.
  std::optional<NextDevice> next(const std::string& site) override;
  std::optional<std::string> whoMadeSafe(const std::string& site,
                                         const std::string& reason) override;
  /// What the operator answers to `question` of a test, to which there is no complaint. Such
  /// questions come before those for serial numbers. Absent as with `SerialNumberPrompt::ask`, and
  /// when it is cancelled; the others go on then.
  std::optional<std::string> answerTo(
      const std::string& question, const std::function<std::string(const std::string&)>& complaint,
      SerialNumberPrompt::Patience patience, const std::stop_token& cancelled);
  void release(const std::string& site) override;
  void leave(const std::string& site) override;
  void end() override;

 private:
  void checkSites() const;
  void checkPattern() const;
  void checkThatNoneIsTwice() const;
  void checkThatOthersCanBeAsked() const;
  std::ptrdiff_t rankOf(const std::string& site) const;

  const SerialNumbers given_;
  const std::vector<std::string> sites_;
  Screen& screen_;
  const RunPurpose purpose_;
  SerialNumberRules rules_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable_any changed_;
  std::set<std::ptrdiff_t> waiting_;  // ranks of the sites to ask for
  int questions_ = 0;                 // of tests, that wait or are asked
  bool asking_ = false;
  bool ended_ = false;
  const quillon::internal::Pipe over_;  // can be read from once `end` was called
  SerialNumberPrompt prompt_;           // for the site that asks
};

}  // namespace station
