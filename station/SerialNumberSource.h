#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Screen.h"
#include "SerialNumberPrompt.h"
#include "SerialNumbers.h"

namespace station {

/// Where the serial numbers of a run come from: the command line or, for the sites that it gives
/// none for, the operator.
///
/// For one thread.
class SerialNumberSource {
 public:
  /// `CannotRun` when `given` names another site, or when there is nobody to ask for the others.
  SerialNumberSource(SerialNumbers given, std::vector<std::string> sites, Screen& screen);

  /// The numbers of the next devices, one for each site in their order. Absent when the operator
  /// ends the run instead.
  std::optional<std::vector<std::string>> next();

 private:
  void checkSites() const;
  void warnOfEqualOnes() const;
  void checkThatOthersCanBeAsked() const;

  const SerialNumbers given_;
  const std::vector<std::string> sites_;
  Screen& screen_;
  SerialNumberPrompt prompt_;
};

}  // namespace station
