#pragma once

#include <stdexcept>

namespace sim {

/// What keeps the program from doing as told; the text is for the user.
class Problem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace sim
