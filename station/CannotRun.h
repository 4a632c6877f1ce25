#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace station {

/// Why the station cannot run, and what the operator can do about it. Ends the program with exit
/// status 2.
class CannotRun : public std::runtime_error {
 public:
  explicit CannotRun(const std::string& problem, std::string advice = {})
      : std::runtime_error(problem), advice_(std::move(advice)) {}

  const std::string& advice() const { return advice_; }  ///< may be empty

 private:
  std::string advice_;
};

}  // namespace station
