#pragma once

#include <string>

#include "common/Descriptor.h"
#include "station/Screen.h"

namespace test {

/// A screen whose two streams are files that can be read back.
class CapturedScreen {
 public:
  CapturedScreen();

  station::Screen& screen() { return screen_; }
  std::string output() const;  ///< so far
  std::string errors() const;  ///< so far

 private:
  quillon::internal::Descriptor output_;
  quillon::internal::Descriptor errors_;
  station::Screen screen_;
};

}  // namespace test
