#pragma once

#include <string>

#include "Outcome.h"
#include "Screen.h"

namespace station {

inline std::string verdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return "PASS";
    case Verdict::Fail:
      return "FAIL";
    case Verdict::BrokenOff:
      return "BROKEN OFF";
  }
  return {};
}

inline const char* symbolOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return "\u2713";  // a check mark
    case Verdict::Fail:
      return "\u2717";  // a cross
    case Verdict::BrokenOff:
      return "!";
  }
  return "";
}

inline Colour colourOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return Colour::Green;
    case Verdict::Fail:
      return Colour::Red;
    case Verdict::BrokenOff:
      return Colour::Yellow;
  }
  return Colour::Plain;
}

}  // namespace station
