#pragma once

#include <optional>
#include <string>

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
};

}  // namespace station
