#pragma once

#include <cstdint>
#include <string>

#include "Endpoint.h"

namespace test {

/// A pseudo terminal: the master for the test, the slave's path for the code under test. Its
/// attributes are read and set through the master, also while nobody has the slave open.
class Pty {
 public:
  Pty();

  const std::string& path() const { return path_; }
  Endpoint& master() { return master_; }
  /// The line speed in baud.
  std::uint32_t lineSpeed() const;

 private:
  Endpoint master_;
  std::string path_;
};

}  // namespace test
