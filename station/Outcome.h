#pragma once

#include <optional>
#include <string>

#include "DeviceSource.h"

namespace station {

enum class Verdict { Pass, Fail, BrokenOff };

/// How one device fared.
struct Outcome {
  std::string site;
  std::string serialNumber;
  int round = 1;                            ///< which device of the site this was, from 1
  Verdict verdict = Verdict::BrokenOff;     ///< until the flow has come to its end
  std::optional<std::string> firstFailure;  ///< of the tests
  std::optional<std::string> brokenOff;     ///< why the run was broken off
  std::optional<std::string> hookProblem;   ///< what went wrong after a failure, which stays one
  double seconds = 0;
  RunPurpose purpose = {};
  std::optional<std::string> traffic = {};  ///< the file with what its instruments said
  std::string run = {};  ///< its id in the results store; empty when it could not be entered
};

}  // namespace station
